// SPDX-License-Identifier: Apache-2.0
// The terminal's data objects: the lists from which the card's PDOL and CDOLs are filled.
#pragma once

#include "card/tlv.h"

namespace vorn {

class LetteredItems;

// A list with the 00 that ends it, which counts in its length.
using TerminalData = ByteBuffer<384>;

// The fixed list of IC_GetInfo.
void buildQueryData(TerminalData& data);

// The list of IC_GenARQC.
void buildFirstData(const LetteredItems& given, TerminalData& data);

// The list of IC_CtlScriptData. responseCode: the two characters of the authorisation response code (8A).
void buildSecondData(const LetteredItems& given, ByteView responseCode, TerminalData& data);

} // namespace vorn
