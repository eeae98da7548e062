// SPDX-License-Identifier: Apache-2.0
// Built without fortified calls, whose headers define read and open themselves.
#include "support/tty_calls.h"

#include "support/clock.h"
#include "support/line.h"
#include "support/open_mode.h"

#include <fcntl.h>
#include <sys/epoll.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>

namespace vorn::test {

TtyCalls& ttyCalls()
{
    static TtyCalls* const calls = new TtyCalls; // outlives everything that still writes at exit
    return *calls;
}

namespace {

// Is it this call's turn to be interrupted? The one made again goes through.
bool interrupts(const void* caller)
{
    static bool again = false;
    TtyCalls& calls = ttyCalls();
    again = calls.interrupt && isOfLibrary(caller) && !again;
    calls.interrupted += again ? 1U : 0U;
    return again;
}

int refuse(int error)
{
    errno = error;
    return -1;
}

int unsentBytes()
{
    TtyCalls& calls = ttyCalls();
    ++calls.unsentAsked;
    if (calls.stuck) {
        return 5;
    }
    if (calls.unsent.empty()) {
        return 0;
    }
    const int bytes = calls.unsent.front();
    calls.unsent.erase(calls.unsent.begin());
    return bytes;
}

void noteSetting(int descriptor, unsigned long request, const struct termio& settings)
{
    TtyCalls& calls = ttyCalls();
    calls.hangs += calls.stuck && request != TCSETA ? 1U : 0U;
    calls.applied.push_back(settings);
    if (descriptor == calls.watched) {
        const unsigned code = settings.c_cflag & unsigned{CBAUD};
        calls.order.push_back("speed " +
                              toHex({static_cast<std::uint8_t>(code >> 8), static_cast<std::uint8_t>(code & 0xFF)}));
    }
}

} // namespace

} // namespace vorn::test

using vorn::test::interrupts;
using vorn::test::refuse;
using vorn::test::TtyCalls;
using vorn::test::ttyCalls;

extern "C" {

int ioctl(int descriptor, unsigned long request, ...) noexcept
{
    std::va_list arguments;
    va_start(arguments, request);
    void* const argument = va_arg(arguments, void*);
    va_end(arguments);

    if (interrupts(__builtin_return_address(0))) {
        return refuse(EINTR);
    }
    TtyCalls& calls = ttyCalls();
    const bool setting = request == TCSETA || request == TCSETAW || request == TCSETAF;
    if (request == TCGETA || setting) {
        calls.requests.push_back(request);
    }
    if (request == TCGETA && calls.refuseGet > 0 && --calls.refuseGet == 0) {
        return refuse(EIO);
    }
    if (setting && calls.refuseSet) {
        return refuse(EPERM);
    }
    if (setting) {
        vorn::test::noteSetting(descriptor, request, *static_cast<const struct termio*>(argument));
    }
    if (request == TCFLSH) {
        calls.flushes.push_back(reinterpret_cast<long>(argument));
    }
    if (request == TIOCOUTQ) {
        *static_cast<int*>(argument) = vorn::test::unsentBytes();
        return 0;
    }
    return static_cast<int>(syscall(SYS_ioctl, descriptor, request, argument));
}

ssize_t write(int descriptor, const void* bytes, std::size_t size)
{
    if (interrupts(__builtin_return_address(0))) {
        return refuse(EINTR);
    }
    TtyCalls& calls = ttyCalls();
    if (descriptor == calls.watched && descriptor >= 0) {
        calls.pieces.push_back(size);
        calls.order.push_back("write " + std::to_string(size));
        if (calls.stuck || (calls.full > 0 && calls.full-- > 0)) {
            return refuse(EAGAIN);
        }
        size = size < calls.takenOfPiece ? size : calls.takenOfPiece;
    }
    return syscall(SYS_write, descriptor, bytes, size);
}

ssize_t read(int descriptor, void* bytes, std::size_t size)
{
    const void* const caller = __builtin_return_address(0);
    if (interrupts(caller)) {
        return refuse(EINTR);
    }
    ttyCalls().reads += vorn::test::isOfLibrary(caller) ? 1U : 0U;
    return syscall(SYS_read, descriptor, bytes, size);
}

// What a fortified read becomes.
ssize_t __read_chk(int descriptor, void* bytes, std::size_t size, std::size_t)
{
    const void* const caller = __builtin_return_address(0);
    if (interrupts(caller)) {
        return refuse(EINTR);
    }
    ttyCalls().reads += vorn::test::isOfLibrary(caller) ? 1U : 0U;
    return syscall(SYS_read, descriptor, bytes, size);
}

ssize_t readlink(const char* path, char* target, std::size_t size) noexcept
{
    if (ttyCalls().noLinks) {
        return refuse(ENOENT);
    }
    return syscall(SYS_readlinkat, AT_FDCWD, path, target, size);
}

int epoll_create1(int flags) noexcept
{
    return ttyCalls().noEpoll ? refuse(ENOMEM) : static_cast<int>(syscall(SYS_epoll_create1, flags));
}

int open(const char* path, int flags, ...)
{
    std::va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = vorn::test::openMode(flags, arguments);
    va_end(arguments);
    const void* const caller = __builtin_return_address(0);
    if (interrupts(caller)) {
        return refuse(EINTR);
    }
    if (vorn::test::isOfLibrary(caller)) {
        ttyCalls().openings.push_back(path);
        if (ttyCalls().refuseOpen > 0) {
            --ttyCalls().refuseOpen;
            return refuse(EBUSY);
        }
    }
    return static_cast<int>(syscall(SYS_openat, AT_FDCWD, path, flags, mode));
}
}
