// SPDX-License-Identifier: Apache-2.0
#include "tools/accept/usb_channel.h"

#include "tools/accept/real_channel.h"
#include "tools/session/port_name.h"

#include <libusb-1.0/libusb.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>

namespace vorn::tool::accept {

namespace {

namespace fs = std::filesystem;

constexpr std::uint16_t kVendor = 0x3A5C;
constexpr std::uint16_t kProduct = 0x7E21;
constexpr unsigned kWriteMs = 2000;
constexpr unsigned kStrayMs = 20;
constexpr int kStrayMax = 64;       // packets of a device that never stops
constexpr std::size_t kPacket = 64; // what the library asks for
constexpr unsigned kInBit = 0x80;
constexpr std::size_t kDeviceDescriptor = 18; // bytes; USB 2.0, 9.6.1
constexpr std::size_t kDescriptorsMax = 1024;

int numberIn(const fs::path& file)
{
    int number = -1;
    std::ifstream(file) >> number;
    return number;
}

// What the device told the kernel when it was plugged in, byte by byte: the device descriptor, the configurations.
Bytes descriptorsOf(libusb_device* device)
{
    std::error_code error;
    for (const auto& entry : fs::directory_iterator("/sys/bus/usb/devices", error)) {
        if (numberIn(entry.path() / "busnum") != ::libusb_get_bus_number(device) ||
            numberIn(entry.path() / "devnum") != ::libusb_get_device_address(device)) {
            continue;
        }
        std::ifstream file(entry.path() / "descriptors", std::ios::binary);
        std::string text(kDescriptorsMax, '\0');
        file.read(text.data(), static_cast<std::streamsize>(text.size()));
        text.resize(static_cast<std::size_t>(file.gcount()));
        return {text.begin(), text.end()};
    }
    return {};
}

class UsbChannel : public RealChannel {
public:
    UsbChannel()
    {
        if (::libusb_init(&context_) != 0) {
            context_ = nullptr;
            throw portFailure("USB");
        }
        device_ = ::libusb_open_device_with_vid_pid(context_, kVendor, kProduct);
        if (device_ == nullptr || !claim()) {
            close();
            throw portFailure("USB");
        }
    }
    ~UsbChannel() override { close(); }

    bool isTty() const override { return false; }
    void setSpeed(int) override {}
    Bytes deviceDescriptor() const override { return deviceDescriptor_; }
    Bytes configurationDescriptor() const override { return configurationDescriptor_; }

    void send(const Bytes& bytes) override
    {
        lookAtSignals();
        dropStray();
        Bytes copy = bytes;
        int moved = 0;
        noteUnsent(Clock::now());
        const int result =
            ::libusb_bulk_transfer(device_, out_, copy.data(), static_cast<int>(copy.size()), &moved, kWriteMs);
        if (result == LIBUSB_ERROR_NO_DEVICE) {
            throw gone();
        }
        if (result != 0) {
            throw Failure(Exit::ReaderSilent, std::string("the reader takes no bytes: ") + ::libusb_error_name(result),
                          "unplug it and plug it in again");
        }
    }

    Heard listen(const Until& until) override
    {
        Heard heard;
        while (!complete(heard.bytes, until.frames)) {
            const auto packet = receive(until.patience);
            if (!packet) {
                stray_ = true;
                break;
            }
            heard.packets.push_back(packet->size());
            notePiece(*packet, heard);
        }
        return heard;
    }

private:
    static Failure gone() { return {Exit::Port, "the reader on USB is gone", "was it pulled out?"}; }

    void close()
    {
        if (claimed_) {
            ::libusb_release_interface(device_, 0);
        }
        if (device_ != nullptr) {
            ::libusb_close(device_);
        }
        if (context_ != nullptr) {
            ::libusb_exit(context_);
        }
    }

    bool claim()
    {
        describe();
        ::libusb_set_auto_detach_kernel_driver(device_, 1);
        claimed_ = ::libusb_claim_interface(device_, 0) == 0;
        return claimed_ && in_ != 0 && out_ != 0;
    }

    void describe()
    {
        const Bytes all = descriptorsOf(::libusb_get_device(device_));
        const auto end =
            all.begin() + static_cast<std::ptrdiff_t>(std::min<std::size_t>(all.size(), kDeviceDescriptor));
        deviceDescriptor_.assign(all.begin(), end);
        configurationDescriptor_.assign(end, all.end());
        libusb_config_descriptor* configuration = nullptr;
        if (::libusb_get_active_config_descriptor(::libusb_get_device(device_), &configuration) != 0) {
            return;
        }
        if (configuration->bNumInterfaces > 0 && configuration->interface[0].num_altsetting > 0) {
            const libusb_interface_descriptor& first = configuration->interface[0].altsetting[0];
            for (int i = 0; i < first.bNumEndpoints; ++i) {
                const std::uint8_t address = first.endpoint[i].bEndpointAddress;
                ((address & kInBit) != 0 ? in_ : out_) = address;
            }
        }
        ::libusb_free_config_descriptor(configuration);
    }

    // One packet; nothing: none came.
    std::optional<Bytes> receive(Time patience) const
    {
        constexpr Time slice{200}; // between two looks at signals
        const auto end = Clock::now() + patience;
        std::array<std::uint8_t, kPacket> packet{};
        for (;;) {
            lookAtSignals();
            const Time left = std::clamp(std::chrono::ceil<Time>(end - Clock::now()), Time(1), slice);
            int moved = 0;
            const int result = ::libusb_bulk_transfer(device_, in_, packet.data(), static_cast<int>(packet.size()),
                                                      &moved, static_cast<unsigned>(left.count()));
            if (result == LIBUSB_ERROR_NO_DEVICE) {
                throw gone();
            }
            if (result == 0 || moved > 0) {
                return Bytes(packet.begin(), packet.begin() + moved);
            }
            if (result != LIBUSB_ERROR_TIMEOUT || Clock::now() >= end) {
                return std::nullopt;
            }
        }
    }

    // Packets of an answer that nobody waited for to its end.
    void dropStray()
    {
        std::array<std::uint8_t, kPacket> packet{};
        int moved = 0;
        for (int i = 0; stray_ && i < kStrayMax; ++i) {
            stray_ = ::libusb_bulk_transfer(device_, in_, packet.data(), static_cast<int>(packet.size()), &moved,
                                            kStrayMs) == 0;
        }
        stray_ = false;
    }

    libusb_context* context_ = nullptr;
    libusb_device_handle* device_ = nullptr;
    bool claimed_ = false;
    std::uint8_t in_ = 0, out_ = 0;
    Bytes deviceDescriptor_, configurationDescriptor_;
    bool stray_ = true; // the device keeps what nobody fetched from one program to the next
};

} // namespace

std::unique_ptr<Channel> openUsb() { return std::make_unique<UsbChannel>(); }

} // namespace vorn::tool::accept
