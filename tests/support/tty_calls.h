// SPDX-License-Identifier: Apache-2.0
// What the library asks of the system for its tty. Included by one file of a test executable: it defines ioctl and
// write, which the dynamic linker then finds before libc's, so that a test sees every write with its size and every
// settings record as the library applied it (a pty itself forces eight data bits without parity), and can refuse one.
#pragma once

#include "support/line.h"

#include <sys/ioctl.h>
#include <sys/syscall.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstddef>
#include <string>
#include <vector>

namespace vorn::test {

struct TtyCalls {
    std::vector<unsigned long> requests;      // of the terminal record, in order
    std::vector<struct termio> applied;       // what they carried to the tty
    int refuseGet = 0;                        // 1: the next reading of the settings is refused, 2: the one after it
    bool refuseSet = false;                   // no settings are accepted
    int watched = -1;                         // the descriptor whose writes are noted
    std::vector<std::string> order;           // its writes and speeds: "write 4", "speed 000D"
    std::vector<std::size_t> pieces;          // their sizes
    std::size_t takenOfPiece = std::size_t(-1); // a line that takes no more of each piece than this
};

inline TtyCalls& ttyCalls()
{
    static TtyCalls calls;
    return calls;
}

inline std::vector<std::size_t> sizes(std::initializer_list<std::size_t> list) { return list; }

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
