// SPDX-License-Identifier: Apache-2.0
// The simulated debit/credit card, command by command.
#include "sim/cards/crypto.h"
#include "sim/data/card_values.h"
#include "sim/profiles/profile.h"
#include "support/sim_terminal.h"

#include <algorithm>

namespace {

using namespace vorn;
using nlohmann::json;
using test::debitCard;
using test::emvCard;
using test::Terminal;
using test::unhex;

json withApplication(const json& changes)
{
    json card = debitCard();
    card["applications"][0].merge_patch(changes);
    return card;
}

bool tells(const sim::EmvCard& card, const std::string& part)
{
    const auto lines = card.account();
    return std::any_of(lines.begin(), lines.end(),
                       [&part](const std::string& line) { return line.find(part) != std::string::npos; });
}

std::string complaint(const json& card)
{
    try {
        sim::makeEmvCard(card, "cards[0]");
    } catch (const sim::ProfileError& error) {
        return error.what();
    }
    return "none";
}

json pairOfApplications()
{
    return json::parse(R"({"atr": "3B00", "applications": [
        {"aid": "A000000333010101", "label": "ONE", "priority": 1},
        {"aid": "A000000333010102", "label": "TWO", "blocked": true},
        {"aid": "A000000333010103", "label": "THREE", "listed": false},
        {"aid": "D15600000145442F4550000000000000", "listed": false, "binaries": {"21": "00112233445566778899"}}]})");
}

// ---------------------------------------------------------------- selection

TEST(CardSelection, AnswersToResetAsTheProfileSays)
{
    auto card = emvCard(debitCard());
    EXPECT_EQ(sim::toHex(card->powerOn()), "3B00");
    json field = debitCard();
    field["slot"] = "field";
    field["contactless_answer"] = "0578807002";
    EXPECT_EQ(sim::toHex(emvCard(field)->powerOn()), "0578807002");
}

TEST(CardSelection, ByItsWholeName)
{
    Terminal terminal(emvCard(debitCard()));
    EXPECT_EQ(terminal.send("00A4040008A000000333010101"), "6F268408A000000333010101A51A500454455354870101"
                                                           "9F38069F7A019F0206BF0C059F4D020B03"
                                                           "9000");
}

TEST(CardSelection, ByPartOfTheNameOneAfterTheOther)
{
    Terminal terminal(emvCard(pairOfApplications()));
    EXPECT_EQ(terminal.send("00A4040005A000000333").substr(4, 20), "8408A000000333010101");
    EXPECT_EQ(terminal.status("00A4040205A000000333"), "6283") << "the blocked one";
    EXPECT_EQ(terminal.send("00A4040205A000000333").substr(4, 20), "8408A000000333010103");
    EXPECT_EQ(terminal.send("00A4040205A000000333"), "6A82");
}

TEST(CardSelection, NothingOfThatNameLeavesTheSelectionAsItIs)
{
    Terminal terminal(emvCard(debitCard()));
    terminal.select();
    EXPECT_EQ(terminal.send("00A4040005A000000999"), "6A82");
    EXPECT_EQ(terminal.status("80CA9F3600"), "9000");
    EXPECT_EQ(terminal.send("00A40400 09 A00000033301010101"), "6A82") << "longer than the name";
}

TEST(CardSelection, OnlyByName)
{
    Terminal terminal(emvCard(debitCard()));
    EXPECT_EQ(terminal.send("00A40000023F00"), "6A86");
    EXPECT_EQ(terminal.send("00A40401023F00"), "6A86");
    EXPECT_EQ(terminal.send("00A40400"), "6A86");
}

TEST(CardSelection, TheDirectoryListsTheApplications)
{
    Terminal terminal(emvCard(pairOfApplications()));
    EXPECT_EQ(terminal.send("00A404000E315041592E5359532E4444463031"),
              "6F15840E315041592E5359532E4444463031A5038801019000");
    EXPECT_EQ(terminal.send("00B2010C00"), "701461124F08A00000033301010150034F4E458701019000");
    EXPECT_EQ(terminal.send("00B2020C00"), "701461124F08A000000333010102500354574F8701029000");
    EXPECT_EQ(terminal.send("00B2030C00"), "6A83");
}

TEST(CardSelection, DirectoriesCanBeStatedAndNested)
{
    json card = pairOfApplications();
    card["pse"] = json::parse(R"({"sfi": 2, "directory": [
        [{"aid": "A000000333010101", "priority": 1}, {"aid": "A000000333010102"}],
        {"ddf": "OTHER.DDF", "sfi": 3, "directory": [
            "7000", {"objects": [{"50": "text:X"}, {"4F": "A000000333"}]}]}]})");
    Terminal terminal(emvCard(card));
    terminal.select("315041592E5359532E4444463031");
    EXPECT_EQ(terminal.send("00B2011400"), "701B610D4F08A000000333010101870101610A4F08A0000003330101029000");
    EXPECT_EQ(terminal.send("00B2021400"), "700D610B9D094F544845522E4444469000");
    terminal.select("4F544845522E444446");
    EXPECT_EQ(terminal.send("00B2011C00"), "70009000");
    EXPECT_EQ(terminal.send("00B2021C00"), "700C610A5001584F05A0000003339000");
}

TEST(CardSelection, ACardMayHaveNoDirectory)
{
    json card = debitCard();
    card["pse"] = false;
    Terminal terminal(emvCard(card));
    EXPECT_EQ(terminal.send("00A404000E315041592E5359532E4444463031"), "6A82");
}

TEST(CardSelection, ABlockedApplicationShowsItsFciWithAWarning)
{
    Terminal terminal(emvCard(withApplication({{"blocked", true}})));
    const std::string answer = terminal.send("00A4040008A000000333010101");
    EXPECT_EQ(answer.substr(answer.size() - 4), "6283");
    EXPECT_EQ(answer.substr(0, 4), "6F26");
    EXPECT_EQ(terminal.send("00C0000000"), "6985") << "nothing is held for GET RESPONSE";
}

