// SPDX-License-Identifier: Apache-2.0
// What the library itself uses of its two log files.
#pragma once

#include "public/bytes.h"

namespace vorn {

// A NULL text of a host is an empty text everywhere.
inline const char* textOf(const char* text) { return text == nullptr ? "" : text; }

// Appends a formatted text to ICC_COMM_VORN.log, of any length and without a line end of its own.
[[gnu::format(printf, 1, 2)]] void logService(const char* format, ...);

// What goes to a slot and what comes back, in ICC_COMM_VORN.log: a line with the marker and a dump of either, as four
// entries.
void logExchange(const char* marker, ByteView command, ByteView answer);

// Formats a line into DbgString (cut to its size) and appends it to vr_log.txt.
[[gnu::format(printf, 1, 2)]] void logTrace(const char* format, ...);

} // namespace vorn
