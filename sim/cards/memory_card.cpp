// SPDX-License-Identifier: Apache-2.0
#include "sim/cards/memory_card.h"

#include "sim/data/json_node.h"

#include <algorithm>
#include <numeric>
#include <sstream>
#include <utility>

namespace vorn::sim {

namespace {

// ---------------------------------------------------------------- geometry

constexpr unsigned kSmallSectors = 32; // of 4 blocks; the ones above have 16
constexpr unsigned kSmallSectorBlocks = 4;
constexpr unsigned kLargeSectorBlocks = 16;
constexpr unsigned kFirstLarge = kSmallSectors * kSmallSectorBlocks;

unsigned sectorOf(unsigned block)
{
    if (block < kFirstLarge) {
        return block / kSmallSectorBlocks;
    }
    return kSmallSectors + (block - kFirstLarge) / kLargeSectorBlocks;
}

unsigned trailerOf(unsigned block)
{
    return block | (block < kFirstLarge ? kSmallSectorBlocks - 1 : kLargeSectorBlocks - 1);
}

// Which of a sector's four access conditions a block is under; the trailer is under the last.
unsigned groupOf(unsigned block)
{
    return block < kFirstLarge ? block % kSmallSectorBlocks : (block - kFirstLarge) % kLargeSectorBlocks / 5;
}

constexpr std::size_t kImageSizeMax = 65536; // of an image file: 256 lines with room for comments

// ---------------------------------------------------------------- access conditions

constexpr std::size_t kAccessAt = 6;
constexpr std::size_t kFreeAt = 9;
constexpr std::size_t kKeyBAt = 10;
const Bytes kTransportTrailer = {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x07,
                                 0x80, 0x69, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF};

enum Who : std::uint8_t { None = 0, A = 1, B = 2, AB = 3 };

// Rows by C1 C2 C3 read as a binary number.
struct DataRow {
    Who read, write, increment, decrement;
};
constexpr DataRow kData[8] = {
    /* 000 */ {AB, AB, AB, AB},
    /* 001 */ {AB, None, None, AB},
    /* 010 */ {AB, None, None, None},
    /* 011 */ {B, B, None, None},
    /* 100 */ {AB, B, None, None},
    /* 101 */ {B, None, None, None},
    /* 110 */ {AB, B, B, AB},
    /* 111 */ {None, None, None, None},
};

// Key A is never read.
struct TrailerRow {
    Who writeA, readAccess, writeAccess, readB, writeB;
};
constexpr TrailerRow kTrailer[8] = {
    /* 000 */ {A, A, None, A, A},
    /* 001 */ {A, A, A, A, A},
    /* 010 */ {None, A, None, A, None},
    /* 011 */ {B, AB, B, None, B},
    /* 100 */ {B, AB, None, None, B},
    /* 101 */ {None, AB, B, None, None},
    /* 110 */ {None, AB, None, None, None},
    /* 111 */ {None, AB, None, None, None},
};

bool includes(Who who, MemoryCard::Key key) { return (who & (key == MemoryCard::Key::A ? A : B)) != 0; }

// C1 C2 C3 of one group as a number, from access bits whose inverted copies agree; nothing when they do not.
std::optional<unsigned> conditionsOf(const Bytes& trailer, unsigned group)
{
    const unsigned b6 = trailer[kAccessAt];
    const unsigned b7 = trailer[kAccessAt + 1];
    const unsigned b8 = trailer[kAccessAt + 2];
    const unsigned c1 = b7 >> 4;
    const unsigned c2 = b8 & 0x0F;
    const unsigned c3 = b8 >> 4;
    if ((b6 & 0x0F) != (~c1 & 0x0F) || b6 >> 4 != (~c2 & 0x0F) || (b7 & 0x0F) != (~c3 & 0x0F)) {
        return std::nullopt;
    }
    return (c1 >> group & 1) << 2 | (c2 >> group & 1) << 1 | (c3 >> group & 1);
}

} // namespace

// ---------------------------------------------------------------- value blocks

Bytes ValueBlock::encode() const
{
    Bytes block;
    const auto bits = static_cast<std::uint32_t>(value);
    for (const std::uint32_t copy : {bits, ~bits, bits}) {
        for (unsigned shift = 0; shift < 32; shift += 8) {
            block.push_back(static_cast<std::uint8_t>(copy >> shift & 0xFF));
        }
    }
    const auto inverted = static_cast<std::uint8_t>(~address & 0xFF);
    block.insert(block.end(), {address, inverted, address, inverted});
    return block;
}

std::optional<ValueBlock> ValueBlock::decode(const Bytes& block)
{
    if (block.size() != MemoryCard::kBlockSize) {
        return std::nullopt;
    }
    std::uint32_t bits = 0;
    for (unsigned i = 0; i < 4; ++i) {
        bits |= std::uint32_t{block[i]} << (8 * i);
    }
    ValueBlock result{static_cast<std::int32_t>(bits), block[12]};
    if (result.encode() != block) {
        return std::nullopt;
    }
    return result;
}

// ---------------------------------------------------------------- the card

SectorCard::SectorCard(const Bytes& identification, std::size_t blocks) : blocks_(blocks, Bytes(kBlockSize, 0))
{
    for (unsigned block = 0; block < blocks_.size(); ++block) {
        if (trailerOf(block) == block) {
            blocks_[block] = kTransportTrailer;
        }
    }
    // Behind a short identification stands its check byte.
    std::copy(identification.begin(), identification.end(), blocks_[0].begin());
    if (identification.size() == 4) {
        blocks_[0][4] = std::accumulate(identification.begin(), identification.end(), std::uint8_t{0},
                                        std::bit_xor<std::uint8_t>());
    }
}

SectorCard::SectorCard(std::vector<Bytes> blocks) : blocks_(std::move(blocks)) {}

void SectorCard::setBlock(unsigned block, const Bytes& data) { blocks_.at(block) = data; }

// Block 0 tells a short identification by the check byte behind it.
Bytes SectorCard::activate()
{
    active_ = true;
    session_.reset();
    register_.reset();
    const Bytes& maker = blocks_[0];
    const auto check = std::accumulate(maker.begin(), maker.begin() + 4, std::uint8_t{0}, std::bit_xor<std::uint8_t>());
    return {maker.begin(), maker.begin() + (check == maker[4] ? 4 : 7)};
}

void SectorCard::deactivate()
{
    active_ = false;
    session_.reset();
    register_.reset();
}

std::optional<unsigned> SectorCard::conditions(unsigned block) const
{
    return conditionsOf(blocks_[trailerOf(block)], groupOf(block));
}

bool SectorCard::authenticate(unsigned block, Key which, const Bytes& key)
{
    session_.reset();
    register_.reset();
    if (!active_ || !exists(block)) {
        return false;
    }
    const unsigned last = trailerOf(block);
    const auto rules = conditions(last);
    const auto keyAt = blocks_[last].begin() + (which == Key::A ? 0 : static_cast<std::ptrdiff_t>(kKeyBAt));
    // Access bits that contradict themselves have closed the sector for good.
    if (!rules || !std::equal(key.begin(), key.end(), keyAt, keyAt + kKeySize)) {
        return false;
    }
    session_ = Session{sectorOf(block), which, which == Key::B && kTrailer[*rules].readB != None};
    return true;
}

bool SectorCard::opened(unsigned block) const
{
    return exists(block) && session_ && session_->sector == sectorOf(block) && !session_->useless && conditions(block);
}

bool SectorCard::allowed(unsigned block, Right right) const
{
    if (!opened(block) || trailerOf(block) == block) {
        return false;
    }
    if (block == 0 && right != Right::Read) {
        return false; // the maker's block
    }
    const DataRow& row = kData[*conditions(block)];
    const Who who[] = {row.read, row.write, row.increment, row.decrement};
    return includes(who[static_cast<std::size_t>(right)], session_->key);
}

std::optional<Bytes> SectorCard::read(unsigned block)
{
    if (!opened(block)) {
        return std::nullopt;
    }
    if (trailerOf(block) == block) {
        return readTrailer(block);
    }
    if (!allowed(block, Right::Read)) {
        return std::nullopt;
    }
    return blocks_[block];
}

bool SectorCard::write(unsigned block, const Bytes& data)
{
    if (!opened(block) || data.size() != kBlockSize) {
        return false;
    }
    if (trailerOf(block) == block) {
        return writeTrailer(block, data);
    }
    return allowed(block, Right::Write) && store(block, data);
}

// What may not be read of a trailer reads as zero.
Bytes SectorCard::readTrailer(unsigned block) const
{
    const TrailerRow& row = kTrailer[*conditions(block)];
    Bytes shown(kBlockSize, 0);
    const auto show = [&](Who who, std::size_t from, std::size_t to) {
        if (includes(who, session_->key)) {
            std::copy(blocks_[block].begin() + static_cast<std::ptrdiff_t>(from),
                      blocks_[block].begin() + static_cast<std::ptrdiff_t>(to),
                      shown.begin() + static_cast<std::ptrdiff_t>(from));
        }
    };
    show(row.readAccess, kAccessAt, kKeyBAt);
    show(row.readB, kKeyBAt, kBlockSize);
    return shown;
}

// The parts of a trailer are written each by its own right; those without keep what they hold. When there is no
// right to any part the write is refused. The free byte goes with the access bits.
bool SectorCard::writeTrailer(unsigned block, const Bytes& data)
{
    const TrailerRow& row = kTrailer[*conditions(block)];
    Bytes result = blocks_[block];
    bool any = false;
    const auto change = [&](Who who, std::size_t from, std::size_t to) {
        if (!includes(who, session_->key)) {
            return;
        }
        any = true;
        std::copy(data.begin() + static_cast<std::ptrdiff_t>(from), data.begin() + static_cast<std::ptrdiff_t>(to),
                  result.begin() + static_cast<std::ptrdiff_t>(from));
    };
    change(row.writeA, 0, kAccessAt);
    change(row.writeAccess, kAccessAt, kFreeAt + 1);
    change(row.writeB, kKeyBAt, kBlockSize);
    return any && store(block, result);
}

// A change that cannot be saved is refused and undone, so that image and card never differ.
bool SectorCard::store(unsigned block, const Bytes& data)
{
    const Bytes before = std::exchange(blocks_[block], data);
    if (!file_) {
        return true;
    }
    try {
        saveImage(*file_, blocks_);
        return true;
    } catch (const FileError&) {
        blocks_[block] = before;
        return false;
    }
}

bool SectorCard::loadRegister(unsigned block, Right right, std::int64_t change)
{
    const auto current = allowed(block, right) ? ValueBlock::decode(blocks_[block]) : std::nullopt;
    if (!current) {
        return false;
    }
    const std::int64_t value = current->value + change;
    if (value < INT32_MIN || value > INT32_MAX) {
        return false;
    }
    register_ = ValueBlock{static_cast<std::int32_t>(value), current->address};
    return true;
}

bool SectorCard::increment(unsigned block, std::uint32_t amount)
{
    return loadRegister(block, Right::Increment, std::int64_t{amount});
}

bool SectorCard::decrement(unsigned block, std::uint32_t amount)
{
    return loadRegister(block, Right::Decrement, -std::int64_t{amount});
}

bool SectorCard::restore(unsigned block) { return loadRegister(block, Right::Decrement, 0); }

bool SectorCard::transfer(unsigned block)
{
    return register_ && allowed(block, Right::Decrement) && store(block, register_->encode());
}

// ---------------------------------------------------------------- image files

std::vector<Bytes> loadImage(const NamedFile& file)
{
    std::istringstream text(readFile(file, kImageSizeMax));
    std::vector<Bytes> blocks;
    std::string line;
    for (int number = 1; std::getline(text, line); ++number) {
        line.resize(std::min(line.find('#'), line.size()));
        while (!line.empty() && (line.back() == '\r' || line.back() == ' ')) {
            line.pop_back();
        }
        const auto block = fromHex(line);
        if (block && block->empty()) {
            continue;
        }
        if (!block || block->size() != MemoryCard::kBlockSize) {
            throw FileError(file, "line " + std::to_string(number) + ": expected a block of 32 hex digits");
        }
        blocks.push_back(*block);
    }
    if (blocks.size() != SectorCard::kSmall && blocks.size() != SectorCard::kLarge) {
        throw FileError(file, "expected 64 or 256 blocks, found " + std::to_string(blocks.size()));
    }
    return blocks;
}

void saveImage(const NamedFile& file, const std::vector<Bytes>& blocks)
{
    std::string text;
    for (unsigned block = 0; block < blocks.size(); ++block) {
        if (block == 0 || trailerOf(block - 1) == block - 1) {
            text += "# sector " + std::to_string(sectorOf(block)) + "\n";
        }
        text += toHex(blocks[block]) + "\n";
    }
    replaceFile(file, text);
}

} // namespace vorn::sim