TEST(CardSelection, ABlockedCardRefusesEverySelection)
{
    json card = debitCard();
    card["blocked"] = true;
    Terminal terminal(emvCard(card));
    EXPECT_EQ(terminal.send("00A4040008A000000333010101"), "6A81");
    EXPECT_EQ(terminal.send("00A404000E315041592E5359532E4444463031"), "6A81");
    EXPECT_EQ(terminal.send("0084000008"), "6985");
}

// ---------------------------------------------------------------- files and data

TEST(CardFiles, RecordsCarryTheirTemplate)
{
    Terminal terminal(emvCard(debitCard()));
    terminal.select();
    EXPECT_EQ(terminal.send("00B2010C00"), "7016570D"
                                           "6228000100001D30122200000F"
                                           "5F2004D5C5C8FD9000");
}

TEST(CardFiles, AbsentRecordsAndFiles)
{
    Terminal terminal(emvCard(debitCard()));
    EXPECT_EQ(terminal.send("00B2010C00"), "6A82") << "nothing selected";
    terminal.select();
    EXPECT_EQ(terminal.send("00B2020C00"), "6A83");
    EXPECT_EQ(terminal.send("00B2012400"), "6A82");
    EXPECT_EQ(terminal.send("00B2010800"), "6A86");
    EXPECT_EQ(terminal.send("00B2000C00"), "6A86");
}

TEST(CardFiles, TheLogHasFixedFieldsAndGbkNames)
{
    Terminal terminal(emvCard(debitCard()));
    terminal.select();
    EXPECT_EQ(terminal.send("00B2015C00"), "230102"
                                           "111213"
                                           "000000001234"
                                           "000000000000"
                                           "0156"
                                           "0156"
                                           "C0CFB3C7C3E6B9DD202020202020202020202020"
                                           "00"
                                           "0007"
                                           "9000");
    EXPECT_EQ(terminal.send("80CA9F4F00"), "9F4F19"
                                           "9A039F21039F02069F03069F1A025F2A029F4E149C019F3602"
                                           "9000");
}

TEST(CardFiles, ReadBinaryBehindAnOffset)
{
    Terminal terminal(emvCard(pairOfApplications()));
    EXPECT_EQ(terminal.send("00B0950000"), "6A86") << "nothing selected";
    terminal.select("D15600000145442F4550000000000000");
    EXPECT_EQ(terminal.send("00B0950000"), "001122334455667788999000");
    EXPECT_EQ(terminal.send("00B0950404"), "445566779000");
    EXPECT_EQ(terminal.send("00B0950A00"), "6B00");
    EXPECT_EQ(terminal.send("00B0960000"), "6A82");
    EXPECT_EQ(terminal.send("00B0000000"), "6A86");
}

TEST(CardData, CountersLimitsAndStatedObjects)
{
    Terminal terminal(emvCard(withApplication({{"get_data", {{"9F5D", "000000001000"}}}})));
    EXPECT_EQ(terminal.send("80CA9F3600"), "6985") << "nothing selected";
    terminal.select();
    EXPECT_EQ(terminal.send("80CA9F3600"), "9F3602023F9000");
    EXPECT_EQ(terminal.send("80CA9F1300"), "9F130201F49000");
    EXPECT_EQ(terminal.send("80CA9F1700"), "9F1701039000");
    EXPECT_EQ(terminal.send("80CA9F7900"), "9F79060000000010009000");
    EXPECT_EQ(terminal.send("80CA9F7700"), "9F77060000001000009000");
    EXPECT_EQ(terminal.send("80CA9F7800"), "9F78060000000500009000");
    EXPECT_EQ(terminal.send("80CA9F5D00"), "9F5D060000000010009000");
    EXPECT_EQ(terminal.send("80CA9F5000"), "6A88");
}

TEST(CardData, AnAnswerCanLackItsTag)
{
    Terminal terminal(emvCard(withApplication({{"get_data_raw", {{"9F79", "01029000"}, {"9F77", "6985"}}}})));
    terminal.select();
    EXPECT_EQ(terminal.send("80CA9F7900"), "01029000");
    EXPECT_EQ(terminal.send("80CA9F7700"), "6985");
}

TEST(CardData, WithoutElectronicCashOrPinThereAreNoSuchObjects)
{
    Terminal terminal(emvCard(withApplication({{"electronic_cash", nullptr}, {"pin", nullptr}})));
    terminal.select();
    EXPECT_EQ(terminal.send("80CA9F7900"), "6A88");
    EXPECT_EQ(terminal.send("80CA9F1700"), "6A88");
    EXPECT_EQ(terminal.send("0020008008241234FFFFFFFFFF"), "6A88");
}

// ---------------------------------------------------------------- commands as such

TEST(CardCommands, WrongFormsAndUnknownOnes)
{
    Terminal terminal(emvCard(debitCard()));
    terminal.select();
    EXPECT_EQ(terminal.send("00A404"), "6700");
    EXPECT_EQ(terminal.send("00A4040005A000"), "6700");
    EXPECT_EQ(terminal.send("00A4040002A000FFFF"), "6700");
    EXPECT_EQ(terminal.send("0088000004AABBCCDD"), "6D00") << "INTERNAL AUTHENTICATE";
    EXPECT_EQ(terminal.send("00FF000000"), "6D00");
    EXPECT_EQ(terminal.send("00A80000028300"), "6E00");
    EXPECT_EQ(terminal.send("04DA9F7704AABBCCDD"), "6E00");
}

