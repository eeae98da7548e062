// SPDX-License-Identifier: Apache-2.0
// Commands to simulated payment cards, in any order, and texts to the simulated issuer.
#include "sim/cards/emv_card.h"
#include "sim/data/json_node.h"
#include "sim/issuer/issuer.h"
#include "support/input.h"
#include "support/require.h"

#include <nlohmann/json.hpp>

using namespace vorn;
using namespace vorn::fuzz;

namespace {

constexpr char kKeys[] = R"({"keys": {"mk_ac": "F0C34A8124CEE0A91A0B034AA97D6EAC",
    "mk_mac": "12B1AC4AF070CC35612BFE2D30AB600D", "mk_enc": "D30F45EABC12AC3EF56B0C0D7F8654DE"}})";

// What a card can do besides is chosen by two bits of an input.
constexpr unsigned kSigns = 1; // its static data, dynamically, and combined with its cryptograms
constexpr unsigned kQuick = 2; // pays in the answer to GET PROCESSING OPTIONS

nlohmann::json description(unsigned abilities)
{
    nlohmann::json card = nlohmann::json::parse(R"({"slot": "contact", "type": "emv", "atr": "3B 00", "applications": [{
        "aid": "A000000333010101", "label": "TEST", "priority": 1, "fci": {"9F38": "9F7A01 9F0206"}, "aip": "7D00",
        "records": {"1": [{"57": "6228000100001D30122200000F", "5F20": "54"}],
                    "2": [{"5A": "6228000100001F", "5F34": "01", "8C": "9F0206 9F0306 9F1A02 9505 5F2A02 9A03 9F3704",
                           "8D": "8A02 9F0206 9F0306 9F1A02 9505 5F2A02 9A03 9F3704"}]},
        "log": {"sfi": 11, "capacity": 3, "records": []}, "atc": 575, "last_online_atc": 500, "pin": {"value": "1234", "tries": 3},
        "electronic_cash": {"balance": 1000, "limit": 100000, "single_limit": 50000},
        "risk": {"offline_below": 2000, "decline_above": 9000000}}]})");
    nlohmann::json& application = card["applications"][0];
    application["keys"] = nlohmann::json::parse(kKeys)["keys"];
    if ((abilities & kSigns) != 0) {
        application.erase("aip");
        application["offline_authentication"] =
            nlohmann::json::parse(R"({"methods": ["sda", "dda", "cda"], "signed": {"2": 1}})");
    }
    if ((abilities & kQuick) != 0) {
        application["fci"]["9F38"] = "9F6604 9F0206 5F2A02 9C01 9F3704";
        application["qpboc"] = nlohmann::json::parse(R"({"afl": "08010100 10010100"})");
    }
    return card;
}

void useCard(Input& input, unsigned abilities)
{
    static const nlohmann::json kCards[] = {description(0), description(kSigns), description(kQuick),
                                            description(kSigns | kQuick)};
    const auto card = sim::makeEmvCard(kCards[abilities], "card");
    card->powerOn();
    static const sim::Bytes kSelect = {0x00, 0xA4, 0x04, 0x00, 0x08, 0xA0, 0x00, 0x00, 0x03, 0x33, 0x01, 0x01, 0x01};
    card->transmit(kSelect);
    while (!input.atEnd()) {
        const ByteView command = input.counted();
        const sim::Bytes answer = card->transmit(sim::Bytes(command.data(), command.data() + command.size()));
        require(answer.size() >= 2, "an answer has a status word");
    }
}

void askIssuer(const std::string& text)
{
    static const nlohmann::json kIssuer = nlohmann::json::parse(kKeys);
    static const sim::Issuer issuer = sim::makeIssuer(kIssuer, "issuer");
    const sim::Authorisation answer = issuer.authorise(text);
    require(answer.request.understood || answer.text.empty(), "no answer to a text that was not understood");
    issuer.verifyCompletion(text);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    Input input(data, size);
    const unsigned head = input.byte();
    if ((head & 1) != 0) {
        askIssuer(stringOf(input.rest()));
    } else {
        useCard(input, head >> 1 & (kSigns | kQuick));
    }
    return 0;
}
