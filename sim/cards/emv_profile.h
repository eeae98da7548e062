// SPDX-License-Identifier: Apache-2.0
// What a profile says about a debit/credit card, read into plain values (docs/simulated-card.md has the members).
#pragma once

#include "sim/cards/crypto.h"
#include "sim/cards/offline_authentication.h"
#include "sim/data/json_node.h"

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace vorn::sim {

// What SELECT finds by name: a directory or an application.
struct DedicatedFile {
    Bytes name;
    Bytes fci;
    Records records;
};

// Whole answers that a profile states, by the leading bytes of the command. Several answers are given in turn, the
// last one for ever.
using Answers = std::map<Bytes, std::vector<Bytes>>;

struct RiskRules {
    std::optional<std::uint64_t> declineAbove; // refused, whatever is asked
    std::optional<std::uint64_t> offlineBelow; // a TC asked for is given without the issuer
    bool refuseOnline = false;                 // an AAC where it would go online
    bool requireIssuerAuth = true;             // no TC after going online without the issuer's right answer
    std::optional<std::uint8_t> forceFirst;    // this cryptogram, whatever is asked
    std::optional<std::uint8_t> forceSecond;
};

struct TransactionLog {
    unsigned sfi = 0;
    std::size_t capacity = 0;
};

// A contactless payment that is over with the answer to GET PROCESSING OPTIONS and the records that it names (qPBOC).
struct QuickPayment {
    Bytes afl;
    Bytes track2; // 57, of the application's records
    Bytes sequenceNumber;
};

// Changes while the card lives, and stays over power off.
struct ApplicationState {
    std::uint16_t atc = 0;
    std::uint16_t lastOnlineAtc = 0;
    bool blocked = false;
    std::string pin; // empty: the application has none
    unsigned pinTries = 0;
    bool electronicCash = false;
    std::uint64_t balance = 0; // minor units, as the limits
    std::uint64_t balanceLimit = 0;
    std::uint64_t singleLimit = 0;
    std::optional<std::uint64_t> resetThreshold; // below it the card wants to be loaded
    Bytes cashCurrency;                          // ISO 4217, two bytes
};

struct Application {
    DedicatedFile file;
    std::map<unsigned, Bytes> binaries; // READ BINARY, by short file identifier
    tlv::Dol pdol;
    std::optional<tlv::Dol> cdol1;
    std::optional<tlv::Dol> cdol2;
    Bytes aip;
    Bytes afl;
    OfflineAuthentication offline;
    tlv::Dol ddol; // what INTERNAL AUTHENTICATE brings
    std::optional<QuickPayment> quick;
    unsigned processingFormat = 1; // of the answer to GET PROCESSING OPTIONS: template 80 or 77
    unsigned cryptogramFormat = 1; // of the answer to GENERATE AC
    bool refuseProcessing = false;
    std::map<tlv::Tag, Bytes> data;       // GET DATA, value
    std::map<tlv::Tag, Bytes> rawAnswers; // GET DATA, the whole answer
    std::optional<TransactionLog> log;
    std::optional<crypto::KeySet> keys; // the card's own
    std::uint8_t keyIndex = 0;
    Bytes verificationResults; // three bytes: bits that are set besides the card's own
    unsigned pinTryLimit = 3;
    RiskRules risk;
    ApplicationState state;
    Answers answers;
};

struct EmvProfile {
    Bytes answerToReset;
    bool t0 = false;
    bool blocked = false;
    std::vector<DedicatedFile> directories;
    std::vector<Application> applications;
    Answers answers;
};

EmvProfile readEmvProfile(const JsonNode& card);

// Members "mk_ac", "mk_mac", "mk_enc" (an absent one is the first) and "session".
crypto::KeySet readIssuerKeys(const JsonNode& keys);

} // namespace vorn::sim
