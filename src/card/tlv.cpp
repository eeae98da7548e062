// SPDX-License-Identifier: Apache-2.0
#include "card/tlv.h"

#include "vorn/card.h"

#include <cstring>

namespace vorn {
namespace {

constexpr std::uint8_t kNotLast = 0x80;
constexpr std::size_t kTagMax = 256;
constexpr std::size_t kZeroEndedTagMax = 2;
constexpr std::size_t kNoBound = SIZE_MAX / 2;

// How vrdk_gettagvalue reads a found object. For the 81 form it takes the length from the second byte of the whole
// buffer; such a value is `padded` with zeros where the buffer ends before it (compatibility: "A one-byte extended length
// is the buffer's second byte").
struct ValueReading {
    ByteView value;
    std::size_t size;
};

ValueReading readValue(ByteView object, std::size_t sizeOfTag, ByteView buffer)
{
    const LengthField field = lengthField(object.from(sizeOfTag));
    const bool quirk = object[sizeOfTag] == kOneLengthByte;
    const std::size_t length = quirk ? buffer[1] : field.value;
    const ByteView value = object.from(sizeOfTag + field.size).first(length);
    return {value, quirk ? length : value.size()};
}

} // namespace

TlvBuffer tlvBufferOf(const unsigned char* buffer, int length)
{
    if (length == 0) {
        return zeroEndedTlv(ByteView(buffer, kNoBound));
    }
    return boundedTlv(viewOf(buffer, length));
}

std::size_t sizeOfLongTag(ByteView bytes, Bound bound)
{
    for (std::size_t i = 1; i < kTagMax && bytes.holds(i, 1); ++i) {
        if (bytes[i] == kPadding) {
            return 0;
        }
        const std::size_t size = i + 1;
        if ((bytes[i] & kNotLast) == 0 || (bound == Bound::Zero && size == kZeroEndedTagMax)) {
            return size;
        }
    }
    return 0;
}

ByteView findObject(ByteView tag, const TlvBuffer& buffer)
{
    for (TlvWalk walk(buffer); walk.next();) {
        if (sameTag(walk.tag(), tag)) {
            return walk.rest();
        }
    }
    return {};
}

ByteView objectValue(ByteView object, std::size_t sizeOfTag)
{
    const LengthField field = lengthField(object.from(sizeOfTag));
    return object.from(sizeOfTag + field.size).first(field.value);
}

TagValue readTag(Tag tag, const TlvBuffer& buffer)
{
    TagValue result;
    const ByteView object = findObject(tag, buffer);
    if (object.empty()) {
        return result;
    }
    const ValueReading reading = readValue(object, tag.view().size(), buffer.bytes);
    const ByteView value = reading.value.first(VORN_RESPONSE_MAX);
    result.found = true;
    result.size = reading.size < VORN_RESPONSE_MAX ? reading.size : std::size_t{VORN_RESPONSE_MAX};
    if (!value.empty()) {
        std::memcpy(result.bytes, value.data(), value.size());
    }
    return result;
}

} // namespace vorn

using namespace vorn;

extern "C" {

unsigned char* vrdk_findtag(const unsigned char* tag, int tagLength, const unsigned char* buffer, int bufferLength)
{
    const ByteView object = findObject(viewOf(tag, tagLength), tlvBufferOf(buffer, bufferLength));
    return const_cast<unsigned char*>(object.data());
}

int vrdk_gettagvalue(const unsigned char* tag, int tagLength, const unsigned char* buffer, int bufferLength,
                     unsigned char* value, int* valueLength)
{
    const TlvBuffer whole = tlvBufferOf(buffer, bufferLength);
    const ByteView sought = viewOf(tag, tagLength);
    const ByteView object = findObject(sought, whole);
    if (object.empty()) {
        return -1;
    }
    const ValueReading reading = readValue(object, sought.size(), whole.bytes);
    const std::size_t there = reading.value.size();
    if (there != 0) {
        std::memmove(value, reading.value.data(), there);
    }
    std::memset(value + there, 0, reading.size - there);
    *valueLength = static_cast<int>(reading.size);
    return 0;
}

int vrdk_GetTagData(int tagLength, const unsigned char* object, unsigned char* value, unsigned char* valueLength)
{
    const unsigned char* field = object + tagLength;
    const std::size_t fieldSize = field[0] == kTwoLengthBytes ? 3 : field[0] == kOneLengthByte ? 2 : 1;
    const LengthField length = lengthField(ByteView(field, fieldSize));
    *valueLength = static_cast<unsigned char>(length.value); // of two length bytes only the low one
    std::memmove(value, field + length.size, *valueLength);
    return 0;
}

int vrdk_findapptag(const unsigned char* data, int dataLength, unsigned char* tagList, int tagListLength)
{
    const TlvBuffer buffer = tlvBufferOf(data, dataLength);
    int at = 0;
    while (at < tagListLength) {
        int size = (tagList[at] & kMoreTagBytes) == kMoreTagBytes ? 2 : 1;
        size = at + size > tagListLength ? tagListLength - at : size;
        const ByteView tag = viewOf(tagList + at, size);
        if (findObject(tag, buffer).empty()) {
            at += size;
            continue;
        }
        std::memmove(tagList + at, tagList + at + size, static_cast<std::size_t>(tagListLength - at - size));
        tagListLength -= size;
    }
    return tagListLength;
}

} // extern "C"
