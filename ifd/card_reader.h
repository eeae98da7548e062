// SPDX-License-Identifier: Apache-2.0
// One reader as a driver needs it: a line that stays open, a lock around it, and six places with what is known of the
// cards in them. It knows nothing of PC/SC.
//
// The reader has no question for a card. Power-on is the only way to find one, and resets a card that is in use. So:
// - an empty place is looked into now and then, by power-on, and a card found is powered off again;
// - a card without power is looked after in the same way;
// - a card with power is left alone. That it is gone shows at the next exchange, or when its power is taken.
// Whoever loses a card hears that the place is empty at least once, even when the next card is there already; on a USB
// device that cannot be opened, once it can be.
#pragma once

#include "public/bytes.h"

#include "ifd/atr.h"
#include "ifd/device_name.h"
#include "ifd/lock.h"
#include "ifd/places.h"
#include "ifd/tty_lock.h"
#include "vorn/result.h"

#include <atomic>
#include <cstdint>

namespace vorn::ifd {

enum class Result {
    Done,
    NoCard,   // none is there, or it has no power
    Refused,  // the reader did not carry it out: the card is mute
    NoLine,   // the line cannot be opened, or nobody answers on it
    BadLength // more than a frame carries; nothing was sent
};

struct Response {
    std::uint8_t bytes[VORN_PAYLOAD_MAX] = {};
    int size = 0;

    ByteView view() const { return viewOf(bytes, size); }
};

// All functions may be called by several threads at once.
class CardReader {
public:
    using Now = std::int64_t (*)(); // milliseconds since some moment

    explicit constexpr CardReader(Now now) : now_(now) {}
    CardReader(const CardReader&) = delete;
    CardReader& operator=(const CardReader&) = delete;

    // From begin to end the reader is used. A line that cannot be opened yet, or that falls silent, is opened again
    // later on. end leaves the reader at rest: cards off, line closed, and opened by nothing but begin.
    void begin(const Port& port);
    void end();

    // Is a card there? A look that is due is taken, unless the line is busy with another place.
    bool present(Place place);

    // A card with power keeps it, and its answer to reset is told again; with `reset` it loses and gets it.
    Result powerOn(Place place, bool reset, Atr& atr);
    Result powerOff(Place place);
    bool powered(Place place);
    // False: the card has no power.
    bool answerToReset(Place place, Atr& atr);

    // One command APDU and what the card answers, status word included. Nothing is followed up.
    Result exchange(Place place, ByteView command, Response& response);

private:
    enum class Card : std::uint8_t {
        None,
        Resting, // there, without power
        Mute,    // there, but the reader cannot power it
        Powered
    };
    struct Slot {
        Card card = Card::None;
        bool powerUnknown = true;   // nobody knows what an earlier program left powered
        bool absenceUntold = false; // the next question hears that the place is empty
        std::int64_t wait = 0;      // the last one between two looks
        std::int64_t nextLook = 0;
        Atr atr;
        std::atomic<bool> shown{false};
    };

    Slot& slotOf(Place place) { return slots_[static_cast<unsigned>(place)]; }

    bool openLine();
    void closeLine();
    void lineLost();

    Result switchOn(Place place, Atr& atr);
    Result switchOff(Place place);
    Result resultOf(int linkResult);
    Result settle(Place place, Result result, Card card);

    bool mayBePulled() const;
    void lookInto(Place place);
    void lookLater(Place place);
    void cardLost(Place place);

    const Now now_;
    Mutex line_; // guards all that follows
    Port port_;
    TtyLock tty_;
    bool used_ = false;
    bool open_ = false;
    bool troubled_ = false;
    std::int64_t reopenWait_ = 0;
    std::int64_t reopenAt_ = 0;
    Slot slots_[kPlaces];
};

} // namespace vorn::ifd
