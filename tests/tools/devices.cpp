// SPDX-License-Identifier: Apache-2.0
// Wallets, the reader alone, pasted hex, and the simulated reader on a port.
#include "tools/running_tool.h"

namespace {

using namespace vorn::test;

TEST_F(ToolTest, WalletShowsItsIdentification)
{
    const Json wallet = run(scratch, {"wallet", "--sim", "wallet", "--json"}).json();
    EXPECT_EQ(wallet["contextId"], "3156201908770042");
    EXPECT_EQ(wallet["transactionMode"], "0102");
    EXPECT_EQ(wallet["aid"], "A00000087249");
    EXPECT_EQ(run(scratch, {"wallet", "--sim", "debit"}).code, kNoApplication);
}

TEST_F(ToolTest, DeviceAsksTheReaderAlone)
{
    const std::string profile = scratch.file("v.json", R"({"version": "TEST 7.5", "cards": []})");
    EXPECT_EQ(run(scratch, {"device", "--sim", profile, "--json"}).json()["version"], "TEST 7.5");
    const Result mute = run(scratch, {"device", "--sim", scratch.file("q.json", R"({"version": "", "cards": []})")});
    EXPECT_EQ(mute.code, kSilent);
    EXPECT_TRUE(mute.complains("version"));
}

TEST_F(ToolTest, DecodeNamesWhatIsPasted)
{
    const Result fci = run(scratch, {"decode", "6F 14 84 08 A0 00 00 03 33 01 01 01 A5 08 50 06 44 45 42 49 54 31"});
    EXPECT_EQ(fci.code, kOk) << fci.errors;
    EXPECT_TRUE(fci.says("File control information"));
    EXPECT_TRUE(fci.says("DEBIT1"));
    EXPECT_TRUE(run(scratch, {"decode"}, "9F7906000000035680\n").says("356.80"));
    EXPECT_TRUE(run(scratch, {"decode", "--list", "9F02069A03"}).says("9F02  Amount, authorised"));
    EXPECT_TRUE(run(scratch, {"decode", "--show", "5A081234567890123456"}).says("1234567890123456"));
    EXPECT_TRUE(run(scratch, {"decode", "023030303533323232303138303030393103"}).says("power on: contact slot"));
    const Result cut = run(scratch, {"decode", "9A0326010182027C"});
    EXPECT_EQ(cut.code, kMissing);
    EXPECT_TRUE(cut.says("2026-01-01"));
    EXPECT_TRUE(cut.complains("82"));
}

TEST_F(ToolTest, SimNamesItsPortOnTheFirstLineAndServesOtherPrograms)
{
    Process reader(scratch, {"sim", "debit", "-v"});
    const std::string port = reader.outputLine();
    EXPECT_TRUE(fs::is_character_file("/dev/" + port)) << port;
    EXPECT_EQ(run(scratch, {"info", "--port", port, "--json"}).json()["pan"], kMaskedPan);
    EXPECT_EQ(run(scratch, {"info", "--port", "/dev/" + port}).code, kOk);
    reader.signal(SIGINT);
    std::string output, errors;
    EXPECT_EQ(reader.finish(output, errors), kOk);
    EXPECT_TRUE(output.empty());
    EXPECT_NE(errors.find("> 32220180"), std::string::npos);
    EXPECT_NE(errors.find("switch 38400"), std::string::npos);
}

TEST_F(ToolTest, SimNeedsAProfileAndNamesThem)
{
    EXPECT_EQ(run(scratch, {"sim"}).code, kUsage);
    const Result list = run(scratch, {"sim", "--list"});
    EXPECT_EQ(list.code, kOk);
    for (const char* const name : {"debit\n", "credit\n", "multi\n", "memory\n", "wallet\n"}) {
        EXPECT_TRUE(list.says(name)) << name;
    }
}

// ---------------------------------------------------------------- ports, doctor, watch

TEST_F(ToolTest, PortsTellsWhatAnswers)
{
    Process reader(scratch, {"sim", "debit"});
    const std::string port = reader.outputLine();
    const Json ports = run(scratch, {"ports", port, "--json"}).json()["ports"];
    EXPECT_EQ(ports.back()["port"], port);
    EXPECT_EQ(ports.back()["allowed"], true);
    EXPECT_EQ(ports.back()["answer"], "a reader: DK7710 V1.06");
    EXPECT_EQ(run(scratch, {"ports", port, "--json", "--dont-ask"}).json()["ports"].back()["answer"], "not asked");
    const Json missing = run(scratch, {"ports", "ttyNone7", "--json"}).json()["ports"].back();
    EXPECT_EQ(missing["there"], false);
}

TEST_F(ToolTest, DoctorFindsAReaderGoodAndSaysWhatIsNot)
{
    const Result good = run(scratch, {"doctor", "--sim", "debit"});
    EXPECT_EQ(good.code, kOk) << good.output << good.errors;
    EXPECT_TRUE(good.says("at 9600 baud a reader answers: DK7710 V1.06"));
    EXPECT_TRUE(good.says("the reader takes commands"));
    EXPECT_TRUE(good.says("contact: card, answer 3B"));
    EXPECT_TRUE(good.says("psam1: empty"));
    const Result silent = run(scratch, {"doctor", "--sim", "debit", "--fault", "silence"});
    EXPECT_EQ(silent.code, kFindings) << silent.output;
    EXPECT_TRUE(silent.says("at 38400 baud: the reader does not answer"));
    const Result missing = run(scratch, {"doctor", "--port", "ttyNone7", "--json"});
    EXPECT_EQ(missing.code, kFindings);
    EXPECT_NE(missing.output.find("no such port: /dev/ttyNone7"), std::string::npos) << missing.output;
}

TEST_F(ToolTest, WatchTellsWhenACardComes)
{
    const std::string profile = scratch.file("late.json", R"({"cards": [{"slot": "contact", "after_ms": 300,
        "type": "transcript", "atr": "3B00", "pairs": []}]})");
    Process watch(scratch, {"watch", "--sim", profile, "--json"});
    const std::string line = watch.outputLine();
    ASSERT_TRUE(Json::accept(line)) << line;
    EXPECT_EQ(Json::parse(line)["event"], "came");
    EXPECT_EQ(Json::parse(line)["card"], "card 3B00");
    watch.signal(SIGINT);
    std::string output, errors;
    EXPECT_EQ(watch.finish(output, errors), kOk) << errors;
}

