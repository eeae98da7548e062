// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

namespace vorn::tool {

// As the library itself tells it; "unknown" when it does not.
std::string libraryVersion();

} // namespace vorn::tool
