// SPDX-License-Identifier: Apache-2.0
// Hex text, 3x nibble text, BCD and dates. The exported converters refuse nothing: hosts feed them what they have
// and count on the values that come out, so each keeps its own reading of characters that are no digits.
#include "vorn/convert.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

namespace {

constexpr char kHexDigits[] = "0123456789ABCDEF";
constexpr int k3xTextMax = 512;
constexpr int k3xBytesMax = 4096;
constexpr int kNumericWidthMax = 512;

constexpr unsigned char asByte(unsigned value) { return static_cast<unsigned char>(value & 0xFFU); }

// A hex digit of AsciiToHex: the low four bits, letters count nine more. The result may exceed a nibble.
unsigned looseNibble(unsigned char c) { return (c & 0x0FU) + (c > '9' ? 9U : 0U); }

unsigned pairFromHex(unsigned char first, unsigned char second)
{
    return ((looseNibble(first) & 0x0FU) << 4) + looseNibble(second);
}

// A hex digit of halftochar; of other characters the low byte of what lower-case letters give counts.
unsigned upperNibble(unsigned char c)
{
    if (c >= '0' && c <= '9') {
        return c - unsigned{'0'};
    }
    if (c >= 'A' && c <= 'F') {
        return c - unsigned{'A'} + 10U;
    }
    return (c + 0x100U - 0x57U) & 0xFFU;
}

// A digit of AscToBcd.
unsigned bcdNibble(unsigned char c)
{
    if (c >= 'a') {
        return c - 0x57U;
    }
    if (c >= 'A') {
        return c - 0x37U;
    }
    return c >= '0' ? c - unsigned{'0'} : 0U;
}

unsigned decimalDigit(unsigned char c) { return c >= '0' && c <= '9' ? c - unsigned{'0'} : 0U; }

} // namespace

