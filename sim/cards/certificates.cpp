// SPDX-License-Identifier: Apache-2.0
#include "sim/cards/certificates.h"

#include "sim/data/tlv.h"

#include <algorithm>

namespace vorn::sim::certificates {
namespace {

constexpr std::uint8_t kHeader = 0x6A, kTrailer = 0xBC, kFiller = 0xBB;
constexpr std::uint8_t kIssuerKey = 0x02, kStaticData = 0x03, kCardKey = 0x04,
                       kDynamicData = 0x05; // signed data format
constexpr std::uint8_t kSha1 = 0x01, kRsa = 0x01;
constexpr std::size_t kAround = 2 + rsa::kHashSize; // header, hash and trailer

// The hash covers what stands in the block and what only the reader of the block has besides.
Bytes sign(const rsa::Key& key, const Bytes& content, const Bytes& besides, bool wrongHash = false)
{
    Bytes hashed = content;
    tlv::append(hashed, besides);
    Bytes hash = rsa::sha1(hashed);
    hash[0] = static_cast<std::uint8_t>(hash[0] ^ (wrongHash ? 0x01 : 0x00));

    Bytes block = {kHeader};
    tlv::append(block, content);
    tlv::append(block, hash);
    block.push_back(kTrailer);
    return rsa::withSecret(key, block);
}

Bytes withFiller(Bytes content, const rsa::Key& key)
{
    content.resize(key.size() - kAround, kFiller);
    return content;
}

Bytes bcdLeft(std::string digits, std::size_t size)
{
    digits.resize(2 * size, 'F');
    return fromHex(digits).value_or(Bytes(size));
}

Certificate certify(const rsa::Key& signer, const rsa::Key& key, Bytes content, const Terms& terms,
                    const Bytes& staticData)
{
    tlv::append(content, terms.expires);
    tlv::append(content, terms.serial);
    tlv::append(content,
                {kSha1, kRsa, static_cast<std::uint8_t>(key.size()), static_cast<std::uint8_t>(key.exponent.size())});
    const std::size_t room = std::min(signer.size() - kAround - content.size(), key.size());
    const auto cut = key.modulus.begin() + static_cast<std::ptrdiff_t>(room);
    content.insert(content.end(), key.modulus.begin(), cut);

    Certificate result;
    result.remainder.assign(cut, key.modulus.end());
    Bytes besides = result.remainder;
    tlv::append(besides, key.exponent);
    tlv::append(besides, staticData);
    result.signedKey = sign(signer, withFiller(content, signer), besides, terms.wrongHash);
    return result;
}

} // namespace

Certificate ofIssuer(const rsa::Key& authority, const rsa::Key& issuer, const std::string& panDigits,
                     const Terms& terms)
{
    constexpr std::size_t kIdentifierDigits = 6;
    Bytes content = {kIssuerKey};
    tlv::append(content, bcdLeft(panDigits.substr(0, kIdentifierDigits), 4));
    return certify(authority, issuer, content, terms, {});
}

Certificate ofCard(const rsa::Key& issuer, const rsa::Key& card, const std::string& panDigits, const Terms& terms,
                   const Bytes& staticData)
{
    Bytes content = {kCardKey};
    tlv::append(content, bcdLeft(panDigits, 10));
    return certify(issuer, card, content, terms, staticData);
}

Bytes signedStaticData(const rsa::Key& issuer, const Bytes& dataAuthenticationCode, const Bytes& staticData)
{
    Bytes content = {kStaticData, kSha1};
    tlv::append(content, dataAuthenticationCode);
    return sign(issuer, withFiller(content, issuer), staticData);
}

Bytes signedDynamicData(const rsa::Key& card, const Bytes& cardData, const Bytes& terminalData)
{
    Bytes content = {kDynamicData, kSha1, static_cast<std::uint8_t>(cardData.size())};
    tlv::append(content, cardData);
    return sign(card, withFiller(content, card), terminalData);
}

} // namespace vorn::sim::certificates
