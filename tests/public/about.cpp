// SPDX-License-Identifier: Apache-2.0
// What the library says about itself and about its results.
#include "ICC_COMM_VORN.h"

#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

namespace {

struct Call {
    const char* name;
    std::vector<int> results;
};

// Every result that a call can return.
const Call kCalls[] = {
    {"IC_OpenPort", {0}},
    {"IC_ClosePort", {0}},
    {"IC_PowerOn", {0, -1, -2, -3, -9, -11, -25}},
    {"IC_PowerOff", {0, -1, -3}},
    {"IC_SendAPDU", {0, -1, -3, -9, -10, -11}},
    {"IC_GetInfo", {0, -1, -2, -3, -11, -25, -26, -27, -28}},
    {"IC_GetTranDeta", {0, -1, -2, -3, -11, -25, -26, -27, -32}},
    {"IC_GenARQC", {0, -1, -2, -3, -11, -24, -25, -26, -27, -28, -29}},
    {"IC_CtlScriptData", {0, -1, -2, -3, -4, -30, -31}},
    {"IC_M1ActiveCard", {0, -3, -9, -10, -11}},
    {"IC_M1CheckCardPin", {0, -1, -3, -9, -10, -11}},
    {"IC_M1ReadCard", {0, -3, -9, -10, -11}},
    {"IC_M1WriteCard", {0, -1, -3, -9, -10, -11}},
    {"IC_M1PowerOff", {0, -3}},
    {"IC_GetZzhHardWalletInfo", {0, -2, -3, -11, -25, -26, -27, -32}},
    {"GetDevInfo", {0, -3, -11}},
    {"DEV_CommCall", {0}},
    {"VR_selectapp", {0, 15}},
};

const std::string kUnknown = "unknown result";

} // namespace

TEST(ResultText, EveryResultOfEveryCallHasOneOfItsOwn)
{
    for (const Call& call : kCalls) {
        std::set<std::string> texts;
        for (const int result : call.results) {
            const std::string text = vorn_result_text(call.name, result);
            EXPECT_GT(text.size(), 6U) << call.name << result;
            EXPECT_NE(text, kUnknown) << call.name << result;
            EXPECT_EQ(text.find('\n'), std::string::npos);
            texts.insert(text);
        }
        EXPECT_EQ(texts.size(), call.results.size()) << call.name;
    }
}

TEST(ResultText, SaysWhatACodeMeansInThatCall)
{
    EXPECT_STREQ(vorn_result_text("IC_GetInfo", -2), "no card within the time to wait");
    EXPECT_STREQ(vorn_result_text("IC_GenARQC", -2),
                 "no card within the time to wait, no CDOL1 or CDOL2 on the card, or no ARQC given");
    EXPECT_STREQ(vorn_result_text("IC_CtlScriptData", -2), "no issuer's answer, or the card gave no TC");
    EXPECT_STREQ(vorn_result_text("IC_GetZzhHardWalletInfo", -27), "the wallet's information command failed");
    EXPECT_STREQ(vorn_result_text("IC_GetInfo", -27), "the card refused the final SELECT");
}

TEST(ResultText, WithoutACallIsTheGeneralOne)
{
    for (const char* call : {static_cast<const char*>(nullptr), "", "IC_Unheard", "ic_genarqc"}) {
        EXPECT_STREQ(vorn_result_text(call, -3), "the link to the reader could not be opened");
        EXPECT_STREQ(vorn_result_text(call, 0), "success");
    }
}

TEST(ResultText, OfAStatusWordSaysThatItIsOne)
{
    EXPECT_STREQ(vorn_result_text("vrdk_SelectFile", 0x6A82), "the card's status word, SW1 * 256 + SW2");
    EXPECT_STREQ(vorn_result_text(nullptr, 15), "the card's status word, SW1 * 256 + SW2");
}

TEST(ResultText, OfACodeThatNoCallReturnsIsUnknown)
{
    EXPECT_EQ(vorn_result_text("IC_GetInfo", -33), kUnknown);
    EXPECT_EQ(vorn_result_text(nullptr, -2147483647 - 1), kUnknown);
}

TEST(Version, IsTheProjects) { EXPECT_STREQ(vorn_version(), VORN_VERSION); }

TEST(ResultNames, OfTheTransactionCallsAreTheCodesThatHostsKnow)
{
    EXPECT_EQ(VORN_NO_CDOL1, -2);
    EXPECT_EQ(VORN_NO_ARQC, -2);
    EXPECT_EQ(VORN_NO_CDOL2, -2);
    EXPECT_EQ(VORN_STATE_WITHOUT_CDOL2, -1);
    EXPECT_EQ(VORN_NO_ANSWER, -2);
    EXPECT_EQ(VORN_NO_TC, -2);
    EXPECT_EQ(VORN_DOL_NOT_BUILT, -1);
    EXPECT_EQ(VORN_NOT_FORMAT_1, -3);
    EXPECT_EQ(VORN_USER_CARD, 1);
    EXPECT_EQ(VORN_PSAM_CARD, 2);
}
