// SPDX-License-Identifier: Apache-2.0
#include "ICC/ICC_COMM_VORN/lettered.h"

#include "ICC/ICC_COMM_VORN/letters.h"
#include "public/local_log.h"

#include "ICC_COMM_VORN.h"

#include <cstdlib>
#include <cstring>

namespace vorn {
namespace {

struct LetterTag {
    char letter;
    std::uint8_t first, second; // second 0: a tag of one byte
    int advance;
};

// A to L. E gives 9F24, of which only the first byte counts (compatibility: "Letter E asks for 9F24").
constexpr LetterTag kLetterTags[] = {
    {'A', 0x5A, 0x00, 1}, {'B', 0x57, 0x00, 1}, {'C', 0x9F, 0x79, 2}, {'D', 0x9F, 0x77, 2},
    {'E', 0x9F, 0x24, 1}, {'F', 0x9F, 0x78, 2}, {'G', 0x5F, 0x34, 2}, {'H', 0x9F, 0x36, 2},
    {'I', 0x9F, 0x62, 2}, {'J', 0x9F, 0x61, 2}, {'K', 0x5F, 0x20, 2}, {'L', 0x9F, 0x0B, 2},
};
static_assert(holdsInfoLetters(kLetterTags), "one row for each letter of the record");

// Writes a letter's tag; returns how far the list has grown.
int writeTag(char letter, unsigned char* tags)
{
    for (const LetterTag& tag : kLetterTags) {
        if (tag.letter == letter) {
            tags[0] = tag.first;
            if (tag.second != 0) {
                tags[1] = tag.second;
            }
            return tag.advance;
        }
    }
    return 0;
}

constexpr std::size_t kFieldMax = 999 + 1; // characters, with the '0' before an odd number of them
constexpr std::size_t kDigits = 3;

} // namespace

WantedTags::WantedTags(const char* letters)
{
    for (const char* letter = textOf(letters); *letter != '\0' && size + 2 <= kMax; ++letter) {
        size = static_cast<std::uint8_t>(size + writeTag(*letter, bytes + size));
    }
}

LetteredItems::LetteredItems(const char* text) : bytes_(letteredItemsCapacity(std::strlen(textOf(text))) + 1)
{
    if (bytes_) {
        convertFlagtoTLV(textOf(text), bytes_.data());
    }
}

TagValue LetteredItems::value(char letter) const
{
    return readTag(Tag(static_cast<unsigned char>(letter)), zeroEndedTlv(bytes_.view()));
}

} // namespace vorn

using namespace vorn;

extern "C" {

int ConvertFlag(const char* letters, int count, unsigned char* tags)
{
    int size = 0;
    for (int i = 0; i < count; ++i) {
        size += writeTag(letters[i], tags + size);
    }
    return size;
}

void convertFlagtoTLV(const char* text, unsigned char* items)
{
    const std::size_t length = text == nullptr ? 0 : std::strlen(text);
    const auto copyOf = [&](char* out, std::size_t at, std::size_t count) { // what the text lacks stays NUL
        for (std::size_t i = 0; i < count && at + i < length; ++i) {
            out[i] = text[at + i];
        }
    };
    for (std::size_t at = 0; at < length;) {
        *items++ = static_cast<unsigned char>(text[at++]);
        char digits[kDigits + 1] = {};
        copyOf(digits, at, kDigits);
        at += kDigits;
        const int number = std::atoi(digits);
        const std::size_t given = number > 0 ? static_cast<std::size_t>(number) : 0;
        const std::size_t pad = given % 2;
        char hex[kFieldMax + 1] = {'0'};
        copyOf(hex + pad, at, given);
        at += given;
        const std::size_t bytes = (given + pad) / 2;
        *items++ = static_cast<unsigned char>(bytes);
        AsciiToHex(hex, items, static_cast<int>(given + pad));
        items += bytes;
    }
}

} // extern "C"
