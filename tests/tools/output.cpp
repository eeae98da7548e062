// SPDX-License-Identifier: Apache-2.0
// Where results, remarks and log files go.
#include "tools/cli/output.h"

#include "tools/running_tool.h"

namespace {

using namespace vorn::test;

// The name of a port or a file need not be text; documents on the terminal and in files are made alike.
TEST(JsonText, HasACharacterInPlaceOfWhatIsNoUtf8)
{
    const vorn::tool::Json document = {{"reader", "reader at tty\xFF"}};
    EXPECT_EQ(vorn::tool::jsonText(document, -1), "{\"reader\":\"reader at tty\xEF\xBF\xBD\"}");
    EXPECT_EQ(vorn::tool::jsonText(document), "{\n  \"reader\": \"reader at tty\xEF\xBF\xBD\"\n}");
}

TEST_F(ToolTest, NothingRemainsOfTheLogFiles)
{
    EXPECT_EQ(run(scratch, {"info", "--sim", "debit"}).code, kOk);
    EXPECT_EQ(run(scratch, {"info", "--sim", "wallet"}).code, kNoApplication);
    EXPECT_TRUE(fs::is_empty(scratch.temporary()));
}

TEST_F(ToolTest, ANamedLogDirectoryIsPrivateAndKept)
{
    const fs::path logs = scratch.path() / "logs";
    const Result result = run(scratch, {"info", "--sim", "debit", "--log-dir", logs.string()});
    EXPECT_EQ(result.code, kOk);
    EXPECT_EQ(fs::status(logs).permissions(), fs::perms::owner_all);
    for (const char* const name : {"vr_log.txt", "ICC_COMM_VORN.log"}) {
        EXPECT_TRUE(fs::exists(logs / name)) << name;
        EXPECT_EQ(fs::status(logs / name).permissions(), fs::perms::owner_read | fs::perms::owner_write) << name;
    }
    EXPECT_NE(contents(logs / "ICC_COMM_VORN.log").find(kPan), std::string::npos);
    EXPECT_TRUE(result.complains(logs.string()));
}

TEST_F(ToolTest, KeptLogsAreNamed)
{
    const Result result = run(scratch, {"info", "--sim", "debit", "--keep-logs"});
    EXPECT_EQ(result.code, kOk);
    ASSERT_FALSE(fs::is_empty(scratch.temporary()));
    const fs::path kept = fs::directory_iterator(scratch.temporary())->path();
    EXPECT_TRUE(result.complains(kept.string()));
    EXPECT_EQ(fs::status(kept).permissions(), fs::perms::owner_all);
}

TEST_F(ToolTest, AReaderOfThePipeThatGoesAwayEndsTheToolQuietly)
{
    std::array<int, 2> closed{};
    ASSERT_EQ(::pipe2(closed.data(), O_CLOEXEC), 0);
    ::close(closed[0]);
    const Result result = run(scratch, {"info", "--sim", "debit"}, "", closed[1]);
    ::close(closed[1]);
    EXPECT_EQ(result.code, kOutput);
    EXPECT_TRUE(result.errors.empty()) << result.errors;
    EXPECT_TRUE(fs::is_empty(scratch.temporary()));
}

TEST_F(ToolTest, AResultThatCannotBeWrittenIsAnError)
{
    const int full = ::open("/dev/full", O_WRONLY | O_CLOEXEC);
    ASSERT_GE(full, 0);
    for (const Arguments& line : {Arguments{"info", "--sim", "debit"}, {"sale", "--sim", "debit"}}) {
        const Result result = run(scratch, line, "", full);
        EXPECT_EQ(result.code, kOutput) << line[0];
        EXPECT_TRUE(result.complains("could not be written"));
    }
    ::close(full);
    EXPECT_TRUE(fs::is_empty(scratch.temporary()));
}

TEST_F(ToolTest, JsonIsAloneOnStandardOutput)
{
    const Arguments lines[] = {{"info", "--sim", "debit"},
                               {"atr", "--sim", "debit"},
                               {"apdu", "--sim", "debit", "00A404000E315041592E5359532E4444463031"},
                               {"sale", "--sim", "debit"},
                               {"log", "--sim", "debit"},
                               {"m1", "activate", "--sim", "memory"},
                               {"m1", "auth", "--sim", "memory", "--block", "16"},
                               {"m1", "read", "--sim", "memory", "--block", "16"},
                               {"wallet", "--sim", "wallet"},
                               {"device", "--sim", "debit"},
                               {"decode", "5A081234567890123456"},
                               {"sim", "--list"}};
    for (const Arguments& line : lines) {
        const Result result = run(scratch, with(line, {"--json"}));
        EXPECT_EQ(result.code, kOk) << line[0] << result.errors;
        EXPECT_TRUE(Json::accept(result.output)) << line[0] << result.output;
    }
}

TEST_F(ToolTest, AccountNumbersAreMaskedEverywhere)
{
    const Arguments lines[] = {{"info", "--sim", "debit"},
                               {"info", "--sim", "debit", "--json"},
                               {"sale", "--sim", "debit", "-v"},
                               {"sale", "--sim", "debit", "--json"},
                               {"sale", "--sim", "debit", "--json", "--wrong-issuer-key"},
                               {"log", "--sim", "debit"},
                               {"apdu", "--sim", "debit", "00A4040008A000000333010101", "00B2010C00", "00B2011400"},
                               {"decode", "700B5A0A" + kPan + "F"}};
    for (const Arguments& line : lines) {
        const Result result = run(scratch, line);
        EXPECT_FALSE(result.output.empty()) << result.errors;
        EXPECT_EQ(result.output.find(kPan), std::string::npos) << result.output;
        EXPECT_EQ(result.errors.find(kPan), std::string::npos) << result.errors;
    }
}

} // namespace
