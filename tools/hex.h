// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "sim/card.h"

#include <optional>
#include <string>

namespace vorn::tool {

using sim::Bytes;

std::string toHex(const Bytes& bytes);                 // upper case
std::optional<Bytes> fromHex(const std::string& text); // either case, white space skipped; nothing when it is no hex
unsigned long bigEndian(const Bytes& bytes);           // of up to eight bytes

} // namespace vorn::tool
