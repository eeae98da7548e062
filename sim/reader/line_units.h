// SPDX-License-Identifier: Apache-2.0
// One direction of a line cut into whole things, none of its bytes lost: frames, sequences, and what is neither.
#pragma once

#include "sim/reader/line_decoder.h"

#include <cstddef>
#include <string>
#include <vector>

namespace vorn::sim {

// What the reader follows or answers, without the first ESC of each.
extern const char* const kSwitchFast;
extern const char* const kSwitchSlow;
extern const char* const kRestore;
extern const char* const kAskVersion;

struct LineUnit {
    enum class Kind {
        Frame,    // content: without its frame
        BadFrame, // problem: "check", "unfinished", ...
        Sequence, // a known one
        Other     // one byte, or an ESC with what follows it
    };
    Kind kind = Kind::Other;
    Bytes raw{};
    Bytes content{};
    std::string problem{};

    bool isSequence(const char* sequence) const;
};

class LineUnits {
public:
    // A host sends sequences, a reader none.
    explicit LineUnits(bool sequences);

    // units: what this byte ends is put behind them.
    void add(std::uint8_t byte, std::vector<LineUnit>& units);
    void end(std::vector<LineUnit>& units); // what is begun will not go on

    static constexpr std::size_t kRawMax = 65536; // a frame without an end comes in pieces of this size

private:
    void deliver(LineUnit::Kind kind, std::vector<LineUnit>& units, std::string problem = {});

    bool sequences_;
    LineDecoder decoder_;
    Bytes raw_;
};

} // namespace vorn::sim
