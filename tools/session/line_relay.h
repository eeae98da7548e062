// SPDX-License-Identifier: Apache-2.0
// Stands between a host and the reader's port: a tty for the host, every byte passed on in both directions at the speed
// that the host has set, and each piece told with its time. It adds nothing of its own to the line.
#pragma once

#include "sim/reader/line_recording.h"
#include "sim/reader/line_speeds.h"
#include "sim/reader/pseudo_terminal.h"

#include <chrono>
#include <deque>
#include <functional>
#include <string>

namespace vorn::tool {

using sim::Bytes;

class LineRelay {
public:
    using Recorder = std::function<void(sim::RecordedLine&&)>;
    // path: the reader's port, which the caller has locked and puts back; link: as PseudoTerminal has it. Throws
    // Failure and std::system_error.
    LineRelay(const std::string& path, const std::string& link, Recorder recorder);

    const std::string& name() const { return terminal_.name(); } // the host's port: "pts/3"

    // Waits until something is to be done, or `other` can be read, and passes on what there is.
    void work(int other);
    // What a host wrote at its end still reaches the reader.
    void finish();

    bool portGone() const { return gone_; }
    int hostSpeed() const { return knownSpeed_; }
    std::chrono::microseconds now() const;

private:
    struct Piece {
        Bytes bytes;
        int speed;
    };

    void openPort(const std::string& path);
    void readHost();
    void hostSent(const Bytes& bytes);
    void noteSpeed(int speed);
    void dropUnread();
    void readPort();
    Bytes takeFromPort();
    void writePort();
    bool setPortSpeed(int speed);
    void writeHost();
    void lose();
    void record(sim::RecordedLine::Kind kind, int speed, const Bytes& bytes = {});

    Recorder recorder_;
    std::chrono::steady_clock::time_point begun_ = std::chrono::steady_clock::now();
    sim::PseudoTerminal terminal_;
    sim::Descriptor port_;
    sim::LineSpeeds speeds_;
    int knownSpeed_ = 0; // the host's
    int portSpeed_ = 0;
    std::deque<Piece> toPort_;
    std::size_t toPortBytes_ = 0;
    Bytes toHost_;
    bool gone_ = false;
};

} // namespace vorn::tool
