// SPDX-License-Identifier: Apache-2.0
#include "tools/verify/offline_checks.h"

#include "tools/verify/recovery.h"

#include <algorithm>
#include <cstdio>

namespace vorn::tool::verify {
namespace {

constexpr unsigned kAuthorityIndex = 0x8F, kIssuerCertificate = 0x90, kIssuerRemainder = 0x92, kIssuerExponent = 0x9F32;
constexpr unsigned kCardCertificate = 0x9F46, kCardExponent = 0x9F47, kCardRemainder = 0x9F48;
constexpr unsigned kSignedData = 0x93, kStaticTags = 0x9F4A, kDdol = 0x9F49, kPan = 0x5A, kSignature = 0x9F4B;
constexpr unsigned kInformationData = 0x9F27;
constexpr std::uint8_t kSha1 = 0x01, kRsa = 0x01;
constexpr std::size_t kRidSize = 5;

const char* const kStaticStep = "signed data (SDA)";
const char* const kDynamicStep = "dynamic signature (DDA)";
const char* const kCombinedStep = "signed cryptogram (CDA)";

std::string hexOf(const Bytes& bytes)
{
    std::string text;
    for (const std::uint8_t byte : bytes) {
        char digits[3];
        std::snprintf(digits, sizeof digits, "%02X", byte);
        text += digits;
    }
    return text;
}

void append(Bytes& to, const Bytes& more) { to.insert(to.end(), more.begin(), more.end()); }

void complain(std::string& problems, bool bad, const std::string& what)
{
    if (bad) {
        problems += (problems.empty() ? "" : "; ") + what;
    }
}

std::string missing(const Objects& objects, std::initializer_list<unsigned> tags)
{
    std::string list;
    for (const unsigned tag : tags) {
        if (valueOf(objects, tag).empty()) {
            char text[12];
            std::snprintf(text, sizeof text, "%X", tag);
            list += (list.empty() ? "" : " ") + std::string(text);
        }
    }
    return list.empty() ? "" : "the card lacks " + list;
}

// Months of two digits: 00 to 49 are of this century (EMV Book 4, 6.7.3).
unsigned lastMonth(const Bytes& monthAndYear)
{
    const auto two = [&monthAndYear](std::size_t at) { return monthAndYear[at] / 16U * 10 + monthAndYear[at] % 16U; };
    const unsigned year = monthAndYear.size() == 2 ? two(1) : 0;
    return monthAndYear.size() == 2 ? (year < 50 ? 2000 + year : 1900 + year) * 100 + two(0) : 0;
}

std::string monthText(unsigned month)
{
    char text[32];
    std::snprintf(text, sizeof text, "%04u-%02u", month / 100 % 10000, month % 100);
    return text;
}

// The two kinds of certificates differ in their format byte and in the size of their holder's number.
struct Certificate {
    Bytes holder;
    unsigned lastMonth = 0;
    Bytes serial;
    bool algorithmsKnown = false;
    std::size_t keySize = 0;
    std::size_t exponentSize = 0;
    Bytes key; // the part that is in the certificate
};

Certificate readCertificate(const Recovered& recovered, std::size_t holderSize)
{
    Certificate result;
    std::size_t at = 1;
    const auto next = [&](std::size_t size) {
        at += size;
        return recovered.part(at - size, size);
    };
    result.holder = next(holderSize);
    result.lastMonth = lastMonth(next(2));
    result.serial = next(3);
    result.algorithmsKnown = next(2) == Bytes{kSha1, kRsa};
    result.keySize = recovered.byte(at++);
    result.exponentSize = recovered.byte(at++);
    result.key = recovered.part(at, std::min(result.keySize, recovered.size() - std::min(at, recovered.size())));
    return result;
}

Bytes wholeKey(const Certificate& certificate, const Bytes& remainder)
{
    Bytes key = certificate.key;
    append(key, remainder);
    return key;
}

void checkTerms(const Certificate& certificate, const Bytes& modulus, const Bytes& exponent, unsigned thisMonth,
                std::string& problems)
{
    complain(problems, !certificate.algorithmsKnown, "it names other algorithms than SHA-1 and RSA");
    complain(problems, modulus.size() != certificate.keySize || exponent.size() != certificate.exponentSize,
             "the key beside it is of another length than it says");
    complain(problems, certificate.lastMonth < thisMonth, "it expired in " + monthText(certificate.lastMonth));
}

// Digits up to the filler.
std::string digitsOf(const Bytes& bytes)
{
    const std::string text = hexOf(bytes);
    return text.substr(0, text.find('F'));
}

Bytes signatureIn(const Bytes& answer)
{
    if (const auto plain = onlyObject(answer, 0x80)) {
        return *plain;
    }
    Objects objects;
    collect(answer, objects);
    return valueOf(objects, kSignature);
}

} // namespace

OfflineChecks::OfflineChecks(Evidence evidence, Authorities authorities)
    : evidence_(std::move(evidence)), authorities_(std::move(authorities))
{}

bool OfflineChecks::offers(std::uint8_t bit) const { return !evidence_.aip.empty() && (evidence_.aip[0] & bit) != 0; }

bool OfflineChecks::held() const
{
    return std::all_of(steps_.begin(), steps_.end(), [](const Step& step) { return step.held; });
}

void OfflineChecks::add(const std::string& name, const std::string& problems, const std::string& detail)
{
    steps_.push_back({name, problems.empty(), problems.empty() ? detail : problems});
}

void OfflineChecks::checkCertificates()
{
    const AuthorityKey* const authority = checkAuthority();
    if (authority == nullptr) {
        return;
    }
    checkIssuer(*authority);
    if (offersStatic() && issuer_.known()) {
        checkSignedData();
    }
    if ((offersDynamic() || offersCombined()) && issuer_.known()) {
        checkCard();
    }
}

const AuthorityKey* OfflineChecks::checkAuthority()
{
    const char* const name = "authority's key";
    const Bytes index = valueOf(evidence_.objects, kAuthorityIndex);
    if (index.size() != 1 || evidence_.aid.size() < kRidSize) {
        add(name, "the card names none (8F)");
        return nullptr;
    }
    const Bytes rid(evidence_.aid.begin(), evidence_.aid.begin() + kRidSize);
    const std::string place = hexOf(rid) + " index " + hexOf(index);
    const AuthorityKey* const key = authorities_.find(rid, index[0]);
    if (key == nullptr) {
        add(name, place + " is not known here");
        return nullptr;
    }
    std::string problems;
    complain(problems, key->lastMonth < evidence_.thisMonth, place + " expired in " + monthText(key->lastMonth));
    add(name, problems,
        place + ", " + (key->name.empty() ? "" : key->name + ", ") + "until " + monthText(key->lastMonth));
    return key;
}

void OfflineChecks::checkIssuer(const AuthorityKey& authority)
{
    const char* const name = "issuer's certificate";
    const Objects& objects = evidence_.objects;
    std::string problems = missing(objects, {kIssuerCertificate, kIssuerExponent, kPan});
    const Recovered recovered(valueOf(objects, kIssuerCertificate), authority.modulus, authority.exponent);
    complain(problems, problems.empty() && !recovered.problem(0x02).empty(), recovered.problem(0x02));
    if (!problems.empty()) {
        add(name, problems);
        return;
    }
    const Certificate certificate = readCertificate(recovered, 4);
    const Bytes remainder = valueOf(objects, kIssuerRemainder), exponent = valueOf(objects, kIssuerExponent);
    Bytes besides = remainder;
    append(besides, exponent);
    const Bytes modulus = wholeKey(certificate, remainder);
    const std::string identifier = digitsOf(certificate.holder);
    complain(problems, !recovered.hashes(besides), "its hash is another");
    complain(problems,
             identifier.size() < 3 || digitsOf(valueOf(objects, kPan)).compare(0, identifier.size(), identifier) != 0,
             "it is another issuer's");
    checkTerms(certificate, modulus, exponent, evidence_.thisMonth, problems);
    const std::string serial = hexOf(certificate.serial);
    complain(problems, authorities_.revokes(authority, certificate.serial),
             "its serial number " + serial + " is revoked");
    add(name, problems, "serial number " + serial + ", until " + monthText(certificate.lastMonth));
    issuer_ = {modulus, exponent};
}

// The records that the AFL marks, and what 9F4A adds: the AIP, or nothing.
Bytes OfflineChecks::staticData(std::string& problems) const
{
    Bytes data = evidence_.markedData;
    const Bytes tags = valueOf(evidence_.objects, kStaticTags);
    complain(problems, !tags.empty() && tags != Bytes{0x82},
             "its list of signed objects (9F4A) names more than the AIP");
    if (!tags.empty()) {
        append(data, evidence_.aip);
    }
    return data;
}

void OfflineChecks::checkSignedData()
{
    std::string problems = missing(evidence_.objects, {kSignedData});
    const Bytes data = staticData(problems);
    const Recovered recovered(valueOf(evidence_.objects, kSignedData), issuer_.modulus, issuer_.exponent);
    if (problems.empty()) {
        problems = recovered.problem(0x03);
    }
    complain(problems, problems.empty() && !recovered.hashes(data), "the records are not those that were signed");
    add(kStaticStep, problems,
        std::to_string(data.size()) + " bytes, data authentication code " + hexOf(recovered.part(2, 2)));
}

void OfflineChecks::checkCard()
{
    const char* const name = "card's certificate";
    const Objects& objects = evidence_.objects;
    std::string problems = missing(objects, {kCardCertificate, kCardExponent, kPan});
    const Recovered recovered(valueOf(objects, kCardCertificate), issuer_.modulus, issuer_.exponent);
    complain(problems, problems.empty() && !recovered.problem(0x04).empty(), recovered.problem(0x04));
    if (!problems.empty()) {
        add(name, problems);
        return;
    }
    const Certificate certificate = readCertificate(recovered, 10);
    const Bytes remainder = valueOf(objects, kCardRemainder), exponent = valueOf(objects, kCardExponent);
    Bytes besides = remainder;
    append(besides, exponent);
    append(besides, staticData(problems));
    const Bytes modulus = wholeKey(certificate, remainder);
    complain(problems, !recovered.hashes(besides), "its hash is another: the key or the signed records were changed");
    complain(problems, digitsOf(certificate.holder) != digitsOf(valueOf(objects, kPan)), "it is another account's");
    checkTerms(certificate, modulus, exponent, evidence_.thisMonth, problems);
    add(name, problems, "serial number " + hexOf(certificate.serial) + ", until " + monthText(certificate.lastMonth));
    card_ = {modulus, exponent};
}

Bytes OfflineChecks::dynamicList() const
{
    const Bytes list = valueOf(evidence_.objects, kDdol);
    return list.empty() ? Bytes{0x9F, 0x37, 0x04} : list;
}

void OfflineChecks::checkDynamic(const Bytes& brought, const Bytes& answer)
{
    if (!card_.known()) {
        return;
    }
    const Recovered recovered(signatureIn(answer), card_.modulus, card_.exponent);
    std::string problems = recovered.problem(0x05);
    complain(problems, problems.empty() && !recovered.hashes(brought), "it is over other data");
    const std::size_t numberSize = recovered.byte(3);
    add(kDynamicStep, problems, "the card's number " + hexOf(recovered.part(4, numberSize)));
}

void OfflineChecks::checkCombined(const Bytes& lists, const Bytes& unpredictable, const Bytes& answer)
{
    if (!card_.known()) {
        return;
    }
    Objects objects;
    collect(answer, objects);
    const Recovered recovered(valueOf(objects, kSignature), card_.modulus, card_.exponent);
    std::string problems = recovered.problem(0x05);
    if (!problems.empty()) {
        add(kCombinedStep, problems);
        return;
    }
    complain(problems, !recovered.hashes(unpredictable), "it is over another number");

    // Everything that the card answered but the signature itself, as it came.
    Bytes transaction = lists;
    const auto content = onlyObject(answer, 0x77);
    append(transaction, withoutObject(content.value_or(Bytes()), kSignature));
    const std::size_t cryptogramAt = 4U + recovered.byte(3);
    complain(problems, recovered.part(cryptogramAt, 1) != valueOf(objects, kInformationData),
             "it signs another decision");
    complain(problems, recovered.part(cryptogramAt + 9, 20) != hashOf(transaction), "it is over another transaction");
    add(kCombinedStep, problems, "cryptogram " + hexOf(recovered.part(cryptogramAt + 1, 8)));
}

} // namespace vorn::tool::verify
