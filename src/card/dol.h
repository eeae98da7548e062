// SPDX-License-Identifier: Apache-2.0
// Data object lists (EMV Book 3, 5.4).
#pragma once

#include "card/tlv.h"

namespace vorn {

// Room for the values of a list in a command's data field.
class DolValues {
public:
    std::uint8_t* data() { return bytes_; }
    std::size_t size() const { return size_; }
    ByteView view() const { return ByteView(bytes_, size_); }

    [[nodiscard]] bool appendZeros(std::size_t count)
    {
        if (count > sizeof bytes_ - size_) {
            return false;
        }
        std::memset(bytes_ + size_, 0, count);
        size_ += count;
        return true;
    }

private:
    std::uint8_t bytes_[VORN_DOL_DATA_CAPACITY]; // only as much of it is made zero as a list asks for
    std::size_t size_ = 0;
};

// Appends the list's values. False: the list is empty, not readable to its end, or asks for too much.
bool buildDol(const TlvBuffer& source, ByteView dol, DolValues& values);

// The same for a command's data field; values that do not fit there cannot be built either.
inline bool buildCommandData(const TlvBuffer& source, ByteView dol, DolValues& values)
{
    constexpr std::size_t kCommandDataMax = 255;
    return buildDol(source, dol, values) && values.size() <= kCommandDataMax;
}

} // namespace vorn
