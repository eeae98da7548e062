// SPDX-License-Identifier: Apache-2.0
// A failure from the field at a desk: what a call does with a card, it does again with the card made from its log.
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

namespace {

namespace fs = std::filesystem;
using Json = nlohmann::json;

struct Result {
    int code = 0;
    std::string output, errors;
};

std::string contents(const fs::path& path)
{
    std::ostringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
}

class Replay : public testing::Test {
protected:
    Replay()
    {
        std::string name = (fs::temp_directory_path() / "vorn-replay-XXXXXX").string();
        scratch_ = ::mkdtemp(name.data());
    }
    ~Replay() override { fs::remove_all(scratch_); }

    // The arguments are words without blanks, or quoted for a shell.
    Result vorn(const std::string& arguments) const
    {
        const fs::path tool = fs::read_symlink("/proc/self/exe").parent_path().parent_path() / "vorn";
        const std::string line = "cd '" + scratch_.string() +
                                 "' && VORN_PROFILES='" VORN_PROFILES_OF_TEST "' TMPDIR=. '" + tool.string() +
                                 "' </dev/null " + arguments + " >out 2>err";
        const int status = std::system(line.c_str());
        return {WEXITSTATUS(status), contents(scratch_ / "out"), contents(scratch_ / "err")};
    }

    // Makes a card of what this wrote to its log.
    Result recorded(const std::string& arguments) const
    {
        fs::remove_all(scratch_ / "logs");
        fs::remove(scratch_ / "card.json");
        Result result = vorn(arguments + " --log-dir logs");
        const Result made = vorn("replay logs/ICC_COMM_VORN.log --output card.json");
        EXPECT_EQ(made.code, 0) << made.errors;
        return result;
    }

