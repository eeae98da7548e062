// SPDX-License-Identifier: Apache-2.0
// Walking BER-TLV data (EMV Book 3, Annex B) inside the bounds of the buffer it lies in.
#pragma once

#include "public/bytes.h"

#include "vorn/result.h"

#include <cstdint>

namespace vorn {

// In a tag's first byte, and the byte that stands in a tag's place behind the last object.
constexpr std::uint8_t kMoreTagBytes = 0x1F;
constexpr std::uint8_t kConstructed = 0x20;
constexpr std::uint8_t kPadding = 0xFF;
// First bytes of the longer length fields.
constexpr std::uint8_t kOneLengthByte = 0x81;
constexpr std::uint8_t kTwoLengthBytes = 0x82;

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
std::size_t sizeOfLongTag(ByteView bytes, Bound bound);
inline std::size_t tagSize(ByteView bytes, Bound bound)
{
    if (bytes.empty() || bytes[0] == kPadding) {
        return 0;
    }
    return (bytes[0] & kMoreTagBytes) == kMoreTagBytes ? sizeOfLongTag(bytes, bound) : 1;
}

// A length field: its own size, and the length that it tells.
struct LengthField {
    std::size_t size;
    std::size_t value;
};
inline LengthField lengthField(ByteView bytes)
{
    switch (bytes[0]) {
    case kTwoLengthBytes:
        return {3, std::size_t{bytes[1]} * 256 + bytes[2]};
    case kOneLengthByte:
        return {2, bytes[1]};
    default:
        return {1, bytes[0]};
    }
}

// Tags of two bytes mostly differ in the second only.
inline bool sameTag(ByteView a, ByteView b)
{
    const std::size_t size = a.size();
    return size == b.size() && size != 0 && a[size - 1] == b[size - 1] && a == b;
}

// Walks over all objects of a buffer in their order, into every template.
class TlvWalk {
public:
    explicit TlvWalk(const TlvBuffer& buffer) : rest_(buffer.bytes), bound_(buffer.bound) {}

    // To the first object, and to each next one. False: there is none.
    bool next()
    {
        rest_ = rest_.from(toNext_);
        tagSize_ = bound_ == Bound::Zero && rest_[0] == 0 ? 0 : vorn::tagSize(rest_, bound_);
        if (tagSize_ == 0) {
            return false;
        }
        length_ = lengthField(rest_.from(tagSize_));
        toNext_ = tagSize_ + length_.size + ((rest_[0] & kConstructed) != 0 ? 0 : length_.value);
        return true;
    }

    ByteView tag() const { return rest_.first(tagSize_); }
    // By its real length; cut at the end of the buffer.
    ByteView value() const { return rest_.from(tagSize_ + length_.size).first(length_.value); }
    // From the object on to the end of the buffer.
    ByteView rest() const { return rest_; }

private:
    ByteView rest_;
    Bound bound_;
    std::size_t tagSize_ = 0;
    std::size_t toNext_ = 0;
    LengthField length_{0, 0};
};

// From the first object with this tag on, to the end of the buffer; empty when there is none.
ByteView findObject(ByteView tag, const TlvBuffer& buffer);
inline ByteView findObject(Tag tag, const TlvBuffer& buffer) { return findObject(tag.view(), buffer); }
inline ByteView findObject(Tag tag, ByteView bytes) { return findObject(tag.view(), boundedTlv(bytes)); }

// The value of an object that findObject returned, by its real length; cut at the end of the buffer.
ByteView objectValue(ByteView object, std::size_t sizeOfTag);

// The same where the length counts as one byte whatever its form, behind a tag of one byte.
inline ByteView valueOfByteLength(ByteView object) { return object.from(2).first(object[1]); }

// The letter of a tag in the library's own dictionary, or 0.
unsigned char letterOf(ByteView tag);

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
