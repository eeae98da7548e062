// SPDX-License-Identifier: Apache-2.0
// A reader out of a recording: to what a host sends it answers what the recorded reader did, after the recorded time
// (docs/recordings.md says which answer belongs to what).
#pragma once

#include "sim/reader/line_peer.h"
#include "sim/reader/line_recording.h"
#include "sim/reader/line_units.h"

#include <cstddef>
#include <optional>
#include <vector>

namespace vorn::sim {

class ReplayingReader : public LinePeer {
public:
    // timeFactor: 1 for the recorded pauses, 0 for none.
    ReplayingReader(const Recording& recording, double timeFactor);

    std::vector<Output> receive(const Bytes& bytes, int lineSpeed) override;
    int listeningSpeed() const override { return speed_; }

    std::size_t commands() const { return commands_; } // frames that the recorded host sent

    // What a host sent, and how it was answered.
    struct Event {
        enum class Kind { Same, Alike, Missing };
        LineUnit sent;
        Kind kind = Kind::Missing;
        Bytes answer; // all of it; empty: silence
    };
    // Those since the last time, the latest of them.
    std::vector<Event> takeEvents();

    static constexpr std::size_t kEventsMax = 10000;

private:
    struct Ask {
        LineUnit sent;
        std::chrono::microseconds at;
        std::vector<Output> answer;
    };

    void learn(const Recording& recording, double timeFactor);
    void learnAnswer(const RecordedLine& line, double timeFactor);
    template <class Fits>
    std::optional<std::size_t> find(Fits fits, bool fromHere) const;
    std::optional<std::size_t> find(const LineUnit& sent, Event::Kind& kind) const;
    void answer(LineUnit&& sent, std::vector<Output>& outputs);
    bool alike(const LineUnit& sent, const LineUnit& recorded) const;

    std::vector<Ask> asks_;
    bool redacted_ = false;
    LineUnits units_{true};
    std::size_t next_ = 0;
    std::size_t commands_ = 0;
    int speed_ = 9600;
    std::vector<Event> events_;
};

} // namespace vorn::sim
