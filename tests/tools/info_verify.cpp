// SPDX-License-Identifier: Apache-2.0
// A card's offline data authentication, as the tool checks it.
#include "tools/running_tool.h"

#include <algorithm>

namespace {

using namespace vorn::test;

Result verify(const Scratch& scratch, const std::string& profile, const Arguments& more = {})
{
    Arguments arguments = {"info", "--sim", profile, "--verify"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return run(scratch, arguments);
}

// The steps of the JSON document that did not hold.
std::vector<std::string> failed(const Json& document)
{
    std::vector<std::string> names;
    for (const Json& step : document["offlineAuthentication"]["steps"]) {
        if (!step["held"]) {
            names.push_back(step["name"]);
        }
    }
    return names;
}

TEST_F(ToolTest, InfoVerifiesWhatTheCardOffers)
{
    const Result result = verify(scratch, "debit", {"--json", "--cda"});
    EXPECT_EQ(result.code, kOk) << result.errors;
    const Json checked = result.json()["offlineAuthentication"];
    EXPECT_EQ(checked["offered"], Json({"sda", "dda", "cda"}));
    EXPECT_EQ(checked["held"], true);
    EXPECT_EQ(checked["steps"].size(), 6U);
    EXPECT_EQ(result.json()["pan"], kMaskedPan) << "with the card's data";
}

TEST_F(ToolTest, InfoVerifiesCardsWithT0AndWithoutDynamicSignature)
{
    const Result result = verify(scratch, "credit", {"--json"});
    EXPECT_EQ(result.code, kOk) << result.errors;
    EXPECT_EQ(result.json()["offlineAuthentication"]["steps"].size(), 3U);
}

TEST_F(ToolTest, InfoVerifiesAContactlessCardAndPaysNothing)
{
    const Result result = verify(scratch, "contactless", {"--json"});
    EXPECT_EQ(result.code, kOk) << result.errors;
    EXPECT_EQ(result.json()["interface"], "contactless");
    EXPECT_EQ(result.json()["offlineAuthentication"]["steps"].size(), 4U);
    EXPECT_EQ(result.json()["ecBalance"], "300.00");
}

TEST_F(ToolTest, InfoAsksForNoSignedCryptogramOfItsOwnAccord)
{
    const Result result = verify(scratch, "debit", {"-v"});
    EXPECT_EQ(result.code, kOk) << result.errors;
    EXPECT_TRUE(result.says("dynamic signature (DDA)  held")) << result.output;
    EXPECT_TRUE(result.says("not asked for")) << result.output;
    EXPECT_TRUE(result.complains("INTERNAL AUTHENTICATE")) << result.errors;
    EXPECT_FALSE(result.complains("GENERATE AC")) << result.errors;
}

TEST_F(ToolTest, InfoNamesTheStepThatFails)
{
    struct Row {
        const char* profile;
        std::vector<std::string> steps;
    };
    const Row rows[] = {
        {"flawed-authority", {"authority's key"}},    {"flawed-hash", {"issuer's certificate"}},
        {"flawed-expired", {"issuer's certificate"}}, {"flawed-revoked", {"issuer's certificate"}},
        {"flawed-card-hash", {"card's certificate"}}, {"flawed-data", {"signed data (SDA)", "card's certificate"}},
        {"flawed-dda", {"dynamic signature (DDA)"}},  {"flawed-cda", {"signed cryptogram (CDA)"}}};
    for (const Row& row : rows) {
        const Result result = verify(scratch, row.profile, {"--json", "--cda"});
        EXPECT_EQ(result.code, kUnverified) << row.profile;
        EXPECT_EQ(failed(result.json()), row.steps) << row.profile;
        EXPECT_EQ(result.json()["error"]["code"], kUnverified);
    }
    const Result text = verify(scratch, "flawed-expired");
    EXPECT_EQ(text.code, kUnverified);
    EXPECT_TRUE(text.says("issuer's certificate     FAILED  it expired in 2024-12")) << text.output;
    EXPECT_TRUE(text.complains("issuer's certificate")) << text.errors;
}

TEST_F(ToolTest, InfoSaysThatACardOffersNoAuthentication)
{
    const Result result = verify(scratch, "multi", {"--aid", "A000000333010102"});
    EXPECT_EQ(result.code, kMissing);
    EXPECT_TRUE(result.says("the card offers none")) << result.output;
}

TEST_F(ToolTest, InfoChecksWithOtherAuthoritiesKeys)
{
    const std::string other = scratch.file("other.json", R"({"keys": [{"rid": "A000000333", "index": "80",
        "modulus": ")" + std::string(256, 'A') + R"(", "exponent": "03", "expires": "2049-12"}]})");
    const Result wrong = verify(scratch, "debit", {"--ca", other, "--json"});
    EXPECT_EQ(wrong.code, kUnverified);
    EXPECT_EQ(failed(wrong.json()), std::vector<std::string>{"issuer's certificate"});

    const std::string none = scratch.file("none.json", R"({"keys": []})");
    EXPECT_EQ(failed(verify(scratch, "debit", {"--ca", none, "--json"}).json()),
              std::vector<std::string>{"authority's key"});
}

TEST_F(ToolTest, InfoRefusesAFileOfKeysThatItCannotRead)
{
    const std::string cut = scratch.file("cut.json", R"({"keys": [{"rid": "A000000333", "index": "80",
        "modulus": "AA", "exponent": "03", "expires": "2049-12"}]})");
    const Result result = verify(scratch, "debit", {"--ca", cut});
    EXPECT_EQ(result.code, kUsage);
    EXPECT_TRUE(result.complains("keys[0].modulus: expected a modulus")) << result.errors;
    EXPECT_EQ(verify(scratch, "debit", {"--ca", "/nowhere"}).code, kUsage);
    EXPECT_EQ(run(scratch, {"info", "--sim", "debit", "--ca", cut}).code, kUsage) << "without --verify";
}

// Nothing is said to hold of a card that was taken away, or that names records without end.
TEST_F(ToolTest, InfoEndsWhenTheCardDoesNotLetItVerify)
{
    int told = 0;
    for (int at = 1; at <= 60; ++at) {
        const Result result =
            verify(scratch, "credit", {"--json", "--wait", "0", "--fault", "pull@" + std::to_string(at)});
        EXPECT_TRUE(result.code == kOk || result.code == kCardGone || result.code == kNoCard) << at << result.errors;
        told += result.code == kOk ? 0 : 1;
        if (result.code == kOk) {
            break;
        }
    }
    EXPECT_GT(told, 15);
    const std::string endless = scratch.file("endless.json", R"({"cards": [{"slot": "contact", "type": "transcript",
        "atr": "3B00", "otherwise": "6A88", "pairs": [["00A40400*", "6F0A8408A0000003330101019000"],
        ["00A40402*", "6A82"], ["80A8*", "800A7C000801FF001001FF009000"], ["00B2*", "700357012290 00"]]}]})");
    const Result result = verify(scratch, endless, {"--aid", "A000000333010101"});
    EXPECT_EQ(result.code, kMissing) << result.errors;
}

} // namespace
