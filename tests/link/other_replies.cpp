// SPDX-License-Identifier: Apache-2.0
// Replies that are nobody's: what was sent twice, too late or unasked is never the next command's answer.
#include "support/scripted_reader.h"
#include "support/tty_calls.h"

#include "ICC_COMM_VORN.h"

#include <string>

using namespace vorn::test;

namespace {

const char kDeactivate[] = "32 25 00 00";

class OtherReplies : public ReaderTest {
protected:
    OtherReplies() { ttyCalls() = TtyCalls{}; }
    ~OtherReplies() override { ttyCalls() = TtyCalls{}; }

    // One exchange: the payload as hex, or the result.
    std::string ask()
    {
        const unsigned char command[] = {0x32, 0x25, 0x00, 0x00};
        unsigned char payload[VORN_PAYLOAD_MAX];
        int length = 0;
        const int result = trans_icc_cmd(command, 4, payload, &length);
        return result == 0 ? toHex(Bytes(payload, payload + length)) : std::to_string(result);
    }

    static Bytes twice(const Bytes& bytes)
    {
        Bytes all = bytes;
        all.insert(all.end(), bytes.begin(), bytes.end());
        return all;
    }
};

TEST_F(OtherReplies, WhatWaitsInTheTtyIsNoAnswer)
{
    openLink();
    line.sendAndArrive(replyFrame(0, fromHex("AA")));
    reader.command(kDeactivate, "BB");
    EXPECT_EQ(ask(), "BB");
    closeLink();
}

TEST_F(OtherReplies, WhatCameWithTheAnswerBeforeIsNoAnswer)
{
    openLink();
    reader.raw(kDeactivate, twice(replyFrame(0, fromHex("01")))).command(kDeactivate, "02").command(kDeactivate, "03");
    EXPECT_EQ(ask(), "01");
    EXPECT_EQ(ask(), "02");
    EXPECT_EQ(ask(), "03");
    closeLink();
}

TEST_F(OtherReplies, APartOfAReplyIsNotMendedByTheNext)
{
    openLink();
    Bytes cut = replyFrame(0, fromHex("01"));
    const Bytes whole = cut;
    cut.insert(cut.end(), whole.begin(), whole.begin() + 6);
    reader.raw(kDeactivate, cut).command(kDeactivate, "02");
    EXPECT_EQ(ask(), "01");
    EXPECT_EQ(ask(), "02");
    closeLink();
}

// The queue of a real line empties slowly; the reader knows the command only when its last byte is through.
TEST_F(OtherReplies, WhatComesWhileTheCommandIsGoingOutIsNoAnswer)
{
    openLink();
    ttyCalls().unsent = {5};
    reader.command(kDeactivate, "AA");
    line.sendLater(replyFrame(0, fromHex("BB")), 100);
    EXPECT_EQ(ask(), "BB");
    closeLink();
}

TEST_F(OtherReplies, WhatComesWhenTheCommandIsOutIsItsAnswer)
{
    openLink();
    ttyCalls().unsentAsked = 0;
    reader.command(kDeactivate, "BB");
    EXPECT_EQ(ask(), "BB");
    EXPECT_EQ(ttyCalls().unsentAsked, 1u);
    closeLink();
}

TEST_F(OtherReplies, AReplyBehindItsTimeOutIsWaitedForAndDropped)
{
    openLink();
    reader.silent(kDeactivate).command(kDeactivate, "02").command(kDeactivate, "03");
    line.sendLater(replyFrame(0, fromHex("01")), 3900);
    EXPECT_EQ(ask(), "-11");
    EXPECT_EQ(ask(), "02");
    EXPECT_EQ(ask(), "03");
    closeLink();
}

TEST_F(OtherReplies, TheWaitForALateReplyIsOneSecondFromItsTimeOut)
{
    openLink();
    reader.silent(kDeactivate).command(kDeactivate, "02").command(kDeactivate, "03");
    EXPECT_EQ(ask(), "-11");
    Clock::advance(300000);
    Clock::forgetSleeps();
    EXPECT_EQ(ask(), "02");
    EXPECT_EQ(Clock::sleeps(), (std::vector<unsigned>{700000, 1000}));
    Clock::forgetSleeps();
    EXPECT_EQ(ask(), "03");
    EXPECT_EQ(Clock::sleeps(), std::vector<unsigned>{1000});
    closeLink();
}

TEST_F(OtherReplies, TheNextCallWaitsForALateReplyToo)
{
    openLink();
    reader.silent(kDeactivate);
    EXPECT_EQ(ask(), "-11");
    closeLink();
    line.sendLater(replyFrame(0, fromHex("3BAA")), 500);
    reader.powerOn("3B00");
    char atr[ICC_ATR_CAPACITY];
    EXPECT_EQ(IC_PowerOn(port(), "", 9600, 5, 1, 0, atr), 0);
    EXPECT_STREQ(atr, "3B00");
}

TEST_F(OtherReplies, AFrameTooLongIsFollowedByTheSameWait)
{
    openLink();
    Bytes endless(1, 0x02);
    endless.insert(endless.end(), 1500, 0x30);
    reader.raw(kDeactivate, endless).command(kDeactivate, "02");
    EXPECT_EQ(ask(), "-11");
    line.sendLater(replyFrame(0, fromHex("01")), 900); // the rest of it
    EXPECT_EQ(ask(), "02");
    closeLink();
}

TEST_F(OtherReplies, AMemoryCardCallOnALinkLeftOpenTakesNothingThatCameBetween)
{
    reader.command("32 41 01 00", "11223344").command("32 43 04", "000102030405060708090A0B0C0D0E0F");
    unsigned char flag = 0;
    char uid[ICC_ATR_CAPACITY];
    ASSERT_EQ(IC_M1ActiveCard(port(), "", 9600, 5, &flag, uid), 0);
    line.sendAndArrive(replyFrame(0, Bytes(16, 0xEE)));
    unsigned char block[16] = {};
    EXPECT_EQ(IC_M1ReadCard(port(), "", 9600, 5, 4, block), 0);
    EXPECT_EQ(toHex(Bytes(block, block + 16)), "000102030405060708090A0B0C0D0E0F");
    reader.command(kDeactivate);
    EXPECT_EQ(IC_M1PowerOff(port(), "", 9600, 5), 0);
}

TEST_F(OtherReplies, TheVersionIsNotWhatCameBeforeItsQuestion)
{
    line.onBytes = [this](const Bytes& bytes, int) {
        EXPECT_EQ(toHex(bytes), "1B4B544C564E");
        line.send(fromHex("5631"));
    };
    line.setRaw();
    line.sendAndArrive(replyFrame(0, fromHex("3B00")));
    char version[ICC_DEVICE_TEXT_CAPACITY];
    char date[ICC_DEVICE_TEXT_CAPACITY];
    char serial[ICC_DEVICE_TEXT_CAPACITY];
    EXPECT_EQ(GetDevInfo(port(), version, date, serial), 0);
    EXPECT_STREQ(version, "V1");
}

} // namespace
