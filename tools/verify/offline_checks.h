// SPDX-License-Identifier: Apache-2.0
// Offline data authentication as a terminal checks it (EMV Book 2, 5 and 6), step by step.
#pragma once

#include "tools/verify/authorities.h"

namespace vorn::tool::verify {

// What was read from a card.
struct Evidence {
    Bytes aid;
    Bytes aip;
    Objects objects;        // of its records
    Bytes markedData;       // of the records that the AFL marks
    unsigned thisMonth = 0; // 202611
};

struct Step {
    std::string name;
    bool held = false;
    std::string detail; // what held, or what did not
};

class OfflineChecks {
public:
    OfflineChecks(Evidence evidence, Authorities authorities);

    bool offersStatic() const { return offers(0x40); }
    bool offersDynamic() const { return offers(0x20); }
    bool offersCombined() const { return offers(0x01); }
    bool offersAny() const { return offersStatic() || offersDynamic() || offersCombined(); }

    // The authority's key, the issuer's certificate, and what hangs on them: the signed data, the card's certificate.
    void checkCertificates();

    bool knowsCardKey() const { return card_.known(); }
    // The list whose values INTERNAL AUTHENTICATE brings.
    Bytes dynamicList() const;
    // brought: those values; answer: what the card said, without status word.
    void checkDynamic(const Bytes& brought, const Bytes& answer);
    // lists: the values of PDOL and CDOLs, in their order; unpredictable: the terminal's number; answer: of GENERATE AC.
    void checkCombined(const Bytes& lists, const Bytes& unpredictable, const Bytes& answer);
    // A step that the card did not let anybody take.
    void refused(const std::string& name, const std::string& why) { add(name, why); }

    const std::vector<Step>& steps() const { return steps_; }
    bool held() const;

private:
    struct PublicKey {
        Bytes modulus;
        Bytes exponent;
        bool known() const { return !modulus.empty(); }
    };

    bool offers(std::uint8_t bit) const;
    void add(const std::string& name, const std::string& problems, const std::string& detail = {});
    Bytes staticData(std::string& problems) const;
    const AuthorityKey* checkAuthority();
    void checkIssuer(const AuthorityKey& authority);
    void checkSignedData();
    void checkCard();

    Evidence evidence_;
    Authorities authorities_;
    std::vector<Step> steps_;
    PublicKey issuer_;
    PublicKey card_;
};

} // namespace vorn::tool::verify
