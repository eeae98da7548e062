// SPDX-License-Identifier: Apache-2.0
// Characters in bytes that strangers chose: the one place that says what UTF-8 is (RFC 3629) and what of it is seen.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace vorn::sim {

struct Character {
    std::uint32_t value = 0;
    std::size_t size = 0; // in bytes; 0: no UTF-8, longer than it has to be included
};

Character characterAt(const std::string& text, std::size_t position);

// Not for controls, marks of direction, separators of lines, and characters without width or place.
bool seen(std::uint32_t character);

} // namespace vorn::sim
