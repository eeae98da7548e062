// SPDX-License-Identifier: Apache-2.0
// Card profiles: JSON files that say which cards lie in which slot (docs/profiles.md).
#pragma once

#include "sim/data/profile_error.h"
#include "sim/issuer/issuer.h"
#include "sim/reader/reader.h"

#include <optional>
#include <string>
#include <vector>

namespace vorn::sim {

struct Profile {
    std::string name; // for people, printable
    std::string path; // where it came from
    std::string json; // its text
};

// Finds a profile: a path to a file, or the name of a shipped one ("debit", "credit", "multi", ...). Shipped ones
// are looked for in $VORN_PROFILES, beside the executable's installation, and in the source tree.
Profile findProfile(const std::string& nameOrPath);
std::vector<std::string> shippedProfiles();

// Puts the profile's cards, version text and faults into a reader.
void load(const Profile& profile, Reader& reader);

// Its issuer, when it has one.
std::optional<Issuer> issuerOf(const Profile& profile);

} // namespace vorn::sim
