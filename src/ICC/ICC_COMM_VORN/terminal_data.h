// SPDX-License-Identifier: Apache-2.0
// The terminal's data objects: the lists from which the card's PDOL and CDOLs are filled.
#pragma once

#include "card/tlv.h"

namespace vorn {

class LetteredItems;

// What stands for data that a terminal does not have, in the lists and in the texts for the issuer.
namespace fallback {
constexpr std::uint8_t kZeros[6] = {};
constexpr std::uint8_t kChina[] = {0x01, 0x56}; // country and currency: ISO 3166-1 and ISO 4217
constexpr std::uint8_t kTvr[] = {0x00, 0x00, 0x00, 0x08, 0x00};
constexpr std::uint8_t kNumber[] = {0x12, 0x34, 0x56, 0x78}; // in place of an unpredictable one
} // namespace fallback

// A list with the 00 that ends it, which counts in its length.
constexpr std::size_t kTerminalDataMax = 384;
using TerminalData = ByteBuffer<kTerminalDataMax>;

// The fixed list of IC_GetInfo.
void buildQueryData(TerminalData& data);

// The list of IC_GenARQC.
void buildFirstData(const LetteredItems& given, TerminalData& data);

// The list of IC_CtlScriptData. responseCode: the two characters of the authorisation response code (8A).
void buildSecondData(const LetteredItems& given, ByteView responseCode, TerminalData& data);

} // namespace vorn
