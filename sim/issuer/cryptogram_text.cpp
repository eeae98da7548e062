// SPDX-License-Identifier: Apache-2.0
#include "sim/issuer/cryptogram_text.h"

#include "sim/data/json_node.h"

#include <algorithm>

namespace vorn::sim {
namespace {

constexpr std::size_t kAny = 0;
constexpr tlv::Tag kDate = 0x9A;
constexpr tlv::Tag kType = 0x9C;

struct ItemRow {
    tlv::Tag tag;
    std::size_t length;
    bool required;
    bool shortInTc; // only its first tag byte stands in the text of a TC
};

constexpr ItemRow kItems[] = {
    {0x9F26, 8, true, false},     // application cryptogram
    {0x9F27, 1, true, false},     // cryptogram information data
    {0x9F10, kAny, false, false}, // issuer application data
    {0x9F37, 4, true, false},     // unpredictable number
    {0x9F36, 2, true, false},     // application transaction counter
    {0x95, 5, true, false},       // terminal verification results
    {0x9F13, kAny, false, false}, // last online counter
    {kDate, 3, true, false},      // date
    {kType, 1, true, false},      // type
    {0x9F02, 6, true, true},      // amount
    {0x5F2A, 2, true, true},      // currency
    {0x5A, kAny, false, false},   // account number
    {0x5F34, kAny, false, false}, // its sequence number
    {0x82, 2, false, false},      // application interchange profile
    {0x9F1A, 2, true, true},      // country
    {0x9F03, 6, true, true},      // other amount
    {0x9F33, 3, true, false},     // terminal capabilities
};

std::optional<Bytes> valueBehind(const Bytes& text, std::size_t& position, const Bytes& tag, std::size_t length)
{
    const bool fits = text.size() - position >= tag.size() &&
                      std::equal(tag.begin(), tag.end(), text.begin() + static_cast<std::ptrdiff_t>(position));
    if (!fits) {
        return std::nullopt;
    }
    tlv::Cursor cursor(text, position + tag.size());
    const auto said = cursor.byte();
    if (!said || (length != kAny && *said != length)) {
        return std::nullopt;
    }
    auto value = cursor.take(*said);
    if (value) {
        position = cursor.position();
    }
    return value;
}

std::optional<Bytes> readItem(const ItemRow& row, CryptogramText kind, const Bytes& text, std::size_t& position)
{
    const Bytes tag = tlv::tagBytes(row.tag);
    auto value = valueBehind(text, position, tag, row.length);
    if (!value && row.shortInTc && kind == CryptogramText::Tc) {
        value = valueBehind(text, position, {tag[0]}, row.length);
    }
    return value;
}

// A card that answers GET DATA for 9F13 with something else leaves a gap of as many bytes without meaning in front of
// the date. Date and type are told by their tags and lengths.
std::optional<Bytes> readDateBehindGap(const Bytes& text, std::size_t& position)
{
    for (std::size_t at = position; at < text.size(); ++at) {
        std::size_t behind = at;
        auto date = valueBehind(text, behind, tlv::tagBytes(kDate), 3);
        std::size_t type = behind;
        if (date && valueBehind(text, type, tlv::tagBytes(kType), 1)) {
            position = behind;
            return date;
        }
    }
    return std::nullopt;
}

} // namespace

CryptogramItems readCryptogramText(CryptogramText kind, const std::string& hex)
{
    CryptogramItems items;
    const auto text = fromHex(hex);
    if (!text || text->empty()) {
        items.mistake = text ? "the text is empty" : "the text is not hex";
        return items;
    }
    std::size_t position = 0;
    for (const ItemRow& row : kItems) {
        auto value = row.tag == kDate ? readDateBehindGap(*text, position) : readItem(row, kind, *text, position);
        if (value) {
            items.values[row.tag] = std::move(*value);
        } else if (row.required) {
            items.mistake = tlv::toHex(row.tag) + " expected at byte " + std::to_string(position);
            return items;
        }
    }
    if (position != text->size()) {
        items.mistake = std::to_string(text->size() - position) + " bytes behind the last item";
    }
    return items;
}

std::string writeCryptogramText(const std::map<tlv::Tag, Bytes>& values)
{
    Bytes text;
    for (const ItemRow& row : kItems) {
        const auto found = values.find(row.tag);
        if (found != values.end()) {
            tlv::append(text, tlv::encode(row.tag, found->second));
        }
    }
    return toHex(text);
}

} // namespace vorn::sim
