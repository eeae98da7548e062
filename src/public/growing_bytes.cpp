// SPDX-License-Identifier: Apache-2.0
#include "public/growing_bytes.h"

namespace vorn {

bool GrowingBytes::append(ByteView more)
{
    if (more.size() > capacity_ - size_ && !grow(more.size())) {
        return false;
    }
    more.copyTo(bytes_ + size_);
    size_ += more.size();
    return true;
}

bool GrowingBytes::grow(std::size_t more)
{
    constexpr std::size_t kFirst = 4096;
    constexpr std::size_t kMost = SIZE_MAX / 4;
    if (more > kMost || capacity_ > kMost) {
        return false;
    }
    const std::size_t capacity = 2 * capacity_ + (more > kFirst ? more : kFirst);
    auto* bytes = static_cast<std::uint8_t*>(std::malloc(capacity));
    if (bytes == nullptr) {
        return false;
    }
    view().copyTo(bytes);
    std::free(bytes_);
    bytes_ = bytes;
    capacity_ = capacity;
    return true;
}

} // namespace vorn
