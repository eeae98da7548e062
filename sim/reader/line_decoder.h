// SPDX-License-Identifier: Apache-2.0
// The bytes on the line, cut into what they mean: framed commands and ESC sequences.
#pragma once

#include "sim/data/bytes.h"

#include <string>
#include <vector>

namespace vorn::sim {

constexpr std::uint8_t kStx = 0x02;
constexpr std::uint8_t kEtx = 0x03;
constexpr std::uint8_t kEsc = 0x1B;

// STX, length, content, XOR of the content, ETX; every byte between STX and ETX as two characters 0x30 to 0x3F.
Bytes encodeFrame(const Bytes& content);

// One whole thing that came.
struct LineItem {
    enum class Kind {
        Command,       // bytes: the command
        BadFrame,      // problem: "length", "check", "characters", "too long"
        Unfinished,    // a frame that STX or ESC broke off
        Escape,        // bytes: a known sequence, without its first ESC
        UnknownEscape, // bytes: what came behind the ESC
        Noise          // bytes: outside of frames and sequences
    };
    Kind kind{};
    Bytes bytes;
    std::string problem;
};

class LineDecoder {
public:
    // The longest frame looked at, in characters between STX and ETX.
    static constexpr std::size_t kCharactersMax = 2048;
    void setCharactersMax(std::size_t most) { charactersMax_ = most; }

    // Does STX inside a frame begin another one? Else it is a wrong character.
    void setBeginsAnew(bool on) { beginsAnew_ = on; }

    // The ESC sequences that `decode` is to know, without their first ESC. None is the beginning of another.
    explicit LineDecoder(std::vector<std::string> sequences);

    void decode(std::uint8_t byte, std::vector<LineItem>& items);
    bool inFrame() const { return state_ == State::Frame; }

private:
    enum class State { Idle, Frame, Escape };
    void idle(std::uint8_t byte, std::vector<LineItem>& items);
    void inFrame(std::uint8_t byte, std::vector<LineItem>& items);
    void inEscape(std::uint8_t byte, std::vector<LineItem>& items);

    std::vector<std::string> sequences_;
    State state_ = State::Idle;
    Bytes pending_;
    std::size_t charactersMax_ = kCharactersMax;
    bool beginsAnew_ = true;
    bool tooLong_ = false;
};

} // namespace vorn::sim
