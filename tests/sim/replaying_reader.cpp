// SPDX-License-Identifier: Apache-2.0
// A line cut into whole things, and a reader that answers out of a recording.
#include "sim/reader/replaying_reader.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using namespace vorn::sim;
using namespace std::chrono_literals;
using Event = ReplayingReader::Event;

Bytes bytesOf(const std::string& text) { return {text.begin(), text.end()}; }
Bytes hex(const std::string& text) { return fromHex(text).value(); }
Bytes frame(const std::string& content) { return encodeFrame(hex(content)); }

Bytes operator+(Bytes a, const Bytes& b)
{
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

const Bytes kFast = bytesOf("\x1B$I2");
const Bytes kSlow = bytesOf("\x1B$I4");

// ---------------------------------------------------------------- cutting

std::string cut(const Bytes& bytes, bool sequences = true)
{
    LineUnits cutter(sequences);
    std::vector<LineUnit> units;
    for (const std::uint8_t byte : bytes) {
        cutter.add(byte, units);
    }
    cutter.end(units);
    std::string text;
    Bytes all;
    for (const LineUnit& unit : units) {
        const char* const kinds[] = {"frame ", "bad ", "sequence ", "other "};
        text += (text.empty() ? "" : ", ") + std::string(kinds[static_cast<int>(unit.kind)]) +
                (unit.problem.empty() ? "" : unit.problem + " ") +
                toHex(unit.content.empty() ? unit.raw : unit.content);
        all = all + unit.raw;
    }
    EXPECT_EQ(toHex(all), toHex(bytes)) << "no byte is lost, none moves";
    return text;
}

TEST(LineUnits, AreFramesSequencesAndTheRest)
{
    EXPECT_EQ(cut(kFast + frame("322300") + kSlow), "sequence 1B244932, frame 322300, sequence 1B244934");
    EXPECT_EQ(cut(bytesOf("A") + frame("3200")), "other 41, frame 3200");
    EXPECT_EQ(cut(bytesOf("\x02"
                          "00") +
                  frame("3200")),
              "bad unfinished 023030, frame 3200");
    EXPECT_EQ(cut(bytesOf("\x02"
                          "00") +
                  kSlow),
              "bad unfinished 023030, sequence 1B244934");
    EXPECT_EQ(cut(bytesOf("\x1B$") + kSlow + bytesOf("\x1B!x")), "other 1B24, sequence 1B244934, other 1B21, other 78");
    EXPECT_EQ(cut(bytesOf("\x02"
                          "00\x03")),
              "bad length 02303003");
    EXPECT_EQ(cut(bytesOf("\x02"
                          "000132")),
              "bad unfinished 02303030313332");
    EXPECT_EQ(cut(kFast + frame("3200"), false), "other 1B24, other 49, other 32, frame 3200");
}

TEST(LineUnits, AFrameWithoutAnEndIsBounded)
{
    LineUnits cutter(true);
    std::vector<LineUnit> units;
    cutter.add(kStx, units);
    for (std::size_t i = 0; i < 3 * LineUnits::kRawMax; ++i) {
        cutter.add('0', units);
    }
    ASSERT_EQ(units.size(), 3U);
    EXPECT_EQ(units[0].raw.size(), LineUnits::kRawMax);
    EXPECT_EQ(units[0].problem, "too long");
}

// ---------------------------------------------------------------- replaying

class Script {
public:
    Script& sends(const Bytes& bytes) { return line(RecordedLine::Kind::FromHost, bytes, 1ms); }
    Script& answers(const Bytes& bytes, std::chrono::microseconds after = 3ms)
    {
        return line(RecordedLine::Kind::FromReader, bytes, after);
    }
    Script& redacted() { return line(RecordedLine::Kind::Redacted, {}, 0ms); }
    Script& asks(const std::string& command, const std::string& answer)
    {
        return sends(frame(command)).answers(frame(answer));
    }
    Recording recording;

private:
    Script& line(RecordedLine::Kind kind, const Bytes& bytes, std::chrono::microseconds after)
    {
        at_ += after;
        RecordedLine one;
        one.at = at_;
        one.kind = kind;
        one.bytes = bytes;
        recording.lines.push_back(one);
        return *this;
    }
    std::chrono::microseconds at_{0};
};

// "3000:0200..." for each piece, or "-" for silence.
std::string reply(ReplayingReader& reader, const Bytes& sent)
{
    std::string text;
    for (const auto& output : reader.receive(sent, 38400)) {
        text += (text.empty() ? "" : " ") + std::to_string(output.delay.count()) + ":" + toHex(output.bytes);
    }
    return text.empty() ? "-" : text;
}

std::string at3ms(const std::string& content) { return "3000:" + toHex(frame(content)); }

TEST(ReplayingReader, AnswersAsRecordedWithTheRecordedDelays)
{
    Script script;
    script.sends(kFast).sends(frame("322300")).answers(hex("0230"), 2500us).answers(hex("303103"), 1us);
    script.asks("32250000", "3200").sends(kSlow);
    ReplayingReader reader(script.recording, 1);
    EXPECT_EQ(reader.commands(), 2U);
    EXPECT_EQ(reader.listeningSpeed(), 9600);
    EXPECT_EQ(reply(reader, kFast), "-");
    EXPECT_EQ(reader.listeningSpeed(), 38400);
    EXPECT_EQ(reply(reader, frame("322300")), "2500:0230 2501:303103");
    EXPECT_EQ(reply(reader, frame("32250000")), at3ms("3200"));
    EXPECT_EQ(reply(reader, kSlow), "-");
    EXPECT_EQ(reader.listeningSpeed(), 9600);
    for (const Event& event : reader.takeEvents()) {
        EXPECT_EQ(static_cast<int>(event.kind), static_cast<int>(Event::Kind::Same));
    }
    EXPECT_TRUE(reader.takeEvents().empty());
}

TEST(ReplayingReader, TheTimeFactorStretchesShrinksAndLeavesOut)
{
    Script script;
    script.sends(frame("322300")).answers(hex("0230"), 2000us).answers(hex("303103"), 1000us);
    ReplayingReader slow(script.recording, 2);
    EXPECT_EQ(reply(slow, frame("322300")), "4000:0230 6000:303103");
    ReplayingReader fast(script.recording, 0);
    EXPECT_EQ(reply(fast, frame("322300")), "0:0230303103");
}

TEST(ReplayingReader, TheSameCommandGetsItsAnswersInTheirOrder)
{
    Script script;
    script.asks("3222018000", "3202").asks("3222018000", "3202").asks("3222018000", "32003B00").asks("322300", "3200");
    ReplayingReader reader(script.recording, 1);
    EXPECT_EQ(reply(reader, frame("3222018000")), at3ms("3202"));
    EXPECT_EQ(reply(reader, frame("3222018000")), at3ms("3202"));
    EXPECT_EQ(reply(reader, frame("3222018000")), at3ms("32003B00"));
    EXPECT_EQ(reply(reader, frame("322300")), at3ms("3200"));
    EXPECT_EQ(reply(reader, frame("3222018000")), at3ms("3202")) << "a host that begins anew finds the beginning";
}

TEST(ReplayingReader, WhatWasNotRecordedIsNotAnsweredAndMovesNothing)
{
    Script script;
    script.asks("322300", "3200").sends(frame("32260000B2010C00")).asks("32250000", "3200");
    ReplayingReader reader(script.recording, 1);
    EXPECT_EQ(reply(reader, frame("322310")), "-");
    EXPECT_EQ(reply(reader, frame("32260000B2020C00")), "-");
    EXPECT_EQ(reply(reader, bytesOf("\x02"
                                    "00\x03")),
              "-");
    for (const Event& event : reader.takeEvents()) {
        EXPECT_EQ(static_cast<int>(event.kind), static_cast<int>(Event::Kind::Missing));
    }
    EXPECT_EQ(reply(reader, frame("322300")), at3ms("3200"));
    EXPECT_EQ(reply(reader, frame("32260000B2010C00")), "-") << "a recorded silence is one";
    EXPECT_EQ(static_cast<int>(reader.takeEvents().back().kind), static_cast<int>(Event::Kind::Same));
}

struct LooseRow {
    const char* what;
    const char* recorded;
    const char* sent;
    bool found;
    bool foundInRedacted;
};

TEST(ReplayingReader, WhatAHostMakesAnewMayDiffer)
{
    const LooseRow rows[] = {
        {"the data of GET PROCESSING OPTIONS", "32260080A80000028300", "32260080A8000003830155", true, true},
        {"the data of GENERATE AC", "32260080AE80000411223344", "32260080AE80000455667788", true, true},
        {"another cryptogram asked for", "32260080AE80000411223344", "32260080AE40000455667788", false, false},
        {"another slot", "32260080AE80000411223344", "32261080AE80000411223344", false, false},
        {"EXTERNAL AUTHENTICATE", "3226000082000002AABB", "3226000082000002CCDD", true, true},
        {"INTERNAL AUTHENTICATE", "3226000088000002AABB", "3226000088000002CCDD", true, true},
        {"a command with a MAC", "32260084DA9F7902AABB", "32260084DA9F7902CCDD", true, true},
        {"another record", "32260000B2010C00", "32260000B2020C00", false, false},
        {"a PIN", "322600002000800824123400FFFFFFFF", "322600002000800824999900FFFFFFFF", false, true},
        {"a PIN of another length", "322600002000800824123400FFFFFFFF", "3226000020008004FFFFFFFF", false, false},
        {"a key", "324204600000000000FF", "32420460A0A1A2A3A4A5", false, true},
        {"a key for another block", "324204600000000000FF", "32420560A0A1A2A3A4A5", false, false},
        {"a block's content", "32440400112233445566778899AABBCCDDEEFF", "324404FFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFF", false,
         true},
    };
    for (const LooseRow& row : rows) {
        for (const bool redacted : {false, true}) {
            Script script;
            if (redacted) {
                script.redacted();
            }
            script.asks(row.recorded, "32009000");
            ReplayingReader reader(script.recording, 1);
            const bool expected = redacted ? row.foundInRedacted : row.found;
            EXPECT_EQ(reply(reader, frame(row.sent)), expected ? at3ms("32009000") : "-") << row.what << redacted;
        }
    }
}

TEST(ReplayingReader, ANearCommandThatDiffersComesBeforeTheSameOneFromTheBeginning)
{
    Script script;
    script.asks("32260080AE80000411111111", "32009001").asks("32260080AE80000422222222", "32009002");
    ReplayingReader reader(script.recording, 1);
    EXPECT_EQ(reply(reader, frame("32260080AE80000411111111")), at3ms("32009001"));
    EXPECT_EQ(reply(reader, frame("32260080AE80000411111111")), at3ms("32009002"));
}

TEST(ReplayingReader, TheVersionIsAnsweredAsText)
{
    Script script;
    script.sends(bytesOf("\x1BKTLVN")).answers(bytesOf("DK7710 V1.06"));
    ReplayingReader reader(script.recording, 1);
    EXPECT_EQ(reply(reader, bytesOf("\x1BKTLV")), "-");
    EXPECT_EQ(reply(reader, bytesOf("N")), "3000:" + toHex(bytesOf("DK7710 V1.06")));
}

TEST(ReplayingReader, AnswersBeforeAnyCommandAreNobodys)
{
    Script script;
    script.answers(bytesOf("noise")).asks("322300", "3200");
    ReplayingReader reader(script.recording, 1);
    EXPECT_EQ(reply(reader, frame("322300")), at3ms("3200"));
}

} // namespace
