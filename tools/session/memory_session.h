// SPDX-License-Identifier: Apache-2.0
// A memory card in the field, activated as long as this lives, and the keys to try on it.
#pragma once

#include "tools/session/memory_layout.h"
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

class MemorySession {
public:
    // Waits for a card. Throws Failure.
    explicit MemorySession(Session& session);
    MemorySession(const MemorySession&) = delete;
    MemorySession& operator=(const MemorySession&) = delete;

    const std::string& identification() const { return identification_; } // hex

    // Tries the keys in turn; nothing when the card takes none.
    std::optional<MemoryKey> authenticate(unsigned block, const std::vector<MemoryKey>& keys);
    std::optional<sim::Bytes> read(unsigned block); // nothing: refused
    bool write(unsigned block, const sim::Bytes& data);
    void renew(); // after a refusal a card answers nothing until it is activated again

private:
    int activate();
    bool accepted(int result) const;

    Session& session_;
    std::string identification_;
};

} // namespace vorn::tool
