// SPDX-License-Identifier: Apache-2.0
// The cards that come with the tool, held against the standards that they are built on.
#include "sim/data/card_values.h"
#include "sim/data/json_text.h"
#include "sim/profiles/profile.h"
#include "support/sim_terminal.h"

#include <algorithm>

namespace {

using namespace vorn;
using nlohmann::json;
using test::unhex;

struct ShippedCard {
    std::string name;
    json card;
};

json listOf(const json& object, const char* name) { return object.contains(name) ? object[name] : json::array(); }

std::vector<ShippedCard> cardsWithApdus()
{
    std::vector<ShippedCard> all;
    for (const std::string& name : sim::shippedProfiles()) {
        const json profile = sim::parseJson(sim::findProfile(name).json, name);
        for (const json& card : listOf(profile, "cards")) {
            if (card["type"] != json("memory")) {
                all.push_back({name + " in " + card["slot"].dump(), card});
            }
        }
    }
    return all;
}

sim::Bytes hexOf(const json& text) { return unhex(text.get<std::string>()); }

// ISO/IEC 7816-3, 8.2: T0, then groups of interface bytes; the protocol of the first TD is offered first.
struct AnswerToReset {
    int protocol = 0;
    std::size_t size = 0; // as its own bytes say
    bool checked = false; // ends in TCK
};

AnswerToReset partsOf(const sim::Bytes& atr)
{
    AnswerToReset parts;
    std::size_t at = 2;
    unsigned which = atr.at(1);
    bool first = true;
    const std::size_t historical = which & 0x0F;
    while ((which & 0xF0) != 0) {
        for (const unsigned bit : {0x10U, 0x20U, 0x40U}) {
            at += (which & bit) != 0 ? 1 : 0;
        }
        if ((which & 0x80) == 0) {
            break;
        }
        which = atr.at(at++);
        parts.protocol = first ? static_cast<int>(which & 0x0F) : parts.protocol;
        parts.checked = parts.checked || (which & 0x0F) != 0;
        first = false;
    }
    parts.size = at + historical + (parts.checked ? 1 : 0);
    return parts;
}

TEST(ShippedCards, TheirAnswersToResetAreWhole)
{
    for (const auto& [name, card] : cardsWithApdus()) {
        const sim::Bytes atr = hexOf(card["atr"]);
        const AnswerToReset parts = partsOf(atr);
        EXPECT_EQ(parts.size, atr.size()) << name;
        unsigned sum = 0;
        std::for_each(atr.begin() + 1, atr.end(), [&sum](std::uint8_t byte) { sum ^= byte; });
        EXPECT_TRUE(!parts.checked || sum == 0) << name << ": its check byte";
    }
}

// A card with T=0 cannot answer a command that carries data with data: it says 61xx, and the terminal asks for them.
TEST(ShippedCards, BehaveAsTheProtocolThatTheyOffer)
{
    for (const auto& [name, card] : cardsWithApdus()) {
        const bool t0 = partsOf(hexOf(card["atr"])).protocol == 0;
        if (card["type"] == "emv") {
            EXPECT_EQ(card.contains("t0") && card["t0"] == json(true), t0) << name;
            continue;
        }
        for (const json& pair : card["pairs"]) {
            const std::string command = pair[0].get<std::string>();
            const bool carriesData = command.size() > 10 && command.substr(8, 2) != "??";
            const bool answersData = hexOf(pair[1]).size() > 2;
            EXPECT_FALSE(t0 && carriesData && answersData) << name << ": " << command;
        }
    }
}

std::vector<std::pair<std::string, json>> applications()
{
    std::vector<std::pair<std::string, json>> all;
    for (const auto& [name, card] : cardsWithApdus()) {
        for (const json& application : listOf(card, "applications")) {
            all.emplace_back(name + ", " + application["aid"].get<std::string>(), application);
        }
    }
    return all;
}

// EMV Book 3, 7.2, and what a terminal's risk management needs: without one of these it ends the transaction.
TEST(ShippedCards, ApplicationsWithAnAccountHaveTheObjectsThatATerminalNeeds)
{
    int accounts = 0;
    for (const auto& [name, application] : applications()) {
        if (!application.contains("keys")) {
            continue;
        }
        ++accounts;
        std::map<std::string, int> objects;
        for (const json& file : application["records"]) {
            for (const json& record : file) {
                for (const auto& [tag, value] : record.items()) {
                    ++objects[tag];
                }
            }
        }
        for (const char* tag : {"57", "5A", "5F20", "5F24", "5F25", "5F28", "5F34", "8C", "8D", "8E", "9F07", "9F08",
                                "9F0D", "9F0E", "9F0F"}) {
            EXPECT_EQ(objects[tag], 1) << name << ": " << tag;
        }
    }
    EXPECT_GE(accounts, 5);
}

// 9F11 names a part of ISO/IEC 8859, and no part of it holds GBK.
TEST(ShippedCards, PreferredNamesAreInTheCodeTableThatTheyName)
{
    int named = 0;
    for (const auto& [name, application] : applications()) {
        if (application.contains("preferred_name")) {
            ++named;
            const std::string text = application["preferred_name"];
            EXPECT_TRUE(application["fci"].contains("9F11")) << name;
            EXPECT_TRUE(std::all_of(text.begin(), text.end(), [](char c) { return c >= 0x20 && c < 0x7F; })) << name;
            EXPECT_EQ(text.rfind("gbk:", 0), std::string::npos) << name;
            EXPECT_LE(text.size(), 16U) << name;
        }
    }
    EXPECT_GE(named, 1);
}

} // namespace
