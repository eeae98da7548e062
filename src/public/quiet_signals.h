// SPDX-License-Identifier: Apache-2.0
// Writing without ending the host: a write to a pipe that nobody reads any more, or beyond the limit on a file's size,
// raises a signal whose default is to end the process.
#pragma once

#include <cerrno>
#include <csignal>
#include <ctime>

namespace vorn {

// While it lives, the SIGPIPE or SIGXFSZ of a write of this thread that fails with EPIPE or EFBIG waits; told of the
// failure, it takes the signal back in the end. What the host has set for these signals, one that was pending before,
// and one that comes from elsewhere while all writes are good stay as they are.
class QuietSignals {
public:
    QuietSignals()
    {
        sigset_t quiet;
        sigemptyset(&quiet);
        for (const int signal : kSignals) {
            sigaddset(&quiet, signal);
        }
        sigprocmask(SIG_BLOCK, &quiet, &before_); // the calling thread's
        noteOurs();
    }

    ~QuietSignals()
    {
        const int error = errno;
        if (failed_) {
            const timespec atOnce = {};
            while (sigtimedwait(&ours_, nullptr, &atOnce) > 0 || errno == EINTR) {}
        }
        sigprocmask(SIG_SETMASK, &before_, nullptr);
        errno = error;
    }

    // A write failed, or may have.
    void failed() { failed_ = true; }

    QuietSignals(const QuietSignals&) = delete;
    QuietSignals& operator=(const QuietSignals&) = delete;

private:
    static constexpr int kSignals[] = {SIGPIPE, SIGXFSZ};

    // Those that are not pending by now. Only a signal that the host itself blocks can be.
    void noteOurs()
    {
        sigset_t pending;
        sigemptyset(&pending);
        if (sigismember(&before_, SIGPIPE) == 1 || sigismember(&before_, SIGXFSZ) == 1) {
            sigpending(&pending);
        }
        sigemptyset(&ours_);
        for (const int signal : kSignals) {
            if (sigismember(&pending, signal) == 0) {
                sigaddset(&ours_, signal);
            }
        }
    }

    bool failed_ = false;
    sigset_t ours_;
    sigset_t before_;
};

} // namespace vorn
