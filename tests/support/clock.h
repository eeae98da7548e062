// SPDX-License-Identifier: Apache-2.0
// The time that the library sees in the tests. The test executable defines clock_gettime, clock_nanosleep and time, which
// the dynamic linker finds before libc's: a wait of three seconds then costs nothing, and the test says who acts while
// the library waits. The monotonic clock and its sleeps are the library's alone: whoever else is in the
// process (libusb, the simulated reader's thread) keeps the real ones.
#pragma once

#include <cstdint>
#include <ctime>
#include <functional>
#include <vector>

namespace vorn::test {

// Does this code belong to the library? For functions that stand in for libc's: pass __builtin_return_address(0).
bool isOfLibrary(const void* code);

class Clock {
public:
    // From now on time stands still, the date at `start`, but for the library's own sleeps (and advance).
    static void freeze(std::time_t start = 1700000000);
    // Real time and real sleeping.
    static void release();
    // Real sleeping, but a clock that goes so many times slower: what the library waits for may come that much later on a
    // busy machine.
    static void releaseSlow(int slowness);

    static void advance(std::int64_t microseconds);
    // Changes the date alone, as somebody does who sets a terminal's clock.
    static void setDate(std::time_t seconds);
    static std::int64_t microseconds(); // since the epoch, as the library sees it

    // The library's pauses since freeze or release: what was asked for, in microseconds, in order. One that was
    // interrupted and taken up again counts once.
    static const std::vector<unsigned>& sleeps();
    static void forgetSleeps();

    // In frozen time: every sleep is interrupted each time so many microseconds have passed. 0: none is.
    static void interruptEvery(std::int64_t microseconds);
    // How many sleeps a signal interrupted, and how many of the pauses were not taken up again.
    static unsigned interruptions();
    static unsigned cutShort();

    // In frozen time: a terminal whose sleeps are not as long as asked. `action` gets what was asked for, in microseconds,
    // and returns what passes. A sleep that is too short counts as whole.
    static void sleepAs(std::function<std::int64_t(std::int64_t)> action);

    // Called inside every sleep of the library, before its time has passed. In frozen time only.
    static void onSleep(std::function<void()> action);
    // Called inside every time() of the library: lets a test move the clock between two readings.
    static void onTime(std::function<void()> action);
};

} // namespace vorn::test
