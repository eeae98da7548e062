// SPDX-License-Identifier: Apache-2.0
// Also stands in for what the link uses of the library's own logs and console (src/public/local_log.h, console.h): a
// daemon writes no card data into files of its working directory, and its standard output is not ours.
#include "ifd/daemon_log.h"

#include "public/console.h"
#include "public/local_log.h"

extern "C" {
#include <debuglog.h>
}

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>

// The daemon's own; whoever else loads the driver has none.
#pragma weak log_msg

namespace vorn {
namespace {

constexpr std::size_t kLineMax = 256;

[[gnu::format(printf, 2, 0)]] void write(int priority, const char* format, std::va_list arguments)
{
    char line[kLineMax];
    if (log_msg != nullptr && std::vsnprintf(line, sizeof line, format, arguments) > 0) {
        log_msg(priority, "vorn: %s", line);
    }
}

} // namespace

namespace ifd {

void logNote(const char* format, ...)
{
    std::va_list arguments;
    va_start(arguments, format);
    write(PCSC_LOG_INFO, format, arguments);
    va_end(arguments);
}

void logProblem(const char* format, ...)
{
    std::va_list arguments;
    va_start(arguments, format);
    write(PCSC_LOG_ERROR, format, arguments);
    va_end(arguments);
}

} // namespace ifd

void print(const char*, ...) {}

void printError(const char* text)
{
    const char* const cause = std::strerror(errno);
    const int length = static_cast<int>(std::strcspn(text, ":\n"));
    ifd::logProblem("%.*s: %s", length, text, cause);
}

void logExchange(const char*, ByteView, ByteView) {}

} // namespace vorn
