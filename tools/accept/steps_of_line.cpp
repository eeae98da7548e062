// SPDX-License-Identifier: Apache-2.0
// Steps about the line: its speeds, the sequences and their pauses, the version.
#include "tools/accept/steps.h"
#include "tools/cli/errors.h"
#include "tools/explain/mask.h"

#include <algorithm>
#include <array>
#include <utility>

namespace vorn::tool::accept {

namespace {

constexpr Time kShortPatience{2000}; // where silence is the rule
constexpr Time kPausePatience{1000}; // where nothing is compared
constexpr std::size_t kVersionMax = 64;

const char* answeredOr(bool answered) { return answered ? "answered" : "silent"; }

// A version is one short line of text. An echo begins with ESC, a login prompt and an instrument have line ends.
bool isVersion(const Bytes& bytes)
{
    return !bytes.empty() && bytes.size() <= kVersionMax &&
           std::all_of(bytes.begin(), bytes.end(), [](std::uint8_t c) { return c >= 0x20 && c < 0x7F; });
}

void requireReader(const Heard& heard)
{
    if (!heard.bytes.empty() && !isVersion(heard.bytes)) {
        throw Failure(Exit::WrongDevice, "what answers at this port is no reader",
                      "name the tty that the reader is attached to; 'vorn ports' shows what answers where");
    }
}

} // namespace

// A reader that a program left at 38400 baud is silent at 9600; it is brought back.
void findLine(Bench& bench)
{
    ReaderLine& line = bench.line;
    line.listenAt(9600);
    Heard heard = line.askVersion(kShortPatience);
    if (heard.bytes.empty()) {
        heard = line.askVersion();
    }
    requireReader(heard);
    if (heard.bytes.empty()) {
        line.listenAt(38400);
        if (!line.answers()) {
            line.goSlow();
            if (!line.answers()) {
                throw Failure(Exit::ReaderSilent, "the reader answers neither at 9600 baud nor at 38400",
                              "check cable and power, and that the right tty is named");
            }
            bench.findings.word("line.speed", "9600"); // one that tells no version
            bench.findings.word("line.command", "answered");
            return;
        }
        bench.findings.word("line.speed", "38400");
        line.goSlow();
    } else {
        bench.findings.word("line.speed", "9600");
    }
    bench.findings.word("line.command", answeredOr(line.answers(kShortPatience)));
}

void readVersion(Bench& bench)
{
    bench.line.goSlow();
    Heard heard;
    const auto time = believedTime([&]() -> std::optional<Time> {
        heard = bench.line.askVersion();
        requireReader(heard);
        return heard.bytes.empty() ? std::nullopt : std::optional(heard.first);
    });
    bench.findings.text("version.text", maskText({heard.bytes.begin(), heard.bytes.end()}));
    if (time) {
        bench.findings.time("version.time", *time);
    }
}

void trySwitching(Bench& bench)
{
    ReaderLine& line = bench.line;
    line.goSlow();
    line.goFast();
    const bool followed = line.answers();
    bench.findings.word("switch.fast", answeredOr(followed));
    bench.findings.word("switch.version", answeredOr(!line.askVersion(kShortPatience).bytes.empty()));
    line.goSlow();
    bench.findings.word("switch.back", answeredOr(!line.askVersion().bytes.empty()));
}

namespace {

// The shortest of the pauses with which it still works, from the longest one down; the longest is the line protocol's.
template <std::size_t N>
long shortest(const std::array<int, N>& pauses, const std::function<bool(Time)>& works)
{
    long borne = pauses.front();
    for (const int pause : pauses) {
        if (!works(Time(pause))) {
            break;
        }
        borne = pause;
    }
    return borne;
}

} // namespace

// Only told: hosts keep the pauses of the line protocol.
void shortenPauses(Bench& bench)
{
    ReaderLine& line = bench.line;
    line.goSlow();
    bench.findings.number("pauses.fast", shortest(std::array<int, 6>{19, 12, 6, 3, 1, 0}, [&](Time pause) {
                              line.goFast(pause * 12 / 19, pause * 7 / 19);
                              const bool answered = line.answers(kPausePatience);
                              line.goSlow();
                              return answered;
                          }));
    bench.findings.number("pauses.back", shortest(std::array<int, 6>{42, 20, 10, 5, 2, 0}, [&](Time pause) {
                              line.goFast();
                              line.goSlow(pause * 30 / 42, pause * 12 / 42);
                              return !line.askVersion(kPausePatience).bytes.empty();
                          }));
    line.goSlow();
}

} // namespace vorn::tool::accept
