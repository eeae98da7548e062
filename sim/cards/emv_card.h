// SPDX-License-Identifier: Apache-2.0
// A simulated debit/credit card with its directory, its applications and their keys (docs/simulated-card.md).
#pragma once

#include "sim/cards/emv_application.h"

#include <nlohmann/json_fwd.hpp>

#include <memory>
#include <string>
#include <vector>

namespace vorn::sim {

class EmvCard : public Card {
public:
    explicit EmvCard(EmvProfile profile);

    Bytes powerOn() override;
    void powerOff() override;
    Bytes transmit(const Bytes& bytes) override;

    // What the card did and why, in its own words, oldest first: "ARPC wrong: issuer authentication failed".
    std::vector<std::string> account() const { return account_.lines(); }
    void clearAccount() { account_.clear(); }

    // Of the application with this name, or of the first one. Not while a reader talks to the card.
    const ApplicationState& state(const Bytes& aid = {}) const;
    bool blocked() const { return blocked_; }

private:
    static constexpr std::size_t kNone = static_cast<std::size_t>(-1);

    Answer perform(const Command& command);
    Answer select(const Command& command);
    Answer getResponse(const Command& command);
    Answer getChallenge(const Command& command);
    Answer readRecord(const Command& command);
    Answer readBinary(const Command& command) const;
    const DedicatedFile& fileAt(std::size_t position) const;
    std::size_t find(const Bytes& name, std::size_t from) const;
    EmvApplication* application();
    const Bytes* statedAnswer(const Answers& answers, const Bytes& command);
    Bytes deliver(const Command& command, Answer answer);

    EmvProfile profile_;
    Account account_;
    std::vector<EmvApplication> applications_;
    std::size_t selected_ = kNone; // position among the directories, then the applications
    bool blocked_ = false;
    Bytes held_;                                             // for GET RESPONSE
    std::map<const std::vector<Bytes>*, std::size_t> given_; // how often each list of stated answers was used
};

// card: the card's object in a profile; where: its place, for complaints (ProfileError).
std::shared_ptr<Card> makeEmvCard(const nlohmann::json& card, const std::string& where);

} // namespace vorn::sim
