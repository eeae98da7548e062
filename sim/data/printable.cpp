// SPDX-License-Identifier: Apache-2.0
#include "sim/data/printable.h"

#include "sim/data/utf8.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>

namespace vorn::sim {
namespace {

std::string named(const char* kind, std::uint32_t value, int digits)
{
    char text[16];
    std::snprintf(text, sizeof text, "<%s%0*X>", kind, digits, value);
    return text;
}

} // namespace

std::string printable(const std::string& text, std::size_t most)
{
    std::string out;
    std::size_t count = 0;
    for (std::size_t position = 0; position < text.size(); ++count) {
        if (count == most) {
            return out + "...";
        }
        const Character character = characterAt(text, position);
        if (character.size == 0) {
            out += named("", static_cast<std::uint8_t>(text[position]), 2);
        } else if (seen(character.value)) {
            out += text.substr(position, character.size);
        } else {
            out += named("U+", character.value, 4);
        }
        position += std::max<std::size_t>(character.size, 1);
    }
    return out;
}

} // namespace vorn::sim
