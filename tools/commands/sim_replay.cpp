// SPDX-License-Identifier: Apache-2.0
#include "tools/commands/sim_replay.h"

#include "sim/reader/pty_port.h"
#include "sim/reader/replaying_reader.h"
#include "tools/cli/interrupt.h"
#include "tools/cli/output.h"
#include "tools/cli/quote.h"
#include "tools/explain/frame_view.h"
#include "tools/explain/hex.h"
#include "tools/explain/mask.h"

#include <nlohmann/json.hpp>

#include <array>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <set>

namespace vorn::tool {

namespace {

using Event = sim::ReplayingReader::Event;
using sim::LineUnit;

constexpr int kLookAgain = 50; // milliseconds

sim::Recording recordingOf(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        throw Failure(Exit::Usage, path + ": " + std::strerror(errno));
    }
    std::string text;
    std::array<char, 65536> piece{};
    while (in.read(piece.data(), piece.size()), in.gcount() > 0) {
        throwIfInterrupted();
        text.append(piece.data(), static_cast<std::size_t>(in.gcount()));
        if (text.size() > sim::Recording::kSizeMax) {
            throw Failure(Exit::Usage, path + " has more than 64 megabytes", "cut it where the line is not in use");
        }
    }
    if (!sim::looksLikeRecording(text)) {
        throw Failure(Exit::Usage, path + " is no recording of a line", "'vorn record' makes one");
    }
    return sim::readRecording(text);
}

// Recordings and hosts are others': what is secret in a command is not shown.
std::string wordsFor(const LineUnit& sent)
{
    if (sent.kind == LineUnit::Kind::Frame) {
        const Item command = explainReaderCommand(sent.content, false);
        return command.hex + " (" + command.words + ")";
    }
    return sent.kind == LineUnit::Kind::Sequence ? "the question for the version"
                                                 : "a frame that is wrong: " + sent.problem;
}

// What the reader only follows has no answer anyway.
bool answered(const LineUnit& sent)
{
    return sent.kind != LineUnit::Kind::Sequence || sent.isSequence(sim::kAskVersion);
}

class Teller {
public:
    explicit Teller(bool verbose) : verbose_(verbose) {}

    void tell(const Event& event)
    {
        if (verbose_) {
            note("> " + toHex(event.sent.raw));
            note("< " + (event.answer.empty() ? "(silence)" : toHex(event.answer)));
        }
        if (event.kind == Event::Kind::Missing && answered(event.sent) && told_.size() < kMost &&
            told_.insert(event.sent.raw).second) {
            note("not in the recording, and not answered: " + wordsFor(event.sent));
        }
    }

private:
    static constexpr std::size_t kMost = 1000;
    bool verbose_;
    std::set<sim::Bytes> told_; // each of them once
};

} // namespace

Exit serveReplay(const ReplayOptions& options)
{
    const sim::Recording recording = recordingOf(options.recording);
    sim::ReplayingReader reader(recording, options.timeFactor);
    if (reader.commands() == 0) {
        throw Failure(Exit::DataMissing, "the recording has no command to a reader");
    }
    if (!recording.problem.empty()) {
        note("vorn: " + recording.problem);
    }
    sim::PtyPort::Options portOptions;
    portOptions.link = options.link;
    sim::PtyPort port(reader, portOptions);
    if (options.json) {
        printJsonLine({{"port", port.name()}, {"recording", options.recording}});
    } else {
        printLine(port.name());
    }
    note("On /dev/" + port.name() + " a host is answered as in " + inQuotes(options.recording) + ". Ctrl-C ends it.");
    Teller teller(options.verbose);
    for (bool last = false; !last; pause(kLookAgain)) {
        last = interrupted();
        std::vector<Event> events;
        port.locked([&] { events = reader.takeEvents(); });
        for (const Event& event : events) {
            teller.tell(event);
        }
    }
    return Exit::Ok;
}

} // namespace vorn::tool
