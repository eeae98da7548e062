// SPDX-License-Identifier: Apache-2.0
// The test certification authority of the simulated cards, the one issuer that it vouches for, and the one key that all
// cards share. Test keys: they are in the source of this project, so nothing that they sign is worth anything.
#pragma once

#include "sim/cards/rsa.h"

namespace vorn::sim::test_keys {

constexpr std::uint8_t kAuthorityIndex = 0x80; // 8F; the RID is that of the application that carries it

rsa::Key authority(); // 1152 bits
rsa::Key issuer();    // 1024 bits
rsa::Key card();      // 768 bits

} // namespace vorn::sim::test_keys
