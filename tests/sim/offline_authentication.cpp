// SPDX-License-Identifier: Apache-2.0
// Offline data authentication: what the simulated cards show and sign, held against the tool's own checks.
#include "sim/profiles/profile.h"
#include "support/sim_terminal.h"
#include "tools/verify/offline_checks.h"

namespace {

using namespace vorn;
using nlohmann::json;
using test::debitCard;
using test::emvCard;
using test::Terminal;
using test::unhex;
using tool::verify::Bytes;
using tool::verify::Evidence;
using tool::verify::OfflineChecks;

constexpr unsigned kMonth = 203001; // the certificates of the test keys last until 2049
const std::string kAid = "A000000333010101";

json cardOffering(const std::vector<const char*>& methods)
{
    json card = debitCard();
    card["applications"][0].erase("aip");
    card["applications"][0]["offline_authentication"] = {{"methods", methods}, {"signed", {{"2", 1}}}};
    return card;
}

json cardWith(const json& changes)
{
    json card = cardOffering({"sda", "dda", "cda"});
    card["applications"][0]["offline_authentication"].merge_patch(changes);
    return card;
}

// Reads a card as a terminal does, for the checks.
class Reading {
public:
    explicit Reading(const json& card, const std::string& aid = kAid) : terminal(emvCard(card))
    {
        terminal.select(aid);
        options_ = terminal.fill(sim::tlv::find(terminal.fci, 0x9F38).value_or(Bytes()));
        const Bytes answer = terminal.data(Terminal::command("80A80000", sim::tlv::encode(0x83, options_)));
        const auto both = sim::tlv::find(answer, 0x80);
        evidence.aid = unhex(aid);
        evidence.aip = both ? Bytes(both->begin(), both->begin() + 2) : sim::tlv::find(answer, 0x82).value_or(Bytes());
        afl = both ? Bytes(both->begin() + 2, both->end()) : sim::tlv::find(answer, 0x94).value_or(Bytes());
        evidence.thisMonth = kMonth;
        for (std::size_t at = 0; at + 4 <= afl.size(); at += 4) {
            readFile(afl[at], afl[at + 1], afl[at + 2], afl[at + 3]);
        }
    }

    OfflineChecks checks() const { return OfflineChecks(evidence, tool::verify::testAuthorities()); }

    // All that the card offers, a first cryptogram of this kind included.
    OfflineChecks checkAll(const std::string& control = "90")
    {
        OfflineChecks all = checks();
        all.checkCertificates();
        if (all.offersDynamic()) {
            all.checkDynamic(terminal.objects[0x9F37], authenticate());
        }
        if (all.offersCombined()) {
            all.checkCombined(lists({0x8C}), terminal.objects[0x9F37], generate(control, 0x8C));
        }
        return all;
    }
    OfflineChecks checkSecond(const std::string& control)
    {
        OfflineChecks all = checks();
        all.checkCertificates();
        generate("90", 0x8C);
        all.checkCombined(lists({0x8C, 0x8D}), terminal.objects[0x9F37], generate(control, 0x8D));
        return all;
    }

    Bytes authenticate() { return terminal.data(Terminal::command("00880000", terminal.objects[0x9F37])); }
    Bytes generate(const std::string& control, unsigned tag)
    {
        return terminal.data(Terminal::command("80AE" + control + "00", list(tag)));
    }
    // The values of the PDOL and of these, as they were sent.
    Bytes lists(std::initializer_list<unsigned> tags) const
    {
        Bytes all = options_;
        for (const unsigned tag : tags) {
            sim::tlv::append(all, list(tag));
        }
        return all;
    }
    Bytes list(unsigned tag) const { return terminal.fill(tool::verify::valueOf(evidence.objects, tag)); }

    Terminal terminal;
    Evidence evidence;
    Bytes afl;

private:
    void readFile(unsigned file, unsigned first, unsigned last, unsigned marked)
    {
        for (unsigned number = first; number <= last; ++number) {
            const Bytes read = {0x00, 0xB2, static_cast<std::uint8_t>(number), static_cast<std::uint8_t>(file | 4U), 0};
            const Bytes record = terminal.data(sim::toHex(read));
            EXPECT_TRUE(tool::verify::collect(record, evidence.objects));
            if (number < first + marked) {
                const Bytes content = file <= 0x50 ? tool::verify::onlyObject(record, 0x70).value_or(Bytes()) : record;
                evidence.markedData.insert(evidence.markedData.end(), content.begin(), content.end());
            }
        }
    }

