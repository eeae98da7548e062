// SPDX-License-Identifier: Apache-2.0
// What can be seen of a unit from its line, by name: what an acceptance run writes down, and what a simulated reader
// can be made to do alike.
#pragma once

#include "sim/reader/behaviour.h"

#include <string>
#include <vector>

namespace vorn::sim {

// The form of an observation's value in JSON. A word is one of a few, a reply is text as in behaviour.h, a time is
// in milliseconds, bytes are hex text.
enum class ObservationKind { Word, Reply, Number, Time, Hex, Text };

struct ObservationName {
    const char* name;  // "slots.contact"
    const char* title; // for people
    ObservationKind kind;
    std::vector<const char*> words; // that a Word may be
    // Of the card or of this one occasion, and nothing that units differ in: told, never compared.
    bool told;
};

const std::vector<ObservationName>& observationNames();
const ObservationName* observationName(const std::string& name); // or nullptr

constexpr const char* kReportFormat = "vorn-acceptance";
constexpr int kReportVersion = 1;
constexpr const char* kCardThere = "card"; // a slot's answer when there is one: it does not tell of an empty one

// The unit that a report was made of. A report may leave observations out: as to them the unit is the plain one. Throws
// ProfileError for what is no such report. path: where it came from, for complaints.
Behaviour behaviourOf(const std::string& report, const std::string& path);

} // namespace vorn::sim
