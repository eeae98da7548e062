// SPDX-License-Identifier: Apache-2.0
// The port as people write it, as the library takes it, and why it could not be opened.
#pragma once

#include "tools/cli/errors.h"

#include <string>

namespace vorn::tool {

// "USB", or the name below /dev: "/dev/ttyS1", a link to a tty anywhere, "ttyS1" and "pts/3" are accepted.
std::string portName(const std::string& written);

// Finds out why the library could not open it.
Failure portFailure(const std::string& port);

} // namespace vorn::tool
