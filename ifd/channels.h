// SPDX-License-Identifier: Apache-2.0
// The daemon's numbers for the reader's places.
#pragma once

#include "ifd/device_name.h"
#include "ifd/lock.h"
#include "ifd/places.h"

namespace vorn::ifd {

// One place of the reader as the daemon uses it.
struct Channel {
    bool used = false;
    unsigned long lun = 0;
    unsigned slots = 0; // of the daemon's reader that it is a slot of
    bool usb = false;
    unsigned long protocol = 0; // as a client has agreed on; 0: not yet since the card got its power
};

class Channels {
public:
    enum class Opened { No, First, Further };

    // A place is one channel's at a time, and all belong to one reader: the link below has one line. What is wrong goes
    // to the daemon's log.
    Opened open(unsigned long lun, const DeviceName& name, Place place);
    // Returns whether it was the last one. A number that is not open changes nothing.
    bool close(unsigned long lun);

    // False: no channel has this number.
    bool find(unsigned long lun, Place& place, Channel& channel);
    void agree(Place place, unsigned long protocol);

private:
    unsigned used() const;

    Mutex mutex_;
    Port port_;
    Channel channels_[kPlaces];
};

} // namespace vorn::ifd
