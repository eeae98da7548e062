// SPDX-License-Identifier: Apache-2.0
// What the library asks of the system for its tty. A program that uses this defines ioctl and write, which the dynamic
// linker then finds before libc's, so that a test sees every write with its size and every settings record as the
// library applied it (a pty itself forces eight data bits without parity), and can refuse one.
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
    int refuseGet = 0;                          // 1: the next reading of the settings is refused, 2: the one after it
    bool refuseSet = false;                     // no settings are accepted
    int watched = -1;                           // the descriptor whose writes are noted
    std::vector<std::string> order;             // its writes and speeds: "write 4", "speed 000D"
    std::vector<std::size_t> pieces;            // their sizes
    std::size_t takenOfPiece = std::size_t(-1); // a line that takes no more of each piece than this
};

TtyCalls& ttyCalls();

inline std::vector<std::size_t> sizes(std::initializer_list<std::size_t> list) { return list; }

} // namespace vorn::test
