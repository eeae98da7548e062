// SPDX-License-Identifier: Apache-2.0
// Whole transactions between the library, a card that computes and an issuer that sees nothing but the two texts.
#include "sim/cards/crypto.h"
#include "sim/cards/emv_card.h"
#include "sim/data/card_values.h"
#include "sim/data/json_node.h"
#include "sim/issuer/cryptogram_text.h"
#include "sim/issuer/issuer.h"
#include "sim/profiles/profile.h"
#include "sim/reader/reader.h"
#include "support/transaction.h"

#include <nlohmann/json.hpp>

#include <map>
#include <memory>
#include <random>

using namespace vorn::test;
namespace sim = vorn::sim;
using nlohmann::json;

namespace {

class SimTransaction : public TransactionTest {
protected:
    SimTransaction()
        : profile(json::parse(sim::findProfile("debit").json)), issuer(sim::makeIssuer(profile["issuer"], "debit"))
    {
        line.onBytes = [this](const Bytes& bytes, int speed) {
            for (const sim::Reader::Output& output : simulated.receive(bytes, speed)) {
                line.sendLater(output.bytes, static_cast<int>(output.delay / std::chrono::milliseconds(1)));
            }
        };
        simulated.checkLineSpeed(true);
        makeCard(profile["cards"][0]);
    }

    void makeCard(const json& description)
    {
        emvCard = std::dynamic_pointer_cast<sim::EmvCard>(sim::makeEmvCard(description, "the test's card"));
        ASSERT_TRUE(emvCard);
        place(Way::Contact);
    }
    // A debit card whose lists ask for more.
    json cardAskingAlso(const std::string& list) const
    {
        json description = profile["cards"][0];
        json& lists = description["applications"][0]["records"]["2"][1];
        for (const char* tag : {"8C", "8D"}) {
            lists[tag] = lists[tag].get<std::string>() + " " + list;
        }
        return description;
    }
    void place(Way way)
    {
        simulated.remove(sim::Slot::Contact);
        simulated.remove(sim::Slot::Field);
        simulated.insert(slotOf(way), emvCard);
        icType = static_cast<int>(way);
    }
    static sim::Slot slotOf(Way way) { return way == Way::Contact ? sim::Slot::Contact : sim::Slot::Field; }
    bool powered(Way way) const { return simulated.powered(slotOf(way)); }

    // The values that the card was sent with the last GENERATE AC of this kind, by their tags.
    std::map<sim::tlv::Tag, std::string> sent(std::uint8_t referenceControl, const std::string& list) const
    {
        Bytes data;
        for (const sim::Reader::Exchange& exchange : simulated.exchanges()) {
            const Bytes& command = exchange.command;
            if (command.size() > 8 && command[1] == 0x26 && command[3] == 0x80 && command[4] == 0xAE &&
                command[5] == referenceControl) {
                data.assign(command.begin() + 8, command.end());
            }
        }
        std::map<sim::tlv::Tag, std::string> values;
        for (const auto& [tag, value] : sim::tlv::split(*sim::tlv::parseDol(fromHex(list)), data)) {
            values[tag] = toHex(value);
        }
        return values;
    }
    std::string listOf(const char* tag) const
    {
        return withoutBlanks(profile["cards"][0]["applications"][0]["records"]["2"][1][tag].get<std::string>());
    }

    // Is the cryptogram in the text made over the text's values, these replaced?
    bool signedOver(sim::CryptogramText kind, const std::string& text,
                    const std::map<sim::tlv::Tag, std::string>& instead) const
    {
        const sim::CryptogramItems items = sim::readCryptogramText(kind, text);
        EXPECT_EQ(items.mistake, "");
        auto objects = items.values;
        for (const auto& [tag, value] : instead) {
            objects[tag] = fromHex(value);
        }
        const Bytes& issuerData = items.values.at(0x9F10);
        const Bytes results(issuerData.begin() + sim::crypto::kCvrOffset,
                            issuerData.begin() + sim::crypto::kCvrOffset + sim::crypto::kCvrSize);
        const std::string pan = toHex(items.values.at(0x5A));
        const Bytes& counter = items.values.at(0x9F36);
        const auto keys = sim::crypto::sessionKeys(
            sim::crypto::cardKeys(issuer.rules().keys, pan.substr(0, pan.find('F')), toHex(items.values.at(0x5F34))),
            static_cast<std::uint16_t>(counter[0] * 256 + counter[1]));
        std::map<sim::tlv::Tag, Bytes> input;
        for (const sim::tlv::Tag tag : sim::crypto::kCryptogramObjects) {
            input[tag] = objects.at(tag);
        }
        const auto block = sim::crypto::applicationCryptogram(keys.ac, input, results);
        return Bytes(block.begin(), block.end()) == items.values.at(0x9F26);
    }
    static std::string itemOf(sim::CryptogramText kind, const std::string& text, sim::tlv::Tag tag)
    {
        return toHex(sim::readCryptogramText(kind, text).values.at(tag));
    }

