// SPDX-License-Identifier: Apache-2.0
// A profile's issuer.
#pragma once

#include "sim/issuer/issuer.h"
#include "sim/profiles/profile.h"

namespace vorn::tool {

sim::Issuer simulatedIssuer(const sim::Profile& profile); // throws Failure when the profile has none
void giveWrongKey(sim::Issuer& issuer);                   // and has it go on with what it cannot verify

} // namespace vorn::tool