TEST(CardCommands, ChallengesDiffer)
{
    Terminal terminal(emvCard(debitCard()));
    const std::string first = terminal.send("0084000008");
    EXPECT_EQ(first.size(), 20U);
    EXPECT_NE(first, terminal.send("0084000008"));
    EXPECT_EQ(terminal.send("0084000000").size(), 20U);
    EXPECT_EQ(terminal.send("0084000010").size(), 36U);
    EXPECT_EQ(terminal.send("00840000"), "6700");
    EXPECT_EQ(terminal.send("0084010008"), "6A86");
}

TEST(CardCommands, StatedAnswersComeFirstInTurn)
{
    json profile = debitCard();
    profile["commands"] = {{"00B2", "6F00"}};
    profile["applications"][0]["commands"] = {{"80220003", {"6A82", "01029000"}}, {"8022", "6985"}, {"00B2", "6401"}};
    Terminal terminal(emvCard(profile));
    EXPECT_EQ(terminal.send("8022000300"), "6D00") << "not selected";
    terminal.select();
    EXPECT_EQ(terminal.send("8022000300"), "6A82");
    EXPECT_EQ(terminal.send("8022000300"), "01029000");
    EXPECT_EQ(terminal.send("8022000300"), "01029000");
    EXPECT_EQ(terminal.send("8022000100"), "6985");
    EXPECT_EQ(terminal.send("00B2010C00"), "6F00") << "the card's own before the application's";
}

TEST(CardCommands, SmallerLeGetsFewerBytes)
{
    Terminal terminal(emvCard(debitCard()));
    terminal.select();
    EXPECT_EQ(terminal.send("80CA9F3603"), "9F36029000");
    EXPECT_EQ(terminal.send("80CA9F36FF"), "9F3602023F9000");
}

TEST(CardWithT0, SaysFirstHowMuchThereIs)
{
    json profile = debitCard();
    profile["t0"] = true;
    Terminal terminal(emvCard(profile));
    EXPECT_EQ(terminal.send("00A4040008A000000333010101"), "6128");
    EXPECT_EQ(terminal.send("00C0000010"), "6C28");
    EXPECT_EQ(terminal.send("00C0000028").size(), 84U);
    EXPECT_EQ(terminal.send("00C0000028"), "6985") << "given once";
    EXPECT_EQ(terminal.send("80CA9F3600"), "6C05");
    EXPECT_EQ(terminal.send("80CA9F3605"), "9F3602023F9000");
}

TEST(CardWithT0, AnotherCommandDropsWhatWasHeld)
{
    json profile = debitCard();
    profile["t0"] = true;
    Terminal terminal(emvCard(profile));
    EXPECT_EQ(terminal.send("00A4040008A000000333010101"), "6128");
    EXPECT_EQ(terminal.send("80CA9F5000"), "6A88");
    EXPECT_EQ(terminal.send("00C0000028"), "6985");
}

TEST(CardWithT0, ABlockedApplicationsFciCanStillBeFetched)
{
    json profile = withApplication({{"blocked", true}});
    profile["t0"] = true;
    Terminal terminal(emvCard(profile));
    EXPECT_EQ(terminal.send("00A4040008A000000333010101"), "6283");
    EXPECT_EQ(terminal.send("00C0000028").substr(0, 4), "6F26");
}

// ---------------------------------------------------------------- PIN

TEST(CardPin, CountsWrongOnesAndForgivesAfterARightOne)
{
    Terminal terminal(emvCard(debitCard()));
    terminal.select();
    EXPECT_EQ(terminal.send("0020008008241235FFFFFFFFFF"), "63C2");
    EXPECT_EQ(terminal.send("0020008008251234FFFFFFFFFF"), "63C1") << "not even a PIN block";
    EXPECT_EQ(terminal.send("0020008008241234FFFFFFFFFF"), "9000");
    EXPECT_EQ(terminal.send("80CA9F1700"), "9F1701039000");
    EXPECT_EQ(terminal.send("00200080021234"), "6700");
    EXPECT_EQ(terminal.send("0020008108241234FFFFFFFFFF"), "6A86");
}

TEST(CardPin, IsBlockedAfterTheLastTryAlsoOverPowerOff)
{
    Terminal terminal(emvCard(debitCard()));
    terminal.select();
    for (const char* status : {"63C2", "63C1", "63C0", "6983"}) {
        EXPECT_EQ(terminal.send("0020008008241235FFFFFFFFFF"), status);
    }
    terminal.card().powerOff();
    terminal.card().powerOn();
    terminal.select();
    EXPECT_EQ(terminal.send("0020008008241234FFFFFFFFFF"), "6983");
}

// ---------------------------------------------------------------- processing options

TEST(CardProcessing, FormatOne)
{
    Terminal terminal(emvCard(debitCard()));
    terminal.select();
    EXPECT_EQ(terminal.send("80A80000098307"
                            "01"
                            "000000010000"),
              "800A7D0008010100100101009000");
}

TEST(CardProcessing, FormatTwoAndAStatedLocator)
{
    Terminal terminal(emvCard(withApplication({{"gpo_format", 2}, {"afl", "08010101"}})));
    terminal.select();
    EXPECT_EQ(terminal.send("80A80000098307"
                            "01"
                            "000000010000"),
              "770A82027D009404080101019000");
}

TEST(CardProcessing, WithoutAListTheDataAreEmpty)
{
    Terminal terminal(emvCard(withApplication({{"fci", nullptr}})));
    terminal.select();
    EXPECT_EQ(terminal.status("80A80000028300"), "9000");
}

