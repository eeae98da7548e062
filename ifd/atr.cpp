// SPDX-License-Identifier: Apache-2.0
#include "ifd/atr.h"

#include <initializer_list>

namespace vorn::ifd {
namespace {

constexpr unsigned kHistoricalMax = 15;
constexpr unsigned kOffersTa = 1, kOffersTb = 2, kOffersTc = 4, kOffersTd = 8;
constexpr unsigned kGlobalBytes = 15; // T=15 is no protocol

std::uint8_t exclusiveOr(ByteView bytes)
{
    unsigned check = 0;
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        check ^= bytes[i];
    }
    return static_cast<std::uint8_t>(check);
}

// The historical bytes of an answer to select; false when it is none.
bool historicalOfAts(ByteView answer, ByteView& historical)
{
    if (answer.empty() || answer[0] != answer.size()) {
        return false;
    }
    if (answer.size() == 1) {
        historical = ByteView();
        return true;
    }
    std::size_t at = 2;
    for (const unsigned offered : {0x10U, 0x20U, 0x40U}) {
        at += (answer[1] & offered) != 0 ? 1U : 0U;
    }
    historical = answer.from(at);
    return at <= answer.size() && historical.size() <= kHistoricalMax;
}

} // namespace

AtrFacts readAtr(ByteView atr)
{
    AtrFacts facts;
    if (atr.size() < 2 || atr.size() > kAtrMax || (atr[0] != 0x3B && atr[0] != 0x3F)) {
        return facts;
    }
    std::size_t at = 2;
    unsigned offered = atr[1] >> 4;
    bool checked = false;
    int first = -1;
    int fixed = -1;
    for (int level = 1;; ++level) {
        if (level == 2 && (offered & kOffersTa) != 0) {
            fixed = atr[at] & 0x0F;
        }
        for (const unsigned each : {kOffersTa, kOffersTb, kOffersTc}) {
            at += (offered & each) != 0 ? 1U : 0U;
        }
        if ((offered & kOffersTd) == 0 || at >= atr.size()) {
            break;
        }
        const unsigned td = atr[at++];
        const unsigned protocol = td & 0x0F;
        checked = checked || protocol != 0;
        if (first < 0 && protocol != kGlobalBytes) {
            first = static_cast<int>(protocol);
        }
        offered = td >> 4;
    }
    const std::size_t size = at + (atr[1] & 0x0FU) + (checked ? 1U : 0U);
    facts.protocol = fixed >= 0 ? fixed : (first >= 0 ? first : 0);
    facts.wellFormed = (offered & kOffersTd) == 0 && size == atr.size() && (!checked || exclusiveOr(atr.from(1)) == 0);
    return facts;
}

Atr contactlessAtr(ByteView answer)
{
    Atr atr;
    if (readAtr(answer).wellFormed) {
        proven(atr.append(answer));
        return atr;
    }
    ByteView historical;
    if (!historicalOfAts(answer, historical)) {
        historical = ByteView();
    }
    static_assert(4 + kHistoricalMax + 1 <= kAtrMax, "the longest one built here fits");
    const std::uint8_t head[] = {0x3B, static_cast<std::uint8_t>(0x80U + historical.size()), 0x80, 0x01};
    proven(atr.append(ByteView(head, sizeof head)));
    proven(atr.append(historical));
    proven(atr.append(exclusiveOr(atr.view().from(1))));
    return atr;
}

} // namespace vorn::ifd
