// SPDX-License-Identifier: Apache-2.0
// Service calls over a line that loses, doubles and damages bytes: how each of them ends beside what the same call says
// on a good line, why, and whether the reader is there for the next customer.
#pragma once

#include "support/simulated_desk.h"
#include "support/timed_line.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace vorn::test {

enum class Ending {
    Right,  // result and outputs as on a good line
    Failed, // a result that says so
    Less,   // success, and something is missing that could not be read; or was not done by a call that never says so
    Wrong,  // success, and an output or a card that is not as it says
    Count
};

// Of endings Less and Wrong: what on the line brought it about.
enum class Cause {
    Nothing,
    ReplyUnlikeItsCheck, // a reply that its own check byte or length contradicts; hosts do not look at either
    ReplyLikeItsCheck,   // a changed reply whose check byte and length are right
    CommandLikeItsCheck, // the reader carried out a command that nobody sent, with a check byte that is right
    PlainText,           // the version has no check
    NotAnswered,         // a command or its reply came to nothing, and the call goes on or does not say so
    ReplyToAnother,      // a reply was taken for that of a later command
    Unknown,
    Count
};

const char* nameOf(Ending ending);
const char* nameOf(Cause cause);

struct Outcome {
    CallRecord record;
    Ending ending = Ending::Right;
    Cause cause = Cause::Nothing;
    unsigned errors = 0; // made in this call
    std::size_t bytesToReader = 0, bytesToHost = 0;
    bool documented = true; // the result is one of those that the header names
    bool recovered = true;  // what came next, on a good line, was right
    std::string next;       // if not
};

// One service call: the n-th of an errand, counted from 0.
struct CallPlace {
    std::size_t errand;
    std::size_t call;
};

// Errors at random, or one of them.
struct BadStretch {
    ErrorRates toReader;
    ErrorRates toHost;
    std::uint64_t seed = 0;
    OneError oneToReader;
    OneError oneToHost;
};

// All calls of an errand, one after the other on a bad line.
struct SequenceOutcome {
    std::vector<CallRecord> records;
    bool documented = true;
    bool recovered = true; // the next errand, on a good line, was right
};

class BadLine {
public:
    BadLine();

    // All calls of all errands.
    const std::vector<CallPlace>& places() const { return places_; }
    const CallRecord& truth(const CallPlace& place) const { return truths_[place.errand].records[place.call]; }

    // Makes the errand's calls with a fresh reader, this one of them on a bad line, and then the whole errand again.
    Outcome run(const CallPlace& place, const BadStretch& bad);

    // Makes all of an errand's calls on a bad line, and then the whole errand again.
    SequenceOutcome runAll(std::size_t errand, const BadStretch& bad);

    // Makes the errand's calls up to this one, which is on a bad line, and returns the result of asking for the
    // reader's version behind it.
    int versionBehind(const CallPlace& place, const BadStretch& bad);

private:
    static constexpr std::size_t kAllCalls = SIZE_MAX;

    struct Truth {
        std::vector<CallRecord> records;
        std::vector<std::vector<sim::Reader::Exchange>> exchanges; // for each call, as the reader saw them
    };
    struct Trip { // one errand from beginning to end
        std::vector<CallRecord> records;
        std::vector<std::vector<sim::Reader::Exchange>> carriedOut;
        std::vector<std::vector<TimedLine::Exchange>> onLine;
    };
    void freshDesk(std::size_t errand);
    void spoil(const BadStretch& bad);
    void noteLine();
    Trip makeTrip(std::size_t errand, const CallPlace* place, const BadStretch* bad);
    Ending endingOf(const CallPlace& place, const Trip& trip) const;
    Cause causeOf(const CallPlace& place, const Trip& trip, bool staleReplyRead) const;
    bool isRightAgain(std::size_t errand, const Trip& trip, bool blockMayDiffer) const;

    TimedLine line_;
    std::vector<sim::Profile> profiles_;
    std::unique_ptr<SimulatedDesk> desk_;
    std::vector<Truth> truths_;
    std::vector<CallPlace> places_;
    Outcome bad_; // what the line says of the bad call
    bool stale_ = false;
};

} // namespace vorn::test
