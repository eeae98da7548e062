// SPDX-License-Identifier: Apache-2.0
// A card's part in offline data authentication: which methods it offers, the records with its certificates, and the key
// that it signs with (docs/simulated-card.md has the profile's members).
#pragma once

#include "sim/cards/certificates.h"
#include "sim/data/json_node.h"
#include "sim/data/tlv.h"

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace vorn::sim {

using Records = std::map<unsigned, std::vector<Bytes>>; // by short file identifier

struct OfflineAuthentication {
    bool staticData = false;  // SDA
    bool dynamicData = false; // DDA
    bool combined = false;    // CDA
    rsa::Key key;             // the card's own
    bool wrongSignature = false;
    bool wrongCombinedSignature = false;

    bool signsItself() const { return dynamicData || combined; }
    std::uint8_t profileBits() const; // of the AIP's first byte
    Bytes sign(const Bytes& cardData, const Bytes& terminalData, bool wrong) const;
};

// What the certificates of one application are made of.
class CardCertificates {
public:
    // node: the profile's object; records: where the certificates' own records are to go.
    CardCertificates(const JsonNode& node, Records& records);

    const OfflineAuthentication& methods() const { return methods_; }
    // The count for the AFL's fourth byte: so many records of this file, from its first on, are signed.
    unsigned signedRecords(unsigned sfi) const;
    // Fills the records that were made room for. afl: whose marked records are signed.
    void fill(const Bytes& aip, const Bytes& afl, Records& records) const;

private:
    void readTerms(const JsonNode& node);
    void readFlaw(const JsonNode& node);
    Bytes staticData(const Bytes& aip, const Bytes& afl, const Records& records) const;

    JsonNode node_;
    OfflineAuthentication methods_;
    std::map<unsigned, unsigned> signed_;
    unsigned sfi_ = 0;
    std::size_t first_ = 0; // of the certificates' records, in their file
    Bytes authorityIndex_;
    certificates::Terms issuerTerms_;
    certificates::Terms cardTerms_;
    Bytes dataAuthenticationCode_;
    bool wrongData_ = false;
};

// The object with this tag in any of the records.
std::optional<Bytes> findInRecords(const Records& records, tlv::Tag tag);

} // namespace vorn::sim
