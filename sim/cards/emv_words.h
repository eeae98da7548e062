// SPDX-License-Identifier: Apache-2.0
// What the parts of a debit/credit application say in the same way.
#pragma once

#include "sim/data/bytes.h"

#include <string>

namespace vorn::sim {

constexpr std::uint8_t kAac = 0x00; // the types of cryptograms, as 9F27 and P1 of GENERATE AC have them
constexpr std::uint8_t kTc = 0x40;
constexpr std::uint8_t kArqc = 0x80;

inline std::string typeName(std::uint8_t type) { return type == kArqc ? "ARQC" : type == kTc ? "TC" : "AAC"; }

inline Bytes counter(std::uint16_t value)
{
    return {static_cast<std::uint8_t>(value >> 8), static_cast<std::uint8_t>(value & 0xFF)};
}

inline std::string money(std::uint64_t minor)
{
    const std::string cents = std::to_string(minor % 100);
    return std::to_string(minor / 100) + "." + (cents.size() < 2 ? "0" : "") + cents;
}

} // namespace vorn::sim
