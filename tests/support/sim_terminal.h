// SPDX-License-Identifier: Apache-2.0
// A terminal and host for the tests of the simulated card and issuer: sends commands, fills data object lists and
// writes the two cryptogram texts in the form that hosts get them in.
#pragma once

#include "sim/cards/emv_card.h"
#include "sim/data/json_node.h"
#include "sim/data/tlv.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <map>
#include <memory>
#include <string>

namespace vorn::test {

inline sim::Bytes unhex(const std::string& text)
{
    const auto bytes = sim::fromHex(text);
    EXPECT_TRUE(bytes) << text;
    return bytes.value_or(sim::Bytes());
}

inline std::shared_ptr<sim::EmvCard> emvCard(const nlohmann::json& json)
{
    return std::dynamic_pointer_cast<sim::EmvCard>(sim::makeEmvCard(json, "test card"));
}

// One debit application with all there is. Keys and account number are a published example's.
inline nlohmann::json debitCard()
{
    return nlohmann::json::parse(R"({
        "slot": "contact", "type": "emv", "atr": "3B 00",
        "applications": [{
            "aid": "A000000333010101", "label": "TEST", "priority": 1,
            "fci": {"9F38": "9F7A01 9F0206"},
            "aip": "7D00",
            "records": {
                "1": [{"57": "6228000100001D30122200000F", "5F20": "gbk:张三"}],
                "2": [{"5A": "6228000100001F", "5F34": "01",
                       "8C": "9F0206 9F0306 9F1A02 9505 5F2A02 9A03 9F2103 9C01 9F3704 9F4E14",
                       "8D": "8A02 9F0206 9F0306 9F1A02 9505 5F2A02 9A03 9C01 9F3704 9F2103 9F4E14"}]
            },
            "log": {"sfi": 11, "capacity": 3, "records": [
                {"date": "230102", "time": "111213", "amount": 1234, "merchant": "gbk:老城面馆", "atc": "0007"}]},
            "keys": {"mk_ac": "F0C34A8124CEE0A91A0B034AA97D6EAC", "mk_mac": "12B1AC4AF070CC35612BFE2D30AB600D",
                     "mk_enc": "D30F45EABC12AC3EF56B0C0D7F8654DE"},
            "atc": 575, "last_online_atc": 500,
            "pin": {"value": "1234", "tries": 3},
            "electronic_cash": {"balance": 1000, "limit": 100000, "single_limit": 50000},
            "risk": {"offline_below": 2000, "decline_above": 9000000}
        }]
    })");
}

inline nlohmann::json debitIssuer()
{
    return nlohmann::json::parse(R"({
        "keys": {"mk_ac": "F0C34A8124CEE0A91A0B034AA97D6EAC", "mk_mac": "12B1AC4AF070CC35612BFE2D30AB600D",
                 "mk_enc": "D30F45EABC12AC3EF56B0C0D7F8654DE"}
    })");
}

class Terminal {
public:
    explicit Terminal(std::shared_ptr<sim::EmvCard> card) : card_(std::move(card)) { card_->powerOn(); }

    sim::EmvCard& card() { return *card_; }

    std::string send(const std::string& command) { return sim::toHex(card_->transmit(unhex(command))); }
    std::string status(const std::string& command)
    {
        const std::string answer = send(command);
        return answer.substr(answer.size() - 4);
    }
    // The data of an answer that must be a success.
    sim::Bytes data(const std::string& command)
    {
        const std::string answer = send(command);
        EXPECT_EQ(answer.substr(answer.size() - 4), "9000") << command;
        return unhex(answer.substr(0, answer.size() - 4));
    }

    // The terminal's data objects; those that are not here are filled with zeros.
    std::map<sim::tlv::Tag, sim::Bytes> objects = {
        {0x9F02, unhex("000000010000")}, {0x9F03, unhex("000000000000")},
        {0x9F1A, unhex("0156")},         {0x95, unhex("0000000800")},
        {0x5F2A, unhex("0156")},         {0x9A, unhex("230315")},
        {0x9F21, unhex("101112")},       {0x9C, unhex("01")},
        {0x9F37, unhex("1E78EEBC")},     {0x9F7A, unhex("01")},
        {0x9F4E, sim::Bytes(20, 0x41)},
    };

    sim::Bytes fill(const sim::Bytes& list) const
    {
        sim::Bytes values;
        const auto dol = sim::tlv::parseDol(list);
        EXPECT_TRUE(dol);
        for (const auto& entry : dol.value_or(sim::tlv::Dol())) {
            const auto found = objects.find(entry.tag);
            sim::Bytes value = found == objects.end() ? sim::Bytes() : found->second;
            value.resize(entry.length);
            sim::tlv::append(values, value);
        }
        return values;
    }

    static std::string command(const std::string& header, const sim::Bytes& data)
    {
        return header + sim::toHex({static_cast<std::uint8_t>(data.size())}) + sim::toHex(data);
    }

