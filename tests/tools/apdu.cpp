// SPDX-License-Identifier: Apache-2.0
// Answers to reset, and commands sent to a card.
#include "tools/running_tool.h"

namespace {

using namespace vorn::test;

TEST_F(ToolTest, AtrIsTakenApart)
{
    const Result user = run(scratch, {"atr", "--sim", "debit"});
    EXPECT_EQ(user.code, kOk);
    EXPECT_TRUE(user.says("Card  contact"));
    EXPECT_TRUE(user.says("\"QINGHEDEBIT01\""));
    const Json sam = run(scratch, {"atr", "--sim", "psam", "--psam", "2", "--json"}).json();
    EXPECT_EQ(sam["card"], "psam2");
    EXPECT_EQ(sam["atr"], "3B6800000102030405060708");
    EXPECT_EQ(sam["parts"][0]["name"], "TS");
    EXPECT_EQ(run(scratch, {"atr", "--sim", "psam", "--psam", "3"}).code, kNoCard);
    const Json checked = run(scratch, {"decode", "--atr", "3B8001", "--json"}).json();
    EXPECT_EQ(checked["objects"].back()["title"], "TCK");
}

TEST_F(ToolTest, ApduShowsStatusWords)
{
    const Result found = run(scratch, {"apdu", "--sim", "debit", "00 A4 04 00 08 A000000333010101"});
    EXPECT_EQ(found.code, kOk);
    EXPECT_TRUE(found.says("< 9000 (done)"));
    const Result missing = run(scratch, {"apdu", "--sim", "debit", "00A4040008A000000333999999"});
    EXPECT_EQ(missing.code, kCardRefused);
    EXPECT_TRUE(missing.says("< 6A82 (file or application not found)"));
    EXPECT_EQ(run(scratch, {"apdu", "--sim", "debit", "--any-status", "00A4040008A000000333999999"}).code, kOk);
}

TEST_F(ToolTest, ApduFetchesWhatIsAnnounced)
{
    const Result more = run(scratch, {"apdu", "--sim", "psam", "--psam", "2", "00A40000023F00", "00B0950000"});
    EXPECT_EQ(more.code, kOk) << more.output;
    EXPECT_TRUE(more.says("< 6106 (done, 6 bytes more to fetch)\n> 00C0000006"));
    EXPECT_TRUE(more.says("< 6C04 (wrong Le, 4 bytes are there)\n> 00B0950004"));
    const Result plain = run(scratch, {"apdu", "--sim", "psam", "--psam", "2", "--no-follow", "00A40000023F00"});
    EXPECT_EQ(plain.code, kCardRefused);
    EXPECT_FALSE(plain.says("00C0000006"));
}

TEST_F(ToolTest, ApduReadsCommandsFromStandardInput)
{
    const Result result = run(scratch, {"apdu", "--sim", "psam", "--psam", "1", "-"},
                              "# the file system\n00A40000023F00\n\n00B0960006 # terminal number\n");
    EXPECT_EQ(result.code, kOk) << result.errors;
    EXPECT_TRUE(result.says("< 010000000027"));
}

TEST_F(ToolTest, ApduDoesNotRepeatAPin)
{
    const Result hidden = run(scratch, {"apdu", "--sim", "debit", "--any-status", "0020008008241234FFFFFFFFFF"});
    EXPECT_EQ(hidden.output.find("241234"), std::string::npos);
    const Result shown =
        run(scratch, {"apdu", "--sim", "debit", "--any-status", "--show", "0020008008241234FFFFFFFFFF"});
    EXPECT_TRUE(shown.says("241234"));
}

} // namespace
