// SPDX-License-Identifier: Apache-2.0
// What the library asks of libusb, call by call, and what it makes of failures that no device can bring about. The
// functions of libusb that it uses are defined here, in front of the real ones, which they pass everything on to.
#include "usb/usb_test.h"

#include <libusb-1.0/libusb.h>

#include <dlfcn.h>
#include <fcntl.h>
#include <stdio_ext.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <map>
#include <string>
#include <vector>

using namespace vorn::test;

namespace {

using Calls = std::vector<std::string>;

struct Libusb {
    Calls calls;
    std::map<std::string, int> refuse; // so many calls of this function fail
    int depth = 0;                     // above 1: libusb's calls of its own functions

    bool refused(const std::string& function)
    {
        const auto found = refuse.find(function);
        if (depth > 1 || found == refuse.end() || found->second == 0) {
            return false;
        }
        --found->second;
        return true;
    }
    void note(const std::string& call)
    {
        if (depth == 1) {
            calls.push_back(call);
        }
    }
};

Libusb& libusb()
{
    static Libusb theCalls;
    return theCalls;
}

struct Depth {
    Depth() { ++libusb().depth; }
    ~Depth() { --libusb().depth; }
    Depth(const Depth&) = delete;
    Depth& operator=(const Depth&) = delete;
};

template <class Function>
Function* real(const char* name)
{
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

std::string contextName(const libusb_context* context) { return context == nullptr ? "default" : "other"; }

std::string hexNumber(unsigned number)
{
    char text[16];
    std::snprintf(text, sizeof text, "%X", number);
    return text;
}

} // namespace

extern "C" {

int libusb_init(libusb_context** context)
{
    const Depth depth;
    libusb().note(std::string("init ") + (context == nullptr ? "default" : "other"));
    return libusb().refused("init") ? int{LIBUSB_ERROR_OTHER} : real<decltype(libusb_init)>("libusb_init")(context);
}

void libusb_exit(libusb_context* context)
{
    const Depth depth;
    libusb().note("exit " + contextName(context));
    real<decltype(libusb_exit)>("libusb_exit")(context);
}

ssize_t libusb_get_device_list(libusb_context* context, libusb_device*** list)
{
    const Depth depth;
    libusb().note("list " + contextName(context));
    if (libusb().refused("list")) {
        return LIBUSB_ERROR_NO_MEM;
    }
    return real<decltype(libusb_get_device_list)>("libusb_get_device_list")(context, list);
}

void libusb_free_device_list(libusb_device** list, int unreference)
{
    const Depth depth;
    libusb().note("free list " + std::to_string(unreference));
    real<decltype(libusb_free_device_list)>("libusb_free_device_list")(list, unreference);
}

int libusb_get_device_descriptor(libusb_device* device, libusb_device_descriptor* descriptor)
{
    const Depth depth;
    if (libusb().refused("device descriptor")) {
        return LIBUSB_ERROR_IO;
    }
    return real<decltype(libusb_get_device_descriptor)>("libusb_get_device_descriptor")(device, descriptor);
}

int libusb_get_config_descriptor(libusb_device* device, std::uint8_t index, libusb_config_descriptor** config)
{
    const Depth depth;
    libusb().note("configuration " + std::to_string(index));
    if (libusb().refused("configuration")) {
        return LIBUSB_ERROR_NOT_FOUND;
    }
    return real<decltype(libusb_get_config_descriptor)>("libusb_get_config_descriptor")(device, index, config);
}

void libusb_free_config_descriptor(libusb_config_descriptor* config)
{
    const Depth depth;
    libusb().note("free configuration");
    real<decltype(libusb_free_config_descriptor)>("libusb_free_config_descriptor")(config);
}

libusb_device_handle* libusb_open_device_with_vid_pid(libusb_context* context, std::uint16_t vid, std::uint16_t pid)
{
    const Depth depth;
    libusb().note("open " + contextName(context) + " " + hexNumber(vid) + ":" + hexNumber(pid));
    return real<decltype(libusb_open_device_with_vid_pid)>("libusb_open_device_with_vid_pid")(context, vid, pid);
}

int libusb_kernel_driver_active(libusb_device_handle* handle, int interface)
{
    const Depth depth;
    libusb().note("driver active? " + std::to_string(interface));
    return real<decltype(libusb_kernel_driver_active)>("libusb_kernel_driver_active")(handle, interface);
}

int libusb_detach_kernel_driver(libusb_device_handle* handle, int interface)
{
    const Depth depth;
    libusb().note("detach " + std::to_string(interface));
    return real<decltype(libusb_detach_kernel_driver)>("libusb_detach_kernel_driver")(handle, interface);
}

int libusb_claim_interface(libusb_device_handle* handle, int interface)
{
    const Depth depth;
    libusb().note("claim " + std::to_string(interface));
    return real<decltype(libusb_claim_interface)>("libusb_claim_interface")(handle, interface);
}

int libusb_release_interface(libusb_device_handle* handle, int interface)
{
    const Depth depth;
    libusb().note("release " + std::to_string(interface));
    if (libusb().refused("release")) {
        return LIBUSB_ERROR_NOT_FOUND;
    }
    return real<decltype(libusb_release_interface)>("libusb_release_interface")(handle, interface);
}

void libusb_close(libusb_device_handle* handle)
{
    const Depth depth;
    libusb().note("close");
    real<decltype(libusb_close)>("libusb_close")(handle);
}

int libusb_bulk_transfer(libusb_device_handle* handle, unsigned char endpoint, unsigned char* data, int length,
                         int* transferred, unsigned timeout)
{
    const Depth depth;
    libusb().note("bulk " + hexNumber(endpoint) + " of " + std::to_string(length) + " in " + std::to_string(timeout) +
                  " ms");
    if (libusb().refused("bulk")) {
        *transferred = 0;
        return LIBUSB_ERROR_TIMEOUT;
    }
    return real<decltype(libusb_bulk_transfer)>("libusb_bulk_transfer")(handle, endpoint, data, length, transferred,
                                                                        timeout);
}

} // extern "C"

namespace {

class UsbCalls : public UsbTest {
protected:
    UsbCalls() { libusb() = Libusb{}; }
    ~UsbCalls() override { libusb().refuse.clear(); }

