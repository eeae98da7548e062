// SPDX-License-Identifier: Apache-2.0
// The line to a reader, byte by byte and with its times: a tty, a USB device, or a simulated reader without either.
#pragma once

#include "sim/data/bytes.h"

#include <chrono>
#include <cstddef>
#include <vector>

namespace vorn::tool::accept {

using sim::Bytes;
using Time = std::chrono::milliseconds;

// What came back, and when.
struct Heard {
    Bytes bytes;
    Time first{0};                    // from the end of what was sent to the first byte
    Time gap{0};                      // the longest pause between two pieces
    std::vector<std::size_t> packets; // their sizes, over USB
};

// Where to stop listening: behind so many frames, or (0) when a text is over, which has no end mark.
struct Until {
    int frames;
    Time patience; // with the first byte, and with each further one of a frame
};

class Channel {
public:
    Channel() = default;
    virtual ~Channel() = default;
    Channel(const Channel&) = delete;
    Channel& operator=(const Channel&) = delete;

    virtual bool isTty() const = 0;
    // What was sent goes out at the speed before, and what was received is dropped. Without meaning over USB.
    virtual void setSpeed(int speed) = 0;
    // What came before is dropped. Returns when the last byte has gone out. Throws Failure when the port is gone.
    virtual void send(const Bytes& bytes) = 0;
    virtual Heard listen(const Until& until) = 0;
    virtual void wait(Time time) = 0;

    // What a USB device says of itself; a tty has none.
    virtual Bytes deviceDescriptor() const { return {}; }
    virtual Bytes configurationDescriptor() const { return {}; }

    // From now on signals are not looked at: what follows puts the reader to rest.
    virtual void lastWords() {}
};

// Is what was heard all that is waited for? Of what talks without an end no more is heard.
bool complete(const Bytes& heard, int frames);
constexpr std::size_t kTextMost = 256;
constexpr std::size_t kFramesMost = 4096;

constexpr Time kTextSilence{200}; // a version is over; hosts wait 50 ms

} // namespace vorn::tool::accept
