// SPDX-License-Identifier: Apache-2.0
// Readers that differ from the plain one, made of what was observed of them.
#include "sim/reader/behaviour.h"

#include "sim/cards/transcript_card.h"
#include "sim/data/profile_error.h"
#include "sim/reader/observations.h"
#include "sim/reader/pty_port.h"
#include "sim/reader/reader.h"
#include "support/line.h"
#include "support/scripted_reader.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <thread>

namespace vorn::sim {
namespace {

using std::chrono::milliseconds;
using test::frame;
using test::fromHex;
using test::replyFrame;
using test::toHex;

std::string report(const std::string& observations, const std::string& version = "1")
{
    return R"({"format": "vorn-acceptance", "version": )" + version + R"(, "observations": {)" + observations + "}}";
}

// What a unit with this one observation sends for these bytes on its line, piece by piece: "DELAY:BYTES ".
std::string sent(const std::string& observation, const Bytes& bytes, bool withCard = false)
{
    Reader reader([] { return milliseconds(0); });
    reader.behave(behaviourOf(report(observation), "report.json"));
    if (withCard) {
        const auto any = TranscriptCard::parsePattern("*");
        reader.insert(Slot::Contact, std::make_shared<TranscriptCard>(
                                         fromHex("3B00"), std::vector<TranscriptCard::Pair>{{*any, fromHex("9000")}},
                                         TranscriptCard::Order::Any, fromHex("6D00")));
    }
    std::string text;
    for (const Reader::Output& output : reader.receive(bytes)) {
        text += std::to_string(output.delay / std::chrono::milliseconds(1)) + (output.ifSilent ? "?" : "") + ":" +
                toHex(output.bytes) + " ";
    }
    return text;
}

std::string answered(const std::string& status, int time = 0)
{
    return std::to_string(time) + ":" + toHex(replyFrame(fromHex(status)[0], {})) + " ";
}

Bytes text(const std::string& characters) { return {characters.begin(), characters.end()}; }

Bytes joined(Bytes first, const Bytes& second)
{
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

const Bytes kFieldOff = fromHex("02303030343332323530303030313703");
const Bytes kWrongCheck = fromHex("02303030343332323530303030313603");
const Bytes kWrongCharacter = fromHex("02413030343332323530303030313703");
const Bytes kOddFrame = fromHex("0230303034333232353030303031373F03");
const Bytes kCut = fromHex("023030303433323235");

TEST(SimBehaviour, EachObservationIsWhatTheUnitThenAnswers)
{
    const struct {
        std::string observation;
        Bytes line;
        std::string plain, unit;
    } rows[] = {
        {R"("slots.contact": "0B")", frame(fromHex("3222018000")), answered("02"), answered("0B")},
        {R"("slots.psam1": "0B")", frame(fromHex("3222018010")), answered("02"), answered("0B")},
        {R"("slots.psam2": "0B")", frame(fromHex("322311")), answered("02"), answered("0B")},
        {R"("slots.psam3": "0B")", frame(fromHex("32261200A40000")), answered("02"), answered("0B")},
        {R"("slots.psam4": "silent")", frame(fromHex("3222018013")), answered("02"), ""},
        {R"("slots.field": "07")", frame(fromHex("32240180")), answered("06"), answered("07")},
        {R"("slots.memory": "02")", frame(fromHex("32410100")), answered("06"), answered("02")},
        {R"("field.off": "06")", kFieldOff, answered("00"), answered("06")},
        {R"("malformed.command": "silent")", frame(fromHex("327F")), answered("E0"), ""},
        {R"("malformed.parameter": "raw 15")", frame(fromHex("32220180")), answered("E1"), "0:15 "},
        {R"("malformed.slot": "E1")", frame(fromHex("3222018020")), answered("0A"), answered("E1")},
        {R"("malformed.check": "00")", kWrongCheck, answered("F0"), answered("00")},
        {R"("malformed.character": "F1")", kWrongCharacter, answered("F0"), answered("F1")},
        {R"("frames.129": "F2")", kOddFrame, answered("F0"), answered("F2")},
        {R"("frames.empty": "silent")", frame({}), answered("E0"), ""},
        {R"("frames.shortest": "F3")", frame(fromHex("32")), answered("E0"), answered("F3")},
        {R"("frames.longest": 15)", kFieldOff, answered("00"), answered("F0")},
        {R"("frames.longest": 16)", kFieldOff, answered("00"), answered("00")},
        {R"("frames.longest": 10, "frames.longer": "silent")", kFieldOff, answered("00"), ""},
        {R"("malformed.cut": "F0", "malformed.cut.time": 70)", kCut, "", "70?:" + answered("F0").substr(2)},
        {R"("malformed.cut.next": "lost")", joined(kCut, kFieldOff), answered("00"), answered("F0")},
        {R"("malformed.two": "first")", joined(kFieldOff, frame(fromHex("327F"))), answered("00") + answered("E0"),
         answered("00")},
        {R"("malformed.two": "second")", joined(kFieldOff, frame(fromHex("327F"))), answered("00") + answered("E0"),
         answered("E0")},
        {R"("malformed.two": "neither")", joined(kFieldOff, kWrongCheck), answered("00") + answered("F0"), ""},
        {R"("timing.reply": 40)", kFieldOff, answered("00"), answered("00", 40)},
        {R"("timing.gap": 30)", kFieldOff, answered("00"), "0:023030303233 30:323030333203 "},
        {R"("line.command": "silent")", kFieldOff, answered("00"), ""},
        {R"("version.text": "A 1")", text("\x1BKTLVN"), "0:" + toHex(text("DK7710 V1.06")) + " ",
         "0:" + toHex(text("A 1")) + " "},
        {R"("version.text": "")", text("\x1BKTLVN"), "0:" + toHex(text("DK7710 V1.06")) + " ", ""},
        {R"("version.text": "A", "version.time": 9)", text("\x1BKTLVN"), "0:" + toHex(text("DK7710 V1.06")) + " ",
         "9:41 "},
        {R"("line.speed": "38400")", text("\x1BKTLVN"), "0:" + toHex(text("DK7710 V1.06")) + " ", ""},
        {R"("version.text": "A", "switch.version": "answered")", text("\x1B$I2\x1BKTLVN"), "", "0:41 "},
        {R"("version.text": "A", "switch.fast": "silent")", text("\x1B$I2\x1BKTLVN"), "", "0:41 "},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(sent("", row.line), row.plain) << row.observation;
        EXPECT_EQ(sent(row.observation, row.line), row.unit) << row.observation;
    }
}

TEST(SimBehaviour, ACardsAnswersTakeTheUnitsTime)
{
    const Bytes on = frame(fromHex("3222018000"));
    const Bytes onAndAsk = joined(on, frame(fromHex("32260000A40000")));
    const std::string atr = toHex(replyFrame(0, fromHex("3B00")));
    EXPECT_EQ(sent(R"("power.contact.time": 250)", on, true), "250:" + atr + " ");
    EXPECT_EQ(sent(R"("power.contact.time": 250)", on, false), answered("02"));
    EXPECT_EQ(sent(R"("card.time": 60)", onAndAsk, true),
              "0:" + atr + " 60:" + toHex(replyFrame(0, fromHex("9000"))) + " ");
    EXPECT_EQ(sent(R"("power.off": "08")", frame(fromHex("32260000A40000")), true), answered("08"));
    EXPECT_EQ(sent(R"("slots.contact": "card")", on, true), "0:" + atr + " ");
}

TEST(SimBehaviour, AReaderThatDoesNotReturnStaysAtItsSpeed)
{
    Reader reader;
    reader.behave(behaviourOf(report(R"("switch.back": "silent")"), "report.json"));
    reader.receive(text("\x1B$I2"));
    reader.receive(text("\x1B$I4\x1B$B\x1B%A"));
    EXPECT_EQ(reader.listeningSpeed(), 38400);
}

// A cut frame is answered when nothing follows, and only then.
TEST(SimBehaviour, APortSaysWhatIsForSilenceOnlyInSilence)
{
    Reader reader;
    reader.behave(behaviourOf(report(R"("malformed.cut": "F7", "malformed.cut.time": 300)"), "report.json"));
    PtyPort port(reader);
    const int host = ::open(("/dev/" + port.name()).c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
    ASSERT_GE(host, 0);
    const auto write = [host](const Bytes& bytes) {
        EXPECT_EQ(::write(host, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
    };
    const auto read = [host](std::size_t count) {
        Bytes bytes(count);
        std::size_t have = 0;
        pollfd waiting{host, POLLIN, 0};
        while (have < count && ::poll(&waiting, 1, 60000) == 1) {
            const ssize_t more = ::read(host, bytes.data() + have, count - have);
            have += more > 0 ? static_cast<std::size_t>(more) : 0;
        }
        return toHex(bytes);
    };
    const std::string done = toHex(replyFrame(0, {}));
    write(kCut);
    EXPECT_EQ(read(done.size() / 2), toHex(replyFrame(0xF7, {})));
    write(kFieldOff);
    EXPECT_EQ(read(done.size() / 2), done);
    port.locked([&] { // the rest is there before the port can find it missing
        write(Bytes(kFieldOff.begin(), kFieldOff.begin() + 5));
        std::this_thread::sleep_for(std::chrono::milliseconds(350));
        write(Bytes(kFieldOff.begin() + 5, kFieldOff.end()));
    });
    EXPECT_EQ(read(done.size() / 2), done);
    ::close(host);
}

// ---------------------------------------------------------------- reports

std::string complaint(const std::string& text)
{
    try {
        behaviourOf(text, "report.json");
        return "understood";
    } catch (const ProfileError& error) {
        return error.what();
    }
}

TEST(SimBehaviour, AReportGivesAValueAloneOrWithMoreBesideIt)
{
    const std::string whole = report(R"("malformed.check": {"title": "x", "value": "silent", "simulator": "F0"})");
    EXPECT_EQ(answerText(behaviourOf(whole, "r").wrongCheck), "silent");
    EXPECT_EQ(answerText(behaviourOf(report(R"("malformed.check": "raw 1506")"), "r").wrongCheck), "raw 1506");
}

TEST(SimBehaviour, AReportThatCannotBeUsedSaysWhere)
{
    const struct {
        std::string report, complaint;
    } rows[] = {
        {"", "report.json"},
        {"[]", "report.json: expected an object"},
        {R"({"format": "other", "version": 1, "observations": {}})", "no report of 'vorn accept'"},
        {R"({"format": "vorn-acceptance", "version": 1})", "\"observations\" is missing"},
        {report("", "2"), "a report of version 2"},
        {report(R"("slots.contakt": "02")"), "observations.slots.contakt: there is no such observation"},
        {report(R"("slots.contact": "0")"), "expected a status such as F0"},
        {report(R"("slots.contact": "raw ")"), "expected a status such as F0"},
        {report(R"("slots.contact": "raw )" + std::string(514, '1') + "\""), "expected a status such as F0"},
        {report(R"("slots.contact": {"simulator": "02"})"), "\"value\" is missing"},
        {report(R"("malformed.two": "all")"), "one of both, first, second, neither"},
        {report(R"("timing.reply": 60001)"), "a number from 0 to 60000"},
        {report(R"("timing.reply": -1)"), "a number from 0 to 60000"},
        {report(R"("frames.longest": 4)"), "a number from 8 to 4096"},
        {report(R"("version.text": "\u0007")"), "a printable text"},
        {report(R"("usb.packet": 0)"), "a number from 1 to 64"},
        {report(R"("usb.device": "1")"), "hex text"},
    };
    for (const auto& row : rows) {
        EXPECT_NE(complaint(row.report).find(row.complaint), std::string::npos) << row.report << "\n"
                                                                                << complaint(row.report);
    }
}

TEST(SimBehaviour, ObservationsHaveOneNameEach)
{
    for (const ObservationName& one : observationNames()) {
        EXPECT_EQ(observationName(one.name), &one) << one.name;
        EXPECT_EQ(one.kind == ObservationKind::Word, !one.words.empty()) << one.name;
    }
    EXPECT_EQ(observationName("slots"), nullptr);
}

} // namespace
} // namespace vorn::sim
