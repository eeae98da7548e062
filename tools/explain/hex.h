// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "sim/data/bytes.h"

namespace vorn::tool {

using sim::bigEndian;
using sim::Bytes;
using sim::ByteSpan;
using sim::fromHex;
using sim::toHex;

} // namespace vorn::tool
