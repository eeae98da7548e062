// SPDX-License-Identifier: Apache-2.0
#include "tools/explain/lettered.h"

#include <algorithm>
#include <array>

namespace vorn::tool {

namespace {

constexpr std::size_t kHeader = 4; // letter and length

bool hexDigit(char c) { return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'F'); }

std::optional<std::size_t> lengthAt(const std::string& text, std::size_t at)
{
    if (at + 3 > text.size()) {
        return std::nullopt;
    }
    std::size_t length = 0;
    for (std::size_t i = at; i < at + 3; ++i) {
        if (text[i] < '0' || text[i] > '9') {
            return std::nullopt;
        }
        length = 10 * length + static_cast<std::size_t>(text[i] - '0');
    }
    return length;
}

std::string placeOf(std::size_t at) { return " at character " + std::to_string(at + 1); }

// A field of hex text with a length that is always the same.
struct FixedField {
    const char* header;
    std::size_t size;
    std::string LoggedTransaction::*value;
};

// P has a length and no text: the field behind it is written over it.
constexpr const char* kBegin = "P012";
constexpr const char* kCounter = "X004";
constexpr std::size_t kCounterSize = 4;

const std::array<FixedField, 6>& fixedFields()
{
    static const std::array<FixedField, 6> fields = {{{"Q012", 12, &LoggedTransaction::otherAmount},
                                                      {"R004", 4, &LoggedTransaction::currency},
                                                      {"S006", 6, &LoggedTransaction::date},
                                                      {"T002", 2, &LoggedTransaction::type},
                                                      {"U006", 6, &LoggedTransaction::time},
                                                      {"V004", 4, &LoggedTransaction::country}}};
    return fields;
}

bool hexAt(const std::string& text, std::size_t at, std::size_t size)
{
    return at + size <= text.size() && std::all_of(text.begin() + static_cast<std::ptrdiff_t>(at),
                                                   text.begin() + static_cast<std::ptrdiff_t>(at + size), hexDigit);
}

// Reads the fields before the name. Returns where W stands, or nothing.
std::optional<std::size_t> readFixed(const std::string& text, std::size_t at, LoggedTransaction* into)
{
    if (text.compare(at, kHeader, kBegin) != 0) {
        return std::nullopt;
    }
    at += kHeader;
    for (const FixedField& field : fixedFields()) {
        if (text.compare(std::min(at, text.size()), kHeader, field.header) != 0 ||
            !hexAt(text, at + kHeader, field.size)) {
            return std::nullopt;
        }
        if (into != nullptr) {
            into->*field.value = text.substr(at + kHeader, field.size);
        }
        at += kHeader + field.size;
    }
    return at < text.size() && text[at] == 'W' ? std::optional(at) : std::nullopt;
}

// W's count is of the card's bytes and the text is UTF-8, so the name ends at the first X that is followed by the end
// or by a whole beginning of the next transaction. That beginning is longer than any name: no name can look like it.
std::optional<std::size_t> findCounter(const std::string& text, std::size_t from)
{
    for (std::size_t at = text.find(kCounter, from); at != std::string::npos; at = text.find(kCounter, at + 1)) {
        const std::size_t end = at + kHeader + kCounterSize;
        if (hexAt(text, at + kHeader, kCounterSize) && (end == text.size() || readFixed(text, end, nullptr))) {
            return at;
        }
    }
    return std::nullopt;
}

} // namespace

std::optional<std::string> CardRecord::field(char letter) const
{
    const auto found =
        std::find_if(fields.begin(), fields.end(), [letter](const Field& f) { return f.letter == letter; });
    return found == fields.end() ? std::nullopt : std::optional(found->text);
}

CardRecord parseCardRecord(const std::string& text)
{
    CardRecord record;
    for (std::size_t at = 0; at < text.size();) {
        const char letter = text[at];
        const auto length = lengthAt(text, at + 1);
        if (letter < 'A' || letter > 'L' || !length) {
            record.problem = "no field" + placeOf(at);
            return record;
        }
        at += kHeader;
        record.fields.push_back({letter, text.substr(at, *length)});
        if (at + *length > text.size()) {
            record.problem = std::string("field ") + letter + " is cut" + placeOf(at);
            return record;
        }
        at += *length;
    }
    return record;
}

TransactionList parseTransactions(const std::string& text)
{
    TransactionList list;
    for (std::size_t at = 0; at < text.size();) {
        LoggedTransaction one;
        const auto name = readFixed(text, at, &one);
        const auto bytes = name ? lengthAt(text, *name + 1) : std::nullopt;
        const auto counter = bytes ? findCounter(text, *name + kHeader) : std::nullopt;
        if (!counter) {
            list.problem = "no whole transaction" + placeOf(at);
            return list;
        }
        one.merchantBytes = static_cast<int>(*bytes);
        one.merchant = text.substr(*name + kHeader, *counter - *name - kHeader);
        one.counter = text.substr(*counter + kHeader, kCounterSize);
        list.transactions.push_back(std::move(one));
        at = *counter + kHeader + kCounterSize;
    }
    return list;
}

} // namespace vorn::tool
