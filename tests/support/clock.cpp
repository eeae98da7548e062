// SPDX-License-Identifier: Apache-2.0
#include "support/clock.h"

#include <sys/time.h>

#include <cerrno>

namespace vorn::test {
namespace {

struct State {
    bool frozen = false;
    std::int64_t now = 0; // microseconds
    std::vector<unsigned> sleeps;
    std::function<void()> onSleep, onTime;
};

State& state()
{
    static State* const theState = new State; // outlives everything that may still sleep at exit
    return *theState;
}

std::int64_t realMicroseconds()
{
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return std::int64_t{now.tv_sec} * 1000000 + now.tv_nsec / 1000;
}

} // namespace

void Clock::freeze(std::time_t start)
{
    state() = State{};
    state().frozen = true;
    state().now = std::int64_t{start} * 1000000;
}

void Clock::release() { state() = State{}; }

void Clock::advance(std::int64_t microseconds) { state().now += microseconds; }

std::int64_t Clock::microseconds() { return state().frozen ? state().now : realMicroseconds(); }

const std::vector<unsigned>& Clock::sleeps() { return state().sleeps; }

void Clock::forgetSleeps() { state().sleeps.clear(); }

void Clock::onSleep(std::function<void()> action) { state().onSleep = std::move(action); }

void Clock::onTime(std::function<void()> action) { state().onTime = std::move(action); }

} // namespace vorn::test

using vorn::test::Clock;
using vorn::test::state;

extern "C" {

int gettimeofday(struct timeval* now, void*) noexcept
{
    const std::int64_t microseconds = Clock::microseconds();
    now->tv_sec = microseconds / 1000000;
    now->tv_usec = microseconds % 1000000;
    return 0;
}

std::time_t time(std::time_t* now) noexcept
{
    if (state().frozen && state().onTime) {
        state().onTime();
    }
    const std::time_t seconds = Clock::microseconds() / 1000000;
    if (now != nullptr) {
        *now = seconds;
    }
    return seconds;
}

int usleep(unsigned microseconds)
{
    if (!state().frozen) {
        timespec left{microseconds / 1000000, std::int64_t{microseconds % 1000000} * 1000};
        while (nanosleep(&left, &left) != 0 && errno == EINTR) {}
        return 0;
    }
    state().sleeps.push_back(microseconds);
    if (state().onSleep) {
        state().onSleep();
    }
    state().now += microseconds;
    return 0;
}
}