    bool tells(const std::string& part) const
    {
        const auto lines = emvCard->account();
        return std::any_of(lines.begin(), lines.end(),
                           [&](const std::string& each) { return each.find(part) != std::string::npos; });
    }

    // Both halves; the issuer decides. Its first answer is kept in `authorisation`.
    int transact(const std::string& given)
    {
        EXPECT_EQ(first(given), 0);
        authorisation = issuer.authorise(arqc);
        return second(given, authorisation.text, state);
    }

    json profile;
    sim::Reader simulated{[] { return std::chrono::milliseconds(Clock::microseconds() / 1000); }};
    std::shared_ptr<sim::EmvCard> emvCard;
    sim::Issuer issuer;
    sim::Authorisation authorisation;
};

constexpr auto kArqcText = sim::CryptogramText::Arqc;
constexpr auto kTcText = sim::CryptogramText::Tc;

// ---------------------------------------------------------------- a host's random transaction

class RandomTransaction {
public:
    explicit RandomTransaction(std::mt19937& random) : random_(random) {}

    std::uint64_t below(std::uint64_t bound) { return random_() % bound; }
    bool oneIn(std::uint64_t n) { return below(n) == 0; }

    std::string text(std::uint64_t amount)
    {
        std::vector<std::string> items = {item('P', amountDigits(amount))};
        add(items, 'Q', digits(1 + below(12)));
        add(items, 'J', digits(1 + below(4)));
        add(items, 'R', digits(1 + below(4)));
        add(items, 'T', digits(1 + below(2)));
        add(items, 'S', (oneIn(2) ? "20" : "") + digits(6));
        add(items, 'U', digits(1 + below(6)));
        add(items, 'K', hex(1 + below(8)));
        add(items, 'M', hex(1 + below(8)));
        add(items, 'O', digits(1 + below(12)));
        add(items, 'V', hex(1 + below(40)));
        std::shuffle(items.begin(), items.end(), random_);
        std::string all;
        for (const std::string& each : items) {
            all += each;
        }
        return all;
    }

private:
    static std::string item(char key, const std::string& value) { return field(key, value); }
    void add(std::vector<std::string>& items, char key, const std::string& value)
    {
        if (!oneIn(3)) {
            items.push_back(item(key, value));
        }
    }
    // With as many leading zeros as please.
    std::string amountDigits(std::uint64_t amount)
    {
        const std::string plain = std::to_string(amount);
        return std::string(below(12 - plain.size() + 1), '0') + plain;
    }
    std::string digits(std::uint64_t count) { return characters("0123456789", count); }
    std::string hex(std::uint64_t count) { return characters("0123456789ABCDEF", count); }
    std::string characters(const std::string& set, std::uint64_t count)
    {
        std::string text;
        for (std::uint64_t i = 0; i < count; ++i) {
            text += set[below(set.size())];
        }
        return text;
    }

    std::mt19937& random_;
};

} // namespace

// ---------------------------------------------------------------- with values that fit