    int open()
    {
        return run([this] { return OpenDev(1, parameter); });
    }
    int close()
    {
        return run([] {
            closeDev(VORN_USB_HANDLE);
            return 0;
        });
    }
    // What was asked since, without the looking through the devices, which is different on every bus.
    static Calls calls()
    {
        Calls some;
        for (const std::string& call : libusb().calls) {
            if (call != "configuration 0" && call != "free configuration") {
                some.push_back(call);
            }
        }
        libusb().calls.clear();
        return some;
    }
    static int count(const std::string& call)
    {
        return static_cast<int>(std::count(libusb().calls.begin(), libusb().calls.end(), call));
    }

    char parameter[32] = "VID_3A5C&PID_7E21";
};

const Calls kOpening = {"init default",           "list default",     "free list 1",
                        "open default 3A5C:7E21", "driver active? 0", "claim 0"};

} // namespace

TEST_F(UsbCalls, OpeningLooksAtTheDevicesBeforeItOpensOne)
{
    EXPECT_EQ(open(), VORN_USB_HANDLE);
    EXPECT_EQ(calls(), kOpening);
}

TEST_F(UsbCalls, EveryConfigurationThatWasReadIsFreed)
{
    EXPECT_EQ(open(), VORN_USB_HANDLE);
    EXPECT_GE(count("configuration 0"), 2); // of the hub and of the device
    EXPECT_EQ(count("free configuration"), count("configuration 0"));
}

TEST_F(UsbCalls, ClosingReleasesClosesAndExits)
{
    EXPECT_EQ(open(), VORN_USB_HANDLE);
    calls();
    close();
    EXPECT_EQ(calls(), (Calls{"release 0", "close", "exit default"}));
}

TEST_F(UsbCalls, ADriverIsDetachedBetweenOpeningAndClaiming)
{
    device.bindDriver("usbhid");
    EXPECT_EQ(open(), VORN_USB_HANDLE);
    const Calls all = calls();
    EXPECT_EQ(Calls(all.end() - 3, all.end()), (Calls{"driver active? 0", "detach 0", "claim 0"}));
}

TEST_F(UsbCalls, WhatAFailedOpeningTookIsGivenBack)
{
    device.unplug();
    EXPECT_EQ(open(), -1);
    EXPECT_EQ(calls(),
              (Calls{"init default", "list default", "free list 1", "open default 3A5C:7E21", "exit default"}));
    device.plug();
    device.bindDriver("usbhid");
    device.refuseDetaching(true);
    EXPECT_EQ(open(), -1);
    const Calls all = calls();
    EXPECT_EQ(Calls(all.end() - 3, all.end()), (Calls{"claim 0", "close", "exit default"}));
}

TEST_F(UsbCalls, ALinkLeftOpenIsReleasedClosedAndExitedFirst)
{
    EXPECT_EQ(open(), VORN_USB_HANDLE);
    calls();
    EXPECT_EQ(open(), VORN_USB_HANDLE);
    Calls expected = {"release 0", "close", "exit default"};
    expected.insert(expected.end(), kOpening.begin(), kOpening.end());
    EXPECT_EQ(calls(), expected);
}

TEST_F(UsbCalls, AReleaseThatFailsIsSaidAndTheRestClosedAllTheSame)
{
    EXPECT_EQ(open(), VORN_USB_HANDLE);
    calls();
    libusb().refuse["release"] = 1;
    close();
    EXPECT_EQ(out, "Cannot Released Interface!\n");
    EXPECT_EQ(calls(), (Calls{"release 0", "close", "exit default"}));
}

// Whoever sets m_portmode himself asks for a device that nobody has opened.
TEST_F(UsbCalls, ADeviceThatIsNotOpenIsNotAskedOfLibusb)
{
    m_portmode = 1;
    EXPECT_EQ(run([] { return WriteBytes(VORN_USB_HANDLE, "1234567", 7); }), 7);
    EXPECT_EQ(out, "write error!\n");
    unsigned char reply[1001];
    EXPECT_EQ(run([&] { return ReadBytes_Ex(VORN_USB_HANDLE, reply, 1000, 0x02, 0x03, 1); }), -5);
    EXPECT_EQ(out, "read error!\nreadtimeout-ret = -4, transferred =0\n");
    const unsigned char command[] = {0x32, 0x23, 0x00};
    EXPECT_EQ(run([&] { return trans_icc_cmd(command, sizeof command, nullptr, nullptr); }), VORN_NO_REPLY);
    close();
    EXPECT_EQ(out, "Cannot Released Interface!\n");
    EXPECT_EQ(calls(), Calls{});
    EXPECT_EQ(m_portmode, 0);
}

TEST_F(UsbCalls, ASerialSessionsEndOverUsbSwitchesNoSpeed)
{
    EXPECT_EQ(open(), VORN_USB_HANDLE);
    vr_comportmode = 0;
    vrdk03com_handle = VORN_USB_HANDLE;
    calls();
    EXPECT_EQ(run(cldev), VORN_OK);
    EXPECT_EQ(calls(), (Calls{"release 0", "close", "exit default"}));
    EXPECT_EQ(sleeps(), std::vector<unsigned>{3000});
}

// ---------------------------------------------------------------- what is printed

namespace {

std::sig_atomic_t volatile raisedSignals;

// Standard output and standard error are a pipe that nobody reads, and SIGPIPE is noted.
class UnreadConsole {
public:
    UnreadConsole()
    {
        raisedSignals = 0;
        before_ = std::signal(SIGPIPE, [](int) { raisedSignals = raisedSignals + 1; });
        int ends[2] = {-1, -1};
        EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0);
        ::close(ends[0]);
        for (int stream = STDOUT_FILENO; stream <= STDERR_FILENO; ++stream) {
            saved_[stream] = fcntl(stream, F_DUPFD_CLOEXEC, 10);
            dup2(ends[1], stream);
        }
        ::close(ends[1]);
    }
    ~UnreadConsole()
    {
        __fpurge(stdout); // what could not be written
        std::clearerr(stdout);
        std::clearerr(stderr);
        for (int stream = STDOUT_FILENO; stream <= STDERR_FILENO; ++stream) {
            dup2(saved_[stream], stream);
            ::close(saved_[stream]);
        }
        std::signal(SIGPIPE, before_);
    }
    UnreadConsole(const UnreadConsole&) = delete;
    UnreadConsole& operator=(const UnreadConsole&) = delete;

private:
    void (*before_)(int) = SIG_DFL;
    int saved_[STDERR_FILENO + 1] = {};
};

} // namespace

