// SPDX-License-Identifier: Apache-2.0
// Command lines, ports, and what cannot be used.
#include "tools/running_tool.h"

namespace {

using namespace vorn::test;

TEST_F(ToolTest, HelpIsAResult)
{
    const Result result = run(scratch, {"--help"});
    EXPECT_EQ(result.code, kOk);
    EXPECT_TRUE(result.says("sale"));
    EXPECT_TRUE(result.errors.empty());
    const Result sub = run(scratch, {"info", "--help"});
    EXPECT_EQ(sub.code, kOk);
    EXPECT_TRUE(sub.says("--wait"));
}

TEST_F(ToolTest, WrongArgumentsAreUsageErrors)
{
    const Arguments lines[] = {{},
                               {"nothing"},
                               {"info"},
                               {"info", "--sim", "debit", "--port", "ttyS1"},
                               {"info", "--port", "ttyS1", "--paced"},
                               {"info", "--sim", "debit", "--tags", "AZ"},
                               {"info", "--sim", "debit", "--aid", "A00"},
                               {"info", "--sim", "debit", "--fault", "nonsense"},
                               {"atr", "--sim", "psam", "--psam", "5"},
                               {"apdu", "--sim", "debit", "00"},
                               {"m1", "write", "--sim", "memory", "--block", "4", "--data", "00"},
                               {"sale", "--sim", "debit", "--amount", "1.234"},
                               {"sale", "--sim", "debit", "--date", "2026-13-01"},
                               {"decode", "5"}};
    for (const Arguments& line : lines) {
        const Result result = run(scratch, line);
        EXPECT_EQ(result.code, kUsage) << testing::PrintToString(line) << result.errors;
        EXPECT_TRUE(result.output.empty());
        EXPECT_TRUE(result.complains("vorn: "));
    }
}

TEST_F(ToolTest, AProfileThatCannotBeUsedIsNamed)
{
    const Result unknown = run(scratch, {"info", "--sim", "nosuchprofile"});
    EXPECT_EQ(unknown.code, kProfile);
    EXPECT_TRUE(unknown.complains("nosuchprofile"));
    const Result broken = run(scratch, {"info", "--sim", scratch.file("broken.json", "{\"cards\": 3}")});
    EXPECT_EQ(broken.code, kProfile);
    EXPECT_TRUE(broken.complains("cards"));
}

TEST_F(ToolTest, APortThatCannotBeOpenedIsExplained)
{
    const Result missing = run(scratch, {"info", "--port", "ttyNone7"});
    EXPECT_EQ(missing.code, kPort);
    EXPECT_TRUE(missing.complains("no such port: /dev/ttyNone7"));
    const Result prefixed = run(scratch, {"info", "--port", "/dev/ttyNone7"});
    EXPECT_EQ(prefixed.code, kPort);
    EXPECT_TRUE(prefixed.complains("no such port: /dev/ttyNone7"));
    const Result noTty = run(scratch, {"info", "--port", "null"});
    EXPECT_EQ(noTty.code, kPort);
    EXPECT_TRUE(noTty.complains("not a tty"));
    const Result small = run(scratch, {"info", "--port", "usb"});
    EXPECT_EQ(small.code, kPort);
    EXPECT_TRUE(small.complains("--port USB"));
    const Result elsewhere = run(scratch, {"info", "--port", scratch.file("plain", "")});
    EXPECT_EQ(elsewhere.code, kPort);
}

TEST_F(ToolTest, APortWithoutPermissionIsNotTakenForAMissingOne)
{
    const int master = ::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    ASSERT_GE(master, 0);
    ASSERT_EQ(::grantpt(master), 0);
    ASSERT_EQ(::unlockpt(master), 0);
    const std::string path = ::ptsname(master);
    ASSERT_EQ(::chmod(path.c_str(), 0), 0);
    const bool root = ::geteuid() == 0;
    fs::permissions(scratch.path(), fs::perms::all);
    fs::permissions(scratch.temporary(), fs::perms::all);
    const Result result = run(scratch, {"info", "--port", path}, "", -1, root);
    ::close(master);
    if (result.code == 127) {
        GTEST_SKIP() << "another user may not run the tool here";
    }
    EXPECT_EQ(result.code, kPermission) << result.errors;
    EXPECT_TRUE(result.complains("dialout"));
}

TEST_F(ToolTest, ALinkToATerminalIsAPort)
{
    const std::string link = (scratch.path() / "reader").string();
    Process reader(scratch, {"sim", "debit", "--link", link});
    EXPECT_EQ(reader.outputLine().substr(0, 4), "pts/");
    const Result result = run(scratch, {"info", "--port", link});
    EXPECT_EQ(result.code, kOk) << result.errors;
    reader.signal(SIGTERM);
    std::string output, errors;
    EXPECT_EQ(reader.finish(output, errors), kOk);
    EXPECT_FALSE(fs::is_symlink(link));
}

TEST_F(ToolTest, VersionsAreTold)
{
    const Result result = run(scratch, {"--version"});
    EXPECT_EQ(result.code, kOk);
    EXPECT_TRUE(result.says("vorn 1.0.0 (commit "));
    EXPECT_TRUE(result.says("library 1.0.0.8, "));
    EXPECT_TRUE(result.says("ICC_COMM_VORN.so"));
}

TEST_F(ToolTest, HelpIsThereForEverySubcommand)
{
    EXPECT_TRUE(run(scratch, {"help", "info"}).says("--tags"));
    EXPECT_TRUE(run(scratch, {"help", "m1", "dump"}).says("--size"));
    const Result unknown = run(scratch, {"help", "nothing"});
    EXPECT_EQ(unknown.code, kUsage);
    EXPECT_TRUE(unknown.complains("no subcommand 'nothing'"));
}

TEST_F(ToolTest, AnUnknownSubcommandIsCalledSo)
{
    EXPECT_TRUE(run(scratch, {"nothing"}).complains("no subcommand 'nothing'"));
    EXPECT_TRUE(run(scratch, {"m1", "nothing"}).complains("no subcommand 'nothing'"));
    EXPECT_TRUE(run(scratch, {"infos", "--sim", "debit"}).complains("no subcommand 'infos'"));
}

TEST_F(ToolTest, FailuresAreDocumentsInJson)
{
    const Result silent = run(scratch, {"info", "--sim", "debit", "--json", "--fault", "silence@2"});
    EXPECT_EQ(silent.code, kSilent);
    const Json error = silent.json()["error"];
    EXPECT_EQ(error["code"], kSilent);
    EXPECT_EQ(error["library"], -26); // what the library made of it
    EXPECT_NE(error["message"].get<std::string>().find("does not answer"), std::string::npos);
    EXPECT_FALSE(error["hint"].get<std::string>().empty());
    for (const Arguments& line : {Arguments{"nothing"},
                                  {"info"},
                                  {"info", "--port", "ttyNone7"},
                                  {"m1", "read"},
                                  {"info", "--sim", "nosuchprofile"},
                                  {"sale", "--port", "ttyNone7"}}) {
        const Result result = run(scratch, with(line, {"--json"}));
        ASSERT_TRUE(Json::accept(result.output)) << line[0] << result.output;
        EXPECT_EQ(result.json()["error"]["code"], result.code);
    }
}

TEST_F(ToolTest, AFaultTakesOneValueAndCountsTheCallsOwnExchanges)
{
    const Result result = run(scratch, {"info", "--sim", "debit", "--fault", "silence@1"});
    EXPECT_EQ(result.code, kSilent);
    EXPECT_TRUE(result.complains("(power on)")) << result.errors;
    EXPECT_EQ(run(scratch, {"info", "--sim", "debit", "--fault", "delay=1@1", "delay=1@2"}).code, kUsage);
}

TEST_F(ToolTest, APortLiesBelowDev)
{
    for (const char* const name :
         {"../../etc/passwd", "/dev/../etc/passwd", "pts/../../etc/passwd", "..", "/etc/passwd"}) {
        const Result result = run(scratch, {"device", "--port", name});
        EXPECT_TRUE(result.code == kUsage || result.code == kPort) << name << result.code;
        EXPECT_TRUE(result.complains("below /dev")) << result.errors;
    }
}

} // namespace
