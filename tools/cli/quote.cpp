// SPDX-License-Identifier: Apache-2.0
#include "tools/cli/quote.h"

#include "tools/explain/present.h"

#include <algorithm>
#include <cctype>

namespace vorn::tool {

namespace {

constexpr std::size_t kShort = 24;
constexpr std::size_t kFewDigits = 7;  // no account number is as short
constexpr std::size_t kBeginning = 4;  // shown of what may hold one
constexpr std::size_t kLongWord = 160; // of a path, say

bool isDigit(char c) { return c >= '0' && c <= '9'; }

} // namespace

std::string inQuotes(const std::string& text)
{
    const std::string shown = printable(text);
    const auto digits = static_cast<std::size_t>(std::count_if(shown.begin(), shown.end(), isDigit));
    const std::size_t most = digits > kFewDigits ? kBeginning : kShort;
    return "'" + (shown.size() > most ? shown.substr(0, most) + "..." : shown) + "'";
}

std::string withoutNumbers(const std::string& message)
{
    std::string text;
    for (std::size_t at = 0; at < message.size();) {
        const auto end = std::find_if_not(message.begin() + static_cast<std::ptrdiff_t>(at), message.end(), isDigit);
        const auto run = static_cast<std::size_t>(end - message.begin()) - at;
        if (run == 0) {
            text += message[at++];
            continue;
        }
        text += run > kFewDigits ? message.substr(at, kBeginning) + "..." : message.substr(at, run);
        at += run;
    }
    std::string result;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t space = std::min(text.find(' ', at), text.size());
        const std::string word = text.substr(at, space - at);
        result += word.size() > kLongWord ? word.substr(0, kShort) + "..." : word;
        result += space < text.size() ? " " : "";
        at = space + 1;
    }
    return printable(result);
}

} // namespace vorn::tool
