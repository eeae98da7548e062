// SPDX-License-Identifier: Apache-2.0
// Contactless payments in one answer: what the terminal's qualifiers make of a card.
#include "sim/cards/crypto.h"
#include "sim/data/card_values.h"
#include "sim/profiles/profile.h"
#include "support/sim_terminal.h"
#include "tools/verify/offline_checks.h"

#include <algorithm>

namespace {

using namespace vorn;
using nlohmann::json;
using sim::tlv::find;
using test::unhex;
namespace verify = tool::verify;

const std::string kAid = "A000000333010101";
const std::string kQuick = "26000080"; // pays at once, online PIN and signature, signature version 01
const std::string kQuickVersion0 = "26000000";
const std::string kLikeWithContacts = "C4000080";

json shippedCard() { return json::parse(sim::findProfile("contactless").json)["cards"][0]; }

class Contactless : public testing::Test {
protected:
    void use(const json& description) { terminal = test::Terminal(test::emvCard(description)); }

    // The answer to GET PROCESSING OPTIONS.
    sim::Bytes tap(const std::string& qualifiers, std::uint64_t amount)
    {
        terminal.objects[0x9F66] = unhex(qualifiers);
        terminal.objects[0x9F02] = sim::bcdAmount(amount);
        terminal.objects[0x9C] = {type};
        terminal.select(kAid);
        const sim::Bytes values = terminal.fill(find(terminal.fci, 0x9F38).value_or(sim::Bytes()));
        return answer = terminal.data(test::Terminal::command("80A80000", sim::tlv::encode(0x83, values)));
    }
    std::string object(unsigned tag) const { return sim::toHex(find(answer, tag).value_or(sim::Bytes())); }
    std::string kind() const { return object(0x9F27); }

    // Reads the records that the answer names, but for so many at the end.
    void readRecords(unsigned leftOut = 0)
    {
        objects.clear();
        marked.clear();
        const sim::Bytes afl = unhex(object(0x94));
        std::vector<std::pair<sim::Bytes, bool>> commands;
        for (std::size_t at = 0; at + 4 <= afl.size(); at += 4) {
            for (unsigned number = afl[at + 1]; number <= afl[at + 2]; ++number) {
                commands.push_back(
                    {{0, 0xB2, static_cast<std::uint8_t>(number), static_cast<std::uint8_t>(afl[at] | 4U), 0},
                     number < afl[at + 1] + 0U + afl[at + 3]});
            }
        }
        ASSERT_GT(commands.size(), leftOut);
        commands.resize(commands.size() - leftOut);
        for (const auto& [command, counted] : commands) {
            const sim::Bytes record = terminal.data(sim::toHex(command));
            EXPECT_TRUE(verify::collect(record, objects));
            if (counted) {
                sim::tlv::append(marked, verify::onlyObject(record, 0x70).value_or(sim::Bytes()));
            }
        }
    }
    std::uint64_t balance() { return terminal.card().state().balance; }

