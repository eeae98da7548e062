// SPDX-License-Identifier: Apache-2.0
// The reader as a USB device: interface 0 with one bulk endpoint out and one in, through libusb-1.0 on its default
// context. What happens is written to the console for the person who brings up a terminal.
#pragma once

#include <libusb-1.0/libusb.h>

class Myusb {
public:
    static constexpr int kPacketSize = 64;

    // Looks through the attached devices for the endpoints of vid:pid. Has to come before open.
    void init(int vid, int pid);

    // Chooses the interface whose endpoints are used. Returns 0.
    int setInterface(int n);

    // Opens the device and claims interface 0, a kernel driver bound to it detached first. Returns 0 or -1; the two
    // endpoints have to be one out and one in.
    int open(int vid, int pid);

    // Releases the interface, closes the device and libusb. Returns the result of releasing the interface.
    int close();

    // The same without a word, for what a call left open or an opening that failed had taken.
    void release();

    bool isOpen() const { return handle_ != nullptr; }

    // One bulk transfer each. write and readTimeout return libusb's result: 0, or negative. read returns 0 or -1.
    int write(unsigned char* buf, int n);
    int read(unsigned char* buf, int n);
    int readTimeout(unsigned char* buf, int n, int timeoutMs);
    // The bytes that the last transfer moved.
    int transferred() const { return transferred_; }

    // Takes what the device has still to send, without a word.
    void drain();

private:
    static constexpr int kInterfaces = 10;
    static constexpr int kEndpoints = 5;

    void printdev(libusb_device* dev);
    void noteEndpoints(const libusb_interface& interface, int row);
    bool hasBothEndpoints() const;
    int transfer(int endpoint, unsigned char* buf, int n, unsigned timeoutMs);

    libusb_device_handle* handle_ = nullptr;
    int transferred_ = 0;
    libusb_context* context_ = nullptr;
    int endpoints_[kInterfaces][kEndpoints] = {};
    int interface_ = 0;
    int vid_ = 0;
    int pid_ = 0;
    int outEndpoint_ = 0;
    int inEndpoint_ = 0;
    bool initialised_ = false;
    bool claimed_ = false;
};
