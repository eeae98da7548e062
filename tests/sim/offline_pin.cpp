// SPDX-License-Identifier: Apache-2.0
// The PIN that the card itself verifies, in the clear and enciphered with its public key.
#include "sim/cards/crypto.h"
#include "sim/cards/test_keys.h"
#include "support/sim_terminal.h"

#include <openssl/bn.h>

#include <memory>

namespace {

using namespace vorn;
using nlohmann::json;
using test::Terminal;
using test::unhex;

json cardWithKey()
{
    json card = test::debitCard();
    json& application = card["applications"][0];
    application.erase("aip");
    application["offline_authentication"] = {{"methods", json::array({"dda"})}, {"signed", {{"2", 1}}}};
    return card;
}

// With the card's public key, as a PIN pad does it.
sim::Bytes encipher(const sim::Bytes& block)
{
    const auto key = sim::test_keys::card();
    const auto number = [](const sim::Bytes& bytes) {
        return std::unique_ptr<BIGNUM, decltype(&BN_free)>(
            BN_bin2bn(bytes.data(), static_cast<int>(bytes.size()), nullptr), &BN_free);
    };
    const auto base = number(block), exponent = number(key.exponent), modulus = number(key.modulus),
               result = number({});
    const std::unique_ptr<BN_CTX, decltype(&BN_CTX_free)> context(BN_CTX_new(), &BN_CTX_free);
    sim::Bytes out(key.size());
    EXPECT_EQ(BN_mod_exp(result.get(), base.get(), exponent.get(), modulus.get(), context.get()), 1);
    EXPECT_EQ(BN_bn2binpad(result.get(), out.data(), static_cast<int>(out.size())), static_cast<int>(out.size()));
    return out;
}

sim::Bytes pinData(const std::string& digits, const sim::Bytes& challenge, std::uint8_t header = 0x7F)
{
    sim::Bytes block = {header};
    sim::tlv::append(block, sim::crypto::pinBlock(digits));
    sim::tlv::append(block, challenge);
    block.resize(sim::test_keys::card().size(), 0x5A);
    return encipher(block);
}

class OfflinePin : public testing::Test {
protected:
    OfflinePin() { terminal.begin(); }

    sim::Bytes challenge() { return terminal.data("0084000008"); }
    std::string verify(const sim::Bytes& data) { return terminal.status(Terminal::command("00200088", data)); }
    std::string tries() { return terminal.send("80CA9F1700"); }

    Terminal terminal{test::emvCard(cardWithKey())};
};

TEST_F(OfflinePin, EncipheredOnesAreVerified)
{
    EXPECT_EQ(verify(pinData("1234", challenge())), "9000");
    EXPECT_EQ(verify(pinData("4321", challenge())), "63C2");
    EXPECT_EQ(tries(), "9F1701029000");
    EXPECT_EQ(terminal.status("0020008008241234FFFFFFFFFF"), "9000") << "in the clear; the tries are one counter";
    EXPECT_EQ(tries(), "9F1701039000");
}

TEST_F(OfflinePin, AChallengeServesOnce)
{
    const sim::Bytes number = challenge();
    EXPECT_EQ(verify(pinData("1234", number)), "9000");
    EXPECT_EQ(verify(pinData("1234", number)), "6985");
    EXPECT_EQ(tries(), "9F1701039000") << "no PIN was tried";
}

TEST_F(OfflinePin, AnotherCommandBetweenDropsTheChallenge)
{
    const sim::Bytes number = challenge();
    terminal.send("80CA9F3600");
    EXPECT_EQ(verify(pinData("1234", number)), "6985");
    terminal.send("0084000004");
    EXPECT_EQ(verify(pinData("1234", number)), "6985") << "four bytes are none for a PIN";
}

// Whoever recorded one cannot use it again, and each wrong one counts.
TEST_F(OfflinePin, AnotherChallengeOrFormCountsAsAWrongPin)
{
    const sim::Bytes recorded = pinData("1234", challenge());
    challenge();
    EXPECT_EQ(verify(recorded), "63C2");
    EXPECT_EQ(verify(pinData("1234", challenge(), 0x7E)), "63C1");
    challenge();
    EXPECT_EQ(verify(sim::Bytes(sim::test_keys::card().size(), 0xFF)), "63C0");
    EXPECT_EQ(verify(pinData("1234", challenge())), "6983");
}

TEST_F(OfflinePin, TheLengthIsTheKeys)
{
    challenge();
    EXPECT_EQ(verify(sim::Bytes(95, 0x01)), "6700");
    EXPECT_EQ(terminal.status("0020008808241234FFFFFFFFFF"), "6700");
}

TEST_F(OfflinePin, ATryIsToldInTheVerificationResults)
{
    terminal.generate("80", 0x8C);
    EXPECT_EQ(sim::toHex({terminal.cryptogram[14], terminal.cryptogram[15]}), "03A0") << "none";
    terminal.begin();
    EXPECT_EQ(verify(pinData("4321", challenge())), "63C2");
    terminal.generate("80", 0x8C);
    EXPECT_EQ(sim::toHex({terminal.cryptogram[14], terminal.cryptogram[15]}), "03A6") << "tried, and wrong";
}

TEST(OfflinePinWithoutKey, TheCardTakesNoEncipheredOne)
{
    Terminal terminal(test::emvCard(test::debitCard()));
    terminal.begin();
    terminal.send("0084000008");
    EXPECT_EQ(terminal.status(Terminal::command("00200088", sim::Bytes(96, 0x01))), "6A86");
}

} // namespace
