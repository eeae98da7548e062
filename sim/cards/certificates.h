// SPDX-License-Identifier: Apache-2.0
// What a card shows for offline data authentication (EMV Book 2, 5 and 6): the certificates of its issuer's key and of
// its own, the signature over its records, and what it signs itself.
#pragma once

#include "sim/cards/rsa.h"

#include <string>

namespace vorn::sim::certificates {

struct Terms {
    Bytes expires; // month and year, a byte each
    Bytes serial;  // three bytes
    bool wrongHash = false;
};

// What of a certified key did not fit into its certificate goes beside it (92, 9F48).
struct Certificate {
    Bytes signedKey;
    Bytes remainder;
};

// panDigits without padding.
Certificate ofIssuer(const rsa::Key& authority, const rsa::Key& issuer, const std::string& panDigits,
                     const Terms& terms);
Certificate ofCard(const rsa::Key& issuer, const rsa::Key& card, const std::string& panDigits, const Terms& terms,
                   const Bytes& staticData);

// 93: the issuer's signature over the records. dataAuthenticationCode: two bytes of the issuer's own.
Bytes signedStaticData(const rsa::Key& issuer, const Bytes& dataAuthenticationCode, const Bytes& staticData);

// 9F4B: the card's signature over data of its own and the terminal's.
Bytes signedDynamicData(const rsa::Key& card, const Bytes& cardData, const Bytes& terminalData);

} // namespace vorn::sim::certificates
