// SPDX-License-Identifier: Apache-2.0
#include "tools/explain/apdu_words.h"

#include "sim/data/tlv.h"
#include "tools/explain/hex.h"
#include "tools/explain/present.h"
#include "tools/explain/tlv_view.h"

#include <algorithm>
#include <cctype>

namespace vorn::tool {

namespace tlv = sim::tlv;

namespace {

enum Instruction : std::uint8_t {
    kVerify = 0x20,
    kPinChange = 0x24,
    kExternalAuthenticate = 0x82,
    kSelect = 0xA4,
    kProcessingOptions = 0xA8,
    kGenerateCryptogram = 0xAE,
    kReadRecord = 0xB2,
    kGetData = 0xCA,
    kPutData = 0xDA
};

struct Row {
    std::uint8_t ins;
    const char* name;
};

const Row kRows[] = {
    {0x16, "CARD BLOCK"},
    {0x18, "APPLICATION UNBLOCK"},
    {0x1E, "APPLICATION BLOCK"},
    {kVerify, "VERIFY"},
    {0x22, "WALLET INFORMATION"},
    {kPinChange, "PIN CHANGE/UNBLOCK"},
    {0x50, "INITIALIZE"},
    {0x52, "CREDIT FOR LOAD"},
    {kExternalAuthenticate, "EXTERNAL AUTHENTICATE"},
    {0x84, "GET CHALLENGE"},
    {0x88, "INTERNAL AUTHENTICATE"},
    {kSelect, "SELECT"},
    {kProcessingOptions, "GET PROCESSING OPTIONS"},
    {kGenerateCryptogram, "GENERATE AC"},
    {0xB0, "READ BINARY"},
    {kReadRecord, "READ RECORD"},
    {0xC0, "GET RESPONSE"},
    {kGetData, "GET DATA"},
    {0xD6, "UPDATE BINARY"},
    {kPutData, "PUT DATA"},
    {0xDC, "UPDATE RECORD"},
    {0xE2, "APPEND RECORD"},
};

constexpr std::size_t kHeaderSize = 4;
constexpr std::size_t kDataAt = 5;

Bytes commandData(const Bytes& apdu)
{
    if (apdu.size() <= kDataAt) {
        return {};
    }
    const std::size_t size = std::min<std::size_t>(apdu[kHeaderSize], apdu.size() - kDataAt);
    return {apdu.begin() + kDataAt, apdu.begin() + static_cast<std::ptrdiff_t>(kDataAt + size)};
}

// A name that is text is shown as such, an AID in hex.
std::string nameText(const Bytes& name)
{
    const bool text =
        !name.empty() && std::all_of(name.begin(), name.end(), [](int c) { return c >= 0x20 && c < 0x7F; });
    return text ? std::string(name.begin(), name.end()) : toHex(name);
}

std::string objectText(const Bytes& apdu)
{
    const Tag tag = apdu[2] * 256U + apdu[3];
    const std::string name = tagName(tag);
    return tlv::toHex(tag) + (name.empty() ? "" : " (" + name + ")");
}

std::string selected(const Bytes& data)
{
    const auto label = tlv::find(data, 0x50);
    return label ? "\"" + printable(std::string(label->begin(), label->end())) + "\"" : "";
}

// Of both formats: template 80 without tags inside, or 77 with them.
std::string processingOptions(const Bytes& data)
{
    const auto plain = tlv::find(data, 0x80);
    auto profile = tlv::find(data, 0x82);
    auto locator = tlv::find(data, 0x94);
    if (!profile && plain && plain->size() >= 2) {
        profile = Bytes(plain->begin(), plain->begin() + 2);
        locator = Bytes(plain->begin() + 2, plain->end());
    }
    return profile ? "AIP " + toHex(*profile) + ", AFL " + toHex(locator.value_or(Bytes())) : "";
}

std::string cryptogram(const Bytes& data)
{
    constexpr std::size_t fixedSize = 11; // information data, counter, cryptogram
    const auto plain = tlv::find(data, 0x80);
    if (plain && plain->size() >= fixedSize) {
        const Bytes counter(plain->begin() + 1, plain->begin() + 3);
        const Bytes value(plain->begin() + 3, plain->begin() + 11);
        return cryptogramName(plain->front()) + " " + toHex(value) + ", ATC " + std::to_string(bigEndian(counter));
    }
    const auto information = tlv::find(data, 0x9F27);
    return information && !information->empty() ? cryptogramName(information->front()) + ", format 2" : "";
}

std::string tagsIn(const Bytes& data)
{
    std::string text;
    for (const TlvNode& node : walkTlv(data).nodes) {
        if (!node.constructed) {
            text += (text.empty() ? "" : " ") + tlv::toHex(node.tag);
        }
    }
    return text;
}

} // namespace

unsigned statusOf(const Bytes& response)
{
    return response.size() < 2 ? 0 : response[response.size() - 2] * 256U + response.back();
}

Bytes dataOf(const Bytes& response)
{
    return response.size() < 2 ? Bytes() : Bytes(response.begin(), response.end() - 2);
}

bool knownInstruction(std::uint8_t instruction)
{
    return std::any_of(std::begin(kRows), std::end(kRows),
                       [instruction](const Row& row) { return row.ins == instruction; });
}

std::string commandInWords(const Bytes& apdu)
{
    if (apdu.size() < kHeaderSize) {
        return "no command";
    }
    const auto* const row =
        std::find_if(std::begin(kRows), std::end(kRows), [&](const Row& r) { return r.ins == apdu[1]; });
    if (row == std::end(kRows)) {
        return "command " + toHex({apdu[0], apdu[1]});
    }
    const std::string name = row->name;
    switch (apdu[1]) {
    case kSelect:
        return name + " " + nameText(commandData(apdu)) + ((apdu[3] & 0x02U) != 0 ? ", next occurrence" : "");
    case kReadRecord:
        return name + " " + std::to_string(apdu[2]) + " of file " + std::to_string(apdu[3] >> 3);
    case kGetData:
    case kPutData:
        return name + " " + objectText(apdu);
    case kGenerateCryptogram:
        return name + ", asking for " + cryptogramName(apdu[2]);
    case kExternalAuthenticate:
        return name + " (the issuer's answer)";
    default:
        return name;
    }
}

std::string answerInWords(const Bytes& apdu, const Bytes& response)
{
    const Bytes data = dataOf(response);
    if (apdu.size() < kHeaderSize || data.empty()) {
        return {};
    }
    switch (apdu[1]) {
    case kSelect:
        return selected(data);
    case kProcessingOptions:
        return processingOptions(data);
    case kGenerateCryptogram:
        return cryptogram(data);
    case kReadRecord:
        return tagsIn(data);
    case kGetData:
        return dataHex(apdu, data, false);
    default:
        return std::to_string(data.size()) + " bytes";
    }
}

} // namespace vorn::tool
