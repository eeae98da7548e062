// SPDX-License-Identifier: Apache-2.0
#include "tools/accept/real_channel.h"

#include "tools/cli/interrupt.h"

#include <algorithm>
#include <thread>

namespace vorn::tool::accept {

void RealChannel::wait(Time time)
{
    lookAtSignals();
    std::this_thread::sleep_for(time);
}

void RealChannel::lookAtSignals() const
{
    if (heedsSignals_) {
        throwIfInterrupted();
    }
}

void RealChannel::notePiece(const Bytes& piece, Heard& heard)
{
    const auto now = Clock::now();
    if (heard.bytes.empty()) {
        heard.first = std::chrono::duration_cast<Time>(now - sent_);
    } else {
        heard.gap = std::max(heard.gap, std::chrono::duration_cast<Time>(now - last_));
    }
    last_ = now;
    heard.bytes.insert(heard.bytes.end(), piece.begin(), piece.end());
}

} // namespace vorn::tool::accept
