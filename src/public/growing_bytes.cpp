// SPDX-License-Identifier: Apache-2.0
#include "public/growing_bytes.h"

namespace vorn {

void GrowingBytes::append(ByteView more)
{
    complete_ = complete_ && (more.size() <= capacity_ - size_ || grow(more.size()));
    if (complete_) {
        more.copyTo(bytes_ + size_);
        size_ += more.size();
    }
}

bool GrowingBytes::grow(std::size_t more)
{
    constexpr std::size_t kFirst = 4096;
    constexpr std::size_t kMost = SIZE_MAX / 4; // far beyond what there is memory for
    if (more > kMost) {
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
