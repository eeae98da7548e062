// SPDX-License-Identifier: Apache-2.0
// BER-TLV objects and data object lists for the simulator. Written without the library's own, so that a
// mistake in one of them shows as a disagreement.
#pragma once

#include "sim/data/bytes.h"

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace vorn::sim::tlv {

using Tag = std::uint32_t; // its bytes, first byte highest: 0x5A, 0x9F02, 0xDF8101

std::string toHex(Tag tag);

struct ObjectView {
    Tag tag = 0;
    ByteSpan value;
};

// Reads bytes in order and never past their end.
class Cursor {
public:
    explicit Cursor(ByteSpan bytes, std::size_t position = 0) : bytes_(bytes), position_(position) {}

    bool atEnd() const { return position_ >= bytes_.size(); }
    std::size_t position() const { return position_; }
    std::optional<std::uint8_t> byte();
    std::optional<Bytes> take(std::size_t count);
    std::optional<ByteSpan> look(std::size_t count); // the same without a copy
    std::optional<Tag> tag();
    std::optional<std::size_t> length();
    std::optional<ObjectView> object(); // a whole one

private:
    ByteSpan bytes_;
    std::size_t position_;
};

struct Object {
    Tag tag = 0;
    Bytes value;
};

std::optional<Tag> tagFromHex(const std::string& text); // one whole tag
bool constructed(Tag tag);
Bytes tagBytes(Tag tag);
Bytes encode(Tag tag, const Bytes& value);
void append(Bytes& to, const Bytes& more);

// The objects of one level; nothing when the bytes are not a sequence of objects.
std::optional<std::vector<Object>> parse(const Bytes& bytes);
bool wellFormed(ByteSpan bytes); // whether they are
// The first object with this tag in the order of the bytes, down to a depth that no card's data reach.
constexpr unsigned kDepthMax = 16;
std::optional<Bytes> find(const Bytes& bytes, Tag tag, unsigned depth = kDepthMax);
std::optional<ByteSpan> look(ByteSpan bytes, Tag tag, unsigned depth = kDepthMax); // the same without a copy

struct DolEntry {
    Tag tag = 0;
    std::size_t length = 0;
};
using Dol = std::vector<DolEntry>;

std::optional<Dol> parseDol(ByteSpan bytes);
std::size_t dataLength(const Dol& dol); // what its values need together
// The values by their tags; data must have exactly dataLength(dol) bytes.
std::map<Tag, Bytes> split(const Dol& dol, const Bytes& data);

} // namespace vorn::sim::tlv
