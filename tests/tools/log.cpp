// SPDX-License-Identifier: Apache-2.0
// A card's log of transactions.
#include "tools/running_tool.h"

namespace {

using namespace vorn::test;

TEST_F(ToolTest, LogIsATableThatSaysWhatItCannotTell)
{
    const Result result = run(scratch, {"log", "--sim", "debit"});
    EXPECT_EQ(result.code, kOk);
    for (const char* const text :
         {"2026-09-18", "18:30:42", "青禾超市城北店", "50.00", "cash (01)", "not told", "authorised"}) {
        EXPECT_TRUE(result.says(text)) << text << result.output;
    }
    EXPECT_FALSE(result.says("86.50"));
    const Json log = run(scratch, {"log", "--sim", "debit", "--json"}).json();
    ASSERT_EQ(log["transactions"].size(), 6U);
    EXPECT_EQ(log["transactions"][0]["atc"], "71");
    EXPECT_TRUE(log["transactions"][0]["amount"].is_null());
    EXPECT_FALSE(log["notTold"].empty());
}

std::string record(const std::string& merchantHex, const std::string& counter)
{
    return "260101120000000000000100000000000000"
           "01560156" +
           merchantHex + "00" + counter + "9000";
}

std::string logProfile(const std::vector<std::string>& records)
{
    const auto digits = [](std::size_t n) { return "0" + std::to_string(n); }; // of less than ten
    std::string pairs = R"(["00A40400*", "6F148408A000000333010101A508BF0C059F4D020B)" + digits(records.size()) +
                        R"(9000"], ["00A40402*", "6A82"])";
    for (std::size_t i = 0; i < records.size(); ++i) {
        pairs += ", [\"00B2" + digits(i + 1) + "5C00\", \"" + records[i] + "\"]";
    }
    return R"({"cards": [{"slot": "contact", "type": "transcript", "atr": "3B00", "otherwise": "6A83", "pairs": [)" +
           pairs + "]}]}";
}

TEST_F(ToolTest, LogFindsTheCounterBehindAnyName)
{
    // "X004ABCDX0041234P012", 20 bytes; ten Chinese characters, 30 bytes in UTF-8; an empty name.
    const std::string tricky = "5830303441424344583030343132333450303132";
    const std::string chinese = "C7E0BACCC7E0BACCC7E0BACCC7E0BACCC7E0BACC";
    const std::string empty(40, '0');
    const std::string profile =
        scratch.file("log.json", logProfile({record(tricky, "0011"), record(chinese, "0012"), record(empty, "0013")}));
    const Result result = run(scratch, {"log", "--sim", profile, "--aid", "A000000333010101", "--json"});
    ASSERT_EQ(result.code, kOk) << result.errors;
    const Json log = result.json()["transactions"];
    ASSERT_EQ(log.size(), 3U) << result.output;
    EXPECT_EQ(log[0]["merchant"], "X004ABCDX0041234P012");
    EXPECT_EQ(log[0]["atc"], "17");
    EXPECT_EQ(log[1]["merchant"], "青禾青禾青禾青禾青禾");
    EXPECT_EQ(log[1]["merchantBytesOnCard"], 20);
    EXPECT_EQ(log[1]["atc"], "18");
    EXPECT_EQ(log[2]["merchant"], "");
    EXPECT_EQ(log[2]["atc"], "19");
    EXPECT_TRUE(result.errors.empty());
}

TEST_F(ToolTest, AnEmptyLogAndNoLogAreNotTheSame)
{
    const Result empty =
        run(scratch, {"log", "--sim", scratch.file("e.json", logProfile({})), "--aid", "A000000333010101"});
    EXPECT_EQ(empty.code, kOk) << empty.errors;
    EXPECT_TRUE(empty.says("The log is empty."));
    const std::string noEntry = scratch.file("n.json", R"({"cards": [{"slot": "contact", "type": "transcript",
        "atr": "3B00", "pairs": [["00A40400*", "6F0A8408A0000003330101019000"], ["00A40402*", "6A82"]]}]})");
    EXPECT_EQ(run(scratch, {"log", "--sim", noEntry, "--aid", "A000000333010101"}).code, kMissing);
}

} // namespace
