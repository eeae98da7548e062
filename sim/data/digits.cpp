// SPDX-License-Identifier: Apache-2.0
#include "sim/data/digits.h"

#include <algorithm>
#include <numeric>

namespace vorn::sim {

bool isDigits(std::string_view text)
{
    return !text.empty() && std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

std::optional<unsigned> numberOf(std::string_view digits, std::size_t most)
{
    if (digits.size() > most || !isDigits(digits)) {
        return std::nullopt;
    }
    return std::accumulate(digits.begin(), digits.end(), 0U,
                           [](unsigned sum, char digit) { return 10 * sum + static_cast<unsigned>(digit - '0'); });
}

} // namespace vorn::sim
