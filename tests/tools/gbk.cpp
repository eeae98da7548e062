// SPDX-License-Identifier: Apache-2.0
// The tool on a system whose C library has no module for GBK, as on small ones.
#include "tools/running_tool.h"

namespace {

using namespace vorn::test;

// The simulated readers are started before: they need the module for their cards' names.
class WithoutGbk : public ToolTest {
protected:
    // A list of modules that comes before the system's own and names one for GBK that is not there. An empty folder
    // would not do: the C library goes on to its own folder.
    void forgetGbk()
    {
        fs::create_directory(scratch.path() / "gconv");
        scratch.file("gconv/gconv-modules", "module GBK// INTERNAL NO-SUCH-MODULE 1\n"
                                            "module INTERNAL GBK// NO-SUCH-MODULE 1\n");
        ::setenv("GCONV_PATH", (scratch.path() / "gconv").c_str(), 1);
    }
    ~WithoutGbk() override { ::unsetenv("GCONV_PATH"); }

    Process debitReader{scratch, {"sim", "debit"}};
    const std::string port = debitReader.outputLine();
};

TEST_F(WithoutGbk, WhatCannotBeReadIsNotMaskedAsIfItWereText)
{
    const Json before = run(scratch, {"info", "--port", port, "--json", "--show"}).json();
    forgetGbk();
    const Result masked = run(scratch, {"info", "--port", port, "--json"});
    ASSERT_EQ(masked.code, kOk) << masked.errors;
    EXPECT_EQ(masked.json()["name"], "*** (no conversion from GBK on this system)");
    const Result shown = run(scratch, {"info", "--port", port, "--json", "--show"});
    ASSERT_EQ(shown.code, kOk) << shown.errors;
    EXPECT_EQ(before["name"], "欧阳晓明");
    EXPECT_EQ(shown.json()["name"], "C5B7D1F4CFFEC3F7 (no conversion from GBK on this system)");
}

TEST_F(WithoutGbk, AsciiTextNeedsNoConversion)
{
    forgetGbk();
    const Json shown = run(scratch, {"info", "--port", port, "--json", "--show"}).json();
    EXPECT_EQ(shown["documentNumber"], "000000199003150017");
    const Json masked = run(scratch, {"info", "--port", port, "--json"}).json();
    EXPECT_EQ(masked["documentNumber"], "000*************17");
}

TEST_F(WithoutGbk, MerchantThatWasLostIsNoEmptyOne)
{
    const Json before = run(scratch, {"log", "--port", port, "--json"}).json();
    forgetGbk();
    const Json after = run(scratch, {"log", "--port", port, "--json"}).json();
    ASSERT_FALSE(before["transactions"].empty());
    ASSERT_EQ(after["transactions"].size(), before["transactions"].size());
    EXPECT_FALSE(before["transactions"][0]["merchant"].get<std::string>().empty());
    EXPECT_TRUE(after["transactions"][0]["merchant"].is_null()) << after;
    EXPECT_EQ(after["transactions"][0]["date"], before["transactions"][0]["date"]);
    EXPECT_TRUE(run(scratch, {"log", "--port", port}).says("(no conversion from GBK on this system)"));
}

TEST_F(WithoutGbk, DoctorSaysSo)
{
    EXPECT_TRUE(run(scratch, {"doctor", "--port", port}).says("ok    Chinese text: "));
    forgetGbk();
    const Result result = run(scratch, {"doctor", "--port", port});
    EXPECT_EQ(result.code, kFindings);
    EXPECT_TRUE(result.says("BAD   Chinese text: no conversion from GBK on this system")) << result.output;
    EXPECT_TRUE(result.says("gconv/GBK.so")) << result.output;
}

TEST_F(WithoutGbk, MerchantOfASaleIsWrittenInAsciiOrRefused)
{
    forgetGbk();
    const Arguments sale{"sale", "--port", port, "--amount", "1.00", "--merchant"};
    const Result refused = run(scratch, with(sale, {"青禾"}));
    EXPECT_EQ(refused.code, kUsage);
    EXPECT_TRUE(refused.complains("this system has no conversion to it")) << refused.errors;
    const Result sent = run(scratch, with(sale, {"QINGHE"})); // as far as the issuer's answer, which nobody gives
    EXPECT_EQ(sent.code, kMissing);
    EXPECT_TRUE(sent.complains("Send the ARQC text") || sent.says("Send the ARQC text")) << sent.errors;
}

TEST_F(WithoutGbk, ProfileWithChineseTextSaysWhatTheSystemLacks)
{
    forgetGbk();
    const Result result = run(scratch, {"info", "--sim", "debit"});
    EXPECT_EQ(result.code, kProfile);
    EXPECT_TRUE(result.complains("this system's C library has no conversion to GBK")) << result.errors;
}

} // namespace
