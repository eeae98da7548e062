// SPDX-License-Identifier: Apache-2.0
// The converters, each with outputs of just the room that its comment asks for.
#include "support/input.h"
#include "support/require.h"

#include "vorn/convert.h"

#include <algorithm>
#include <cstring>
#include <memory>

using namespace vorn;
using namespace vorn::fuzz;

namespace {

using Room = std::unique_ptr<std::uint8_t[]>;
Room room(std::size_t size) { return Room(new std::uint8_t[size]); }
char* textIn(const Room& bytes) { return reinterpret_cast<char*>(bytes.get()); }

void hex(const Exact& bytes)
{
    const auto size = static_cast<std::size_t>(bytes.size());
    const Room text = room(2 * size + 1);
    const char* const end = ConvAscii(bytes.data(), textIn(text), static_cast<unsigned>(size));
    require(end == textIn(text) + 2 * size && *end == '\0', "the end of hex text");
    const Room back = room(size);
    AsciiToHex(textIn(text), back.get(), static_cast<int>(2 * size));
    require(size == 0 || std::memcmp(back.get(), bytes.data(), size) == 0, "hex text gives its bytes back");

    const Room nibbles = room(2 * size);
    require(convTo3x(bytes.data(), bytes.size(), nibbles.get()) == 2 * bytes.size(), "3x characters");
    const Room fewer = room(std::min<std::size_t>(size, 256));
    _3xToHex(nibbles.get(), fewer.get(), 2 * bytes.size());
}

void texts(ByteView given)
{
    const Text text(given);
    const std::size_t length = std::strlen(text);
    const Room hexBytes = room(length / 2 + 1);
    int count = -1;
    halftochar(text, hexBytes.get(), &count);
    require(count == (length % 2 == 0 ? static_cast<int>(length / 2) : 0), "the count of bytes");
    const Room loose = room((length + 1) / 2);
    AsciiToHex(text, loose.get(), static_cast<int>(length));
    const Room packed = room(std::min<std::size_t>((length + 1) / 2, 4096));
    Vr_chartoarray(text, packed.get());
}

void digits(const Exact& bytes, unsigned leftPad, int width)
{
    const auto* const characters = reinterpret_cast<const char*>(bytes.data());
    const int count = bytes.size();
    const Room bcd = room(static_cast<std::size_t>((leftPad != 0 ? count + 1 : count) / 2) + 1);
    AscToBcd(bcd.get(), characters, count, leftPad);
    const Room numeric = room(static_cast<std::size_t>(std::clamp(width, 0, 512)));
    bcdtocn(characters, count, width, numeric.get());
    RSA_GetBitLen(bytes.data(), count);
}

void characterSets(const Exact& bytes, std::size_t capacity)
{
    const auto* const in = reinterpret_cast<const char*>(bytes.data());
    const auto size = static_cast<unsigned long>(bytes.size());
    const Room out = room(capacity);
    Utf8ToGbk(in, size, textIn(out), capacity);
    GbkToUtf8(in, size, textIn(out), capacity);
    ucs2_utf8(in, size, textIn(out), capacity);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    Input input(data, size);
    const std::uint8_t how = input.byte();
    const int width = static_cast<int>(input.word()) - 100;
    const ByteView given = input.rest();
    const Exact bytes(given);
    switch (how & 0x03) {
    case 0:
        hex(bytes);
        break;
    case 1:
        texts(given);
        break;
    case 2:
        digits(bytes, how >> 7, width);
        break;
    default:
        characterSets(bytes, static_cast<std::size_t>(std::max(width, 0) & 0x3FF));
        break;
    }
    return 0;
}
