// SPDX-License-Identifier: Apache-2.0
// The lettered texts of the interface: letter, three decimal digits, text.
#pragma once

#include "ICC/ICC_COMM_VORN/call_frame.h"
#include "card/tlv.h"

#include <cstdint>

namespace vorn {

// The most bytes that convertFlagtoTLV writes for a text of this length.
constexpr std::size_t letteredItemsCapacity(std::size_t textLength) { return textLength + 502; }

// A caller's lettered text as items of letter, length byte, value.
class LetteredItems {
public:
    explicit LetteredItems(const char* text);
    explicit operator bool() const { return static_cast<bool>(bytes_); }

    // The value of a letter; not found when the text does not hold it.
    TagValue value(char letter) const;

private:
    HeapBytes bytes_;
};

// The tags that a caller's letters ask for, as the card layer's list of wanted tags.
struct WantedTags {
    static constexpr int kMax = 135; // what such a list holds; further letters are passed over

    explicit WantedTags(const char* letters);

    std::uint8_t bytes[kMax + 1] = {};
    std::uint8_t size = 0;
};

} // namespace vorn
