// SPDX-License-Identifier: Apache-2.0
#include "tools/explain/bits.h"

#include "tools/explain/hex.h"
#include "tools/explain/present.h"
#include "tools/explain/status_words.h"
#include "tools/explain/tag_index.h"

#include <algorithm>
#include <bitset>
#include <numeric>

namespace vorn::tool {

namespace {

using sim::tlv::Tag;
using Lines = std::vector<std::string>;

// ---------------------------------------------------------------- single bits

struct Bit {
    Tag tag;
    std::size_t byte; // from 1, as the standards count
    std::uint8_t mask;
    const char* words;
};

constexpr Bit kBits[] = {
    // those of one object together
    // EMV Book 3, C1
    {0x82, 1, 0x40, "static data authentication (SDA)"},
    {0x82, 1, 0x20, "dynamic data authentication (DDA)"},
    {0x82, 1, 0x10, "cardholder verification"},
    {0x82, 1, 0x08, "terminal risk management to be performed"},
    {0x82, 1, 0x04, "issuer authentication by EXTERNAL AUTHENTICATE"},
    {0x82, 1, 0x02, "cardholder verification on the holder's device"},
    {0x82, 1, 0x01, "combined data authentication (CDA)"},
    {0x82, 2, 0x80, "contactless chip transactions"},
    // EMV Book 3, C2
    {0x9F07, 1, 0x80, "domestic cash"},
    {0x9F07, 1, 0x40, "international cash"},
    {0x9F07, 1, 0x20, "domestic goods"},
    {0x9F07, 1, 0x10, "international goods"},
    {0x9F07, 1, 0x08, "domestic services"},
    {0x9F07, 1, 0x04, "international services"},
    {0x9F07, 1, 0x02, "at ATMs"},
    {0x9F07, 1, 0x01, "at terminals other than ATMs"},
    {0x9F07, 2, 0x80, "domestic cashback"},
    {0x9F07, 2, 0x40, "international cashback"},
    // EMV Book 3, C5; the issuer action codes have the same bits
    {0x95, 1, 0x80, "offline data authentication was not performed"},
    {0x95, 1, 0x40, "SDA failed"},
    {0x95, 1, 0x20, "card data missing"},
    {0x95, 1, 0x10, "card is on the exception file"},
    {0x95, 1, 0x08, "DDA failed"},
    {0x95, 1, 0x04, "CDA failed"},
    {0x95, 1, 0x02, "SDA selected"},
    {0x95, 2, 0x80, "card and terminal have different application versions"},
    {0x95, 2, 0x40, "application expired"},
    {0x95, 2, 0x20, "application not yet effective"},
    {0x95, 2, 0x10, "service not allowed for this card"},
    {0x95, 2, 0x08, "new card"},
    {0x95, 3, 0x80, "cardholder verification was not successful"},
    {0x95, 3, 0x40, "unrecognised cardholder verification method"},
    {0x95, 3, 0x20, "PIN try limit exceeded"},
    {0x95, 3, 0x10, "PIN required, PIN pad not there or not working"},
    {0x95, 3, 0x08, "PIN required, PIN pad there, PIN not entered"},
    {0x95, 3, 0x04, "online PIN entered"},
    {0x95, 4, 0x80, "transaction exceeds the floor limit"},
    {0x95, 4, 0x40, "lower consecutive offline limit exceeded"},
    {0x95, 4, 0x20, "upper consecutive offline limit exceeded"},
    {0x95, 4, 0x10, "selected at random for online processing"},
    {0x95, 4, 0x08, "merchant forced the transaction online"},
    {0x95, 5, 0x80, "default TDOL used"},
    {0x95, 5, 0x40, "issuer authentication failed"},
    {0x95, 5, 0x20, "script failed before the last cryptogram"},
    {0x95, 5, 0x10, "script failed after the last cryptogram"},
    // EMV Book 3, C6
    {0x9B, 1, 0x80, "offline data authentication was performed"},
    {0x9B, 1, 0x40, "cardholder verification was performed"},
    {0x9B, 1, 0x20, "card risk management was performed"},
    {0x9B, 1, 0x10, "issuer authentication was performed"},
    {0x9B, 1, 0x08, "terminal risk management was performed"},
    {0x9B, 1, 0x04, "script processing was performed"},
    // EMV Book 4, A2
    {0x9F33, 1, 0x80, "manual key entry"},
    {0x9F33, 1, 0x40, "magnetic stripe"},
    {0x9F33, 1, 0x20, "chip with contacts"},
    {0x9F33, 2, 0x80, "plaintext PIN checked by the card"},
    {0x9F33, 2, 0x40, "enciphered PIN checked online"},
    {0x9F33, 2, 0x20, "signature"},
    {0x9F33, 2, 0x10, "enciphered PIN checked by the card"},
    {0x9F33, 2, 0x08, "no cardholder verification required"},
    {0x9F33, 2, 0x01, "holder's identity document"},
    {0x9F33, 3, 0x80, "SDA"},
    {0x9F33, 3, 0x40, "DDA"},
    {0x9F33, 3, 0x20, "card capture"},
    {0x9F33, 3, 0x08, "CDA"},
    // EMV Book 4, A3
    {0x9F40, 1, 0x80, "cash"},
    {0x9F40, 1, 0x40, "goods"},
    {0x9F40, 1, 0x20, "services"},
    {0x9F40, 1, 0x10, "cashback"},
    {0x9F40, 1, 0x08, "inquiry"},
    {0x9F40, 1, 0x04, "transfer"},
    {0x9F40, 1, 0x02, "payment"},
    {0x9F40, 1, 0x01, "administrative"},
    {0x9F40, 2, 0x80, "cash deposit"},
    {0x9F40, 3, 0x80, "numeric keys"},
    {0x9F40, 3, 0x40, "alphabetic and special keys"},
    {0x9F40, 3, 0x20, "command keys"},
    {0x9F40, 3, 0x10, "function keys"},
    {0x9F40, 4, 0x80, "print for the attendant"},
    {0x9F40, 4, 0x40, "print for the cardholder"},
    {0x9F40, 4, 0x20, "display for the attendant"},
    {0x9F40, 4, 0x10, "display for the cardholder"},
    {0x9F40, 4, 0x02, "code table 10"},
    {0x9F40, 4, 0x01, "code table 9"},
    {0x9F40, 5, 0x80, "code table 8"},
    {0x9F40, 5, 0x40, "code table 7"},
    {0x9F40, 5, 0x20, "code table 6"},
    {0x9F40, 5, 0x10, "code table 5"},
    {0x9F40, 5, 0x08, "code table 4"},
    {0x9F40, 5, 0x04, "code table 3"},
    {0x9F40, 5, 0x02, "code table 2"},
    {0x9F40, 5, 0x01, "code table 1"},
    // PBOC, contactless terminals
    {0x9F66, 1, 0x80, "magnetic stripe data mode"},
    {0x9F66, 1, 0x40, "contactless debit/credit"},
    {0x9F66, 1, 0x20, "quick debit/credit (qPBOC)"},
    {0x9F66, 1, 0x10, "debit/credit with contacts"},
    {0x9F66, 1, 0x08, "terminal is offline only"},
    {0x9F66, 1, 0x04, "online PIN"},
    {0x9F66, 1, 0x02, "signature"},
    {0x9F66, 2, 0x80, "online cryptogram required"},
    {0x9F66, 2, 0x40, "cardholder verification required"},
    {0x9F66, 2, 0x20, "PIN checked by the card with contacts"},
    {0x9F66, 3, 0x80, "issuer update processing"},
    {0x9F66, 3, 0x40, "verification on the holder's device"},
    {0x9F66, 4, 0x80, "fast DDA, version 01"},
    // PBOC, contactless cards
    {0x9F6C, 1, 0x80, "online PIN required"},
    {0x9F6C, 1, 0x40, "signature required"},
    {0x9F6C, 1, 0x20, "go online if data authentication fails and the terminal can"},
    {0x9F6C, 1, 0x10, "change the interface if data authentication fails and the terminal has contacts"},
    {0x9F6C, 1, 0x08, "go online if the application expired"},
    {0x9F6C, 1, 0x04, "change the interface for cash"},
    {0x9F6C, 1, 0x02, "change the interface for cashback"},
    {0x9F6C, 2, 0x80, "verified on the holder's device"},
    {0x9F6C, 2, 0x40, "issuer update processing"},
};

constexpr TagIndex kBitIndex(kBits);

// ---------------------------------------------------------------- numbers with meanings

struct Meaning {
    unsigned value;
    const char* words;
};

template <std::size_t N>
std::string meaningOf(const Meaning (&rows)[N], unsigned value)
{
    for (const Meaning& row : rows) {
        if (row.value == value) {
            return row.words;
        }
    }
    return toHex({static_cast<std::uint8_t>(value)}) + " (not known)";
}

// EMV Book 3, C3
const Meaning kMethods[] = {{0x00, "fail"},
                            {0x01, "plaintext PIN checked by the card"},
                            {0x02, "enciphered PIN checked online"},
                            {0x03, "plaintext PIN checked by the card, and signature"},
                            {0x04, "enciphered PIN checked by the card"},
                            {0x05, "enciphered PIN checked by the card, and signature"},
                            {0x1E, "signature"},
                            {0x1F, "no verification required"},
                            {0x20, "holder's identity document"},
                            {0x3F, "none performed"}};

const Meaning kConditions[] = {{0x00, "always"},
                               {0x01, "for unattended cash"},
                               {0x02, "for neither cash nor cashback"},
                               {0x03, "if the terminal supports it"},
                               {0x04, "for manual cash"},
                               {0x05, "for cashback"},
                               {0x06, "in the application's currency, under X"},
                               {0x07, "in the application's currency, over X"},
                               {0x08, "in the application's currency, under Y"},
                               {0x09, "in the application's currency, over Y"}};

const Meaning kVerificationResults[] = {{0x00, "result not known"}, {0x01, "failed"}, {0x02, "successful"}};

const Meaning kReasons[] = {
    {0x01, "service not allowed"}, {0x02, "PIN try limit exceeded"}, {0x03, "issuer authentication failed"}};

const Meaning kTerminalTypes[] = {{0x11, "bank, attended, online only"},
                                  {0x12, "bank, attended, offline with online capability"},
                                  {0x13, "bank, attended, offline only"},
                                  {0x14, "bank, unattended, online only"},
                                  {0x15, "bank, unattended, offline with online"},
                                  {0x16, "bank, unattended, offline only"},
                                  {0x21, "merchant, attended, online only"},
                                  {0x22, "merchant, attended, offline with online capability"},
                                  {0x23, "merchant, attended, offline only"},
                                  {0x24, "merchant, unattended, online only"},
                                  {0x25, "merchant, unattended, offline with online"},
                                  {0x26, "merchant, unattended, offline only"},
                                  {0x34, "cardholder, online only"},
                                  {0x35, "cardholder, offline with online capability"},
                                  {0x36, "cardholder, offline only"}};

Lines singleBits(const Bit* row, ByteSpan value)
{
    Lines lines;
    lines.reserve(std::accumulate(value.begin(), value.end(), std::size_t{0}, [](std::size_t sum, std::uint8_t byte) {
        return sum + std::bitset<8>(byte).count();
    }));
    for (const Tag tag = row->tag; row != kBitIndex.end() && row->tag == tag; ++row) {
        if (row->byte <= value.size() && (value[row->byte - 1] & row->mask) != 0) {
            lines.emplace_back(row->words);
        }
    }
    return lines;
}

std::string methodOf(std::uint8_t code)
{
    constexpr std::uint8_t applyNext = 0x40;
    return meaningOf(kMethods, code & 0x3FU) + ((code & applyNext) != 0 ? ", else the next one" : "");
}

// ---------------------------------------------------------------- values with parts

Lines verificationMethods(ByteSpan value)
{
    constexpr std::size_t amounts = 8;
    if (value.size() < amounts) {
        return {"shorter than its two amounts"};
    }
    Lines lines = {"X = " + std::to_string(bigEndian(value.first(4))) +
                   ", Y = " + std::to_string(bigEndian(value.from(4).first(4)))};
    for (std::size_t at = amounts; at + 1 < value.size(); at += 2) {
        lines.push_back(methodOf(value[at]) + ", " + meaningOf(kConditions, value[at + 1]));
    }
    return lines;
}

Lines verificationResults(ByteSpan value)
{
    if (value.size() < 3) {
        return {};
    }
    return {methodOf(value[0]), meaningOf(kConditions, value[1]), meaningOf(kVerificationResults, value[2])};
}

Lines cryptogramInformation(ByteSpan value)
{
    if (value.empty()) {
        return {};
    }
    Lines lines = {cryptogramName(value[0])};
    if ((value[0] & 0x08U) != 0) {
        lines.emplace_back("advice required");
    }
    if (const unsigned reason = value[0] & 0x07U; reason != 0) {
        lines.push_back("reason: " + meaningOf(kReasons, reason));
    }
    return lines;
}

struct CardResult {
    std::size_t byte; // of the card verification results
    std::uint8_t mask;
    const char* words;
};

const CardResult kCardResults[] = {{2, 0x08, "issuer authentication failed"},
                                   {2, 0x04, "PIN right"},
                                   {2, 0x02, "PIN wrong"},
                                   {3, 0x80, "last online transaction not completed"},
                                   {3, 0x40, "no PIN tries left"},
                                   {3, 0x10, "never been online"},
                                   {3, 0x08, "issuer authentication failed last time"},
                                   {3, 0x04, "no issuer authentication last time"},
                                   {4, 0x08, "a script command failed in the last transaction"}};

std::string cryptogramOfResults(unsigned bits)
{
    static const char* const names[] = {"AAC", "TC", "not asked for, or an ARQC", "reserved"};
    return names[bits & 3U];
}

std::string firstCryptogram(unsigned bits) { return bits == 2 ? "ARQC" : cryptogramOfResults(bits); }

// docs/simulated-card.md says what each part is.
Lines issuerData(ByteSpan value)
{
    constexpr std::size_t resultsAt = 3;
    constexpr std::size_t fixedSize = 8;
    if (value.size() < fixedSize || value[0] != 0x07 || value[resultsAt] != 0x03) {
        return {};
    }
    const std::uint8_t* const results = value.begin() + resultsAt - 1; // counted from 1, the length first
    Lines lines = {"key index " + std::to_string(value[1]), "cryptogram version " + std::to_string(value[2]),
                   "second cryptogram: " + cryptogramOfResults(results[2] >> 6),
                   "first cryptogram: " + firstCryptogram(results[2] >> 4 & 3U)};
    for (const CardResult& row : kCardResults) {
        if ((results[row.byte] & row.mask) != 0) {
            lines.emplace_back(row.words);
        }
    }
    if (const unsigned scripts = results[4] >> 4; scripts != 0) {
        lines.push_back(std::to_string(scripts) + " script commands in the last transaction");
    }
    lines.push_back("algorithm " + std::to_string(value[7]));
    constexpr std::size_t cashAt = fixedSize;
    if (value.size() >= cashAt + 11 && value[cashAt] == 0x0A && value[cashAt + 1] == 0x01) {
        lines.push_back("electronic cash balance " + amountText(toHex(value.from(cashAt + 2).first(5))));
    }
    return lines;
}

Lines fileLocator(ByteSpan value)
{
    Lines lines;
    for (std::size_t at = 0; at + 3 < value.size(); at += 4) {
        lines.push_back("file " + std::to_string(value[at] >> 3) + ", records " + std::to_string(value[at + 1]) +
                        " to " + std::to_string(value[at + 2]) +
                        (value[at + 3] == 0 ? "" : ", " + std::to_string(value[at + 3]) + " of them signed"));
    }
    return lines;
}

Lines issuerAuthentication(ByteSpan value)
{
    constexpr std::size_t cryptogramSize = 8;
    if (value.size() < cryptogramSize + 2) {
        return {};
    }
    const ByteSpan code = value.from(cryptogramSize).first(2);
    return {"ARPC " + toHex(value.first(cryptogramSize)), "response code " + printable({code.begin(), code.end()})};
}

Lines scriptResult(ByteSpan value)
{
    if (value.empty()) {
        return {};
    }
    static const char* const outcomes[] = {"script not run", "failed at command ", "script done"};
    const unsigned outcome = value[0] >> 4;
    const std::string command = (value[0] & 0x0FU) == 0x0F ? "15 or a later one" : std::to_string(value[0] & 0x0FU);
    return {outcome > 2 ? "outcome not known" : outcomes[outcome] + (outcome == 1 ? command : "")};
}

Lines logEntry(ByteSpan value)
{
    return value.size() < 2
               ? Lines()
               : Lines{"file " + std::to_string(value[0]) + ", at most " + std::to_string(value[1]) + " records"};
}

Lines number(ByteSpan value)
{
    return value.empty() || value.size() > 4 ? Lines() : Lines(1, std::to_string(bigEndian(value)));
}

Lines transactionType(ByteSpan value) { return Lines(1, transactionTypeText(toHex(value))); }

Lines terminalType(ByteSpan value) { return value.empty() ? Lines() : Lines(1, meaningOf(kTerminalTypes, value[0])); }

struct Parts {
    Tag tag;
    Lines (*words)(ByteSpan);
};

constexpr Parts kParts[] = {{0x8E, verificationMethods},
                            {0x9F34, verificationResults},
                            {0x9F27, cryptogramInformation},
                            {0x9F10, issuerData},
                            {0x94, fileLocator},
                            {0x91, issuerAuthentication},
                            {0xDF31, scriptResult},
                            {0x9F4D, logEntry},
                            {0x9F36, number},
                            {0x9F13, number},
                            {0x9F17, number},
                            {0x5F34, number},
                            {0x9C, transactionType},
                            {0x9F35, terminalType}};

constexpr TagIndex kPartsIndex(kParts);

} // namespace

std::vector<std::string> bitsInWords(Tag tag, ByteSpan value)
{
    if (const Parts* const row = kPartsIndex.find(tag)) {
        return row->words(value);
    }
    const bool actionCode = tag == 0x9F0D || tag == 0x9F0E || tag == 0x9F0F;
    const Bit* const bits = kBitIndex.find(actionCode ? 0x95 : tag);
    if (bits == nullptr) {
        return {};
    }
    Lines lines = singleBits(bits, value);
    if (lines.empty()) {
        lines.emplace_back("no bit set");
    }
    return lines;
}

} // namespace vorn::tool
