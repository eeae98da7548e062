// SPDX-License-Identifier: Apache-2.0
// Arguments and inputs that the tool does not take, or takes with a remark: the exit code and the words.
#include "tools/running_tool.h"

#include <string>

namespace vorn::test {
namespace {

struct Refusal {
    Arguments arguments;
    int code;
    const char* words; // among the messages
};

const Refusal kRefusals[] = {
    {{"info", "--port", "USB"}, kPort, "no reader on USB (3A5C:7E21)"},
    {{"info", "--port", "usb"}, kPort, "in capitals"},
    {{"info", "--port", "a:b"}, kUsage, "cannot be the name of a port"},
    {{"info", "--port", "null"}, kPort, "/dev/null is not a tty"},
    {{"info", "--port", "shm"}, kPort, "/dev/shm cannot be opened"},
    {{"replay", "missing.log"}, kUsage, "missing.log: No such file or directory"},
    {{"sim", "--replay", "missing.rec"}, kUsage, "missing.rec: No such file or directory"},
    {{"sim", "--replay", "/etc/passwd"}, kUsage, "/etc/passwd is no recording of a line"},
    {{"sale", "--sim", "debit", "--time", "25:00:00"}, kUsage, "is not a time"},
    {{"sale", "--sim", "debit", "--date", "2026-13-01"}, kUsage, "is not a date"},
    {{"sale", "--sim", "debit", "--currency", "12345"}, kUsage, "is not a currency or country code"},
    {{"sale", "--sim", "debit", "--merchant", "a name of twenty-one."}, kUsage, "longer than 20 bytes in GBK"},
    {{"decode", "--as", "nothing", "00"}, kUsage, "one of log, trace"},
    {{"decode", "--as", "apdu", "neither"}, kUsage, "not hex, two digits a byte: 'neither'"},
    {{"decode", "-", "--redact", "copy.log"}, kUsage, "--redact reads its log twice"},
    {{"m1", "restore", "--sim", "memory", "/dev/null"}, kUsage, "cannot be read, or is empty"},
};

TEST_F(ToolTest, SaysWhatItDoesNotTakeAndWhy)
{
    inParallel(std::size(kRefusals), [this](std::size_t i) {
        const Refusal& row = kRefusals[i];
        const Result result = run(scratch, row.arguments);
        EXPECT_EQ(result.code, row.code) << row.words << "\n" << result.errors;
        EXPECT_TRUE(result.complains(row.words)) << row.words << "\n" << result.errors;
        EXPECT_EQ(result.output, "") << row.words;
    });
}

std::string exchange(const std::string& marker, const std::string& command, const std::string& answer)
{
    return "Indata----------------------" + marker + "\n" + command + " \nOutdata----------------------" + marker +
           "\n" + answer + " \n";
}

TEST_F(ToolTest, ALogOfTwoCardsIsListedAndEitherIsPlayed)
{
    const std::string log =
        scratch.file("two.log", exchange("icc_poweron", "32 22 01 80 00", "3B 00") +
                                    exchange("capdu", "32 26 00 00 B2 01 0C 00", "70 00 90 00") +
                                    "IC_M1ReadCard start!\n" + exchange("icc_poweron", "32 22 01 80 00", "3B 01 FF") +
                                    exchange("capdu", "32 26 00 00 A4 04 00 02 3F 00", "6A 82") +
                                    "Indata----------------------capdu\n32 26 00 00 84 00 00 08 \n");
    const Result list = run(scratch, {"replay", log, "--list"});
    EXPECT_EQ(list.code, kOk);
    EXPECT_EQ(list.output, "1: contact, powered at line 1, 1 commands\n2: contact, powered at line 10, 1 commands\n");

    const Result last = run(scratch, {"replay", log});
    EXPECT_EQ(last.code, kOk);
    EXPECT_EQ(last.json()["cards"][0]["atr"], "3B01FF");
    for (const char* const words :
         {"the last of 2 cards", "1 exchanges that the log does not have as a whole", "memory-card calls"}) {
        EXPECT_TRUE(last.complains(words)) << words << "\n" << last.errors;
    }
    EXPECT_EQ(run(scratch, {"replay", log, "--card", "1"}).json()["cards"][0]["atr"], "3B00");
    const Result third = run(scratch, {"replay", log, "--card", "3"});
    EXPECT_EQ(third.code, kUsage);
    EXPECT_TRUE(third.complains("the log has only 2 cards"));
}

// Longer than any line of the library's, and without an end.
TEST_F(ToolTest, ACopyOfALogWithALineWithoutEndIsWhole)
{
    const std::string text = "begin\n" + std::string(150000, 'x') + " 6229991234566589 end";
    const std::string log = scratch.file("long.log", text);
    const std::string copy = (scratch.path() / "copy.log").string();
    const Result result = run(scratch, {"decode", log, "--redact", copy});
    EXPECT_EQ(result.code, kOk) << result.errors;
    std::ostringstream written;
    written << std::ifstream(copy).rdbuf();
    EXPECT_EQ(written.str(), "begin\n" + std::string(150000, 'x') + " 6229990000006589 end");
}

TEST_F(ToolTest, AMegabyteThatIsNoLogIsNotDecoded)
{
    const std::string big = scratch.file("big.txt", std::string(1200000, 'x'));
    const Result result = run(scratch, {"decode", big});
    EXPECT_EQ(result.code, kUsage);
    EXPECT_TRUE(result.complains("more than one megabyte, and no log of the library")) << result.errors;
}

TEST_F(ToolTest, AnImageThatIsNoneIsRefusedWithItsLine)
{
    const std::string line = std::string(32, '0') + "\n";
    const std::string shortOne = scratch.file("short.image", line + line);
    const std::string badLine = scratch.file("bad.image", line + "nothing\n" + line);
    const Result count = run(scratch, {"m1", "restore", "--sim", "memory", shortOne});
    EXPECT_EQ(count.code, kUsage);
    EXPECT_TRUE(count.complains("has 2 blocks")) << count.errors;
    const Result second = run(scratch, {"m1", "restore", "--sim", "memory", badLine});
    EXPECT_EQ(second.code, kUsage);
    EXPECT_TRUE(second.complains("line 2: 16 bytes of hex are expected")) << second.errors;
}

} // namespace
} // namespace vorn::test
