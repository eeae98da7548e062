// SPDX-License-Identifier: Apache-2.0
// One reader on its channel: frames and sequences, right ones and wrong ones, and the way back to rest.
#pragma once

#include "sim/reader/behaviour.h"
#include "tools/accept/channel.h"

#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>

namespace vorn::tool::accept {

// A frame that came back, or what came in its place.
struct Reply {
    Heard heard;
    std::optional<std::uint8_t> status; // of a whole frame
    Bytes payload;

    bool ok() const { return status == 0x00; }
    sim::UnitAnswer answer() const;
};

// Slot bytes; the two below are no slots of the line, but places of their own.
constexpr std::uint8_t kContact = 0x00;
constexpr std::uint8_t kFirstPsam = 0x10;
constexpr std::uint8_t kField = 0xFF;
constexpr std::uint8_t kMemory = 0x41;

// What the cards said, by place: for a stand-in that says the same.
struct SeenCards {
    std::map<std::uint8_t, Bytes> answers; // to power
    std::map<std::pair<std::uint8_t, Bytes>, Bytes> responses;
};

class ReaderLine {
public:
    static constexpr Time kPatience{3000}; // as hosts have

    explicit ReaderLine(Channel& channel) : channel_(channel) {}
    ~ReaderLine();
    ReaderLine(const ReaderLine&) = delete;
    ReaderLine& operator=(const ReaderLine&) = delete;

    bool isTty() const { return channel_.isTty(); }
    const Channel& channel() const { return channel_; }

    // Each exchange of a whole command, as it is done.
    using Watcher = std::function<void(const Bytes& command, const Reply& reply)>;
    void onExchange(Watcher watcher) { watcher_ = std::move(watcher); }

    // At its working speed, answering. Throws Failure when it does not answer at either speed.
    void makeReady();
    bool answers(Time patience = kPatience); // a command that does nothing is answered

    Reply command(const Bytes& command);
    Reply powerOn(std::uint8_t place);
    Reply apdu(std::uint8_t place, const Bytes& apdu);
    void powerOff(std::uint8_t place);
    // Bytes that may be no frame, and what comes back within so many frames.
    Reply raw(const Bytes& bytes, int frames = 1, Time patience = kPatience);

    Heard askVersion(Time patience = kPatience);

    // The sequences with their pauses, which a test may shorten.
    void goFast(Time beforeSpeed = Time(12), Time afterSpeed = Time(7));
    void goSlow(Time beforeSpeed = Time(30), Time afterRestore = Time(12));
    void listenAt(int speed); // the terminal's own speed alone

    const SeenCards& seen() const { return seen_; }
    const std::vector<Heard>& replies() const { return replies_; } // the latest of them

private:
    void putToRest();
    void noteCard(std::uint8_t place, const Reply& reply);

    Channel& channel_;
    Watcher watcher_;
    std::set<std::uint8_t> powered_;
    SeenCards seen_;
    std::vector<Heard> replies_;
    bool ready_ = false;
    bool restless_ = false; // something was sent that it is to be brought back from
};

} // namespace vorn::tool::accept
