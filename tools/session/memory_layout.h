// SPDX-License-Identifier: Apache-2.0
// How a contactless memory card is divided, and what of it is secret.
#pragma once

#include "sim/data/bytes.h"

#include <string>

namespace vorn::tool {

constexpr std::size_t kKeySize = 6;
constexpr std::size_t kKeyBAt = 10; // in a trailer; key A stands at its beginning

// The layout of a card: sectors of 4 blocks, from block 128 on of 16. A sector's last block is its trailer.
unsigned sectorOf(unsigned block);
unsigned firstBlock(unsigned sector);
unsigned blockCount(unsigned sector);
bool isTrailer(unsigned block);

// The trailer keeps each access bit and its inverse; a card locks a sector whose copies disagree, for ever.
bool accessBitsConsistent(const sim::Bytes& trailer);

// Hex of a block; in a trailer the keys only when all may be shown.
std::string blockText(unsigned block, const sim::Bytes& data, bool show);

} // namespace vorn::tool
