// SPDX-License-Identifier: Apache-2.0
// A simulated issuer. It knows nothing but its keys, its rules and the texts that the library hands to a host
// (docs/simulated-card.md).
#pragma once

#include "sim/cards/crypto.h"
#include "sim/issuer/cryptogram_text.h"

#include <nlohmann/json_fwd.hpp>

#include <optional>
#include <set>
#include <string>
#include <vector>

namespace vorn::sim {

enum class Decision { Approve, Refer, Decline };
const char* nameOf(Decision decision); // "approve", "refer", "decline"

// One command of an issuer script, before it is tied to a transaction.
struct ScriptCommand {
    std::string text; // for people
    std::uint8_t ins = 0;
    std::uint8_t p1 = 0;
    std::uint8_t p2 = 0;
    Bytes data;
    std::string newPin;     // enciphered into the data
    std::string currentPin; // combined in; empty: the command does without it
    bool wrongMac = false;
    std::optional<Bytes> raw; // sent as it stands
};

struct ScriptTemplate {
    tlv::Tag tag = 0x72;
    std::optional<Bytes> identifier;
    std::vector<ScriptCommand> commands;
};

struct AmountRule {
    std::optional<std::uint64_t> upTo; // none: every amount
    Decision decision = Decision::Approve;
    std::string responseCode;
};

struct IssuerRules {
    crypto::KeySet keys;
    std::set<std::string> accounts; // account numbers it knows; none: every one
    std::vector<AmountRule> rules;  // the first that holds decides; none holds: decline
    std::vector<tlv::Tag> objects;  // what its cards compute over, of the usual ones
    std::vector<ScriptTemplate> scripts;
    bool scriptsAlways = false;   // with declined ones too
    bool trustUnverified = false; // go on with a cryptogram that is wrong, as a host without a key would
};

// What the issuer found in a cryptogram's text.
struct Verification {
    bool understood = false; // the text had the items
    bool verified = false;
    std::string why;     // for people
    std::string account; // digits of the account number; whole, so mind where it is shown
    std::uint64_t amount = 0;
    std::uint16_t atc = 0;
    std::uint8_t type = 0; // 00 AAC, 40 TC, 80 ARQC
};

struct Authorisation {
    Verification request;
    Decision decision = Decision::Decline;
    std::string why;
    std::string responseCode;         // two characters
    std::vector<std::string> scripts; // what is sent, a line each
    std::string text;                 // for the library: 91, and 71 or 72; empty when the request was not understood
};

class Issuer {
public:
    explicit Issuer(IssuerRules rules) : rules_(std::move(rules)) {}

    Authorisation authorise(const std::string& arqcText) const;
    Verification verifyCompletion(const std::string& tcText) const;

    // For showing what a wrong key leads to.
    void useKey(const crypto::Key& applicationCryptogramKey) { rules_.keys.ac = applicationCryptogramKey; }
    void trustUnverified(bool trust) { rules_.trustUnverified = trust; }
    const IssuerRules& rules() const { return rules_; }

private:
    Verification verify(CryptogramText kind, const std::string& text, CryptogramItems& items) const;
    void decide(Authorisation& result) const;
    Bytes scriptsFor(const CryptogramItems& items, std::vector<std::string>& texts) const;

    IssuerRules rules_;
};

// The command as the card with these keys expects it in the transaction with this counter and first cryptogram.
Bytes buildScriptCommand(const ScriptCommand& command, const crypto::KeySet& cardKeys, std::uint16_t atc,
                         const crypto::Block& cryptogram);

// issuer: the object in a profile; where: its place, for complaints (ProfileError).
Issuer makeIssuer(const nlohmann::json& issuer, const std::string& where);

} // namespace vorn::sim