    std::string log() const { return contents(scratch_ / "logs" / "ICC_COMM_VORN.log"); }
    fs::path scratch() const { return scratch_; }

private:
    fs::path scratch_;
};

struct Row {
    const char* call; // and what it is given
    const char* profile;
};

TEST_F(Replay, EveryCallHasTheSameResult)
{
    const Row rows[] = {
        {"info --json --show", "debit"},
        {"info --json --show", "credit"},
        {"info --json --show --aid A000000333010103", "multi"},
        {"log --json", "debit"},
        {"wallet --json", "wallet"},
        {"apdu --json --show 00A4040008A000000333010101 0084000008 00B2010C00 80CA9F3600", "debit"},
        {"apdu --json --show --psam 1 0084000008", "psam"},
    };
    for (const Row& row : rows) {
        const Result before = recorded(std::string(row.call) + " --sim " + row.profile);
        ASSERT_EQ(before.code, 0) << row.call << before.errors;
        const Result after = vorn(std::string(row.call) + " --sim ./card.json");
        EXPECT_EQ(after.code, before.code) << row.call << after.errors;
        EXPECT_EQ(after.output, before.output) << row.call;
    }
}

struct SaleRow {
    const char* profile;
    const char* more;
    const char* outcome;
};

TEST_F(Replay, ASaleEndsTheSameWay)
{
    const SaleRow rows[] = {{"debit", "", "approved"}, {"credit", "--wrong-issuer-key", "failed"}};
    const std::string sale =
        "sale --json --show --amount 12.34 --date 2026-01-15 --time 09:30:00 --unpredictable 5A17C3E9 ";
    for (const SaleRow& row : rows) {
        const Result first = recorded(sale + row.more + " --sim " + row.profile);
        const Json before = Json::parse(first.output);
        ASSERT_EQ(before["outcome"], row.outcome) << first.errors;
        const std::string answer = before["issuer"]["answer"];
        const Result second = vorn(sale + "--sim ./card.json --arpc " + answer);
        const Json after = Json::parse(second.output);
        EXPECT_EQ(second.code, first.code) << second.errors;
        EXPECT_EQ(after["outcome"], before["outcome"]);
        EXPECT_EQ(after["steps"], before["steps"]);
        EXPECT_EQ(after["arqc"], before["arqc"]);
        EXPECT_EQ(after.value("tc", Json()), before.value("tc", Json()));
        EXPECT_EQ(after.value("scriptResult", Json()), before.value("scriptResult", Json()));
    }
}

TEST_F(Replay, ARedactedLogCanBeReplayedAndHoldsNoSecret)
{
    const Result before = recorded("info --json --sim debit");
    const Result copied = vorn("decode logs/ICC_COMM_VORN.log --redact copy.log");
    EXPECT_EQ(copied.code, 0) << copied.errors;
    EXPECT_NE(copied.errors.find("places changed"), std::string::npos);
    const std::string copy = contents(scratch() / "copy.log");
    EXPECT_EQ(copy.size(), log().size());
    for (const char* const secret : {"6229990000710246589", "62 29 99 00 00 71", "3012220000", "C5B7D1F4",
                                     "C5 B7 D1 F4", "3030303030303139393030333135", "30 30 30 30 30 30 31 39 39"}) {
        EXPECT_EQ(copy.find(secret), std::string::npos) << secret;
    }
    EXPECT_EQ(vorn("replay copy.log --output card.json --force").code, 0);
    const Json after = Json::parse(vorn("info --json --sim ./card.json").output);
    EXPECT_EQ(after["pan"], Json::parse(before.output)["pan"]) << "the masked digits are the ones replaced";
    EXPECT_EQ(after["ecBalance"], Json::parse(before.output)["ecBalance"]);
}

TEST_F(Replay, ATransactionLogHasNothingToRedact)
{
    const Result before = recorded("log --json --sim debit");
    EXPECT_EQ(vorn("decode logs/ICC_COMM_VORN.log --redact copy.log").code, 0);
    EXPECT_EQ(contents(scratch() / "copy.log"), log());
    EXPECT_FALSE(before.output.empty());
}

TEST_F(Replay, MemoryCardCallsLeaveNothingToReplay)
{
    ASSERT_EQ(vorn("m1 read --sim memory --block 4 --key A0A1A2A3A4A5 --log-dir logs").code, 0);
    const Result result = vorn("replay logs/ICC_COMM_VORN.log");
    EXPECT_EQ(result.code, 11);
    EXPECT_NE(result.errors.find("memory-card calls"), std::string::npos) << result.errors;
    EXPECT_TRUE(result.output.empty());
}

TEST_F(Replay, TheStoryOfAnyLogShowsNoSecret)
{
    recorded("sale --amount 12.34 --sim debit");
    for (const char* const form : {"decode logs/ICC_COMM_VORN.log", "decode logs/ICC_COMM_VORN.log --json",
                                   "decode logs/vr_log.txt", "decode - < logs/ICC_COMM_VORN.log"}) {
        const Result story = vorn(form);
        EXPECT_EQ(story.code, 0) << form << story.errors;
        for (const char* const secret : {"6229990000710246589", "C5B7D1F4", "3012220000"}) {
            EXPECT_EQ((story.output + story.errors).find(secret), std::string::npos) << form << secret;
        }
    }
    EXPECT_EQ(vorn("decode logs/ICC_COMM_VORN.log --html page.html").code, 0);
    EXPECT_EQ(contents(scratch() / "page.html").find("6229990000710246589"), std::string::npos);
    EXPECT_EQ(fs::status(scratch() / "page.html").permissions(), fs::perms::owner_read | fs::perms::owner_write);
    EXPECT_EQ(vorn("decode logs/ICC_COMM_VORN.log --html page.html").code, 18) << "a file is not replaced unasked";
}

TEST_F(Replay, GarbageIsNotEchoed)
{
    std::ofstream(scratch() / "garbage") << "card=6229990000710246589, and more of it\n";
    const Result result = vorn("decode garbage");
    EXPECT_EQ(result.code, 2);
    EXPECT_TRUE(result.output.empty());
    EXPECT_EQ(result.errors.find("6229"), std::string::npos) << result.errors;
    EXPECT_EQ(vorn("decode 'x6229990000710246589'").errors.find("6229"), std::string::npos);
}

} // namespace
