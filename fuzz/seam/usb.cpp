// SPDX-License-Identifier: Apache-2.0
// libusb as the library sees it: the devices of the world, and the line in packets.
#include "seam/world_state.h"

#include <libusb-1.0/libusb.h>

#include <cstring>
#include <memory>
#include <utility>

using namespace vorn;
using namespace vorn::fuzz;

struct libusb_device {
    std::size_t index;
};
struct libusb_device_handle {
    std::size_t index;
};

namespace {

// A configuration in blocks of their own, each of just its size.
struct Configuration {
    libusb_config_descriptor descriptor{};
    std::vector<std::unique_ptr<libusb_endpoint_descriptor[]>> endpoints;
    std::vector<std::unique_ptr<libusb_interface_descriptor[]>> settings;
    std::unique_ptr<libusb_interface[]> interfaces;
};

std::unique_ptr<libusb_endpoint_descriptor[]> endpointsOf(const std::vector<std::uint8_t>& addresses)
{
    auto endpoints = std::make_unique<libusb_endpoint_descriptor[]>(addresses.size());
    for (std::size_t i = 0; i < addresses.size(); ++i) {
        endpoints[i].bEndpointAddress = addresses[i];
        endpoints[i].bmAttributes = LIBUSB_TRANSFER_TYPE_BULK;
        endpoints[i].wMaxPacketSize = 64;
    }
    return endpoints;
}

Configuration* configurationOf(const UsbDevice& device)
{
    auto* const made = new Configuration;
    made->interfaces = std::make_unique<libusb_interface[]>(device.interfaces.size());
    for (std::size_t i = 0; i < device.interfaces.size(); ++i) {
        const auto& settings = device.interfaces[i].settings;
        auto alternates = std::make_unique<libusb_interface_descriptor[]>(settings.size());
        for (std::size_t s = 0; s < settings.size(); ++s) {
            made->endpoints.push_back(endpointsOf(settings[s]));
            alternates[s].bInterfaceNumber = static_cast<std::uint8_t>(i);
            alternates[s].bAlternateSetting = static_cast<std::uint8_t>(s);
            alternates[s].bNumEndpoints = static_cast<std::uint8_t>(settings[s].size());
            alternates[s].endpoint = made->endpoints.back().get();
        }
        made->interfaces[i].altsetting = alternates.get();
        made->interfaces[i].num_altsetting = static_cast<int>(settings.size());
        made->settings.push_back(std::move(alternates));
    }
    made->descriptor.bNumInterfaces = static_cast<std::uint8_t>(device.interfaces.size());
    made->descriptor.interface = made->interfaces.get();
    return made;
}

bool isIn(unsigned char endpoint) { return (endpoint & LIBUSB_ENDPOINT_IN) != 0; }

int transferIn(std::uint8_t* data, int length, int* transferred, unsigned timeoutMs)
{
    const std::int64_t end = world().nowUs + std::int64_t{timeoutMs} * 1000;
    while (!readable()) {
        if (timeoutMs != 0 && world().nowUs >= end) {
            return LIBUSB_ERROR_TIMEOUT;
        }
        pass(1000);
        if (timeoutMs == 0 && world().line.empty() && world().filler.empty()) {
            return LIBUSB_ERROR_NO_DEVICE; // a wait without an end
        }
    }
    *transferred = static_cast<int>(hear(data, static_cast<std::size_t>(length)));
    return LIBUSB_SUCCESS;
}

} // namespace

namespace vorn::fuzz {

void attach(UsbDevice device) { world().devices.push_back(std::move(device)); }

UsbDevice readerOnUsb()
{
    UsbDevice device;
    device.interfaces = {UsbInterface{{{0x01, 0x81}}}};
    return device;
}

void breakTransfer(unsigned nth, int error, int transferred)
{
    world().brokenTransfer = nth;
    world().transferError = error;
    world().transferred = transferred;
}

} // namespace vorn::fuzz

