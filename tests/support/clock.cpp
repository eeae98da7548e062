// SPDX-License-Identifier: Apache-2.0
#include "support/clock.h"

#include <link.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iterator>

namespace vorn::test {
namespace {

constexpr std::int64_t kSecond = 1000000; // in microseconds
constexpr std::int64_t kNever = -1;

struct State {
    bool frozen = false;
    std::int64_t date = 0;      // of frozen time, as all in microseconds
    std::int64_t monotonic = 0; // likewise; goes on from test to test
    std::int64_t lastRead = 0;  // what the library saw last on its monotonic clock
    std::int64_t pausesUntil = kNever;
    std::int64_t pauseEnds = 0; // on the real monotonic clock
    std::int64_t slowness = 1;
    std::int64_t slowSince = 0; // likewise
    std::int64_t interruptEvery = 0;
    unsigned interruptions = 0;
    unsigned cutShort = 0;
    std::vector<unsigned> sleeps;
    std::function<void()> onSleep, onTime;
    std::function<std::int64_t(std::int64_t)> sleepAs;
};

State& state()
{
    static State* const theState = new State; // outlives everything that may still sleep at exit
    return *theState;
}

void startAnew()
{
    const std::int64_t later = state().monotonic + 3600 * kSecond;
    state() = State{};
    state().monotonic = later;
}

std::int64_t microsecondsOf(const timespec& time) { return std::int64_t{time.tv_sec} * kSecond + time.tv_nsec / 1000; }

std::int64_t realMicroseconds()
{
    timespec now{};
    syscall(SYS_clock_gettime, CLOCK_REALTIME, &now);
    return microsecondsOf(now);
}

std::int64_t realMonotonic()
{
    timespec now{};
    syscall(SYS_clock_gettime, CLOCK_MONOTONIC, &now);
    return microsecondsOf(now);
}

// What the library sees.
std::int64_t monotonic()
{
    const State& clock = state();
    return clock.frozen ? clock.monotonic : clock.slowSince + (realMonotonic() - clock.slowSince) / clock.slowness;
}

timespec timespecOf(std::int64_t microseconds) { return {microseconds / kSecond, microseconds % kSecond * 1000}; }

struct Range {
    std::uintptr_t begin = 0, end = 0;
};

// The library, and the driver that is made of its link.
constexpr const char* kLibraries[] = {"ICC_COMM_VORN", "libifdvorn"};
using Ranges = std::vector<Range>;

int findLibrary(dl_phdr_info* object, std::size_t, void* found)
{
    const auto isName = [object](const char* name) { return std::strstr(object->dlpi_name, name) != nullptr; };
    if (std::none_of(std::begin(kLibraries), std::end(kLibraries), isName)) {
        return 0;
    }
    Range& range = static_cast<Ranges*>(found)->emplace_back();
    range.begin = object->dlpi_addr;
    for (int i = 0; i < object->dlpi_phnum; ++i) {
        const auto& segment = object->dlpi_phdr[i];
        if (segment.p_type == PT_LOAD) {
            range.end = object->dlpi_addr + segment.p_vaddr + segment.p_memsz;
        }
    }
    return 0;
}

int frozenSleep(std::int64_t length)
{
    if (state().onSleep) {
        state().onSleep();
    }
    if (state().sleepAs) {
        length = state().sleepAs(length);
    }
    const std::int64_t until = state().interruptEvery;
    const bool interrupted = until > 0 && until < length;
    Clock::advance(interrupted ? until : length);
    return interrupted ? EINTR : 0;
}

int realSleep()
{
    const timespec end = timespecOf(state().pauseEnds);
    return syscall(SYS_clock_nanosleep, CLOCK_MONOTONIC, TIMER_ABSTIME, &end, nullptr) == 0 ? 0 : errno;
}

// A pause of the library, in frozen time or really.
int pauseOfLibrary(const timespec* request)
{
    State& clock = state();
    const std::int64_t until = microsecondsOf(*request);
    if (until != clock.pausesUntil) {
        clock.cutShort += clock.pausesUntil != kNever ? 1U : 0U;
        clock.pausesUntil = until;
        clock.pauseEnds = realMonotonic() + until - clock.lastRead;
        clock.sleeps.push_back(static_cast<unsigned>(until - clock.lastRead));
    }
    const int error = clock.frozen ? frozenSleep(until - clock.monotonic) : realSleep();
    if (error == EINTR) {
        ++clock.interruptions;
    } else {
        clock.pausesUntil = kNever;
    }
    return error;
}

} // namespace

bool isOfLibrary(const void* code)
{
    static const Ranges libraries = [] {
        Ranges found;
        dl_iterate_phdr(findLibrary, &found);
        return found;
    }();
    const auto address = reinterpret_cast<std::uintptr_t>(code);
    return std::any_of(libraries.begin(), libraries.end(),
                       [address](const Range& range) { return address >= range.begin && address < range.end; });
}

void Clock::freeze(std::time_t start)
{
    startAnew();
    state().frozen = true;
    state().date = std::int64_t{start} * kSecond;
}

void Clock::release() { startAnew(); }

void Clock::releaseSlow(int slowness)
{
    startAnew();
    state().slowness = slowness;
    state().slowSince = realMonotonic();
}

void Clock::advance(std::int64_t microseconds)
{
    state().date += microseconds;
    state().monotonic += microseconds;
}

void Clock::setDate(std::time_t seconds) { state().date = std::int64_t{seconds} * kSecond; }

std::int64_t Clock::microseconds() { return state().frozen ? state().date : realMicroseconds(); }

const std::vector<unsigned>& Clock::sleeps() { return state().sleeps; }

void Clock::forgetSleeps() { state().sleeps.clear(); }

void Clock::interruptEvery(std::int64_t microseconds) { state().interruptEvery = microseconds; }

unsigned Clock::interruptions() { return state().interruptions; }

unsigned Clock::cutShort() { return state().cutShort + (state().pausesUntil != kNever ? 1U : 0U); }

void Clock::sleepAs(std::function<std::int64_t(std::int64_t)> action) { state().sleepAs = std::move(action); }

void Clock::onSleep(std::function<void()> action) { state().onSleep = std::move(action); }

void Clock::onTime(std::function<void()> action) { state().onTime = std::move(action); }

} // namespace vorn::test

using vorn::test::Clock;
using vorn::test::isOfLibrary;
using vorn::test::kSecond;
using vorn::test::state;

extern "C" {

int clock_gettime(clockid_t clock, timespec* now) noexcept
{
    if (clock != CLOCK_MONOTONIC || !isOfLibrary(__builtin_return_address(0))) {
        return static_cast<int>(syscall(SYS_clock_gettime, clock, now));
    }
    state().lastRead = vorn::test::monotonic();
    *now = vorn::test::timespecOf(state().lastRead);
    return 0;
}

int clock_nanosleep(clockid_t clock, int flags, const timespec* request, timespec* left)
{
    if (isOfLibrary(__builtin_return_address(0))) {
        return vorn::test::pauseOfLibrary(request);
    }
    return syscall(SYS_clock_nanosleep, clock, flags, request, left) == 0 ? 0 : errno;
}

std::time_t time(std::time_t* now) noexcept
{
    if (state().frozen && state().onTime) {
        state().onTime();
    }
    const std::time_t seconds = Clock::microseconds() / kSecond;
    if (now != nullptr) {
        *now = seconds;
    }
    return seconds;
}
}
