// SPDX-License-Identifier: Apache-2.0
// An online transaction.
#include "tools/running_tool.h"

namespace {

using namespace vorn::test;

TEST_F(ToolTest, ASaleShowsItsStepsAndIsApproved)
{
    const Result result = run(scratch, {"sale", "--sim", "debit", "--amount", "123.45"});
    EXPECT_EQ(result.code, kOk) << result.output << result.errors;
    for (const char* const text :
         {"SELECT A000000333010101", "\"PBOC DEBIT\"", "asking for ARQC", "ARQC verified", "approve",
          "EXTERNAL AUTHENTICATE", "asking for TC", "PUT DATA 9F77", "script        done", "TC verified", "approved"}) {
        EXPECT_TRUE(result.says(text)) << text << result.output;
    }
    EXPECT_FALSE(result.says("vr_comportparam"));
}

TEST_F(ToolTest, ASaleInJsonHasAllItsSteps)
{
    const Result result = run(scratch, {"sale", "--sim", "debit", "--amount", "123.45", "--date", "2026-03-15",
                                        "--time", "14:30:00", "--unpredictable", "01020304", "--json", "--show"});
    ASSERT_EQ(result.code, kOk) << result.errors;
    const Json sale = result.json();
    EXPECT_EQ(sale["outcome"], "approved");
    EXPECT_EQ(sale["transaction"],
              "P012000000012345Q012000000000000R0040156J0040156S006260315U006143000T00200K00801020304");
    EXPECT_EQ(sale["arqc"]["items"]["5A"], kPan + "F");
    EXPECT_EQ(sale["arqc"]["items"]["9F02"], "000000012345");
    EXPECT_EQ(sale["arqc"]["items"]["9A"], "260315");
    EXPECT_EQ(sale["tc"]["items"]["9F37"], "01020304");
    EXPECT_EQ(sale["issuer"]["decision"], "approve");
    EXPECT_EQ(sale["issuer"]["arqcVerified"], true);
    EXPECT_EQ(sale["completion"]["tcVerified"], true);
    EXPECT_FALSE(sale["cardAccount"].empty());
    EXPECT_GT(sale["steps"].size(), 8U);
    EXPECT_EQ(sale["steps"][0]["phase"], "request");
    EXPECT_EQ(sale["steps"].back()["phase"], "completion");
}

TEST_F(ToolTest, TheSimulatedCardSaysWhyItRefusesAWrongKey)
{
    const Result result = run(scratch, {"sale", "--sim", "debit", "--amount", "123.45", "--wrong-issuer-key"});
    EXPECT_EQ(result.code, kCardRefused);
    EXPECT_TRUE(result.says("ARQC wrong"));
    EXPECT_TRUE(result.says("The simulated card's own account:"));
    EXPECT_TRUE(result.says("ARPC wrong")) << result.output;
    EXPECT_TRUE(result.complains("refused"));
    const Result json = run(scratch, {"sale", "--sim", "debit", "--amount", "123.45", "--wrong-issuer-key", "--json"});
    EXPECT_EQ(json.code, kCardRefused);
    EXPECT_EQ(json.json()["outcome"], "failed");
    EXPECT_EQ(json.json()["issuer"]["arqcVerified"], false);
}

TEST_F(ToolTest, ADeclinedSaleIsNotAnError)
{
    const Result result = run(scratch, {"sale", "--sim", "debit", "--amount", "30000.00"});
    EXPECT_EQ(result.code, kDeclined) << result.output << result.errors;
    EXPECT_TRUE(result.says("decline"));
    EXPECT_TRUE(result.says("asking for AAC"));
}

TEST_F(ToolTest, TheHostsAnswerIsTakenAsText)
{
    const Result result =
        run(scratch, {"sale", "--sim", "debit", "--amount", "123.45", "--arpc", "910A00000000000000003531"});
    EXPECT_EQ(result.code, kDeclined) << result.errors;
    const Result noData = run(scratch, {"sale", "--sim", "debit", "--amount", "123.45", "--arpc", "8A023030"});
    EXPECT_EQ(noData.code, kMissing);
    EXPECT_TRUE(noData.complains("91"));
}

TEST_F(ToolTest, TheHostsAnswerIsReadFromStandardInput)
{
    Process sale(scratch, {"sale", "--sim", "debit", "--amount", "123.45", "--ask", "--json"});
    const std::string line = sale.outputLine();
    ASSERT_TRUE(Json::accept(line)) << line;
    const std::string arqc = Json::parse(line)["arqc"];
    EXPECT_EQ(arqc.substr(0, 6), "9F2608");
    EXPECT_NE(arqc.find(kPan), std::string::npos);
    sale.write("910A00000000000000003531\n");
    std::string output, errors;
    EXPECT_EQ(sale.finish(output, errors), kDeclined) << errors;
    EXPECT_EQ(Json::parse(output)["outcome"], "declined");
    EXPECT_EQ(run(scratch, {"sale", "--sim", "debit", "--amount", "123.45", "--ask"}).code, kMissing);
}

// A reader at a port has somebody's card in it.
TEST_F(ToolTest, TheSimulatedIssuerAnswersAPortOnlyWhenToldSo)
{
    Process reader(scratch, {"sim", "debit"});
    const std::string port = reader.outputLine();
    const Result asked = run(scratch, {"sale", "--port", port, "--amount", "123.45"});
    EXPECT_EQ(asked.code, kMissing) << asked.output;
    EXPECT_FALSE(asked.says("EXTERNAL AUTHENTICATE"));
    EXPECT_EQ(run(scratch, {"sale", "--sim", "debit", "--simulated-issuer-on-real-card", "debit"}).code, kUsage);

    const Result told =
        run(scratch, {"sale", "--port", port, "--amount", "123.45", "--simulated-issuer-on-real-card", "debit"});
    EXPECT_EQ(told.code, kOk) << told.output << told.errors;
    const Json card = run(scratch, {"info", "--port", port, "--json"}).json();
    EXPECT_EQ(card["ecBalanceLimit"], "2000.00"); // what the script was for
}

TEST_F(ToolTest, AScriptThatFailsLeavesTheSaleApproved)
{
    Json profile = Json::parse(contents(VORN_PROFILES_OF_TEST "/debit.json"));
    profile["issuer"]["scripts"] =
        Json::parse(R"([{"template": "72", "commands": [{"set_limit": 1, "wrong_mac": true}]}])");
    const Result result =
        run(scratch, {"sale", "--sim", scratch.file("script.json", profile.dump()), "--amount", "123.45"});
    EXPECT_EQ(result.code, kScriptFailed) << result.output << result.errors;
    EXPECT_TRUE(result.says("failed at command 1"));
    EXPECT_TRUE(result.says("TC verified"));
}

// ---------------------------------------------------------------- outcomes that are neither yes nor no

TEST_F(ToolTest, ALostAnswerToTheLastCommandIsAnUnknownOutcome)
{
    const Result result =
        run(scratch, {"sale", "--sim", "debit", "--amount", "123.45", "--fault", "silence@14", "--json"});
    EXPECT_EQ(result.code, kUnknown) << result.errors;
    EXPECT_EQ(result.json()["outcome"], "unknown");
    EXPECT_EQ(result.json()["error"]["code"], kUnknown);
    EXPECT_NE(result.json()["error"]["hint"].get<std::string>().find("reversal"), std::string::npos);
}

TEST_F(ToolTest, AReferralIsNoApproval)
{
    const Result result = run(scratch, {"sale", "--sim", "debit", "--amount", "6000", "--json"});
    EXPECT_EQ(result.code, kReferral) << result.output << result.errors;
    EXPECT_EQ(result.json()["outcome"], "referral");
}

TEST_F(ToolTest, ARealReaderIsAskedForNoAmountThatNobodyNamed)
{
    const Result result = run(scratch, {"sale", "--port", "ttyNone7"});
    EXPECT_EQ(result.code, kUsage);
    EXPECT_TRUE(result.complains("--amount"));
}

TEST_F(ToolTest, TheUnpredictableNumberIsAnother)
{
    const auto number = [this] {
        const Json sale = run(scratch, {"sale", "--sim", "debit", "--json"}).json();
        return sale["arqc"]["items"]["9F37"].get<std::string>();
    };
    EXPECT_NE(number(), number());
}

// What a counter application does with a simulated reader in one process and its issuer in others.
TEST_F(ToolTest, AProfilesIssuerAnswersForASaleElsewhere)
{
    const Arguments sale{"sale", "--sim", "debit", "--amount", "123.45", "--ask", "--json"};
    Process process(scratch, sale);
    const std::string arqc = Json::parse(process.outputLine()).at("arqc");
    const Result issuer = run(scratch, {"issuer", "debit", "-"}, arqc + "\n");
    EXPECT_EQ(issuer.code, kOk) << issuer.errors;
    EXPECT_TRUE(issuer.complains("ARQC verified")) << issuer.errors;
    EXPECT_TRUE(issuer.complains("approve")) << issuer.errors;
    EXPECT_FALSE(issuer.complains(kPan));
    process.write(issuer.output);
    std::string output, errors;
    EXPECT_EQ(process.finish(output, errors), kOk) << errors;
    EXPECT_EQ(Json::parse(output).at("outcome"), "approved");

    const Json inJson = run(scratch, {"issuer", "debit", arqc, "--json"}).json();
    EXPECT_EQ(inJson.at("answer").get<std::string>() + "\n", issuer.output);
    EXPECT_EQ(inJson.at("arqcVerified"), true);
    EXPECT_EQ(inJson.at("responseCode"), "00");
}

TEST_F(ToolTest, AnIssuerWithAWrongKeyIsNotBelieved)
{
    Process process(scratch, {"sale", "--sim", "debit", "--amount", "123.45", "--ask", "--json"});
    const std::string arqc = Json::parse(process.outputLine()).at("arqc");
    process.write(run(scratch, {"issuer", "debit", arqc, "--wrong-key"}).output);
    std::string output, errors;
    EXPECT_EQ(process.finish(output, errors), kCardRefused) << errors;
    EXPECT_NE(output.find("issuer authentication failed"), std::string::npos) << output;
}

TEST_F(ToolTest, AnIssuerNeedsAnArqcAndAProfileThatHasOne)
{
    EXPECT_EQ(run(scratch, {"issuer", "debit", "9F2608"}).code, kUsage);
    EXPECT_EQ(run(scratch, {"issuer", "debit", "no hex"}).code, kUsage);
    EXPECT_EQ(run(scratch, {"issuer", "memory", "9F2608"}).code, kProfile);
    EXPECT_EQ(run(scratch, {"issuer", "debit", "-"}).code, kMissing);
}

} // namespace
