// SPDX-License-Identifier: Apache-2.0
#include "tools/explain/mask.h"

#include "tools/explain/hex.h"
#include "tools/explain/mask_scan.h"
#include "tools/explain/tag_index.h"
#include "tools/explain/tlv_view.h"

#include <algorithm>
#include <array>

namespace vorn::tool {

namespace {

struct Row {
    Tag tag;
    Secret secret;
};

constexpr Row kSecrets[] = {
    {0x56, Secret::Whole},         // track 1
    {0x57, Secret::Track2},        //
    {0x5A, Secret::AccountNumber}, //
    {0x99, Secret::Whole},         // PIN data
    {0x5F20, Secret::Whole},       // cardholder name
    {0x5F21, Secret::Whole},       // track 1 as it is
    {0x5F22, Secret::Whole},       // track 2 as it is
    {0x5F23, Secret::Whole},       // track 3 as it is
    {0x5F53, Secret::Whole},       // IBAN
    {0x9F0B, Secret::Whole},       // cardholder name extended
    {0x9F1F, Secret::Whole},       // track 1 discretionary data
    {0x9F20, Secret::Whole},       // track 2 discretionary data
    {0x9F24, Secret::Whole},       // payment account reference
    {0x9F2D, Secret::Whole},       // PIN encipherment certificate: contains the account number
    {0x9F46, Secret::Whole},       // card's certificate: contains the account number
    {0x9F61, Secret::Document},    // cardholder document number
    {0x9F6B, Secret::Track2},      //
};

struct OpaqueRow {
    Tag tag;
};

constexpr OpaqueRow kOpaque[] = {{0x4F},   {0x84},   {0x8C},   {0x8D},   {0x8E},   {0x90},   {0x91},   {0x92},
                                 {0x93},   {0x94},   {0x97},   {0x9D},   {0x9F06}, {0x9F26}, {0x9F32}, {0x9F37},
                                 {0x9F38}, {0x9F47}, {0x9F48}, {0x9F49}, {0x9F4B}, {0x9F4C}, {0x9F4F}};

constexpr TagIndex kSecretIndex(kSecrets);
constexpr TagIndex kOpaqueIndex(kOpaque);

enum Instruction : std::uint8_t {
    kVerify = 0x20,
    kWalletInformation = 0x22,
    kPinChange = 0x24,
    kExternalAuthenticate = 0x82,
    kGetChallenge = 0x84,
    kInternalAuthenticate = 0x88,
    kSelect = 0xA4,
    kProcessingOptions = 0xA8,
    kGenerateCryptogram = 0xAE,
    kReadRecord = 0xB2,
    kGetResponse = 0xC0,
    kGetData = 0xCA
};
constexpr std::uint8_t kFormat1 = 0x80; // values one behind the other, no objects
constexpr std::uint8_t kProprietary = 0x80;
constexpr std::uint8_t kSecureMessaging = 0x04; // the issuer's script commands
constexpr std::size_t kCommandDataAt = 5;
// Bytes. In a longer value stands something else too, nobody knows what.
constexpr std::size_t kAccountLongest = 10;
constexpr std::size_t kTrack2Longest = 19;
constexpr std::size_t kRandomNumber = 8;

std::string stars(std::size_t count) { return std::string(count, '*'); }

std::string trackHex(const std::string& hex)
{
    const std::size_t separator = std::min(hex.find('D'), hex.size());
    if (separator == hex.size()) {
        return maskMiddle(hex, 6, 0);
    }
    const std::size_t padding = hex.find_last_not_of('F') + 1;
    return maskPan(hex.substr(0, separator)) + "D" + stars(padding - separator - 1) + hex.substr(padding);
}

std::string accountHex(const std::string& hex)
{
    const std::size_t padding = std::min(hex.find('F'), hex.size());
    return maskPan(hex.substr(0, padding)) + hex.substr(padding);
}

// A label or a language: its bytes are characters, and are looked at as such.
bool plainLabel(Tag tag, ByteSpan value)
{
    if (tag != 0x50 && tag != 0x5F2D && tag != 0x9F12) {
        return false;
    }
    const std::string text(value.begin(), value.end());
    return std::all_of(value.begin(), value.end(), [](int c) { return c >= 0x20 && c < 0x7F; }) &&
           maskText(text) == text;
}

// Whole objects, all of a known kind: each value is looked at by itself, so that the bytes of tags and lengths are not
// taken for digits of an account number.
bool allKnown(const TlvWalk& walk)
{
    return walk.problem.empty() && !walk.nodes.empty() &&
           std::none_of(walk.nodes.begin(), walk.nodes.end(),
                        [](const TlvNode& node) { return tagName(node.tag).empty(); });
}

std::string maskedHex(ByteSpan bytes)
{
    std::string text = toHex(bytes);
    hideInHex(text);
    return text;
}

std::string maskedObjects(const std::vector<TlvNode>& nodes, std::string text)
{
    for (const TlvNode& node : nodes) {
        if (!node.constructed) {
            text.replace(2 * node.valueAt, 2 * node.value.size(), valueHex(node.tag, node.value, false));
        }
    }
    return text;
}

// What is hidden already stays so: where objects are cut or shifted, the value of one may be what others stand in.
void hideSecrets(const std::vector<TlvNode>& nodes, std::string& text)
{
    for (const TlvNode& node : nodes) {
        if (!secretTag(node.tag)) {
            continue;
        }
        const std::string masked = valueHex(node.tag, node.value, false);
        for (std::size_t i = 0; i < masked.size(); ++i) {
            char& shown = text[2 * node.valueAt + i];
            shown = masked[i] == '*' ? '*' : shown;
        }
    }
}

bool decimal(std::uint8_t byte, unsigned from, unsigned to)
{
    const unsigned value = 10U * (byte >> 4) + (byte & 0x0FU);
    return (byte >> 4) < 10 && (byte & 0x0FU) < 10 && value >= from && value <= to;
}

// A record of the card's transaction log in its usual layout: date, time, amounts, codes, merchant, type, counter.
bool logRecord(ByteSpan data)
{
    constexpr std::size_t size = 45;
    return data.size() == size && decimal(data[1], 1, 12) && decimal(data[2], 1, 31) && decimal(data[3], 0, 23) &&
           decimal(data[4], 0, 59) && decimal(data[5], 0, 59);
}

bool format1(ByteSpan data)
{
    const std::vector<TlvNode> nodes =
        !data.empty() && data[0] == kFormat1 ? walkTlv(data).nodes : std::vector<TlvNode>();
    return nodes.size() == 1 && nodes[0].valueAt + nodes[0].value.size() == data.size();
}

bool plainAnswer(ByteSpan apdu, ByteSpan data)
{
    if (apdu.size() < 4) {
        return false;
    }
    switch (apdu[1]) {
    case kReadRecord:
        return logRecord(data);
    case kGetChallenge:
        return data.size() <= kRandomNumber;
    case kInternalAuthenticate:
    case kProcessingOptions:
    case kGenerateCryptogram:
        return format1(data);
    default:
        return false;
    }
}

// How an answer's data begin. Other commands bring anything, or as the issuer's do, nothing.
struct Beginnings {
    std::uint8_t instruction;
    std::array<std::uint8_t, 5> bytes; // 0: none
};

constexpr Beginnings kBeginnings[] = {{kExternalAuthenticate, {}},
                                      {kGetChallenge, {}},
                                      {kInternalAuthenticate, {0x77, kFormat1}},
                                      {kSelect, {0x6F}},
                                      {kProcessingOptions, {0x77, kFormat1}},
                                      {kGenerateCryptogram, {0x77, kFormat1}},
                                      {kReadRecord, {0x70}},
                                      {kGetResponse, {0x6F, 0x70, 0x77, kFormat1, 0x9F}}};

bool beginsWithTag(ByteSpan data, std::uint8_t high, std::uint8_t low)
{
    return high == 0 ? data[0] == low : data.size() > 1 && data[0] == high && data[1] == low;
}

// Whether bytes may be the rest of an answer whose beginning came too late, or is another command's: of a name as well as
// of anything.
bool restOfAnswer(ByteSpan apdu, ByteSpan data)
{
    if (apdu.size() < 4 || data.empty()) {
        return false;
    }
    if (apdu[1] == kGetData) {
        return !beginsWithTag(data, apdu[2], apdu[3]);
    }
    const auto* const row = std::find_if(std::begin(kBeginnings), std::end(kBeginnings),
                                         [&](const Beginnings& b) { return b.instruction == apdu[1]; });
    if (row == std::end(kBeginnings)) {
        return (apdu[0] & kSecureMessaging) != 0;
    }
    return data[0] == 0 || std::find(row->bytes.begin(), row->bytes.end(), data[0]) == row->bytes.end() ||
           (data[0] == kFormat1 && !format1(data));
}

} // namespace

Secret secretOf(Tag tag)
{
    const Row* const row = kSecretIndex.find(tag);
    return row == nullptr ? Secret::None : row->secret;
}

bool secretTag(Tag tag) { return secretOf(tag) != Secret::None; }

bool opaqueTag(Tag tag) { return kOpaqueIndex.find(tag) != nullptr; }

// ---------------------------------------------------------------- hex of bytes

std::string valueHex(Tag tag, ByteSpan value, bool show)
{
    if (show || opaqueTag(tag) || plainLabel(tag, value)) {
        return toHex(value);
    }
    switch (secretOf(tag)) {
    case Secret::None:
        return maskedHex(value);
    case Secret::AccountNumber:
        return value.size() > kAccountLongest ? stars(2 * value.size()) : accountHex(toHex(value));
    case Secret::Track2:
        return value.size() > kTrack2Longest ? stars(2 * value.size()) : trackHex(toHex(value));
    case Secret::Document:
    case Secret::Whole:
        break;
    }
    return stars(2 * value.size());
}

std::string hexText(ByteSpan bytes, bool show)
{
    if (show) {
        return toHex(bytes);
    }
    const TlvWalk walk = walkTlv(bytes);
    if (allKnown(walk)) {
        return maskedObjects(walk.nodes, toHex(bytes));
    }
    std::string text = maskedHex(bytes);
    hideSecrets(walk.nodes, text);
    return text;
}

std::string commandHex(ByteSpan apdu, bool show)
{
    if (show || apdu.size() <= kCommandDataAt) {
        return toHex(apdu);
    }
    const ByteSpan header = apdu.first(kCommandDataAt);
    const ByteSpan data = apdu.from(kCommandDataAt);
    switch (apdu[1]) {
    case kVerify:
    case kPinChange:
        return toHex(header) + stars(2 * data.size());
    case kProcessingOptions:
    case kGenerateCryptogram: // the terminal's own data
        return toHex(apdu);
    default:
        return toHex(header) + hexText(data, false);
    }
}

std::string dataHex(ByteSpan apdu, ByteSpan data, bool show)
{
    const bool wallet = apdu.size() >= 4 && apdu[0] == kProprietary && apdu[1] == kWalletInformation;
    const bool plain = show || plainAnswer(apdu, data);
    return !plain && (wallet || restOfAnswer(apdu, data)) ? stars(2 * data.size()) : hexText(data, plain);
}

std::string responseHex(ByteSpan apdu, ByteSpan response, bool show)
{
    if (response.size() < 2) {
        return dataHex(apdu, response, show);
    }
    std::string text = dataHex(apdu, response.first(response.size() - 2), show);
    sim::appendHex(text, response.last(2));
    return text;
}

// ---------------------------------------------------------------- words

std::string valueWords(Tag tag, std::string words, bool show)
{
    const Secret secret = secretOf(tag);
    if (show || words.empty()) {
        return words;
    }
    switch (secret) {
    case Secret::None:
        return opaqueTag(tag) ? words : maskText(std::move(words));
    case Secret::AccountNumber:
        return maskPan(words);
    case Secret::Track2:
        return maskTrack2(words);
    case Secret::Document:
        return maskMiddle(words, 3, 2);
    case Secret::Whole:
        return "(masked)";
    }
    return "(masked)";
}

// ---------------------------------------------------------------- text of any kind

std::string maskedUnless(bool show, std::string text) { return show ? std::move(text) : maskText(std::move(text)); }

std::string excerpt(const std::string& input)
{
    constexpr std::size_t most = 8;
    std::string text = input.substr(0, most);
    for (char& c : text) {
        c = c >= '0' && c <= '9' ? '#' : c < 0x20 || c > 0x7E ? '?' : c;
    }
    return text + (input.size() > most ? "..." : "");
}

// ---------------------------------------------------------------- single values

std::string maskMiddle(const std::string& text, std::size_t first, std::size_t last)
{
    // A short text would be told by its ends: nothing of it remains then but a third.
    if (text.size() < first + last + 2) {
        first = 0;
        last = text.size() / 3;
    }
    std::string masked = text;
    std::fill(masked.begin() + static_cast<std::ptrdiff_t>(first), masked.end() - static_cast<std::ptrdiff_t>(last),
              '*');
    return masked;
}

std::string maskPan(const std::string& digits) { return maskMiddle(digits, 6, 4); }

std::string maskPanHex(ByteSpan value) { return accountHex(toHex(value)); }

std::string maskTrack2(const std::string& track)
{
    const std::size_t separator = std::min(track.find_first_of("=D"), track.size());
    std::string masked = maskPan(track.substr(0, separator));
    if (separator < track.size()) {
        masked += track[separator] + stars(track.size() - separator - 1);
    }
    return masked;
}

} // namespace vorn::tool
