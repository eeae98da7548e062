// SPDX-License-Identifier: Apache-2.0
// What holds for all that the tool shows of foreign bytes.
#pragma once

#include "support/input.h"
#include "support/require.h"
#include "tools/explain/item.h"
#include "tools/explain/render.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <string>

namespace vorn::fuzz {

inline void requirePrintable(const std::string& text)
{
    require(std::none_of(text.begin(), text.end(), [](unsigned char c) { return c < 0x20 || c == 0x7F; }),
            "no control characters");
}

// As JSON that is strict about UTF-8, and as lines.
inline std::string requireShowable(const tool::Item& item)
{
    std::string json;
    try {
        json = tool::jsonOf(item).dump();
    } catch (const nlohmann::json::exception&) {
        require(false, "an item is UTF-8");
    }
    require(nlohmann::json::accept(json), "an item is JSON");
    std::string text = tool::textOf(item);
    require(
        std::none_of(text.begin(), text.end(), [](unsigned char c) { return (c < 0x20 && c != '\n') || c == 0x7F; }),
        "no control characters but line ends");
    return text;
}

// An account number that every mask has to recognise: sixteen digits without a zero, begun like a card's.
inline std::string accountNumber(ByteView bytes)
{
    std::string digits = "622";
    for (std::size_t i = 0; i < 12; ++i) {
        digits += static_cast<char>('1' + bytes[i] % 9);
    }
    digits += '7';
    return digits;
}

} // namespace vorn::fuzz