extern "C" {

char* ConvAscii(const unsigned char* bytes, char* text, unsigned int count)
{
    for (unsigned int i = 0; i < count; ++i) {
        *text++ = kHexDigits[bytes[i] >> 4];
        *text++ = kHexDigits[bytes[i] & 0x0F];
    }
    *text = '\0';
    return text;
}

int AsciiToHex(const char* text, unsigned char* bytes, int count)
{
    for (int i = 0; i < count; i += 2) {
        const auto first = static_cast<unsigned char>(text[i]);
        const auto second = static_cast<unsigned char>(text[i + 1]);
        bytes[i / 2] = asByte(pairFromHex(first, second));
    }
    return count;
}

void halftochar(const char* text, unsigned char* bytes, int* count)
{
    const std::size_t length = text == nullptr ? 0 : std::strlen(text);
    *count = 0;
    if (length % 2 != 0) {
        return;
    }
    for (std::size_t i = 0; i < length; i += 2) {
        const unsigned high = upperNibble(static_cast<unsigned char>(text[i]));
        const unsigned low = upperNibble(static_cast<unsigned char>(text[i + 1]));
        bytes[i / 2] = asByte((high << 4) + low);
    }
    bytes[length / 2] = 0;
    *count = static_cast<int>(length / 2);
}

void chartohalf(int value, char* text)
{
    const unsigned char byte = asByte(static_cast<unsigned>(value));
    ConvAscii(&byte, text, 1);
}

int convTo3x(const unsigned char* bytes, int count, unsigned char* text)
{
    const int written = count > 0 ? count : 0;
    for (int i = 0; i < written; ++i) {
        one2two_30(text + std::ptrdiff_t{2} * i, bytes[i]);
    }
    return 2 * written;
}

int _3xToHex(const unsigned char* text, unsigned char* bytes, int count)
{
    const int taken = count < 0 ? 0 : count > k3xTextMax ? k3xTextMax : count;
    for (int i = 0; i < taken / 2; ++i) {
        const unsigned char* pair = text + std::ptrdiff_t{2} * i;
        bytes[i] = asByte(((pair[0] & 0x0FU) << 4) | (pair[1] & 0x0FU));
    }
    return taken / 2;
}

void one2two_30(unsigned char* text, unsigned char byte)
{
    text[0] = asByte((unsigned{byte} >> 4) + '0');
    text[1] = asByte((byte & 0x0FU) + '0');
}

int Vr_chartoarray(const char* text, unsigned char* bytes)
{
    if (text == nullptr) {
        return 0;
    }
    int written = 0;
    while (*text != '\0' && written < k3xBytesMax) {
        unsigned value = static_cast<unsigned char>(*text++) & 0x0FU;
        if (*text != '\0') {
            value = (value << 4) | (static_cast<unsigned char>(*text++) & 0x0FU);
        }
        bytes[written++] = asByte(value);
    }
    return written;
}

void AscToBcd(unsigned char* bytes, const char* digits, int count, unsigned int leftPad)
{
    // Written behind the last packed byte; hosts reserve room for it (compatibility: "AscToBcd stores 50 behind the last
    // byte").
    constexpr unsigned char kBehindLast = 0x50;

    const int usable = count < 0 ? 0 : count;
    unsigned pending = 0;
    bool havePending = usable % 2 != 0 && leftPad != 0;
    for (int i = 0; i < usable; ++i) {
        const unsigned nibble = bcdNibble(static_cast<unsigned char>(digits[i]));
        if (havePending) {
            *bytes++ = asByte((pending << 4) | nibble);
        }
        pending = nibble;
        havePending = !havePending;
    }
    *bytes = kBehindLast;
}

void GetYYMMDD(unsigned char* date)
{
    const std::time_t now = std::time(nullptr);
    const std::tm& local = *std::localtime(&now); // unlike localtime_r it notices a change of the terminal's zone
    char digits[40];
    std::snprintf(digits, sizeof digits, "%02d%02d%02d", local.tm_year % 100, local.tm_mon + 1, local.tm_mday);
    unsigned char packed[4] = {};
    AscToBcd(packed, digits, 6, 0);
    std::memcpy(date, packed, 3);
}

int bcdtocn(const char* digits, int length, int width, unsigned char* bytes)
{
    const int bytesOut = width < 0 ? 0 : width > kNumericWidthMax ? kNumericWidthMax : width;
    const int usable = length < 0 ? 0 : length;
    const auto digitAt = [&](int column) { // columns count from the left of the field
        const int source = column - (2 * bytesOut - usable);
        return source < 0 ? 0U : decimalDigit(static_cast<unsigned char>(digits[source]));
    };
    unsigned char packed[kNumericWidthMax] = {}; // the digits may stand where the bytes go
    for (int i = 0; i < bytesOut; ++i) {
        packed[i] = asByte(digitAt(2 * i) * 16 + digitAt(2 * i + 1));
    }
    std::memcpy(bytes, packed, static_cast<std::size_t>(bytesOut));
    return bytesOut;
}

int get_random(int count, unsigned char* bytes)
{
    std::srand(static_cast<unsigned>(std::time(nullptr)));
    for (int i = 0; i < count; ++i) {
        do {
            bytes[i] = asByte(static_cast<unsigned>(std::rand()));
        } while (bytes[i] == 0);
    }
    return count;
}

int RSA_GetBitLen(const unsigned char* magnitude, int length)
{
    for (int i = length - 1; i >= 0; --i) {
        for (int bit = 7; bit >= 0; --bit) {
            if ((magnitude[i] >> bit & 1) != 0) {
                return 8 * i + bit + 1;
            }
        }
    }
    return 0;
}

} // extern "C"

void AsciiToHex(const unsigned char* text, unsigned char* bytes, int count)
{
    for (int i = 0; i < count; i += 2) {
        bytes[i / 2] = asByte(pairFromHex(text[i], text[i + 1]));
    }
}
