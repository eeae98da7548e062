// SPDX-License-Identifier: Apache-2.0
#include "sim/cards/crypto.h"

#include "sim/data/digits.h"
#include "sim/data/json_node.h"

#include <openssl/evp.h>

#include <algorithm>
#include <memory>
#include <stdexcept>

namespace vorn::sim::crypto {
namespace {

constexpr std::size_t kBlock = 8;

Bytes ecb(const Key& key, const Bytes& blocks, int enciphering)
{
    if (blocks.size() % kBlock != 0) {
        throw std::invalid_argument("triple DES needs whole blocks");
    }
    const std::unique_ptr<EVP_CIPHER_CTX, decltype(&EVP_CIPHER_CTX_free)> context(EVP_CIPHER_CTX_new(),
                                                                                  &EVP_CIPHER_CTX_free);
    Bytes out(blocks.size() + kBlock);
    int written = 0;
    if (!context ||
        EVP_CipherInit_ex(context.get(), EVP_des_ede_ecb(), nullptr, key.data(), nullptr, enciphering) != 1 ||
        EVP_CIPHER_CTX_set_padding(context.get(), 0) != 1 ||
        EVP_CipherUpdate(context.get(), out.data(), &written, blocks.data(), static_cast<int>(blocks.size())) != 1) {
        throw std::runtime_error("libcrypto refuses triple DES");
    }
    out.resize(static_cast<std::size_t>(written));
    return out;
}

Block toBlock(const Bytes& bytes, std::size_t offset = 0)
{
    Block block{};
    std::copy_n(bytes.begin() + static_cast<std::ptrdiff_t>(offset), kBlock, block.begin());
    return block;
}

Bytes toBytes(const Block& block) { return {block.begin(), block.end()}; }

Key join(const Block& left, const Block& right)
{
    Key key{};
    std::copy(left.begin(), left.end(), key.begin());
    std::copy(right.begin(), right.end(), key.begin() + kBlock);
    return key;
}

// libcrypto's single DES lies in a provider that a system need not load; triple DES with equal halves is the same.
Key single(const Key& key, std::size_t half)
{
    const Block block = toBlock({key.begin(), key.end()}, half * kBlock);
    return join(block, block);
}

Block exclusiveOr(Block a, const Block& b)
{
    std::transform(a.begin(), a.end(), b.begin(), a.begin(),
                   [](std::uint8_t x, std::uint8_t y) { return static_cast<std::uint8_t>(x ^ y); });
    return a;
}

Block atcBlock(std::uint16_t atc, std::size_t offset)
{
    Block block{};
    block[offset] = static_cast<std::uint8_t>(atc >> 8);
    block[offset + 1] = static_cast<std::uint8_t>(atc & 0xFF);
    return block;
}

Key sessionKey(const Key& key, std::uint16_t atc, SessionKeys method)
{
    return method == SessionKeys::Pboc ? pbocSessionKey(key, atc) : commonSessionKey(key, atcBlock(atc, 0));
}

// The first half byte of a PIN block: in VERIFY (ISO 9564-1 format 2), and before a new PIN is combined.
constexpr char kVerifyFormat = '2';
constexpr char kChangeFormat = '0';

Bytes pinBlockOf(char format, const std::string& digits)
{
    constexpr char kLengths[] = "0123456789ABC";
    if (!isPin(digits)) {
        throw std::invalid_argument("a PIN has 4 to 12 digits");
    }
    std::string text = std::string(1, format) + kLengths[digits.size()] + digits;
    text.resize(2 * kBlock, 'F');
    return fromHex(text).value_or(Bytes());
}

std::string digitsOf(char format, const Bytes& block)
{
    const std::string text = toHex(block);
    if (block.size() != kBlock || text[0] != format) {
        return {};
    }
    const std::string digits = text.substr(2, block[0] & 0x0FU);
    return isPin(digits) && pinBlockOf(format, digits) == block ? digits : std::string();
}

// Both ways: what hides a new PIN's block shows it again.
Bytes hidden(const PinSecret& secret, Bytes block)
{
    std::string current = secret.current;
    current.resize(2 * kBlock, '0');
    const Bytes digits = fromHex(current).value_or(Bytes(kBlock));
    for (std::size_t i = 0; i < kBlock; ++i) {
        const std::uint8_t key = i < kBlock / 2 ? std::uint8_t{0} : secret.card[i];
        block[i] = static_cast<std::uint8_t>(block[i] ^ key ^ digits[i]);
    }
    return block;
}

} // namespace

const std::array<tlv::Tag, 10> kCryptogramObjects = {0x9F02, 0x9F03, 0x9F1A, 0x95, 0x5F2A,
                                                     0x9A,   0x9C,   0x9F37, 0x82, 0x9F36};

Bytes encrypt(const Key& key, const Bytes& blocks) { return ecb(key, blocks, 1); }

Bytes decrypt(const Key& key, const Bytes& blocks) { return ecb(key, blocks, 0); }

Block encrypt(const Key& key, const Block& block) { return toBlock(encrypt(key, toBytes(block))); }

Block decrypt(const Key& key, const Block& block) { return toBlock(decrypt(key, toBytes(block))); }

Bytes padded(Bytes data)
{
    data.push_back(0x80);
    data.resize((data.size() + kBlock - 1) / kBlock * kBlock, 0x00);
    return data;
}

Block retailMac(const Key& key, const Bytes& data)
{
    const Bytes message = padded(data);
    const Key left = single(key, 0);
    Block chain{};
    for (std::size_t offset = 0; offset < message.size(); offset += kBlock) {
        chain = encrypt(left, exclusiveOr(chain, toBlock(message, offset)));
    }
    return encrypt(left, decrypt(single(key, 1), chain));
}

Key cardKey(const Key& issuerKey, const std::string& panDigits, const std::string& psnDigits)
{
    constexpr std::size_t kDigits = 2 * kBlock;
    const std::string digits = std::string(kDigits, '0') + panDigits + psnDigits;
    const Block y = toBlock(fromHex(digits.substr(digits.size() - kDigits)).value_or(Bytes(kBlock)));
    Block complement = y;
    for (auto& byte : complement) {
        byte = static_cast<std::uint8_t>(~byte);
    }
    return join(encrypt(issuerKey, y), encrypt(issuerKey, complement));
}

KeySet cardKeys(const KeySet& issuerKeys, const std::string& panDigits, const std::string& psnDigits)
{
    return {cardKey(issuerKeys.ac, panDigits, psnDigits), cardKey(issuerKeys.mac, panDigits, psnDigits),
            cardKey(issuerKeys.enc, panDigits, psnDigits), issuerKeys.session};
}

Key pbocSessionKey(const Key& cardKey, std::uint16_t atc)
{
    return join(encrypt(cardKey, atcBlock(atc, kBlock - 2)),
                encrypt(cardKey, atcBlock(static_cast<std::uint16_t>(~atc), kBlock - 2)));
}

Key commonSessionKey(const Key& cardKey, const Block& diversifier)
{
    Block left = diversifier;
    Block right = diversifier;
    left[2] = 0xF0;
    right[2] = 0x0F;
    return join(encrypt(cardKey, left), encrypt(cardKey, right));
}

KeySet sessionKeys(const KeySet& cardKeys, std::uint16_t atc)
{
    return {sessionKey(cardKeys.ac, atc, cardKeys.session), sessionKey(cardKeys.mac, atc, cardKeys.session),
            sessionKey(cardKeys.enc, atc, cardKeys.session), cardKeys.session};
}

Bytes cryptogramInput(const std::map<tlv::Tag, Bytes>& objects, const Bytes& cvr)
{
    Bytes input;
    for (const tlv::Tag tag : kCryptogramObjects) {
        const auto found = objects.find(tag);
        if (found != objects.end()) {
            input.insert(input.end(), found->second.begin(), found->second.end());
        }
    }
    input.insert(input.end(), cvr.begin(), cvr.end());
    return input;
}

Block applicationCryptogram(const Key& sessionKey, const std::map<tlv::Tag, Bytes>& objects, const Bytes& cvr)
{
    return retailMac(sessionKey, cryptogramInput(objects, cvr));
}

Block arpc(const Key& key, const Block& cryptogram, const std::array<std::uint8_t, 2>& responseCode)
{
    return encrypt(key, exclusiveOr(cryptogram, {responseCode[0], responseCode[1]}));
}

Bytes scriptMac(const Key& sessionKey, const Bytes& header, std::uint16_t atc, const Block& cryptogram,
                const Bytes& data)
{
    Bytes input = header;
    input.push_back(static_cast<std::uint8_t>(atc >> 8));
    input.push_back(static_cast<std::uint8_t>(atc & 0xFF));
    input.insert(input.end(), cryptogram.begin(), cryptogram.end());
    input.insert(input.end(), data.begin(), data.end());
    const Block mac = retailMac(sessionKey, input);
    return {mac.begin(), mac.begin() + kScriptMacSize};
}

Block balanceMac(const Key& sessionKey, std::uint16_t atc, const Bytes& balance)
{
    Bytes input = {static_cast<std::uint8_t>(atc >> 8), static_cast<std::uint8_t>(atc & 0xFF)};
    input.insert(input.end(), balance.begin(), balance.end());
    input.push_back(0x00);
    return retailMac(sessionKey, input);
}

bool isPin(const std::string& digits) { return digits.size() >= 4 && digits.size() <= 12 && isDigits(digits); }

Bytes pinBlock(const std::string& digits) { return pinBlockOf(kVerifyFormat, digits); }

std::string pinDigits(const Bytes& block) { return digitsOf(kVerifyFormat, block); }

Bytes encipherNewPin(const PinSecret& secret, const std::string& digits)
{
    Bytes data = hidden(secret, pinBlockOf(kChangeFormat, digits));
    data.insert(data.begin(), static_cast<std::uint8_t>(data.size()));
    return encrypt(secret.session, padded(std::move(data)));
}

std::string decipherNewPin(const PinSecret& secret, const Bytes& data)
{
    if (data.size() != 2 * kBlock) {
        return {};
    }
    const Bytes plain = decrypt(secret.session, data);
    const Bytes block(plain.begin() + 1, plain.begin() + 1 + kBlock);
    Bytes framed = block;
    framed.insert(framed.begin(), static_cast<std::uint8_t>(kBlock));
    return plain == padded(framed) ? digitsOf(kChangeFormat, hidden(secret, block)) : std::string();
}

} // namespace vorn::sim::crypto
