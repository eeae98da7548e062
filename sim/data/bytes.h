// SPDX-License-Identifier: Apache-2.0
// Bytes, and their hex text.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vorn::sim {

using Bytes = std::vector<std::uint8_t>;

// Bytes that somebody else keeps for as long as they are looked at. A byte outside reads as zero: strangers choose how
// many there are.
class ByteSpan {
public:
    ByteSpan() = default;
    ByteSpan(const std::uint8_t* data, std::size_t size) : data_(data), size_(size) {}
    ByteSpan(const Bytes& bytes) : data_(bytes.data()), size_(bytes.size()) {}

    const std::uint8_t* begin() const { return data_; }
    const std::uint8_t* end() const { return data_ + size_; }
    std::size_t size() const { return size_; }
    bool empty() const { return size_ == 0; }
    std::uint8_t operator[](std::size_t at) const { return at < size_ ? data_[at] : std::uint8_t{0}; }
    std::uint8_t front() const { return (*this)[0]; }
    std::uint8_t back() const { return (*this)[size_ - 1]; }

    // The rest behind `at`, the first `count` and the last `count`: as much of each as there is.
    ByteSpan from(std::size_t at) const { return {data_ + std::min(at, size_), size_ - std::min(at, size_)}; }
    ByteSpan first(std::size_t count) const { return {data_, std::min(count, size_)}; }
    ByteSpan last(std::size_t count) const { return from(size_ - std::min(count, size_)); }

    Bytes copy() const { return {begin(), end()}; }

private:
    const std::uint8_t* data_ = nullptr;
    std::size_t size_ = 0;
};

std::string toHex(ByteSpan bytes); // upper case
std::string toHex(const Bytes& bytes);
void appendHex(std::string& text, ByteSpan bytes);

// Either case, white space skipped; nothing when it is no hex.
std::optional<Bytes> fromHex(std::string_view text);
bool appendFromHex(Bytes& bytes, std::string_view text); // leaves the bytes as they are when it is no hex

unsigned long bigEndian(ByteSpan bytes); // of up to eight bytes
unsigned long bigEndian(const Bytes& bytes);

} // namespace vorn::sim
