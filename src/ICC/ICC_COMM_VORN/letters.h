// SPDX-License-Identifier: Apache-2.0
// The letters of IC_GetInfo's record, in its order. The tables of the tags that a caller's letters ask for
// (lettered.cpp) and of the fields (card_info.cpp) are checked against them when they are compiled.
#pragma once

#include <cstddef>

namespace vorn {

constexpr char kInfoLetters[] = "ABCDEFGHIJKL";
constexpr std::size_t kInfoLetterCount = sizeof kInfoLetters - 1;

// Does a table with a member `letter` hold exactly these, in this order?
template <class Row, std::size_t Rows>
constexpr bool holdsInfoLetters(const Row (&table)[Rows])
{
    if (Rows != kInfoLetterCount) {
        return false;
    }
    for (std::size_t i = 0; i < Rows; ++i) {
        if (table[i].letter != kInfoLetters[i]) {
            return false;
        }
    }
    return true;
}

} // namespace vorn
