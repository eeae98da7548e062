// SPDX-License-Identifier: Apache-2.0
#include "link/waiting.h"

#include <cerrno>
#include <ctime>

namespace vorn {
namespace {

constexpr std::int64_t kNsPerUs = 1000;
constexpr std::int64_t kNsPerMs = 1000 * kNsPerUs;
constexpr std::int64_t kNsPerS = 1000 * kNsPerMs;

struct timespec now()
{
    struct timespec time {};
    clock_gettime(CLOCK_MONOTONIC, &time);
    return time;
}

} // namespace

std::int64_t monotonicMilliseconds()
{
    const struct timespec time = now();
    return std::int64_t{time.tv_sec} * 1000 + time.tv_nsec / kNsPerMs;
}

void pauseFor(std::int64_t microseconds)
{
    // The end is fixed before the first attempt, so interruptions neither shorten nor lengthen the pause.
    struct timespec end = now();
    const std::int64_t ns = end.tv_nsec + microseconds * kNsPerUs;
    end.tv_sec += ns / kNsPerS;
    end.tv_nsec = ns % kNsPerS;
    while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &end, nullptr) == EINTR) {}
}

} // namespace vorn
