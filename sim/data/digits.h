// SPDX-License-Identifier: Apache-2.0
// Decimal digits in text that people and profiles give.
#pragma once

#include <cstddef>
#include <optional>
#include <string_view>

namespace vorn::sim {

bool isDigits(std::string_view text); // at least one, and nothing else

// The number that one to `most` digits say, nine at the most; nothing for another text.
std::optional<unsigned> numberOf(std::string_view digits, std::size_t most);

} // namespace vorn::sim
