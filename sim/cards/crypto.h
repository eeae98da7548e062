// SPDX-License-Identifier: Apache-2.0
// The cryptography that a debit/credit card and its issuer share: two-key triple DES, retail MAC, card and session
// keys, application cryptograms, the issuer's answer and the MAC of issuer script commands.
#pragma once

#include "sim/cards/card.h"
#include "sim/data/tlv.h"

#include <array>
#include <map>
#include <string>

namespace vorn::sim::crypto {

using Block = std::array<std::uint8_t, 8>;
using Key = std::array<std::uint8_t, 16>; // two-key triple DES; parity bits are not looked at

// How a card's session keys come from its card keys.
enum class SessionKeys {
    Pboc,  // halves: the ATC in the last two bytes of a zero block, and its complement
    Common // EMV Book 2, A1.3.1: the ATC in front, the third byte F0 and 0F
};

// The three keys of an issuer, of one card, or of one transaction.
struct KeySet {
    Key ac{};  // application cryptograms and the issuer's answer
    Key mac{}; // script commands
    Key enc{}; // confidential script data
    SessionKeys session = SessionKeys::Pboc;
};

Block encrypt(const Key& key, const Block& block);
Block decrypt(const Key& key, const Block& block);
Bytes encrypt(const Key& key, const Bytes& blocks); // ECB; a whole number of blocks
Bytes decrypt(const Key& key, const Bytes& blocks);

Bytes padded(Bytes data); // 80 and zeros up to a whole block, at least the 80 (ISO/IEC 9797-1 method 2)
Block retailMac(const Key& key, const Bytes& data); // ISO/IEC 9797-1 algorithm 3 over the padded data

// panDigits without padding, psnDigits two of them (EMV Book 2, A1.4.1, option A).
Key cardKey(const Key& issuerKey, const std::string& panDigits, const std::string& psnDigits);
KeySet cardKeys(const KeySet& issuerKeys, const std::string& panDigits, const std::string& psnDigits);

Key pbocSessionKey(const Key& cardKey, std::uint16_t atc);
Key commonSessionKey(const Key& cardKey, const Block& diversifier);
KeySet sessionKeys(const KeySet& cardKeys, std::uint16_t atc);

// The objects that an application cryptogram is computed over, in their order; the card verification results follow.
extern const std::array<tlv::Tag, 10> kCryptogramObjects;
constexpr std::size_t kCvrOffset = 3; // in the issuer application data, its length byte counted
constexpr std::size_t kCvrSize = 4;

// Objects that are not in the map are left out.
Bytes cryptogramInput(const std::map<tlv::Tag, Bytes>& objects, const Bytes& cvr);
Block applicationCryptogram(const Key& sessionKey, const std::map<tlv::Tag, Bytes>& objects, const Bytes& cvr);

// The issuer's answer to a cryptogram: the response code, filled with zeros, folded in and enciphered.
Block arpc(const Key& key, const Block& cryptogram, const std::array<std::uint8_t, 2>& responseCode);

// MAC of a script command: its five header bytes (Lc counts the MAC), the ATC and the first cryptogram of the running
// transaction, and its data; the first four bytes are sent. ATC and cryptogram tie a script to one transaction.
constexpr std::size_t kScriptMacSize = 4;
Bytes scriptMac(const Key& sessionKey, const Bytes& header, std::uint16_t atc, const Block& cryptogram,
                const Bytes& data);

// MAC of the electronic cash in the issuer application data: over the ATC, the balance's last ten digits and a zero; the
// first four bytes are sent.
constexpr std::size_t kBalanceMacSize = 4;
Block balanceMac(const Key& sessionKey, std::uint16_t atc, const Bytes& balance);

bool isPin(const std::string& digits); // 4 to 12 of them (ISO 9564-1)

// A PIN in eight bytes (ISO 9564-1 format 2), as VERIFY carries it.
Bytes pinBlock(const std::string& digits);
std::string pinDigits(const Bytes& block); // empty when it is no PIN block

// What a card and its issuer hide a new PIN with: the session key, and the card's own key for cryptograms. `current` is
// the PIN that the card has, where the command's P2 says that it was combined in as well; else empty.
struct PinSecret {
    Key session;
    Key card;
    std::string current;
};
// PIN CHANGE/UNBLOCK as PBOC has it: length and digits of the new PIN, combined by exclusive or with the last four bytes
// of the card key's left half and with the current PIN; behind its length, padded and enciphered.
Bytes encipherNewPin(const PinSecret& secret, const std::string& digits);
std::string decipherNewPin(const PinSecret& secret, const Bytes& data); // empty when it is none

} // namespace vorn::sim::crypto
