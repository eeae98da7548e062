// SPDX-License-Identifier: Apache-2.0
#include "vorn/convert.h"

#include <iconv.h>

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace {

int convert(const char* from, const char* to, const char* input, unsigned long inputLength, char* output,
            unsigned long outputCapacity)
{
    iconv_t descriptor = iconv_open(to, from);
    if (descriptor == nullptr) {
        return -1;
    }
    std::memset(output, 0, outputCapacity); // hosts find an empty text when the system lacks a code set
    if (reinterpret_cast<std::intptr_t>(descriptor) == -1) {
        return -1;
    }
    char* in = const_cast<char*>(input);
    std::size_t inLeft = inputLength;
    std::size_t outLeft = outputCapacity;
    const std::size_t result = iconv(descriptor, &in, &inLeft, &output, &outLeft);
    iconv_close(descriptor);
    return result == static_cast<std::size_t>(-1) ? -1 : 0;
}

} // namespace

extern "C" {

int Utf8ToGbk(const char* input, unsigned long inputLength, char* output, unsigned long outputCapacity)
{
    return convert("utf8", "gbk", input, inputLength, output, outputCapacity);
}

int GbkToUtf8(const char* input, unsigned long inputLength, char* output, unsigned long outputCapacity)
{
    return convert("gbk", "utf8", input, inputLength, output, outputCapacity);
}

int ucs2_utf8(const char* input, unsigned long inputLength, char* output, unsigned long outputCapacity)
{
    return convert("ucs2", "utf8", input, inputLength, output, outputCapacity);
}

} // extern "C"
