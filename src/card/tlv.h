// SPDX-License-Identifier: Apache-2.0
// Walking BER-TLV data (EMV Book 3, Annex B) inside the bounds of the buffer it lies in.
#pragma once

#include "public/bytes.h"

#include "vorn/result.h"

#include <cstdint>

namespace vorn {

// What ends a walk: the buffer's length, or a byte 00 where a tag is expected.
enum class Bound { Length, Zero };

struct TlvBuffer {
    ByteView bytes;
    Bound bound = Bound::Length;
};

inline TlvBuffer boundedTlv(ByteView bytes) { return {bytes, Bound::Length}; }
inline TlvBuffer zeroEndedTlv(ByteView bytes) { return {bytes, Bound::Zero}; }

// As the exported functions take it: a length of 0 means that the buffer ends with a zero.
TlvBuffer tlvBufferOf(const unsigned char* buffer, int length);

// A tag of one or two bytes, written as a number.
class Tag {
public:
    constexpr explicit Tag(unsigned number)
        : bytes_{static_cast<std::uint8_t>(number > 0xFF ? number >> 8 : number), static_cast<std::uint8_t>(number)},
          size_(number > 0xFF ? 2 : 1)
    {}
    constexpr ByteView view() const { return ByteView(bytes_, size_); }

private:
    std::uint8_t bytes_[2];
    std::size_t size_;
};

// Appends an object, or what stands before its value, with a length of one byte. False: there is no room for it.
template <std::size_t Capacity>
[[nodiscard]] bool putHeader(ByteBuffer<Capacity>& out, ByteView tag, std::size_t length)
{
    return out.append(tag) && out.append(static_cast<std::uint8_t>(length));
}
template <std::size_t Capacity>
[[nodiscard]] bool putObject(ByteBuffer<Capacity>& out, Tag tag, ByteView value)
{
    return putHeader(out, tag.view(), value.size()) && out.append(value);
}

// Size of the tag at the front; 0 when the walk ends there: padding FF, or a tag that is not finished.
std::size_t tagSize(ByteView bytes, Bound bound);

// A length field: its own size, and the length that it tells.
struct LengthField {
    std::size_t size;
    std::size_t value;
};
LengthField lengthField(ByteView bytes);

// From the first object with this tag on, to the end of the buffer; empty when there is none.
ByteView findObject(ByteView tag, const TlvBuffer& buffer);
inline ByteView findObject(Tag tag, const TlvBuffer& buffer) { return findObject(tag.view(), buffer); }
inline ByteView findObject(Tag tag, ByteView bytes) { return findObject(tag.view(), boundedTlv(bytes)); }

// The value of an object that findObject returned, by its real length; cut at the end of the buffer.
ByteView objectValue(ByteView object, std::size_t sizeOfTag);

// The same where the length counts as one byte whatever its form, behind a tag of one byte.
inline ByteView valueOfByteLength(ByteView object) { return object.from(2).first(object[1]); }

// The value of a tag as vrdk_gettagvalue reads it, cut to what one byte can count; zeros behind it.
struct TagValue {
    bool found = false;
    std::size_t size = 0;
    std::uint8_t bytes[VORN_RESPONSE_MAX + 1] = {};

    ByteView view() const { return ByteView(bytes, size); }
};
TagValue readTag(Tag tag, const TlvBuffer& buffer);
inline TagValue readTag(Tag tag, ByteView bytes) { return readTag(tag, boundedTlv(bytes)); }

} // namespace vorn