    void select(const std::string& aid = "A000000333010101") { fci = data(command("00A40400", unhex(aid))); }

    // Selects, starts the transaction and reads the records that the card names.
    void begin(const std::string& aid = "A000000333010101")
    {
        select(aid);
        const sim::Bytes values = fill(sim::tlv::find(fci, 0x9F38).value_or(sim::Bytes()));
        const sim::Bytes options = data(command("80A80000", sim::tlv::encode(0x83, values)));
        auto both = sim::tlv::find(options, 0x80);
        aip =
            both ? sim::Bytes(both->begin(), both->begin() + 2) : sim::tlv::find(options, 0x82).value_or(sim::Bytes());
        const sim::Bytes afl =
            both ? sim::Bytes(both->begin() + 2, both->end()) : sim::tlv::find(options, 0x94).value_or(sim::Bytes());
        records.clear();
        for (std::size_t at = 0; at + 4 <= afl.size(); at += 4) {
            for (unsigned number = afl[at + 1]; number <= afl[at + 2]; ++number) {
                const sim::Bytes read = {0x00, 0xB2, static_cast<std::uint8_t>(number),
                                         static_cast<std::uint8_t>(afl[at] | 4U), 0x00};
                sim::tlv::append(records, data(sim::toHex(read)));
            }
        }
    }

    // GENERATE AC with this reference control, over CDOL1 or CDOL2; the value of template 80.
    std::string generateCommand(const std::string& control, sim::tlv::Tag list)
    {
        return command("80AE" + control + "00", fill(sim::tlv::find(records, list).value_or(sim::Bytes())));
    }
    sim::Bytes generate(const std::string& control, sim::tlv::Tag list)
    {
        return cryptogram = sim::tlv::find(data(generateCommand(control, list)), 0x80).value_or(sim::Bytes(11));
    }

    // What the host gets: the items in their order, in a TC with one tag byte where the interface has it so.
    std::string text(bool tc) const
    {
        const auto part = [this](std::size_t from, std::size_t to) {
            return sim::Bytes(cryptogram.begin() + static_cast<std::ptrdiff_t>(from),
                              cryptogram.begin() + static_cast<std::ptrdiff_t>(to));
        };
        const auto item = [](sim::tlv::Tag tag, const sim::Bytes& value) {
            return sim::toHex(sim::tlv::encode(tag, value));
        };
        const auto cut = [&item, tc](sim::tlv::Tag tag, const sim::Bytes& value) {
            return item(tc ? tag >> 8 : tag, value);
        };
        const auto card = [this](sim::tlv::Tag tag) { return sim::tlv::find(records, tag).value_or(sim::Bytes()); };
        return item(0x9F26, part(3, 11)) + item(0x9F27, part(0, 1)) + item(0x9F10, part(11, cryptogram.size())) +
               item(0x9F37, objects.at(0x9F37)) + item(0x9F36, part(1, 3)) + item(0x95, objects.at(0x95)) + register_ +
               item(0x9A, objects.at(0x9A)) + item(0x9C, objects.at(0x9C)) + cut(0x9F02, objects.at(0x9F02)) +
               cut(0x5F2A, objects.at(0x5F2A)) + item(0x5A, card(0x5A)) + item(0x5F34, card(0x5F34)) + item(0x82, aip) +
               cut(0x9F1A, objects.at(0x9F1A)) + cut(0x9F03, objects.at(0x9F03)) + "9F330320A100";
    }
    void setRegisterItem(const std::string& hex) { register_ = hex; } // 9F13, or what stands in its place

    // Hands the issuer's 91 to the card; the status word.
    std::string authenticate(const std::string& issuerText)
    {
        const auto answer = sim::tlv::find(unhex(issuerText), 0x91).value_or(sim::Bytes());
        objects[0x8A] = answer.size() < 10 ? sim::Bytes() : sim::Bytes(answer.begin() + 8, answer.begin() + 10);
        return status(command("00820000", answer));
    }

    // Runs the commands of one script template until one fails; the status words.
    std::string runScript(const std::string& issuerText, sim::tlv::Tag tag)
    {
        std::string results;
        const auto script = sim::tlv::find(unhex(issuerText), tag).value_or(sim::Bytes());
        for (const auto& object : sim::tlv::parse(script).value_or(std::vector<sim::tlv::Object>())) {
            if (object.tag == 0x86) {
                results += (results.empty() ? "" : " ") + status(sim::toHex(object.value));
            }
        }
        return results;
    }

    sim::Bytes fci;
    sim::Bytes aip;
    sim::Bytes records;
    sim::Bytes cryptogram; // value of the last template 80

private:
    std::shared_ptr<sim::EmvCard> card_;
    std::string register_ = "9F13020000";
};

} // namespace vorn::test
