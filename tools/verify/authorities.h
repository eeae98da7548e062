// SPDX-License-Identifier: Apache-2.0
// The certification authorities whose keys cards are checked with, and the issuers that they no longer vouch for.
#pragma once

#include "tools/verify/objects.h"

#include <string>

namespace vorn::tool::verify {

struct AuthorityKey {
    std::string name; // for people
    Bytes rid;        // five bytes
    std::uint8_t index = 0;
    Bytes modulus;
    Bytes exponent;
    unsigned lastMonth = 0; // that it is valid in: 204912
};

struct Revocation {
    Bytes rid;
    std::uint8_t index = 0;
    Bytes serial; // of the issuer's certificate, three bytes
};

struct Authorities {
    std::vector<AuthorityKey> keys;
    std::vector<Revocation> revoked;

    const AuthorityKey* find(const Bytes& rid, std::uint8_t index) const;
    bool revokes(const AuthorityKey& key, const Bytes& serial) const;
};

// The one of the simulated cards. A test key: everybody can sign with it.
Authorities testAuthorities();
const char* testAuthorityModulus(); // hex; scripts/make-test-keys writes it

// From a JSON file (docs/vorn.md). Throws sim::ProfileError.
Authorities readAuthorities(const std::string& path);

} // namespace vorn::tool::verify