TEST(CardProcessing, DataMustBeWhatTheListAsksFor)
{
    Terminal terminal(emvCard(debitCard()));
    terminal.select();
    EXPECT_EQ(terminal.send("80A80000028300"), "6700");
    EXPECT_EQ(terminal.send("80A80000088306"
                            "01"
                            "0000000100"),
              "6700")
        << "one byte short";
    EXPECT_EQ(terminal.send("80A80000098306"
                            "01"
                            "000000010000"),
              "6700")
        << "lengths that disagree";
    EXPECT_EQ(terminal.send("80A80000098407"
                            "01"
                            "000000010000"),
              "6A80");
    EXPECT_EQ(terminal.send("80A80100098307"
                            "01"
                            "000000010000"),
              "6A86");
    EXPECT_EQ(terminal.send("80CA9F3600"), "9F3602023F9000") << "no transaction was counted";
}

TEST(CardProcessing, OnceForASelectionAndTheCounterGoesUp)
{
    Terminal terminal(emvCard(debitCard()));
    terminal.begin();
    EXPECT_EQ(terminal.card().state().atc, 576);
    EXPECT_EQ(terminal.status("80A80000098307"
                              "01"
                              "000000010000"),
              "6985");
    terminal.begin();
    EXPECT_EQ(terminal.card().state().atc, 577);
    EXPECT_EQ(terminal.send("80CA9F3600"), "9F360202419000");
}

TEST(CardProcessing, ConditionsOfUseNotSatisfied)
{
    Terminal refused(emvCard(withApplication({{"refuse_gpo", true}})));
    refused.select();
    EXPECT_EQ(refused.status("80A80000098307"
                             "01"
                             "000000010000"),
              "6985");
    Terminal worn(emvCard(withApplication({{"atc", 65535}})));
    worn.select();
    EXPECT_EQ(worn.status("80A80000098307"
                          "01"
                          "000000010000"),
              "6985")
        << "no counter is left";
    Terminal unselected(emvCard(debitCard()));
    EXPECT_EQ(unselected.send("80A80000028300"), "6985");
}

// ---------------------------------------------------------------- cryptograms

sim::crypto::Block expectedCryptogram(const Terminal& terminal, const std::vector<sim::tlv::Tag>& left = {})
{
    auto objects = terminal.objects;
    objects[0x82] = terminal.aip;
    objects[0x9F36] = {terminal.cryptogram[1], terminal.cryptogram[2]};
    for (const auto tag : left) {
        objects.erase(tag);
    }
    sim::crypto::Key master{};
    const auto bytes = unhex("F0C34A8124CEE0A91A0B034AA97D6EAC");
    std::copy(bytes.begin(), bytes.end(), master.begin());
    const auto card = sim::crypto::cardKey(master, "6228000100001", "01");
    const auto atc = static_cast<std::uint16_t>(terminal.cryptogram[1] * 256 + terminal.cryptogram[2]);
    const sim::Bytes cvr(terminal.cryptogram.begin() + 14, terminal.cryptogram.begin() + 18);
    return sim::crypto::applicationCryptogram(sim::crypto::pbocSessionKey(card, atc), objects, cvr);
}

sim::crypto::Block givenCryptogram(const Terminal& terminal)
{
    sim::crypto::Block block{};
    std::copy_n(terminal.cryptogram.begin() + 3, block.size(), block.begin());
    return block;
}

std::string givenCvr(const Terminal& terminal)
{
    return sim::toHex({terminal.cryptogram.begin() + 14, terminal.cryptogram.begin() + 18});
}

// What a right issuer answers to the last cryptogram.
std::string answerFor(const Terminal& terminal, const std::string& code)
{
    sim::crypto::Key master{};
    const auto bytes = unhex("F0C34A8124CEE0A91A0B034AA97D6EAC");
    std::copy(bytes.begin(), bytes.end(), master.begin());
    const auto atc = static_cast<std::uint16_t>(terminal.cryptogram[1] * 256 + terminal.cryptogram[2]);
    const auto session = sim::crypto::pbocSessionKey(sim::crypto::cardKey(master, "6228000100001", "01"), atc);
    const sim::Bytes arc = unhex(code);
    const auto arpc = sim::crypto::arpc(session, givenCryptogram(terminal), {arc[0], arc[1]});
    return "910A" + sim::toHex({arpc.begin(), arpc.end()}) + code;
}

TEST(CardCryptogram, FirstOneIsComputedOverWhatTheTerminalSent)
{
    Terminal terminal(emvCard(debitCard()));
    terminal.begin();
    terminal.generate("80", 0x8C);
    EXPECT_EQ(terminal.cryptogram.size(), 30U);
    EXPECT_EQ(sim::toHex({terminal.cryptogram.begin(), terminal.cryptogram.begin() + 3}), "800240");
    EXPECT_EQ(sim::toHex({terminal.cryptogram.begin() + 11, terminal.cryptogram.begin() + 26}), "070001"
                                                                                                "03A00000"
                                                                                                "01"
                                                                                                "0A01"
                                                                                                "0000001000");
    EXPECT_EQ(givenCryptogram(terminal), expectedCryptogram(terminal));
}

TEST(CardCryptogram, ObjectsOutsideTheListAreNotInIt)
{
    json card = debitCard();
    card["applications"][0]["records"]["2"][0]["8C"] = "9F0206 9F1A02 9505 5F2A02 9A03 9C01 9F3704";
    Terminal terminal(emvCard(card));
    terminal.begin();
    terminal.generate("80", 0x8C);
    EXPECT_EQ(givenCryptogram(terminal), expectedCryptogram(terminal, {0x9F03}));
    EXPECT_NE(givenCryptogram(terminal), expectedCryptogram(terminal));
}

TEST(CardCryptogram, WithoutElectronicCashTheApplicationDataAreShort)
{
    Terminal terminal(emvCard(withApplication({{"electronic_cash", nullptr}})));
    terminal.begin();
    terminal.generate("80", 0x8C);
    EXPECT_EQ(sim::toHex({terminal.cryptogram.begin() + 11, terminal.cryptogram.end()}), "07000103A0000001");
}

