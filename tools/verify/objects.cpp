// SPDX-License-Identifier: Apache-2.0
#include "tools/verify/objects.h"

namespace vorn::tool::verify {
namespace {

constexpr unsigned kDepthMax = 8;
constexpr std::uint8_t kConstructed = 0x20;

struct Object {
    unsigned tag = 0;
    bool constructed = false;
    Bytes value;
};

// EMV Book 3, Annex B: tags of one to three bytes, lengths in one byte or behind 81 or 82.
class Walk {
public:
    explicit Walk(const Bytes& bytes) : bytes_(bytes) {}

    bool atEnd() const { return at_ == bytes_.size(); }
    std::size_t position() const { return at_; }

    std::optional<Object> next()
    {
        Object object;
        object.constructed = !atEnd() && (bytes_[at_] & kConstructed) != 0;
        const auto tag = readTag();
        const auto length = tag ? readLength() : std::nullopt;
        if (!length || *length > bytes_.size() - at_) {
            return std::nullopt;
        }
        object.tag = *tag;
        const auto from = bytes_.begin() + static_cast<std::ptrdiff_t>(at_);
        object.value.assign(from, from + static_cast<std::ptrdiff_t>(*length));
        at_ += *length;
        return object;
    }

private:
    std::optional<unsigned> byte() { return atEnd() ? std::nullopt : std::optional<unsigned>(bytes_[at_++]); }

    std::optional<unsigned> readTag()
    {
        auto tag = byte();
        bool more = tag && (*tag & 0x1F) == 0x1F;
        for (int i = 0; more && i < 2; ++i) {
            const auto following = byte();
            if (!following) {
                return std::nullopt;
            }
            tag = *tag << 8 | *following;
            more = (*following & 0x80) != 0;
        }
        return more ? std::nullopt : tag;
    }

    std::optional<std::size_t> readLength()
    {
        const auto first = byte();
        if (!first || *first < 0x80) {
            return first;
        }
        const unsigned count = *first & 0x7F;
        std::size_t length = 0;
        for (unsigned i = 0; i < count; ++i) {
            const auto following = byte();
            if (!following || count > 2) {
                return std::nullopt;
            }
            length = length << 8 | *following;
        }
        return count == 0 ? std::nullopt : std::optional(length);
    }

    const Bytes& bytes_;
    std::size_t at_ = 0;
};

bool collectFrom(const Bytes& bytes, Objects& objects, unsigned depth)
{
    Walk walk(bytes);
    while (!walk.atEnd()) {
        const auto object = walk.next();
        if (!object || (object->constructed && (depth == 0 || !collectFrom(object->value, objects, depth - 1)))) {
            return false;
        }
        if (!object->constructed) {
            objects.emplace(object->tag, object->value);
        }
    }
    return true;
}

} // namespace

bool collect(const Bytes& bytes, Objects& objects) { return collectFrom(bytes, objects, kDepthMax); }

std::optional<Bytes> onlyObject(const Bytes& bytes, unsigned tag)
{
    Walk walk(bytes);
    const auto object = walk.next();
    return object && object->tag == tag && walk.atEnd() ? std::optional(object->value) : std::nullopt;
}

Bytes withoutObject(const Bytes& bytes, unsigned tag)
{
    Bytes rest;
    Walk walk(bytes);
    while (!walk.atEnd()) {
        const auto from = static_cast<std::ptrdiff_t>(walk.position());
        const auto object = walk.next();
        if (!object) {
            return bytes;
        }
        if (object->tag != tag) {
            rest.insert(rest.end(), bytes.begin() + from, bytes.begin() + static_cast<std::ptrdiff_t>(walk.position()));
        }
    }
    return rest;
}

Bytes valueOf(const Objects& objects, unsigned tag)
{
    const auto found = objects.find(tag);
    return found == objects.end() ? Bytes() : found->second;
}

} // namespace vorn::tool::verify