// ---------------------------------------------------------------- profiles

TEST_F(ToolTest, ShippedProfilesHaveNoMistakes)
{
    for (const char* const name : {"debit", "credit", "multi", "memory", "psam", "wallet"}) {
        const Result result = run(scratch, {"sim", "--check", name});
        EXPECT_EQ(result.code, kOk) << name << result.output << result.errors;
    }
}

TEST_F(ToolTest, ACheckFindsEveryMistakeOfAProfile)
{
    Json profile = Json::parse(contents(VORN_PROFILES_OF_TEST "/debit.json"));
    profile["cards"][0]["atr"] = "3B6";
    profile["cards"][0]["applications"][0]["aip"] = 7;
    profile["cards"].push_back({{"slot", "nowhere"}, {"type", "emv"}});
    profile["colour"] = "red";
    profile["issuer"]["keys"] = 5;
    const Result result = run(scratch, {"sim", "--check", scratch.file("bad.json", profile.dump()), "--json"});
    EXPECT_EQ(result.code, kFindings);
    for (const char* const place :
         {"cards[0].atr", "cards[0].applications[0].aip", "cards[1].slot", "colour", "issuer.keys"}) {
        EXPECT_TRUE(result.says(place)) << place << result.output;
    }
    const Result twice = run(scratch, {"sim", "--check", scratch.file("twice.json", R"({"cards": [], "cards": []})")});
    EXPECT_TRUE(twice.says("stands twice")) << twice.output;
}

} // namespace
