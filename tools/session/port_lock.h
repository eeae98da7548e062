// SPDX-License-Identifier: Apache-2.0
// A tty is one program's at a time: an advisory lock on it, as serial programs take. While it is held the tty's
// settings are remembered, and are put back at the end whatever became of the library's process.
#pragma once

#include <termios.h>

#include <string>

namespace vorn::tool {

class PortLock {
public:
    // path: "/dev/ttyS1". A path that is no tty, or cannot be opened, is left to who tries to use it. Throws Failure
    // when another program has the lock.
    explicit PortLock(const std::string& path);
    ~PortLock();
    PortLock(const PortLock&) = delete;
    PortLock& operator=(const PortLock&) = delete;

    void restoreSettings() const;

private:
    int descriptor_ = -1;
    bool known_ = false;
    termios settings_{};
};

// Who has a lock on the file, or has it open: "minicom (4711)"; empty when nobody can be seen.
std::string lockHolder(const std::string& path);
std::string openedBy(const std::string& path);

} // namespace vorn::tool
