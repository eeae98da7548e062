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

ByteSpan commandData(ByteSpan apdu)
{
    return apdu.size() <= kDataAt ? ByteSpan() : apdu.from(kDataAt).first(apdu[kHeaderSize]);
}

// A name that is text is shown as such, an AID in hex.
std::string nameText(ByteSpan name)
{
    const bool text =
        !name.empty() && std::all_of(name.begin(), name.end(), [](int c) { return c >= 0x20 && c < 0x7F; });
    return text ? std::string(name.begin(), name.end()) : toHex(name);
}

std::string objectText(ByteSpan apdu)
{
    const Tag tag = apdu[2] * 256U + apdu[3];
    const std::string name(tagName(tag));
    return tlv::toHex(tag) + (name.empty() ? "" : " (" + name + ")");
}

std::string selected(ByteSpan data)
{
    const auto label = tlv::look(data, 0x50);
    return label ? "\"" + printable(std::string(label->begin(), label->end())) + "\"" : "";
}

// Of both formats: template 80 without tags inside, or 77 with them.
std::string processingOptions(ByteSpan data)
{
    constexpr std::size_t profileSize = 2;
    const auto plain = tlv::look(data, 0x80);
    auto profile = tlv::look(data, 0x82);
    auto locator = tlv::look(data, 0x94);
    if (!profile && plain && plain->size() >= profileSize) {
        profile = plain->first(profileSize);
        locator = plain->from(profileSize);
    }
    return profile ? "AIP " + toHex(*profile) + ", AFL " + toHex(locator.value_or(ByteSpan())) : "";
}

std::string cryptogram(ByteSpan data)
{
    constexpr std::size_t fixedSize = 11; // information data, counter, cryptogram
    const auto plain = tlv::look(data, 0x80);
    if (plain && plain->size() >= fixedSize) {
        const ByteSpan counter = plain->from(1).first(2);
        const ByteSpan value = plain->from(3).first(8);
        return cryptogramName(plain->front()) + " " + toHex(value) + ", ATC " + std::to_string(bigEndian(counter));
    }
    const auto information = tlv::look(data, 0x9F27);
    return information && !information->empty() ? cryptogramName(information->front()) + ", format 2" : "";
}

std::string tagsIn(ByteSpan data)
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

unsigned statusOf(ByteSpan response)
{
    return response.size() < 2 ? 0 : response[response.size() - 2] * 256U + response.back();
}

ByteSpan dataOf(ByteSpan response) { return response.first(response.size() < 2 ? 0 : response.size() - 2); }

bool knownInstruction(std::uint8_t instruction)
{
    return std::any_of(std::begin(kRows), std::end(kRows),
                       [instruction](const Row& row) { return row.ins == instruction; });
}

std::string commandInWords(ByteSpan apdu)
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

std::string answerInWords(ByteSpan apdu, ByteSpan response)
{
    const ByteSpan data = dataOf(response);
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