TEST_F(UsbCalls, WhatIsPrintedEndsNoHostWhoseConsoleIsGone)
{
    int opened = 0;
    int missing = 0;
    int broken = 0;
    {
        const UnreadConsole console;
        opened = OpenDev(1, parameter);
        WriteBytes(VORN_USB_HANDLE, "1234567", 7);
        closeDev(VORN_USB_HANDLE);
        device.unplug();
        missing = OpenDev(1, parameter);
        libusb().refuse["init"] = 1;
        broken = OpenDev(1, parameter);
    }
    EXPECT_EQ(raisedSignals, 0);
    EXPECT_EQ(opened, VORN_USB_HANDLE);
    EXPECT_EQ(missing, -1);
    EXPECT_EQ(broken, -1);
}

// ---------------------------------------------------------------- failures of libusb itself

namespace {

// `text` is made of these messages, each followed by the system's words of a line.
void expectSystemErrors(const std::string& text, const std::vector<std::string>& messages)
{
    std::size_t at = 0;
    for (const std::string& message : messages) {
        ASSERT_EQ(text.compare(at, message.size(), message), 0) << text;
        at = text.find('\n', at + message.size());
        ASSERT_NE(at, std::string::npos);
        ++at;
    }
    EXPECT_EQ(at, text.size()) << text;
}

} // namespace

