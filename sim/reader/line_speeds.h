// SPDX-License-Identifier: Apache-2.0
// At which speed a host sent what it wrote to a pseudo-terminal. The tty tells its speed of now; bytes that came in one
// piece with a change of it were sent before or after. The reader's switching sequences say which.
#pragma once

#include "sim/reader/line_decoder.h"

#include <cstddef>
#include <utility>
#include <vector>

namespace vorn::sim {

class LineSpeeds {
public:
    LineSpeeds();

    struct Piece {
        Bytes bytes;
        int speed; // baud
    };
    // Everything that the host sends, in its order. before, now: the tty's speed when it was last looked at, and now.
    std::vector<Piece> split(const Bytes& bytes, int before, int now);

private:
    // A sequence among the bytes that are looked at, and which speed it tells of.
    struct Sign {
        std::size_t begin, end;
        int sentAt, afterwards; // baud
        bool isSwitch;
    };
    std::vector<Sign> signsOf(const Bytes& bytes);
    std::vector<int> speedsOf(const Bytes& bytes, int before, int now);

    LineDecoder decoder_;
    std::size_t begun_ = 0; // bytes of the sequence that is under way
};

} // namespace vorn::sim
