// SPDX-License-Identifier: Apache-2.0
// A tty is one program's at a time: an advisory lock on it, as serial programs take.
#pragma once

namespace vorn::ifd {

class TtyLock {
public:
    // False: the path cannot be opened, is no tty, or another program has the lock. With `tell` the daemon's log says which.
    [[nodiscard]] bool take(const char* path, bool tell);
    void release();

private:
    int descriptor_ = -1;
};

} // namespace vorn::ifd
