// SPDX-License-Identifier: Apache-2.0
#include "sim/data/tlv.h"

#include "sim/data/json_node.h"

namespace vorn::sim::tlv {
namespace {

// The tag's first byte, wherever it stands in the number.
std::uint8_t leadingByte(Tag tag)
{
    while (tag > 0xFF) {
        tag >>= 8;
    }
    return static_cast<std::uint8_t>(tag);
}

} // namespace

std::string toHex(Tag tag) { return sim::toHex(tagBytes(tag)); }

std::optional<std::uint8_t> Cursor::byte() { return atEnd() ? std::nullopt : std::optional(bytes_[position_++]); }

std::optional<Bytes> Cursor::take(std::size_t count)
{
    if (position_ > bytes_.size() || count > bytes_.size() - position_) {
        return std::nullopt;
    }
    const auto from = bytes_.begin() + static_cast<std::ptrdiff_t>(position_);
    position_ += count;
    return Bytes(from, from + static_cast<std::ptrdiff_t>(count));
}

std::optional<Tag> Cursor::tag()
{
    const auto first = byte();
    if (!first) {
        return std::nullopt;
    }
    Tag tag = *first;
    if ((tag & 0x1F) != 0x1F) {
        return tag;
    }
    for (int more = 0; more < 3; ++more) {
        const auto next = byte();
        if (!next) {
            return std::nullopt;
        }
        tag = (tag << 8) | *next;
        if ((*next & 0x80) == 0) {
            return tag;
        }
    }
    return std::nullopt;
}

std::optional<std::size_t> Cursor::length()
{
    const auto first = byte();
    if (!first || *first < 0x80) {
        return first ? std::optional<std::size_t>(*first) : std::nullopt;
    }
    const int count = *first & 0x7F;
    if (count < 1 || count > 2) {
        return std::nullopt;
    }
    std::size_t length = 0;
    for (int i = 0; i < count; ++i) {
        const auto next = byte();
        if (!next) {
            return std::nullopt;
        }
        length = length * 256 + *next;
    }
    return length;
}

std::optional<Tag> tagFromHex(const std::string& text)
{
    const auto bytes = fromHex(text);
    if (!bytes) {
        return std::nullopt;
    }
    Cursor cursor(*bytes);
    const auto tag = cursor.tag();
    return cursor.atEnd() ? tag : std::nullopt;
}

bool constructed(Tag tag) { return (leadingByte(tag) & 0x20) != 0; }

Bytes tagBytes(Tag tag)
{
    Bytes bytes;
    for (int shift = 24; shift >= 0; shift -= 8) {
        const auto byte = static_cast<std::uint8_t>(tag >> shift);
        if (byte != 0 || !bytes.empty() || shift == 0) {
            bytes.push_back(byte);
        }
    }
    return bytes;
}

void append(Bytes& to, const Bytes& more) { to.insert(to.end(), more.begin(), more.end()); }

Bytes encode(Tag tag, const Bytes& value)
{
    Bytes out = tagBytes(tag);
    if (value.size() > 0xFF) {
        append(out, {0x82, static_cast<std::uint8_t>(value.size() >> 8)});
    } else if (value.size() > 0x7F) {
        out.push_back(0x81);
    }
    out.push_back(static_cast<std::uint8_t>(value.size() & 0xFF));
    append(out, value);
    return out;
}

std::optional<std::vector<Object>> parse(const Bytes& bytes)
{
    std::vector<Object> objects;
    Cursor cursor(bytes);
    while (!cursor.atEnd()) {
        const auto tag = cursor.tag();
        const auto length = tag ? cursor.length() : std::nullopt;
        const auto value = length ? cursor.take(*length) : std::nullopt;
        if (!value) {
            return std::nullopt;
        }
        objects.push_back({*tag, *value});
    }
    return objects;
}

std::optional<Bytes> find(const Bytes& bytes, Tag tag, unsigned depth)
{
    const auto objects = parse(bytes);
    if (!objects) {
        return std::nullopt;
    }
    for (const Object& object : *objects) {
        if (object.tag == tag) {
            return object.value;
        }
        if (constructed(object.tag) && depth > 1) {
            if (auto inside = find(object.value, tag, depth - 1)) {
                return inside;
            }
        }
    }
    return std::nullopt;
}

std::optional<Dol> parseDol(const Bytes& bytes)
{
    Dol dol;
    Cursor cursor(bytes);
    while (!cursor.atEnd()) {
        const auto tag = cursor.tag();
        const auto length = tag ? cursor.length() : std::nullopt;
        if (!length) {
            return std::nullopt;
        }
        dol.push_back({*tag, *length});
    }
    return dol;
}

std::size_t dataLength(const Dol& dol)
{
    std::size_t sum = 0;
    for (const DolEntry& entry : dol) {
        sum += entry.length;
    }
    return sum;
}

std::map<Tag, Bytes> split(const Dol& dol, const Bytes& data)
{
    std::map<Tag, Bytes> values;
    Cursor cursor(data);
    for (const DolEntry& entry : dol) {
        if (const auto value = cursor.take(entry.length)) {
            values[entry.tag] = *value;
        }
    }
    return values;
}

} // namespace vorn::sim::tlv
