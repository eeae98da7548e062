// SPDX-License-Identifier: Apache-2.0
#include "sim/data/utf8.h"

#include <algorithm>
#include <iterator>

namespace vorn::sim {
namespace {

// Unicode's controls, format characters and separators of lines: nothing of them is seen, or they move what is.
struct Range {
    std::uint32_t first, last;
};
constexpr Range kUnseen[] = {
    {0x0000, 0x001F},   {0x007F, 0x009F},   {0x00AD, 0x00AD},   {0x0600, 0x0605}, {0x061C, 0x061C}, {0x06DD, 0x06DD},
    {0x070F, 0x070F},   {0x115F, 0x1160},   {0x180B, 0x180F},   {0x200B, 0x200F}, {0x2028, 0x202E}, {0x2060, 0x206F},
    {0x3164, 0x3164},   {0xFE00, 0xFE0F},   {0xFEFF, 0xFEFF},   {0xFFA0, 0xFFA0}, {0xFFF0, 0xFFFB}, {0x13430, 0x1345F},
    {0x1BCA0, 0x1BCA3}, {0x1D173, 0x1D17A}, {0xE0000, 0xE0FFF},
};

std::uint8_t byteAt(const std::string& text, std::size_t position)
{
    return position < text.size() ? static_cast<std::uint8_t>(text[position]) : std::uint8_t{0};
}

// One form of UTF-8: what its first byte looks like, and the least character that may be written in it.
struct Form {
    std::uint8_t mask, lead;
    std::size_t size;
    std::uint32_t least;
};
constexpr Form kForms[] = {{0x80, 0x00, 1, 0}, {0xE0, 0xC0, 2, 0x80}, {0xF0, 0xE0, 3, 0x800}, {0xF8, 0xF0, 4, 0x10000}};

} // namespace

Character characterAt(const std::string& text, std::size_t position)
{
    const std::uint8_t first = byteAt(text, position);
    const auto* const form = std::find_if(std::begin(kForms), std::end(kForms),
                                          [first](const Form& each) { return (first & each.mask) == each.lead; });
    if (form == std::end(kForms)) {
        return {};
    }
    auto value = static_cast<std::uint32_t>(first & ~form->mask);
    for (std::size_t i = 1; i < form->size; ++i) {
        const std::uint8_t next = byteAt(text, position + i);
        if ((next & 0xC0) != 0x80) {
            return {};
        }
        value = value << 6 | (next & 0x3FU);
    }
    const bool right = value >= form->least && value <= 0x10FFFF && (value < 0xD800 || value > 0xDFFF);
    return right ? Character{value, form->size} : Character{};
}

bool seen(std::uint32_t character)
{
    const bool noCharacter = (character & 0xFFFE) == 0xFFFE || (character >= 0xFDD0 && character <= 0xFDEF);
    return !noCharacter && std::none_of(std::begin(kUnseen), std::end(kUnseen), [character](const Range& range) {
        return character >= range.first && character <= range.last;
    });
}

} // namespace vorn::sim
