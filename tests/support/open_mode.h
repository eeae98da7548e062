// SPDX-License-Identifier: Apache-2.0
// For those who stand in for open(2).
#pragma once

#include <fcntl.h>
#include <sys/types.h>

#include <cstdarg>

namespace vorn::test {

// The mode, which is given only where a file may be made; otherwise 0.
inline mode_t openMode(int flags, std::va_list arguments)
{
    // O_TMPFILE has a bit of O_DIRECTORY in it.
    const bool makesFile = (flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE;
    return makesFile ? va_arg(arguments, mode_t) : 0;
}

} // namespace vorn::test