TEST(CardCryptogram, FormatTwo)
{
    Terminal terminal(emvCard(withApplication({{"ac_format", 2}})));
    terminal.begin();
    const auto answer = terminal.data(terminal.generateCommand("80", 0x8C));
    EXPECT_EQ(answer[0], 0x77);
    EXPECT_EQ(sim::toHex(sim::tlv::find(answer, 0x9F27).value_or(sim::Bytes())), "80");
    EXPECT_EQ(sim::toHex(sim::tlv::find(answer, 0x9F36).value_or(sim::Bytes())), "0240");
    EXPECT_EQ(sim::tlv::find(answer, 0x9F26).value_or(sim::Bytes()).size(), 8U);
    EXPECT_EQ(sim::tlv::find(answer, 0x9F10).value_or(sim::Bytes()).size(), 19U);
}

TEST(CardCryptogram, CommonSessionKeysAndStatedCardKeys)
{
    json profile = debitCard();
    profile["applications"][0]["keys"] = {{"udk_ac", "014D996FCC8F49157DC8B49E3BCDFD99"}};
    Terminal same(emvCard(profile));
    same.begin();
    same.generate("80", 0x8C);
    EXPECT_EQ(givenCryptogram(same), expectedCryptogram(same)) << "the card key itself gives the same";
    profile["applications"][0]["keys"]["session"] = "common";
    Terminal common(emvCard(profile));
    common.begin();
    common.generate("80", 0x8C);
    EXPECT_NE(givenCryptogram(common), expectedCryptogram(common));
}

TEST(CardCryptogram, LengthOrderAndControlAreChecked)
{
    Terminal terminal(emvCard(debitCard()));
    terminal.select();
    EXPECT_EQ(terminal.send("80AE800000"), "6985") << "before processing options";
    terminal.begin();
    EXPECT_EQ(terminal.send("80AE80001D" + std::string(58, '0')), "6700");
    EXPECT_EQ(terminal.status(terminal.generateCommand("C0", 0x8C)), "6A86");
    EXPECT_EQ(terminal.status(terminal.generateCommand("81", 0x8C)), "6A86");
    terminal.generate("80", 0x8C);
    EXPECT_EQ(terminal.status(terminal.generateCommand("80", 0x8D)), "6A86") << "no ARQC as the second";
    EXPECT_EQ(terminal.status(terminal.generateCommand("40", 0x8C)), "6700") << "the first list, not the second";
    EXPECT_EQ(terminal.status(terminal.generateCommand("00", 0x8D)), "9000");
    EXPECT_EQ(terminal.status(terminal.generateCommand("00", 0x8D)), "6985") << "no third one";
}

TEST(CardCryptogram, WithoutKeysThereIsNone)
{
    Terminal terminal(emvCard(withApplication({{"keys", nullptr}})));
    terminal.begin();
    EXPECT_EQ(terminal.status(terminal.generateCommand("80", 0x8C)), "6985");
}

// A row of the table that says what the card answers first.
struct FirstRow {
    const char* what;
    json changes;
    const char* control;
    const char* amount;
    unsigned type;
    const char* told;
};

void PrintTo(const FirstRow& row, std::ostream* out) { *out << row.what; }

class FirstCryptogram : public testing::TestWithParam<FirstRow> {};

TEST_P(FirstCryptogram, FollowsTheRiskRules)
{
    const FirstRow& row = GetParam();
    const auto card = emvCard(withApplication(row.changes));
    Terminal terminal(card);
    terminal.objects[0x9F02] = unhex(row.amount);
    if (row.changes.contains("blocked")) {
        terminal.send("00A4040008A000000333010101");
        terminal.send("80A80000098307"
                      "01"
                      "000000010000");
        terminal.records = sim::tlv::encode(0x8C, unhex("9F02069F03069F1A0295055F2A029A039F21039C019F37049F4E14"));
    } else {
        terminal.begin();
    }
    EXPECT_EQ(terminal.generate(row.control, 0x8C)[0], row.type) << row.what;
    EXPECT_TRUE(tells(*card, row.told)) << row.what;
}

INSTANTIATE_TEST_SUITE_P(
    Rules, FirstCryptogram,
    testing::Values(
        FirstRow{"an ARQC asked for", json::object(), "80", "000000010000", 0x80, "asked for"},
        FirstRow{"an AAC asked for", json::object(), "00", "000000010000", 0x00, "asked for"},
        FirstRow{"a TC within the offline limit", json::object(), "40", "000000000900", 0x40, "offline limit"},
        FirstRow{"a TC that the balance does not cover", json::object(), "40", "000000001001", 0x80, "issuer asked"},
        FirstRow{
            "a TC above the offline limit", {{"electronic_cash", nullptr}}, "40", "000000002001", 0x80, "issuer asked"},
        FirstRow{"a TC at the offline limit without electronic cash",
                 {{"electronic_cash", nullptr}},
                 "40",
                 "000000002000",
                 0x40,
                 "offline limit"},
        FirstRow{"a TC above the single limit",
                 {{"electronic_cash", {{"single_limit", 100}}}},
                 "40",
                 "000000000101",
                 0x80,
                 "issuer asked"},
        FirstRow{"an amount above the card's limit", json::object(), "80", "000009000001", 0x00, "limit of 90000.00"},
        FirstRow{"an amount at the card's limit", json::object(), "80", "000009000000", 0x80, "asked for"},
        FirstRow{"a card that does not go online",
                 {{"risk", {{"refuse_online", true}}}},
                 "80",
                 "000000010000",
                 0x00,
                 "does not go online"},
        FirstRow{"a blocked application", {{"blocked", true}}, "80", "000000010000", 0x00, "blocked"},
        FirstRow{"a card that answers as the profile says",
                 {{"risk", {{"force_first", "TC"}}}},
                 "80",
                 "000000010000",
                 0x40,
                 "profile"}));

