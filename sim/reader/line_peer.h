// SPDX-License-Identifier: Apache-2.0
// What answers at the far end of a line: bytes in, bytes out, and when.
#pragma once

#include "sim/data/bytes.h"

#include <chrono>
#include <vector>

namespace vorn::sim {

class LinePeer {
public:
    // What goes out on the line: these bytes, not before this long after what was received.
    struct Output {
        Bytes bytes;
        std::chrono::microseconds delay{0};
        bool ifSilent = false; // only if nothing more has come in by then
    };

    virtual ~LinePeer() = default;
    LinePeer(const LinePeer&) = delete;
    LinePeer& operator=(const LinePeer&) = delete;

    // Every piece that arrives, in any cut. lineSpeed: what the host has set; 0 where it is not known or there is none.
    virtual std::vector<Output> receive(const Bytes& bytes, int lineSpeed) = 0;
    virtual int listeningSpeed() const = 0;

protected:
    LinePeer() = default;
};

} // namespace vorn::sim
