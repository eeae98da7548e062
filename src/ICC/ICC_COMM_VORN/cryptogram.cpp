// SPDX-License-Identifier: Apache-2.0
#include "ICC/ICC_COMM_VORN/cryptogram.h"

#include "ICC/ICC_COMM_VORN/terminal_data.h"
#include "card/tags.h"

#include "ICC_COMM_VORN.h"

#include <cstring>

namespace vorn {
namespace {

enum class Source {
    Cryptogram,
    Information,
    IssuerData, // left out when the card sent none
    Counter,
    Terminal,   // from the terminal's data, else the fallback
    LastOnline, // GET DATA
    Card,       // from the card's data with its own length, else left out
    Aip
};

struct Item {
    Tag tag;
    Source source;
    std::size_t width;
    const std::uint8_t* fallback;
    bool firstTagByteOnlyInTc;
};

constexpr Item from(Source source, Tag tag, std::size_t width = 0) { return {tag, source, width, nullptr, false}; }

constexpr std::uint8_t kCapabilities[] = {0x20, 0xA1, 0x00};

constexpr Item kItems[] = {
    from(Source::Cryptogram, tag::kApplicationCryptogram, 8),
    from(Source::Information, tag::kCryptogramInformation, 1),
    from(Source::IssuerData, tag::kIssuerApplicationData),
    {tag::kUnpredictableNumber, Source::Terminal, 4, fallback::kNumber, false},
    from(Source::Counter, tag::kAtc, 2),
    {tag::kTvr, Source::Terminal, 5, fallback::kTvr, false},
    from(Source::LastOnline, tag::kLastOnlineAtc),
    {tag::kTransactionDate, Source::Terminal, 3, fallback::kZeros, false},
    {tag::kTransactionType, Source::Terminal, 1, fallback::kZeros, false},
    {tag::kAmountAuthorised, Source::Terminal, 6, fallback::kZeros, true},
    {tag::kCurrencyCode, Source::Terminal, 2, fallback::kChina, true},
    from(Source::Card, tag::kPan),
    from(Source::Card, tag::kPanSequenceNumber),
    from(Source::Aip, tag::kAip, 2),
    {tag::kCountryCode, Source::Terminal, 2, fallback::kChina, true},
    {tag::kAmountOther, Source::Terminal, 6, fallback::kZeros, true},
    {tag::kTerminalCapabilities, Source::Terminal, 3, kCapabilities, false},
};

constexpr std::size_t longestText()
{
    std::size_t size = 0;
    for (const Item& item : kItems) {
        const std::size_t own = VORN_RESPONSE_MAX - (item.source == Source::IssuerData ? kIssuerDataAt : 0);
        size += item.tag.view().size() + 1 + (item.width != 0 ? item.width : own);
    }
    return size;
}
static_assert(longestText() <= kCryptogramTextMax, "every item at its longest has room");
static_assert(2 * kCryptogramTextMax + 1 == ICC_CRYPTOGRAM_CAPACITY, "and so has the host's text");

void put(CryptogramBuffer& out, ByteView tag, ByteView value, std::size_t width)
{
    proven(putHeader(out, tag, width));
    const ByteView kept = value.first(width);
    proven(out.skip(width - kept.size())); // right-aligned behind zeros
    proven(out.append(kept));
}

void put(CryptogramBuffer& out, Tag tag, ByteView value) { put(out, tag.view(), value, value.size()); }

void putTerminal(CryptogramBuffer& out, const Item& item, CryptogramText kind, ByteView terminalData)
{
    const TagValue value = readTag(item.tag, terminalData);
    if (!value.found) {
        put(out, item.tag, ByteView(item.fallback, item.width));
        return;
    }
    const bool firstByteOnly = kind == CryptogramText::Tc && item.firstTagByteOnlyInTc;
    const ByteView tag = firstByteOnly ? item.tag.view().first(1) : item.tag.view();
    put(out, tag, value.view(), item.width);
}

void putLastOnline(CryptogramBuffer& out, const Item& item)
{
    constexpr unsigned char kLastOnlineAtcIndex = 1;
    std::uint8_t object[VORN_RESPONSE_MAX] = {};
    std::uint8_t size = 0;
    if (vrdk_GetData(kLastOnlineAtcIndex, object, &size) != VORN_OK) {
        return;
    }
    const TagValue value = readTag(item.tag, ByteView(object, size));
    if (value.found) {
        put(out, item.tag, value.view());
    } else {
        proven(out.skip(size)); // compatibility: "A counter that is answered otherwise leaves a hole"
    }
}

void putCard(CryptogramBuffer& out, const Item& item, ByteView cardData)
{
    const TagValue value = readTag(item.tag, cardData);
    if (value.found) {
        put(out, item.tag, value.view());
    }
}

} // namespace

int CryptogramResponse::generate(std::uint8_t referenceControl, ByteView dolValues)
{
    std::memset(response_, 0, sizeof response_);
    responseSize_ = 0;
    return static_cast<int>(vrdk_GenerateAC(referenceControl, dolValues.data(),
                                            static_cast<unsigned char>(dolValues.size()), response_, &responseSize_));
}

bool CryptogramResponse::parse()
{
    value_ = readTag(tag::kResponseFormat1, ByteView(response_, responseSize_));
    return value_.found;
}

void buildCryptogramText(CryptogramText kind, const CryptogramResponse& response, const CryptogramSources& sources,
                         CryptogramBuffer& out)
{
    for (const Item& item : kItems) {
        switch (item.source) {
        case Source::Cryptogram:
            put(out, item.tag, response.cryptogram());
            break;
        case Source::Information:
            put(out, item.tag.view(), response.information(), item.width);
            break;
        case Source::IssuerData:
            if (!response.issuerData().empty()) {
                put(out, item.tag, response.issuerData());
            }
            break;
        case Source::Counter:
            put(out, item.tag, response.counter());
            break;
        case Source::Terminal:
            putTerminal(out, item, kind, sources.terminalData);
            break;
        case Source::LastOnline:
            putLastOnline(out, item);
            break;
        case Source::Card:
            putCard(out, item, sources.cardData);
            break;
        case Source::Aip:
            if (sources.aip.found) {
                put(out, item.tag, ByteView(sources.aip.bytes, item.width));
            }
            break;
        }
    }
}

} // namespace vorn
