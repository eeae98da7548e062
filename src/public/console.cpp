// SPDX-License-Identifier: Apache-2.0
#include "public/console.h"

#include "public/quiet_signals.h"

#include <cstdarg>
#include <cstdio>

namespace vorn {

void print(const char* format, ...)
{
    const QuietSignals quiet;
    std::va_list arguments;
    va_start(arguments, format);
    std::vprintf(format, arguments);
    va_end(arguments);
    std::fflush(stdout); // left in the stream, the text would meet the closed pipe in the host's own next write
}

void printError(const char* text)
{
    const QuietSignals quiet;
    std::perror(text);
}

} // namespace vorn