TEST(CardCryptogram, AnOfflinePaymentIsTakenFromTheBalanceAndLogged)
{
    Terminal terminal(emvCard(debitCard()));
    terminal.objects[0x9F02] = unhex("000000000900");
    terminal.begin();
    EXPECT_EQ(terminal.generate("40", 0x8C)[0], 0x40);
    EXPECT_EQ(terminal.card().state().balance, 100U);
    EXPECT_EQ(terminal.send("00B2015C00"), "230315"
                                           "101112"
                                           "000000000900"
                                           "000000000000"
                                           "0156"
                                           "0156" +
                                               std::string("4141414141414141414141414141414141414141") +
                                               "01"
                                               "0240"
                                               "9000");
    EXPECT_EQ(terminal.send("00B2025C00").substr(0, 12), "230102111213");
    EXPECT_EQ(terminal.status(terminal.generateCommand("40", 0x8D)), "6985") << "that was the end of it";
}

TEST(CardElectronicCash, TheBalanceThatIsLeftIsTheOneThatTheIssuerIsTold)
{
    Terminal terminal(emvCard(debitCard()));
    terminal.objects[0x9F02] = unhex("000000000900");
    terminal.begin();
    const sim::Bytes answer = terminal.generate("40", 0x8C);
    EXPECT_EQ(sim::toHex({answer.begin() + 19, answer.begin() + 26}), "0A010000000100");
}

TEST(CardElectronicCash, IsPaidOnlyWhereTheTerminalTakesItAndInTheCardsCurrency)
{
    struct Row {
        const char* indicator;
        const char* currency;
        std::uint64_t left;
    };
    for (const Row& row : {Row{"01", "0156", 100}, Row{"00", "0156", 1000}, Row{"01", "0840", 1000}}) {
        Terminal terminal(emvCard(debitCard()));
        terminal.objects[0x9F02] = unhex("000000000900");
        terminal.objects[0x9F7A] = unhex(row.indicator);
        terminal.objects[0x5F2A] = unhex(row.currency);
        terminal.begin();
        EXPECT_EQ(terminal.generate("40", 0x8C)[0], 0x40) << "within the offline limit in any case";
        EXPECT_EQ(terminal.card().state().balance, row.left) << row.indicator << row.currency;
        EXPECT_EQ(tells(terminal.card(), "electronic cash paid"), row.left == 100);
    }
}

TEST(CardElectronicCash, ItsLimitsDoNotBindWhatItDoesNotPay)
{
    Terminal terminal(emvCard(debitCard()));
    terminal.objects[0x9F02] = unhex("000000001500"); // more than the balance, within the offline limit
    terminal.objects[0x9F7A] = unhex("00");
    terminal.begin();
    EXPECT_EQ(terminal.generate("40", 0x8C)[0], 0x40);
    terminal.objects[0x9F7A] = unhex("01");
    terminal.begin();
    EXPECT_EQ(terminal.generate("40", 0x8C)[0], 0x80);
}

TEST(CardElectronicCash, AnotherCurrencyCanBeTheCards)
{
    Terminal terminal(emvCard(withApplication({{"electronic_cash", {{"currency", "0344"}}}})));
    terminal.objects[0x9F02] = unhex("000000000900");
    terminal.objects[0x5F2A] = unhex("0344");
    terminal.begin();
    terminal.generate("40", 0x8C);
    EXPECT_EQ(terminal.card().state().balance, 100U);
}

TEST(CardElectronicCash, BelowItsResetThresholdTheCardGoesOnline)
{
    const json changes = {{"electronic_cash", {{"reset_threshold", 200}}}};
    for (const auto& [amount, type] : {std::pair("000000000800", 0x40), std::pair("000000000801", 0x80)}) {
        Terminal terminal(emvCard(withApplication(changes)));
        terminal.objects[0x9F02] = unhex(amount);
        terminal.begin();
        EXPECT_EQ(terminal.send("80CA9F6D00"), "9F6D060000000002009000");
        EXPECT_EQ(terminal.generate("40", 0x8C)[0], type) << amount;
    }
    Terminal without(emvCard(debitCard()));
    without.select();
    EXPECT_EQ(without.send("80CA9F6D00"), "6A88");
}

TEST(CardCryptogram, TheLogKeepsAsManyRecordsAsItHolds)
{
    Terminal terminal(emvCard(debitCard()));
    terminal.objects[0x9F02] = unhex("000000000100");
    for (int i = 0; i < 4; ++i) {
        terminal.begin();
        terminal.generate("40", 0x8C);
    }
    EXPECT_EQ(terminal.status("00B2035C00"), "9000");
    EXPECT_EQ(terminal.send("00B2045C00"), "6A83");
    EXPECT_EQ(terminal.send("00B2015C00").substr(86, 4), "0243") << "the newest is the first";
}

// ---------------------------------------------------------------- issuer authentication

TEST(CardIssuerAuthentication, ARightAnswerGivesTheTc)
{
    Terminal terminal(emvCard(debitCard()));
    terminal.begin();
    terminal.generate("80", 0x8C);
    EXPECT_EQ(terminal.authenticate(answerFor(terminal, "3030")), "9000");
    terminal.generate("40", 0x8D);
    EXPECT_EQ(terminal.cryptogram[0], 0x40);
    EXPECT_EQ(givenCvr(terminal), "03600000");
    EXPECT_EQ(givenCryptogram(terminal), expectedCryptogram(terminal));
    EXPECT_EQ(terminal.card().state().lastOnlineAtc, 576);
    EXPECT_TRUE(tells(terminal.card(), "ARPC right"));
    EXPECT_EQ(terminal.send("00B2015C00").substr(12, 12), "000000010000") << "logged";
}

