// SPDX-License-Identifier: Apache-2.0
#include "tools/explain/tlv_view.h"

#include "tools/explain/hex.h"
#include "tools/explain/present.h"
#include "tools/explain/tag_index.h"

#include <algorithm>

namespace vorn::tool {

namespace tlv = sim::tlv;

namespace {

// How a value is put into words.
enum class Form { Hex, Text, Gbk, Amount, Date, Time, Country, Pan, Track2, Dol, Aid, Cid };

struct Row {
    Tag tag;
    Form form;
    std::string_view name;
};

constexpr Row kRows[] = {
    {0x42, Form::Hex, "Issuer identification number"},
    {0x4F, Form::Aid, "Application identifier (AID)"},
    {0x50, Form::Text, "Application label"},
    {0x56, Form::Hex, "Track 1 equivalent data"},
    {0x57, Form::Track2, "Track 2 equivalent data"},
    {0x5A, Form::Pan, "Application PAN"},
    {0x5F20, Form::Gbk, "Cardholder name"},
    {0x5F24, Form::Date, "Application expiration date"},
    {0x5F25, Form::Date, "Application effective date"},
    {0x5F28, Form::Country, "Issuer country code"},
    {0x5F2A, Form::Country, "Transaction currency code"},
    {0x5F2D, Form::Text, "Language preference"},
    {0x5F30, Form::Hex, "Service code"},
    {0x5F34, Form::Hex, "PAN sequence number"},
    {0x5F50, Form::Text, "Issuer URL"},
    {0x5F58, Form::Hex, "Transaction mode information"},
    {0x61, Form::Hex, "Application template"},
    {0x6F, Form::Hex, "File control information (FCI)"},
    {0x70, Form::Hex, "Record"},
    {0x71, Form::Hex, "Issuer script template 1"},
    {0x72, Form::Hex, "Issuer script template 2"},
    {0x73, Form::Hex, "Directory discretionary template"},
    {0x77, Form::Hex, "Response, format 2"},
    {0x80, Form::Hex, "Response, format 1"},
    {0x81, Form::Hex, "Amount, authorised (binary)"},
    {0x82, Form::Hex, "Application interchange profile (AIP)"},
    {0x83, Form::Hex, "Command template"},
    {0x84, Form::Aid, "DF name"},
    {0x86, Form::Hex, "Issuer script command"},
    {0x87, Form::Hex, "Application priority"},
    {0x88, Form::Hex, "Short file identifier of the directory"},
    {0x89, Form::Text, "Authorisation code"},
    {0x8A, Form::Text, "Authorisation response code (ARC)"},
    {0x8C, Form::Dol, "CDOL1"},
    {0x8D, Form::Dol, "CDOL2"},
    {0x8E, Form::Hex, "Cardholder verification method list"},
    {0x8F, Form::Hex, "Certification authority public key index"},
    {0x90, Form::Hex, "Issuer public key certificate"},
    {0x91, Form::Hex, "Issuer authentication data"},
    {0x92, Form::Hex, "Issuer public key remainder"},
    {0x93, Form::Hex, "Signed static application data"},
    {0x94, Form::Hex, "Application file locator (AFL)"},
    {0x95, Form::Hex, "Terminal verification results (TVR)"},
    {0x97, Form::Dol, "TDOL"},
    {0x9A, Form::Date, "Transaction date"},
    {0x9B, Form::Hex, "Transaction status information"},
    {0x9C, Form::Hex, "Transaction type"},
    {0x9D, Form::Aid, "Directory definition file name"},
    {0x9F02, Form::Amount, "Amount, authorised"},
    {0x9F03, Form::Amount, "Amount, other"},
    {0x9F06, Form::Aid, "Application identifier, terminal"},
    {0x9F07, Form::Hex, "Application usage control"},
    {0x9F08, Form::Hex, "Application version number"},
    {0x9F09, Form::Hex, "Application version number, terminal"},
    {0x9F0B, Form::Gbk, "Cardholder name extended"},
    {0x9F0D, Form::Hex, "Issuer action code, default"},
    {0x9F0E, Form::Hex, "Issuer action code, denial"},
    {0x9F0F, Form::Hex, "Issuer action code, online"},
    {0x9F10, Form::Hex, "Issuer application data"},
    {0x9F11, Form::Hex, "Issuer code table index"},
    {0x9F12, Form::Text, "Application preferred name"},
    {0x9F13, Form::Hex, "Last online ATC register"},
    {0x9F14, Form::Hex, "Lower consecutive offline limit"},
    {0x9F17, Form::Hex, "PIN try counter"},
    {0x9F18, Form::Hex, "Issuer script identifier"},
    {0x9F1A, Form::Country, "Terminal country code"},
    {0x9F1F, Form::Hex, "Track 1 discretionary data"},
    {0x9F20, Form::Hex, "Track 2 discretionary data"},
    {0x9F21, Form::Time, "Transaction time"},
    {0x9F23, Form::Hex, "Upper consecutive offline limit"},
    {0x9F26, Form::Hex, "Application cryptogram"},
    {0x9F27, Form::Cid, "Cryptogram information data"},
    {0x9F32, Form::Hex, "Issuer public key exponent"},
    {0x9F33, Form::Hex, "Terminal capabilities"},
    {0x9F34, Form::Hex, "Cardholder verification results"},
    {0x9F35, Form::Hex, "Terminal type"},
    {0x9F36, Form::Hex, "Application transaction counter (ATC)"},
    {0x9F37, Form::Hex, "Unpredictable number"},
    {0x9F38, Form::Dol, "PDOL"},
    {0x9F40, Form::Hex, "Additional terminal capabilities"},
    {0x9F42, Form::Country, "Application currency code"},
    {0x9F44, Form::Hex, "Application currency exponent"},
    {0x9F45, Form::Hex, "Data authentication code"},
    {0x9F46, Form::Hex, "ICC public key certificate"},
    {0x9F47, Form::Hex, "ICC public key exponent"},
    {0x9F48, Form::Hex, "ICC public key remainder"},
    {0x9F49, Form::Dol, "DDOL"},
    {0x9F4A, Form::Hex, "Static data authentication tag list"},
    {0x9F4B, Form::Hex, "Signed dynamic application data"},
    {0x9F4C, Form::Hex, "ICC dynamic number"},
    {0x9F4D, Form::Hex, "Log entry"},
    {0x9F4E, Form::Gbk, "Merchant name"},
    {0x9F4F, Form::Dol, "Log format"},
    {0x9F51, Form::Country, "Application currency code (PBOC)"},
    {0x9F5D, Form::Hex, "Available offline amount"},
    {0x9F61, Form::Text, "Cardholder document number"},
    {0x9F62, Form::Hex, "Cardholder document type"},
    {0x9F63, Form::Hex, "Card product identification"},
    {0x9F66, Form::Hex, "Terminal transaction qualifiers (TTQ)"},
    {0x9F69, Form::Hex, "Card authentication related data"},
    {0x9F6B, Form::Hex, "Track 2 data"},
    {0x9F6C, Form::Hex, "Card transaction qualifiers"},
    {0x9F74, Form::Text, "Electronic cash issuer authorisation code"},
    {0x9F77, Form::Amount, "Electronic cash balance limit"},
    {0x9F78, Form::Amount, "Electronic cash single transaction limit"},
    {0x9F79, Form::Amount, "Electronic cash balance"},
    {0x9F7A, Form::Hex, "Electronic cash terminal support indicator"},
    {0x9F7B, Form::Amount, "Electronic cash terminal transaction limit"},
    {0xA5, Form::Hex, "FCI proprietary template"},
    {0xBF0C, Form::Hex, "FCI issuer discretionary data"},
    {0xDF31, Form::Hex, "Issuer script result"},
    {0xDF60, Form::Hex, "CAPP transaction indicator"},
    {0xDF69, Form::Hex, "SM algorithm indicator"},
};

constexpr TagIndex kIndex(kRows);

std::string place(std::size_t position) { return "at byte " + std::to_string(position); }

void walkLevel(ByteSpan bytes, std::size_t base, std::size_t depth, TlvWalk& walk)
{
    tlv::Cursor cursor(bytes);
    while (!cursor.atEnd() && walk.problem.empty()) {
        if (bytes[cursor.position()] == 0x00) { // padding between objects
            cursor.byte();
            continue;
        }
        const std::size_t start = cursor.position();
        const auto tag = cursor.tag();
        const auto length = tag ? cursor.length() : std::nullopt;
        const std::size_t valueAt = cursor.position();
        const auto value = length ? cursor.look(*length) : std::nullopt;
        if (!value) {
            walk.stoppedAt = base + start;
            walk.problem = (tag ? "object " + tlv::toHex(*tag) + " " + place(base + start) + " is not whole"
                                : "no whole tag " + place(base + start));
            return;
        }
        const bool constructed = tlv::constructed(*tag) && depth < kDeepestObject; // deeper ones are bytes
        walk.nodes.push_back({*tag, depth, base + valueAt, *value, constructed});
        if (constructed) {
            walkLevel(*value, base + valueAt, depth + 1, walk);
        }
    }
}

std::string trackText(ByteSpan value)
{
    std::string text = toHex(value);
    text.resize(std::min(text.size(), text.find('F')));
    if (const auto separator = text.find('D'); separator != std::string::npos) {
        text[separator] = '=';
    }
    return text;
}

std::string panText(ByteSpan value)
{
    const std::string text = toHex(value);
    return text.substr(0, text.find('F'));
}

std::string listText(ByteSpan value)
{
    const auto list = tlv::parseDol(value);
    if (!list) {
        return "not a list of tags and lengths";
    }
    constexpr std::size_t usual = 10; // characters of an entry
    std::string text;
    text.reserve(usual * list->size());
    for (const tlv::DolEntry& entry : *list) {
        text.append(text.empty() ? "" : ", ").append(tlv::toHex(entry.tag)).append(":");
        text += std::to_string(entry.length);
    }
    return text;
}

std::string wordsOf(Form form, ByteSpan value)
{
    switch (form) {
    case Form::Hex:
    case Form::Aid:
        return "";
    case Form::Text:
        return printable(std::string(value.begin(), value.end()));
    case Form::Gbk:
        return textOfGbk(value);
    case Form::Amount:
        return amountText(toHex(value));
    case Form::Date:
        return dateText(toHex(value));
    case Form::Time:
        return timeText(toHex(value));
    case Form::Country:
        return countryText(toHex(value));
    case Form::Pan:
        return panText(value);
    case Form::Track2:
        return trackText(value);
    case Form::Dol:
        return listText(value);
    case Form::Cid:
        return value.empty() ? "" : cryptogramName(value[0]);
    }
    return "";
}

// Whether there are words at all: those that are hidden need not be put together.
bool hasWords(Form form, ByteSpan value)
{
    const auto* const end = std::find(value.begin(), value.end(), 0x00);
    return form != Form::Hex && !std::all_of(value.begin(), end, [](std::uint8_t c) { return c == ' '; });
}

} // namespace

TlvWalk walkTlv(ByteSpan bytes)
{
    constexpr std::size_t usual = 16;
    TlvWalk walk;
    walk.nodes.reserve(std::min(usual, bytes.size()));
    walkLevel(bytes, 0, 0, walk);
    return walk;
}

std::string_view tagName(Tag tag)
{
    const Row* const row = kIndex.find(tag);
    return row == nullptr ? std::string_view() : row->name;
}

std::string valueInWords(const TlvNode& node, bool show)
{
    const Row* const row = kIndex.find(node.tag);
    if (row == nullptr || node.constructed) {
        return "";
    }
    const bool hidden = !show && secretOf(node.tag) == Secret::Whole;
    std::string words = !hidden ? wordsOf(row->form, node.value) : hasWords(row->form, node.value) ? "hidden" : "";
    return valueWords(node.tag, std::move(words), show);
}

} // namespace vorn::tool
