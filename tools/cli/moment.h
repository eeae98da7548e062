// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

namespace vorn::tool {

// "2026-01-31T08:30:00Z", for what is sent to others.
std::string utcNow();

} // namespace vorn::tool
