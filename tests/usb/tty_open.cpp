// SPDX-License-Identifier: Apache-2.0
// The emulation knows no ttys: it opens them, but answers their ioctls itself. Ttys are opened past it here. (Built
// without fortified calls, which define open themselves.)
#include "support/open_mode.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdarg>
#include <cstring>

extern "C" int open(const char* path, int flags, ...)
{
    std::va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = vorn::test::openMode(flags, arguments);
    va_end(arguments);
    if (std::strncmp(path, "/dev/pts/", sizeof "/dev/pts/" - 1) == 0) {
        return static_cast<int>(syscall(SYS_openat, AT_FDCWD, path, flags, mode));
    }
    using Open = int (*)(const char*, int, ...);
    static const Open next = reinterpret_cast<Open>(dlsym(RTLD_NEXT, "open"));
    return next(path, flags, mode);
}
