// SPDX-License-Identifier: Apache-2.0
// One debit/credit application of a simulated card: its transaction, its risk rules, its cryptograms and what issuer
// scripts change in it.
#pragma once

#include "sim/cards/emv_profile.h"

#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace vorn::sim {

// What the card did, one line each, for people. A reader may run on a thread of its own, hence the lock.
class Account {
public:
    void add(std::string line);
    std::vector<std::string> lines() const;
    void clear();

private:
    mutable std::mutex mutex_;
    std::vector<std::string> lines_;
};

struct Command {
    std::uint8_t cla = 0;
    std::uint8_t ins = 0;
    std::uint8_t p1 = 0;
    std::uint8_t p2 = 0;
    Bytes data;
    std::optional<std::uint8_t> le;

    unsigned p12() const { return p1 * 256U + p2; }
};

struct Answer {
    Bytes data;
    unsigned status = 0x9000;
};

inline Answer refusal(unsigned status) { return {{}, status}; }

class EmvApplication {
public:
    EmvApplication(Application application, Account& account) : a_(std::move(application)), account_(account) {}

    const DedicatedFile& file() const { return a_.file; }
    const std::map<unsigned, Bytes>& binaries() const { return a_.binaries; }
    const Answers& answers() const { return a_.answers; }
    const ApplicationState& state() const { return a_.state; }

    void reset() { transaction_ = {}; } // selected anew, or the power went off

    Answer getProcessingOptions(const Command& command);
    Answer internalAuthenticate(const Command& command);
    Answer generateCryptogram(const Command& command);
    Answer externalAuthenticate(const Command& command);
    Answer getData(const Command& command) const;
    Answer verify(const Command& command);

    // GET CHALLENGE's number serves the command that comes next, and no other. Empty: there is none.
    void keepChallenge(const Bytes& number) { challenge_ = number; }
    // A record was read. A contactless payment is made with the last one that it names, so that a card which leaves the
    // field too soon has not paid.
    void recordRead(unsigned sfi, unsigned number);

    // Issuer script commands: the MAC is checked before anything else.
    Answer putData(const Command& command);
    Answer block(const Command& command);
    Answer unblock(const Command& command);
    Answer blockCard(const Command& command, bool& cardBlocked);
    Answer changePin(const Command& command);

private:
    struct Transaction {
        bool processing = false;            // GET PROCESSING OPTIONS was answered
        std::map<tlv::Tag, Bytes> terminal; // everything the terminal has said so far
        Bytes lists;                        // the values of PDOL and CDOLs as they came
        crypto::KeySet keys;
        std::optional<std::uint8_t> first;
        std::optional<std::uint8_t> second;
        crypto::Block firstCryptogram{};
        std::optional<bool> issuerAuthentic; // none: EXTERNAL AUTHENTICATE did not come
        bool quick = false;                  // over with GET PROCESSING OPTIONS
        std::uint64_t pending = 0;           // of the balance, not yet paid
        bool settling = false;               // by the last record
        bool pinTried = false;
        bool pinFailed = false;
    };

    struct Decision {
        std::uint8_t type = 0;
        std::string why;
    };

    std::uint64_t amount() const;
    Bytes said(tlv::Tag tag) const; // by the terminal
    bool paysWithCash() const;
    bool coveredByCash() const;
    bool coveredOffline() const;
    Decision decideFirst(std::uint8_t asked) const;
    Decision decideSecond(std::uint8_t asked) const;
    Decision decideAtOnce() const;
    Bytes cardQualifiers() const;
    Answer payAtOnce();
    Bytes signAtOnce(Bytes& objects) const;
    void settle();
    bool verifiedBy(const Command& command) const;
    Answer refuseVerification(unsigned status, const char* why);
    Bytes verificationResults() const;
    Bytes issuerApplicationData() const;
    Bytes dynamicNumber() const;
    Answer answerCryptogram(const std::map<tlv::Tag, Bytes>& cdol, bool combined);
    Answer formatCryptogram(const crypto::Block& cryptogram, const Bytes& data) const;
    Answer signCryptogram(const crypto::Block& cryptogram, const Bytes& data) const;
    std::uint8_t type() const; // of the latest cryptogram
    void payWithCash();
    void completeFirst();
    void completeSecond();
    void writeLog();
    std::optional<Answer> refuseScript(const Command& command, const char* name);
    Answer refuseScriptData(const char* name, const std::string& why, unsigned status);
    Bytes scriptData(const Command& command) const;
    std::string newPin(const Command& command) const;

    Application a_;
    Account& account_;
    Transaction transaction_;
    Bytes challenge_;

    // How a transaction that went online came out: the card verification results of the next one tell it.
    struct Outcome {
        bool notCompleted = false;
        bool issuerAuthFailed = false;
        bool issuerAuthMissing = false;
        unsigned scripts = 0;
        bool scriptFailed = false;
    };
    Outcome last_;    // as it stood when the running transaction began
    Outcome current_; // what the running one adds
};

} // namespace vorn::sim
