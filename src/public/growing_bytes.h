// SPDX-License-Identifier: Apache-2.0
// Bytes on the heap, for what a card sends in any number.
#pragma once

#include "public/bytes.h"

#include <cstdlib>

namespace vorn {

class GrowingBytes {
public:
    GrowingBytes() = default;
    ~GrowingBytes() { std::free(bytes_); }
    GrowingBytes(const GrowingBytes&) = delete;
    GrowingBytes& operator=(const GrowingBytes&) = delete;

    ByteView view() const { return ByteView(bytes_, size_); }

    // `more` is no part of these bytes. What there is no memory for is left out, and so is all that comes behind it.
    void append(ByteView more);
    bool complete() const { return complete_; }

private:
    bool grow(std::size_t more);

    std::uint8_t* bytes_ = nullptr;
    std::size_t size_ = 0;
    std::size_t capacity_ = 0;
    bool complete_ = true;
};

} // namespace vorn
