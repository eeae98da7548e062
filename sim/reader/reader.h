// SPDX-License-Identifier: Apache-2.0
// The reader as seen from its line: bytes in, bytes out. It knows no medium, no thread and no clock of its own, so
// that the same model stands behind a pty, a USB device or a test.
#pragma once

#include "sim/cards/card.h"
#include "sim/reader/line_peer.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace vorn::sim {

struct Behaviour;
struct Fault;

enum class Slot : std::uint8_t { Contact = 0x00, Psam1 = 0x10, Psam2 = 0x11, Psam3 = 0x12, Psam4 = 0x13, Field = 0xFF };

// The status bytes that the reader answers with. Hosts take 02 and 06 for "no card, ask again" and every other one but
// 00 for a refusal; which refusal it is tells only a person who looks at the line.
enum class ReaderStatus : std::uint8_t {
    Ok = 0x00,
    NoCard = 0x02,        // contact slot or PSAM slot empty
    NotPowered = 0x03,    // a card is there, but it was not powered on or activated
    CardMute = 0x04,      // the card answered nothing, or less than a status word
    AnswerTooLong = 0x05, // more than a reply frame may carry
    NoCardInField = 0x06, // no contactless card, or none of the kind asked for
    KeyRefused = 0x07,    // memory card: authentication failed
    AccessRefused = 0x08, // memory card: not authenticated for the sector, or its access conditions forbid it
    NoSuchSlot = 0x0A,
    UnknownCommand = 0xE0,
    BadParameter = 0xE1, // a known command with a wrong length or wrong fixed bytes
    BadFrame = 0xF0
};

class Reader : public LinePeer {
public:
    // The most bytes of payload in one reply: with them the reply frame has 1000 characters, what hosts have room for.
    static constexpr std::size_t kPayloadMax = 494;

    using Clock = std::function<std::chrono::milliseconds()>;

    // One exchange as the reader saw it.
    struct Exchange {
        Bytes command;           // decoded command bytes, 32 26 00 ...
        std::uint8_t status = 0; // the status byte it decided on
        Bytes payload;
        bool answered = true; // false: silence
    };

    explicit Reader(Clock clock = {}); // none: the steady clock
    ~Reader() override;

    // Cards. A card with a time appears that long after now.
    void insert(Slot slot, std::shared_ptr<Card> card, std::chrono::milliseconds after = {});
    void insert(std::shared_ptr<MemoryCard> card, std::chrono::milliseconds after = {}); // into the field
    void remove(Slot slot);
    bool powered(Slot slot) const;

    // The line's speed as the peer has set it is passed with what it sent; with this switch on, bytes that come at
    // another speed than the reader listens at are garbage. A USB reader has no speed: pass 0.
    void checkLineSpeed(bool on);
    int listeningSpeed() const override; // 9600, or 38400 between ESC $ I 2 and ESC $ I 4

    void setVersion(std::string text); // what ESC K T L V N is answered with; empty: it is not answered
    // How this unit differs from the plain one. Before its line is used.
    void behave(const Behaviour& behaviour);
    const Behaviour& behaviour() const;

    void addFault(const Fault& fault);
    void clearFaults();

    // Strict: a frame with a wrong length, check or character is not carried out and answered with status 0xF0 (see
    // docs/reader-protocol.md).
    std::vector<Output> receive(const Bytes& bytes, int lineSpeed) override;
    std::vector<Output> receive(const Bytes& bytes) { return receive(bytes, 0); }

    // The latest of each, at least so many of them: a reader may run for weeks.
    static constexpr std::size_t kHistory = 10000;
    const std::vector<Exchange>& exchanges() const;
    const std::vector<std::string>& events() const; // "switch 38400", "power on 00", "bad frame: check", ...
    void clearHistory();

private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace vorn::sim
