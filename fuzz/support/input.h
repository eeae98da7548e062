// SPDX-License-Identifier: Apache-2.0
// The fuzzer's bytes, taken apart from the front. What is not there any more reads as zero or empty.
#pragma once

#include "public/bytes.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>

namespace vorn::fuzz {

// A block of just the size of its bytes, so that a sanitizer sees every byte read or written outside.
class Exact {
public:
    explicit Exact(ByteView bytes) : size_(bytes.size()), bytes_(new std::uint8_t[bytes.size()])
    {
        bytes.copyTo(bytes_.get());
    }

    std::uint8_t* data() { return bytes_.get(); }
    const std::uint8_t* data() const { return bytes_.get(); }
    int size() const { return static_cast<int>(size_); }
    ByteView view() const { return ByteView(bytes_.get(), size_); }

private:
    std::size_t size_;
    std::unique_ptr<std::uint8_t[]> bytes_;
};

// The same with a NUL behind its characters, of which the first NUL counts.
class Text {
public:
    explicit Text(ByteView bytes) : text_(new char[bytes.size() + 1])
    {
        bytes.copyTo(text_.get());
        text_[bytes.size()] = '\0';
    }

    operator const char*() const { return text_.get(); }
    char* writable() { return text_.get(); }

private:
    std::unique_ptr<char[]> text_;
};

class Input {
public:
    Input(const std::uint8_t* data, std::size_t size) : rest_(data, size) {}

    bool atEnd() const { return rest_.empty(); }
    std::size_t left() const { return rest_.size(); }

    std::uint8_t byte()
    {
        const std::uint8_t value = rest_[0];
        rest_ = rest_.from(1);
        return value;
    }
    unsigned word() { return byte() * 256U + byte(); }

    ByteView take(std::size_t count)
    {
        const ByteView taken = rest_.first(count);
        rest_ = rest_.from(count);
        return taken;
    }
    ByteView counted() { return take(byte()); } // behind their count
    ByteView rest() { return take(rest_.size()); }

    // A text behind its count; up to 510 characters.
    Text text() { return Text(take(std::size_t{2} * byte())); }

private:
    ByteView rest_;
};

inline std::string stringOf(ByteView bytes)
{
    return bytes.empty() ? std::string() : std::string(reinterpret_cast<const char*>(bytes.data()), bytes.size());
}

} // namespace vorn::fuzz
