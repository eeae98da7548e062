// SPDX-License-Identifier: Apache-2.0
#include "support/timed_usb.h"

#include "support/clock.h"

#include <libusb-1.0/libusb.h>

#include <algorithm>
#include <stdexcept>

struct libusb_device {
    int unused;
};
struct libusb_device_handle {
    int unused;
};

namespace vorn::test {
namespace {

constexpr std::size_t kPacket = 64;
constexpr std::int64_t kUsOfMs = 1000;

TimedUsb* theUsb = nullptr;
libusb_device theDevice;
libusb_device_handle theHandle;

constexpr std::uint8_t kEndpointOut = 0x02;
constexpr std::uint8_t kEndpointIn = 0x81;

} // namespace

TimedUsb::TimedUsb()
{
    if (theUsb != nullptr) {
        throw std::logic_error("there is one USB reader at a time");
    }
    theUsb = this;
}

TimedUsb::~TimedUsb() { theUsb = nullptr; }

void TimedUsb::renew(sim::Reader& reader, const UsbTiming& timing)
{
    reader_ = &reader;
    timing_ = timing;
    packets_.clear();
}

int TimedUsb::send(const std::uint8_t* bytes, int count, unsigned timeoutMs, int* transferred)
{
    const std::int64_t limit = timeoutMs * kUsOfMs;
    if (timing_.taking >= limit) {
        Clock::advance(limit);
        *transferred = 0;
        return LIBUSB_ERROR_TIMEOUT;
    }
    Clock::advance(timing_.taking);
    *transferred = count;
    std::int64_t at = Clock::microseconds() + timing_.beforeReply;
    for (const sim::Reader::Output& output : reader_->receive(Bytes(bytes, bytes + count))) {
        for (std::size_t from = 0; from < output.bytes.size(); from += kPacket) {
            const std::size_t size = std::min(kPacket, output.bytes.size() - from);
            const auto begin = output.bytes.begin() + static_cast<std::ptrdiff_t>(from);
            packets_.push_back({Bytes(begin, begin + static_cast<std::ptrdiff_t>(size)), at});
            at += timing_.betweenPackets;
        }
    }
    return 0;
}

int TimedUsb::receive(std::uint8_t* bytes, int capacity, unsigned timeoutMs, int* transferred)
{
    const std::int64_t limit = Clock::microseconds() + timeoutMs * kUsOfMs;
    *transferred = 0;
    if (packets_.empty() || packets_.front().at >= limit) {
        Clock::advance(limit - Clock::microseconds());
        return LIBUSB_ERROR_TIMEOUT;
    }
    const Packet packet = packets_.front();
    packets_.pop_front();
    Clock::advance(std::max<std::int64_t>(packet.at - Clock::microseconds(), 0));
    *transferred = std::min(capacity, static_cast<int>(packet.bytes.size()));
    std::copy_n(packet.bytes.begin(), *transferred, bytes);
    return 0;
}

} // namespace vorn::test

using namespace vorn::test;

// ---------------------------------------------------------------- what the library calls

extern "C" {

int libusb_init(libusb_context**) { return 0; }

void libusb_exit(libusb_context*) {}

ssize_t libusb_get_device_list(libusb_context*, libusb_device*** list)
{
    static libusb_device* devices[] = {&theDevice, nullptr};
    *list = devices;
    return theUsb != nullptr && theUsb->plugged() ? 1 : 0;
}

void libusb_free_device_list(libusb_device**, int) {}

int libusb_get_device_descriptor(libusb_device*, libusb_device_descriptor* descriptor)
{
    *descriptor = {};
    descriptor->idVendor = 0x3A5C;
    descriptor->idProduct = 0x7E21;
    return 0;
}

int libusb_get_config_descriptor(libusb_device*, std::uint8_t, libusb_config_descriptor** config)
{
    static libusb_endpoint_descriptor endpoints[2];
    static libusb_interface_descriptor setting;
    static libusb_interface interface;
    static libusb_config_descriptor description;
    endpoints[0].bEndpointAddress = kEndpointOut;
    endpoints[1].bEndpointAddress = kEndpointIn;
    setting.bNumEndpoints = 2;
    setting.endpoint = endpoints;
    interface.altsetting = &setting;
    interface.num_altsetting = 1;
    description.bNumInterfaces = 1;
    description.interface = &interface;
    *config = &description;
    return 0;
}

void libusb_free_config_descriptor(libusb_config_descriptor*) {}

libusb_device_handle* libusb_open_device_with_vid_pid(libusb_context*, std::uint16_t, std::uint16_t)
{
    return theUsb != nullptr && theUsb->plugged() ? &theHandle : nullptr;
}

void libusb_close(libusb_device_handle*) {}

int libusb_kernel_driver_active(libusb_device_handle*, int) { return 0; }

int libusb_detach_kernel_driver(libusb_device_handle*, int) { return 0; }

int libusb_claim_interface(libusb_device_handle*, int) { return 0; }

int libusb_release_interface(libusb_device_handle*, int) { return 0; }

int libusb_bulk_transfer(libusb_device_handle*, unsigned char endpoint, unsigned char* data, int length,
                         int* transferred, unsigned timeout)
{
    return endpoint == kEndpointIn ? theUsb->receive(data, length, timeout, transferred)
                                   : theUsb->send(data, length, timeout, transferred);
}
}
