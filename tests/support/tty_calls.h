// SPDX-License-Identifier: Apache-2.0
// What the library asks of the system for its tty. A program that uses this defines open, read, write and ioctl, which
// the dynamic linker then finds before libc's, so that a test sees every write with its size and every settings record
// as the library applied it (a pty itself forces eight data bits without parity), and can refuse, interrupt or hold up
// one.
#pragma once

#include <sys/ioctl.h>
#include <termios.h>

#include <cstddef>
#include <initializer_list>
#include <string>
#include <vector>

namespace vorn::test {

struct TtyCalls {
    std::vector<unsigned long> requests;        // of the terminal record, in order
    std::vector<struct termio> applied;         // what they carried to the tty
    std::vector<long> flushes;                  // of waiting bytes: TCIFLUSH, TCOFLUSH, TCIOFLUSH
    int refuseGet = 0;                          // 1: the next reading of the settings is refused, 2: the one after it
    bool refuseSet = false;                     // no settings are accepted
    bool interrupt = false;                     // every call of the library is interrupted once before it is made
    unsigned interrupted = 0;                   // how often that was done
    int watched = -1;                           // the descriptor whose writes are noted
    std::vector<std::string> order;             // its writes and speeds: "write 4", "speed 000D"
    std::vector<std::size_t> pieces;            // their sizes
    std::size_t takenOfPiece = std::size_t(-1); // a line that takes no more of each piece than this
    int full = 0;                               // so many writes find no room
    bool stuck = false;                         // there is no room ever again, and what was written is not sent
    std::vector<int> unsent;                    // what the next questions for bytes still to be sent are answered with
    unsigned unsentAsked = 0;                   // how often that was asked
    unsigned hangs = 0;                         // requests for which a stuck line would have been waited for for ever
    std::vector<std::string> openings;          // the library's, by path
    int refuseOpen = 0;                         // so many of them are refused
    bool noLinks = false;                       // nothing tells where a link points to
    bool noEpoll = false;                       // no epoll instance can be made
    unsigned reads = 0;                         // the library's
};

TtyCalls& ttyCalls();

inline std::vector<std::size_t> sizes(std::initializer_list<std::size_t> list) { return list; }

} // namespace vorn::test
