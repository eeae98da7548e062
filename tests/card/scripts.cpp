// SPDX-License-Identifier: Apache-2.0
// Issuer scripts: the commands of one template, in order, until the card refuses one.
#include "support/card_text.h"
#include "support/scripted_reader.h"

#include "ICC_COMM_VORN.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using namespace vorn::test;

namespace {

const std::string kUnblockPin = "8424000008A1B2C3D4E5F60718";
const std::string kPutData = "04DA9F790A000000050000DEADBEEF";
const std::string kBlock = "841E00000411223344";

class IssuerScript : public ReaderTest {
protected:
    IssuerScript()
    {
        m_VrICType = 1;
        openLink();
    }
    ~IssuerScript() override { closeLink(); }

    // The buffer is exactly as long as the script: a byte read behind it is found out.
    int run(const std::string& script)
    {
        const Bytes bytes = fromHex(script);
        count = -77;
        return vrdk_exeicscript(bytes.data(), static_cast<int>(bytes.size()), &count);
    }

    int count = -77;
};

} // namespace

TEST_F(IssuerScript, SendsTwoCommandsThatTheCardAccepts)
{
    reader.apdu("8424000000", "9000").apdu("8424000000", "9000");
    EXPECT_EQ(run("9F1804000000018605842400000086058424000000"), 0);
    EXPECT_EQ(count, 2);
}

TEST_F(IssuerScript, StopsAtTheFirstRefusalAndCountsIt)
{
    reader.apdu("8424000000", "6985");
    EXPECT_EQ(run("9F1804000000018605842400000086058424000000"), 0x6985);
    EXPECT_EQ(count, 1);
}

TEST_F(IssuerScript, SendsCommandsInTheirOrderAsTheyStand)
{
    reader.apdu(kPutData, "9000").apdu(kUnblockPin, "9000").apdu(kBlock, "9000");
    EXPECT_EQ(run(tlv("86", kPutData) + tlv("86", kUnblockPin) + tlv("86", kBlock)), 0);
    EXPECT_EQ(count, 3);
}

TEST_F(IssuerScript, StopsAtTheSecondOfThree)
{
    reader.apdu(kPutData, "9000").apdu(kUnblockPin, "6988");
    EXPECT_EQ(run(tlv("86", kPutData) + tlv("86", kUnblockPin) + tlv("86", kBlock)), 0x6988);
    EXPECT_EQ(count, 2);
}

TEST_F(IssuerScript, TakesAWarningForAFailure)
{
    reader.apdu(kUnblockPin, "63C2");
    EXPECT_EQ(run(tlv("86", kUnblockPin) + tlv("86", kBlock)), 0x63C2);
    EXPECT_EQ(count, 1);
}

TEST_F(IssuerScript, TakesStatus9001ForAFailure)
{
    reader.apdu(kUnblockPin, "9001");
    EXPECT_EQ(run(tlv("86", kUnblockPin) + tlv("86", kBlock)), 0x9001);
    EXPECT_EQ(count, 1);
}

TEST_F(IssuerScript, TakesStatus0000ForAFailure)
{
    for (const std::string response : {"0000", "A1A2A30000"}) {
        reader.apdu(kPutData, "9000").apdu(kUnblockPin, response);
        EXPECT_EQ(run(tlv("86", kPutData) + tlv("86", kUnblockPin) + tlv("86", kBlock)), -10);
        EXPECT_EQ(count, 2);
    }
}

TEST_F(IssuerScript, WithoutACommandSendsNothing)
{
    EXPECT_EQ(run("9F180411223344"), 0);
    EXPECT_EQ(count, 0);
}

TEST_F(IssuerScript, CountsAnEmptyCommandWithoutSendingIt)
{
    reader.apdu(kBlock, "9000");
    EXPECT_EQ(run("8600" + tlv("86", kBlock)), 0);
    EXPECT_EQ(count, 2);
}

TEST_F(IssuerScript, OfEmptyCommandsOnlySendsNothing)
{
    EXPECT_EQ(run("860086008600"), 0);
    EXPECT_EQ(count, 3);
}

TEST_F(IssuerScript, MayBeTheWholeTemplate)
{
    for (const char* tag : {"71", "72"}) {
        reader.apdu(kPutData, "9000").apdu(kBlock, "9000");
        EXPECT_EQ(run(tlv(tag, "9F1804AABBCCDD" + tlv("86", kPutData) + tlv("86", kBlock))), 0);
        EXPECT_EQ(count, 2);
    }
}

TEST_F(IssuerScript, RunsOnFromOneTemplateIntoTheNext)
{
    reader.apdu(kPutData, "9000").apdu(kBlock, "9000");
    EXPECT_EQ(run(tlv("71", tlv("86", kPutData)) + tlv("72", tlv("86", kBlock))), 0);
    EXPECT_EQ(count, 2);
}

TEST_F(IssuerScript, PassesOverOtherObjectsBetweenCommands)
{
    reader.apdu(kPutData, "9000").apdu(kBlock, "9000");
    EXPECT_EQ(run("0000" + tlv("86", kPutData) + "9F180400000086" + "8501FF" + tlv("86", kBlock) + "91028605"), 0);
    EXPECT_EQ(count, 2);
}