TEST_F(UsbCalls, ALibusbThatDoesNotStartIsReportedAndNoDeviceFound)
{
    libusb().refuse["init"] = 1;
    EXPECT_EQ(open(), -1);
    EXPECT_EQ(out, "");
    const std::string first = "failed to initialise libusb\n";
    ASSERT_EQ(err.substr(0, first.size()), first);
    expectSystemErrors(err.substr(first.size()), {"Get Device Error\n: ", "Cannot open device\n: "});
    EXPECT_EQ(open(), VORN_USB_HANDLE); // the next time it does
}

TEST_F(UsbCalls, DevicesThatCannotBeListedAreReportedAndTheOpeningGoesOn)
{
    EXPECT_EQ(open(), VORN_USB_HANDLE); // the endpoints are known from now on
    close();
    calls();
    libusb().refuse["list"] = 1;
    EXPECT_EQ(open(), VORN_USB_HANDLE);
    EXPECT_EQ(out, "Device Opened\n");
    expectSystemErrors(err, {"Get Device Error\n: "});
    EXPECT_EQ(calls(),
              (Calls{"init default", "list default", "open default 3A5C:7E21", "driver active? 0", "claim 0"}));
}

TEST_F(UsbCalls, DescriptorsThatCannotBeReadAreReportedOnePerDevice)
{
    libusb().refuse["device descriptor"] = 2; // the hub and the device
    EXPECT_EQ(open(), VORN_USB_HANDLE);
    EXPECT_EQ(out, "failed to get device descriptor\nfailed to get device descriptor\nDevice Opened\n");
    EXPECT_EQ(err, "");
    EXPECT_EQ(count("configuration 0"), 0);
}

TEST_F(UsbCalls, AConfigurationThatCannotBeReadIsPassedOver)
{
    libusb().refuse["configuration"] = 2;
    EXPECT_EQ(open(), VORN_USB_HANDLE);
    EXPECT_EQ(out, "Device Opened\n");
    EXPECT_EQ(count("free configuration"), 0);
}

// ---------------------------------------------------------------- the times that transfers are given

namespace {

class UsbTransferTimes : public UsbCalls {
protected:
    void SetUp() override
    {
        ASSERT_EQ(open(), VORN_USB_HANDLE);
        vrdk03com_handle = VORN_USB_HANDLE;
        libusb().calls.clear();
    }
    void noise(int packets)
    {
        for (int i = 0; i < packets; ++i) {
            device.sendPacket(Bytes(64, 0x30));
        }
    }
    Bytes buffer = Bytes(VORN_ID2_CAPACITY);
};

} // namespace

TEST_F(UsbTransferTimes, AWriteHasTenSeconds)
{
    run([] { return WriteBytes(VORN_USB_HANDLE, "1234567", 7); });
    EXPECT_EQ(calls(), Calls{"bulk 1 of 7 in 10000 ms"});
}

// libusb would take 0 for no limit.
TEST_F(UsbTransferTimes, NoSecondsAreAMillisecond)
{
    for (const int seconds : {0, -1}) {
        SCOPED_TRACE(seconds);
        device.sendError(-EPIPE);
        EXPECT_EQ(run([&] { return ReadBytes_Ex(VORN_USB_HANDLE, buffer.data(), 1000, 0x02, 0x03, seconds); }), -5);
        EXPECT_EQ(calls(), Calls{"bulk 81 of 64 in 1 ms"});
    }
}

TEST_F(UsbTransferTimes, MoreSecondsThanMillisecondsCanCountAreTheMost)
{
    device.sendPacket({0x02, 0x03});
    EXPECT_EQ(run([&] { return ReadBytes_Ex(VORN_USB_HANDLE, buffer.data(), 1000, 0x02, 0x03, 2147484); }), 2);
    EXPECT_EQ(calls(), Calls{"bulk 81 of 64 in 2147483647 ms"});
}

// A device that never stops sending is not listened to for ever.
TEST_F(UsbTransferTimes, StrayPacketsAreTakenUpToABound)
{
    constexpr int bound = 256;
    device.sendPacket({0x02, 0x03, 0x30}); // a reply with something behind its end
    run([this] { return ReadBytes_Ex(VORN_USB_HANDLE, buffer.data(), 1000, 0x02, 0x03, 1); });
    calls();
    noise(bound);
    device.sendPacket(replyFrame(0x00, {}));
    const unsigned char command[] = {0x32, 0x23, 0x00};
    EXPECT_EQ(run([&] { return trans_icc_cmd(command, sizeof command, nullptr, nullptr); }), VORN_OK);
    Calls expected(bound, "bulk 81 of 64 in 20 ms");
    expected.insert(expected.end(), {"bulk 1 of 14 in 10000 ms", "bulk 81 of 64 in 3000 ms"});
    EXPECT_EQ(calls(), expected);
}

