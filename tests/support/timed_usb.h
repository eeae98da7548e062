// SPDX-License-Identifier: Apache-2.0
// The reader on USB in frozen time: a program that uses this defines the functions of libusb that the library calls.
#pragma once

#include "sim/reader/reader.h"
#include "support/line.h"

#include <cstdint>
#include <deque>

namespace vorn::test {

// In microseconds.
struct UsbTiming {
    std::int64_t beforeReply = 0;    // from a command's end to the first packet of its reply
    std::int64_t betweenPackets = 0; // of a reply
    std::int64_t taking = 0;         // to take each packet of a command
};

class TimedUsb {
public:
    TimedUsb(); // one at a time; nothing is plugged in until `renew`
    ~TimedUsb();
    TimedUsb(const TimedUsb&) = delete;
    TimedUsb& operator=(const TimedUsb&) = delete;

    void renew(sim::Reader& reader, const UsbTiming& timing = {});
    bool plugged() const { return reader_ != nullptr; }

    // As libusb_bulk_transfer returns.
    int send(const std::uint8_t* bytes, int count, unsigned timeoutMs, int* transferred);
    int receive(std::uint8_t* bytes, int capacity, unsigned timeoutMs, int* transferred);

private:
    struct Packet {
        Bytes bytes;
        std::int64_t at;
    };
    sim::Reader* reader_ = nullptr;
    UsbTiming timing_;
    std::deque<Packet> packets_;
};

} // namespace vorn::test
