// SPDX-License-Identifier: Apache-2.0
#include "ifd/channels.h"

#include "ifd/daemon_log.h"

namespace vorn::ifd {

unsigned Channels::used() const
{
    unsigned count = 0;
    for (const Channel& channel : channels_) {
        count += channel.used ? 1U : 0U;
    }
    return count;
}

Channels::Opened Channels::open(unsigned long lun, const DeviceName& name, Place place)
{
    const Held held(mutex_);
    const bool first = used() == 0;
    if (!first && !(port_ == name.port)) {
        logProblem("%s: this driver works one reader; a second one needs a copy of the driver's file",
                   name.port.parameter);
        return Opened::No;
    }
    Channel& channel = channels_[static_cast<unsigned>(place)];
    if (channel.used) {
        logProblem("%s: %s is named twice", name.port.parameter, rowOf(place).name);
        return Opened::No;
    }
    port_ = name.port;
    channel = Channel{true, lun, name.slots, name.port.mode != 0, 0};
    return first ? Opened::First : Opened::Further;
}

bool Channels::close(unsigned long lun)
{
    const Held held(mutex_);
    for (Channel& channel : channels_) {
        if (channel.used && channel.lun == lun) {
            channel.used = false;
            return used() == 0;
        }
    }
    return false;
}

bool Channels::find(unsigned long lun, Place& place, Channel& channel)
{
    const Held held(mutex_);
    for (unsigned i = 0; i < kPlaces; ++i) {
        if (channels_[i].used && channels_[i].lun == lun) {
            place = static_cast<Place>(i);
            channel = channels_[i];
            return true;
        }
    }
    return false;
}

void Channels::agree(Place place, unsigned long protocol)
{
    const Held held(mutex_);
    channels_[static_cast<unsigned>(place)].protocol = protocol;
}

} // namespace vorn::ifd
