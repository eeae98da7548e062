// SPDX-License-Identifier: Apache-2.0
// A USB device for the real libusb, played by the test: its sysfs directory, its device node and the answers of usbfs.
// There is one in a process; a test plugs it in as it wants it.
#pragma once

#include "support/line.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace vorn::test {

// What the device says of itself: interface, alternate setting, endpoint addresses (bulk, 64 bytes).
struct UsbDescription {
    using Endpoints = std::vector<std::uint8_t>;
    using Alternates = std::vector<Endpoints>;

    std::uint16_t vendor = 0x3A5C;
    std::uint16_t product = 0x7E21;
    std::vector<Alternates> interfaces = {{{0x01, 0x81}}};
};

class UsbDevice {
public:
    static constexpr std::size_t kPacketSize = 64;

    static UsbDevice& instance();
    UsbDevice(const UsbDevice&) = delete;
    UsbDevice& operator=(const UsbDevice&) = delete;

    // ---------------------------------------------------------------- from the test

    // A device as new, with nothing queued, refused, bound or noted.
    void plug(const UsbDescription& description = {});
    // Two more devices on the same bus, listed before it and behind it, for looks only: they cannot be opened.
    void plugBystanders(const UsbDescription& description);
    // Tells the system of the device and its first interface: programs that wait for one hear of it.
    void announce();
    // Takes away everything that is plugged in.
    void unplug();

    void bindDriver(const std::string& name); // a kernel driver on interface 0
    void refuseDetaching(bool refuse);        // the kernel does not let go of its driver

    // Packets that the host will find, in their order. None waits longer than the host does.
    void send(const Bytes& bytes);       // in packets of 64 bytes, the last as short as it comes
    void sendPacket(const Bytes& bytes); // one packet
    void sendError(int urbStatus);       // the transfer ends with this status instead, -EPIPE for a stall
    void refuseWrites(int urbStatus);    // from now on; 0: takes them again

    // Called with the bytes of each transfer to the device, on the emulation's thread; may call send and its like,
    // and vanish.
    std::function<void(const Bytes& bytes)> onWrite;

    // Pulled out while a transfer runs: what waits ends, everything after it fails. To be called anywhere.
    void vanish();
    // The same as soon as the host waits for a packet that is not there.
    void vanishWhenAsked();

    // ---------------------------------------------------------------- what the host did

    struct Write {
        std::uint8_t endpoint;
        Bytes bytes;
    };
    std::vector<Write> writes() const;          // every bulk transfer out
    std::vector<std::size_t> readSizes() const; // the room of every bulk transfer in
    std::uint8_t lastReadEndpoint() const;
    std::vector<std::string> calls() const; // "driver?", "detach", "claim 0", "claim 0 busy", "release 0", ...
    std::size_t packetsLeft() const;
    bool claimed() const;
    int openHandles() const;
    void forget();

private:
    UsbDevice();
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace vorn::test
