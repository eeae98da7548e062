// SPDX-License-Identifier: Apache-2.0
// What lies in the reader: each of its places is powered, looked at, and powered off again.
#pragma once

#include "sim/data/bytes.h"

#include <string>
#include <vector>

namespace vorn::tool {

class Session;

struct SlotState {
    std::string name; // "contact", "field", "psam1"
    std::string kind; // "card", "memory card"; empty: none
    bool mute = false;
    sim::Bytes answer; // to reset, or a memory card's identification
};

enum class Slots { User, All };

// Throws Failure when the reader itself cannot be used.
std::vector<SlotState> lookIntoSlots(Session& session, Slots which);

} // namespace vorn::tool
