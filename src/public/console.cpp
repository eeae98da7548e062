// SPDX-License-Identifier: Apache-2.0
#include "public/console.h"

#include "public/quiet_signals.h"

#include <cstdarg>
#include <cstdio>

namespace vorn {

void print(const char* format, ...)
{
    QuietSignals quiet;
    std::va_list arguments;
    va_start(arguments, format);
    std::vprintf(format, arguments);
    va_end(arguments);
    std::fflush(stdout); // left in the stream, the text would meet the closed pipe in the host's own next write
    if (std::ferror(stdout) != 0) {
        quiet.failed();
    }
}

void printError(const char* text)
{
    QuietSignals quiet;
    std::perror(text);
    quiet.failed(); // it does not say
}

} // namespace vorn