TEST_F(SimTransaction, TwoHundredRandomOnesAreVerifiedFromTheTextsAlone)
{
    std::mt19937 random(20260319);
    RandomTransaction host(random);
    std::map<sim::Decision, int> decided;
    int contactless = 0;
    for (int i = 0; i < 200; ++i) {
        const Way way = host.oneIn(2) ? Way::Field : Way::Contact;
        place(way);
        contactless += way == Way::Field ? 1 : 0;
        // One in ten is large enough to be declined, two in ten to be referred.
        const std::uint64_t kind = host.below(10);
        const std::uint64_t amount = kind == 0  ? 2000001 + host.below(2999999)
                                     : kind < 3 ? 500001 + host.below(1500000)
                                                : host.below(500001);
        const std::string given = host.text(amount);
        SCOPED_TRACE("transaction " + std::to_string(i) + ": " + given);
        Clock::advance(static_cast<std::int64_t>(host.below(100)) * 1'000'000);

        ASSERT_EQ(first(given), 0);
        EXPECT_TRUE(linkClosed());
        EXPECT_TRUE(powered(way));
        authorisation = issuer.authorise(arqc);
        ASSERT_TRUE(authorisation.request.verified) << authorisation.request.why;
        EXPECT_EQ(authorisation.request.amount, amount);
        EXPECT_EQ(authorisation.request.account, "6229990000710246589");
        EXPECT_EQ(authorisation.request.atc, 72 + i);
        ++decided[authorisation.decision];

        Clock::advance(static_cast<std::int64_t>(host.below(100)) * 1'000'000);
        ASSERT_EQ(second(given, authorisation.text, state), 0);
        EXPECT_TRUE(linkClosed());
        const bool approved = authorisation.decision == sim::Decision::Approve;
        EXPECT_EQ(powered(way), !approved) << "the card is off behind a script, and only then";
        EXPECT_EQ(scriptResult, approved ? "DF31052001" : "");
        if (authorisation.decision == sim::Decision::Decline) {
            EXPECT_EQ(tc, "");
            continue;
        }
        const sim::Verification completion = issuer.verifyCompletion(tc);
        ASSERT_TRUE(completion.verified) << completion.why << "\n" << tc;
        EXPECT_EQ(completion.amount, amount);
        EXPECT_EQ(completion.atc, 72 + i);
    }
    EXPECT_GT(decided[sim::Decision::Approve], 100);
    EXPECT_GT(decided[sim::Decision::Refer], 20);
    EXPECT_GT(decided[sim::Decision::Decline], 5);
    EXPECT_GT(contactless, 50);
}

TEST_F(SimTransaction, ScriptShowsInTheCardsData)
{
    EXPECT_EQ(transact("P006012345S006260319"), 0);
    EXPECT_EQ(authorisation.decision, sim::Decision::Approve);
    EXPECT_TRUE(issuer.verifyCompletion(tc).verified);
    EXPECT_EQ(scriptResult, "DF31052001");
    EXPECT_TRUE(tells("ARPC right: issuer authenticated"));
    EXPECT_FALSE(powered(Way::Contact));

    std::vector<char> record(ICC_USER_INFO_CAPACITY);
    icType = 1;
    EXPECT_EQ(IC_GetInfo(port(), "", 9600, 5, &icType, "", "A", &length, record.data()), 0);
    EXPECT_NE(std::string(record.data()).find("D012000000200000"), std::string::npos) << record.data();
}

TEST_F(SimTransaction, OfAForeignIssuerIsRefusedByTheCard)
{
    sim::crypto::Key foreign{};
    foreign.fill(0x5A);
    sim::Issuer impostor = issuer;
    impostor.useKey(foreign);
    impostor.trustUnverified(true);
    ASSERT_EQ(first("P0045000"), 0);
    authorisation = impostor.authorise(arqc);
    EXPECT_FALSE(authorisation.request.verified);
    EXPECT_EQ(authorisation.responseCode, "00");

    EXPECT_EQ(second("P0045000", authorisation.text, state), -30);
    EXPECT_EQ(tc, "");
    EXPECT_TRUE(tells("ARPC wrong: issuer authentication failed"));
    EXPECT_TRUE(linkClosed());
    EXPECT_TRUE(powered(Way::Contact));
}

TEST_F(SimTransaction, OfAnAmountAboveTheCardsLimitEndsWithoutARequest)
{
    EXPECT_EQ(first("P0075000001"), -2);
    EXPECT_EQ(arqc, "");
    EXPECT_TRUE(tells("the amount is above the card's limit"));
    EXPECT_TRUE(linkClosed());
}

// ---------------------------------------------------------------- key L

TEST_F(SimTransaction, GivenVerificationResultsAreSignedInTheFirstHalf)
{
    ASSERT_EQ(first("P0045000L0108000048000"), 0);
    EXPECT_EQ(sent(0x80, listOf("8C")).at(0x95), "8000048000");
    EXPECT_EQ(itemOf(kArqcText, arqc, 0x95), "8000048000");
    EXPECT_TRUE(issuer.authorise(arqc).request.verified);
}

