// SPDX-License-Identifier: Apache-2.0
#include "tools/explain/present.h"

#include "sim/data/digits.h"
#include "sim/data/utf8.h"
#include "tools/explain/hex.h"

#include "vorn/convert.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string_view>

namespace vorn::tool {

namespace {

struct Currency {
    std::string_view code;
    const char* letters;
    std::size_t decimals;
};

constexpr Currency kCurrencies[] = {
    {"0156", "CNY", 2}, {"0840", "USD", 2}, {"0978", "EUR", 2}, {"0344", "HKD", 2}, {"0446", "MOP", 2},
    {"0901", "TWD", 2}, {"0392", "JPY", 0}, {"0410", "KRW", 0}, {"0702", "SGD", 2}, {"0826", "GBP", 2},
    {"0643", "RUB", 2}, {"0764", "THB", 2}, {"0036", "AUD", 2}, {"0124", "CAD", 2}, {"0756", "CHF", 2},
};

const Currency* currencyOf(const std::string& code)
{
    const auto* const row = std::find_if(std::begin(kCurrencies), std::end(kCurrencies),
                                         [&code](const Currency& c) { return code == c.code; });
    return row == std::end(kCurrencies) ? nullptr : row;
}

struct Named {
    std::string_view code;
    const char* name;
};

template <std::size_t N>
std::string named(const Named (&rows)[N], const std::string& code)
{
    for (const Named& row : rows) {
        if (code == row.code) {
            return std::string(row.name) + " (" + code + ")";
        }
    }
    return code;
}

constexpr Named kCountries[] = {{"0156", "China"},   {"0344", "Hong Kong"}, {"0446", "Macao"},
                                {"0158", "Taiwan"},  {"0840", "USA"},       {"0392", "Japan"},
                                {"0410", "Korea"},   {"0702", "Singapore"}, {"0826", "United Kingdom"},
                                {"0276", "Germany"}, {"0250", "France"},    {"0643", "Russia"}};

constexpr Named kTypes[] = {
    {"00", "purchase"}, {"01", "cash"},    {"09", "purchase with cashback"}, {"20", "refund"},
    {"21", "deposit"},  {"30", "inquiry"}, {"31", "balance inquiry"},        {"40", "transfer"},
    {"60", "load"},     {"61", "load"},    {"62", "load, unlinked account"}, {"63", "cash load"}};

bool wide(std::uint32_t code)
{
    return (code >= 0x1100 && code <= 0x115F) || (code >= 0x2E80 && code <= 0xA4CF) ||
           (code >= 0xAC00 && code <= 0xD7A3) || (code >= 0xF900 && code <= 0xFAFF) ||
           (code >= 0xFE30 && code <= 0xFE6F) || (code >= 0xFF00 && code <= 0xFF60) ||
           (code >= 0xFFE0 && code <= 0xFFE6) || (code >= 0x20000 && code <= 0x3FFFD);
}

} // namespace

// ---------------------------------------------------------------- values

std::string printable(std::string utf8)
{
    if (std::all_of(utf8.begin(), utf8.end(), [](char c) { return c >= 0x20 && c < 0x7F; })) {
        return utf8;
    }
    std::string text;
    for (std::size_t at = 0; at < utf8.size();) {
        const sim::Character character = sim::characterAt(utf8, at);
        text += character.size > 0 && sim::seen(character.value) ? utf8.substr(at, character.size) : "?";
        at += std::max<std::size_t>(character.size, 1);
    }
    return text;
}

bool plainAscii(const std::string& text)
{
    return std::all_of(text.begin(), text.end(), [](char c) { return (static_cast<unsigned char>(c) & 0x80U) == 0; });
}

const char* const kNoGbk = "no conversion from GBK on this system";

bool gbkConverts()
{
    static const bool known = [] {
        char utf8[8] = {};
        return GbkToUtf8("\xD2\xF8", 2, utf8, sizeof utf8) == 0 && std::string(utf8) == "\xE9\x93\xB6";
    }();
    return known;
}

GbkText gbkText(ByteSpan bytes)
{
    std::string text(bytes.begin(), bytes.end());
    text.erase(std::min(text.find('\0'), text.size()));
    text.erase(text.find_last_not_of(' ') + 1);
    if (plainAscii(text)) {
        return {printable(text), ""};
    }
    if (!gbkConverts()) {
        return {toHex(bytes), kNoGbk};
    }
    std::vector<char> converted(3 * text.size() + 8);
    if (GbkToUtf8(text.data(), text.size(), converted.data(), converted.size()) != 0) {
        return {toHex(bytes), "no GBK text"};
    }
    return {printable(converted.data()), ""};
}

std::string textOfGbk(ByteSpan bytes)
{
    const GbkText text = gbkText(bytes);
    return text.problem.empty() ? text.text : text.text + " (" + text.problem + ")";
}

std::string amountText(const std::string& bcd, const std::string& currency)
{
    if (!sim::isDigits(bcd)) {
        return bcd;
    }
    const std::size_t decimals = currencyDecimals(currency);
    std::string digits = bcd.substr(std::min(bcd.find_first_not_of('0'), bcd.size()));
    if (digits.size() <= decimals) {
        digits = std::string(decimals + 1 - digits.size(), '0') + digits;
    }
    if (decimals > 0) {
        digits.insert(digits.size() - decimals, ".");
    }
    return digits;
}

std::string dateText(const std::string& yymmdd)
{
    if (yymmdd.size() != 6 || !sim::isDigits(yymmdd)) {
        return yymmdd;
    }
    const std::string month = yymmdd.substr(2, 2);
    const std::string day = yymmdd.substr(4, 2);
    if (month < "01" || month > "12" || day > "31") {
        return yymmdd;
    }
    return "20" + yymmdd.substr(0, 2) + "-" + month + "-" + day;
}

std::string timeText(const std::string& hhmmss)
{
    if (hhmmss.size() != 6 || !sim::isDigits(hhmmss)) {
        return hhmmss;
    }
    return hhmmss.substr(0, 2) + ":" + hhmmss.substr(2, 2) + ":" + hhmmss.substr(4, 2);
}

std::string currencyText(const std::string& code)
{
    const Currency* const row = currencyOf(code);
    return row == nullptr ? code : std::string(row->letters) + " (" + code + ")";
}

std::string currencyCode(const std::string& text)
{
    for (const Currency& row : kCurrencies) {
        if (text == row.letters) {
            return std::string(row.code);
        }
    }
    return text;
}

std::size_t currencyDecimals(const std::string& code)
{
    const Currency* const row = currencyOf(code);
    return row == nullptr ? 2 : row->decimals;
}

// Currencies and countries share many codes; a tag of either kind is told by both.
std::string countryText(const std::string& code)
{
    const std::string country = named(kCountries, code);
    const Currency* const currency = currencyOf(code);
    if (currency == nullptr) {
        return country;
    }
    return country == code ? currencyText(code) : country.substr(0, country.find(" (")) + " / " + currencyText(code);
}

std::string transactionTypeText(const std::string& type) { return named(kTypes, type); }

std::string cryptogramName(unsigned informationData)
{
    switch (informationData & 0xC0U) {
    case 0x00:
        return "AAC";
    case 0x40:
        return "TC";
    case 0x80:
        return "ARQC";
    default:
        return "no cryptogram";
    }
}

// ---------------------------------------------------------------- tables

std::size_t columns(const std::string& utf8)
{
    std::size_t count = 0;
    for (std::size_t at = 0; at < utf8.size();) {
        const sim::Character character = sim::characterAt(utf8, at);
        count += wide(character.value) ? 2U : 1U;
        at += std::max<std::size_t>(character.size, 1);
    }
    return count;
}

std::string Table::line(const std::vector<std::string>& cells, const std::vector<std::size_t>& widths) const
{
    std::string text;
    for (std::size_t i = 0; i < cells.size(); ++i) {
        const std::string blanks(widths[i] - columns(cells[i]), ' ');
        const bool right = std::find(right_.begin(), right_.end(), i) != right_.end();
        text += (i > 0 ? "  " : "") + (right ? blanks + cells[i] : cells[i] + blanks);
    }
    return text.substr(0, text.find_last_not_of(' ') + 1) + "\n";
}

std::string Table::text() const
{
    std::vector<std::size_t> widths;
    const auto measure = [&widths](const std::vector<std::string>& cells) {
        widths.resize(std::max(widths.size(), cells.size()));
        for (std::size_t i = 0; i < cells.size(); ++i) {
            widths[i] = std::max(widths[i], columns(cells[i]));
        }
    };
    measure(headings_);
    for (const auto& row : rows_) {
        measure(row);
    }
    std::string text = headings_.empty() ? "" : line(headings_, widths);
    for (const auto& row : rows_) {
        text += line(row, widths);
    }
    return text;
}

} // namespace vorn::tool
