// SPDX-License-Identifier: Apache-2.0
#include "ICC/ICC_COMM_VORN/terminal_data.h"

#include "ICC/ICC_COMM_VORN/lettered.h"
#include "card/tags.h"

#include "vorn/convert.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <ctime>

namespace vorn {
namespace {

using fallback::kChina;
using fallback::kTvr;
using fallback::kZeros;

constexpr std::uint8_t kOne[] = {0x01};
constexpr std::uint8_t kTtq[] = {0xF4, 0x00, 0x00, 0x00};
constexpr std::uint8_t kCashLimit[] = {0x00, 0x00, 0x01, 0x00, 0x00, 0x00};

// The bank's name as it has been stored from the first: its GBK bytes taken for cp1252 characters and written in
// UTF-8, 32 bytes of which the field holds 20. Kept byte for byte.
constexpr std::uint8_t kBankName[] = {0xC3, 0x96, 0xC3, 0x90, 0xC2, 0xB9, 0xC3, 0xBA, 0xC3, 0x87, 0xC3,
                                      0xA0, 0xC2, 0xBA, 0xC3, 0x8C, 0xC2, 0xB4, 0xC2, 0xA2, 0xC3, 0x90,
                                      0xC3, 0xAE, 0xC3, 0x92, 0xC3, 0xB8, 0xC3, 0x90, 0xC3, 0x90};
constexpr std::size_t kMerchantNameSize = 20;
static_assert(sizeof kBankName == 32, "the name in its stored form");

// The 00 behind the last object. It counts in the list's length, as the card layer has had it from the first.
void endList(TerminalData& data) { proven(data.append(0x00)); }

// ---------------------------------------------------------------- the transaction calls

// A value that is longer than its field.
enum class TooLong {
    Cut,     // keeps its first bytes
    KeepEnd, // keeps its last bytes: a date given as YYYYMMDD
    Overrun  // is not cut: it starts before its field and overwrites what stands there
};

enum class Absent { Default, LeaveOut, Random };

enum class Calls { Both, FirstOnly };

// One terminal data object. Where the second call differs from the first, a column says so.
struct TerminalObject {
    char key; // in the caller's text; none: always the default
    Tag tag;
    std::size_t width;
    Absent absent;
    const std::uint8_t* value; // the default
    TooLong inFirst;
    TooLong inSecond;
    Calls calls;
    Tag tagWhenGivenInSecond;  // what the second call writes a given value under
    bool gapWhenGivenInSecond; // one byte stands between tag and length there
};

constexpr TerminalObject object(char key, Tag tag, std::size_t width, const std::uint8_t* value, TooLong inFirst)
{
    return {key, tag, width, Absent::Default, value, inFirst, TooLong::Cut, Calls::Both, tag, false};
}

constexpr TerminalObject optional(char key, Tag tag, std::size_t width, TooLong inBoth)
{
    return {key, tag, width, Absent::LeaveOut, nullptr, inBoth, inBoth, Calls::Both, tag, false};
}

constexpr char kNoKey = '\0';

constexpr TerminalObject kObjects[] = {
    object('P', tag::kAmountAuthorised, 6, kZeros, TooLong::Overrun),
    object('Q', tag::kAmountOther, 6, kZeros, TooLong::Overrun),
    object('J', tag::kCountryCode, 2, kChina, TooLong::Overrun),
    {'L', tag::kTvr, 5, Absent::Default, kTvr, TooLong::Overrun, TooLong::Cut, Calls::Both, tag::kTvr, true},
    object('R', tag::kCurrencyCode, 2, kChina, TooLong::Overrun),
    object('T', tag::kTransactionType, 1, kOne, TooLong::Cut),
    optional('S', tag::kTransactionDate, 3, TooLong::KeepEnd),
    optional('U', tag::kTransactionTime, 3, TooLong::Cut),
    {'K', tag::kUnpredictableNumber, 4, Absent::Random, nullptr, TooLong::Cut, TooLong::Cut, Calls::Both,
     tag::kUnpredictableNumber, false},
    object('M', tag::kTerminalTransactionQualifiers, 4, kTtq, TooLong::Cut),
    {'N', tag::kCashTerminalSupport, 1, Absent::Default, kOne, TooLong::Cut, TooLong::Cut, Calls::Both,
     tag::kTerminalTransactionQualifiers, false},
    object('O', tag::kCashTerminalLimit, 6, kCashLimit, TooLong::Cut),
    {kNoKey, tag::kTerminalIndicator60, 1, Absent::Default, kOne, TooLong::Cut, TooLong::Cut, Calls::FirstOnly,
     tag::kTerminalIndicator60, false},
    object('V', tag::kMerchantName, kMerchantNameSize, kBankName, TooLong::Cut),
    object(kNoKey, tag::kTerminalIndicator69, 1, kOne, TooLong::Cut),
};

constexpr std::size_t longestList()
{
    constexpr std::size_t kHeaderMax = 2 + 1 + 1; // tag, length, and the byte between them
    std::size_t size = kHeaderMax + 2 + 1;        // the response code in front, 00 behind
    for (const TerminalObject& item : kObjects) {
        size += kHeaderMax + item.width;
    }
    return size;
}
static_assert(longestList() <= kTerminalDataMax, "every object has room");

// Appends a field of zeros with the value right-aligned in it. A value that overruns writes over what stands before
// its field; what would fall before the list is dropped.
void putField(TerminalData& data, std::size_t width, ByteView value, TooLong tooLong)
{
    if (tooLong == TooLong::Cut) {
        value = value.first(width);
    } else if (tooLong == TooLong::KeepEnd && value.size() > width) {
        value = value.from(value.size() - width);
    }
    proven(data.skip(width));
    if (value.size() > data.size()) {
        value = value.from(value.size() - data.size());
    }
    if (!value.empty()) {
        std::memcpy(data.data() + data.size() - value.size(), value.data(), value.size());
    }
}

// Not a cryptographic number: it is the terminal's part of what the card signs.
void putRandom(TerminalData& data, std::size_t width)
{
    std::srand(static_cast<unsigned>(std::time(nullptr)));
    for (std::size_t i = 0; i < width; ++i) {
        proven(data.append(static_cast<std::uint8_t>(std::rand() & 0xFF)));
    }
}

void putAbsent(TerminalData& data, const TerminalObject& item)
{
    if (item.absent == Absent::LeaveOut) {
        return;
    }
    proven(putHeader(data, item.tag.view(), item.width));
    if (item.absent == Absent::Random) {
        putRandom(data, item.width);
    } else {
        proven(data.append(ByteView(item.value, item.width)));
    }
}

TagValue valueGiven(const LetteredItems& given, const TerminalObject& item)
{
    return item.key == kNoKey ? TagValue{} : given.value(item.key);
}

void putInFirst(TerminalData& data, const LetteredItems& given, const TerminalObject& item)
{
    const TagValue value = valueGiven(given, item);
    if (!value.found) {
        putAbsent(data, item);
        return;
    }
    proven(putHeader(data, item.tag.view(), item.width));
    putField(data, item.width, value.view(), item.inFirst);
}

void putInSecond(TerminalData& data, const LetteredItems& given, const TerminalObject& item)
{
    if (item.calls == Calls::FirstOnly) {
        return;
    }
    const TagValue value = valueGiven(given, item);
    if (!value.found) {
        putAbsent(data, item);
        return;
    }
    proven(data.append(item.tagWhenGivenInSecond.view()));
    proven(data.skip(item.gapWhenGivenInSecond ? 1 : 0));
    proven(data.append(static_cast<std::uint8_t>(item.width)));
    putField(data, item.width, value.view(), item.inSecond);
}

} // namespace

void buildFirstData(const LetteredItems& given, TerminalData& data)
{
    for (const TerminalObject& item : kObjects) {
        putInFirst(data, given, item);
    }
    endList(data);
}

void buildSecondData(const LetteredItems& given, ByteView responseCode, TerminalData& data)
{
    proven(putObject(data, tag::kAuthorisationResponseCode, responseCode));
    for (const TerminalObject& item : kObjects) {
        putInSecond(data, given, item);
    }
    endList(data);
}

// ---------------------------------------------------------------- the query

void buildQueryData(TerminalData& data)
{
    static constexpr std::uint8_t kAmount[] = {0x00, 0x00, 0x00, 0x00, 0x00, 0x12};

    std::uint8_t today[3] = {};
    GetYYMMDD(today);
    const struct {
        Tag tag;
        ByteView value;
    } objects[] = {
        {tag::kAmountAuthorised, {kAmount, sizeof kAmount}},
        {tag::kAmountOther, {kZeros, 6}},
        {tag::kCountryCode, {kChina, sizeof kChina}},
        {tag::kTvr, {kTvr, sizeof kTvr}},
        {tag::kCurrencyCode, {kChina, sizeof kChina}},
        {tag::kTransactionType, {kOne, sizeof kOne}},
        {tag::kUnpredictableNumber, {fallback::kNumber, sizeof fallback::kNumber}},
        {tag::kTerminalTransactionQualifiers, {kTtq, sizeof kTtq}},
        {tag::kCashTerminalSupport, {kOne, sizeof kOne}},
        {tag::kCashTerminalLimit, {kCashLimit, sizeof kCashLimit}},
        {tag::kMerchantName, {kBankName, kMerchantNameSize}},
        {tag::kTransactionDate, {today, sizeof today}},
        {tag::kTerminalIndicator60, {kOne, sizeof kOne}},
        {tag::kTerminalIndicator69, {kOne, sizeof kOne}},
    };
    for (const auto& item : objects) {
        proven(putObject(data, item.tag, item.value));
    }
    endList(data);
}

} // namespace vorn