TEST_F(SimTransaction, GivenVerificationResultsAreLostInTheSecondHalf)
{
    // The default's own bytes, given: the card's list does not find them, the issuer is told the same.
    EXPECT_EQ(transact("P0045000L0100000000800R0040840"), 0);
    const auto values = sent(0x40, listOf("8D"));
    EXPECT_EQ(values.at(0x95), "0000000000");
    EXPECT_EQ(values.at(0x5F2A), "0840");
    EXPECT_EQ(itemOf(kArqcText, arqc, 0x95), "0000000800");
    EXPECT_EQ(itemOf(kTcText, tc, 0x95), "0000000000");
    EXPECT_TRUE(issuer.verifyCompletion(tc).verified);
}

TEST_F(SimTransaction, GivenVerificationResultsCanHideWhatFollowsThem)
{
    // The second byte of the results is read as a length: everything behind them is out of reach. The card signs
    // zeros, the issuer is told what stands in for lost values.
    EXPECT_EQ(transact("P0045000L0108000048000R0040840T00221S006260319K00811223344"), 0);
    const auto values = sent(0x40, listOf("8D"));
    EXPECT_EQ(values.at(0x9F02), "000000005000");
    EXPECT_EQ(values.at(0x9F1A), "0156");
    const std::map<sim::tlv::Tag, std::string> zeros = {
        {0x95, "0000000000"}, {0x5F2A, "0000"}, {0x9A, "000000"}, {0x9C, "00"}, {0x9F37, "00000000"}};
    for (const auto& [tag, value] : zeros) {
        EXPECT_EQ(values.at(tag), value) << std::hex << tag;
    }
    EXPECT_EQ(itemOf(kTcText, tc, 0x9F37), "12345678");
    EXPECT_EQ(itemOf(kTcText, tc, 0x5F2A), "0156");
    EXPECT_FALSE(issuer.verifyCompletion(tc).verified);
    EXPECT_TRUE(signedOver(kTcText, tc, zeros));
    EXPECT_FALSE(signedOver(kTcText, tc, {}));
}

// ---------------------------------------------------------------- key N

TEST_F(SimTransaction, GivenSupportIndicatorReachesTheCardOnlyInTheFirstHalf)
{
    makeCard(cardAskingAlso("9F6604 9F7A01"));
    EXPECT_EQ(transact("P0045000N00205M00826004080"), 0);
    const auto before = sent(0x80, listOf("8C") + "9F66049F7A01");
    EXPECT_EQ(before.at(0x9F66), "26004080");
    EXPECT_EQ(before.at(0x9F7A), "05");
    const auto after = sent(0x40, listOf("8D") + "9F66049F7A01");
    EXPECT_EQ(after.at(0x9F66), "26004080");
    EXPECT_EQ(after.at(0x9F7A), "00");
    EXPECT_TRUE(authorisation.request.verified);
    EXPECT_TRUE(issuer.verifyCompletion(tc).verified);
}

TEST_F(SimTransaction, SupportIndicatorNotGivenReachesTheCardInBoth)
{
    makeCard(cardAskingAlso("9F6604 9F7A01"));
    EXPECT_EQ(transact("P0045000"), 0);
    EXPECT_EQ(sent(0x80, listOf("8C") + "9F66049F7A01").at(0x9F7A), "01");
    EXPECT_EQ(sent(0x40, listOf("8D") + "9F66049F7A01").at(0x9F7A), "01");
    EXPECT_TRUE(issuer.verifyCompletion(tc).verified);
}

TEST_F(SimTransaction, SupportIndicatorStandsForTheQualifiersWhenTheResultsHideThose)
{
    makeCard(cardAskingAlso("9F6604 9F7A01"));
    // Results whose second byte leads the walk to just behind the qualifiers.
    EXPECT_EQ(transact("P0045000L0101A00000000N00205M00826004080K00811223344"), 0);
    const auto after = sent(0x40, listOf("8D") + "9F66049F7A01");
    EXPECT_EQ(after.at(0x9F66), "05000000");
    EXPECT_EQ(after.at(0x9F7A), "00");
    EXPECT_EQ(after.at(0x9F37), "00000000");
    EXPECT_FALSE(issuer.verifyCompletion(tc).verified);
    EXPECT_TRUE(signedOver(kTcText, tc, {{0x5F2A, "0000"}, {0x9F37, "00000000"}}));
}

