// SPDX-License-Identifier: Apache-2.0
// Data object lists (EMV Book 3, 5.4).
#pragma once

#include "card/tlv.h"

namespace vorn {

// Room for the values of a list in a command's data field.
using DolValues = ByteBuffer<VORN_DOL_DATA_CAPACITY>;

// Appends the list's values. False: the list is empty, not readable to its end, or asks for too much.
bool buildDol(const TlvBuffer& source, ByteView dol, DolValues& values);

// The same for a command's data field; values that do not fit there cannot be built either.
inline bool buildCommandData(const TlvBuffer& source, ByteView dol, DolValues& values)
{
    constexpr std::size_t kCommandDataMax = 255;
    return buildDol(source, dol, values) && values.size() <= kCommandDataMax;
}

} // namespace vorn
