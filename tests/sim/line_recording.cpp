// SPDX-License-Identifier: Apache-2.0
// The text form of what went over a line, and the speed of bytes that came with a change of it.
#include "sim/reader/line_recording.h"

#include "sim/reader/line_speeds.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using namespace vorn::sim;
using namespace std::chrono_literals;
using Kind = RecordedLine::Kind;

Bytes bytesOf(const std::string& text) { return {text.begin(), text.end()}; }

RecordedLine line(std::chrono::microseconds at, Kind kind, int speed = 0, const Bytes& bytes = {},
                  unsigned long number = 0, const std::string& text = {})
{
    RecordedLine one;
    one.at = at;
    one.kind = kind;
    one.speed = speed;
    one.bytes = bytes;
    one.number = number;
    one.text = text;
    return one;
}

const std::string kHead = recordingHead("begun at noon");

TEST(LineRecording, IsTextThatIsReadAgain)
{
    const std::vector<RecordedLine> lines = {
        line(12us, Kind::FromHost, 9600, {0x1B, 0x24}),
        line(12345678us, Kind::FromReader, 38400, {0x02}),
        line(12345678us, Kind::Speed, -1),
        line(20000000us, Kind::Dropped, -1, {0xFF}),
        line(20000001us, Kind::Lost, 0, {}, 17),
        line(20000002us, Kind::Told, 0, {}, 0, "the ARQC was right"),
        line(20000003us, Kind::Gone),
        line(20000004us, Kind::End, 0, {}, 137),
    };
    std::string text = kHead;
    for (const RecordedLine& one : lines) {
        text += textOf(one);
    }
    EXPECT_NE(text.find("\n0.000012 > 9600 1B24\n12.345678 < 38400 02\n"), std::string::npos) << text;
    const Recording recording = readRecording(text);
    EXPECT_EQ(recording.problem, "");
    ASSERT_EQ(recording.lines.size(), lines.size());
    for (std::size_t i = 0; i < lines.size(); ++i) {
        EXPECT_EQ(textOf(recording.lines[i]), textOf(lines[i]));
    }
}

TEST(LineRecording, ALineThatIsNoneIsLeftOutAndTold)
{
    const char* const bad[] = {
        "0.1 > 9600 00",          "1 > 9600 00",           "0.000001 ? 9600 00", "0.000001 > 9600 0",
        "0.000001 > 9600",        "0.000001 > 9600 ",      "0.000001 > -1 00",   "0.000001 > 99999999 00",
        "0.000001 speed",         "-0.000001 > 9600 00",   "0.000001 gone now",  "0.000001 end x",
        "9999999999.000001 gone", "0.000001 end -1 00 00", "0.000001",           "card=6229990000710246589",
    };
    for (const char* const text : bad) {
        const Recording recording = readRecording(kHead + text + "\n0.000002 < 9600 41\n");
        EXPECT_EQ(recording.lines.size(), 1U) << text;
        EXPECT_EQ(recording.problem, "line 3 is no line of a recording") << text;
    }
    const std::string lots = kHead + "0.000001 > 9600 " + std::string(20000, '0') + "\n0.000002 < 9600 41\nmore\n";
    EXPECT_EQ(readRecording(lots).problem, "line 3 is no line of a recording, nor are 1 more");
    EXPECT_EQ(readRecording(lots).lines.size(), 1U);
    EXPECT_NE(readRecording("vorn recording 2\n").problem.find("another version"), std::string::npos);
}

TEST(LineRecording, TimeDoesNotGoBack)
{
    const Recording backwards = readRecording(kHead + "5.000000 < 9600 41\n4.000000 < 9600 42\n");
    EXPECT_EQ(backwards.lines.at(1).at, 5s);
    const Recording twice = readRecording(kHead + "5.000000 < 9600 41\n" + kHead + "1.000000 < 9600 42\n");
    EXPECT_EQ(twice.lines.at(1).at, 6s) << "one recording behind another";
}

// ---------------------------------------------------------------- speeds

std::string split(LineSpeeds& speeds, const std::string& bytes, int before, int now)
{
    std::string text;
    for (const auto& piece : speeds.split(bytesOf(bytes), before, now)) {
        text += (text.empty() ? "" : " ") + std::to_string(piece.speed) + ":" + toHex(piece.bytes);
    }
    return text;
}

const std::string kFast = "\x1B$I2";
const std::string kSlow = "\x1B$I4";
const std::string kRestore = "\x1B$B\x1B%A";
const std::string kVersion = "\x1BKTLVN";
const std::string kFrame = "\x02"
                           "00\x03";

TEST(LineSpeeds, BytesThatComeAloneHaveTheSpeedOfNow)
{
    LineSpeeds speeds;
    EXPECT_EQ(split(speeds, kFast, 9600, 9600), "9600:1B244932");
    EXPECT_EQ(split(speeds, kFrame, 38400, 38400), "38400:02303003");
    EXPECT_EQ(split(speeds, "hello", 1200, 1200), "1200:68656C6C6F");
}

