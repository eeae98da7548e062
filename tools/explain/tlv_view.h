// SPDX-License-Identifier: Apache-2.0
// BER-TLV objects as people look at them: names, places in the bytes, values in words.
#pragma once

#include "sim/data/tlv.h"
#include "tools/explain/mask.h"

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace vorn::tool {

using sim::ByteSpan;
using sim::tlv::Tag;

constexpr std::size_t kDeepestObject = 8; // what is in deeper ones are bytes

struct TlvNode {
    Tag tag = 0;
    std::size_t depth = 0;
    std::size_t valueAt = 0; // in the bytes that were walked
    ByteSpan value;          // among them
    bool constructed = false;
};

// As far as the bytes can be read: a problem says where they cannot.
struct TlvWalk {
    std::vector<TlvNode> nodes;
    std::string problem;
    std::size_t stoppedAt = 0; // where the problem is
};

TlvWalk walkTlv(ByteSpan bytes);

std::string_view tagName(Tag tag); // "Application PAN", or empty

// The value in words, where there is something to say: text, an amount, a date, a list of tags. May be empty.
std::string valueInWords(const TlvNode& node, bool show);

} // namespace vorn::tool
