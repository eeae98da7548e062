// SPDX-License-Identifier: Apache-2.0
#include "tools/session/memory_layout.h"

#include <algorithm>

namespace vorn::tool {

namespace {

constexpr unsigned kSmallSectors = 32;
constexpr unsigned kSmallBlocks = 4;
constexpr unsigned kLargeBlocks = 16;
constexpr unsigned kFirstLarge = kSmallSectors * kSmallBlocks;

} // namespace

unsigned sectorOf(unsigned block)
{
    return block < kFirstLarge ? block / kSmallBlocks : kSmallSectors + (block - kFirstLarge) / kLargeBlocks;
}

unsigned firstBlock(unsigned sector)
{
    return sector < kSmallSectors ? sector * kSmallBlocks : kFirstLarge + (sector - kSmallSectors) * kLargeBlocks;
}

unsigned blockCount(unsigned sector) { return sector < kSmallSectors ? kSmallBlocks : kLargeBlocks; }

bool isTrailer(unsigned block)
{
    const unsigned sector = sectorOf(block);
    return block == firstBlock(sector) + blockCount(sector) - 1;
}

bool accessBitsConsistent(const sim::Bytes& trailer)
{
    const unsigned c1 = trailer[7] >> 4, c2 = trailer[8] & 0x0FU, c3 = trailer[8] >> 4;
    const unsigned not1 = trailer[6] & 0x0FU, not2 = trailer[6] >> 4, not3 = trailer[7] & 0x0FU;
    return (c1 ^ not1) == 0x0F && (c2 ^ not2) == 0x0F && (c3 ^ not3) == 0x0F;
}

std::string blockText(unsigned block, const sim::Bytes& data, bool show)
{
    std::string text = sim::toHex(data);
    if (isTrailer(block) && !show && text.size() >= 2 * (kKeyBAt + kKeySize)) {
        std::fill_n(text.begin(), 2 * kKeySize, '*');
        std::fill_n(text.begin() + 2 * kKeyBAt, 2 * kKeySize, '*');
    }
    return text;
}

} // namespace vorn::tool