TEST(CardIssuerAuthentication, AWrongAnswerRefusesTheTcAndSaysWhy)
{
    Terminal terminal(emvCard(debitCard()));
    terminal.begin();
    terminal.generate("80", 0x8C);
    std::string answer = answerFor(terminal, "3030");
    answer[4] = answer[4] == '0' ? '1' : '0';
    EXPECT_EQ(terminal.authenticate(answer), "6300");
    terminal.generate("40", 0x8D);
    EXPECT_EQ(terminal.cryptogram[0], 0x00);
    EXPECT_EQ(givenCvr(terminal), "03280000");
    EXPECT_TRUE(tells(terminal.card(), "ARPC wrong: issuer authentication failed"));
    EXPECT_TRUE(tells(terminal.card(), "TC refused, issuer authentication failed"));
    EXPECT_EQ(terminal.card().state().lastOnlineAtc, 500);
}

TEST(CardIssuerAuthentication, AnotherResponseCodeThanTheAnswersIsWrong)
{
    Terminal terminal(emvCard(debitCard()));
    terminal.begin();
    terminal.generate("80", 0x8C);
    const std::string declined = answerFor(terminal, "3035");
    EXPECT_EQ(terminal.authenticate(declined.substr(0, 20) + "3030"), "6300");
}

TEST(CardIssuerAuthentication, NoAnswerRefusesTheTcWhereOneIsRequired)
{
    Terminal strict(emvCard(debitCard()));
    strict.begin();
    strict.generate("80", 0x8C);
    strict.generate("40", 0x8D);
    EXPECT_EQ(strict.cryptogram[0], 0x00);
    EXPECT_TRUE(tells(strict.card(), "no issuer authentication"));

    Terminal lenient(emvCard(withApplication({{"risk", {{"require_issuer_auth", false}}}})));
    lenient.begin();
    lenient.generate("80", 0x8C);
    lenient.generate("40", 0x8D);
    EXPECT_EQ(lenient.cryptogram[0], 0x40);
}

TEST(CardIssuerAuthentication, AReferralLeavesItToTheCard)
{
    Terminal authentic(emvCard(debitCard()));
    authentic.begin();
    authentic.generate("80", 0x8C);
    authentic.authenticate(answerFor(authentic, "3031"));
    EXPECT_EQ(authentic.generate("C0", 0x8D)[0], 0x40);

    Terminal missing(emvCard(withApplication({{"risk", {{"require_issuer_auth", false}}}})));
    missing.begin();
    missing.generate("80", 0x8C);
    EXPECT_EQ(missing.generate("C0", 0x8D)[0], 0x00) << "not without the issuer's word";
}

TEST(CardIssuerAuthentication, OnlyOnceAndOnlyBetweenTheCryptograms)
{
    Terminal terminal(emvCard(debitCard()));
    terminal.begin();
    EXPECT_EQ(terminal.send("008200000A" + std::string(20, '0')), "6985");
    terminal.generate("80", 0x8C);
    EXPECT_EQ(terminal.send("0082000009" + std::string(18, '0')), "6700");
    EXPECT_EQ(terminal.send("008201000A" + std::string(20, '0')), "6A86");
    const std::string answer = answerFor(terminal, "3030");
    EXPECT_EQ(terminal.send("008200000A" + std::string(20, '0')), "6300");
    EXPECT_EQ(terminal.authenticate(answer), "6985") << "a second try";
    EXPECT_EQ(terminal.generate("40", 0x8D)[0], 0x00);
    EXPECT_EQ(terminal.authenticate(answer), "6985");
}

TEST(CardIssuerAuthentication, TheNextTransactionTellsHowThisOneEnded)
{
    Terminal terminal(emvCard(debitCard()));
    terminal.begin();
    terminal.generate("80", 0x8C);
    terminal.begin();
    terminal.generate("80", 0x8C);
    EXPECT_EQ(givenCvr(terminal), "03A08000") << "the last one was not completed";
    terminal.send("008200000A" + std::string(20, '0'));
    terminal.generate("40", 0x8D);
    EXPECT_EQ(givenCvr(terminal), "03288000");
    terminal.begin();
    terminal.generate("80", 0x8C);
    EXPECT_EQ(givenCvr(terminal), "03A00800") << "its issuer authentication failed";
    terminal.generate("40", 0x8D);
    terminal.begin();
    terminal.generate("80", 0x8C);
    EXPECT_EQ(givenCvr(terminal), "03A00400") << "it had none";
}

TEST(CardIssuerAuthentication, VerificationResultsTellOfPinAndNewCard)
{
    Terminal right(emvCard(withApplication({{"last_online_atc", 0}})));
    right.begin();
    right.send("0020008008241234FFFFFFFFFF");
    right.generate("80", 0x8C);
    EXPECT_EQ(givenCvr(right), "03A41000");

    Terminal wrong(emvCard(withApplication({{"pin", {{"tries", 1}}}})));
    wrong.begin();
    wrong.send("0020008008249999FFFFFFFFFF");
    wrong.generate("80", 0x8C);
    EXPECT_EQ(givenCvr(wrong), "03A64000") << "performed, and failed";

    Terminal blocked(emvCard(withApplication({{"pin", {{"tries_left", 0}}}})));
    blocked.begin();
    EXPECT_EQ(blocked.send("0020008008241234FFFFFFFFFF"), "6983");
    blocked.generate("80", 0x8C);
    EXPECT_EQ(givenCvr(blocked), "03A64000") << "the right one comes too late";
}

