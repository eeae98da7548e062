// SPDX-License-Identifier: Apache-2.0
// RSA as payment cards use it (EMV Book 2, B2.1): the bare power of a block as long as the modulus, without padding of
// its own; and SHA-1, the hash that stands in their certificates.
#pragma once

#include "sim/data/bytes.h"

namespace vorn::sim::rsa {

struct Key {
    Bytes modulus;
    Bytes exponent; // public
    Bytes secret;   // private exponent

    std::size_t size() const { return modulus.size(); }
};

// The block, as long as the modulus, with the private exponent: signs it, or deciphers it.
Bytes withSecret(const Key& key, const Bytes& block);

Bytes sha1(const Bytes& data);
constexpr std::size_t kHashSize = 20;

} // namespace vorn::sim::rsa
