// SPDX-License-Identifier: Apache-2.0
// The texts for the issuer: the card's cryptogram with the data that it was made over.
#pragma once

#include "card/tlv.h"

#include "vorn/result.h"

namespace vorn {

// Information data, counter and cryptogram stand before the issuer's data in an answer of format 1.
constexpr std::size_t kIssuerDataAt = 1 + 2 + 8;

// The answer to GENERATE AC in format 1 (EMV Book 3, 6.5.5.4), as the whole response and as the value of tag 80.
class CryptogramResponse {
public:
    // Returns the command's result. The response is zeros before it, so that its parts are defined when it fails.
    int generate(std::uint8_t referenceControl, ByteView dolValues);

    // The third byte of the response, whatever its form.
    std::uint8_t informationData() const { return response_[2]; }
    std::uint8_t kind() const { return informationData() & 0xC0; }

    // Takes the value of tag 80 apart. False: it is not there.
    bool parse();

    ByteView information() const { return value_.view().first(1); }
    ByteView counter() const { return part(1, 2); }
    ByteView cryptogram() const { return part(3, 8); }
    ByteView issuerData() const { return value_.view().from(kIssuerDataAt); }

private:
    // A part of a shorter value reads as zeros.
    ByteView part(std::size_t at, std::size_t size) const { return ByteView(value_.bytes + at, size); }

    std::uint8_t response_[VORN_RESPONSE_MAX] = {};
    std::uint8_t responseSize_ = 0;
    TagValue value_;
};

constexpr std::uint8_t kAac = 0x00;
constexpr std::uint8_t kTc = 0x40;
constexpr std::uint8_t kArqc = 0x80;

// Which of the two texts is built. In the TC text 9F02, 5F2A, 9F1A and 9F03 carry the first tag byte only when they
// were found in the terminal's data.
enum class CryptogramText { Arqc, Tc };

// Where the items come from besides the response.
struct CryptogramSources {
    ByteView terminalData;
    ByteView cardData; // PAN and PAN sequence number
    TagValue aip;      // not found: the item is left out
};

constexpr std::size_t kCryptogramTextMax = 1100; // bytes
using CryptogramBuffer = ByteBuffer<kCryptogramTextMax>;

// Asks the card for its last online ATC register on the way.
void buildCryptogramText(CryptogramText kind, const CryptogramResponse& response, const CryptogramSources& sources,
                         CryptogramBuffer& out);

} // namespace vorn
