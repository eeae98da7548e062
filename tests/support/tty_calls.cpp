// SPDX-License-Identifier: Apache-2.0
#include "support/tty_calls.h"

#include "support/line.h"

#include <sys/ioctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>

namespace vorn::test {

TtyCalls& ttyCalls()
{
    static TtyCalls calls;
    return calls;
}

} // namespace vorn::test

extern "C" int ioctl(int descriptor, unsigned long request, ...) noexcept
{
    std::va_list arguments;
    va_start(arguments, request);
    void* const argument = va_arg(arguments, void*);
    va_end(arguments);

    vorn::test::TtyCalls& calls = vorn::test::ttyCalls();
    if (request == TCGETA || request == TCSETA || request == TCSETAW || request == TCSETAF) {
        calls.requests.push_back(request);
    }
    if (request == TCGETA && calls.refuseGet > 0 && --calls.refuseGet == 0) {
        errno = EIO;
        return -1;
    }
    if (request == TCSETAF || request == TCSETAW || request == TCSETA) {
        if (calls.refuseSet) {
            errno = EPERM;
            return -1;
        }
        calls.applied.push_back(*static_cast<const struct termio*>(argument));
        if (descriptor == calls.watched) {
            const unsigned code = calls.applied.back().c_cflag & unsigned{CBAUD};
            calls.order.push_back("speed " + vorn::test::toHex({static_cast<std::uint8_t>(code >> 8),
                                                                static_cast<std::uint8_t>(code & 0xFF)}));
        }
    }
    return static_cast<int>(syscall(SYS_ioctl, descriptor, request, argument));
}

extern "C" ssize_t write(int descriptor, const void* bytes, std::size_t size)
{
    vorn::test::TtyCalls& calls = vorn::test::ttyCalls();
    if (descriptor == calls.watched && descriptor >= 0) {
        calls.pieces.push_back(size);
        calls.order.push_back("write " + std::to_string(size));
        size = size < calls.takenOfPiece ? size : calls.takenOfPiece;
    }
    return syscall(SYS_write, descriptor, bytes, size);
}
