// SPDX-License-Identifier: Apache-2.0
// The kinds of values that stand in a card's and an issuer's profile.
#pragma once

#include "sim/data/bytes.h"
#include "sim/data/json_node.h"

#include <cstdint>
#include <string>

namespace vorn::sim {

// Money in minor units: a whole number, or up to 12 digits as text.
std::uint64_t amountOf(const JsonNode& node);

// Bytes: hex, "text:..." as it stands, "gbk:..." converted from UTF-8.
Bytes bytesOf(const JsonNode& node);
Bytes bytesOf(const JsonNode& node, std::size_t least, std::size_t most);
// The same, but a text without one of the prefixes stands for itself.
Bytes wordingOf(const JsonNode& node);
// Data objects: {"5A": bytes, "BF0C": {...}}, or a list of such where their order counts.
Bytes objectsOf(const JsonNode& node);

Bytes utf8ToGbk(const std::string& text); // throws std::invalid_argument
Bytes bcdAmount(std::uint64_t amount);    // six bytes
std::uint64_t amountFromBcd(const Bytes& digits);

} // namespace vorn::sim