// ---------------------------------------------------------------- values longer than their fields

TEST_F(SimTransaction, LongAmountCanBecomeTheOtherAmount)
{
    const std::string given = "P0189F0306000000000777";
    ASSERT_EQ(first(given), 0);
    const auto values = sent(0x80, listOf("8C"));
    EXPECT_EQ(values.at(0x9F02), "000000000000");
    EXPECT_EQ(values.at(0x9F03), "000000000777");
    authorisation = issuer.authorise(arqc);
    EXPECT_TRUE(authorisation.request.verified);
    EXPECT_EQ(authorisation.request.amount, 0U);
    EXPECT_EQ(itemOf(kArqcText, arqc, 0x9F03), "000000000777");

    // The second half cuts it to its first six bytes, more than this card lets anybody have.
    EXPECT_EQ(second(given, authorisation.text, state), -30);
    EXPECT_TRUE(tells("above the card's limit"));
    EXPECT_EQ(sent(0x40, listOf("8D")).at(0x9F02), "9F0306000000");
    EXPECT_EQ(sent(0x40, listOf("8D")).at(0x9F03), "000000000000");
}

TEST_F(SimTransaction, LongAmountCanBeSignedInOtherDigitsThanTheIssuerReads)
{
    ASSERT_EQ(first("P01407000000000123"), 0);
    EXPECT_EQ(sent(0x80, listOf("8C")).at(0x9F02), "00000001239F");
    EXPECT_EQ(itemOf(kArqcText, arqc, 0x9F02), "000000000123");
    EXPECT_FALSE(issuer.authorise(arqc).request.verified);
    EXPECT_TRUE(signedOver(kArqcText, arqc, {{0x9F02, "00000001239F"}}));
}

TEST_F(SimTransaction, LongCurrencyOverwritesTheVerificationResults)
{
    const std::string given = "P0045000R01411225F2A020978";
    ASSERT_EQ(first(given), 0);
    EXPECT_EQ(sent(0x80, listOf("8C")).at(0x95), "0000001122");
    EXPECT_EQ(sent(0x80, listOf("8C")).at(0x5F2A), "0978");
    authorisation = issuer.authorise(arqc);
    EXPECT_TRUE(authorisation.request.verified);
    EXPECT_EQ(itemOf(kArqcText, arqc, 0x95), "0000001122");

    EXPECT_EQ(second(given, authorisation.text, state), 0);
    EXPECT_EQ(sent(0x40, listOf("8D")).at(0x95), "0000000800");
    EXPECT_EQ(sent(0x40, listOf("8D")).at(0x5F2A), "1122");
    EXPECT_TRUE(issuer.verifyCompletion(tc).verified);
}

TEST_F(SimTransaction, LongOtherAmountOverwritesTheAmount)
{
    ASSERT_EQ(first("P0045000Q0300000000003219F0306000000000654"), 0);
    EXPECT_EQ(sent(0x80, listOf("8C")).at(0x9F02), "000000000321");
    authorisation = issuer.authorise(arqc);
    EXPECT_TRUE(authorisation.request.verified);
    EXPECT_EQ(authorisation.request.amount, 321U);
}

TEST_F(SimTransaction, LongValuesThatAreCutAreSignedAsTheyAreCut)
{
    const std::string given =
        "P0045000T0062099AAS01420260319101112K0161122334455667788U008235958FFV048" + hexOf("Corner Shop, Nanjing Rd.");
    EXPECT_EQ(transact(given), 0);
    for (const auto& values : {sent(0x80, listOf("8C")), sent(0x40, listOf("8D"))}) {
        EXPECT_EQ(values.at(0x9C), "20");
        EXPECT_EQ(values.at(0x9A), "101112");
        EXPECT_EQ(values.at(0x9F37), "11223344");
        EXPECT_EQ(values.at(0x9F21), "235958");
        EXPECT_EQ(values.at(0x9F4E), hexOf("Corner Shop, Nanjing"));
    }
    EXPECT_TRUE(authorisation.request.verified);
    EXPECT_TRUE(issuer.verifyCompletion(tc).verified);
}
