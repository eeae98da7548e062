// SPDX-License-Identifier: Apache-2.0
// The USB half of the link: bulk transfers, replies in packets of 64 bytes.
#include "link/id_frame.h"
#include "link/medium.h"
#include "link/myusb.h"
#include "public/bytes.h"

#include "vorn/link.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace vorn {
namespace {

constexpr int kPacketSize = Myusb::kPacketSize;
constexpr int kNextPacketMs = 100;
constexpr int kNextIdPacketMs = 1000;

Myusb hiddevice; // the one reader

// Packets may wait in the device that belong to nobody: an exchange failed, or ended with something behind its end.
// The device keeps them from one opening to the next.
bool strayPackets = false;

// The packets of one reply, byte by byte. All 64 positions of a packet count, whatever the transfer reported, and the
// buffer is cleared once, not for each packet (compatibility: "A USB reply keeps what the packet before it held").
class Packets {
public:
    bool read(int timeoutMs)
    {
        position_ = 0;
        return hiddevice.readTimeout(packet_, kPacketSize, timeoutMs) == 0;
    }

    // Did the device send more behind the last byte taken? The zeros that fill a packet up are nothing.
    bool moreBehind() const
    {
        const ByteView received =
            ByteView(packet_, kPacketSize).first(static_cast<std::size_t>(hiddevice.transferred()));
        for (auto at = static_cast<std::size_t>(position_); at < received.size(); ++at) {
            if (received[at] != 0) {
                return true;
            }
        }
        return false;
    }

    bool usedUp() const { return position_ == kPacketSize; }
    std::uint8_t next() { return packet_[position_++]; }

    // Moves to the next byte with this value.
    bool find(std::uint8_t byte)
    {
        while (!usedUp() && packet_[position_] != byte) {
            ++position_;
        }
        return !usedUp();
    }

private:
    std::uint8_t packet_[kPacketSize + 1] = {};
    int position_ = 0;
};

enum UsbReadError { kFirstReadFailed = -5, kReadInFrameFailed = -4, kFrameTooLong = -3, kReadBeforeFrameFailed = -2 };

void writeUsb(int, const std::uint8_t* bytes, int count)
{
    hiddevice.write(const_cast<std::uint8_t*>(bytes), count); // libusb does not change what it sends
}

int readFrameFrom(Packets& packets, std::uint8_t* buffer, int max, std::uint8_t start, std::uint8_t end, int timeoutS)
{
    if (!packets.read(millisecondsOf(timeoutS))) {
        return kFirstReadFailed;
    }
    while (!packets.find(start)) {
        if (!packets.read(kNextPacketMs)) {
            return kReadBeforeFrameFailed;
        }
    }
    for (int count = 0;;) {
        if (packets.usedUp() && !packets.read(kNextPacketMs)) {
            return kReadInFrameFailed;
        }
        const std::uint8_t byte = packets.next();
        buffer[count++] = byte;
        if (byte == end) {
            return count;
        }
        if (count > max) {
            return kFrameTooLong;
        }
    }
}

int readFrameUsb(int, std::uint8_t* buffer, int max, std::uint8_t start, std::uint8_t end, int timeoutS)
{
    Packets packets;
    const int count = readFrameFrom(packets, buffer, max, start, end, timeoutS);
    strayPackets = count < 0 || packets.moreBehind();
    return count;
}

int readUntilSilenceUsb(int, std::uint8_t* buffer, int capacity, int timeoutS)
{
    // A good transfer returns 0 and so does not count as received: over USB the result is -1 always, and hosts
    // know the empty device version that comes of it.
    strayPackets = true; // a text of more than a packet stays in the device
    int count = 0;
    for (int timeoutMs = millisecondsOf(timeoutS); count + kPacketSize <= capacity; timeoutMs = kNextPacketMs) {
        std::uint8_t packet[kPacketSize] = {};
        if (hiddevice.readTimeout(packet, kPacketSize, timeoutMs) < 1) {
            break;
        }
        std::memcpy(buffer + count, packet, kPacketSize);
        count += kPacketSize;
    }
    return count > 0 ? count : -1;
}

int readIdFrameUsb(int, std::uint8_t* buffer, int timeoutS)
{
    Packets packets;
    IdFrameScanner scanner(buffer);
    for (int timeoutMs = millisecondsOf(timeoutS); packets.read(timeoutMs); timeoutMs = kNextIdPacketMs) {
        while (!packets.usedUp()) {
            const std::uint8_t byte = packets.next();
            if (!scanner.inBody()) {
                scanner.header(byte);
                continue;
            }
            // The length is looked at before the byte is counted, so one byte more is taken than over a tty.
            const bool last = scanner.bodyLeft() < 1;
            scanner.body(byte);
            if (last) {
                strayPackets = packets.moreBehind();
                return scanner.count();
            }
        }
    }
    strayPackets = true;
    return -1;
}

void dropReceivedUsb(int)
{
    if (strayPackets) {
        hiddevice.drain();
        strayPackets = false;
    }
}

void closeUsb(int) { hiddevice.close(); }

void releaseUsb() { hiddevice.release(); }

bool takesUsb(int mode, const char*) { return mode != 0; }

int openUsb(char* param)
{
    static constexpr char kVid[] = "VID_";
    static constexpr char kPid[] = "&PID_";
    // Where the "&" is put back: parameters have the form VID_xxxx&PID_xxxx.
    static constexpr int kSeparatorIndex = 8;

    char* vid = param == nullptr ? nullptr : std::strstr(param, kVid);
    char* pid = vid == nullptr ? nullptr : std::strstr(vid, kPid);
    if (pid == nullptr) {
        hiddevice.release();
        return -1;
    }
    *pid = '\0';
    const auto vendor = static_cast<std::uint16_t>(std::strtoul(vid + sizeof kVid - 1, nullptr, 16));
    const auto product = static_cast<std::uint16_t>(std::strtoul(pid + sizeof kPid - 1, nullptr, 16));
    param[kSeparatorIndex] = '&';

    hiddevice.release(); // an interface is claimed once: what was left open goes first
    hiddevice.init(vendor, product);
    hiddevice.setInterface(0);
    const int result = hiddevice.open(vendor, product);
    if (result != 0) {
        hiddevice.release();
        return result;
    }
    m_portmode = 1;
    return VORN_USB_HANDLE;
}

} // namespace

extern const Medium usbMedium;
const Medium usbMedium = {takesUsb,       openUsb,         false,    writeUsb,  readFrameUsb, readUntilSilenceUsb,
                          readIdFrameUsb, dropReceivedUsb, closeUsb, releaseUsb};

} // namespace vorn
