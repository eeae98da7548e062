// SPDX-License-Identifier: Apache-2.0
// The daemon's log. Nothing of a card goes into it: neither commands nor answers, no number and no name.
#pragma once

namespace vorn::ifd {

// Something works again, or differently than before.
[[gnu::format(printf, 1, 2)]] void logNote(const char* format, ...);

// Something does not work.
[[gnu::format(printf, 1, 2)]] void logProblem(const char* format, ...);

} // namespace vorn::ifd
