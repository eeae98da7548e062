// SPDX-License-Identifier: Apache-2.0
// What was recorded, told as a story and answered again.
#include "sim/reader/line_decoder.h"
#include "sim/reader/line_recording.h"
#include "tools/explain/recognise.h"
#include "tools/explain/recording_redaction.h"
#include "tools/explain/recording_story.h"
#include "tools/explain/render.h"
#include "tools/running_tool.h"

#include <chrono>

namespace {

using namespace vorn::test;
using vorn::sim::Bytes;
using vorn::sim::encodeFrame;
using vorn::sim::RecordedLine;
using vorn::tool::Item;
using Kind = RecordedLine::Kind;

// ---------------------------------------------------------------- the story

Bytes bytesOf(const std::string& text) { return {text.begin(), text.end()}; }
Bytes hex(const std::string& text) { return vorn::sim::fromHex(text).value(); }
Bytes frame(const std::string& content) { return encodeFrame(hex(content)); }

class Script {
public:
    Script& line(Kind kind, const Bytes& bytes = {}, std::chrono::microseconds after = std::chrono::milliseconds(1),
                 int speed = 38400, unsigned long number = 0)
    {
        at_ += after;
        RecordedLine one;
        one.at = at_;
        one.kind = kind;
        one.bytes = bytes;
        one.speed = speed;
        one.number = number;
        text_ += vorn::sim::textOf(one);
        return *this;
    }
    Script& sends(const Bytes& bytes) { return line(Kind::FromHost, bytes); }
    Script& answers(const Bytes& bytes) { return line(Kind::FromReader, bytes, std::chrono::milliseconds(4)); }
    Script& asks(const std::string& command, const std::string& answer)
    {
        return sends(frame(command)).answers(frame(answer));
    }
    Script& opens() { return sends(bytesOf("\x1B$I2")).line(Kind::Speed, {}, std::chrono::milliseconds(12)); }
    Script& closes() { return sends(bytesOf("\x1B$I4")).sends(bytesOf("\x1B$B\x1B%A")); }
    std::string text() const { return vorn::sim::recordingHead("by hand") + text_; }

private:
    std::string text_;
    std::chrono::microseconds at_{0};
};

std::vector<Item> storyOf(const std::string& recording, bool show = false, std::size_t piece = 65536)
{
    std::vector<Item> items;
    vorn::tool::RecordingStory story(show, [&items](const Item& item) { items.push_back(item); });
    for (std::size_t at = 0; at < recording.size(); at += piece) {
        const std::string part = recording.substr(at, piece);
        story.add(part.data(), part.size());
    }
    story.end();
    return items;
}

std::string told(const std::string& recording, bool show = false, std::size_t piece = 65536)
{
    std::string text;
    for (const Item& item : storyOf(recording, show, piece)) {
        text += vorn::tool::textOf(item);
    }
    return text;
}

bool says(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

TEST(RecordingStory, NothingIsShownOfALateAnswerBehindTheReadersOwnCommands)
{
    for (const char* const own : {"3222018000", "322300", "32240180"}) {
        const std::string recording = Script().opens().asks(own, "32004348454E205849414F209000").closes().text();
        EXPECT_FALSE(says(told(recording), "4348454E")) << told(recording);
        EXPECT_TRUE(says(told(recording, true), "4348454E")) << told(recording, true);
    }
}

TEST(RecordingStory, TellsEachUseOfTheLineWithItsExchangesAndTimes)
{
    const std::string recording = Script()
                                      .opens()
                                      .asks("3222018000", "32003B00")
                                      .asks("32260000A4040002A000", "32006F0284009000")
                                      .closes()
                                      .opens()
                                      .asks("32241180", "3206")
                                      .closes()
                                      .text();
    EXPECT_EQ(vorn::tool::recognise(recording), vorn::tool::InputKind::Recording);
    const auto items = storyOf(recording);
    ASSERT_EQ(items.size(), 2U) << told(recording);
    EXPECT_EQ(items[0].title, "from 0.001000 s");
    EXPECT_TRUE(says(items[0].words, "2 exchanges in ")) << items[0].words;
    EXPECT_FALSE(items[0].failed);
    const std::string text = told(recording);
    EXPECT_TRUE(says(text, "38400 baud, 12.0 ms behind its last bytes")) << text;
    EXPECT_TRUE(says(text, "1. power on: contact slot")) << text;
    EXPECT_TRUE(says(text, "2. SELECT A000")) << text;
    EXPECT_TRUE(says(text, "sent at 0.014000 s, answered after 4.0 ms")) << text;
    EXPECT_TRUE(says(text, "no card in the field")) << text;
    EXPECT_EQ(told(recording, false, 7), text) << "a cut changes nothing";
}

struct TroubleRow {
    const char* what;
    Script script;
    const char* words;
    bool failed;
};

TEST(RecordingStory, TellsWhatWentWrongOnTheLine)
{
    const Bytes good = frame("3200");
    Bytes wrongCheck = good;
    wrongCheck[wrongCheck.size() - 2] ^= 0x01;
    const Bytes cut(good.begin(), good.end() - 3);
    const TroubleRow rows[] = {
        {"silence",
         Script().opens().sends(frame("322300")).line(Kind::FromHost, frame("322300"), std::chrono::seconds(3)),
         "no answer in 3.00 s", true},
        {"a damaged answer", Script().opens().sends(frame("322300")).answers(wrongCheck),
         "the answer is damaged: check", true},
        {"an answer without its end", Script().opens().sends(frame("322300")).answers(cut).sends(frame("322300")),
         "the answer is damaged: unfinished", true},
        {"a refusal", Script().opens().asks("322300", "320A"), "no such slot", true},
        {"no card", Script().opens().asks("322300", "3202"), "no card in the slot", false},
        {"noise before an answer", Script().opens().sends(frame("322300")).answers(bytesOf("xyz")).answers(good),
         "3 bytes before the answer", false},
        {"a late answer", Script().opens().asks("322300", "3200").answers(good), "nobody was waiting for", false},
        {"a wrong command", Script().opens().sends(wrongCheck).asks("322300", "3200"), "a frame that is wrong: check",
         true},
        {"a reader that went away", Script().opens().line(Kind::Gone), "the reader's port went away", false},
        {"thrown away", Script().opens().line(Kind::Dropped, good), "the host threw away unread", false},
        {"lost lines", Script().opens().line(Kind::Lost, {}, {}, 0, 7), "7 lines of the recording", false},
        {"no version", Script().sends(bytesOf("\x1BKTLVN")).closes(), "the reader's version\n", true},
        {"bytes outside of frames", Script().sends(bytesOf("AT\r")),
         "3 bytes from the host outside of any frame: 41540D", false},
    };
    for (const TroubleRow& row : rows) {
        const std::string text = told(row.script.text());
        EXPECT_TRUE(says(text, row.words)) << row.what << "\n" << text;
        EXPECT_EQ(storyOf(row.script.text())[0].failed, row.failed) << row.what << "\n" << text;
    }
}

TEST(RecordingStory, ShowsNoSecretUnlessAsked)
{
    const std::string recording = Script()
                                      .opens()
                                      .asks("32260000B2010C00", "320070095A07622588123456785F9000")
                                      .asks("32260000200080082412349FFFFFFFFF", "32009000")
                                      .asks("324204600102030405A6", "3200")
                                      .asks("324304", "320011223344556677889900AABBCCDDEEFF")
                                      .asks("32440411223344556677889900AABBCCDDEEFF", "3200")
                                      .closes()
                                      .text();
    const std::string hidden = told(recording);
    const std::string shown = told(recording, true);
    for (const char* const secret : {"62258812345678", "2412349F", "0102030405A6", "1122334455667788"}) {
        EXPECT_FALSE(says(hidden, secret)) << secret << "\n" << hidden;
        EXPECT_TRUE(says(shown, secret)) << secret << "\n" << shown;
    }
}

TEST(RecordingStory, AUseWithoutAnEndIsBounded)
{
    Script script;
    script.opens();
    const std::size_t many = vorn::tool::RecordingStory::kMostItems + 10;
    for (std::size_t i = 0; i < many; ++i) {
        script.asks("322300", "3202");
    }
    const auto items = storyOf(script.text());
    EXPECT_LE(items[0].below.size(), vorn::tool::RecordingStory::kMostItems + 1);
    EXPECT_TRUE(says(items[0].below.back().words, "more are not shown"));
    EXPECT_TRUE(says(items[0].words, std::to_string(many) + " exchanges"));
}

// ---------------------------------------------------------------- a copy for others

vorn::sim::Recording copyOf(const std::string& recording)
{
    const vorn::tool::RecordingRedaction redaction(vorn::sim::readRecording(recording), {});
    return vorn::sim::readRecording(redaction.text("copy"));
}

// All bytes of the lines, in hex, one line each.
std::string bytesIn(const vorn::sim::Recording& recording)
{
    std::string text;
    for (const RecordedLine& line : recording.lines) {
        text += line.hasBytes() ? vorn::sim::toHex(line.bytes) + "\n" : "";
    }
    return text;
}

std::string inHex(const Bytes& bytes) { return vorn::sim::toHex(bytes) + "\n"; }

const std::string kRecord = "32260000B2010C00";

TEST(RecordingRedaction, PutsZerosForSecretsAndMakesTheFramesRightAgain)
{
    const std::string recording = Script()
                                      .asks(kRecord, "3200700A5A0862299900071024659000")
                                      .asks("32260000A40400026229", "32009000")
                                      .asks("32260000200080082412349FFFFFFFFF", "32009000")
                                      .asks("324204600102030405A6", "3200")
                                      .asks("324304", "320011223344556677889900AABBCCDDEEFF")
                                      .asks("32440411223344556677889900AABBCCDDEEFF", "3200")
                                      .text();
    EXPECT_EQ(bytesIn(copyOf(recording)),
              inHex(frame(kRecord)) + inHex(frame("3200700A5A0862299900000024659000")) +
                  inHex(frame("32260000A40400026229")) + inHex(frame("32009000")) +
                  inHex(frame("32260000200080080000000000000000")) + inHex(frame("32009000")) +
                  inHex(frame("32420460000000000000")) + inHex(frame("3200")) + inHex(frame("324304")) +
                  inHex(frame("320000000000000000000000000000000000")) +
                  inHex(frame("32440400000000000000000000000000000000")) + inHex(frame("3200")));
}

TEST(RecordingRedaction, ASecretInOnePlaceIsOneInEveryOther)
{
    const std::string copy = bytesIn(copyOf(Script()
                                                .asks("3226000084000000", "320071024659071024659000")
                                                .asks(kRecord, "3200700B5F24055F207102465990"
                                                               "9000")
                                                .asks(kRecord, "320070095F200671024659AB0C9000")
                                                .asks("32260000D6000006"
                                                      "71024659AB0C",
                                                      "32009000")
                                                .text()));
    EXPECT_EQ(copy.find(inHex(frame("32260000D600000671024659AB0C"))), std::string::npos) << copy;
    EXPECT_NE(copy.find(inHex(frame("32260000D6000006000000000000"))), std::string::npos) << copy;
}

TEST(RecordingRedaction, WhatIsNoRightFrameStaysWrongAndHoldsNothing)
{
    const Bytes answer = frame("3200700A5A0862299900071024659000");
    Bytes wrongCheck = answer;
    wrongCheck[wrongCheck.size() - 2] ^= 0x01;
    Bytes wrongCharacter = answer;
    wrongCharacter[30] = 0x79;
    const Bytes cut(answer.begin(), answer.end() - 4);
    const Bytes headless(answer.begin() + 1, answer.end());
    for (const Bytes& bytes : {wrongCheck, wrongCharacter, cut, headless}) {
        const std::string recording = Script().sends(frame(kRecord)).answers(bytes).text();
        const auto copy = copyOf(recording);
        EXPECT_EQ(copy.lines.at(1).kind, Kind::FromHost);
        const Bytes left = copy.lines.at(2).bytes;
        EXPECT_EQ(left.size(), bytes.size());
        EXPECT_EQ(std::string(left.begin(), left.end()).find("7102465"), std::string::npos);
        const bool damaged = bytes != headless;
        const std::string before = told(recording);
        const std::string after =
            told(vorn::tool::RecordingRedaction(vorn::sim::readRecording(recording), {}).text("x"));
        EXPECT_EQ(says(before, "the answer is damaged"), damaged) << before;
        EXPECT_EQ(says(after, "the answer is damaged"), damaged) << after;
    }
}

// ---------------------------------------------------------------- with the tool

class Recordings : public ToolTest {
protected:
    // A recording of what this command said to a reader with the profile's cards; the command's output.
    Result record(const std::string& profile, const Arguments& command, const std::string& name = "line.rec")
    {
        Process reader(scratch, {"sim", profile});
        const std::string port = reader.outputLine();
        return run(scratch, with({"record", "--port", port, "--to", path(name), "--", tool().string()},
                                 with(command, {"--port", "{port}"})));
    }
    std::string path(const std::string& name) const { return (scratch.path() / name).string(); }

    // The library's log of a command, without the name of the port in it.
    std::string logOf(const std::string& folder, const std::string& port) const
    {
        std::string text = contents(scratch.path() / folder / "ICC_COMM_VORN.log");
        for (std::size_t at = text.find(port); at != std::string::npos; at = text.find(port, at)) {
            text.replace(at, port.size(), "PORT");
        }
        return text;
    }
};

TEST_F(Recordings, AHostIsAnsweredAsItWasRecorded)
{
    const Arguments info{"info", "--json", "--show"};
    Process reader(scratch, {"sim", "debit"});
    const std::string port = reader.outputLine();
    const Result before = run(scratch, with({"record", "--port", port, "--to", path("line.rec"), "--", "sh", "-c",
                                             "echo $VORN_PORT >&2; exec \"$@\"", "sh", tool().string()},
                                            with(info, {"--log-dir", path("before"), "--port", "{port}"})));
    ASSERT_EQ(before.code, kOk) << before.errors;
    const std::string recordersPort = before.errors.substr(0, before.errors.find('\n'));
    for (const char* const factor : {"1", "0"}) {
        Process replay(scratch, {"sim", "--replay", path("line.rec"), "--time-factor", factor});
        const std::string replayed = replay.outputLine();
        const std::string logs = std::string("after") + factor;
        const Result after = run(scratch, with(info, {"--log-dir", path(logs), "--port", replayed}));
        EXPECT_EQ(after.code, kOk) << after.errors;
        EXPECT_EQ(after.output, before.output);
        EXPECT_EQ(logOf(logs, replayed), logOf("before", recordersPort));
        EXPECT_NE(logOf(logs, replayed).find("Outdata"), std::string::npos);
    }
}

TEST_F(Recordings, WhatIsNotInARecordingIsNotAnsweredAndTold)
{
    ASSERT_EQ(record("debit", {"atr"}).code, kOk);
    Process replay(scratch, {"sim", "--replay", path("line.rec")});
    const std::string port = replay.outputLine();
    EXPECT_EQ(run(scratch, {"apdu", "--port", port, "--wait", "0", "00200080082412349FFFFFFFFF"}).code, kSilent);
    replay.signal(SIGINT);
    std::string output, errors;
    EXPECT_EQ(replay.finish(output, errors), kOk);
    EXPECT_NE(errors.find("not in the recording, and not answered: 3226000020008008"), std::string::npos) << errors;
    EXPECT_EQ(errors.find("2412349F"), std::string::npos) << errors;
}

TEST_F(Recordings, ASaleWithAnotherRandomNumberIsAnsweredByItsPlace)
{
    const Arguments sale{"sale", "--json", "--amount", "12.34", "--arpc", "910A00000000000000003030"};
    const Result before = record("debit", with(sale, {"--unpredictable", "11223344"}));
    Process replay(scratch, {"sim", "--replay", path("line.rec"), "--time-factor", "0"});
    const std::string port = replay.outputLine();
    const Result after = run(scratch, with(sale, {"--unpredictable", "55667788", "--port", port}));
    EXPECT_EQ(after.code, before.code) << after.errors;
    EXPECT_EQ(after.json()["outcome"], before.json()["outcome"]);
    EXPECT_EQ(after.json()["arqc"]["items"]["9F26"], before.json()["arqc"]["items"]["9F26"]);
}

TEST_F(Recordings, AreDecodedAsTextJsonAndPage)
{
    ASSERT_EQ(record("debit", {"info"}).code, kOk);
    const Result text = run(scratch, {"decode", path("line.rec")});
    EXPECT_EQ(text.code, kOk) << text.errors;
    EXPECT_TRUE(text.says("power on: contact slot")) << text.output;
    EXPECT_TRUE(text.says("READ RECORD 1 of file 1"));
    EXPECT_TRUE(text.says("the host with code 0"));
    EXPECT_FALSE(text.says(kPan));
    const Json json = run(scratch, {"decode", "--json", path("line.rec")}).json();
    EXPECT_EQ(json["kind"], "recording");
    EXPECT_EQ(run(scratch, {"decode", path("line.rec"), "--html", path("page.html")}).code, kOk);
    EXPECT_TRUE(says(contents(path("page.html")), "READ RECORD 1 of file 1"));
    EXPECT_FALSE(says(contents(path("page.html")), kPan));
    const Result piped = run(scratch, {"decode", "-"}, contents(path("line.rec")));
    EXPECT_EQ(piped.output, text.output);
    std::ofstream(path("line.rec"), std::ios::app) << "what is this\n";
    const Result damaged = run(scratch, {"decode", path("line.rec")});
    EXPECT_EQ(damaged.code, kMissing);
    EXPECT_TRUE(damaged.complains("is no line of a recording")) << damaged.errors;
}

TEST_F(Recordings, ACopyForOthersHasNoSecretAndIsReplayedLikeTheRecording)
{
    const Arguments info{"info", "--json"};
    const Result before = record("debit", info);
    ASSERT_EQ(before.code, kOk) << before.errors;
    const Result copied = run(scratch, {"decode", path("line.rec"), "--redact", path("copy.rec")});
    EXPECT_EQ(copied.code, kOk) << copied.errors;
    EXPECT_EQ(fs::status(path("copy.rec")).permissions(), fs::perms::owner_read | fs::perms::owner_write);
    EXPECT_EQ(run(scratch, {"decode", path("line.rec"), "--redact", path("copy.rec")}).code, kOutput);

    const auto original = vorn::sim::readRecording(contents(path("line.rec")));
    auto copy = vorn::sim::readRecording(contents(path("copy.rec")));
    ASSERT_EQ(copy.lines.front().kind, Kind::Redacted);
    copy.lines.erase(copy.lines.begin());
    ASSERT_EQ(copy.lines.size(), original.lines.size());
    std::string lines;
    for (std::size_t i = 0; i < copy.lines.size(); ++i) {
        EXPECT_EQ(copy.lines[i].at, original.lines[i].at);
        EXPECT_EQ(copy.lines[i].bytes.size(), original.lines[i].bytes.size());
        lines.append(copy.lines[i].bytes.begin(), copy.lines[i].bytes.end());
    }
    // In a frame each half of a byte is a character of its own.
    EXPECT_NE(lines.find("622999"), std::string::npos);
    for (const char* const secret : {"0710246", "301222000007287", "<5;7=1?4", "313939303033"}) {
        EXPECT_EQ(lines.find(secret), std::string::npos) << secret;
    }

    Process replay(scratch, {"sim", "--replay", path("copy.rec")});
    const std::string port = replay.outputLine();
    const Json after = run(scratch, with(info, {"--port", port})).json();
    EXPECT_EQ(after["pan"], before.json()["pan"]) << "the masked digits are the ones replaced";
    EXPECT_EQ(after["ecBalance"], before.json()["ecBalance"]);
    EXPECT_EQ(after["atc"], before.json()["atc"]);
    const Result story = run(scratch, {"decode", path("copy.rec")});
    EXPECT_EQ(story.code, kOk) << story.errors;
    EXPECT_TRUE(story.says("A copy for others"));
    EXPECT_FALSE(story.says("damaged"));
}

TEST_F(Recordings, ACopySaysOfCryptogramsWhatWasReallyChecked)
{
    const Result sale = record("debit", {"sale", "--json", "--amount", "12.34", "--arpc", "910A00000000000000003030"});
    ASSERT_TRUE(sale.says("\"arqc\"")) << sale.errors;
    struct {
        Arguments keys;
        const char* said;
    } const rows[] = {
        {{"--issuer", "debit"}, "the ARQC was right (keys of profile debit)"},
        {{"--issuer", "credit"}, "the ARQC was wrong (keys of profile credit)"},
        {{}, "the ARQC was not checked: no issuer's keys were named"},
    };
    for (const auto& row : rows) {
        const Result copied =
            run(scratch, with({"decode", path("line.rec"), "--force", "--redact", path("copy.rec")}, row.keys));
        EXPECT_EQ(copied.code, kOk) << copied.errors;
        const Result story = run(scratch, {"decode", path("copy.rec")});
        EXPECT_TRUE(story.says(std::string("before the copy was made: ") + row.said)) << story.output;
        EXPECT_EQ(run(scratch, with({"decode", path("line.rec")}, row.keys)).says(row.said), !row.keys.empty());
    }
    // Of a copy nothing can be found out any more.
    const std::string again = run(scratch, {"decode", path("copy.rec"), "--issuer", "debit"}).output;
    EXPECT_FALSE(says(again, "the ARQC was right") || says(again, "the ARQC was wrong")) << again;
    EXPECT_EQ(run(scratch, {"decode", path("line.rec"), "--issuer", "memory"}).code, kProfile);
}

TEST_F(Recordings, WhatIsNoRecordingIsNotReplayed)
{
    const std::string empty = scratch.file("empty", vorn::sim::recordingHead("nothing"));
    EXPECT_EQ(run(scratch, {"sim", "--replay", empty}).code, kMissing);
    EXPECT_EQ(run(scratch, {"sim", "--replay", scratch.file("garbage", kPan)}).code, kUsage);
    EXPECT_EQ(run(scratch, {"sim", "--replay", path("missing")}).code, kUsage);
    EXPECT_TRUE(run(scratch, {"replay", empty}).complains("vorn sim --replay"));
    EXPECT_EQ(run(scratch, {"sim", "debit", "--replay", empty}).code, kUsage);
    EXPECT_EQ(run(scratch, {"sim", "debit", "--time-factor", "2"}).code, kUsage);
}

} // namespace
