// SPDX-License-Identifier: Apache-2.0
// The time that the library sees in the tests. The test executable defines gettimeofday, time and usleep, which the
// dynamic linker finds before libc's: a wait of three seconds then costs nothing, and the test says who acts while
// the library waits.
#pragma once

#include <cstdint>
#include <ctime>
#include <functional>
#include <vector>

namespace vorn::test {

class Clock {
public:
    // From now on time stands still at `start` but for the library's own usleep (and advance).
    static void freeze(std::time_t start = 1700000000);
    // Real time and real sleeping.
    static void release();

    static void advance(std::int64_t microseconds);
    static std::int64_t microseconds(); // since the epoch, as the library sees it

    // What usleep was asked for since freeze, in microseconds, in order.
    static const std::vector<unsigned>& sleeps();
    static void forgetSleeps();

    // Called inside every usleep of the library, before its time has passed.
    static void onSleep(std::function<void()> action);
    // Called inside every time() of the library: lets a test move the clock between two readings.
    static void onTime(std::function<void()> action);
};

} // namespace vorn::test
