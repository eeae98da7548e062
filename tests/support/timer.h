// SPDX-License-Identifier: Apache-2.0
// A host's timer, as it interrupts whatever the library waits in.
#pragma once

#include <signal.h>
#include <sys/time.h>

namespace vorn::test {

// SIGALRM every millisecond, with a handler and without SA_RESTART, for as long as this lives. Threads that are not to
// be interrupted block the signal.
class Timer {
public:
    Timer()
    {
        struct sigaction action {};
        action.sa_handler = [](int) {};
        sigaction(SIGALRM, &action, &before_);
        const itimerval everyMillisecond = {{0, 1000}, {0, 1000}};
        setitimer(ITIMER_REAL, &everyMillisecond, nullptr);
    }
    ~Timer()
    {
        const itimerval off{};
        setitimer(ITIMER_REAL, &off, nullptr);
        sigaction(SIGALRM, &before_, nullptr);
    }
    Timer(const Timer&) = delete;
    Timer& operator=(const Timer&) = delete;

private:
    struct sigaction before_ {};
};

} // namespace vorn::test
