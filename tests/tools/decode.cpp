// SPDX-License-Identifier: Apache-2.0
// vorn decode of what comes piece by piece.
#include "tools/running_tool.h"

namespace {

using namespace vorn::test;

// `tail -f ICC_COMM_VORN.log | vorn decode`
TEST_F(ToolTest, ALogIsToldWhileItIsStillWritten)
{
    const std::string logs = (scratch.path() / "logs").string();
    ASSERT_EQ(run(scratch, {"info", "--sim", "debit", "--log-dir", logs}).code, kOk);
    const std::string log = contents(logs + "/ICC_COMM_VORN.log");
    const Result whole = run(scratch, {"decode"}, log + log);
    ASSERT_EQ(whole.code, kOk) << whole.errors;

    // A writer that wants not to wait may share the descriptor: then reading does not wait either.
    for (const int flags : {0, O_NONBLOCK}) {
        Process process(scratch, {"decode"}, -1, false, flags);
        process.write(log);
        process.write(log.substr(0, log.find('\n', log.size() / 2) + 1));
        const auto isTold = [](const std::string& text) { return text.find("IC_GetInfo") != std::string::npos; };
        std::string output = process.outputUntil(isTold);
        EXPECT_TRUE(isTold(output)) << flags;
        process.write(log.substr(log.find('\n', log.size() / 2) + 1));
        process.closeInput();
        std::string errors;
        EXPECT_EQ(process.finish(output, errors), kOk) << errors;
        EXPECT_EQ(output, whole.output) << flags;
    }
}

TEST_F(ToolTest, HexThatComesInPiecesIsOneObject)
{
    Process process(scratch, {"decode"});
    process.write("6F0A8408");
    process.write("A0000003");
    process.write("33010101\n");
    process.closeInput();
    std::string output;
    std::string errors;
    EXPECT_EQ(process.finish(output, errors), kOk) << errors;
    EXPECT_EQ(output, run(scratch, {"decode", "6F0A8408A000000333010101"}).output);
}

TEST_F(ToolTest, AnInputThatCannotBeReadIsSaidSo)
{
    const Result result = run(scratch, {"decode", "/proc/self/mem"});
    EXPECT_EQ(result.code, kUsage);
    EXPECT_TRUE(result.complains("the input cannot be read: Input/output error")) << result.errors;
}

} // namespace
