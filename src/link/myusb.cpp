// SPDX-License-Identifier: Apache-2.0
#include "link/myusb.h"

#include "public/console.h"
#include "public/quiet_signals.h"

#include <cerrno>
#include <cstdint>
#include <cstdio>

namespace {

constexpr unsigned kTransferTimeoutMs = 10000;
constexpr unsigned kStrayPacketMs = 20;
constexpr int kStrayPacketsMax = 256; // of a device that never stops

unsigned char endpointAddress(int endpoint) { return static_cast<unsigned char>(endpoint & 0xFF); }

} // namespace

void Myusb::init(int vid, int pid)
{
    vid_ = vid;
    pid_ = pid;
    initialised_ = libusb_init(nullptr) == 0;
    if (!initialised_) {
        vorn::QuietSignals quiet;
        if (std::fputs("failed to initialise libusb\n", stderr) < 0) {
            quiet.failed();
        }
    }
    // libusb cannot list anything on a context that does not exist.
    libusb_device** devices = nullptr;
    const ssize_t count = initialised_ ? libusb_get_device_list(context_, &devices) : -1;
    if (count < 0) {
        vorn::printError("Get Device Error\n");
        return;
    }
    for (ssize_t i = 0; i < count; ++i) {
        printdev(devices[i]);
    }
    libusb_free_device_list(devices, 1);
}

void Myusb::printdev(libusb_device* dev)
{
    libusb_device_descriptor descriptor{};
    if (libusb_get_device_descriptor(dev, &descriptor) < 0) {
        vorn::print("failed to get device descriptor\n");
        return;
    }
    libusb_config_descriptor* config = nullptr;
    if (libusb_get_config_descriptor(dev, 0, &config) != 0) {
        return;
    }
    if (descriptor.idVendor == vid_ && descriptor.idProduct == pid_) {
        for (int i = 0; i < config->bNumInterfaces && i < kInterfaces; ++i) {
            noteEndpoints(config->interface[i], i);
        }
    }
    libusb_free_config_descriptor(config);
}

void Myusb::noteEndpoints(const libusb_interface& interface, int row)
{
    for (int setting = 0; setting < interface.num_altsetting; ++setting) {
        const libusb_interface_descriptor& alternate = interface.altsetting[setting];
        for (int e = 0; e < alternate.bNumEndpoints && e < kEndpoints; ++e) {
            endpoints_[row][e] = alternate.endpoint[e].bEndpointAddress;
        }
    }
}

int Myusb::setInterface(int n)
{
    interface_ = n;
    if (n < 0 || n >= kInterfaces) {
        return 0;
    }
    const int first = endpoints_[n][0];
    const int second = endpoints_[n][1];
    // An endpoint in has bit 7 set, so it is always the larger of the two.
    outEndpoint_ = first < second ? first : second;
    inEndpoint_ = first < second ? second : first;
    return 0;
}

// A transfer to the wrong direction's endpoint would write where nothing may be written, or read without an end.
bool Myusb::hasBothEndpoints() const
{
    const auto isIn = [](int endpoint) { return (endpoint & LIBUSB_ENDPOINT_IN) != 0; };
    return outEndpoint_ != 0 && !isIn(outEndpoint_) && isIn(inEndpoint_);
}

int Myusb::open(int vid, int pid)
{
    handle_ = initialised_ ? libusb_open_device_with_vid_pid(context_, static_cast<std::uint16_t>(vid),
                                                             static_cast<std::uint16_t>(pid))
                           : nullptr;
    if (handle_ == nullptr) {
        vorn::printError("Cannot open device\n");
        return -1;
    }
    if (!hasBothEndpoints()) {
        errno = ENXIO;
        vorn::printError("Cannot open device\n");
        return -1;
    }
    vorn::print("Device Opened\n");
    if (libusb_kernel_driver_active(handle_, 0) == 1) {
        vorn::print("Kernel Driver Active\n");
        if (libusb_detach_kernel_driver(handle_, 0) == 0) {
            vorn::print("Kernel Driver Detached!\n");
        }
    }
    if (libusb_claim_interface(handle_, 0) < 0) {
        vorn::printError("Cannot Claim Interface\n");
        return -1;
    }
    claimed_ = true;
    return 0;
}

int Myusb::close()
{
    int result = LIBUSB_ERROR_NO_DEVICE;
    if (handle_ != nullptr) {
        result = libusb_release_interface(handle_, 0);
        claimed_ = false;
    }
    vorn::print("%s\n", result == 0 ? "Released Interface!" : "Cannot Released Interface!");
    release();
    return result;
}

void Myusb::release()
{
    if (claimed_) {
        libusb_release_interface(handle_, 0);
        claimed_ = false;
    }
    if (handle_ != nullptr) {
        libusb_close(handle_);
        handle_ = nullptr;
    }
    if (initialised_) {
        libusb_exit(context_);
        initialised_ = false;
    }
}

int Myusb::transfer(int endpoint, unsigned char* buf, int n, unsigned timeoutMs)
{
    if (handle_ == nullptr) { // libusb would follow it
        transferred_ = 0;
        return LIBUSB_ERROR_NO_DEVICE;
    }
    return libusb_bulk_transfer(handle_, endpointAddress(endpoint), buf, n, &transferred_, timeoutMs);
}

int Myusb::write(unsigned char* buf, int n)
{
    const int result = transfer(outEndpoint_, buf, n, kTransferTimeoutMs);
    vorn::print("%s\n", result < 0 ? "write error!" : "write Successful!");
    return result;
}

void Myusb::drain()
{
    unsigned char packet[kPacketSize];
    for (int i = 0; i < kStrayPacketsMax; ++i) {
        if (transfer(inEndpoint_, packet, kPacketSize, kStrayPacketMs) != 0) {
            return;
        }
    }
}

int Myusb::read(unsigned char* buf, int n)
{
    const int result = transfer(inEndpoint_, buf, n, kTransferTimeoutMs);
    if (result < 0) {
        vorn::print("read error!\n");
        return -1;
    }
    vorn::print("read Successful!\nread-ret = %d, transferred =%d\n", result, transferred_);
    return 0;
}

int Myusb::readTimeout(unsigned char* buf, int n, int timeoutMs)
{
    // libusb takes 0 for no limit; here it means that there is nothing to wait for.
    const unsigned timeout = timeoutMs > 0 ? static_cast<unsigned>(timeoutMs) : 1U;
    const int result = transfer(inEndpoint_, buf, n, timeout);
    vorn::print("%s\nreadtimeout-ret = %d, transferred =%d\n", result < 0 ? "read error!" : "read Successful!", result,
                transferred_);
    return result;
}
