// SPDX-License-Identifier: Apache-2.0
// The system as the library sees it: what it calls open is seam_open here.
#include "seam/world_state.h"

#include <asm/termbits.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/select.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <string>

using namespace vorn;
using namespace vorn::fuzz;

namespace {

constexpr int kTty = 900;
constexpr int kFile = 901; // a log file
constexpr std::size_t kTermioSize = 18;

char streams[2]; // stand for open log files; nobody looks inside
std::FILE* const kStream = reinterpret_cast<std::FILE*>(streams);

std::string* keptLog = nullptr;

void keep(const void* bytes, std::size_t count)
{
    if (keptLog != nullptr) {
        keptLog->append(static_cast<const char*>(bytes), count);
    }
}

// The formatting is the library's doing, so it is done even when its result goes nowhere.
int formatted(const char* format, std::va_list arguments, bool toLog = true)
{
    static char text[1 << 17];
    const int count = std::vsnprintf(text, sizeof text, format, arguments);
    if (toLog && count > 0) {
        keep(text, std::min(static_cast<std::size_t>(count), sizeof text - 1));
    }
    return count;
}

bool isTty(const char* path) { return std::strncmp(path, "/dev/", 5) == 0; }

// Every byte is looked at, as the kernel would.
void look(const void* bytes, std::size_t count)
{
    const auto* const p = static_cast<const volatile std::uint8_t*>(bytes);
    for (std::size_t i = 0; i < count; ++i) {
        static_cast<void>(p[i]);
    }
}

int openPath(const char* path)
{
    if (!isTty(path)) {
        return kFile;
    }
    if (refuses(Operation::Open)) {
        return -1;
    }
    ++world().open;
    return kTty;
}

int wrongDescriptor()
{
    errno = EBADF;
    return -1;
}

ssize_t writeTo(int descriptor, const void* bytes, std::size_t count)
{
    if (descriptor != kTty) {
        look(bytes, count);
        keep(bytes, count);
        return descriptor < 0 ? wrongDescriptor() : static_cast<ssize_t>(count);
    }
    const bool cut = refuses(Operation::Write);
    const std::size_t taken = cut ? count / 2 : count;
    if (world().peer != nullptr && taken != 0) {
        world().peer->receive(ByteView(static_cast<const std::uint8_t*>(bytes), taken));
    }
    return cut && taken == 0 ? -1 : static_cast<ssize_t>(taken);
}

ssize_t readFrom(int descriptor, void* buffer, std::size_t count)
{
    if (descriptor != kTty) {
        return wrongDescriptor();
    }
    if (refuses(Operation::Read)) {
        return -1;
    }
    return static_cast<ssize_t>(hear(static_cast<std::uint8_t*>(buffer), count));
}

void flushInput()
{
    while (readable() && !world().line.empty()) {
        dropHeard();
    }
}

void describeFile(int descriptor, struct stat* out)
{
    std::memset(out, 0, sizeof *out);
    out->st_mode = descriptor == kTty ? S_IFCHR | 0600 : S_IFREG | 0600;
    out->st_ino = static_cast<ino_t>(descriptor);
    out->st_rdev = static_cast<dev_t>(descriptor);
}

// Waits until something can be read, or as long as it says; negative: until something comes. A line that nobody uses any
// more would be waited for without an end, so that ends as a wait that a signal interrupted.
int waitReadable(std::int64_t us)
{
    constexpr int kPatience = 1000;
    const std::int64_t end = world().nowUs + us;
    for (int i = 0; !readable(); ++i) {
        if (us >= 0 && world().nowUs >= end) {
            return 0;
        }
        if (us < 0 && i == kPatience) {
            errno = EINTR;
            return -1;
        }
        pass(1000);
    }
    return 1;
}

std::int64_t microseconds(const timespec& t) { return std::int64_t{t.tv_sec} * 1000000 + t.tv_nsec / 1000; }

timespec timeOf(std::int64_t us) { return {us / 1000000, us % 1000000 * 1000}; }

int pollFor(pollfd* watched, nfds_t count, std::int64_t us)
{
    int ready = 0;
    for (int round = 0; round < 2 && ready == 0; ++round) {
        for (nfds_t i = 0; i < count; ++i) {
            const bool in = watched[i].fd == kTty && (watched[i].events & POLLIN) != 0 && readable();
            watched[i].revents = static_cast<short>((in ? POLLIN : 0) | (watched[i].events & POLLOUT));
            ready += watched[i].revents != 0 ? 1 : 0;
        }
        if (ready == 0 && (round != 0 || waitReadable(us) <= 0)) {
            return 0;
        }
    }
    return ready;
}

int selectFor(fd_set* in, fd_set* out, std::int64_t us)
{
    const bool asked = in != nullptr && FD_ISSET(kTty, in);
    const bool writable = out != nullptr && FD_ISSET(kTty, out);
    if (!asked) {
        return writable ? 1 : 0;
    }
    const int ready = waitReadable(us);
    if (ready <= 0) {
        FD_CLR(kTty, in);
    }
    return ready;
}

} // namespace