TEST(LineSpeeds, BytesThatCameWithAChangeAreToldBySequences)
{
    LineSpeeds whole;
    EXPECT_EQ(split(whole, kFast + kFrame + kSlow, 9600, 38400), "9600:1B244932 38400:023030031B244934");
    EXPECT_EQ(split(whole, kRestore, 38400, 9600), "9600:1B24421B2541");
    LineSpeeds late; // the command behind the change is seen with it
    EXPECT_EQ(split(late, kFast, 9600, 9600), "9600:1B244932");
    EXPECT_EQ(split(late, kFrame, 9600, 38400), "38400:02303003");
    LineSpeeds cut; // a sequence in two pieces
    EXPECT_EQ(split(cut, "\x1B$I", 9600, 9600), "9600:1B2449");
    EXPECT_EQ(split(cut, "2" + kFrame, 9600, 38400), "9600:32 38400:02303003");
    LineSpeeds brokenOff; // a frame that a host gave up
    EXPECT_EQ(split(brokenOff, kFast, 9600, 9600), "9600:1B244932");
    EXPECT_EQ(split(brokenOff,
                    "\x02"
                    "00" +
                        kSlow + kRestore,
                    38400, 9600),
              "38400:0230301B244934 9600:1B24421B2541");
}

// The tty has the speed again that it had before: two calls of a host that come in one piece.
TEST(LineSpeeds, AHostThatSwitchedToAndFroMeanwhileIsToldBySequences)
{
    LineSpeeds calls;
    EXPECT_EQ(split(calls, kSlow, 38400, 38400), "38400:1B244934");
    EXPECT_EQ(split(calls, kRestore + kFast, 38400, 38400), "9600:1B24421B25411B244932");
    EXPECT_EQ(split(calls, kFrame, 38400, 38400), "38400:02303003");
    EXPECT_EQ(split(calls, kFrame + kSlow + kRestore + kVersion + kFast + kFrame, 38400, 38400),
              "38400:023030031B244934 9600:1B24421B25411B4B544C564E1B244932 38400:02303003");
    LineSpeeds slow;
    EXPECT_EQ(split(slow, kFast + kFrame + kSlow + kRestore, 9600, 9600),
              "9600:1B244932 38400:023030031B244934 9600:1B24421B2541");
    LineSpeeds atItsOwn; // a host without the protocol's speeds
    EXPECT_EQ(split(atItsOwn, kFast + kSlow, 1200, 1200), "1200:1B2449321B244934");
    LineSpeeds thereOnly; // at the wrong speed
    EXPECT_EQ(split(thereOnly, kFast, 38400, 38400), "38400:1B244932");
}

TEST(LineSpeeds, WhatStandsInFrontOfASwitchHasTheSpeedOfBefore)
{
    LineSpeeds speeds;
    EXPECT_EQ(split(speeds, kFrame + kFast, 9600, 38400), "9600:023030031B244932");
}

// A reader that was left at the fast speed is looked for at the slow one; a host that was ended has it put back.
TEST(LineSpeeds, ACommandThatComesWithAChangeWasSentAtTheFastSpeed)
{
    LineSpeeds looking;
    EXPECT_EQ(split(looking, kSlow + kRestore, 9600, 9600), "9600:1B2449341B24421B2541");
    EXPECT_EQ(split(looking, kVersion, 9600, 9600), "9600:1B4B544C564E");
    EXPECT_EQ(split(looking, kFrame, 9600, 38400), "38400:02303003");
    LineSpeeds ended;
    EXPECT_EQ(split(ended, kFrame, 38400, 9600), "38400:02303003");
}

TEST(LineSpeeds, TheVersionMayBeAskedForAtTheFastSpeed)
{
    LineSpeeds speeds;
    EXPECT_EQ(split(speeds, kFast + kVersion, 9600, 38400), "9600:1B244932 38400:1B4B544C564E");
    EXPECT_EQ(split(speeds, kVersion, 38400, 9600), "9600:1B4B544C564E") << "by a host that begins anew";
}

TEST(LineSpeeds, AHostThatWasEndedAtTheFastSpeedBeginsAnewAtTheSlowOne)
{
    LineSpeeds speeds;
    EXPECT_EQ(split(speeds, kFast, 9600, 9600), "9600:1B244932");
    EXPECT_EQ(split(speeds, kFrame, 38400, 38400), "38400:02303003");
    EXPECT_EQ(split(speeds, kFast, 38400, 9600), "9600:1B244932");
}

TEST(LineSpeeds, WithoutSequencesAChangeComesFirst)
{
    LineSpeeds speeds;
    EXPECT_EQ(split(speeds, "hello", 1200, 4800), "4800:68656C6C6F");
}

} // namespace
