// SPDX-License-Identifier: Apache-2.0
// What the library itself uses of its two log files.
#pragma once

namespace vorn {

// A NULL text of a host is an empty text everywhere.
inline const char* textOf(const char* text) { return text == nullptr ? "" : text; }

// Appends a formatted text to ICC_COMM_VORN.log, of any length and without a line end of its own.
[[gnu::format(printf, 1, 2)]] void logService(const char* format, ...);

// Formats a line into DbgString (cut to its size) and appends it to vr_log.txt.
[[gnu::format(printf, 1, 2)]] void logTrace(const char* format, ...);

} // namespace vorn
