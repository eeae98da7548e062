// SPDX-License-Identifier: Apache-2.0
// Where a card can be in the reader.
#pragma once

#include "vorn/link.h"

#include <cstdint>

namespace vorn::ifd {

enum class Place : std::uint8_t { Contact, Contactless, Psam1, Psam2, Psam3, Psam4 };

constexpr unsigned kPlaces = 6;

// How often a place is looked into, in milliseconds: an empty one soon after something changed, then each time after
// twice as long, up to `empty`; one with a card that has no power each `resting`. Customers come and go, and a module
// stays where a technician put it.
struct Pace {
    std::int64_t empty;
    std::int64_t resting;
};

struct PlaceRow {
    const char* name;  // in device names and in the daemon's log
    const char* model; // what a client reads as the reader's type
    std::uint8_t slot; // the slot byte of the reader's commands
    Pace pace;
};

constexpr Pace kCustomer = {1000, 2000};
constexpr Pace kModule = {30000, 30000};

// In the order of the slot numbers that the daemon uses.
constexpr PlaceRow kPlaceRows[kPlaces] = {
    {"contact", "DK7710 contact", VORN_SLOT_CONTACT, kCustomer},
    {"contactless", "DK7710 contactless", VORN_SLOT_CONTACTLESS, kCustomer},
    {"psam1", "DK7710 PSAM 1", VORN_SLOT_PSAM1, kModule},
    {"psam2", "DK7710 PSAM 2", VORN_SLOT_PSAM1 + 1, kModule},
    {"psam3", "DK7710 PSAM 3", VORN_SLOT_PSAM1 + 2, kModule},
    {"psam4", "DK7710 PSAM 4", VORN_SLOT_PSAM1 + 3, kModule},
};

constexpr const PlaceRow& rowOf(Place place) { return kPlaceRows[static_cast<unsigned>(place)]; }

} // namespace vorn::ifd
