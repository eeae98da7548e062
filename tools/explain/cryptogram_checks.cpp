// SPDX-License-Identifier: Apache-2.0
#include "tools/explain/cryptogram_checks.h"

#include "sim/data/tlv.h"
#include "tools/explain/apdu_words.h"
#include "tools/explain/present.h"
#include "tools/explain/tlv_view.h"

#include <algorithm>
#include <utility>

namespace vorn::tool {

namespace tlv = sim::tlv;

namespace {

enum Instruction : std::uint8_t {
    kSelect = 0xA4,
    kProcessingOptions = 0xA8,
    kGenerateCryptogram = 0xAE,
    kGetResponse = 0xC0
};
constexpr std::size_t kHeader = 4;
constexpr std::size_t kDataAt = 5;
constexpr Tag kFormat1 = 0x80;
constexpr Tag kPdol = 0x9F38;
constexpr Tag kCdol1 = 0x8C;
constexpr Tag kCdol2 = 0x8D;
constexpr Tag kProfile = 0x82; // application interchange profile
constexpr Tag kTerminalCapabilities = 0x9F33;

Bytes slice(const Bytes& bytes, std::size_t from, std::size_t to)
{
    to = std::min(to, bytes.size());
    from = std::min(from, to);
    return {bytes.begin() + static_cast<std::ptrdiff_t>(from), bytes.begin() + static_cast<std::ptrdiff_t>(to)};
}

Bytes dataOfCommand(const Bytes& apdu)
{
    return apdu.size() <= kDataAt ? Bytes() : slice(apdu, kDataAt, kDataAt + apdu[kHeader]);
}

// The value of format 1: where each object stands in it is agreed.
std::optional<Bytes> format1(const Bytes& data)
{
    const auto objects = tlv::parse(data);
    const bool plain = objects && objects->size() == 1 && objects->front().tag == kFormat1;
    return plain ? std::optional(objects->front().value) : std::nullopt;
}

} // namespace

void CryptogramChecks::powerOn()
{
    known_.clear();
    waiting_.clear();
    cryptograms_ = 0;
}

void CryptogramChecks::learnListed(const Bytes& list, const Bytes& values)
{
    const auto entries = tlv::parseDol(list);
    std::size_t at = 0;
    for (const auto& entry : entries ? *entries : std::vector<tlv::DolEntry>()) {
        known_[entry.tag] = slice(values, at, at + entry.length);
        at += entry.length;
    }
}

void CryptogramChecks::learnObjects(const Bytes& data)
{
    for (const TlvNode& node : walkTlv(data).nodes) {
        if (!node.constructed) {
            known_[node.tag] = node.value.copy();
        }
    }
}

void CryptogramChecks::learnOptions(const Bytes& apdu, const Bytes& data)
{
    const Bytes sent = dataOfCommand(apdu);
    if (sent.size() >= 2 && sent[0] == 0x83) {
        learnListed(known_[kPdol], slice(sent, 2, sent.size()));
    }
    if (const auto value = format1(data)) {
        known_[kProfile] = slice(*value, 0, 2);
    } else {
        learnObjects(data);
    }
}

std::string CryptogramChecks::exchange(const Bytes& apdu, const Bytes& response)
{
    if (apdu.size() < kHeader || response.size() < 2) {
        return {};
    }
    const unsigned status = statusOf(response);
    if (status >> 8 == 0x61) {
        waiting_ = apdu[1] == kGetResponse ? waiting_ : apdu;
        return {};
    }
    Bytes asked = std::exchange(waiting_, {});
    asked = apdu[1] == kGetResponse && !asked.empty() ? asked : apdu;
    const Bytes data = dataOf(response).copy();
    if (status != 0x9000) {
        return {};
    }
    switch (asked[1]) {
    case kSelect:
        powerOn();
        learnObjects(data);
        return {};
    case kProcessingOptions:
        learnOptions(asked, data);
        return {};
    case kGenerateCryptogram:
        return cryptogram(asked, data);
    default:
        learnObjects(data);
        return {};
    }
}

std::string CryptogramChecks::cryptogram(const Bytes& apdu, const Bytes& data)
{
    learnListed(known_[++cryptograms_ == 1 ? kCdol1 : kCdol2], dataOfCommand(apdu));
    if (const auto value = format1(data)) {
        known_[0x9F27] = slice(*value, 0, 1);
        known_[0x9F36] = slice(*value, 1, 3);
        known_[0x9F26] = slice(*value, 3, 11);
        known_[0x9F10] = slice(*value, 11, value->size());
    } else {
        learnObjects(data);
    }
    const std::string information = sim::toHex(known_[0x9F27]);
    const std::string name =
        information.empty() ? "cryptogram" : cryptogramName(static_cast<unsigned>(known_[0x9F27][0]));
    if (name != "ARQC" && name != "TC") {
        return "the " + name + " was not checked: no issuer gets one";
    }
    if (!issuer_) {
        return "the " + name + " was not checked: no issuer's keys were named";
    }
    std::map<Tag, Bytes> values = known_;
    const auto& used = issuer_->rules().objects;
    if (std::find(used.begin(), used.end(), kTerminalCapabilities) == used.end()) {
        values.insert({kTerminalCapabilities, Bytes(3)}); // stands in the text, and the cryptogram is not over it
    }
    const std::string text = sim::writeCryptogramText(values);
    return judged(name == "ARQC" ? issuer_->authorise(text).request : issuer_->verifyCompletion(text), name);
}

std::string CryptogramChecks::judged(const sim::Verification& verification, const std::string& name) const
{
    const std::string keys = " (keys of " + whose_ + ")";
    return verification.verified     ? "the " + name + " was right" + keys
           : verification.understood ? "the " + name + " was wrong" + keys + ": " + verification.why
                                     : "the " + name + " was not checked: " + verification.why;
}

} // namespace vorn::tool
