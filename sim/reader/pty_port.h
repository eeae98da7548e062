// SPDX-License-Identifier: Apache-2.0
// A reader at the other end of a pseudo-terminal.
#pragma once

#include "sim/reader/line_peer.h"

#include <memory>
#include <string>

namespace vorn::sim {

class PtyPort {
public:
    struct Options {
        bool paced = false; // both directions take the time that the reader's line speed needs
        std::string link;   // also make this symbolic link to the tty (for a fixed name below /dev)
    };

    // Opens the pty and serves the reader from a thread of its own until destroyed. Throws std::system_error.
    PtyPort(LinePeer& reader, const Options& options);
    explicit PtyPort(LinePeer& reader) : PtyPort(reader, Options{}) {}
    ~PtyPort();
    PtyPort(const PtyPort&) = delete;
    PtyPort& operator=(const PtyPort&) = delete;

    const std::string& name() const; // as nPortNo takes it: "pts/3"

    // Bytes on the line so far, both directions, for measuring.
    struct Traffic {
        unsigned long toReader = 0, fromReader = 0;
    };
    Traffic traffic() const;

    // Runs f while the reader is not being served (the reader itself is not locked).
    template <class F>
    void locked(F f)
    {
        lock();
        struct Unlock {
            PtyPort& port;
            ~Unlock() { port.unlock(); }
        } unlockAtEnd{*this};
        f();
    }

private:
    void lock();
    void unlock();
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace vorn::sim
