// SPDX-License-Identifier: Apache-2.0
// Writing without ending the host: a write to a pipe that nobody reads any more, or beyond the limit on a file's size,
// raises a signal whose default is to end the process.
#pragma once

#include <cerrno>
#include <csignal>
#include <ctime>
#include <initializer_list>

namespace vorn {

// While it lives, a SIGPIPE or SIGXFSZ that a write of this thread raises is taken back; the write fails with EPIPE or
// EFBIG. What the host has set for these signals, and one that was pending before, stay as they are.
class QuietSignals {
public:
    QuietSignals()
    {
        sigset_t pending;
        sigset_t blocked;
        sigemptyset(&pending);
        sigpending(&pending);
        sigemptyset(&blocked);
        sigemptyset(&ours_);
        for (const int signal : {SIGPIPE, SIGXFSZ}) {
            sigaddset(&blocked, signal);
            if (sigismember(&pending, signal) == 0) {
                sigaddset(&ours_, signal);
            }
        }
        sigprocmask(SIG_BLOCK, &blocked, &before_); // the calling thread's
    }

    ~QuietSignals()
    {
        const int error = errno;
        const timespec atOnce = {};
        while (sigtimedwait(&ours_, nullptr, &atOnce) > 0 || errno == EINTR) {}
        sigprocmask(SIG_SETMASK, &before_, nullptr);
        errno = error;
    }

    QuietSignals(const QuietSignals&) = delete;
    QuietSignals& operator=(const QuietSignals&) = delete;

private:
    sigset_t ours_;
    sigset_t before_;
};

} // namespace vorn
