// SPDX-License-Identifier: Apache-2.0
// Bounded reading and writing of bytes that come from a card, a reader or a host. Every walk over such bytes goes
// through these two classes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace vorn {

// Bytes of somebody else's. Nothing outside is ever read; a byte outside reads as zero.
class ByteView {
public:
    constexpr ByteView() = default;
    constexpr ByteView(const std::uint8_t* data, std::size_t size) : data_(data), size_(data == nullptr ? 0 : size) {}

    constexpr const std::uint8_t* data() const { return data_; }
    constexpr std::size_t size() const { return size_; }
    constexpr bool empty() const { return size_ == 0; }
    constexpr std::uint8_t operator[](std::size_t at) const { return at < size_ ? data_[at] : std::uint8_t{0}; }

    constexpr bool holds(std::size_t at, std::size_t count) const { return at <= size_ && count <= size_ - at; }

    // The rest behind `at`, and the first `count` bytes; as much of either as there is.
    constexpr ByteView from(std::size_t at) const
    {
        return at >= size_ ? ByteView() : ByteView(data_ + at, size_ - at);
    }
    constexpr ByteView first(std::size_t count) const { return ByteView(data_, count < size_ ? count : size_); }

    void copyTo(void* out) const
    {
        if (size_ != 0) {
            std::memcpy(out, data_, size_);
        }
    }

    bool operator==(const ByteView& other) const
    {
        return size_ == other.size_ && (size_ == 0 || std::memcmp(data_, other.data_, size_) == 0);
    }

private:
    const std::uint8_t* data_ = nullptr;
    std::size_t size_ = 0;
};

// A fixed buffer that is appended to; what would overflow is refused whole. Bytes not written are zero.
template <std::size_t Capacity>
class ByteBuffer {
public:
    std::uint8_t* data() { return bytes_; }
    const std::uint8_t* data() const { return bytes_; }
    std::size_t size() const { return size_; }
    ByteView view() const { return ByteView(bytes_, size_); }

    [[nodiscard]] bool append(std::uint8_t byte) { return append(ByteView(&byte, 1)); }

    [[nodiscard]] bool append(ByteView more)
    {
        if (!fits(more.size())) {
            return false;
        }
        more.copyTo(bytes_ + size_);
        size_ += more.size();
        return true;
    }

    // Moves on over bytes that stay as they are.
    [[nodiscard]] bool skip(std::size_t count)
    {
        if (!fits(count)) {
            return false;
        }
        size_ += count;
        return true;
    }

private:
    bool fits(std::size_t count) const { return count <= Capacity - size_; }

    std::uint8_t bytes_[Capacity] = {};
    std::size_t size_ = 0;
};

// Around an appending that has room by a static_assert beside the table that fills the buffer.
inline void proven(bool) {}

inline ByteView viewOf(const unsigned char* data, int size)
{
    return size > 0 ? ByteView(data, static_cast<std::size_t>(size)) : ByteView();
}

} // namespace vorn
