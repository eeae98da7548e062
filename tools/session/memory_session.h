// SPDX-License-Identifier: Apache-2.0
// A memory card in the field, activated as long as this lives, and the keys to try on it.
#pragma once

#include "tools/session/session.h"

#include <optional>
#include <string>
#include <vector>

namespace vorn::tool {

struct MemoryKey {
    char mode;        // the byte that tells the reader which of the sector's keys it is
    std::string name; // "A", "B", or the mode in hex
    sim::Bytes value;
};

// The layout of a card: sectors of 4 blocks, from block 128 on of 16. A sector's last block is its trailer.
unsigned sectorOf(unsigned block);
unsigned firstBlock(unsigned sector);
unsigned blockCount(unsigned sector);
bool isTrailer(unsigned block);

// The trailer keeps each access bit and its inverse; a card locks a sector whose copies disagree, for ever.
bool accessBitsConsistent(const sim::Bytes& trailer);

class MemorySession {
public:
    // Waits for a card. Throws Failure.
    explicit MemorySession(const Session& session);
    ~MemorySession();
    MemorySession(const MemorySession&) = delete;
    MemorySession& operator=(const MemorySession&) = delete;

    const std::string& identification() const { return identification_; } // hex

    // Tries the keys in turn; nothing when the card takes none.
    std::optional<MemoryKey> authenticate(unsigned block, const std::vector<MemoryKey>& keys);
    std::optional<sim::Bytes> read(unsigned block); // nothing: refused
    bool write(unsigned block, const sim::Bytes& data);

private:
    int activate();
    bool accepted(int result) const;

    const Session& session_;
    std::string identification_;
};

} // namespace vorn::tool
