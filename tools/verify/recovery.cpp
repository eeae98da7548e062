// SPDX-License-Identifier: Apache-2.0
#include "tools/verify/recovery.h"

#include <openssl/bn.h>
#include <openssl/evp.h>

#include <algorithm>
#include <memory>

namespace vorn::tool::verify {
namespace {

constexpr std::size_t kHashSize = 20;
constexpr std::size_t kAround = 1 + kHashSize + 1; // header, hash, trailer

struct FreeNumber {
    void operator()(BIGNUM* number) const { BN_free(number); }
    void operator()(BN_CTX* context) const { BN_CTX_free(context); }
};
using Number = std::unique_ptr<BIGNUM, FreeNumber>;

Number number(const Bytes& bytes) { return Number(BN_bin2bn(bytes.data(), static_cast<int>(bytes.size()), nullptr)); }

Bytes power(const Bytes& base, const Bytes& exponent, const Bytes& modulus)
{
    const std::unique_ptr<BN_CTX, FreeNumber> context(BN_CTX_new());
    const Number b = number(base), e = number(exponent), m = number(modulus), result(BN_new());
    Bytes out(modulus.size());
    const bool done = context && b && e && m && result && !BN_is_zero(m.get()) &&
                      BN_mod_exp(result.get(), b.get(), e.get(), m.get(), context.get()) == 1 &&
                      BN_bn2binpad(result.get(), out.data(), static_cast<int>(out.size())) > 0;
    return done ? out : Bytes();
}

} // namespace

Bytes hashOf(const Bytes& data)
{
    Bytes hash(EVP_MAX_MD_SIZE);
    unsigned size = 0;
    EVP_Digest(data.data(), data.size(), hash.data(), &size, EVP_sha1(), nullptr);
    hash.resize(size);
    return hash;
}

Recovered::Recovered(const Bytes& signature, const Bytes& modulus, const Bytes& exponent)
{
    if (signature.size() != modulus.size() || modulus.size() <= kAround) {
        return;
    }
    const Bytes block = power(signature, exponent, modulus);
    if (block.empty()) {
        return;
    }
    header_ = block.front();
    trailer_ = block.back();
    const auto hash = block.end() - 1 - kHashSize;
    content_ = Bytes(block.begin() + 1, hash);
    hash_ = Bytes(hash, block.end() - 1);
}

std::string Recovered::problem(std::uint8_t format) const
{
    if (content_.empty()) {
        return "it is not as long as the key that signed it";
    }
    return header_ == 0x6A && trailer_ == 0xBC && byte(0) == format ? "" : "it is not signed with the key above it";
}

bool Recovered::hashes(const Bytes& besides) const
{
    Bytes all = content_;
    all.insert(all.end(), besides.begin(), besides.end());
    return hashOf(all) == hash_;
}

Bytes Recovered::part(std::size_t from, std::size_t size) const
{
    const std::size_t begin = std::min(from, content_.size());
    const std::size_t end = begin + std::min(size, content_.size() - begin);
    return Bytes(content_.begin() + static_cast<std::ptrdiff_t>(begin),
                 content_.begin() + static_cast<std::ptrdiff_t>(end));
}

std::uint8_t Recovered::byte(std::size_t at) const { return at < content_.size() ? content_[at] : std::uint8_t{0}; }

} // namespace vorn::tool::verify
