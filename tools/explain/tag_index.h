// SPDX-License-Identifier: Apache-2.0
// Finds the row of a tag in a table that has a member `tag`. The index is made at compile time, so that the order of
// the rows is free.
#pragma once

#include "sim/data/tlv.h"

#include <array>
#include <cstddef>
#include <cstdint>

namespace vorn::tool {

template <class Row, std::size_t Count>
class TagIndex {
public:
    constexpr explicit TagIndex(const Row (&rows)[Count]) : rows_(rows)
    {
        for (std::size_t i = 0; i < Count; ++i) {
            std::size_t slot = slotOf(rows[i].tag);
            while (slots_[slot] != kFree && rows[slots_[slot] - 1].tag != rows[i].tag) {
                slot = (slot + 1) % kSlots;
            }
            if (slots_[slot] == kFree) {
                slots_[slot] = static_cast<std::uint8_t>(i + 1);
            }
        }
    }

    // The first row with the tag; null when there is none.
    constexpr const Row* find(sim::tlv::Tag tag) const
    {
        for (std::size_t slot = slotOf(tag); slots_[slot] != kFree; slot = (slot + 1) % kSlots) {
            if (rows_[slots_[slot] - 1].tag == tag) {
                return &rows_[slots_[slot] - 1];
            }
        }
        return nullptr;
    }

    constexpr const Row* end() const { return rows_ + Count; }

private:
    static constexpr std::size_t kSlots = 512;
    static constexpr std::uint8_t kFree = 0;
    static_assert(Count < 0xFF, "a row's number has to fit a slot");

    static constexpr std::size_t slotOf(sim::tlv::Tag tag) { return (tag ^ tag >> 7) % kSlots; }

    const Row* rows_;
    std::array<std::uint8_t, kSlots> slots_{}; // numbers of rows, from 1
};

} // namespace vorn::tool
