// SPDX-License-Identifier: Apache-2.0
// The records of an application (EMV Book 3, 10.2).
#pragma once

#include "public/growing_bytes.h"

namespace vorn {

// Reads the records that the AFL names, one after the other and whole whatever their size, until the wanted tags are
// all there; records that cannot be read are passed over. Returns 0, or VORN_BAD_ARGUMENT when memory runs out.
int readRecords(ByteView afl, ByteView wantedTags, GrowingBytes& records);

} // namespace vorn
