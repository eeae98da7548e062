// SPDX-License-Identifier: Apache-2.0
#include "ifd/tty_lock.h"

#include "link/retry.h"

#include "ifd/daemon_log.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace vorn::ifd {

bool TtyLock::take(const char* path, bool tell)
{
    release();
    descriptor_ = uninterrupted([&] { return open(path, O_RDWR | O_NONBLOCK | O_NOCTTY | O_CLOEXEC); });
    const char* problem = nullptr;
    if (descriptor_ < 0) {
        problem = std::strerror(errno);
    } else if (isatty(descriptor_) != 1) {
        problem = "not a tty";
    } else if (uninterrupted([&] { return flock(descriptor_, LOCK_EX | LOCK_NB); }) != 0) {
        problem = errno == EWOULDBLOCK ? "used by another program" : std::strerror(errno);
    }
    if (problem != nullptr) {
        if (tell) {
            logProblem("%s: %s", path, problem);
        }
        release();
    }
    return problem == nullptr;
}

void TtyLock::release()
{
    if (descriptor_ >= 0) {
        close(descriptor_);
        descriptor_ = -1;
    }
}

} // namespace vorn::ifd
