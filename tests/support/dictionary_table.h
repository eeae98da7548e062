// SPDX-License-Identifier: Apache-2.0
// The tag dictionary by format letter, for the tests that need each tag's format.
#pragma once

#include "support/line.h"

#include <string>
#include <vector>

namespace vorn::test {

struct FormatTags {
    char letter;
    const char* tags; // hex, a blank between two
};

const FormatTags kFormatTags[] = {
    {'b', "17 18 19 1A 1B 51 57 80 81 82 83 86 87 88 8C 8D 8E 8F 90 91 92 93 94 95 97 98 99 9B 9D 9F04 9F05 9F06 "
          "9F07 9F08 9F09 9F0D 9F0E 9F0F 9F10 9F13 9F14 9F17 9F18 9F1B 9F1D 9F22 9F23 9F24 9F26 9F27 9F2D 9F2E 9F2F "
          "9F32 9F33 9F34 9F36 9F37 9F38 9F3A 9F40 9F45 9F46 9F47 9F48 9F49 9F4A 9F4B 9F4C 9F4D 9F4E 9F4F 9F52 9F55 "
          "9F56 9F58 9F59 9F5B 9F66 9F68 9F6C 9F72 9F7F"},
    {'n', "5F24 5F25 5F28 5F2A 5F30 5F34 5F36 9A 9C 9F01 9F02 9F03 9F11 9F15 9F1A 9F21 9F25 9F35 9F39 9F3B 9F3C 9F3D "
          "9F41 9F42 9F43 9F44 9F51 9F54 9F57 9F5C 9F5D 9F6B 9F6D 9F73 9F75 9F76 9F77 9F78 9F79 9F7A 9F7B DF69"},
    {'a', "50 5F20 5F2D 5F50 89 8A 9F0B 9F12 9F16 9F1C 9F1E 9F1F 9F53 9F5A 9F61 9F74"},
    {'c', "5A 5D 9F20 9F62"},
    {'v', "4F 84 C1 C2"},
    {'g', "04"},
    {'t', "61 6F 70 71 72 73 77 A5 BF0C"},
};

struct TagFormat {
    Bytes tag;
    char letter;
};

inline std::vector<TagFormat> dictionaryTable()
{
    std::vector<TagFormat> table;
    for (const FormatTags& format : kFormatTags) {
        const std::string tags = std::string(format.tags) + " ";
        for (std::size_t at = 0; at < tags.size(); at = tags.find(' ', at) + 1) {
            table.push_back({fromHex(tags.substr(at, tags.find(' ', at) - at)), format.letter});
        }
    }
    return table;
}

} // namespace vorn::test
