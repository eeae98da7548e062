// SPDX-License-Identifier: Apache-2.0
// The simulated issuer: what it reads from the two texts, how it decides, and the scripts it sends.
#include "sim/issuer/issuer.h"

#include "sim/profiles/profile.h"
#include "support/sim_terminal.h"

#include <algorithm>
#include <filesystem>
#include <random>

namespace {

using namespace vorn;
using nlohmann::json;
using sim::Decision;
using test::debitCard;
using test::debitIssuer;
using test::emvCard;
using test::Terminal;
using test::unhex;

sim::Issuer issuerWith(const json& changes = json::object())
{
    json issuer = debitIssuer();
    issuer.merge_patch(changes);
    return sim::makeIssuer(issuer, "issuer");
}

std::string complaint(const json& changes)
{
    try {
        issuerWith(changes);
    } catch (const sim::ProfileError& error) {
        return error.what();
    }
    return "none";
}

json scripts(const json& commands, const char* tag = "72")
{
    return {{"scripts", {{{"template", tag}, {"id", "11223344"}, {"commands", commands}}}}};
}

// A card in its transaction, with the first cryptogram given.
Terminal started(const json& card = debitCard())
{
    Terminal terminal(emvCard(card));
    terminal.begin();
    terminal.generate("80", 0x8C);
    return terminal;
}

bool tells(const sim::EmvCard& card, const std::string& part)
{
    const auto lines = card.account();
    return std::any_of(lines.begin(), lines.end(),
                       [&part](const std::string& line) { return line.find(part) != std::string::npos; });
}

// ---------------------------------------------------------------- the request

TEST(Issuer, VerifiesTheArqcFromItsTextAlone)
{
    const auto result = issuerWith().authorise(started().text(false));
    EXPECT_TRUE(result.request.understood);
    EXPECT_TRUE(result.request.verified) << result.request.why;
    EXPECT_EQ(result.request.account, "6228000100001");
    EXPECT_EQ(result.request.amount, 10000U);
    EXPECT_EQ(result.request.atc, 576);
    EXPECT_EQ(result.decision, Decision::Approve);
    EXPECT_EQ(result.responseCode, "00");
    EXPECT_EQ(result.text.substr(0, 4), "910A");
    EXPECT_EQ(result.text.substr(20), "3030");
}

TEST(Issuer, ThePublishedExampleFromItsFigures)
{
    const auto result = issuerWith({{"rules", {{{"decision", "approve"}, {"arc", "01"}}}}})
                            .authorise("9F26085D016C91005E7CC2"
                                       "9F270180"
                                       "9F101307000103A04002010A010000001000D1F61152"
                                       "9F37041E78EEBC"
                                       "9F36020240"
                                       "95050080046000"
                                       "9A03140701"
                                       "9C0100"
                                       "9F0206000000000001"
                                       "5F2A020156"
                                       "5A076228000100001F"
                                       "5F340101"
                                       "82027D00"
                                       "9F1A020156"
                                       "9F0306000000000000"
                                       "9F330320A100");
    EXPECT_TRUE(result.request.verified) << result.request.why;
    EXPECT_EQ(result.text, "910A21415243527CE78F3031");
}

TEST(Issuer, AnyChangedItemOfTheCryptogramIsFound)
{
    Terminal terminal = started();
    for (const sim::tlv::Tag tag : {0x9F02U, 0x9F03U, 0x9F1AU, 0x95U, 0x5F2AU, 0x9AU, 0x9CU, 0x9F37U}) {
        Terminal changed = terminal;
        changed.objects[tag].back() ^= 0x01;
        const auto result = issuerWith().authorise(changed.text(false));
        EXPECT_TRUE(result.request.understood) << sim::tlv::toHex(tag);
        EXPECT_FALSE(result.request.verified) << sim::tlv::toHex(tag);
        EXPECT_EQ(result.decision, Decision::Decline);
        EXPECT_EQ(result.responseCode, "05");
    }
    for (const std::size_t at : {std::size_t{2}, std::size_t{3}, std::size_t{15}}) { // counter, cryptogram, results
        Terminal changed = terminal;
        changed.cryptogram[at] ^= 0x01;
        EXPECT_FALSE(issuerWith().authorise(changed.text(false)).request.verified) << at;
    }
    Terminal profile = terminal;
    profile.aip[0] ^= 0x01;
    EXPECT_FALSE(issuerWith().authorise(profile.text(false)).request.verified);
}

TEST(Issuer, SomebodyElsesKeyDoesNotVerify)
{
    auto issuer = issuerWith();
    issuer.useKey(sim::crypto::Key{});
    const auto result = issuer.authorise(started().text(false));
    EXPECT_FALSE(result.request.verified);
    EXPECT_NE(result.request.why.find("ARQC wrong"), std::string::npos);
    EXPECT_EQ(result.decision, Decision::Decline);
    EXPECT_FALSE(result.text.empty()) << "the declined answer is still an answer";
}

TEST(Issuer, AWrongKeyThatApprovesIsRefusedByTheCard)
{
    Terminal terminal = started();
    auto issuer = issuerWith();
    issuer.useKey(sim::crypto::Key{});
    issuer.trustUnverified(true);
    const auto result = issuer.authorise(terminal.text(false));
    EXPECT_FALSE(result.request.verified);
    EXPECT_EQ(result.decision, Decision::Approve);
    EXPECT_EQ(terminal.authenticate(result.text), "6300");
    EXPECT_EQ(terminal.generate("40", 0x8D)[0], 0x00);
    EXPECT_TRUE(tells(terminal.card(), "ARPC wrong: issuer authentication failed"));
}

TEST(Issuer, TextsThatAreNoneGetNoAnswer)
{
    const std::string good = started().text(false);
    for (const std::string& wrong : {std::string(), std::string("xyz"), good.substr(0, good.size() - 1),
                                     good.substr(0, good.size() - 2), good + "00", good.substr(22), "9F" + good}) {
        const auto result = issuerWith().authorise(wrong);
        EXPECT_FALSE(result.request.understood) << wrong;
        EXPECT_FALSE(result.request.why.empty());
        EXPECT_EQ(result.text, "");
        EXPECT_EQ(result.decision, Decision::Decline);
    }
}

TEST(Issuer, EveryCutOfATextIsRefusedQuietly)
{
    for (const bool tc : {false, true}) {
        const std::string good = started().text(tc);
        for (std::size_t length = 0; length < good.size(); ++length) {
            EXPECT_FALSE(issuerWith().authorise(good.substr(0, length)).request.understood) << length;
            EXPECT_FALSE(issuerWith().verifyCompletion(good.substr(0, length)).understood) << length;
        }
    }
}

TEST(Issuer, WhatCannotBeVerifiedIsNamed)
{
    Terminal terminal = started();
    Terminal noAccount = terminal;
    noAccount.records = sim::tlv::encode(0x5F34, {1});
    EXPECT_NE(issuerWith().authorise(noAccount.text(false)).request.why.find("5A"), std::string::npos);
    Terminal noResults = terminal;
    noResults.cryptogram.resize(13);
    EXPECT_NE(issuerWith().authorise(noResults.text(false)).request.why.find("9F10"), std::string::npos);
    Terminal wrongType = terminal;
    wrongType.cryptogram[0] = 0x00;
    EXPECT_NE(issuerWith().authorise(wrongType.text(false)).request.why.find("no ARQC"), std::string::npos);
    std::string noProfile = terminal.text(false);
    noProfile.erase(noProfile.find("82027D00"), 8);
    EXPECT_NE(issuerWith().authorise(noProfile).request.why.find("no 82"), std::string::npos);
}

TEST(Issuer, TheOnlineRegisterMayBeMissingOrAGap)
{
    Terminal terminal = started();
    for (const char* inItsPlace : {"", "9F130200FF", "000000000000", "9A0300FFFF"}) {
        terminal.setRegisterItem(inItsPlace);
        const auto result = issuerWith().authorise(terminal.text(false));
        EXPECT_TRUE(result.request.verified) << inItsPlace << ": " << result.request.why;
    }
}

TEST(Issuer, CardsThatComputeOverFewerObjects)
{
    json card = debitCard();
    card["applications"][0]["records"]["2"][0]["8C"] = "9F0206 9F1A02 9505 5F2A02 9A03 9C01 9F3704";
    const Terminal terminal = started(card);
    EXPECT_FALSE(issuerWith().authorise(terminal.text(false)).request.verified);
    const json objects = {"9F02", "9F1A", "95", "5F2A", "9A", "9C", "9F37", "82", "9F36"};
    EXPECT_TRUE(issuerWith({{"cryptogram_objects", objects}}).authorise(terminal.text(false)).request.verified);
}

// ---------------------------------------------------------------- decisions

TEST(IssuerDecision, TheFirstRuleThatHolds)
{
    const auto issuer = issuerWith({{"rules",
                                     {{{"up_to", 10000}, {"decision", "approve"}, {"arc", "11"}},
                                      {{"up_to", "000000020000"}, {"decision", "refer"}},
                                      {{"up_to", 30000}, {"decision", "decline"}, {"arc", "61"}}}}});
    struct Row {
        const char* amount;
        Decision decision;
        const char* code;
    };
    const Row rows[] = {{"000000010000", Decision::Approve, "11"},
                        {"000000010001", Decision::Refer, "01"},
                        {"000000020000", Decision::Refer, "01"},
                        {"000000020001", Decision::Decline, "61"},
                        {"000000030001", Decision::Decline, "05"}};
    for (const Row& row : rows) {
        Terminal terminal(emvCard(debitCard()));
        terminal.objects[0x9F02] = unhex(row.amount);
        terminal.begin();
        terminal.generate("80", 0x8C);
        const auto result = issuer.authorise(terminal.text(false));
        EXPECT_TRUE(result.request.verified);
        EXPECT_EQ(result.decision, row.decision) << row.amount;
        EXPECT_EQ(result.responseCode, row.code) << row.amount;
        EXPECT_EQ(terminal.authenticate(result.text), "9000") << "a refusal is authentic, too";
    }
}

TEST(IssuerDecision, AccountsThatItDoesNotKnow)
{
    const Terminal terminal = started();
    const auto unknown = issuerWith({{"accounts", {"6228000100002"}}}).authorise(terminal.text(false));
    EXPECT_TRUE(unknown.request.verified);
    EXPECT_EQ(unknown.decision, Decision::Decline);
    EXPECT_EQ(unknown.responseCode, "14");
    const auto known = issuerWith({{"accounts", {"6228000100001"}}}).authorise(terminal.text(false));
    EXPECT_EQ(known.decision, Decision::Approve);
}

TEST(IssuerDecision, ScriptsGoWithApprovalsOnlyUnlessAlways)
{
    const Terminal terminal = started();
    json rules = scripts({{{"block", true}}});
    rules["rules"] = {{{"decision", "decline"}}};
    EXPECT_EQ(issuerWith(rules).authorise(terminal.text(false)).text.size(), 24U);
    rules["scripts_always"] = true;
    const auto result = issuerWith(rules).authorise(terminal.text(false));
    EXPECT_EQ(result.text.substr(24, 18), "7212"
                                          "9F180411223344");
    EXPECT_EQ(result.scripts, std::vector<std::string>{"block"});
}

// ---------------------------------------------------------------- completion

TEST(IssuerCompletion, VerifiesTheTcFromItsTextAsItIsWritten)
{
    Terminal terminal = started();
    terminal.authenticate(issuerWith().authorise(terminal.text(false)).text);
    terminal.objects[0x9F37] = unhex("A1B2C3D4"); // the second command has a number of its own
    EXPECT_EQ(terminal.generate("40", 0x8D)[0], 0x40);
    const std::string text = terminal.text(true);
    EXPECT_NE(text.find("9F060000000100005F0201565A"), std::string::npos);
    EXPECT_NE(text.find("9F020156"
                        "9F06000000000000"
                        "9F3303"),
              std::string::npos);
    const auto result = issuerWith().verifyCompletion(text);
    EXPECT_TRUE(result.verified) << result.why;
    EXPECT_EQ(result.amount, 10000U);
    EXPECT_EQ(result.type, 0x40);
}

TEST(IssuerCompletion, AmountAndOtherAmountAreToldApart)
{
    Terminal terminal(emvCard(debitCard()));
    terminal.objects[0x9F03] = unhex("000000002500");
    terminal.begin();
    terminal.generate("80", 0x8C);
    terminal.authenticate(issuerWith().authorise(terminal.text(false)).text);
    terminal.generate("40", 0x8D);
    const auto items = sim::readCryptogramText(sim::CryptogramText::Tc, terminal.text(true));
    EXPECT_EQ(items.mistake, "");
    EXPECT_EQ(sim::toHex(items.values.at(0x9F02)), "000000010000");
    EXPECT_EQ(sim::toHex(items.values.at(0x9F03)), "000000002500");
    EXPECT_EQ(sim::toHex(items.values.at(0x9F1A)), "0156");
    EXPECT_TRUE(issuerWith().verifyCompletion(terminal.text(true)).verified);
}

TEST(IssuerCompletion, ItemsWithBothTagBytesAreUnderstoodToo)
{
    Terminal terminal = started();
    terminal.authenticate(issuerWith().authorise(terminal.text(false)).text);
    terminal.generate("40", 0x8D);
    EXPECT_TRUE(issuerWith().verifyCompletion(terminal.text(false)).verified);
}

TEST(IssuerCompletion, ShortTagsAreNoRequest)
{
    EXPECT_FALSE(issuerWith().authorise(started().text(true)).request.understood);
}

TEST(IssuerCompletion, AnAacOrAChangedTcIsNotVerified)
{
    Terminal declined = started();
    declined.generate("00", 0x8D);
    EXPECT_NE(issuerWith().verifyCompletion(declined.text(true)).why.find("no TC"), std::string::npos);
    Terminal changed = started();
    changed.authenticate(issuerWith().authorise(changed.text(false)).text);
    changed.generate("40", 0x8D);
    changed.objects[0x9F02] = unhex("000000010001");
    const auto result = issuerWith().verifyCompletion(changed.text(true));
    EXPECT_TRUE(result.understood);
    EXPECT_FALSE(result.verified);
    EXPECT_NE(result.why.find("TC wrong"), std::string::npos);
}

TEST(IssuerCompletion, TwoHundredTransactionsByTheirTextsAlone)
{
    std::mt19937 random(20230315);
    const auto digits = [&random](std::size_t bytes) {
        sim::Bytes value(bytes);
        for (auto& byte : value) {
            byte = static_cast<std::uint8_t>(random() % 10 * 16 + random() % 10);
        }
        return value;
    };
    json card = debitCard();
    card["applications"][0]["risk"] = json::object();
    json issuer = debitIssuer();
    const auto judge = sim::makeIssuer(issuer, "issuer");
    Terminal terminal(emvCard(card));
    for (int i = 0; i < 200; ++i) {
        for (const sim::tlv::Tag tag : {0x9F02U, 0x9F03U, 0x9F1AU, 0x5F2AU, 0x9AU, 0x9CU, 0x9F37U, 0x95U, 0x9F4EU}) {
            terminal.objects[tag] = digits(terminal.objects[tag].size());
        }
        terminal.begin();
        terminal.generate("80", 0x8C);
        const auto result = judge.authorise(terminal.text(false));
        ASSERT_TRUE(result.request.verified) << i << ": " << terminal.text(false);
        ASSERT_EQ(terminal.authenticate(result.text), "9000");
        terminal.objects[0x9F37] = digits(4);
        terminal.generate("40", 0x8D);
        ASSERT_TRUE(judge.verifyCompletion(terminal.text(true)).verified) << i << ": " << terminal.text(true);
    }
}

// ---------------------------------------------------------------- scripts

TEST(IssuerScript, ChangesElectronicCash)
{
    Terminal terminal = started();
    const auto result =
        issuerWith(scripts({{{"set_limit", "000000200000"}}, {{"set_single_limit", 60000}}, {{"set_balance", 4321}}}))
            .authorise(terminal.text(false));
    EXPECT_EQ(result.scripts,
              (std::vector<std::string>{"set_limit 200000", "set_single_limit 60000", "set_balance 4321"}));
    terminal.authenticate(result.text);
    terminal.generate("40", 0x8D);
    EXPECT_EQ(terminal.runScript(result.text, 0x72), "9000 9000 9000");
    terminal.card().powerOff();
    terminal.card().powerOn();
    terminal.begin();
    EXPECT_EQ(terminal.send("80CA9F7700"), "9F77060000002000009000");
    EXPECT_EQ(terminal.send("80CA9F7800"), "9F78060000000600009000");
    EXPECT_EQ(terminal.send("80CA9F7900"), "9F79060000000043219000");
    EXPECT_TRUE(tells(terminal.card(), "balance limit is now 2000.00"));
    terminal.generate("80", 0x8C);
    EXPECT_EQ(sim::toHex({terminal.cryptogram.begin() + 14, terminal.cryptogram.begin() + 18}), "03A00030")
        << "three commands in the last transaction";
}

TEST(IssuerScript, BlocksTheApplicationForGood)
{
    Terminal terminal = started();
    const auto result = issuerWith(scripts({{{"block", true}}}, "71")).authorise(terminal.text(false));
    EXPECT_EQ(terminal.runScript(result.text, 0x71), "9000") << "71 may come before the second cryptogram";
    EXPECT_EQ(terminal.generate("40", 0x8D)[0], 0x00);
    terminal.card().powerOff();
    terminal.card().powerOn();
    EXPECT_EQ(terminal.status("00A4040008A000000333010101"), "6283");
    EXPECT_TRUE(terminal.card().state().blocked);
}

TEST(IssuerScript, UnblocksInATransactionThatIsDeclined)
{
    json card = debitCard();
    card["applications"][0]["blocked"] = true;
    Terminal terminal(emvCard(card));
    terminal.send("00A4040008A000000333010101");
    EXPECT_EQ(terminal.status("80A80000098307"
                              "01"
                              "000000010000"),
              "9000");
    terminal.records = terminal.data("00B2011400");
    EXPECT_EQ(terminal.generate("80", 0x8C)[0], 0x00);

    const auto keys = issuerWith().rules().keys;
    const auto cardKeys = sim::crypto::cardKeys(keys, "6228000100001", "01");
    sim::crypto::Block first{};
    std::copy_n(terminal.cryptogram.begin() + 3, first.size(), first.begin());
    sim::ScriptCommand unblock;
    unblock.ins = 0x18;
    EXPECT_EQ(terminal.status(sim::toHex(sim::buildScriptCommand(unblock, cardKeys, 576, first))), "9000");
    terminal.select();
}

TEST(IssuerScript, BlocksTheCard)
{
    Terminal terminal = started();
    const auto result =
        issuerWith(scripts({{{"block_card", true}}, {{"unblock", true}}})).authorise(terminal.text(false));
    EXPECT_EQ(terminal.runScript(result.text, 0x72), "9000 6985");
    terminal.card().powerOff();
    terminal.card().powerOn();
    EXPECT_EQ(terminal.send("00A4040008A000000333010101"), "6A81");
    EXPECT_TRUE(terminal.card().blocked());
}

TEST(IssuerScript, ChangesAndUnblocksThePin)
{
    json card = debitCard();
    card["applications"][0]["pin"]["tries_left"] = 0;
    Terminal terminal = started(card);
    const auto unblocked = issuerWith(scripts({{{"unblock_pin", true}}})).authorise(terminal.text(false));
    EXPECT_EQ(terminal.runScript(unblocked.text, 0x72), "9000");
    EXPECT_EQ(terminal.send("0020008008241234FFFFFFFFFF"), "9000");
    const auto changed = issuerWith(scripts({{{"pin", "987654"}}})).authorise(terminal.text(false));
    EXPECT_EQ(changed.text.find("987654"), std::string::npos) << "it travels enciphered";
    EXPECT_EQ(terminal.runScript(changed.text, 0x72), "9000");
    EXPECT_EQ(terminal.send("0020008008241234FFFFFFFFFF"), "63C2");
    EXPECT_EQ(terminal.send("002000800826987654FFFFFFFF"), "9000");
    EXPECT_TRUE(tells(terminal.card(), "PIN changed"));
}

TEST(IssuerScript, ChangesThePinWithTheCurrentOne)
{
    Terminal terminal = started();
    const auto unaware =
        issuerWith(scripts({{{"pin", "987654"}, {"current_pin", "4321"}}})).authorise(terminal.text(false));
    EXPECT_EQ(terminal.runScript(unaware.text, 0x72), "6A80") << "not the card's PIN";
    const auto changed =
        issuerWith(scripts({{{"pin", "987654"}, {"current_pin", "1234"}}})).authorise(terminal.text(false));
    EXPECT_NE(changed.text.find("84240001"), std::string::npos);
    EXPECT_EQ(terminal.runScript(changed.text, 0x72), "9000");
    EXPECT_EQ(terminal.send("002000800826987654FFFFFFFF"), "9000");
}

TEST(IssuerScript, AWrongMacChangesNothing)
{
    Terminal terminal = started();
    const auto result =
        issuerWith(scripts({{{"set_limit", 200000}, {"wrong_mac", true}}})).authorise(terminal.text(false));
    EXPECT_EQ(terminal.runScript(result.text, 0x72), "6988");
    EXPECT_EQ(terminal.card().state().balanceLimit, 100000U);
    EXPECT_TRUE(tells(terminal.card(), "PUT DATA refused: wrong MAC"));
    terminal.generate("00", 0x8D);
    terminal.begin();
    terminal.generate("80", 0x8C);
    EXPECT_EQ(sim::toHex({terminal.cryptogram.begin() + 17, terminal.cryptogram.begin() + 18}), "18")
        << "one command, and it failed";
}

TEST(IssuerScript, AScriptOfAnotherTransactionIsRefused)
{
    Terminal terminal = started();
    const auto old = issuerWith(scripts({{{"block", true}}})).authorise(terminal.text(false));
    terminal.begin();
    EXPECT_EQ(terminal.runScript(old.text, 0x72), "6985") << "no cryptogram yet";
    terminal.generate("80", 0x8C);
    EXPECT_EQ(terminal.runScript(old.text, 0x72), "6988");
    EXPECT_FALSE(terminal.card().state().blocked);
}

TEST(IssuerScript, ChangedCommandsAndShortOnesAreRefused)
{
    Terminal terminal = started();
    const auto result = issuerWith(scripts({{{"set_limit", 200000}}})).authorise(terminal.text(false));
    std::string command = result.text.substr(result.text.find("84DA"));
    EXPECT_EQ(command.size(), 30U);
    std::string other = command;
    other.replace(4, 4, "9F79");
    EXPECT_EQ(terminal.send(other), "6988") << "another object";
    other = command;
    other.replace(10, 12, "000000900000");
    EXPECT_EQ(terminal.send(other), "6988") << "another value";
    EXPECT_EQ(terminal.send("84DA9F7703AABBCC"), "6987");
    EXPECT_EQ(terminal.send("841E0000"), "6987");
    EXPECT_EQ(terminal.send(command), "9000") << "as it was sent";
}

TEST(IssuerScript, RightMacsOverWrongData)
{
    json card = debitCard();
    Terminal terminal = started(card);
    const auto keys = issuerWith().rules().keys;
    const auto cardKeys = sim::crypto::cardKeys(keys, "6228000100001", "01");
    sim::crypto::Block first{};
    std::copy_n(terminal.cryptogram.begin() + 3, first.size(), first.begin());
    struct Row {
        const char* what;
        std::uint8_t ins, p1, p2;
        const char* data;
        const char* status;
    };
    const Row rows[] = {
        {"no such object", 0xDA, 0x9F, 0x50, "000000000001", "6A88"},
        {"five bytes", 0xDA, 0x9F, 0x77, "0000000001", "6A80"},
        {"no digits", 0xDA, 0x9F, 0x77, "00000000000A", "6A80"},
        {"PIN change of another kind", 0x24, 0x00, 0x03, "", "6A86"},
        {"PIN change with the current PIN and without data", 0x24, 0x00, 0x01, "", "6A80"},
        {"PIN change that is not enciphered", 0x24, 0x00, 0x02, "0824123456FFFFFFFF80000000000000", "6A80"},
        {"PIN unblock with data", 0x24, 0x00, 0x00, "00", "6A80"},
    };
    for (const Row& row : rows) {
        sim::ScriptCommand command;
        command.ins = row.ins;
        command.p1 = row.p1;
        command.p2 = row.p2;
        command.data = unhex(row.data);
        const auto apdu = sim::buildScriptCommand(command, cardKeys, 576, first);
        EXPECT_EQ(terminal.send(sim::toHex(apdu)), row.status) << row.what;
    }
}

TEST(IssuerScript, SeveralTemplatesRepeatedRawAndWithoutIdentifier)
{
    const Terminal terminal = started();
    const auto result = issuerWith({{"scripts",
                                     {{{"template", "71"}, {"commands", {{{"raw", "0084000008"}, {"repeat", 3}}}}},
                                      {{"commands", {{{"raw", ""}}}}}}}})
                            .authorise(terminal.text(false));
    EXPECT_EQ(result.text.substr(24), "7115"
                                      "86050084000008"
                                      "86050084000008"
                                      "86050084000008"
                                      "7202"
                                      "8600");
    EXPECT_EQ(result.scripts.size(), 4U);
}

TEST(IssuerScript, LongTemplatesHaveALongLength)
{
    const Terminal terminal = started();
    const auto result = issuerWith(scripts({{{"set_limit", 1}, {"repeat", 20}}})).authorise(terminal.text(false));
    const auto objects = sim::tlv::parse(unhex(result.text));
    ASSERT_TRUE(objects);
    ASSERT_EQ(objects->size(), 2U);
    EXPECT_EQ(objects->at(1).value.size(), 7U + 20U * 17U);
}

// ---------------------------------------------------------------- profiles

TEST(IssuerProfile, ComplaintsNameThePlaceAndWhatIsExpected)
{
    EXPECT_EQ(complaint(json::object()), "none");
    EXPECT_NE(complaint({{"keys", nullptr}}).find("\"keys\" is missing"), std::string::npos);
    struct Row {
        json changes;
        const char* said;
    };
    const Row rows[] = {
        {{{"keys", {{"mk_ac", "00"}}}}, "issuer.keys.mk_ac: expected 16 bytes"},
        {{{"keys", {{"udk_ac", "00"}}}}, "issuer.keys.udk_ac: unknown here"},
        {{{"rules", {{{"decision", "perhaps"}}}}}, "rules[0].decision: expected approve, refer or decline"},
        {{{"rules", {{{"decision", "refer"}, {"arc", "1"}}}}}, "rules[0].arc: expected a response code"},
        {{{"rules", {{{"decision", "refer"}, {"up_to", -1}}}}}, "rules[0].up_to: expected an amount"},
        {{{"cryptogram_objects", {"9F33"}}}, "cryptogram_objects[0]: expected one of the tags"},
        {scripts({{{"block", true}, {"unblock", true}}}), "commands[0]: expected one script command"},
        {scripts({{{"block", false}}}), "commands[0]: expected one script command"},
        {scripts({{{"pin", "12"}}}), "commands[0].pin: expected a PIN"},
        {scripts({{{"pin", "123456"}, {"current_pin", "12"}}}), "commands[0].current_pin: expected a PIN"},
        {scripts({{{"block", true}, {"current_pin", "1234"}}}), "commands[0].current_pin: expected this beside"},
        {scripts({{{"explode", true}}}), "commands[0].explode: unknown here"},
        {scripts({{{"block", true}}}, "73"), "scripts[0].template: expected \"71\" or \"72\""},
        {{{"scripts", {{{"id", "00"}, {"commands", json::array()}}}}}, "scripts[0].id: expected 4 bytes"},
    };
    for (const Row& row : rows) {
        EXPECT_NE(complaint(row.changes).find(row.said), std::string::npos) << complaint(row.changes);
    }
}

TEST(IssuerProfile, AProfileNeedNotHaveOne)
{
    EXPECT_FALSE(sim::issuerOf({"x", "x.json", R"({"cards": []})"}));
    const auto issuer = sim::issuerOf({"x", "x.json", json({{"issuer", debitIssuer()}}).dump()});
    ASSERT_TRUE(issuer);
    EXPECT_TRUE(issuer->authorise(started().text(false)).request.verified);
    EXPECT_THROW(sim::issuerOf({"x", "x.json", "{"}), sim::ProfileError);
    EXPECT_THROW(sim::issuerOf({"x", "x.json", R"({"issuer": {}})"}), sim::ProfileError);
}

int luhnSum(const std::string& digits)
{
    int sum = 0;
    for (std::size_t i = 0; i < digits.size(); ++i) {
        const int digit = digits[digits.size() - 1 - i] - '0';
        sum += i % 2 == 0 ? digit : digit * 2 / 10 + digit * 2 % 10;
    }
    return sum;
}

class ShippedProfile : public testing::TestWithParam<const char*> {};

TEST_P(ShippedProfile, EveryApplicationWithKeysCompletesASaleWithItsIssuer)
{
    const auto profile = sim::findProfile(GetParam());
    const auto issuer = sim::issuerOf(profile);
    ASSERT_TRUE(issuer);
    json card = json::parse(profile.json)["cards"][0];
    card["t0"] = false; // the terminal here follows no 61xx
    int sales = 0;
    for (const auto& application : card["applications"]) {
        if (!application.contains("keys")) {
            continue;
        }
        Terminal terminal(emvCard(card));
        terminal.begin(application["aid"].get<std::string>());
        EXPECT_EQ(terminal.generate("80", 0x8C)[0], 0x80);
        const auto result = issuer->authorise(terminal.text(false));
        EXPECT_TRUE(result.request.verified) << result.request.why;
        EXPECT_EQ(result.decision, Decision::Approve);
        EXPECT_EQ(result.request.account.substr(0, 2), "62");
        EXPECT_EQ(luhnSum(result.request.account) % 10, 0) << result.request.account;
        EXPECT_EQ(terminal.authenticate(result.text), "9000");
        EXPECT_EQ(terminal.generate("40", 0x8D)[0], 0x40);
        EXPECT_TRUE(issuer->verifyCompletion(terminal.text(true)).verified);
        ++sales;
    }
    EXPECT_GT(sales, 0);
}

INSTANTIATE_TEST_SUITE_P(Cards, ShippedProfile, testing::Values("debit", "credit", "multi"),
                         [](const auto& row) { return std::string(row.param); });

TEST(ShippedDebit, HasEveryFieldOfTheCardInformationAndALog)
{
    Terminal terminal(emvCard(json::parse(sim::findProfile("debit").json)["cards"][0]));
    terminal.begin();
    for (const sim::tlv::Tag tag : {0x5AU, 0x57U, 0x5F24U, 0x5F34U, 0x9F62U, 0x9F61U, 0x5F20U, 0x9F0BU, 0x8CU, 0x8DU}) {
        EXPECT_TRUE(sim::tlv::find(terminal.records, tag)) << sim::tlv::toHex(tag);
    }
    for (const char* command : {"80CA9F7900", "80CA9F7700", "80CA9F7800", "80CA9F3600", "80CA9F1300"}) {
        EXPECT_EQ(terminal.status(command), "9000") << command;
    }
    for (unsigned record = 1; record <= 6; ++record) {
        const sim::Bytes read = {0x00, 0xB2, static_cast<std::uint8_t>(record), 0x5C, 0x00};
        EXPECT_EQ(terminal.data(sim::toHex(read)).size(), 45U) << record;
    }
    EXPECT_EQ(terminal.send("00B2075C00"), "6A83");
}

TEST(ShippedMulti, FirstAndNextOccurrenceAndTheNestedDirectory)
{
    Terminal terminal(emvCard(json::parse(sim::findProfile("multi").json)["cards"][0]));
    const auto name = [&terminal](const char* command) {
        const std::string answer = terminal.send(command);
        return answer.size() < 24 ? answer : answer.substr(8, 16) + " " + answer.substr(answer.size() - 4);
    };
    EXPECT_EQ(name("00A4040005A000000333"), "A000000333010101 9000");
    EXPECT_EQ(name("00A4040205A000000333"), "A000000333010102 9000");
    EXPECT_EQ(name("00A4040205A000000333"), "A000000333010106 9000");
    EXPECT_EQ(name("00A4040205A000000333"), "A000000333010103 6283");
    EXPECT_EQ(terminal.send("00A4040205A000000333"), "6A82");
    terminal.select("51494E4748452E5359532E4444463031");
    EXPECT_EQ(terminal.status("00B2011400"), "9000");
}

} // namespace