    Bytes options_;
};

std::string textOf(const OfflineChecks& checks)
{
    std::string text;
    for (const auto& step : checks.steps()) {
        text += step.name + (step.held ? " held: " : " FAILED: ") + step.detail + "\n";
    }
    return text;
}

// The one step that fails, and why.
std::string failureOf(const OfflineChecks& checks)
{
    std::string text;
    for (const auto& step : checks.steps()) {
        text += step.held ? "" : (text.empty() ? "" : " | ") + step.name + ": " + step.detail;
    }
    return text;
}

// ---------------------------------------------------------------- cards that are as they say

TEST(OfflineAuthentication, EveryMethodHolds)
{
    Reading card(cardOffering({"sda", "dda", "cda"}));
    const OfflineChecks checks = card.checkAll();
    EXPECT_EQ(checks.steps().size(), 6U);
    EXPECT_TRUE(checks.held()) << textOf(checks);
    EXPECT_EQ(sim::toHex(card.evidence.aip), "7D00");
    EXPECT_EQ(sim::toHex(card.afl), "080101001001010118010300") << "one record of file 2 is signed";
}

TEST(OfflineAuthentication, TheProfileSaysJustWhatTheCardCanDo)
{
    struct Row {
        std::vector<const char*> methods;
        const char* aip;
        unsigned records;
        std::size_t steps;
    };
    const Row rows[] = {
        {{"sda"}, "5C00", 2, 3}, {{"dda"}, "3C00", 3, 4}, {{"cda"}, "1D00", 3, 4}, {{"sda", "cda"}, "5D00", 3, 5}};
    for (const Row& row : rows) {
        Reading card(cardOffering(row.methods));
        EXPECT_EQ(sim::toHex(card.evidence.aip), row.aip);
        EXPECT_EQ(card.afl[10], row.records) << row.aip;
        const OfflineChecks checks = card.checkAll();
        EXPECT_EQ(checks.steps().size(), row.steps) << textOf(checks);
        EXPECT_TRUE(checks.held()) << textOf(checks);
    }
}

TEST(OfflineAuthentication, ACardWithoutItSaysSo)
{
    json card = debitCard();
    card["applications"][0].erase("aip");
    Reading reading(card);
    EXPECT_EQ(sim::toHex(reading.evidence.aip), "1C00");
    EXPECT_FALSE(reading.checks().offersAny());
    EXPECT_EQ(reading.terminal.send("0088000004112233440 0"), "6D00");
    EXPECT_EQ(reading.terminal.status(Terminal::command("80AE9000", reading.list(0x8C))), "6A86") << "no CDA";
}

// EMV Book 3, 10.3: of files 11 to 30 the template is signed as well.
TEST(OfflineAuthentication, RecordsOfOtherFilesAreSignedWithTheirTemplate)
{
    json card = cardWith({{"signed", {{"1", 1}, {"12", 1}}}, {"sfi", 20}});
    card["applications"][0]["records"]["12"] = json::parse(R"([{"5F25": "220101"}, {"5F28": "0156"}])");
    Reading reading(card);
    const OfflineChecks checks = reading.checkAll();
    EXPECT_TRUE(checks.held()) << textOf(checks);
    EXPECT_NE(sim::toHex(reading.evidence.markedData).find("70065F2503220101"), std::string::npos);
}

TEST(OfflineAuthentication, AStatedLocatorSaysWhatIsSigned)
{
    json card = cardOffering({"sda", "dda"});
    card["applications"][0]["afl"] = "0801010110010101 18010300";
    Reading reading(card);
    const OfflineChecks checks = reading.checkAll();
    EXPECT_TRUE(checks.held()) << textOf(checks);
}

TEST(OfflineAuthentication, TheDynamicSignatureIsAnotherInEachTransaction)
{
    Reading card(cardOffering({"dda"}));
    const Bytes before = card.authenticate();
    card.terminal.begin();
    EXPECT_NE(card.authenticate(), before);
}

TEST(OfflineAuthentication, BothCryptogramsCanBeSigned)
{
    json card = cardOffering({"cda"});
    card["applications"][0]["risk"] = {{"require_issuer_auth", false}};
    const OfflineChecks checks = Reading(card).checkSecond("50");
    EXPECT_TRUE(checks.held()) << textOf(checks);
    EXPECT_EQ(checks.steps().back().name, "signed cryptogram (CDA)");
}

TEST(OfflineAuthentication, ARefusalIsNotSigned)
{
    Reading card(cardOffering({"cda"}));
    EXPECT_EQ(card.generate("10", 0x8C)[0], 0x80) << "format 1, as without";
}

TEST(OfflineAuthentication, InTemplate77)
{
    json card = cardOffering({"dda"});
    card["applications"][0]["ac_format"] = 2;
    Reading reading(card);
    EXPECT_EQ(sim::toHex(reading.authenticate()).substr(0, 10), "77639F4B60");
    EXPECT_TRUE(reading.checkAll().held());
}

TEST(OfflineAuthentication, InternalAuthenticateWantsItsOrderAndItsLength)
{
    Terminal terminal(emvCard(cardOffering({"dda"})));
    EXPECT_EQ(terminal.send("00880000041122334400"), "6985") << "nothing is selected";
    terminal.select();
    EXPECT_EQ(terminal.send("00880000041122334400"), "6985") << "no transaction";
    terminal.begin();
    EXPECT_EQ(terminal.send("008800000311223300"), "6700");
    EXPECT_EQ(terminal.send("00880001041122334400"), "6A86");
    EXPECT_EQ(terminal.status("00880000041122334400"), "9000");
}

TEST(OfflineAuthentication, TheCardsOwnListOfDynamicDataIsUsed)
{
    json card = cardOffering({"dda"});
    card["applications"][0]["records"]["2"].push_back({{"9F49", "9F37049F0206"}});
    Reading reading(card);
    OfflineChecks checks = reading.checks();
    EXPECT_EQ(sim::toHex(checks.dynamicList()), "9F37049F0206");
    const Bytes brought = reading.terminal.fill(checks.dynamicList());
    checks.checkCertificates();
    checks.checkDynamic(brought, reading.terminal.data(Terminal::command("00880000", brought)));
    EXPECT_TRUE(checks.held()) << textOf(checks);
}

// ---------------------------------------------------------------- what is not

TEST(OfflineAuthentication, AnotherNumberOrTransactionThanTheSignedOneIsNoticed)
{
    Reading card(cardOffering({"dda", "cda"}));
    OfflineChecks checks = card.checks();
    checks.checkCertificates();
    checks.checkDynamic(unhex("1E78EEBD"), card.authenticate());
    const Bytes answer = card.generate("90", 0x8C);
    checks.checkCombined(card.list(0x8C), card.terminal.objects[0x9F37], answer);
    EXPECT_EQ(failureOf(checks), "dynamic signature (DDA): it is over other data | signed cryptogram (CDA): it is over "
                                 "another transaction")
        << "the values of the PDOL are missing";
}

TEST(OfflineAuthentication, AChangedCryptogramIsNoticed)
{
    Reading card(cardOffering({"cda"}));
    OfflineChecks checks = card.checks();
    checks.checkCertificates();
    Bytes answer = card.generate("90", 0x8C);
    ASSERT_EQ(sim::toHex(answer).substr(0, 14), "7781829F270180") << sim::toHex(answer);
    answer[6] = 0x40; // an ARQC as a TC
    checks.checkCombined(card.list(0x8C), card.terminal.objects[0x9F37], answer);
    EXPECT_NE(failureOf(checks).find("it signs another decision"), std::string::npos) << textOf(checks);
}

struct Flaw {
    json changes;
    std::string failure;
};

// Each check can be made to fail, and no other fails with it but those that stand on it.
TEST(OfflineAuthentication, CardsFailAsTheirProfileWantsIt)
{
    const Flaw flaws[] = {
        {{{"flaw", "issuer_hash"}}, "issuer's certificate: its hash is another"},
        {{{"issuer_expires", "1229"}}, "issuer's certificate: it expired in 2029-12"},
        {{{"card_expires", "0629"}}, "card's certificate: it expired in 2029-06"},
        {{{"card_expires", "0699"}}, "card's certificate: it expired in 1999-06"},
        {{{"issuer_serial", "0010BA"}}, "issuer's certificate: its serial number 0010BA is revoked"},
        {{{"ca_index", "81"}}, "authority's key: A000000333 index 81 is not known here"},
        {{{"flaw", "card_hash"}},
         "card's certificate: its hash is another: the key or the signed records were changed"},
        {{{"flaw", "signed_data"}},
         "signed data (SDA): the records are not those that were signed | card's certificate: its hash is another: the "
         "key or the signed records were changed"},
        {{{"flaw", "dynamic_signature"}}, "dynamic signature (DDA): it is not signed with the key above it"},
        {{{"flaw", "combined_signature"}}, "signed cryptogram (CDA): it is not signed with the key above it"},
    };
    for (const Flaw& flaw : flaws) {
        const OfflineChecks checks = Reading(cardWith(flaw.changes)).checkAll();
        EXPECT_EQ(failureOf(checks).substr(0, flaw.failure.size()), flaw.failure) << flaw.changes << textOf(checks);
    }
}

TEST(OfflineAuthentication, ACardOfAnotherAccountIsNoticed)
{
    Reading card(cardOffering({"dda"}));
    card.evidence.objects[0x5A] = unhex("6228000100002F");
    EXPECT_EQ(failureOf(card.checkAll()).substr(0, 44), "card's certificate: it is another account's");
    card.evidence.objects[0x5A] = unhex("5228000100001F");
    EXPECT_EQ(failureOf(card.checkAll()).substr(0, 44), "issuer's certificate: it is another issuer's");
}

TEST(OfflineAuthentication, CutAndForeignBytesFailWithoutHarm)
{
    Reading card(cardOffering({"sda", "dda"}));
    const auto whole = card.evidence.objects;
    for (const unsigned tag : {0x8FU, 0x90U, 0x92U, 0x93U, 0x9F32U, 0x9F46U, 0x9F47U, 0x9F48U, 0x9F4AU}) {
        for (const Bytes& instead : {Bytes(), Bytes{0x00}, Bytes(96, 0xFF), Bytes(128, 0x00), Bytes(144, 0x01)}) {
            card.evidence.objects = whole;
            card.evidence.objects[tag] = instead;
            OfflineChecks checks = card.checks();
            checks.checkCertificates();
            checks.checkDynamic({}, instead);
            EXPECT_FALSE(checks.held()) << std::hex << tag << std::dec << " of " << instead.size();
        }
    }
}

// ---------------------------------------------------------------- the profiles

std::string complaintOf(const json& card)
{
    try {
        sim::makeEmvCard(card, "cards[0]");
    } catch (const sim::ProfileError& error) {
        return error.what();
    }
    return "none";
}

TEST(OfflineAuthentication, MistakesNameTheirPlace)
{
    const std::string place = "cards[0].applications[0].offline_authentication";
    const auto with = [](const char* name, const json& value) { return complaintOf(cardWith({{name, value}})); };
    EXPECT_EQ(with("methods", json::array()).find(place + ".methods: expected at least one of"), 0U);
    EXPECT_EQ(with("methods", json::array({"rsa"})).find(place + ".methods[0]: expected \"sda\""), 0U);
    EXPECT_EQ(with("flaw", "none").find(place + ".flaw: expected issuer_hash"), 0U);
    EXPECT_EQ(with("signed", {{"9", 1}}).find(place + ".signed.9: expected the short file identifier"), 0U);
    EXPECT_EQ(with("signed", {{"2", 2}}).find(place + ".signed.2: expected"), 0U);
    EXPECT_EQ(with("issuer_expires", "12").find(place + ".issuer_expires: expected"), 0U);
    EXPECT_EQ(with("serial", "12").find(place), 0U);
    json card = cardOffering({"sda"});
    card["applications"][0]["afl"] = "0801010018010301";
    EXPECT_EQ(complaintOf(card).find(place + ": expected an AFL that marks records"), 0U) << complaintOf(card);
}

TEST(OfflineAuthentication, OfTheShippedCardsIsWhatTheirDocumentSays)
{
    struct Row {
        const char* profile;
        const char* aid;
        const char* aip;
        std::vector<std::string> failed; // the steps that do
    };
    const Row rows[] = {
        {"debit", "A000000333010101", "7D00", {}},
        {"credit", "A000000333010102", "5C00", {}},
        {"multi", "A000000333010101", "3C00", {}},
        {"multi", "A000000333010102", "1C00", {}},
        {"multi", "A000000333010106", "7C00", {}},
        {"flawed-authority", "A000000333010101", "7D00", {"authority's key"}},
        {"flawed-hash", "A000000333010101", "7D00", {"issuer's certificate"}},
        {"flawed-expired", "A000000333010101", "7D00", {"issuer's certificate"}},
        {"flawed-revoked", "A000000333010101", "7D00", {"issuer's certificate"}},
        {"flawed-card-hash", "A000000333010101", "7D00", {"card's certificate"}},
        {"flawed-data", "A000000333010101", "7D00", {"signed data (SDA)", "card's certificate"}},
        {"flawed-dda", "A000000333010101", "7D00", {"dynamic signature (DDA)"}},
        {"flawed-cda", "A000000333010101", "7D00", {"signed cryptogram (CDA)"}},
    };
    for (const Row& row : rows) {
        json card = json::parse(sim::findProfile(row.profile).json)["cards"][0];
        card["t0"] = false;
        Reading reading(card, row.aid);
        EXPECT_EQ(sim::toHex(reading.evidence.aip), row.aip) << row.profile;
        if (!reading.checks().offersAny()) {
            continue;
        }
        std::vector<std::string> failed;
        const OfflineChecks checks = reading.checkAll();
        for (const auto& step : checks.steps()) {
            if (!step.held) {
                failed.push_back(step.name);
            }
        }
        EXPECT_EQ(failed, row.failed) << row.profile << " " << row.aid << "\n" << textOf(checks);
    }
}

} // namespace