TEST_F(UsbTransferTimes, AReplysFirstPacketHasTheSecondsGivenAndEachFurtherATenth)
{
    noise(1);
    device.sendPacket(Bytes(1, 0x02));
    device.sendPacket(Bytes(1, 0x03));
    run([this] { return ReadBytes_Ex(VORN_USB_HANDLE, buffer.data(), 1000, 0x02, 0x03, 7); });
    EXPECT_EQ(calls(), (Calls{"bulk 81 of 64 in 7000 ms", "bulk 81 of 64 in 100 ms", "bulk 81 of 64 in 100 ms"}));
}

TEST_F(UsbTransferTimes, AReaderCommandsReplyHasThreeSeconds)
{
    device.sendPacket(replyFrame(0x00, {}));
    run([] {
        const unsigned char command[] = {0x32, 0x23, 0x00};
        return trans_icc_cmd(command, sizeof command, nullptr, nullptr);
    });
    EXPECT_EQ(calls(), (Calls{"bulk 1 of 14 in 10000 ms", "bulk 81 of 64 in 3000 ms"}));
}

TEST_F(UsbTransferTimes, AnIdFramesFurtherPacketsHaveASecond)
{
    noise(2);
    device.sendError(-EPIPE);
    run([this] { return _VRDK_ID2_Readstr(VORN_USB_HANDLE, buffer.data(), 5); });
    EXPECT_EQ(calls(), (Calls{"bulk 81 of 64 in 5000 ms", "bulk 81 of 64 in 1000 ms", "bulk 81 of 64 in 1000 ms"}));
}

TEST_F(UsbTransferTimes, ATextHasTheSecondsGivenAndOneReadOnly)
{
    noise(2);
    run([this] { return _VRDK_Readstr(VORN_USB_HANDLE, buffer.data(), 4); });
    EXPECT_EQ(calls(), Calls{"bulk 81 of 64 in 4000 ms"});
}

TEST_F(UsbTransferTimes, TheDeviceInformationWaitsTwoSeconds)
{
    close();
    libusb().calls.clear();
    device.onWrite = [this](const Bytes&) { device.sendPacket({'V'}); };
    EXPECT_EQ(run([] { return GetDevInfo("USB", nullptr, nullptr, nullptr); }), VORN_NO_REPLY);
    const Calls all = calls();
    EXPECT_NE(std::find(all.begin(), all.end(), "bulk 1 of 6 in 10000 ms"), all.end());
    EXPECT_NE(std::find(all.begin(), all.end(), "bulk 81 of 64 in 2000 ms"), all.end());
}

TEST_F(UsbTransferTimes, AWriteThatTimesOutIsReportedAndForgotten)
{
    libusb().refuse["bulk"] = 1;
    EXPECT_EQ(run([] { return WriteBytes(VORN_USB_HANDLE, "1234567", 7); }), 7);
    EXPECT_EQ(out, "write error!\n");
}

TEST_F(UsbCalls, ADeviceThatVanishedIsReleasedOnce)
{
    vr_comportmode = 1;
    std::snprintf(vr_comportparam, sizeof vr_comportparam, "%s", parameter);
    ASSERT_EQ(run(opdev), VORN_OK);
    device.vanish();
    const unsigned char command[] = {0x32, 0x22, 0x01, 0x80, 0x00};
    EXPECT_EQ(run([&] { return trans_icc_cmd(command, sizeof command, nullptr, nullptr); }), VORN_NO_REPLY);
    calls();
    EXPECT_EQ(run(cldev), VORN_OK);
    EXPECT_EQ(calls(), (Calls{"release 0", "close", "exit default"}));
    EXPECT_EQ(run(cldev), VORN_OK);
    EXPECT_EQ(calls(), Calls{});

    device.unplug();
    EXPECT_EQ(run(opdev), VORN_OPEN_FAILED);
    EXPECT_EQ(calls(),
              (Calls{"init default", "list default", "free list 1", "open default 3A5C:7E21", "exit default"}));
    EXPECT_EQ(run(cldev), VORN_OK);
    EXPECT_EQ(calls(), Calls{});
    EXPECT_EQ(device.openHandles(), 0);
}
