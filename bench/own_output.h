// SPDX-License-Identifier: Apache-2.0
// The library prints for developers, on the standard output; a table goes where that went, and the library's words
// nowhere.
#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <stdexcept>

namespace vorn::bench {

class OwnOutput {
public:
    OwnOutput()
    {
        std::fflush(stdout);
        const int kept = dup(STDOUT_FILENO);
        const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
        if (kept < 0 || nowhere < 0 || dup2(nowhere, STDOUT_FILENO) < 0 || dup2(nowhere, STDERR_FILENO) < 0) {
            throw std::runtime_error("no output of its own");
        }
        close(nowhere);
        file_ = fdopen(kept, "w");
    }
    ~OwnOutput() { std::fclose(file_); }
    OwnOutput(const OwnOutput&) = delete;
    OwnOutput& operator=(const OwnOutput&) = delete;

    __attribute__((format(printf, 2, 3))) void print(const char* format, ...)
    {
        std::va_list arguments;
        va_start(arguments, format);
        std::vfprintf(file_, format, arguments);
        va_end(arguments);
        std::fflush(file_);
    }

private:
    std::FILE* file_ = nullptr;
};

} // namespace vorn::bench
