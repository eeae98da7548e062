// SPDX-License-Identifier: Apache-2.0
#include "sim/issuer/issuer.h"

#include "sim/data/card_values.h"
#include "sim/data/json_node.h"

#include <algorithm>

namespace vorn::sim {
namespace {

constexpr std::uint8_t kArqc = 0x80;
constexpr std::uint8_t kTc = 0x40;
constexpr std::uint8_t kTypeMask = 0xC0;

crypto::Block blockOf(const Bytes& bytes)
{
    crypto::Block block{};
    std::copy_n(bytes.begin(), std::min(bytes.size(), block.size()), block.begin());
    return block;
}

Bytes valueOf(const CryptogramItems& items, tlv::Tag tag)
{
    const auto found = items.values.find(tag);
    return found == items.values.end() ? Bytes() : found->second;
}

std::uint16_t counterOf(const CryptogramItems& items)
{
    const Bytes atc = valueOf(items, 0x9F36);
    return static_cast<std::uint16_t>(atc.size() == 2 ? atc[0] * 256U + atc[1] : 0U);
}

std::string accountOf(const CryptogramItems& items)
{
    const std::string digits = toHex(valueOf(items, 0x5A));
    return digits.substr(0, digits.find('F'));
}

crypto::KeySet cardKeysOf(const crypto::KeySet& issuerKeys, const CryptogramItems& items)
{
    const Bytes sequence = valueOf(items, 0x5F34);
    return crypto::cardKeys(issuerKeys, accountOf(items), sequence.empty() ? "00" : toHex(sequence));
}

// Empty when the issuer application data do not hold them where they belong.
Bytes cardVerificationResults(const CryptogramItems& items)
{
    const Bytes data = valueOf(items, 0x9F10);
    constexpr std::uint8_t kFollow = crypto::kCvrSize - 1;
    if (data.size() < crypto::kCvrOffset + crypto::kCvrSize || data[crypto::kCvrOffset] != kFollow) {
        return {};
    }
    const auto from = data.begin() + crypto::kCvrOffset;
    return {from, from + crypto::kCvrSize};
}

// What a cryptogram cannot be verified without, in words; empty when all is there.
std::string missingFor(const CryptogramItems& items, const std::vector<tlv::Tag>& objects)
{
    if (valueOf(items, 0x5A).empty()) {
        return "no account number (5A) to derive the card's key from";
    }
    for (const tlv::Tag tag : objects) {
        if (items.values.count(tag) == 0) {
            return "no " + tlv::toHex(tag) + " in the text";
        }
    }
    return cardVerificationResults(items).empty() ? "no card verification results (9F10)" : std::string();
}

} // namespace

const char* nameOf(Decision decision)
{
    return decision == Decision::Approve ? "approve" : decision == Decision::Refer ? "refer" : "decline";
}

Verification Issuer::verify(CryptogramText kind, const std::string& text, CryptogramItems& items) const
{
    items = readCryptogramText(kind, text);
    Verification result;
    if (!items.mistake.empty()) {
        result.why = items.mistake;
        return result;
    }
    result.understood = true;
    result.account = accountOf(items);
    result.amount = amountFromBcd(valueOf(items, 0x9F02));
    result.atc = counterOf(items);
    result.type = static_cast<std::uint8_t>(valueOf(items, 0x9F27)[0] & kTypeMask);
    const std::string name = kind == CryptogramText::Arqc ? "ARQC" : "TC";
    if (result.type != (kind == CryptogramText::Arqc ? kArqc : kTc)) {
        result.why = "the cryptogram is no " + name;
        return result;
    }
    result.why = missingFor(items, rules_.objects);
    if (!result.why.empty()) {
        return result;
    }
    std::map<tlv::Tag, Bytes> objects;
    for (const tlv::Tag tag : rules_.objects) {
        objects[tag] = items.values.at(tag);
    }
    const crypto::KeySet session = crypto::sessionKeys(cardKeysOf(rules_.keys, items), result.atc);
    result.verified = crypto::applicationCryptogram(session.ac, objects, cardVerificationResults(items)) ==
                      blockOf(valueOf(items, 0x9F26));
    result.why = name + (result.verified ? " verified" : " wrong: not made with this issuer's key over these data");
    return result;
}

void Issuer::decide(Authorisation& result) const
{
    if (!result.request.verified && !rules_.trustUnverified) {
        result.responseCode = "05";
        result.why = result.request.why;
        return;
    }
    if (!rules_.accounts.empty() && rules_.accounts.count(result.request.account) == 0) {
        result.responseCode = "14";
        result.why = "not an account of this issuer";
        return;
    }
    const auto rule = std::find_if(rules_.rules.begin(), rules_.rules.end(), [&result](const AmountRule& each) {
        return !each.upTo || result.request.amount <= *each.upTo;
    });
    if (rule == rules_.rules.end()) {
        result.responseCode = "05";
        result.why = "no rule for this amount";
        return;
    }
    result.decision = rule->decision;
    result.responseCode = rule->responseCode;
    result.why = rule->upTo ? "amounts up to " + std::to_string(*rule->upTo) : "every other amount";
}

Authorisation Issuer::authorise(const std::string& arqcText) const
{
    Authorisation result;
    CryptogramItems items;
    result.request = verify(CryptogramText::Arqc, arqcText, items);
    decide(result);
    if (!result.request.understood) {
        return result;
    }
    const crypto::KeySet session = crypto::sessionKeys(cardKeysOf(rules_.keys, items), result.request.atc);
    const Bytes code(result.responseCode.begin(), result.responseCode.end());
    const crypto::Block answer = crypto::arpc(session.ac, blockOf(valueOf(items, 0x9F26)), {code[0], code[1]});
    Bytes authentication(answer.begin(), answer.end());
    tlv::append(authentication, code);
    Bytes text = tlv::encode(0x91, authentication);
    if (result.decision == Decision::Approve || rules_.scriptsAlways) {
        tlv::append(text, scriptsFor(items, result.scripts));
    }
    result.text = toHex(text);
    return result;
}

Verification Issuer::verifyCompletion(const std::string& tcText) const
{
    CryptogramItems items;
    return verify(CryptogramText::Tc, tcText, items);
}

Bytes Issuer::scriptsFor(const CryptogramItems& items, std::vector<std::string>& texts) const
{
    const std::uint16_t atc = counterOf(items);
    const crypto::KeySet keys = cardKeysOf(rules_.keys, items);
    Bytes all;
    for (const ScriptTemplate& script : rules_.scripts) {
        Bytes body = script.identifier ? tlv::encode(0x9F18, *script.identifier) : Bytes();
        for (const ScriptCommand& command : script.commands) {
            const Bytes apdu = buildScriptCommand(command, keys, atc, blockOf(valueOf(items, 0x9F26)));
            tlv::append(body, tlv::encode(0x86, apdu));
            texts.push_back(command.text);
        }
        tlv::append(all, tlv::encode(script.tag, body));
    }
    return all;
}

Bytes buildScriptCommand(const ScriptCommand& command, const crypto::KeySet& cardKeys, std::uint16_t atc,
                         const crypto::Block& cryptogram)
{
    if (command.raw) {
        return *command.raw;
    }
    const crypto::KeySet session = crypto::sessionKeys(cardKeys, atc);
    const Bytes data = command.newPin.empty()
                           ? command.data
                           : crypto::encipherNewPin({session.enc, cardKeys.ac, command.currentPin}, command.newPin);
    Bytes apdu = {0x84, command.ins, command.p1, command.p2,
                  static_cast<std::uint8_t>(data.size() + crypto::kScriptMacSize)};
    Bytes mac = crypto::scriptMac(session.mac, apdu, atc, cryptogram, data);
    if (command.wrongMac) {
        mac[0] ^= 0xFF;
    }
    tlv::append(apdu, data);
    tlv::append(apdu, mac);
    return apdu;
}

} // namespace vorn::sim
