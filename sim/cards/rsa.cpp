// SPDX-License-Identifier: Apache-2.0
#include "sim/cards/rsa.h"

#include <openssl/bn.h>
#include <openssl/evp.h>

#include <memory>
#include <stdexcept>

namespace vorn::sim::rsa {
namespace {

using Number = std::unique_ptr<BIGNUM, decltype(&BN_free)>;

Number numberOf(const Bytes& bytes)
{
    return {BN_bin2bn(bytes.data(), static_cast<int>(bytes.size()), nullptr), &BN_free};
}

} // namespace

Bytes withSecret(const Key& key, const Bytes& block)
{
    const std::unique_ptr<BN_CTX, decltype(&BN_CTX_free)> context(BN_CTX_new(), &BN_CTX_free);
    const Number base = numberOf(block);
    const Number exponent = numberOf(key.secret);
    const Number modulus = numberOf(key.modulus);
    const Number result(BN_new(), &BN_free);
    Bytes out(key.size());
    if (block.size() != key.size() || !context || !base || !exponent || !modulus || !result ||
        BN_mod_exp(result.get(), base.get(), exponent.get(), modulus.get(), context.get()) != 1 ||
        BN_bn2binpad(result.get(), out.data(), static_cast<int>(out.size())) != static_cast<int>(out.size())) {
        throw std::runtime_error("libcrypto refuses RSA");
    }
    return out;
}

Bytes sha1(const Bytes& data)
{
    Bytes hash(kHashSize);
    if (EVP_Digest(data.data(), data.size(), hash.data(), nullptr, EVP_sha1(), nullptr) != 1) {
        throw std::runtime_error("libcrypto refuses SHA-1");
    }
    return hash;
}

} // namespace vorn::sim::rsa
