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

// The tag as its bytes stand in data.
class TagText {
public:
    explicit TagText(Tag tag)
        : bytes_{static_cast<std::uint8_t>(tag >> 24), static_cast<std::uint8_t>(tag >> 16),
                 static_cast<std::uint8_t>(tag >> 8), static_cast<std::uint8_t>(tag)},
          size_(tag > 0xFFFFFF ? 4
                : tag > 0xFFFF ? 3
                : tag > 0xFF   ? 2
                               : 1)
    {}
    ByteSpan bytes() const { return ByteSpan(bytes_, sizeof bytes_).last(size_); }

private:
    std::uint8_t bytes_[4];
    std::size_t size_;
};

// Most of what is looked for is not there at all.
bool occurs(Tag tag, ByteSpan bytes)
{
    const TagText wanted(tag);
    const auto text = [](ByteSpan span) {
        return std::string_view(reinterpret_cast<const char*>(span.begin()), span.size());
    };
    return text(bytes).find(text(wanted.bytes())) != std::string_view::npos;
}

} // namespace

std::string toHex(Tag tag) { return sim::toHex(TagText(tag).bytes()); }

std::optional<std::uint8_t> Cursor::byte() { return atEnd() ? std::nullopt : std::optional(bytes_[position_++]); }

std::optional<ByteSpan> Cursor::look(std::size_t count)
{
    if (position_ > bytes_.size() || count > bytes_.size() - position_) {
        return std::nullopt;
    }
    const ByteSpan found = bytes_.from(position_).first(count);
    position_ += count;
    return found;
}

std::optional<Bytes> Cursor::take(std::size_t count)
{
    const auto found = look(count);
    return found ? std::optional(found->copy()) : std::nullopt;
}

std::optional<ObjectView> Cursor::object()
{
    const auto tag = this->tag();
    const auto length = tag ? this->length() : std::nullopt;
    const auto value = length ? look(*length) : std::nullopt;
    return value ? std::optional(ObjectView{*tag, *value}) : std::nullopt;
}

std::optional<Tag> Cursor::tag()
{
    if (atEnd()) {
        return std::nullopt;
    }
    Tag tag = bytes_[position_++];
    if ((tag & 0x1F) != 0x1F) {
        return tag;
    }
    for (int more = 0; more < 3 && !atEnd(); ++more) {
        tag = (tag << 8) | bytes_[position_++];
        if ((tag & 0x80) == 0) {
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

Bytes tagBytes(Tag tag) { return TagText(tag).bytes().copy(); }

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
        const auto object = cursor.object();
        if (!object) {
            return std::nullopt;
        }
        objects.push_back({object->tag, object->value.copy()});
    }
    return objects;
}

bool wellFormed(ByteSpan bytes)
{
    Cursor cursor(bytes);
    while (!cursor.atEnd()) {
        if (!cursor.object()) {
            return false;
        }
    }
    return true;
}

std::optional<ByteSpan> look(ByteSpan bytes, Tag tag, unsigned depth)
{
    if (!occurs(tag, bytes) || !wellFormed(bytes)) {
        return std::nullopt;
    }
    Cursor cursor(bytes);
    while (const auto object = cursor.object()) {
        if (object->tag == tag) {
            return object->value;
        }
        if (constructed(object->tag) && depth > 1) {
            if (const auto inside = look(object->value, tag, depth - 1)) {
                return inside;
            }
        }
    }
    return std::nullopt;
}

std::optional<Bytes> find(const Bytes& bytes, Tag tag, unsigned depth)
{
    const auto found = look(bytes, tag, depth);
    return found ? std::optional(found->copy()) : std::nullopt;
}

std::optional<Dol> parseDol(ByteSpan bytes)
{
    constexpr std::size_t usual = 3; // bytes of an entry
    Dol dol;
    dol.reserve(bytes.size() / usual);
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