// The published transaction, from the issuer's keys to its answer.
TEST(CardCryptogram, ThePublishedTransactionEndToEnd)
{
    Terminal terminal(emvCard(withApplication({{"pin", {{"tries_left", 0}}}, {"verification_results", "000002"}})));
    terminal.objects[0x9F02] = unhex("000000000001");
    terminal.objects[0x95] = unhex("0080046000");
    terminal.objects[0x9A] = unhex("140701");
    terminal.objects[0x9C] = unhex("00");
    terminal.begin();
    EXPECT_EQ(sim::toHex(terminal.generate("80", 0x8C)), "800240"
                                                         "5D016C91005E7CC2"
                                                         "07000103A04002010A010000001000D1F61152");
    const std::string answer = answerFor(terminal, "3031");
    EXPECT_EQ(answer, "910A21415243527CE78F3031");
    EXPECT_EQ(terminal.authenticate(answer), "9000");
    EXPECT_EQ(terminal.generate("40", 0x8D)[0], 0x40);
}

TEST(CardIssuerAuthentication, AForcedSecondCryptogram)
{
    Terminal terminal(emvCard(withApplication({{"risk", {{"force_second", "ARQC"}}}})));
    terminal.begin();
    terminal.generate("80", 0x8C);
    EXPECT_EQ(terminal.generate("40", 0x8D)[0], 0x80);
}

// ---------------------------------------------------------------- what a person writes

TEST(CardProfile, ComplaintsNameThePlaceAndWhatIsExpected)
{
    EXPECT_EQ(complaint(debitCard()), "none");
    EXPECT_NE(complaint(json::parse(R"({"atr": "3B00"})")).find("cards[0]: \"applications\" is missing"),
              std::string::npos);
    struct Row {
        const char* pointer;
        json value;
        const char* said;
    };
    const Row rows[] = {
        {"/atr", "3", "cards[0].atr: expected hex"},
        {"/unknown", 1, "cards[0].unknown: unknown here"},
        {"/applications/0/aid", "", "applications[0].aid: expected 1 to 16 bytes"},
        {"/applications/0/keys/mk_ac", "00", "keys.mk_ac: expected 16 bytes"},
        {"/applications/0/keys/session", "x", "keys.session: expected \"pboc\" or \"common\""},
        {"/applications/0/records/31", json::array(), "records.31: expected a short file identifier"},
        {"/applications/0/records/1/0/zz", "00", "records.1[0].zz: expected a tag in hex"},
        {"/applications/0/records/1/0/5F20", "gbk:\xF0\x9F\x98\x80",
         "records.1[0].5F20: expected a text that GBK can hold"},
        {"/applications/0/afl", "0801", "afl: expected entries of four bytes"},
        {"/applications/0/atc", 70000, "atc: expected a number from 0 to 65535"},
        {"/applications/0/pin/value", "12", "pin.value: expected a PIN of 4 to 12 digits"},
        {"/applications/0/electronic_cash/balance", "12x", "balance: expected an amount"},
        {"/applications/0/electronic_cash/limit", 1000000000000, "limit: expected an amount"},
        {"/applications/0/electronic_cash/currency", "01", "currency: expected 2 bytes"},
        {"/applications/0/verification_results", "02", "verification_results: expected 3 bytes"},
        {"/applications/0/risk/force_first", "XX", "force_first: expected \"AAC\""},
        {"/applications/0/log/records/0/merchant", "a merchant of more than twenty",
         "merchant: expected a merchant name"},
        {"/applications/0/log/records/0/date", "2301", "date: expected 3 bytes"},
        {"/applications/0/log/capacity", 0, "log.capacity: expected a number"},
        {"/applications/0/get_data_raw", {{"9F79", "90"}}, "get_data_raw.9F79: expected 2 to"},
        {"/applications/0/commands", {{"80", "9000"}}, "commands.80: expected the leading bytes"},
        {"/applications/0/binaries", {{"32", "00"}}, "binaries.32: expected a short file"},
        {"/applications/0/gpo_format", 3, "gpo_format: expected a number from 1 to 2"},
        {"/applications/0/records/2/0/8C", "9F02", "applications[0]: 8C is no list"},
        {"/pse", {{"directory", {{{"aid", "A0"}, {"prio", 1}}}}}, "pse.directory[0].prio: unknown here"},
    };
    for (const Row& row : rows) {
        json card = debitCard();
        card[json::json_pointer(row.pointer)] = row.value;
        EXPECT_NE(complaint(card).find(row.said), std::string::npos) << row.pointer << ": " << complaint(card);
    }
}

TEST(CardProfile, KeysNeedAnAccountNumber)
{
    json card = debitCard();
    card["applications"][0]["records"] = {{"1", {{{"57", "6228"}}}}};
    EXPECT_NE(complaint(card).find("expected an account number"), std::string::npos);
    card["applications"][0]["pan"] = "6228000100001";
    card["applications"][0]["psn"] = "01";
    EXPECT_EQ(complaint(card), "none");
}

TEST(CardProfile, AmountsAreWrittenAsDigits)
{
    EXPECT_EQ(sim::toHex(sim::bcdAmount(123456789012)), "123456789012");
    EXPECT_EQ(sim::amountFromBcd(unhex("000000010050")), 10050U);
    EXPECT_EQ(sim::toHex(sim::utf8ToGbk("青禾")), "C7E0BACC");
    EXPECT_THROW(sim::utf8ToGbk("\xFF"), std::invalid_argument);
}

TEST(CardAccount, KeepsTheLatestLinesAndCanBeCleared)
{
    auto card = emvCard(debitCard());
    for (int i = 0; i < 1500; ++i) {
        card->powerOn();
    }
    EXPECT_EQ(card->account().size(), 1000U);
    card->clearAccount();
    EXPECT_TRUE(card->account().empty());
    EXPECT_THROW(card->state(unhex("A0")), std::out_of_range);
}

} // namespace
