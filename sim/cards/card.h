// SPDX-License-Identifier: Apache-2.0
// What the simulated reader needs of a card.
#pragma once

#include "sim/data/bytes.h"

#include <memory>
#include <optional>

namespace vorn::sim {

// A card with an APDU interface, contact or contactless.
class Card {
public:
    virtual ~Card() = default;

    // Powers the card; returns its answer to reset (for a contactless card: what the reader hands back as such).
    virtual Bytes powerOn() = 0;
    virtual void powerOff() = 0;

    // One command APDU; the response ends with the status word.
    virtual Bytes transmit(const Bytes& command) = 0;
};

// A contactless card without an APDU interface: blocks of 16 bytes in sectors, a key A and a key B each.
class MemoryCard {
public:
    enum class Key { A, B };
    static constexpr std::size_t kBlockSize = 16;

    virtual ~MemoryCard() = default;

    virtual Bytes activate() = 0; // its identification
    virtual void deactivate() = 0;
    virtual bool authenticate(unsigned block, Key which, const Bytes& key) = 0;
    virtual std::optional<Bytes> read(unsigned block) = 0; // nothing: refused
    virtual bool write(unsigned block, const Bytes& data) = 0;
};

} // namespace vorn::sim