void vorn::fuzz::keepLog(std::string* log) { keptLog = log; }

extern "C" {

// ------------------------------------------------------------ files and the tty

int seam_open(const char* path, int, ...) { return openPath(path); }
int seam_open64(const char* path, int, ...) { return openPath(path); }
int seam_openat(int, const char* path, int, ...) { return openPath(path); }
int seam_openat64(int, const char* path, int, ...) { return openPath(path); }

int seam_close(int descriptor)
{
    if (descriptor == kTty) {
        if (world().open == 0) {
            return wrongDescriptor();
        }
        --world().open;
    }
    return descriptor < 0 ? wrongDescriptor() : 0;
}

ssize_t seam_read(int descriptor, void* buffer, std::size_t count) { return readFrom(descriptor, buffer, count); }
ssize_t seam_write(int descriptor, const void* bytes, std::size_t count) { return writeTo(descriptor, bytes, count); }

ssize_t seam_readv(int descriptor, const iovec* parts, int count)
{
    return count > 0 ? readFrom(descriptor, parts[0].iov_base, parts[0].iov_len) : 0;
}

ssize_t seam_writev(int descriptor, const iovec* parts, int count)
{
    ssize_t written = 0;
    for (int i = 0; i < count; ++i) {
        written += writeTo(descriptor, parts[i].iov_base, parts[i].iov_len);
    }
    return written;
}

int seam_ioctl(int descriptor, unsigned long request, ...)
{
    std::va_list arguments;
    va_start(arguments, request);
    void* const out = va_arg(arguments, void*);
    va_end(arguments);
    if (descriptor != kTty) {
        return wrongDescriptor();
    }
    if (refuses(Operation::Settings)) {
        return -1;
    }
    switch (request) {
    case TCGETA:
        std::memset(out, 0, kTermioSize);
        break;
    case TCGETS:
        std::memset(out, 0, sizeof(struct termios));
        break;
    case TCGETS2:
        std::memset(out, 0, sizeof(struct termios2));
        break;
    case TCSETA:
    case TCSETAF:
    case TCSETAW:
        look(out, kTermioSize);
        break;
    case TIOCMGET:
    case TIOCOUTQ:
        std::memset(out, 0, sizeof(int));
        break;
    case FIONREAD: {
        const int waiting = readable() ? 1 : 0;
        std::memcpy(out, &waiting, sizeof waiting);
        break;
    }
    case TCFLSH:
        flushInput();
        break;
    default:
        break;
    }
    return 0;
}

int seam_fcntl(int, int, ...) { return 0; }
int seam_fcntl64(int, int, ...) { return 0; }

int seam_fstat(int descriptor, struct stat* out)
{
    if (descriptor != kFile && (descriptor != kTty || world().open == 0)) {
        return wrongDescriptor();
    }
    describeFile(descriptor, out);
    return 0;
}
int seam_fstat64(int descriptor, struct stat* out) { return seam_fstat(descriptor, out); }

int seam_stat(const char* path, struct stat* out)
{
    describeFile(isTty(path) ? kTty : kFile, out);
    return 0;
}
int seam_stat64(const char* path, struct stat* out) { return seam_stat(path, out); }
int seam_lstat(const char* path, struct stat* out) { return seam_stat(path, out); }

int seam_isatty(int descriptor) { return descriptor == kTty ? 1 : 0; }
int seam_flock(int descriptor, int) { return descriptor == kTty ? 0 : wrongDescriptor(); }

ssize_t seam_readlink(const char*, char* out, std::size_t capacity)
{
    static constexpr char kName[] = "/dev/fuzz";
    const std::size_t count = capacity < sizeof kName - 1 ? capacity : sizeof kName - 1;
    std::memcpy(out, kName, count);
    return static_cast<ssize_t>(count);
}

int seam_unlink(const char*) { return 0; }
int seam_chmod(const char*, mode_t) { return 0; }
int seam_fchmod(int, mode_t) { return 0; }
int seam_dup(int descriptor) { return descriptor; }
int seam_dup2(int, int descriptor) { return descriptor; }
int seam_fsync(int) { return 0; }
mode_t seam_umask(mode_t) { return 022; }

int seam_tcflush(int, int)
{
    flushInput();
    return 0;
}
int seam_tcdrain(int) { return 0; }

int seam_tcgetattr(int, void* out)
{
    std::memset(out, 0, 60); // struct termios of the C library
    return 0;
}
int seam_tcsetattr(int, int, const void*) { return 0; }

// ------------------------------------------------------------ waiting

int seam_poll(pollfd* watched, nfds_t count, int timeoutMs)
{
    return pollFor(watched, count, std::int64_t{timeoutMs} * 1000);
}
int seam_ppoll(pollfd* watched, nfds_t count, const timespec* timeout, const sigset_t*)
{
    return pollFor(watched, count, timeout == nullptr ? -1 : microseconds(*timeout));
}

int seam_select(int, fd_set* in, fd_set* out, fd_set*, timeval* timeout)
{
    return selectFor(in, out, timeout == nullptr ? -1 : std::int64_t{timeout->tv_sec} * 1000000 + timeout->tv_usec);
}
int seam_pselect(int, fd_set* in, fd_set* out, fd_set*, const timespec* timeout, const sigset_t*)
{
    return selectFor(in, out, timeout == nullptr ? -1 : microseconds(*timeout));
}

int seam_usleep(useconds_t us)
{
    pass(us);
    return 0;
}

int seam_nanosleep(const timespec* wanted, timespec*)
{
    pass(microseconds(*wanted));
    return 0;
}

int seam_clock_nanosleep(clockid_t, int flags, const timespec* wanted, timespec*)
{
    const std::int64_t us = microseconds(*wanted);
    const std::int64_t left = flags == TIMER_ABSTIME ? us - world().nowUs : us;
    pass(left > 0 ? left : 0);
    return 0;
}

unsigned seam_sleep(unsigned seconds)
{
    pass(std::int64_t{seconds} * 1000000);
    return 0;
}

int seam_gettimeofday(timeval* out, void*)
{
    *out = {world().nowUs / 1000000, world().nowUs % 1000000};
    return 0;
}

int seam_clock_gettime(clockid_t, timespec* out)
{
    *out = timeOf(world().nowUs);
    return 0;
}

std::time_t seam_time(std::time_t* out)
{
    const std::time_t now = world().nowUs / 1000000;
    if (out != nullptr) {
        *out = now;
    }
    return now;
}

// ------------------------------------------------------------ streams

std::FILE* seam_fopen(const char*, const char*) { return kStream; }
std::FILE* seam_fopen64(const char*, const char*) { return kStream; }
std::FILE* seam_fdopen(int, const char*) { return kStream; }
int seam_fclose(std::FILE*) { return 0; }
int seam_fflush(std::FILE*) { return 0; }
int seam_fputc(int c, std::FILE*)
{
    const char character = static_cast<char>(c);
    keep(&character, 1);
    return c;
}
int seam_putc(int c, std::FILE* stream) { return seam_fputc(c, stream); }
int seam_fileno(std::FILE*) { return kFile; }

int seam_fputs(const char* text, std::FILE*)
{
    keep(text, std::strlen(text));
    return 0;
}

std::size_t seam_fwrite(const void* bytes, std::size_t size, std::size_t count, std::FILE*)
{
    look(bytes, size * count);
    keep(bytes, size * count);
    return count;
}

int seam_vfprintf(std::FILE*, const char* format, std::va_list arguments) { return formatted(format, arguments); }
int seam_vprintf(const char* format, std::va_list arguments) { return formatted(format, arguments, false); }
int seam_vdprintf(int, const char* format, std::va_list arguments) { return formatted(format, arguments); }

int seam_fprintf(std::FILE*, const char* format, ...)
{
    std::va_list arguments;
    va_start(arguments, format);
    const int count = formatted(format, arguments);
    va_end(arguments);
    return count;
}

int seam_printf(const char* format, ...)
{
    std::va_list arguments;
    va_start(arguments, format);
    const int count = formatted(format, arguments, false);
    va_end(arguments);
    return count;
}

int seam_dprintf(int, const char* format, ...)
{
    std::va_list arguments;
    va_start(arguments, format);
    const int count = formatted(format, arguments);
    va_end(arguments);
    return count;
}

int seam_puts(const char* text) { return static_cast<int>(std::strlen(text) & 0xFF); }
int seam_putchar(int c) { return c; }
void seam_perror(const char*) {}

// ------------------------------------------------------------ signals and libraries of the host

int seam_sigaction(int, const struct sigaction*, struct sigaction* old)
{
    if (old != nullptr) {
        std::memset(old, 0, sizeof *old);
    }
    return 0;
}

int seam_sigprocmask(int, const sigset_t*, sigset_t* old)
{
    if (old != nullptr) {
        sigemptyset(old);
    }
    return 0;
}
int seam_pthread_sigmask(int how, const sigset_t* set, sigset_t* old) { return seam_sigprocmask(how, set, old); }

int seam_sigtimedwait(const sigset_t*, siginfo_t*, const timespec*)
{
    errno = EAGAIN;
    return -1;
}

int seam_sigpending(sigset_t* set) { return sigemptyset(set); }

void* seam_dlopen(const char*, int) { return nullptr; }
void* seam_dlsym(void*, const char*) { return nullptr; }
int seam_dlclose(void*) { return 0; }

} // extern "C"
