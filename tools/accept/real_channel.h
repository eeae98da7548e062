// SPDX-License-Identifier: Apache-2.0
// What channels to real readers share: times by the clock, and a look at signals in every wait.
#pragma once

#include "tools/accept/channel.h"

namespace vorn::tool::accept {

class RealChannel : public Channel {
public:
    void wait(Time time) override;
    void lastWords() override { heedsSignals_ = false; }

protected:
    using Clock = std::chrono::steady_clock;

    // Throws Interrupted when a signal wants the run to end.
    void lookAtSignals() const;
    // The last byte went out then, or later: counted from here no answer seems to come sooner than it did, also when
    // this process stands still behind its last write.
    void noteUnsent(Clock::time_point at) { sent_ = at; }
    // A piece of the answer has come.
    void notePiece(const Bytes& piece, Heard& heard);

private:
    Clock::time_point sent_{};
    Clock::time_point last_{}; // piece
    bool heedsSignals_ = true;
};

} // namespace vorn::tool::accept
