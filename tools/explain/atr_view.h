// SPDX-License-Identifier: Apache-2.0
// The parts of an answer to reset (ISO/IEC 7816-3, 8).
#pragma once

#include "sim/data/bytes.h"
#include "tools/explain/item.h"

#include <string>
#include <vector>

namespace vorn::tool {

struct AtrPart {
    std::string name; // "TA1"
    std::string hex;
    Title meaning; // may be empty
};

// A contactless card's answer need not have this form: then there is one part.
std::vector<AtrPart> decodeAtr(sim::ByteSpan atr);

} // namespace vorn::tool
