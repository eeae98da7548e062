// SPDX-License-Identifier: Apache-2.0
// A recording of the line: the same story whatever pieces it comes in, the same text when it is written again, a copy for
// others with the same lengths and frames and no account number, and a reader that answers out of it.
#include "sim/reader/line_recording.h"
#include "sim/reader/replaying_reader.h"
#include "support/tool_output.h"
#include "tools/explain/recording_redaction.h"
#include "tools/explain/recording_story.h"

#include <vector>

using namespace vorn;
using namespace vorn::fuzz;

namespace {

using sim::Bytes;
using sim::LineUnit;
using sim::RecordedLine;
using Kind = RecordedLine::Kind;

Bytes framed(const std::string& content) { return sim::encodeFrame(sim::fromHex(content).value_or(Bytes())); }

std::string lineOf(Kind kind, const Bytes& bytes)
{
    RecordedLine line;
    line.kind = kind;
    line.speed = 38400;
    line.bytes = bytes;
    return sim::textOf(line);
}

// Either the text itself, or lines of bytes, of which some become whole frames.
std::string recordingOf(Input& input)
{
    const std::uint8_t form = input.byte();
    if ((form & 1U) != 0) {
        return sim::recordingHead("fuzz") + stringOf(input.rest());
    }
    std::string text = sim::recordingHead("fuzz");
    while (!input.atEnd()) {
        const std::uint8_t head = input.byte();
        Bytes bytes;
        for (unsigned left = head >> 3; left > 0 && !input.atEnd(); --left) {
            bytes.push_back(input.byte());
        }
        const bool host = (head & 1U) != 0;
        if ((head & 2U) != 0) {
            Bytes content{0x32};
            content.insert(content.end(), bytes.begin(), bytes.end());
            bytes = sim::encodeFrame(content);
        }
        const Kind kind = host ? Kind::FromHost : (head & 4U) != 0 ? Kind::Dropped : Kind::FromReader;
        text += bytes.empty() ? "" : lineOf(kind, bytes);
    }
    return text;
}

std::string told(const std::string& text, std::size_t piece, bool show, std::string& problem)
{
    std::string all;
    tool::RecordingStory story(show, [&all](const tool::Item& item) { all += requireShowable(item); });
    for (std::size_t at = 0; at < text.size(); at += piece) {
        const std::string part = text.substr(at, piece); // a block of its own
        story.add(part.data(), part.size());
    }
    story.end();
    problem = story.problem();
    return all;
}

// Frames and sequences of both directions, in the order in which they ended.
std::vector<std::string> unitsOf(const sim::Recording& recording)
{
    std::vector<std::string> units;
    sim::LineUnits host(true);
    sim::LineUnits reader(false);
    const auto keep = [&units](std::vector<LineUnit>& found, Bytes& raw) {
        for (const LineUnit& unit : found) {
            raw.insert(raw.end(), unit.raw.begin(), unit.raw.end());
            if (unit.kind != LineUnit::Kind::Other) {
                units.push_back(std::to_string(static_cast<int>(unit.kind)) + unit.problem + ":" +
                                std::to_string(unit.raw.size()));
            }
        }
        found.clear();
    };
    Bytes cut[2];
    Bytes whole[2];
    std::vector<LineUnit> found;
    for (const RecordedLine& line : recording.lines) {
        const bool fromHost = line.kind == Kind::FromHost;
        for (const std::uint8_t byte : line.bytes) {
            (fromHost ? host : reader).add(byte, found);
            whole[fromHost].push_back(byte);
            keep(found, cut[fromHost]);
        }
    }
    host.end(found);
    keep(found, cut[1]);
    reader.end(found);
    keep(found, cut[0]);
    require(cut[0] == whole[0] && cut[1] == whole[1], "no byte is lost in the cut");
    return units;
}

void requireSameForm(const sim::Recording& before, const sim::Recording& after)
{
    std::vector<RecordedLine> lines;
    for (const RecordedLine& line : after.lines) {
        if (line.kind != Kind::Redacted && line.kind != Kind::Told) {
            lines.push_back(line);
        }
    }
    std::size_t at = 0;
    for (const RecordedLine& line : before.lines) {
        if (line.kind == Kind::Redacted || line.kind == Kind::Told) {
            continue;
        }
        require(at < lines.size(), "a copy has every line");
        require(lines[at].kind == line.kind && lines[at].at == line.at && lines[at].speed == line.speed &&
                    lines[at].bytes.size() == line.bytes.size(),
                "a copy changes no kind, time, speed and length");
        ++at;
    }
    require(at == lines.size(), "a copy has no line of its own");
    require(unitsOf(before) == unitsOf(after), "right frames stay right, wrong ones wrong");
}

void requireNoNumber(const sim::Recording& copy, const std::string& number)
{
    sim::LineUnits reader(false);
    std::vector<LineUnit> units;
    for (const RecordedLine& line : copy.lines) {
        for (const std::uint8_t byte : line.kind == Kind::FromReader ? line.bytes : Bytes()) {
            reader.add(byte, units);
        }
    }
    require(!units.empty() && units.back().kind == LineUnit::Kind::Frame, "the last answer is whole");
    require(sim::toHex(units.back().content).find(number) == std::string::npos, "an account number is gone");
}

void replay(const sim::Recording& recording, const Bytes& other)
{
    sim::ReplayingReader reader(recording, 0.5);
    for (const RecordedLine& line : recording.lines) {
        if (line.kind == Kind::FromHost) {
            reader.receive(line.bytes, line.speed);
        }
    }
    for (const auto& event : reader.takeEvents()) {
        require(event.kind != sim::ReplayingReader::Event::Kind::Missing, "what was recorded is found");
    }
    reader.receive(other, 0);
    reader.takeEvents();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    Input input(data, size);
    const std::size_t piece = 1U + input.byte();
    const bool show = (input.byte() & 1U) != 0;
    const std::string number = accountNumber(input.take(12));
    const Bytes all(data, data + size);
    // An ETX ends whatever answer was begun, and a card's record is read.
    const std::string text = recordingOf(input) + "\n" + lineOf(Kind::FromReader, {sim::kEtx}) +
                             lineOf(Kind::FromHost, framed("32260000B2010C00")) +
                             lineOf(Kind::FromReader, framed("3200700A5A08" + number + "9000"));

    std::string problem;
    std::string again;
    const std::string story = told(text, text.size(), show, problem);
    require(told(text, piece, show, again) == story && problem == again, "a cut changes no story");

    const sim::Recording recording = sim::readRecording(text);
    std::string written = sim::recordingHead("again");
    for (const RecordedLine& line : recording.lines) {
        written += sim::textOf(line);
    }
    const sim::Recording reread = sim::readRecording(written);
    require(reread.problem.empty() && reread.lines.size() == recording.lines.size(), "what is written is read again");

    const tool::RecordingRedaction redaction(recording, {});
    const sim::Recording copy = sim::readRecording(redaction.text("copy"));
    require(copy.problem.empty(), "a copy is a recording");
    requireSameForm(recording, copy);
    requireNoNumber(copy, number);
    replay(recording, all);
    replay(copy, all);
    return 0;
}
