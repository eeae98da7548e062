// SPDX-License-Identifier: Apache-2.0
// A debit/credit card's data.
#include "tools/running_tool.h"

namespace {

using namespace vorn::test;

TEST_F(ToolTest, InfoShowsTheCardsData)
{
    const Result result = run(scratch, {"info", "--sim", "debit"});
    EXPECT_EQ(result.code, kOk);
    for (const char* const text :
         {"Read through                contact", "A000000333010101 PBOC DEBIT", "622999*********6589", "356.80",
          "1000.00", "500.00", "2030-12-31", "欧***", "identity card (00)"}) {
        EXPECT_TRUE(result.says(text)) << text << result.output;
    }
    EXPECT_FALSE(result.says("199003150017"));
    EXPECT_TRUE(result.errors.empty()) << result.errors;
}

TEST_F(ToolTest, InfoShowsAllWhenAsked)
{
    const Json shown = run(scratch, {"info", "--sim", "debit", "--json", "--show"}).json();
    EXPECT_EQ(shown["pan"], kPan);
    EXPECT_EQ(shown["track2"], kPan + "=301222000007287");
    EXPECT_EQ(shown["documentNumber"], "000000199003150017");
    EXPECT_EQ(shown["masked"], false);
    const Json masked = run(scratch, {"info", "--sim", "debit", "--json"}).json();
    EXPECT_EQ(masked["pan"], kMaskedPan);
    EXPECT_EQ(masked["track2"], kMaskedPan + "=***************");
    EXPECT_EQ(masked["name"], "欧***");
    EXPECT_EQ(shown["name"], "欧阳晓明");
    EXPECT_EQ(masked["masked"], true);
}

TEST_F(ToolTest, InfoPrintsTheRecordAsItStands)
{
    const Result result = run(scratch, {"info", "--sim", "debit", "--raw"});
    EXPECT_EQ(result.code, kOk);
    EXPECT_EQ(result.output.substr(0, 4 + kPan.size()), "A019" + kPan);
    EXPECT_EQ(result.output.back(), '\n');
}

TEST_F(ToolTest, InfoTellsMissingDataFromOtherAnswers)
{
    const Json credit = run(scratch, {"info", "--sim", "credit", "--json"}).json();
    EXPECT_TRUE(credit.contains("ecBalance"));
    EXPECT_TRUE(credit["ecBalance"].is_null());
    // GET DATA 9F79 is answered with another object: the record then has no field C.
    const std::string profile = scratch.file("other.json", R"({"cards": [{"slot": "contact", "type": "transcript",
        "atr": "3B00", "otherwise": "6A88", "pairs": [
        ["00A40400*", "6F0A8408A0000003330101019000"], ["00A40402*", "6A82"],
        ["80A8*", "80064000080101009000"], ["80CA9F7900", "9F780600000000000190 00"],
        ["00B2010C00", "70065F24033012319000"]]}]})");
    const Result result = run(scratch, {"info", "--sim", profile, "--aid", "A000000333010101", "--json"});
    ASSERT_EQ(result.code, kOk) << result.errors;
    EXPECT_FALSE(result.json().contains("ecBalance"));
    EXPECT_TRUE(result.json()["ecBalanceLimit"].is_null());
}

TEST_F(ToolTest, InfoReadsThroughTheInterfaceNamed)
{
    EXPECT_EQ(run(scratch, {"info", "--sim", "debit", "--contact"}).code, kOk);
    EXPECT_EQ(run(scratch, {"info", "--sim", "debit", "--contactless", "--wait", "0"}).code, kNoCard);
}

TEST_F(ToolTest, InfoSelectsTheApplicationNamed)
{
    const Json first = run(scratch, {"info", "--sim", "multi", "--json"}).json();
    const Json second = run(scratch, {"info", "--sim", "multi", "--json", "--aid", "A000000333010102"}).json();
    EXPECT_NE(first["pan"], second["pan"]);
    EXPECT_EQ(second["pan"], "625099******7187");
}

TEST_F(ToolTest, ACardWithoutApplicationSaysSo)
{
    const Result result = run(scratch, {"info", "--sim", "wallet"});
    EXPECT_EQ(result.code, kNoApplication);
    EXPECT_TRUE(result.complains("no application"));
    EXPECT_TRUE(result.complains("--aid"));
}

TEST_F(ToolTest, ControlCharactersOfACardDoNotReachTheTerminal)
{
    const std::string profile = scratch.file("escape.json", R"({"cards": [{"slot": "contact", "type": "transcript",
        "atr": "3B00", "otherwise": "6A88", "pairs": [
        ["00A40400*", "6F0A8408A0000003330101019000"], ["00A40402*", "6A82"],
        ["80A8*", "80064000080101009000"], ["00B2010C00", "70095F20061B5B324A41429000"]]}]})");
    const Result result = run(scratch, {"info", "--sim", profile, "--aid", "A000000333010101", "--show"});
    ASSERT_EQ(result.code, kOk) << result.errors;
    EXPECT_EQ(result.output.find('\x1B'), std::string::npos);
    EXPECT_TRUE(result.says("?[2JAB"));
}

} // namespace
