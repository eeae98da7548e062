// SPDX-License-Identifier: Apache-2.0
// How much time each service call takes over USB, against the same bulk transfers made by themselves: the device is
// looked for and opened, every packet of the call goes out or comes in, and the device is closed, with the pause behind
// it, unless the call leaves it open. The device is emulated (tests/usb), and answers at once.
//
//   bench_usb_services [TIMES]      a line of JSON for each call and time
#include "sim/profiles/profile.h"
#include "sim/reader/reader.h"
#include "usb/usb_device.h"

#include "ICC_COMM_VORN.h"
#include "bench/calls.h"
#include "bench/directory.h"

#include <libusb.h>

#include <fcntl.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

using namespace vorn::bench;
using vorn::test::Bytes;
using vorn::test::UsbDevice;
namespace sim = vorn::sim;

namespace {

constexpr std::uint16_t kVendor = 0x3A5C;
constexpr std::uint16_t kProduct = 0x7E21;
constexpr unsigned char kOut = 0x01;
constexpr unsigned char kIn = 0x81;
constexpr unsigned kTimeoutMs = 3000;
constexpr std::chrono::milliseconds kAfterClose{3};

// The calls print; what is measured does not end on a terminal.
class QuietOutput {
public:
    QuietOutput() : results_(fdopen(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0), "w"))
    {
        const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
        if (results_ == nullptr || nowhere < 0 || dup2(nowhere, STDOUT_FILENO) < 0) {
            throw std::runtime_error("no output");
        }
        close(nowhere);
    }
    ~QuietOutput() { std::fclose(results_); }
    QuietOutput(const QuietOutput&) = delete;
    QuietOutput& operator=(const QuietOutput&) = delete;

    std::FILE* results() const { return results_; }

private:
    std::FILE* results_;
};

// A piece that goes out, and what the device sends on it.
struct Transfer {
    Bytes out;
    std::vector<Bytes> in;
};

double secondsOf(const std::chrono::steady_clock::time_point& begin)
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
}

void expectGood(int result, const char* what)
{
    if (result < 0) {
        throw std::runtime_error(std::string(what) + ": " + libusb_error_name(result));
    }
}

class Device {
public:
    Device()
    {
        expectGood(libusb_init(nullptr), "init");
        handle_ = libusb_open_device_with_vid_pid(nullptr, kVendor, kProduct);
        if (handle_ == nullptr) {
            throw std::runtime_error("no device");
        }
        expectGood(libusb_claim_interface(handle_, 0), "claim");
    }
    ~Device()
    {
        libusb_release_interface(handle_, 0);
        libusb_close(handle_);
        libusb_exit(nullptr);
    }
    Device(const Device&) = delete;
    Device& operator=(const Device&) = delete;

    void move(unsigned char endpoint, Bytes bytes)
    {
        int count = 0;
        expectGood(
            libusb_bulk_transfer(handle_, endpoint, bytes.data(), static_cast<int>(bytes.size()), &count, kTimeoutMs),
            "transfer");
    }

private:
    libusb_device_handle* handle_ = nullptr;
};

// The call's transfers and nothing else. The device answers as it did before.
double timeAlone(UsbDevice& emulated, const std::vector<Transfer>& transfers, Call::Link link)
{
    std::size_t next = 0;
    emulated.onWrite = [&](const Bytes&) {
        for (const Bytes& answer : transfers[next++].in) {
            emulated.send(answer);
        }
    };
    const auto begin = std::chrono::steady_clock::now();
    std::optional<Device> device(std::in_place);
    for (const Transfer& transfer : transfers) {
        device->move(kOut, transfer.out);
        for (const Bytes& answer : transfer.in) {
            for (std::size_t at = 0; at < answer.size(); at += UsbDevice::kPacketSize) {
                device->move(kIn, Bytes(UsbDevice::kPacketSize));
            }
        }
    }
    if (link == Call::Link::OpenedAndClosed) {
        device.reset();
        std::this_thread::sleep_for(kAfterClose);
    }
    return secondsOf(begin);
}

// No results: what is done for the first time takes longer.
void runErrand(const Errand& errand, std::FILE* results)
{
    UsbDevice& device = UsbDevice::instance();
    device.plug();
    sim::Reader reader;
    const sim::Profile profile = sim::findProfile(errand.profile);
    sim::load(profile, reader);
    Desk desk{"USB", sim::issuerOf(profile), {}};
    for (const Call& call : errand.calls) {
        std::vector<Transfer> transfers;
        device.onWrite = [&](const Bytes& bytes) {
            transfers.push_back({bytes, {}});
            for (const sim::Reader::Output& output : reader.receive(bytes)) {
                transfers.back().in.push_back(output.bytes);
                device.send(output.bytes);
            }
        };
        const auto begin = std::chrono::steady_clock::now();
        const int result = call.make(desk);
        const double took = secondsOf(begin);
        if (result != VORN_OK) {
            throw std::runtime_error(std::string(call.name) + " returned " + std::to_string(result));
        }
        char nothing[] = "";
        OpenDev(0, nothing); // gives back what the call may have left open
        const double need = timeAlone(device, transfers, call.link);
        if (results != nullptr) {
            std::fprintf(results, "{\"name\": \"usb/%s\", \"ratio\": %.6f, \"seconds\": %.6f, \"need\": %.6f}\n",
                         call.name, took / need, took, need);
        }
    }
    device.unplug();
}

} // namespace

int main(int argc, char** argv)
{
    const OwnDirectory directory;
    const QuietOutput quiet;
    const int times = argc > 1 ? std::stoi(argv[1]) : 1;
    for (int i = -1; i < times; ++i) {
        for (const Errand& errand : errands()) {
            if (errand.calls[0].overUsb) {
                runErrand(errand, i < 0 ? nullptr : quiet.results());
            }
        }
    }
    return 0;
}
