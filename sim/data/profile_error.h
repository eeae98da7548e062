// SPDX-License-Identifier: Apache-2.0
// A mistake in a profile or in a file that it names.
#pragma once

#include "sim/data/printable.h"

#include <stdexcept>
#include <string>

namespace vorn::sim {

// Says the file and the place in it, printable whatever stands there.
struct ProfileError : std::runtime_error {
    explicit ProfileError(const std::string& text) : std::runtime_error(printable(text)) {}
};

} // namespace vorn::sim
