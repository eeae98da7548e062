// SPDX-License-Identifier: Apache-2.0
// The text form of what went over a line and when (docs/recordings.md). Recordings are read as foreign text.
#pragma once

#include "sim/data/bytes.h"

#include <chrono>
#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace vorn::sim {

struct RecordedLine {
    enum class Kind {
        FromHost,   // bytes, at the speed that the host had set
        FromReader, // bytes, at that speed
        Dropped,    // bytes from the reader that the host threw away with what it had not read
        Speed,      // the host set another one
        Gone,       // the reader's port went away
        Lost,       // number: lines that could not be written
        End,        // number: the host's exit code
        Redacted,   // what was secret in this recording was replaced by zeros
        Told        // text: what was found out before a copy was redacted
    };
    static constexpr std::size_t kBytesMax = 4096; // a longer piece is several lines

    std::chrono::microseconds at{0}; // since the beginning
    Kind kind = Kind::FromHost;
    int speed = 0; // -1: not known
    Bytes bytes{};
    unsigned long number = 0;
    std::string text{};

    bool hasBytes() const { return kind == Kind::FromHost || kind == Kind::FromReader || kind == Kind::Dropped; }
};

// The first lines; `about`: a remark for people, on one line.
std::string recordingHead(const std::string& about);
std::string textOf(const RecordedLine& line); // with its line end

bool looksLikeRecording(const std::string& text);

// In any pieces. What is no line of a recording is left out and counted; time does not go back, and one recording
// behind another goes on where the one before ended.
class RecordingReader {
public:
    using Receiver = std::function<void(const RecordedLine& line)>;
    explicit RecordingReader(Receiver receiver) : receiver_(std::move(receiver)) {}

    void add(const char* piece, std::size_t size);
    void end();

    std::string problem() const; // empty: every line was understood

    static constexpr std::size_t kLongestLine = 16384;

private:
    void line();
    bool understood();

    Receiver receiver_;
    std::string rest_;
    std::size_t number_ = 0;
    std::size_t badLines_ = 0, firstBad_ = 0;
    bool skipping_ = false; // the rest of a line that is too long
    bool otherVersion_ = false;
    std::chrono::microseconds base_{0}, last_{0};
};

// A whole recording in memory.
struct Recording {
    std::vector<RecordedLine> lines;
    std::string problem;

    static constexpr std::size_t kSizeMax = 64U << 20; // bytes of text
};
Recording readRecording(const std::string& text);

} // namespace vorn::sim
