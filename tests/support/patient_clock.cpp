// SPDX-License-Identifier: Apache-2.0
// The time of the library in programs that tests start: preloaded (LD_PRELOAD), it stands in for libc's clock. The
// library's three seconds for an answer are real ones there, and readers answer in time; a busy system does not always:
// it lets a process sleep for seconds, and a tty's bytes lie in the kernel as long (whatever moves them there waits for
// a processor, too). So time passes only while the library is awake to see it, and only while a byte through a tty of
// our own arrives at once. On an idle system this clock is the real one.
//
// The monotonic clock and its sleeps are the library's alone: whoever else is in the process keeps the real ones.
#include <dlfcn.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/syscall.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <mutex>

namespace {

// In nanoseconds, as all here.
constexpr std::int64_t kMillisecond = 1000000;
constexpr std::int64_t kSecond = 1000 * kMillisecond;
constexpr std::int64_t kAwake = 5 * kMillisecond; // between two looks at the clock; it pauses for one in between
constexpr std::int64_t kAtOnce = 5 * kMillisecond;
constexpr std::int64_t kLookEvery = 50 * kMillisecond;
constexpr int kLostAfter = 60000; // milliseconds, for a byte: tests are to end

bool isOfLibrary(const void* code)
{
    Dl_info object{};
    return dladdr(code, &object) != 0 && std::strstr(object.dli_fname, "ICC_COMM_VORN") != nullptr;
}

std::int64_t realTime()
{
    timespec now{};
    syscall(SYS_clock_gettime, CLOCK_MONOTONIC, &now);
    return std::int64_t{now.tv_sec} * kSecond + now.tv_nsec;
}

timespec timespecOf(std::int64_t time) { return {time / kSecond, time % kSecond}; }

// A tty of this process with nobody at it.
class Tty {
public:
    // Whether a byte goes through at once; waits for it. A system without ttys to spare is taken for a quick one.
    bool delivers()
    {
        if (owner_ != getpid()) { // also what a fork has left here
            open();
        }
        const std::int64_t sent = realTime();
        char byte = 'x';
        if (end_ < 0 || syscall(SYS_write, master_, &byte, 1) != 1) {
            return true;
        }
        pollfd arrival{end_, POLLIN, 0};
        while (syscall(SYS_poll, &arrival, 1, kLostAfter) < 0 && errno == EINTR) {}
        syscall(SYS_read, end_, &byte, 1);
        return realTime() - sent < kAtOnce;
    }

private:
    void open()
    {
        owner_ = getpid();
        end_ = -1;
        master_ = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC | O_NONBLOCK);
        char name[64];
        if (master_ < 0 || grantpt(master_) != 0 || unlockpt(master_) != 0 ||
            ptsname_r(master_, name, sizeof name) != 0) {
            return;
        }
        end_ = ::open(name, O_RDWR | O_NOCTTY | O_CLOEXEC | O_NONBLOCK);
        termios raw{};
        cfmakeraw(&raw);
        tcsetattr(end_, TCSANOW, &raw);
    }

    pid_t owner_ = 0;
    int master_ = -1, end_ = -1;
};

class PatientClock {
public:
    std::int64_t now()
    {
        const std::lock_guard<std::mutex> only(mutex_);
        const std::int64_t real = realTime();
        const std::int64_t passed = std::min(real - seen_, kAwake);
        seen_ = real;
        if (now_ == 0) {
            looked_ = now_ = real;
        } else if (now_ + passed - looked_ < kLookEvery) {
            now_ += passed;
        } else if (tty_.delivers()) {
            looked_ = now_ += passed;
        } else {
            looked_ = now_; // what was on its way is here now
            seen_ = realTime();
        }
        return now_;
    }

    int sleepUntil(std::int64_t end)
    {
        const std::lock_guard<std::mutex> only(mutex_);
        const std::int64_t length = std::max<std::int64_t>(0, end - now_);
        const timespec request = timespecOf(length);
        const std::int64_t begun = realTime();
        const int error = syscall(SYS_clock_nanosleep, CLOCK_MONOTONIC, 0, &request, nullptr) == 0 ? 0 : errno;
        seen_ = realTime();
        now_ += std::min(seen_ - begun, length);
        return error;
    }

private:
    std::mutex mutex_;
    Tty tty_;
    std::int64_t now_ = 0;    // what the library sees
    std::int64_t seen_ = 0;   // when it last looked, in real time
    std::int64_t looked_ = 0; // when the tty was last tried, in the library's time
};

PatientClock& patientClock()
{
    static PatientClock* const theClock = new PatientClock; // outlives everything that may still sleep at exit
    return *theClock;
}

// As from libc's: who has a failed call behind it still wants to know why.
template <class F>
auto keepingErrno(F f)
{
    const int before = errno;
    const auto result = f();
    errno = before;
    return result;
}

} // namespace

extern "C" {

int clock_gettime(clockid_t clock, timespec* now) noexcept
{
    if (clock != CLOCK_MONOTONIC || !isOfLibrary(__builtin_return_address(0))) {
        return static_cast<int>(syscall(SYS_clock_gettime, clock, now));
    }
    *now = timespecOf(keepingErrno([] { return patientClock().now(); }));
    return 0;
}

int clock_nanosleep(clockid_t clock, int flags, const timespec* request, timespec* left)
{
    if (!isOfLibrary(__builtin_return_address(0))) {
        return syscall(SYS_clock_nanosleep, clock, flags, request, left) == 0 ? 0 : errno;
    }
    const std::int64_t end = std::int64_t{request->tv_sec} * kSecond + request->tv_nsec;
    return keepingErrno([end] { return patientClock().sleepUntil(end); });
}
}
