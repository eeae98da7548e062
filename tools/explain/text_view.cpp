// SPDX-License-Identifier: Apache-2.0
#include "tools/explain/text_view.h"

#include "sim/data/digits.h"
#include "tools/explain/hex.h"
#include "tools/explain/lettered.h"
#include "tools/explain/mask.h"
#include "tools/explain/object_view.h"
#include "tools/explain/present.h"

#include <algorithm>

namespace vorn::tool {

namespace {

struct Letter {
    char letter;
    Tag tag;
};

// Which object each letter stands for. A and B hold text, the others hex.
const Letter kRecord[] = {{'A', 0x5A},   {'B', 0x57},   {'C', 0x9F79}, {'D', 0x9F77}, {'E', 0x5F24}, {'F', 0x9F78},
                          {'G', 0x5F34}, {'H', 0x9F36}, {'I', 0x9F62}, {'J', 0x9F61}, {'K', 0x5F20}, {'L', 0x9F0B}};

const Letter kTransaction[] = {{'P', 0x9F02}, {'Q', 0x9F03}, {'R', 0x5F2A}, {'S', 0x9A},   {'T', 0x9C},
                               {'U', 0x9F21}, {'V', 0x9F4E}, {'J', 0x9F1A}, {'K', 0x9F37}, {'L', 0x95},
                               {'M', 0x9F66}, {'N', 0x9F7A}, {'O', 0x9F7B}};

template <std::size_t N>
Tag tagOf(const Letter (&rows)[N], char letter)
{
    const auto* const row =
        std::find_if(std::begin(rows), std::end(rows), [letter](const Letter& r) { return r.letter == letter; });
    return row == std::end(rows) ? 0 : row->tag;
}

Item explainField(char letter, Tag tag, const std::string& text, bool show)
{
    const std::string name(1, letter);
    if (letter == 'A') {
        return object(name, tagName(tag), show ? printable(text) : printable(maskPan(text)));
    }
    if (letter == 'B') {
        return object(name, tagName(tag), show ? printable(text) : printable(maskTrack2(text)));
    }
    const auto bytes = fromHex(text);
    if (!bytes) {
        return object(name, tagName(tag), printable(maskedUnless(show, text)), "not hex");
    }
    Item item = explainObject(tag, *bytes, show);
    item.name = name;
    return item;
}

} // namespace

Explanation explainRecord(const std::string& text, bool show)
{
    const CardRecord record = parseCardRecord(text);
    Explanation result{"card record", {}, record.problem};
    result.items.reserve(record.fields.size());
    for (const CardRecord::Field& field : record.fields) {
        const Tag tag = tagOf(kRecord, field.letter);
        if (field.text.empty()) {
            result.items.push_back(object(std::string(1, field.letter), tagName(tag), "", "not on the card"));
        } else {
            result.items.push_back(explainField(field.letter, tag, field.text, show));
        }
    }
    return result;
}

Explanation explainTransactions(const std::string& text)
{
    const TransactionList list = parseTransactions(text);
    Explanation result{"card's transaction log", {}, list.problem};
    for (const LoggedTransaction& one : list.transactions) {
        const auto counter = fromHex(one.counter);
        Item item =
            object("", "Transaction " + (counter ? std::to_string(bigEndian(*counter)) : printable(one.counter)), "",
                   dateText(one.date) + " " + timeText(one.time) + ", " + transactionTypeText(one.type));
        item.below = {object("Q", "Amount, other", one.otherAmount,
                             amountText(one.otherAmount, one.currency) + " " + currencyText(one.currency)),
                      object("V", "Terminal country code", one.country, countryText(one.country)),
                      object("W", "Merchant name", "", maskText(printable(one.merchant)))};
        result.items.push_back(std::move(item));
    }
    return result;
}

Explanation explainTransactionData(const std::string& text, bool show)
{
    constexpr std::size_t header = 4;
    constexpr std::size_t usual = 8; // fields
    Explanation result{"transaction data", {}, {}};
    result.items.reserve(usual);
    for (std::size_t at = 0; at < text.size();) {
        const std::string count = text.substr(std::min(at + 1, text.size()), 3);
        const bool field = count.size() == 3 && sim::isDigits(count);
        const std::size_t size = field ? std::stoul(count) : 0;
        if (!field || size > text.size() - at - header) {
            result.problem = "no whole field at character " + std::to_string(at + 1);
            return result;
        }
        const Tag tag = tagOf(kTransaction, text[at]);
        const auto bytes = fromHex(text.substr(at + header, size));
        Item item = tag != 0 && bytes
                        ? explainObject(tag, *bytes, show)
                        : object("", "", printable(maskedUnless(show, text.substr(at + header, size))), "not known");
        item.name = printable(text.substr(at, 1));
        result.items.push_back(std::move(item));
        at += header + size;
    }
    return result;
}

} // namespace vorn::tool
