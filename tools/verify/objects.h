// SPDX-License-Identifier: Apache-2.0
// Data objects for checking cards. The check shares no code with the simulated cards: what both got wrong in the same
// way would go unnoticed.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <vector>

namespace vorn::tool::verify {

using Bytes = std::vector<std::uint8_t>;
using Objects = std::map<unsigned, Bytes>; // primitive ones, by their tags

// Adds the primitive objects of these bytes and of the templates in them; the first with a tag counts. False: the bytes
// are no objects, or nested deeper than any card's.
bool collect(const Bytes& bytes, Objects& objects);

// The value of the one object that the bytes are.
std::optional<Bytes> onlyObject(const Bytes& bytes, unsigned tag);

// The bytes as they are, but for the object with this tag at their top level.
Bytes withoutObject(const Bytes& bytes, unsigned tag);

Bytes valueOf(const Objects& objects, unsigned tag); // empty: there is none

} // namespace vorn::tool::verify
