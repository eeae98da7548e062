// SPDX-License-Identifier: Apache-2.0
// Bytes, and their hex text.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace vorn::sim {

using Bytes = std::vector<std::uint8_t>;

std::string toHex(const Bytes& bytes);                 // upper case
std::optional<Bytes> fromHex(const std::string& text); // either case, white space skipped; nothing when it is no hex
unsigned long bigEndian(const Bytes& bytes);           // of up to eight bytes

} // namespace vorn::sim
