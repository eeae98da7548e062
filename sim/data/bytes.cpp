// SPDX-License-Identifier: Apache-2.0
#include "sim/data/bytes.h"

#include <cctype>

namespace vorn::sim {

std::string toHex(const Bytes& bytes)
{
    static const char* const digits = "0123456789ABCDEF";
    std::string text;
    for (const std::uint8_t byte : bytes) {
        text += digits[byte >> 4];
        text += digits[byte & 0x0F];
    }
    return text;
}

std::optional<Bytes> fromHex(const std::string& text)
{
    Bytes bytes;
    int half = -1;
    for (const char c : text) {
        const auto u = static_cast<unsigned char>(c);
        if (std::isspace(u) != 0) {
            continue;
        }
        if (std::isxdigit(u) == 0) {
            return std::nullopt;
        }
        const int value = std::isdigit(u) != 0 ? c - '0' : std::toupper(u) - 'A' + 10;
        if (half >= 0) {
            bytes.push_back(static_cast<std::uint8_t>(half << 4 | value));
        }
        half = half >= 0 ? -1 : value;
    }
    return half >= 0 ? std::nullopt : std::optional(bytes);
}

unsigned long bigEndian(const Bytes& bytes)
{
    unsigned long value = 0;
    for (const std::uint8_t byte : bytes) {
        value = value << 8 | byte;
    }
    return value;
}

} // namespace vorn::sim
