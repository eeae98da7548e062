// SPDX-License-Identifier: Apache-2.0
// Opening and closing the link with the reader's line protocol, and one command in its frame.
#include "support/scripted_reader.h"
#include "support/tty_calls.h"

#include "ICC_COMM_VORN.h"

#include <fcntl.h>

#include <cstring>
#include <string>

using namespace vorn::test;

namespace {

using Events = std::vector<std::string>;
using Sleeps = std::vector<unsigned>;

class ReaderLink : public ReaderTest {
protected:
    ReaderLink() { ttyCalls() = TtyCalls{}; }
    ~ReaderLink() override { ttyCalls() = TtyCalls{}; }
};

// ---------------------------------------------------------------- opdev and cldev

TEST_F(ReaderLink, OpeningSwitchesTheReaderFrom9600To38400)
{
    openLink();
    EXPECT_EQ(line.pieces(), Events{"1B244932@9600"});
    EXPECT_EQ(reader.lineEvents(), Events{"ESC $ I 2 at 9600"});
    EXPECT_EQ(Clock::sleeps(), (Sleeps{12000, 7000}));
    EXPECT_EQ(line.speed(), 38400);
    closeLink();
}

TEST_F(ReaderLink, TheSpeedChangesBetweenTheTwoDelaysOfOpening)
{
    std::vector<int> speeds;
    Clock::onSleep([&] {
        line.serve();
        speeds.push_back(line.speed());
    });
    openLink();
    EXPECT_EQ(speeds, (std::vector<int>{9600, 38400}));
    speeds.clear();
    closeLink();
    EXPECT_EQ(speeds[0], 38400);
    EXPECT_EQ(speeds[1], 9600);
}

TEST_F(ReaderLink, ClosingSwitchesTheReaderBackTo9600)
{
    openLink();
    line.forget();
    Clock::forgetSleeps();
    closeLink();
    EXPECT_EQ(line.pieces(), (Events{"1B244934@38400", "1B24421B2541@9600"}));
    EXPECT_EQ(reader.lineEvents(), (Events{"ESC $ I 2 at 9600", "ESC $ I 4 at 38400", "ESC $ B ESC % A at 9600"}));
    EXPECT_EQ(Clock::sleeps(), (Sleeps{30000, 12000, 3000}));
    EXPECT_TRUE(linkClosed());
}

TEST_F(ReaderLink, TheLastDelayOfClosingComesAfterTheLinkIsClosed)
{
    openLink();
    std::vector<bool> closed;
    Clock::onSleep([&] {
        line.serve();
        closed.push_back(linkClosed());
    });
    closeLink();
    EXPECT_EQ(closed, (std::vector<bool>{false, false, true}));
}

TEST_F(ReaderLink, TheSwitchSequencesGoOutInOneWriteEach)
{
    openLink();
    ttyCalls().watched = vrdk03com_handle;
    closeLink();
    EXPECT_EQ(ttyCalls().pieces, sizes({4, 6}));
}

// What is written is on its way at once, so the restore sequence must not come before its speed.
TEST_F(ReaderLink, ClosingChangesTheSpeedBetweenItsTwoSequences)
{
    struct termio settings = line.settings();
    settings.c_cflag = static_cast<unsigned short>((settings.c_cflag & ~CBAUD) | B1200);
    line.setSettings(settings);
    openLink();
    ttyCalls().watched = vrdk03com_handle;
    closeLink();
    EXPECT_EQ(ttyCalls().order, (Events{"write 4", "speed 000D", "write 6", "speed 0009"}));
    EXPECT_EQ(line.speed(), 1200);
}

TEST_F(ReaderLink, TheHandleIsTheOpenTty)
{
    openLink();
    char name[64] = {};
    ASSERT_EQ(ttyname_r(vrdk03com_handle, name, sizeof name), 0);
    EXPECT_EQ(std::string(name), "/dev/" + line.port());
    closeLink();
}

TEST_F(ReaderLink, TheSwitchSequenceGoesOutAtTheSpeedOfTheParameter)
{
    vr_comportmode = 0;
    std::snprintf(vr_comportparam, sizeof vr_comportparam, "%s", line.param(":19200,E,7,2").c_str());
    ASSERT_EQ(opdev(), 0);
    EXPECT_EQ(reader.lineEvents(), Events{"ESC $ I 2 at 19200"});
    EXPECT_EQ(line.speed(), 38400);
    closeLink();
    EXPECT_EQ(reader.lineEvents().back(), "ESC $ B ESC % A at 9600");
}

TEST_F(ReaderLink, ALinkThatCannotBeOpenedIsMinusThreeWithoutDelay)
{
    for (const char* param : {"no-such-tty:9600,N,8,1", "null:9600,N,8,1", "ttyS1", ""}) {
        SCOPED_TRACE(param);
        vr_comportmode = 0;
        std::snprintf(vr_comportparam, sizeof vr_comportparam, "%s", param);
        EXPECT_EQ(opdev(), -3);
        EXPECT_EQ(vrdk03com_handle, -1);
    }
    EXPECT_TRUE(Clock::sleeps().empty());
    EXPECT_TRUE(line.sent().empty());
}

TEST_F(ReaderLink, ASpeedThatIsRefusedGoesUnnoticedByOpening)
{
    Clock::onSleep([&] {
        line.serve();
        ttyCalls().refuseSet = true; // from the first delay on
    });
    vr_comportmode = 0;
    std::snprintf(vr_comportparam, sizeof vr_comportparam, "%s", line.param().c_str());
    EXPECT_EQ(opdev(), 0);
    EXPECT_EQ(Clock::sleeps(), (Sleeps{12000, 7000}));
    ttyCalls().refuseSet = false;
    standardErrorOf([] { EXPECT_EQ(cldev(), 0); });
}

TEST_F(ReaderLink, OpeningAndClosingWriteNoLog)
{
    openLink();
    closeLink();
    EXPECT_EQ(serviceLog(), "");
    EXPECT_EQ(traceLog(), "");
}

TEST_F(ReaderLink, EachOpeningStartsFrom9600Again)
{
    for (int i = 0; i < 3; ++i) {
        line.forget();
        openLink();
        EXPECT_EQ(line.pieces(), Events{"1B244932@9600"});
        closeLink();
    }
}

// ---------------------------------------------------------------- the command's frame

class ReaderFrame : public ReaderLink {
protected:
    ReaderFrame()
    {
        openLink();
        line.forget();
        Clock::forgetSleeps();
        ttyCalls().watched = vrdk03com_handle;
    }

