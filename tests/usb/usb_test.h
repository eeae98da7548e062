// SPDX-License-Identifier: Apache-2.0
// A test with the emulated device plugged in, frozen time for the library's own sleeps, and a working directory of its
// own. libusb's time-outs stay real.
#pragma once

#include "support/clock.h"
#include "support/scripted_reader.h"
#include "usb/usb_device.h"

#include "ICC_COMM_VORN.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <iterator>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

namespace vorn::test {

class UsbTest : public ::testing::Test {
protected:
    UsbTest()
    {
        directory_ = "/tmp/vorn-usb-XXXXXX";
        if (mkdtemp(directory_.data()) == nullptr) {
            throw std::runtime_error("no working directory for the test");
        }
        std::filesystem::current_path(directory_);
        Clock::freeze();
        m_VrICType = 0;
        vr_comportmode = 1;
        std::snprintf(vr_comportparam, sizeof vr_comportparam, "VID_3A5C&PID_7E21");
        device.plug();
    }

    ~UsbTest() override
    {
        char nothing[] = "";
        standardErrorOf([&] { standardOutputOf([&] { OpenDev(0, nothing); }); }); // gives back what is open
        device.unplug();
        EXPECT_EQ(device.openHandles(), 0);
        Clock::release();
        std::error_code ignored;
        std::filesystem::current_path("/", ignored);
        std::filesystem::remove_all(directory_, ignored);
    }

    // Runs `call` and keeps what it wrote to the console.
    template <class Call>
    int run(Call call)
    {
        int result = -777;
        err = standardErrorOf([&] { out = standardOutputOf([&] { result = call(); }); });
        return result;
    }

    static const std::vector<unsigned>& sleeps() { return Clock::sleeps(); }

    // Open descriptors of the process, once the emulation, which lives in it, has closed its ends of what was closed.
    static int settledDescriptors()
    {
        int count = 0;
        for (int unchanged = 0; unchanged < 5; usleepReally(10000)) {
            const auto now = static_cast<int>(std::distance(std::filesystem::directory_iterator("/proc/self/fd"),
                                                            std::filesystem::directory_iterator{}));
            unchanged = now == count ? unchanged + 1 : 0;
            count = now;
        }
        return count;
    }
    static void usleepReally(long microseconds)
    {
        const timespec time{0, microseconds * 1000};
        nanosleep(&time, nullptr);
    }

    UsbDevice& device = UsbDevice::instance();
    std::string out, err;

private:
    std::string directory_;
};

} // namespace vorn::test
