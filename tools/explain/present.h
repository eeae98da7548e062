// SPDX-License-Identifier: Apache-2.0
// Values as people read them, and how much of them everybody may see.
#pragma once

#include "sim/data/bytes.h"
#include "tools/explain/mask.h"

#include <string>
#include <vector>

namespace vorn::tool {

using sim::ByteSpan;

// ------------------------------------------------------------ values

// Control characters could drive the terminal, marks of writing direction turn a text round, and cards come from
// strangers.
std::string printable(std::string utf8);
bool plainAscii(const std::string& text);
// A card's text: ASCII as it stands, anything else converted from GBK; hex with the reason when that cannot be done.
struct GbkText {
    std::string text; // UTF-8
    std::string problem;
};
GbkText gbkText(ByteSpan bytes);
std::string textOfGbk(ByteSpan bytes); // both in one
// Whether this system's C library has its module for GBK, as the library finds it.
bool gbkConverts();
extern const char* const kNoGbk; // what is said where it has none

// BCD text; what is no number, date or time comes back as it is.
std::string amountText(const std::string& bcd, const std::string& currency = "0156");
std::string dateText(const std::string& yymmdd);
std::string timeText(const std::string& hhmmss);
std::string currencyText(const std::string& code); // "CNY (0156)"
std::string currencyCode(const std::string& text); // "0156" of "CNY"; what is not known as it is
std::size_t currencyDecimals(const std::string& code);
std::string countryText(const std::string& code); // letters where they are known
std::string transactionTypeText(const std::string& type);
std::string cryptogramName(unsigned informationData); // "TC", "ARQC", "AAC"

// ------------------------------------------------------------ tables

std::size_t columns(const std::string& utf8); // on a terminal; Chinese characters take two

class Table {
public:
    explicit Table(std::vector<std::string> headings = {}) : headings_(std::move(headings)) {}
    void alignRight(std::size_t column) { right_.push_back(column); }
    void row(std::vector<std::string> cells) { rows_.push_back(std::move(cells)); }
    std::string text() const;

private:
    std::string line(const std::vector<std::string>& cells, const std::vector<std::size_t>& widths) const;
    std::vector<std::string> headings_;
    std::vector<std::vector<std::string>> rows_;
    std::vector<std::size_t> right_;
};

} // namespace vorn::tool
