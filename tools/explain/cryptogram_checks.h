// SPDX-License-Identifier: Apache-2.0
// Whether a card's cryptograms are right, found out from its exchanges and an issuer's keys.
#pragma once

#include "sim/issuer/issuer.h"

#include <map>
#include <optional>
#include <string>

namespace vorn::tool {

class CryptogramChecks {
public:
    CryptogramChecks() = default; // without keys nothing can be checked
    // whose: where the keys are from, for people.
    CryptogramChecks(sim::Issuer issuer, std::string whose) : issuer_(std::move(issuer)), whose_(std::move(whose)) {}

    bool hasKeys() const { return issuer_.has_value(); }

    void powerOn(); // what was learnt belongs to the card before
    // Every exchange with the card, in order. What became of the cryptogram in it; empty when there is none.
    std::string exchange(const sim::Bytes& apdu, const sim::Bytes& response);

private:
    using Bytes = sim::Bytes;
    void learnListed(const Bytes& list, const Bytes& values);
    void learnObjects(const Bytes& data);
    void learnOptions(const Bytes& apdu, const Bytes& data);
    std::string cryptogram(const Bytes& apdu, const Bytes& data);
    std::string judged(const sim::Verification& verification, const std::string& name) const;

    std::optional<sim::Issuer> issuer_;
    std::string whose_;
    std::map<sim::tlv::Tag, Bytes> known_;
    Bytes waiting_; // a command whose answer is fetched with GET RESPONSE
    int cryptograms_ = 0;
};

} // namespace vorn::tool