extern "C" {

int libusb_init(libusb_context**) { return refuses(Operation::Open) ? LIBUSB_ERROR_OTHER : LIBUSB_SUCCESS; }
void libusb_exit(libusb_context*) {}

ssize_t libusb_get_device_list(libusb_context*, libusb_device*** list)
{
    const std::size_t count = world().devices.size();
    *list = new libusb_device*[count + 1];
    for (std::size_t i = 0; i < count; ++i) {
        (*list)[i] = new libusb_device{i};
    }
    (*list)[count] = nullptr;
    return static_cast<ssize_t>(count);
}

void libusb_free_device_list(libusb_device** list, int)
{
    for (libusb_device** device = list; *device != nullptr; ++device) {
        delete *device;
    }
    delete[] list;
}

int libusb_get_device_descriptor(libusb_device* device, libusb_device_descriptor* out)
{
    const UsbDevice& d = world().devices.at(device->index);
    if (d.withoutDescriptor) {
        return LIBUSB_ERROR_IO;
    }
    *out = {};
    out->idVendor = d.vendor;
    out->idProduct = d.product;
    out->bNumConfigurations = 1;
    return LIBUSB_SUCCESS;
}

int libusb_get_config_descriptor(libusb_device* device, std::uint8_t, libusb_config_descriptor** out)
{
    const UsbDevice& d = world().devices.at(device->index);
    if (d.withoutConfiguration) {
        return LIBUSB_ERROR_NOT_FOUND;
    }
    *out = &configurationOf(d)->descriptor;
    return LIBUSB_SUCCESS;
}

int libusb_get_active_config_descriptor(libusb_device* device, libusb_config_descriptor** out)
{
    return libusb_get_config_descriptor(device, 0, out);
}

void libusb_free_config_descriptor(libusb_config_descriptor* descriptor)
{
    static_assert(offsetof(Configuration, descriptor) == 0, "freed by the address of the descriptor");
    delete reinterpret_cast<Configuration*>(descriptor);
}

int libusb_open(libusb_device* device, libusb_device_handle** out)
{
    ++world().open;
    *out = new libusb_device_handle{device->index};
    return LIBUSB_SUCCESS;
}

libusb_device_handle* libusb_open_device_with_vid_pid(libusb_context*, std::uint16_t vendor, std::uint16_t product)
{
    for (std::size_t i = 0; i < world().devices.size(); ++i) {
        const UsbDevice& d = world().devices[i];
        if (d.vendor == vendor && d.product == product && !d.withoutDescriptor) {
            ++world().open;
            return new libusb_device_handle{i};
        }
    }
    return nullptr;
}

void libusb_close(libusb_device_handle* handle)
{
    --world().open;
    delete handle;
}

int libusb_kernel_driver_active(libusb_device_handle* handle, int)
{
    return world().devices.at(handle->index).withDriver ? 1 : 0;
}
int libusb_detach_kernel_driver(libusb_device_handle*, int) { return LIBUSB_SUCCESS; }
int libusb_attach_kernel_driver(libusb_device_handle*, int) { return LIBUSB_SUCCESS; }
int libusb_set_auto_detach_kernel_driver(libusb_device_handle*, int) { return LIBUSB_SUCCESS; }

int libusb_claim_interface(libusb_device_handle* handle, int)
{
    return world().devices.at(handle->index).unclaimable ? LIBUSB_ERROR_BUSY : LIBUSB_SUCCESS;
}
int libusb_release_interface(libusb_device_handle*, int) { return LIBUSB_SUCCESS; }
int libusb_clear_halt(libusb_device_handle*, unsigned char) { return LIBUSB_SUCCESS; }
int libusb_reset_device(libusb_device_handle*) { return LIBUSB_SUCCESS; }
const char* libusb_error_name(int) { return "LIBUSB_ERROR"; }
const char* libusb_strerror(int) { return "error"; }

int libusb_bulk_transfer(libusb_device_handle* handle, unsigned char endpoint, unsigned char* data, int length,
                         int* transferred, unsigned timeout)
{
    if (handle == nullptr) {
        return LIBUSB_ERROR_INVALID_PARAM;
    }
    int ignored = 0;
    int& count = transferred != nullptr ? *transferred : ignored;
    if (++world().transfers == world().brokenTransfer) {
        count = world().transferred < length ? world().transferred : length;
        if (isIn(endpoint)) {
            count = static_cast<int>(hear(data, static_cast<std::size_t>(count)));
        }
        return world().transferError;
    }
    count = 0;
    if (isIn(endpoint)) {
        return transferIn(data, length, &count, timeout);
    }
    if (world().peer != nullptr && length > 0) {
        world().peer->receive(ByteView(data, static_cast<std::size_t>(length)));
    }
    count = length;
    return LIBUSB_SUCCESS;
}

} // extern "C"
