// SPDX-License-Identifier: Apache-2.0
// Reads an issuer from its object in a profile.
#include "sim/cards/crypto.h"
#include "sim/cards/emv_profile.h"
#include "sim/data/card_values.h"
#include "sim/issuer/issuer.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cctype>

namespace vorn::sim {
namespace {

struct CommandRow {
    const char* name;
    enum Value { Amount, Switch, Pin } value;
    std::uint8_t ins;
    std::uint8_t p1;
    std::uint8_t p2;
};

constexpr CommandRow kCommands[] = {
    {"set_balance", CommandRow::Amount, 0xDA, 0x9F, 0x79},
    {"set_limit", CommandRow::Amount, 0xDA, 0x9F, 0x77},
    {"set_single_limit", CommandRow::Amount, 0xDA, 0x9F, 0x78},
    {"set_reset_threshold", CommandRow::Amount, 0xDA, 0x9F, 0x6D},
    {"block", CommandRow::Switch, 0x1E, 0x00, 0x00},
    {"unblock", CommandRow::Switch, 0x18, 0x00, 0x00},
    {"block_card", CommandRow::Switch, 0x16, 0x00, 0x00},
    {"pin", CommandRow::Pin, 0x24, 0x00, 0x02},
    {"unblock_pin", CommandRow::Switch, 0x24, 0x00, 0x00},
};

constexpr std::size_t kCommandSizeMax = 4 + 1 + 255 + 1; // a short APDU
constexpr std::size_t kCommandsMax = 1000;               // of all scripts, repetitions counted

std::string pinOf(const JsonNode& node)
{
    std::string digits = node.text();
    if (!crypto::isPin(digits)) {
        node.expected("a PIN of 4 to 12 digits");
    }
    return digits;
}

std::vector<ScriptCommand> readCommand(const JsonNode& node)
{
    node.allow({"set_balance", "set_limit", "set_single_limit", "set_reset_threshold", "block", "unblock", "block_card",
                "pin", "current_pin", "unblock_pin", "raw", "wrong_mac", "repeat", "comment"});
    ScriptCommand command;
    const auto wrong = node.find("wrong_mac");
    command.wrongMac = wrong && wrong->flag();
    const auto repeat = node.find("repeat");
    const auto count = static_cast<std::size_t>(repeat ? repeat->number(1, 100) : 1);
    int named = 0;
    for (const CommandRow& row : kCommands) {
        const auto member = node.find(row.name);
        if (!member || (row.value == CommandRow::Switch && !member->flag())) {
            continue;
        }
        ++named;
        command.text = row.name;
        command.text += row.value == CommandRow::Amount ? " " + std::to_string(amountOf(*member)) : "";
        command.ins = row.ins;
        command.p1 = row.p1;
        command.p2 = row.p2;
        command.data = row.value == CommandRow::Amount ? bcdAmount(amountOf(*member)) : Bytes();
        command.newPin = row.value == CommandRow::Pin ? pinOf(*member) : std::string();
    }
    if (const auto current = node.find("current_pin")) {
        if (command.newPin.empty()) {
            current->expected("this beside \"pin\" only");
        }
        command.currentPin = pinOf(*current);
        command.p2 = 0x01;
    }
    if (const auto raw = node.find("raw")) {
        ++named;
        command.raw = raw->hex();
        if (command.raw->size() > kCommandSizeMax) {
            raw->expected("a command of at most " + std::to_string(kCommandSizeMax) + " bytes");
        }
        command.text = "raw " + toHex(*command.raw);
    }
    if (named != 1) {
        node.expected("one script command");
    }
    return std::vector<ScriptCommand>(count, command);
}

ScriptTemplate readTemplate(const JsonNode& node)
{
    node.allow({"template", "id", "commands", "comment"});
    ScriptTemplate script;
    if (const auto tag = node.find("template")) {
        if (tag->text() != "71" && tag->text() != "72") {
            tag->expected("\"71\" or \"72\"");
        }
        script.tag = tag->text() == "71" ? 0x71 : 0x72;
    }
    if (const auto identifier = node.find("id")) {
        script.identifier = identifier->hex(4);
    }
    for (const JsonNode& each : node.at("commands").items()) {
        const auto commands = readCommand(each);
        script.commands.insert(script.commands.end(), commands.begin(), commands.end());
        if (script.commands.size() > kCommandsMax) {
            node.expected("no more than " + std::to_string(kCommandsMax) + " script commands");
        }
    }
    return script;
}

struct DecisionRow {
    Decision decision;
    const char* responseCode; // unless a rule says otherwise
};
constexpr DecisionRow kDecisions[] = {{Decision::Approve, "00"}, {Decision::Refer, "01"}, {Decision::Decline, "05"}};

AmountRule readRule(const JsonNode& node)
{
    node.allow({"up_to", "decision", "arc", "comment"});
    AmountRule rule;
    if (const auto upTo = node.find("up_to")) {
        rule.upTo = amountOf(*upTo);
    }
    const std::string name = node.at("decision").text();
    const auto row = std::find_if(std::begin(kDecisions), std::end(kDecisions),
                                  [&name](const DecisionRow& each) { return name == nameOf(each.decision); });
    if (row == std::end(kDecisions)) {
        node.at("decision").expected("approve, refer or decline");
    }
    rule.decision = row->decision;
    const auto code = node.find("arc");
    rule.responseCode = code ? code->text() : row->responseCode;
    const auto letterOrDigit = [](unsigned char c) { return std::isalnum(c) != 0; };
    if (rule.responseCode.size() != 2 ||
        !std::all_of(rule.responseCode.begin(), rule.responseCode.end(), letterOrDigit)) {
        code->expected("a response code of two letters or digits");
    }
    return rule;
}

std::vector<tlv::Tag> readObjects(const std::optional<JsonNode>& node)
{
    std::vector<tlv::Tag> objects(crypto::kCryptogramObjects.begin(), crypto::kCryptogramObjects.end());
    if (!node) {
        return objects;
    }
    std::vector<tlv::Tag> named;
    for (const JsonNode& item : node->items()) {
        const auto tag = tlv::tagFromHex(item.text());
        if (!tag || std::find(objects.begin(), objects.end(), *tag) == objects.end()) {
            item.expected("one of the tags that a cryptogram is computed over");
        }
        named.push_back(*tag);
    }
    return named;
}

} // namespace

Issuer makeIssuer(const nlohmann::json& issuer, const std::string& where)
{
    const JsonNode node(issuer, where);
    node.allow({"keys", "accounts", "rules", "cryptogram_objects", "scripts", "scripts_always", "trust_unverified",
                "comment"});
    IssuerRules rules;
    node.at("keys").allow({"mk_ac", "mk_mac", "mk_enc", "session", "comment"});
    rules.keys = readIssuerKeys(node.at("keys"));
    if (const auto accounts = node.find("accounts")) {
        for (const JsonNode& account : accounts->items()) {
            rules.accounts.insert(account.text());
        }
    }
    rules.rules = {{std::nullopt, Decision::Approve, "00"}};
    if (const auto list = node.find("rules")) {
        rules.rules.clear();
        for (const JsonNode& rule : list->items()) {
            rules.rules.push_back(readRule(rule));
        }
    }
    rules.objects = readObjects(node.find("cryptogram_objects"));
    if (const auto scripts = node.find("scripts")) {
        std::size_t commands = 0;
        for (const JsonNode& script : scripts->items()) {
            rules.scripts.push_back(readTemplate(script));
            commands += rules.scripts.back().commands.size();
            if (commands > kCommandsMax) {
                scripts->expected("no more than " + std::to_string(kCommandsMax) + " script commands in all");
            }
        }
    }
    const auto always = node.find("scripts_always");
    rules.scriptsAlways = always && always->flag();
    const auto trust = node.find("trust_unverified");
    rules.trustUnverified = trust && trust->flag();
    return Issuer(std::move(rules));
}

} // namespace vorn::sim
