// SPDX-License-Identifier: Apache-2.0
// Objects whose bits and bytes have meanings of their own: each as a list of words.
#pragma once

#include "sim/data/bytes.h"
#include "sim/data/tlv.h"

#include <string>
#include <vector>

namespace vorn::tool {

// One line for each bit that is set, or for each part of the value; empty for an object that has none.
std::vector<std::string> bitsInWords(sim::tlv::Tag tag, sim::ByteSpan value);

} // namespace vorn::tool
