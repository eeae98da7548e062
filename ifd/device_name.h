// SPDX-License-Identifier: Apache-2.0
// What the daemon calls a reader.
#pragma once

#include "ifd/places.h"

namespace vorn::ifd {

// A port as the link takes it.
struct Port {
    int mode = 0;             // vr_comportmode
    char parameter[128] = {}; // vr_comportparam
    char tty[128] = {};       // its path; empty for USB

    bool operator==(const Port& other) const;
};

struct DeviceName {
    Port port;
    Place first = Place::Contact; // the place of slot 0
    unsigned slots = kPlaces;     // the whole reader, or one place of it
};

// "/dev/ttyS1" is a whole reader on a tty, "/dev/ttyS1:psam1" one place of it, "usb:3a5c/7e21:..." (what follows is the
// daemon's) a whole reader on USB. False: none of these.
bool readDeviceName(const char* text, DeviceName& name);

} // namespace vorn::ifd