    std::uint8_t type = 0x00; // a purchase
    test::Terminal terminal{test::emvCard(shippedCard())};
    sim::Bytes answer;
    verify::Objects objects;
    sim::Bytes marked;
};

TEST_F(Contactless, TheDirectoryIsInItsOwnAnswer)
{
    EXPECT_EQ(terminal.send("00A404000E325041592E5359532E444446303100"),
              "6F30840E325041592E5359532E4444463031A51EBF0C1B61194F08A000000333010101500A50424F43204445424954870101"
              "9000")
        << "one entry";
}

TEST_F(Contactless, WithoutTheBitItIsATransactionAsWithContacts)
{
    tap(kLikeWithContacts, 1000);
    EXPECT_EQ(answer[0], 0x80);
    terminal.begin();
    EXPECT_EQ(terminal.generate("80", 0x8C)[0], 0x80) << "an ARQC, by GENERATE AC";
    EXPECT_EQ(balance(), 30000U);
}

TEST_F(Contactless, AnAmountThatTheCashCoversIsPaidOffline)
{
    tap(kQuick, 1000);
    EXPECT_EQ(answer[0], 0x77);
    EXPECT_EQ(kind(), "40");
    EXPECT_EQ(object(0x57), "6229990000583307146D321222000003914F");
    EXPECT_EQ(object(0x5F34), "01");
    EXPECT_EQ(object(0x9F36), "0022");
    EXPECT_EQ(object(0x9F5D), "000000029000") << "what is left";
    EXPECT_EQ(object(0x9F10).substr(16, 14), "0A010000029000") << "what the issuer is told";
    EXPECT_EQ(object(0x9F6C), "0000");
    EXPECT_LE(answer.size(), 253U);
}

// A card that is taken away too soon has not paid.
TEST_F(Contactless, ThePaymentIsMadeWithTheLastRecord)
{
    tap(kQuick, 1000);
    readRecords(1);
    EXPECT_EQ(balance(), 30000U);
    terminal.card().powerOn();
    EXPECT_EQ(balance(), 30000U);
    tap(kQuick, 1000);
    readRecords();
    EXPECT_EQ(balance(), 29000U);
    EXPECT_EQ(sim::toHex(verify::valueOf(objects, 0x9F74)), "454343303031") << "its issuer's authorisation code";
    readRecords();
    EXPECT_EQ(balance(), 29000U) << "once";
    EXPECT_EQ(terminal.send("00B2015C00").substr(12, 12), "000000001000") << "the newest of the log";
}

TEST_F(Contactless, NoObjectComesTwice)
{
    tap(kQuick, 1000);
    readRecords();
    verify::Objects given;
    ASSERT_TRUE(verify::collect(answer, given));
    for (const auto& [tag, value] : given) {
        EXPECT_EQ(objects.count(tag), 0U) << std::hex << tag;
    }
}

TEST_F(Contactless, TheIssuerIsAskedWhenTheCashDoesNotDo)
{
    struct Row {
        const char* why;
        std::string qualifiers;
        std::uint64_t amount;
        const char* kind;
    };
    const Row rows[] = {{"nothing to pay", kQuick, 0, "80"},
                        {"the single limit", kQuick, 20000, "40"},
                        {"above it", kQuick, 20001, "80"},
                        {"the terminal wants to go online", "26800080", 1000, "80"},
                        {"an online PIN", "26400080", 1000, "80"},
                        {"a signature", "22400080", 1000, "40"},
                        {"no way to verify the cardholder", "20400080", 1000, "00"},
                        {"an offline terminal, covered", "28000080", 1000, "40"},
                        {"an offline terminal, not covered", "28000080", 20001, "00"}};
    for (const Row& row : rows) {
        use(shippedCard());
        tap(row.qualifiers, row.amount);
        EXPECT_EQ(kind(), row.kind) << row.why;
    }
}

TEST_F(Contactless, BelowTheResetThresholdTheCardWantsToBeLoaded)
{
    json card = shippedCard();
    card["applications"][0]["electronic_cash"]["balance"] = 15000;
    use(card);
    EXPECT_EQ(sim::toHex(terminal.data("00A4040008A000000333010101")).substr(0, 2), "6F");
    EXPECT_EQ(terminal.send("80CA9F6D00"), "9F6D060000000050009000");
    tap(kQuick, 10001);
    EXPECT_EQ(kind(), "80");
    tap(kQuick, 10000);
    EXPECT_EQ(kind(), "40");
}

// IC_GetInfo reads a card with an amount of 0.12 and this type.
TEST_F(Contactless, CashIsNotPaidOutOfTheElectronicCash)
{
    type = 0x01;
    tap("F4000000", 12);
    EXPECT_EQ(kind(), "80");
    readRecords();
    EXPECT_EQ(balance(), 30000U);
    EXPECT_EQ(sim::toHex(verify::valueOf(objects, 0x5A)), "6229990000583307146F") << "what was to be read";
}

TEST_F(Contactless, AnotherCurrencyIsNotPaidFromTheCash)
{
    terminal.objects[0x5F2A] = unhex("0840");
    tap(kQuick, 1000);
    EXPECT_EQ(kind(), "80");
}

TEST_F(Contactless, TheCardSaysHowTheHolderIsVerified)
{
    tap("26400080", 1000);
    EXPECT_EQ(object(0x9F6C), "8000") << "online PIN";
    tap("22400080", 1000);
    EXPECT_EQ(object(0x9F6C), "4000") << "signature";
}

TEST_F(Contactless, ItIsOverWithTheAnswer)
{
    tap(kQuick, 30000);
    ASSERT_EQ(kind(), "80");
    EXPECT_EQ(terminal.status("80AE8000"
                              "00"),
              "6985")
        << "no GENERATE AC";
    EXPECT_EQ(terminal.status("80A8000002830000"), "6985");
}

TEST_F(Contactless, TheIssuerVerifiesTheCryptogram)
{
    tap(kQuick, 30000);
    const auto issuer = *sim::issuerOf(sim::findProfile("contactless"));
    const auto keys =
        sim::crypto::sessionKeys(sim::crypto::cardKeys(issuer.rules().keys, "6229990000583307146", "01"), 0x0022);
    std::map<unsigned, sim::Bytes> values = terminal.objects;
    values[0x82] = unhex("3D00");
    values[0x9F36] = unhex("0022");
    const sim::Bytes data = unhex(object(0x9F10));
    const auto expected = sim::crypto::applicationCryptogram(keys.ac, values, {data.begin() + 3, data.begin() + 7});
    EXPECT_EQ(object(0x9F26), sim::toHex({expected.begin(), expected.end()}));
}

TEST_F(Contactless, TheSignatureHoldsWhenTheCardIsGone)
{
    for (const std::string& qualifiers : {kQuick, kQuickVersion0}) {
        use(shippedCard());
        tap(qualifiers, 1000);
        readRecords();
        verify::OfflineChecks checks({unhex(kAid), unhex(object(0x82)), objects, marked, 203001},
                                     verify::testAuthorities());
        checks.checkCertificates();
        const bool version1 = qualifiers == kQuick;
        const sim::Bytes related = unhex(object(0x9F69));
        EXPECT_EQ(related.size(), version1 ? 8U : 0U);
        sim::Bytes covered = terminal.objects[0x9F37];
        if (version1) {
            sim::tlv::append(covered, terminal.objects[0x9F02]);
            sim::tlv::append(covered, terminal.objects[0x5F2A]);
            sim::tlv::append(covered, related);
        }
        checks.checkDynamic(covered, sim::tlv::encode(0x77, sim::tlv::encode(0x9F4B, unhex(object(0x9F4B)))));
        EXPECT_EQ(checks.steps().size(), 4U);
        EXPECT_TRUE(checks.held()) << checks.steps().back().detail;
        covered[0] = static_cast<std::uint8_t>(covered[0] ^ 1);
        checks.checkDynamic(covered, sim::tlv::encode(0x77, sim::tlv::encode(0x9F4B, unhex(object(0x9F4B)))));
        EXPECT_FALSE(checks.held());
    }
}

TEST_F(Contactless, ABlockedApplicationPaysNothing)
{
    json card = shippedCard();
    card["applications"][0]["blocked"] = true;
    use(card);
    terminal.objects[0x9F66] = unhex(kQuick);
    const sim::Bytes values = terminal.fill(unhex("9F66049F02069F03069F1A0295055F2A029A039C019F3704"));
    EXPECT_EQ(terminal.status("00A4040008A000000333010101"), "6283");
    answer = terminal.data(test::Terminal::command("80A80000", sim::tlv::encode(0x83, values)));
    EXPECT_EQ(kind(), "00");
}

TEST_F(Contactless, MistakesInTheProfileNameTheirPlace)
{
    const auto complaint = [](const json& changes) {
        json card = shippedCard();
        card["applications"][0].merge_patch(changes);
        try {
            sim::makeEmvCard(card, "cards[0]");
        } catch (const sim::ProfileError& error) {
            return std::string(error.what());
        }
        return std::string("none");
    };
    EXPECT_EQ(complaint({{"qpboc", {{"afl", "0802"}}}}).find("cards[0].applications[0].qpboc.afl: expected entries"),
              0U);
    EXPECT_EQ(complaint({{"keys", nullptr}}).find("cards[0].applications[0].qpboc: expected keys"), 0U);
    json card = shippedCard();
    for (int i = 0; i < 20; ++i) {
        card["applications"].push_back({{"aid", "A00000033301"}, {"label", "A LONG LABEL OF ONE"}});
    }
    EXPECT_THROW(sim::makeEmvCard(card, "cards[0]"), sim::ProfileError);
}

} // namespace
