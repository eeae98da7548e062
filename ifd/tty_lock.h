// SPDX-License-Identifier: Apache-2.0
// A tty is one program's at a time: an advisory lock on it, as serial programs take.
#pragma once

namespace vorn::ifd {

class TtyLock {
public:
    // False, and a line in the daemon's log: the path cannot be opened, is no tty, or another program has the lock.
    [[nodiscard]] bool take(const char* path);
    void release();

private:
    int descriptor_ = -1;
};

} // namespace vorn::ifd
