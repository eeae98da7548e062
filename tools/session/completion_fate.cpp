// SPDX-License-Identifier: Apache-2.0
#include "tools/session/completion_fate.h"

#include "sim/data/tlv.h"
#include "tools/explain/apdu_words.h"
#include "tools/explain/hex.h"
#include "tools/session/verdict.h"

#include <algorithm>

namespace vorn::tool {

namespace {

constexpr std::uint8_t kGenerateCryptogram = 0xAE;
constexpr std::uint8_t kReferenceControlMask = 0xC0; // 00: the card is asked to decline
constexpr std::size_t kApduAt = 3;

bool asksForTc(const Bytes& apdu)
{
    return apdu.size() > 2 && apdu[1] == kGenerateCryptogram && (apdu[2] & kReferenceControlMask) != 0;
}

// The answer is still to be fetched, or the command to be sent once more.
bool goesOn(const LineExchange& exchange)
{
    const unsigned first = statusOf(exchange.payload) >> 8;
    return first == 0x61 || first == 0x62 || first == 0x6C;
}

} // namespace

CompletionFate fateOf(const LineWatcher& line)
{
    const auto& exchanges = line.exchanges();
    const auto asked = std::find_if(exchanges.begin(), exchanges.end(),
                                    [](const LineExchange& exchange) { return asksForTc(exchange.apdu()); });
    const bool goneBefore =
        std::any_of(exchanges.begin(), asked, [](const LineExchange& exchange) { return exchange.saysNoCard(); });
    if (goneBefore && asked != exchanges.end() && asked->saysNoCard()) {
        return CompletionFate::NotAsked;
    }
    for (auto exchange = asked; exchange != exchanges.end(); ++exchange) {
        if (troubleOf(*exchange) != Trouble::None) {
            return CompletionFate::Unknown;
        }
        if (!goesOn(*exchange)) {
            return CompletionFate::Answered;
        }
    }
    const Bytes& left = line.abandoned();
    const bool abandoned = left.size() > kApduAt && asksForTc(Bytes(left.begin() + kApduAt, left.end()));
    return asked != exchanges.end() || abandoned ? CompletionFate::Unknown : CompletionFate::NotAsked;
}

bool asksForReferral(const std::string& answer)
{
    constexpr std::size_t codeAt = 8; // behind the cryptogram
    constexpr std::size_t codeSize = 2;
    const auto bytes = fromHex(answer);
    const auto data = bytes ? sim::tlv::find(*bytes, 0x91) : std::nullopt;
    if (!data || data->size() < codeAt + codeSize) {
        return false;
    }
    const std::string code(data->begin() + codeAt, data->begin() + codeAt + codeSize);
    return code == "01" || code == "02";
}

} // namespace vorn::tool