    ~ReaderFrame() override { closeLink(); }

    int exchange(const Bytes& command)
    {
        payload.assign(VORN_PAYLOAD_MAX + 1, 0xEE);
        length = -77;
        const int result = trans_icc_cmd(command.data(), static_cast<int>(command.size()), payload.data(), &length);
        EXPECT_EQ(payload.back(), 0xEE) << "a byte was written behind the documented capacity";
        return result;
    }

    int exchange(const std::string& command) { return exchange(fromHex(command)); }

    // The reply's characters as they are, for any command.
    int exchangeAnswered(const Bytes& answer)
    {
        reader.raw("32 23 00", answer);
        return exchange("32 23 00");
    }

    std::string payloadHex() const
    {
        return length < 0 ? "length " + std::to_string(length)
                          : toHex(Bytes(payload.begin(), payload.begin() + length));
    }

    bool payloadUntouched() const { return payload == Bytes(VORN_PAYLOAD_MAX + 1, 0xEE); }

    Bytes payload;
    int length = -77;
};

Bytes commandOf(std::size_t size)
{
    Bytes command;
    for (std::size_t i = 0; i < size; ++i) {
        command.push_back(static_cast<std::uint8_t>(0x32 + 7 * i));
    }
    return command;
}

std::string textOf(const Bytes& bytes) { return std::string(bytes.begin(), bytes.end()); }

// A reply frame with any length bytes: STX, length, content, ETX in the reader's characters, without a check byte.
Bytes replyAnnouncing(int announced, const std::string& contentHex)
{
    Bytes reply = frame(fromHex(contentHex));
    const Bytes lengthText = frame({static_cast<std::uint8_t>(announced >> 8), static_cast<std::uint8_t>(announced)});
    for (std::size_t i = 1; i <= 4; ++i) {
        reply[i] = lengthText[4 + i];
    }
    return reply;
}

TEST_F(ReaderFrame, ACommandGoesOutAsNibbleTextBetweenStxAndEtx)
{
    reader.command("32 22 01 80 00", "3B00");
    EXPECT_EQ(exchange("32 22 01 80 00"), 0);
    // N = 5; the check is 32 ^ 22 ^ 01 ^ 80 ^ 00 = 91
    EXPECT_EQ(textOf(line.sent()), "\x02"
                                   "0005"
                                   "3222018000"
                                   "91"
                                   "\x03");
}

TEST_F(ReaderFrame, NibblesAboveNineAreTheCharactersBehindNine)
{
    reader.command("0F A5 BC DE FF", "");
    EXPECT_EQ(exchange("0F A5 BC DE FF"), 0);
    // 0F ^ A5 ^ BC ^ DE ^ FF = 37
    EXPECT_EQ(textOf(line.sent()), "\x02"
                                   "0005"
                                   "0?:5;<=>??"
                                   "37"
                                   "\x03");
}

TEST_F(ReaderFrame, TheCheckLeavesTheLengthOut)
{
    reader.command("55", "");
    EXPECT_EQ(exchange("55"), 0);
    EXPECT_EQ(textOf(line.sent()), "\x02"
                                   "0001"
                                   "55"
                                   "55"
                                   "\x03");
}

TEST_F(ReaderFrame, TheLengthIsBigEndian)
{
    const Bytes command(0x0123, 0x41);
    reader.command(toHex(command), "");
    EXPECT_EQ(exchange(command), 0);
    const Bytes sent = line.sent();
    ASSERT_EQ(sent.size(), 2u * 0x0123 + 8);
    EXPECT_EQ(textOf(Bytes(sent.begin() + 1, sent.begin() + 7)), "012341");
    EXPECT_EQ(textOf(Bytes(sent.end() - 3, sent.end())), "41\x03");
}

TEST_F(ReaderFrame, ACommandOfNoBytesIsAFrameOfEight)
{
    reader.command("", "");
    EXPECT_EQ(exchange(""), 0);
    EXPECT_EQ(textOf(line.sent()), "\x02"
                                   "0000"
                                   "00"
                                   "\x03");
}

TEST_F(ReaderFrame, AFrameIsWrittenInPiecesOf128)
{
    const struct {
        std::size_t command;
        std::vector<std::size_t> pieces;
    } rows[] = {
        {5, {18}},
        {59, {126}},
        {60, {128}},
        {61, {128, 2}},
        {123, {128, 126}},
        {124, {128, 128}},
        {125, {128, 128, 2}},
        {300, {128, 128, 128, 128, 96}},
        {508, {128, 128, 128, 128, 128, 128, 128, 128}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.command);
        ttyCalls().pieces.clear();
        reader.command(toHex(commandOf(row.command)), "9000");
        EXPECT_EQ(exchange(commandOf(row.command)), 0);
        EXPECT_EQ(payloadHex(), "9000");
        EXPECT_EQ(ttyCalls().pieces, row.pieces);
    }
}

TEST_F(ReaderFrame, ACommandThatDoesNotFitTheFrameIsNotSent)
{
    EXPECT_EQ(exchange(commandOf(509)), -1);
    EXPECT_EQ(exchange(commandOf(5000)), -1);
    const std::uint8_t command[] = {0x32};
    EXPECT_EQ(trans_icc_cmd(command, -1, payload.data(), &length), -1);
    EXPECT_EQ(length, -77);
    EXPECT_TRUE(ttyCalls().pieces.empty());
    EXPECT_TRUE(Clock::sleeps().empty());
}

// ---------------------------------------------------------------- the reply

TEST_F(ReaderFrame, TheReplysPayloadIsHandedBack)
{
    EXPECT_EQ(exchangeAnswered(fromHex("02 30303036 3332 3030 363F 3132 3E3D 3839 323B 03")), 0);
    EXPECT_EQ(payloadHex(), "6F12ED89");
}

TEST_F(ReaderFrame, APayloadOfNoBytesHasLengthZero)
{
    EXPECT_EQ(exchangeAnswered(replyFrame(0x00, {})), 0);
    EXPECT_EQ(length, 0);
    EXPECT_TRUE(payloadUntouched());
}

TEST_F(ReaderFrame, EveryStatusByteHasItsResult)
{
    for (int status = 0; status <= 0xFF; ++status) {
        SCOPED_TRACE(status);
        const int result = exchangeAnswered(replyFrame(static_cast<std::uint8_t>(status), fromHex("C0FFEE")));
        EXPECT_EQ(result, status == 0 ? 0 : status == 0x02 || status == 0x06 ? -9 : -10);
        EXPECT_EQ(length, 3); // told before the status is looked at
        if (status == 0) {
            EXPECT_EQ(payloadHex(), "C0FFEE");
        } else {
            EXPECT_TRUE(payloadUntouched());
        }
    }
}

TEST_F(ReaderFrame, TheFirstByteOfTheReplyIsNotExamined)
{
    for (const char* content : {"00 00 41 42", "FF 00 41 42", "06 00 41 42"}) {
        EXPECT_EQ(exchangeAnswered(frame(fromHex(content))), 0) << content;
        EXPECT_EQ(payloadHex(), "4142");
    }
}

TEST_F(ReaderFrame, AWrongCheckByteIsAccepted)
{
    Bytes reply = replyFrame(0x00, fromHex("3B6800"));
    reply[reply.size() - 2] ^= 0x05;
    reply[reply.size() - 3] ^= 0x0A;
    EXPECT_EQ(exchangeAnswered(reply), 0);
    EXPECT_EQ(payloadHex(), "3B6800");
}

TEST_F(ReaderFrame, AReplyWithoutACheckByteIsAccepted)
{
    EXPECT_EQ(exchangeAnswered(fromHex("02 30303034 3332 3030 353A 3930 03")), 0);
    EXPECT_EQ(payloadHex(), "5A90");
}

TEST_F(ReaderFrame, OnlyTheLowFourBitsOfACharacterCount)
{
    // 'A' is 1, 'o' is F, E7 is 7, 12 is 2
    EXPECT_EQ(exchangeAnswered(fromHex("02 40 50 60 74 C3 82 F0 A0 41 6F E7 12 31 31 03")), 0);
    EXPECT_EQ(payloadHex(), "1F72");
}

TEST_F(ReaderFrame, ANulCharacterEndsTheReplysText)
{
    Bytes reply = replyFrame(0x00, fromHex("11 22 33 44"));
    reply[1 + 2 * 5] = 0x00; // the first character of 22
    EXPECT_EQ(exchangeAnswered(reply), 0);
    EXPECT_EQ(payloadHex(), "11000000");
}

TEST_F(ReaderFrame, NoiseBeforeTheReplyIsDropped)
{
    Bytes reply = fromHex("00 15 03 FE 30 03");
    const Bytes good = replyFrame(0x00, fromHex("9000"));
    reply.insert(reply.end(), good.begin(), good.end());
    EXPECT_EQ(exchangeAnswered(reply), 0);
    EXPECT_EQ(payloadHex(), "9000");
}

TEST_F(ReaderFrame, AnAnnouncedLengthBelowWhatCameCutsThePayload)
{
    EXPECT_EQ(exchangeAnswered(replyAnnouncing(2 + 3, "32 00 A1 A2 A3 A4 A5")), 0);
    EXPECT_EQ(payloadHex(), "A1A2A3");
}

TEST_F(ReaderFrame, AnAnnouncedLengthAboveWhatCameReadsAsZeroInTheRest)
{
    // The check byte (32 ^ 00 ^ A1 ^ A2 = 31) came: it stands behind them.
    EXPECT_EQ(exchangeAnswered(replyAnnouncing(2 + 7, "32 00 A1 A2")), 0);
    EXPECT_EQ(payloadHex(), "A1A23100000000");
}

TEST_F(ReaderFrame, AnAnnouncedLengthIsNeverMoreThanAReplyCanCarry)
{
    for (const int announced : {494 + 2, 494 + 3, 1000, 0x7FFF, 0x8000, 0xFFFF}) {
        SCOPED_TRACE(announced);
        EXPECT_EQ(exchangeAnswered(replyAnnouncing(announced, "32 00 A1 A2")), 0);
        ASSERT_EQ(length, 494);
        EXPECT_EQ(payloadHex().substr(0, 10), "A1A2310000");
        EXPECT_EQ(payloadHex().find_first_not_of('0', 6), std::string::npos);
    }
    EXPECT_EQ(exchangeAnswered(replyAnnouncing(0xFFFF, "32 06")), -9);
    EXPECT_EQ(length, 494);
    EXPECT_TRUE(payloadUntouched());
}

TEST_F(ReaderFrame, AnAnnouncedLengthBelowTwoIsAnEmptyPayload)
{
    const struct {
        const char* content;
        int result;
    } rows[] = {{"32 00 A1 A2", 0}, {"32 02 A1 A2", -9}, {"32 06 A1 A2", -9}, {"32 01 A1 A2", -10}};
    for (const int announced : {0, 1}) {
        for (const auto& row : rows) {
            SCOPED_TRACE(row.content);
            EXPECT_EQ(exchangeAnswered(replyAnnouncing(announced, row.content)), row.result);
            EXPECT_EQ(length, 0);
            EXPECT_TRUE(payloadUntouched());
        }
    }
}

TEST_F(ReaderFrame, AReplyOfNothingHasStatusAndLengthZero)
{
    EXPECT_EQ(exchangeAnswered(fromHex("02 03")), 0);
    EXPECT_EQ(length, 0);
    EXPECT_TRUE(payloadUntouched());
}

TEST_F(ReaderFrame, AReplyOfAThousandBytesIsTheLongest)
{
    const Bytes longest = commandOf(494);
    ASSERT_EQ(replyFrame(0x00, longest).size(), 1000u);
    EXPECT_EQ(exchangeAnswered(replyFrame(0x00, longest)), 0);
    EXPECT_EQ(payloadHex(), toHex(longest));
}

TEST_F(ReaderFrame, AnEndByteInPlace1001StillEndsAReply)
{
    const Bytes longest = commandOf(494);
    Bytes reply = replyFrame(0x00, longest);
    reply.insert(reply.end() - 1, 0x39);
    ASSERT_EQ(reply.size(), 1001u);
    EXPECT_EQ(exchangeAnswered(reply), 0);
    EXPECT_EQ(payloadHex(), toHex(longest));
}

TEST_F(ReaderFrame, AReplyOf1002BytesIsNoReply)
{
    const Bytes reply = replyFrame(0x00, commandOf(495));
    ASSERT_EQ(reply.size(), 1002u);
    EXPECT_EQ(exchangeAnswered(reply), -11);
    EXPECT_EQ(length, -77);
    EXPECT_TRUE(payloadUntouched());
    // What is left of it does not disturb the next exchange.
    EXPECT_EQ(exchangeAnswered(replyFrame(0x00, fromHex("9000"))), 0);
    EXPECT_EQ(payloadHex(), "9000");
}

TEST_F(ReaderFrame, AReaderThatNeverEndsItsReplyIsNoReply)
{
    EXPECT_EQ(exchangeAnswered(Bytes(3000, 0x02)), -11);
    EXPECT_TRUE(Clock::sleeps().size() <= 1) << "nothing was waited for";
}

TEST_F(ReaderFrame, SilenceIsNoReplyAfterThreeSeconds)
{
    reader.silent("32 25 00 00");
    EXPECT_EQ(exchange("32 25 00 00"), -11);
    EXPECT_EQ(Clock::sleeps(), Sleeps(3000, 1000));
    EXPECT_EQ(length, -77);
    EXPECT_TRUE(payloadUntouched());
}

TEST_F(ReaderFrame, AReplyThatBreaksOffIsNoReplyAfterThreeSecondsMore)
{
    Bytes half = replyFrame(0x00, fromHex("3B6800"));
    half.resize(9);
    EXPECT_EQ(exchangeAnswered(half), -11);
    EXPECT_EQ(Clock::sleeps().size(), 3001u);
    EXPECT_EQ(length, -77);
}

TEST_F(ReaderFrame, ASlowReaderHasThreeSecondsForEachByte)
{
    reader.silent("32 22 01 80 00");
    int after = 0;
    for (const std::uint8_t byte : replyFrame(0x00, fromHex("3B00"))) {
        line.sendLater({byte}, after += 2950);
    }
    EXPECT_EQ(exchange("32 22 01 80 00"), 0);
    EXPECT_EQ(payloadHex(), "3B00");
}

TEST_F(ReaderFrame, AFailedExchangeLeavesTheLinkOpen)
{
    reader.silent("32 23 00");
    EXPECT_EQ(exchange("32 23 00"), -11);
    EXPECT_EQ(exchangeAnswered(replyFrame(0x7F, {})), -10);
    EXPECT_FALSE(linkClosed());
    EXPECT_EQ(exchangeAnswered(replyFrame(0x00, fromHex("ABCD"))), 0);
    EXPECT_EQ(payloadHex(), "ABCD");
}

TEST_F(ReaderFrame, ABareExchangeWritesNoLog)
{
    EXPECT_EQ(exchangeAnswered(replyFrame(0x00, fromHex("9000"))), 0);
    EXPECT_EQ(serviceLog(), "");
}

} // namespace
