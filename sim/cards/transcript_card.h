// SPDX-License-Identifier: Apache-2.0
// A card that is a list of commands and responses.
#pragma once

#include "sim/cards/card.h"

#include <string>
#include <vector>

namespace vorn::sim {

class TranscriptCard : public Card {
public:
    // Bytes, any of which may be left open, and an end that may be.
    struct Pattern {
        std::vector<std::optional<std::uint8_t>> bytes; // none: any byte
        bool openEnd = false;                           // more may follow

        bool matches(const Bytes& command) const;
    };
    struct Pair {
        Pattern command;
        Bytes response;
    };
    enum class Order {
        Any,   // the first pair that fits; where the same command is listed again, its responses come in turn and
               // the last one stays
        Strict // each pair in its turn; a command that does not fit gets `otherwise` and the turn stays
    };

    TranscriptCard(Bytes atr, std::vector<Pair> pairs, Order order, Bytes otherwise);

    // "00A40400 05 ????????" or "00B2*": hex, "??" for any byte, "*" at the end for any rest.
    static std::optional<Pattern> parsePattern(const std::string& text);

    Bytes powerOn() override; // the transcript starts again
    void powerOff() override {}
    Bytes transmit(const Bytes& command) override;

private:
    Bytes atr_;
    std::vector<Pair> pairs_;
    std::vector<bool> used_;
    Order order_;
    Bytes otherwise_;
    std::size_t turn_ = 0;
};

} // namespace vorn::sim
