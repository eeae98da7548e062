// SPDX-License-Identifier: Apache-2.0
// All that is wrong with a profile, not only the first thing: who writes one wants the whole list.
#pragma once

#include "sim/profiles/profile.h"

#include <string>
#include <vector>

namespace vorn::sim {

// One line each, the place in the file first. Empty: the profile is good.
std::vector<std::string> mistakesIn(const Profile& profile);

} // namespace vorn::sim
