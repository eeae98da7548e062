// SPDX-License-Identifier: Apache-2.0
#include "sim/cards/offline_authentication.h"

#include "sim/cards/test_keys.h"
#include "sim/data/card_values.h"
#include "sim/data/digits.h"

#include <algorithm>

namespace vorn::sim {
namespace {

constexpr tlv::Tag kRecord = 0x70, kPan = 0x5A, kDdol = 0x9F49;
constexpr unsigned kLastSfiWithoutTemplate = 10; // EMV Book 3, 10.3: the files of the payment application itself
constexpr std::size_t kEntrySize = 4;
constexpr std::size_t kRecordsMax = 254;
const Bytes kAipAlone = {0x82}; // 9F4A
const Bytes kUnpredictableNumber = {0x9F, 0x37, 0x04};

struct MethodRow {
    const char* name;
    bool OfflineAuthentication::*method;
    std::uint8_t bit; // of the AIP's first byte
};
constexpr MethodRow kMethods[] = {{"sda", &OfflineAuthentication::staticData, 0x40},
                                  {"dda", &OfflineAuthentication::dynamicData, 0x20},
                                  {"cda", &OfflineAuthentication::combined, 0x01}};

OfflineAuthentication readMethods(const JsonNode& list)
{
    OfflineAuthentication result;
    for (const JsonNode& node : list.items()) {
        const std::string name = node.text();
        const auto* const row = std::find_if(std::begin(kMethods), std::end(kMethods),
                                             [&name](const MethodRow& r) { return name == r.name; });
        if (row == std::end(kMethods)) {
            node.expected("\"sda\", \"dda\" or \"cda\"");
        }
        result.*(row->method) = true;
    }
    if (result.profileBits() == 0) {
        list.expected("at least one of \"sda\", \"dda\" and \"cda\"");
    }
    result.key = test_keys::card();
    return result;
}

Bytes bytesAt(const JsonNode& node, const char* name, const Bytes& otherwise)
{
    const auto member = node.find(name);
    return member ? bytesOf(*member, otherwise.size(), otherwise.size()) : otherwise;
}

std::map<unsigned, unsigned> readSigned(const JsonNode& node, const Records& records)
{
    std::map<unsigned, unsigned> counts;
    for (const auto& [name, member] : node.members()) {
        const auto number = numberOf(name, 2);
        const auto file = number ? records.find(*number) : records.end();
        if (file == records.end()) {
            member.expected("the short file identifier of one of the files as the name of this count");
        }
        counts[file->first] = static_cast<unsigned>(member.number(0, static_cast<int>(file->second.size())));
    }
    return counts;
}

void add(Bytes& content, tlv::Tag tag, const Bytes& value)
{
    if (!value.empty()) {
        tlv::append(content, tlv::encode(tag, value));
    }
}

} // namespace

std::uint8_t OfflineAuthentication::profileBits() const
{
    unsigned bits = 0;
    for (const MethodRow& row : kMethods) {
        bits |= this->*(row.method) ? row.bit : 0U;
    }
    return static_cast<std::uint8_t>(bits);
}

Bytes OfflineAuthentication::sign(const Bytes& cardData, const Bytes& terminalData, bool wrong) const
{
    Bytes signature = certificates::signedDynamicData(key, cardData, terminalData);
    signature.back() = static_cast<std::uint8_t>(signature.back() ^ (wrong ? 0x01 : 0x00));
    return signature;
}

CardCertificates::CardCertificates(const JsonNode& node, Records& records)
    : node_(node), methods_(readMethods(node.at("methods")))
{
    node.allow({"methods", "signed", "sfi", "ca_index", "issuer_expires", "card_expires", "issuer_serial",
                "card_serial", "data_authentication_code", "flaw", "comment"});
    const auto counts = node.find("signed");
    signed_ = counts ? readSigned(*counts, records) : std::map<unsigned, unsigned>();
    const auto sfi = node.find("sfi");
    sfi_ = sfi ? static_cast<unsigned>(sfi->number(1, 30)) : 3;
    readTerms(node);
    readFlaw(node);

    // A certificate fills most of a record.
    std::vector<Bytes>& file = records[sfi_];
    first_ = file.size();
    file.resize(file.size() + 2 + (methods_.signsItself() ? 1 : 0));
    if (file.size() > kRecordsMax) {
        node.expected("a file (sfi) with room for three more records");
    }
}

void CardCertificates::readTerms(const JsonNode& node)
{
    const Bytes expires = {0x12, 0x49};
    authorityIndex_ = bytesAt(node, "ca_index", {test_keys::kAuthorityIndex});
    issuerTerms_.expires = bytesAt(node, "issuer_expires", expires);
    issuerTerms_.serial = bytesAt(node, "issuer_serial", {0x00, 0x10, 0x01});
    cardTerms_.expires = bytesAt(node, "card_expires", expires);
    cardTerms_.serial = bytesAt(node, "card_serial", {0x00, 0x20, 0x01});
    dataAuthenticationCode_ = bytesAt(node, "data_authentication_code", {0xDA, 0xC0});
}

void CardCertificates::readFlaw(const JsonNode& node)
{
    const auto flaw = node.find("flaw");
    if (!flaw) {
        return;
    }
    struct Row {
        const char* name;
        bool& what;
    };
    const Row rows[] = {{"issuer_hash", issuerTerms_.wrongHash},
                        {"card_hash", cardTerms_.wrongHash},
                        {"signed_data", wrongData_},
                        {"dynamic_signature", methods_.wrongSignature},
                        {"combined_signature", methods_.wrongCombinedSignature}};
    const std::string name = flaw->text();
    const auto* const row =
        std::find_if(std::begin(rows), std::end(rows), [&name](const Row& r) { return name == r.name; });
    if (row == std::end(rows)) {
        flaw->expected("issuer_hash, card_hash, signed_data, dynamic_signature or combined_signature");
    }
    row->what = true;
}

unsigned CardCertificates::signedRecords(unsigned sfi) const
{
    const auto found = signed_.find(sfi);
    return found == signed_.end() ? 0 : found->second;
}

// EMV Book 3, 10.3: the marked records in the AFL's order, then the AIP, which 9F4A names.
Bytes CardCertificates::staticData(const Bytes& aip, const Bytes& afl, const Records& records) const
{
    Bytes data;
    for (std::size_t at = 0; at + kEntrySize <= afl.size(); at += kEntrySize) {
        const unsigned sfi = afl[at] >> 3U;
        const auto file = records.find(sfi);
        for (unsigned number = afl[at + 1]; number < afl[at + 1] + 0U + afl[at + 3]; ++number) {
            if (file == records.end() || number == 0 || number > file->second.size() ||
                file->second[number - 1].empty()) {
                node_.expected("an AFL that marks records of the application, and none of the certificates' own");
            }
            const Bytes& record = file->second[number - 1];
            const auto content =
                sfi <= kLastSfiWithoutTemplate ? tlv::find(record, kRecord) : std::optional<Bytes>(record);
            tlv::append(data, content.value_or(record));
        }
    }
    tlv::append(data, aip);
    data.back() = static_cast<std::uint8_t>(data.back() ^ (wrongData_ ? 0x01 : 0x00));
    return data;
}

void CardCertificates::fill(const Bytes& aip, const Bytes& afl, Records& records) const
{
    const auto pan = findInRecords(records, kPan);
    if (!pan) {
        node_.expected("an account number (5A in the records) to certify");
    }
    const std::string padded = toHex(*pan);
    const std::string digits = padded.substr(0, padded.find('F'));
    const Bytes data = staticData(aip, afl, records);
    const rsa::Key issuer = test_keys::issuer();
    const auto issuerKey = certificates::ofIssuer(test_keys::authority(), issuer, digits, issuerTerms_);
    const auto cardKey = certificates::ofCard(issuer, methods_.key, digits, cardTerms_, data);

    Bytes contents[3];
    add(contents[0], 0x8F, authorityIndex_);
    add(contents[0], 0x9F32, issuer.exponent);
    add(contents[0], 0x90, issuerKey.signedKey);
    add(contents[1], 0x92, issuerKey.remainder);
    add(contents[1], 0x9F4A, kAipAlone);
    if (methods_.staticData) {
        add(contents[1], 0x93, certificates::signedStaticData(issuer, dataAuthenticationCode_, data));
    }
    if (methods_.signsItself()) {
        add(contents[2], 0x9F46, cardKey.signedKey);
        add(contents[2], 0x9F48, cardKey.remainder);
        add(contents[2], 0x9F47, methods_.key.exponent);
        add(contents[2], kDdol, findInRecords(records, kDdol) ? Bytes() : kUnpredictableNumber);
    }
    std::vector<Bytes>& file = records[sfi_];
    for (std::size_t at = first_; at < file.size(); ++at) {
        file[at] = tlv::encode(kRecord, contents[at - first_]);
    }
}

std::optional<Bytes> findInRecords(const Records& records, tlv::Tag tag)
{
    for (const auto& file : records) {
        for (const Bytes& record : file.second) {
            if (auto value = tlv::find(record, tag)) {
                return value;
            }
        }
    }
    return std::nullopt;
}

} // namespace vorn::sim
