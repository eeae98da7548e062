// SPDX-License-Identifier: Apache-2.0
// Every call that the library makes to libusb fails once, and every place fails for good, over every service call: a
// documented result, no more said than is true, the device closed, and the next call good. This program defines libusb's
// functions; they hand on to the real ones.
#include "support/simulated_desk.h"
#include "usb/usb_test.h"

#include <libusb-1.0/libusb.h>

#include <dlfcn.h>

#include <algorithm>
#include <atomic>
#include <memory>
#include <string>
#include <vector>

using namespace vorn::test;
namespace sim = vorn::sim;

namespace {

enum class Place { Init, List, Describe, Configure, Open, DriverActive, Detach, Claim, Release, Send, Receive, Count };

const char* nameOf(Place place)
{
    static const char* const names[] = {"init",   "list",  "describe", "configure", "open",   "driver active",
                                        "detach", "claim", "release",  "send",      "receive"};
    return names[static_cast<int>(place)];
}

struct Failing {
    bool armed = false;
    bool forGood = false;
    bool struck = false;
    Place place{};
    int n = 0;
    int calls = 0;
};
Failing failing;

void arm(Place place, int n, bool forGood)
{
    failing = {};
    failing.armed = true;
    failing.forGood = forGood;
    failing.place = place;
    failing.n = n;
}

bool strikes(Place place)
{
    if (!failing.armed || place != failing.place) {
        return false;
    }
    ++failing.calls;
    if (failing.forGood ? failing.calls < failing.n : failing.calls != failing.n) {
        return false;
    }
    failing.struck = true;
    return true;
}

template <class Function>
Function* real(const char* name)
{
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

// A reader that was not sent its command is silent; a test need not wait for that as long as a host must.
constexpr unsigned kWaitOnceStruckMs = 5;

class UsbFaults : public UsbTest, public ::testing::WithParamInterface<Errand> {
protected:
    std::vector<CallRecord> runErrand()
    {
        const auto desk = std::make_unique<SimulatedDesk>("USB", GetParam().profile);
        device.onWrite = [&](const Bytes& bytes) {
            for (const sim::Reader::Output& output : desk->reader().receive(bytes)) {
                device.send(output.bytes);
            }
        };
        std::vector<CallRecord> records;
        run([&] {
            records = GetParam().run(*desk);
            char nothing[] = "";
            OpenDev(0, nothing); // gives back what a memory-card call left open
            return 0;
        });
        device.onWrite = {};
        return records;
    }

    void expectHonest(const std::vector<CallRecord>& good, const std::vector<CallRecord>& records,
                      const std::string& where)
    {
        for (std::size_t i = 0; i < records.size(); ++i) {
            EXPECT_TRUE(documentedResults(records[i].call).count(records[i].result) == 1)
                << where << ": " << toText(records[i]);
            EXPECT_TRUE(saysNoMoreThan(good[i], records[i])) << where << ": " << toText(records[i]);
        }
        EXPECT_EQ(device.openHandles(), 0) << where;
    }
};

std::string nameOfErrand(const ::testing::TestParamInfo<Errand>& info)
{
    std::string name = info.param.name;
    name.erase(std::remove(name.begin(), name.end(), ' '), name.end());
    return name;
}

} // namespace

// ---------------------------------------------------------------- what the library calls

extern "C" {

int libusb_init(libusb_context** context)
{
    return strikes(Place::Init) ? int{LIBUSB_ERROR_NO_MEM} : real<decltype(libusb_init)>("libusb_init")(context);
}

ssize_t libusb_get_device_list(libusb_context* context, libusb_device*** list)
{
    return strikes(Place::List) ? ssize_t{LIBUSB_ERROR_NO_MEM}
                                : real<decltype(libusb_get_device_list)>("libusb_get_device_list")(context, list);
}

int libusb_get_device_descriptor(libusb_device* device, libusb_device_descriptor* descriptor)
{
    return strikes(Place::Describe)
               ? int{LIBUSB_ERROR_IO}
               : real<decltype(libusb_get_device_descriptor)>("libusb_get_device_descriptor")(device, descriptor);
}

int libusb_get_config_descriptor(libusb_device* device, std::uint8_t index, libusb_config_descriptor** config)
{
    return strikes(Place::Configure)
               ? int{LIBUSB_ERROR_NOT_FOUND}
               : real<decltype(libusb_get_config_descriptor)>("libusb_get_config_descriptor")(device, index, config);
}

libusb_device_handle* libusb_open_device_with_vid_pid(libusb_context* context, std::uint16_t vid, std::uint16_t pid)
{
    return strikes(Place::Open)
               ? nullptr
               : real<decltype(libusb_open_device_with_vid_pid)>("libusb_open_device_with_vid_pid")(context, vid, pid);
}

int libusb_kernel_driver_active(libusb_device_handle* handle, int interface)
{
    return strikes(Place::DriverActive)
               ? int{LIBUSB_ERROR_NO_DEVICE}
               : real<decltype(libusb_kernel_driver_active)>("libusb_kernel_driver_active")(handle, interface);
}

int libusb_detach_kernel_driver(libusb_device_handle* handle, int interface)
{
    return strikes(Place::Detach)
               ? int{LIBUSB_ERROR_NOT_FOUND}
               : real<decltype(libusb_detach_kernel_driver)>("libusb_detach_kernel_driver")(handle, interface);
}

int libusb_claim_interface(libusb_device_handle* handle, int interface)
{
    return strikes(Place::Claim) ? int{LIBUSB_ERROR_BUSY}
                                 : real<decltype(libusb_claim_interface)>("libusb_claim_interface")(handle, interface);
}

int libusb_release_interface(libusb_device_handle* handle, int interface)
{
    const int result = real<decltype(libusb_release_interface)>("libusb_release_interface")(handle, interface);
    return strikes(Place::Release) ? int{LIBUSB_ERROR_NO_DEVICE} : result;
}

int libusb_bulk_transfer(libusb_device_handle* handle, unsigned char endpoint, unsigned char* data, int length,
                         int* transferred, unsigned timeout)
{
    if (strikes((endpoint & LIBUSB_ENDPOINT_IN) != 0 ? Place::Receive : Place::Send)) {
        *transferred = 0;
        return LIBUSB_ERROR_IO;
    }
    return real<decltype(libusb_bulk_transfer)>("libusb_bulk_transfer")(
        handle, endpoint, data, length, transferred, failing.struck ? std::min(timeout, kWaitOnceStruckMs) : timeout);
}

} // extern "C"

TEST_P(UsbFaults, AnyFailureOfLibusbEndsAsDocumentedAndLeavesNothingBehind)
{
    if (std::string(GetParam().name) == "device") {
        GTEST_SKIP() << "over USB the reader never tells its version";
    }
    const std::vector<CallRecord> good = runErrand();
    ASSERT_EQ(good.back().result, VORN_OK) << toText(good.back());
    for (int place = 0; place < static_cast<int>(Place::Count); ++place) {
        for (const bool forGood : {false, true}) {
            for (int n = 1; !HasFailure(); ++n) {
                arm(static_cast<Place>(place), n, forGood);
                const std::vector<CallRecord> records = runErrand();
                failing.armed = false;
                if (!failing.struck) {
                    EXPECT_TRUE(records == good) << toText(records.front());
                    break;
                }
                expectHonest(good, records,
                             std::string(nameOf(static_cast<Place>(place))) + " " + std::to_string(n) +
                                 (forGood ? " for good" : ""));
            }
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Errands, UsbFaults, ::testing::ValuesIn(errands()), nameOfErrand);
