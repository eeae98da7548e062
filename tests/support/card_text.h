// SPDX-License-Identifier: Apache-2.0
// Hex texts of card data, for transcripts that are too long to be read as one line of digits.
#pragma once

#include "support/line.h"

#include <cstddef>
#include <string>

namespace vorn::test {

inline std::string repeated(const std::string& hex, std::size_t times)
{
    std::string text;
    for (std::size_t i = 0; i < times; ++i) {
        text += hex;
    }
    return text;
}

inline std::string hexByte(std::size_t value) { return toHex({static_cast<std::uint8_t>(value)}); }

inline std::string hexOf(const std::string& characters) { return toHex(Bytes(characters.begin(), characters.end())); }

inline std::string withoutBlanks(const std::string& hex) { return toHex(fromHex(hex)); }

// A BER-TLV object with the shortest length field.
inline std::string tlv(const std::string& tag, const std::string& value)
{
    const std::size_t size = fromHex(value).size();
    std::string length = hexByte(size);
    if (size > 0xFF) {
        length = "82" + hexByte(size >> 8) + hexByte(size & 0xFF);
    } else if (size > 0x7F) {
        length = "81" + hexByte(size);
    }
    return tag + length + withoutBlanks(value);
}

// A letter-length-value field of the services' text records.
inline std::string field(char letter, const std::string& text)
{
    std::string digits = std::to_string(text.size());
    digits.insert(0, 3 - digits.size(), '0');
    return letter + digits + text;
}

inline std::string ok(const std::string& data) { return withoutBlanks(data) + "9000"; }

// SELECT by name, the first (00) or the next (02) occurrence.
inline std::string select(const std::string& name, const std::string& p2 = "00")
{
    return "00A404" + p2 + hexByte(fromHex(name).size()) + withoutBlanks(name);
}

inline std::string readRecord(std::size_t record, std::size_t shortFileId)
{
    return "00B2" + hexByte(record) + hexByte(shortFileId * 8 + 4) + "00";
}

const std::string kPseName = "315041592E5359532E4444463031"; // 1PAY.SYS.DDF01

// The directory's FCI; its records lie in the short file.
inline std::string directoryFci(const std::string& name, const std::string& shortFileId = "01")
{
    return tlv("6F", tlv("84", name) + tlv("A5", tlv("88", shortFileId)));
}

// An application's FCI. `proprietary` is what stands in A5.
inline std::string applicationFci(const std::string& name, const std::string& proprietary = "")
{
    return tlv("6F", tlv("84", name) + tlv("A5", tlv("50", "5042") + proprietary));
}

// A directory entry; no priority indicator when `priority` is empty.
inline std::string directoryEntry(const std::string& aid, const std::string& priority = "01")
{
    return tlv("61", tlv("4F", aid) + tlv("50", "5042") + (priority.empty() ? "" : tlv("87", priority)));
}

} // namespace vorn::test
