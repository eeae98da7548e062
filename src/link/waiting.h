// SPDX-License-Identifier: Apache-2.0
// Time as the link waits in it: it only goes forward, whatever happens to the terminal's date.
#pragma once

#include <cstdint>

namespace vorn {

// Whole milliseconds since some moment.
std::int64_t monotonicMilliseconds();

// Sleeps that long in full, also in a host whose timer or child processes interrupt every sleep.
void pauseFor(std::int64_t microseconds);

} // namespace vorn
