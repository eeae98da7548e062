// SPDX-License-Identifier: Apache-2.0
#include "sim/data/bytes.h"

#include <array>
#include <cstring>

namespace vorn::sim {

namespace {

constexpr std::uint8_t kBlank = 0x10;
constexpr std::uint8_t kNoHex = 0x20;
constexpr std::size_t kDumped = 3; // characters of a byte in a dump, with the blank behind it

// What each character is worth in hex.
constexpr std::array<std::uint8_t, 256> valuesOfCharacters()
{
    std::array<std::uint8_t, 256> values{};
    for (std::uint8_t& value : values) {
        value = kNoHex;
    }
    for (const char c : {' ', '\t', '\n', '\v', '\f', '\r'}) {
        values[static_cast<unsigned char>(c)] = kBlank;
    }
    for (unsigned i = 0; i < 10; ++i) {
        values['0' + i] = static_cast<std::uint8_t>(i);
    }
    for (unsigned i = 0; i < 6; ++i) {
        values['A' + i] = values['a' + i] = static_cast<std::uint8_t>(10 + i);
    }
    return values;
}

constexpr std::array<std::uint8_t, 256> kValues = valuesOfCharacters();

// Two characters for each byte.
constexpr std::array<char, 512> charactersOfBytes()
{
    constexpr char digits[] = "0123456789ABCDEF";
    std::array<char, 512> characters{};
    for (std::size_t byte = 0; byte < 256; ++byte) {
        characters[2 * byte] = digits[byte >> 4];
        characters[2 * byte + 1] = digits[byte & 0x0F];
    }
    return characters;
}

constexpr std::array<char, 512> kCharacters = charactersOfBytes();

char* writeHex(char* to, ByteSpan bytes)
{
    for (const std::uint8_t byte : bytes) {
        std::memcpy(to, kCharacters.data() + 2 * std::size_t{byte}, 2);
        to += 2;
    }
    return to;
}

} // namespace

void appendHex(std::string& text, ByteSpan bytes)
{
    text.resize(text.size() + 2 * bytes.size());
    writeHex(text.data() + text.size() - 2 * bytes.size(), bytes);
}

std::string toHex(ByteSpan bytes)
{
    constexpr std::size_t most = 256; // of almost all values
    if (bytes.size() <= most) {
        char text[2 * most];
        return {text, writeHex(text, bytes)};
    }
    std::string text;
    appendHex(text, bytes);
    return text;
}

std::string toHex(const Bytes& bytes) { return toHex(ByteSpan(bytes)); }

bool appendFromHex(Bytes& bytes, std::string_view text)
{
    const std::size_t before = bytes.size();
    bytes.resize(before + text.size() / 2);
    std::uint8_t* to = bytes.data() + before;
    while (text.size() >= kDumped) { // of a dump
        const unsigned high = kValues[static_cast<unsigned char>(text[0])];
        const unsigned low = kValues[static_cast<unsigned char>(text[1])];
        if ((high | low) >= kBlank || text[2] != ' ') {
            break;
        }
        *to++ = static_cast<std::uint8_t>(high << 4 | low);
        text.remove_prefix(kDumped);
    }
    const auto next = [&text] { // the value of the next character that is not blank; a blank at the end
        unsigned value = kBlank;
        while (value == kBlank && !text.empty()) {
            value = kValues[static_cast<unsigned char>(text.front())];
            text.remove_prefix(1);
        }
        return value;
    };
    unsigned high = next();
    while (high < kBlank) {
        const unsigned low = next();
        if (low >= kBlank) {
            break;
        }
        *to++ = static_cast<std::uint8_t>(high << 4 | low);
        high = next();
    }
    const bool whole = high == kBlank;
    bytes.resize(whole ? static_cast<std::size_t>(to - bytes.data()) : before);
    return whole;
}

std::optional<Bytes> fromHex(std::string_view text)
{
    Bytes bytes;
    return appendFromHex(bytes, text) ? std::optional(std::move(bytes)) : std::nullopt;
}

unsigned long bigEndian(ByteSpan bytes)
{
    unsigned long value = 0;
    for (const std::uint8_t byte : bytes) {
        value = value << 8 | byte;
    }
    return value;
}

unsigned long bigEndian(const Bytes& bytes) { return bigEndian(ByteSpan(bytes)); }

} // namespace vorn::sim
