// SPDX-License-Identifier: Apache-2.0
// A recording of the line as a story: each time that the line was used, with its exchanges, their times, and what went
// wrong on the line. One use is held in memory at a time.
#pragma once

#include "sim/reader/line_recording.h"
#include "sim/reader/line_units.h"
#include "tools/explain/apdu_view.h"
#include "tools/explain/cryptogram_checks.h"
#include "tools/explain/item.h"

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace vorn::tool {

class RecordingStory {
public:
    using Sink = std::function<void(const Item&)>;
    // checks: with an issuer's keys the cards' cryptograms are checked, too.
    RecordingStory(bool show, Sink sink, CryptogramChecks checks = {});

    void add(const char* piece, std::size_t size) { reader_.add(piece, size); }
    void end();
    std::string problem() const { return reader_.problem(); }

    static constexpr std::size_t kMostItems = 4000; // of one use of the line; more are counted only
    static constexpr std::size_t kMostBytes = 2048; // shown of what is no frame

private:
    using Time = std::chrono::microseconds;
    // What the host sent last, and what has come for it.
    struct Pending {
        sim::LineUnit sent;
        Time at;
        std::optional<Time> answeredAt; // its first byte
        Bytes before;                   // of the answer's frame; a version's text
    };

    void line(const sim::RecordedLine& line);
    void hostBytes(const sim::RecordedLine& line);
    void readerBytes(const sim::RecordedLine& line);
    void fromHost(sim::LineUnit&& unit, Time at);
    void fromReader(const sim::LineUnit& unit, Time at);
    void sequence(const sim::LineUnit& unit, Time at);
    void event(const sim::RecordedLine& line);

    void complete(const sim::LineUnit& answer, Time at);
    void giveUp(Time at);
    Item broken(std::string words) const;
    void version(Time at);
    Item exchange(const Bytes& command, const Bytes& answer);
    Item slotExchange(const Bytes& command, const Bytes& answer) const;
    std::string timesOf(const Pending& pending, Time whole) const;
    void stray(const Bytes& bytes, const char* whose);
    void flushStray();

    void use(Time at);
    void attach(Item item);
    void attachExchange(Item item, Time whole);
    void finish(Time at);

    bool show_;
    Sink sink_;
    sim::RecordingReader reader_;
    sim::LineUnits host_{true};
    sim::LineUnits answers_{false};
    ExchangeView view_;
    CryptogramChecks checks_;
    std::optional<Pending> pending_;
    Bytes stray_;
    const char* strayFrom_ = nullptr;
    Time last_{0};
    Time hostAt_{0}; // its last bytes
    std::size_t number_ = 0;

    bool open_ = false; // the line is in use
    Item use_;
    Time usedFrom_{0};
    std::size_t exchanges_ = 0; // of this use
    std::size_t failures_ = 0;
    std::size_t left_ = 0;
    bool closed_ = false;
};

} // namespace vorn::tool