TEST_F(IssuerScript, FetchesAResponseThatTheCardHolds)
{
    reader.apdu(kPutData, "6107").apdu("00C0000007", "0102030405060790 00").apdu(kBlock, "9000");
    EXPECT_EQ(run(tlv("86", kPutData) + tlv("86", kBlock)), 0);
    EXPECT_EQ(count, 2);
}

TEST_F(IssuerScript, AsksForAResponseAfterAWarning62)
{
    reader.apdu(kPutData, "6283").apdu("00C0000000", "6A82");
    EXPECT_EQ(run(tlv("86", kPutData) + tlv("86", kBlock)), 0x6A82);
    EXPECT_EQ(count, 1);
}

TEST_F(IssuerScript, RepeatsACommandWithTheLengthThatTheCardNames)
{
    reader.apdu("80CA9F7900", "6C09").apdu("80CA9F7909", "9F79060000000100009000");
    EXPECT_EQ(run("860580CA9F7900"), 0);
    EXPECT_EQ(count, 1);
}

TEST_F(IssuerScript, HasRoomForAFollowUpBehindAShortCommand)
{
    reader.apdu("80", "6105").apdu("00C0000005", "01020304059000");
    EXPECT_EQ(run("860180"), 0);
    EXPECT_EQ(count, 1);
}

TEST_F(IssuerScript, SendsCommandsWithTheLongerLengthForm)
{
    const std::string longCommand = "04DC02147B" + repeated("5A", 123); // 128 bytes
    const std::string longest = "04DC0214FA" + repeated("A5", 250);     // 255 bytes
    reader.apdu(longCommand, "9000").apdu(longest, "9000").apdu(kBlock, "9000");
    EXPECT_EQ(run(tlv("86", longCommand) + tlv("86", longest) + tlv("86", kBlock)), 0);
    EXPECT_EQ(count, 3);
}

TEST_F(IssuerScript, FailsAtTheCommandBehindALongOne)
{
    const std::string longCommand = "04DC02147B" + repeated("5A", 123);
    reader.apdu(longCommand, "9000").apdu(kBlock, "6A88");
    EXPECT_EQ(run(tlv("86", longCommand) + tlv("86", kBlock) + tlv("86", kPutData)), 0x6A88);
    EXPECT_EQ(count, 2);
}

TEST_F(IssuerScript, ReturnsTheReadersFailureAndCountsTheCommand)
{
    const struct {
        std::uint8_t status;
        int result;
    } table[] = {{0x02, -9}, {0x06, -9}, {0x04, -10}, {0xE0, -10}};
    for (const auto& row : table) {
        reader.apdu(kPutData, "9000").command("322600" + kBlock, "", row.status);
        EXPECT_EQ(run(tlv("86", kPutData) + tlv("86", kBlock) + tlv("86", kPutData)), row.result);
        EXPECT_EQ(count, 2);
    }
}

TEST_F(IssuerScript, ReturnsAMissingReplyAndCountsTheCommand)
{
    reader.silent("322600" + kPutData);
    EXPECT_EQ(run(tlv("86", kPutData) + tlv("86", kBlock)), -11);
    EXPECT_EQ(count, 1);
}

TEST_F(IssuerScript, GoesToTheFieldWhenTheCardWasFoundThere)
{
    m_VrICType = 2;
    reader.slot(0xFF).apdu(kBlock, "9000");
    EXPECT_EQ(run(tlv("86", kBlock)), 0);
    EXPECT_EQ(count, 1);
}

TEST_F(IssuerScript, EndsAtPadding)
{
    reader.apdu(kBlock, "9000");
    EXPECT_EQ(run(tlv("86", kBlock) + "FFFF" + tlv("86", kPutData)), 0);
    EXPECT_EQ(count, 1);
}

TEST_F(IssuerScript, OfNoLengthHoldsNoCommand)
{
    const Bytes behind = fromHex(tlv("86", kBlock));
    EXPECT_EQ(vrdk_exeicscript(behind.data(), 0, &count), 0);
    EXPECT_EQ(count, 0);
}

TEST_F(IssuerScript, NeverSendsWhatStandsBehindTheScript)
{
    // The second command promises more than the script holds; only what is there can go to the card.
    reader.apdu(kBlock, "9000").apdu("842400", "6700");
    EXPECT_EQ(run(tlv("86", kBlock) + "8608842400"), 0x6700);
    EXPECT_EQ(count, 2);
}

TEST_F(IssuerScript, CutInsideALengthFieldStillEnds)
{
    EXPECT_EQ(run("86"), 0);
    EXPECT_EQ(count, 1);
    EXPECT_EQ(run("8681"), 0);
    EXPECT_EQ(count, 1);
}

TEST_F(IssuerScript, SendsAsManyBytesOfACommandAsTheLowOfTwoLengthBytesSays)
{
    // 261 bytes, of which five go to the card, and 256, of which none does. The next command comes behind them all.
    const std::string behind = repeated("86", 256);
    reader.apdu("8424000000", "9000").apdu(kBlock, "9000");
    EXPECT_EQ(run("86820105"
                  "8424000000" +
                  behind + "86820100" + behind + tlv("86", kBlock)),
              0);
    EXPECT_EQ(count, 3);
}

TEST_F(IssuerScript, GoesOnBehindAZeroWhereATagIsExpected)
{
    reader.apdu(kPutData, "9000").apdu(kBlock, "9000");
    EXPECT_EQ(run("0000" + tlv("86", kPutData) + "00028600" + tlv("86", kBlock)), 0);
    EXPECT_EQ(count, 2);
}
