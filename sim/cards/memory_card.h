// SPDX-License-Identifier: Apache-2.0
// A contactless memory card in sectors: 16 of 4 blocks (1024 bytes), or 32 of 4 and 8 of 16 blocks (4096 bytes). The
// last block of a sector, its trailer, holds key A (6 bytes), the access bits (3), a free byte, and key B (6).
#pragma once

#include "sim/cards/card.h"
#include "sim/data/named_file.h"

#include <utility>
#include <vector>

namespace vorn::sim {

// A number kept in a block so that a torn write shows: three copies of it, the second inverted, and four of an
// address that the card's issuer chooses.
struct ValueBlock {
    std::int32_t value = 0;
    std::uint8_t address = 0;

    Bytes encode() const;
    static std::optional<ValueBlock> decode(const Bytes& block);
};

class SectorCard : public MemoryCard {
public:
    static constexpr std::size_t kSmall = 64; // blocks
    static constexpr std::size_t kLarge = 256;
    static constexpr std::size_t kKeySize = 6;

    // The card as its maker delivers it: every key FFFFFFFFFFFF, everything readable and writable with key A. The
    // identification has 4 or 7 bytes and stands in block 0.
    SectorCard(const Bytes& identification, std::size_t blocks);
    // blocks: kSmall or kLarge of 16 bytes. The identification is read from block 0.
    explicit SectorCard(std::vector<Bytes> blocks);

    // From now on every change is also written to this image file.
    void saveTo(NamedFile file) { file_ = std::move(file); }
    const std::vector<Bytes>& blocks() const { return blocks_; }
    void setBlock(unsigned block, const Bytes& data); // as the maker could: no conditions

    Bytes activate() override;
    void deactivate() override;
    // A refused authentication ends the one before. A refused access does not.
    bool authenticate(unsigned block, Key which, const Bytes& key) override;
    std::optional<Bytes> read(unsigned block) override;
    bool write(unsigned block, const Bytes& data) override;

    // Value blocks. The three first work on the card's register, transfer puts it into a block.
    bool increment(unsigned block, std::uint32_t amount);
    bool decrement(unsigned block, std::uint32_t amount);
    bool restore(unsigned block);
    bool transfer(unsigned block);

private:
    enum class Right { Read, Write, Increment, Decrement };
    struct Session {
        unsigned sector;
        Key key;
        bool useless; // authenticated with a key B that can be read: the card then refuses everything
    };

    bool exists(unsigned block) const { return block < blocks_.size(); }
    std::optional<unsigned> conditions(unsigned block) const;
    bool opened(unsigned block) const;
    bool allowed(unsigned block, Right right) const;
    Bytes readTrailer(unsigned block) const;
    bool writeTrailer(unsigned block, const Bytes& data);
    bool store(unsigned block, const Bytes& data);
    bool loadRegister(unsigned block, Right right, std::int64_t change);

    std::vector<Bytes> blocks_;
    std::optional<NamedFile> file_;
    bool active_ = false;
    std::optional<Session> session_;
    std::optional<ValueBlock> register_;
};

// Image files: text, one block a line as 32 hex digits, blanks skipped, "#" begins a comment. Both throw FileError,
// with the line where there is one.
std::vector<Bytes> loadImage(const NamedFile& file);
void saveImage(const NamedFile& file, const std::vector<Bytes>& blocks);

} // namespace vorn::sim
