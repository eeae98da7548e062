// SPDX-License-Identifier: Apache-2.0
#include "public/local_log.h"

#include "vorn/log.h"

#include <cstdarg>
#include <cstdio>

char DbgString[512];

namespace {

constexpr int kDumpLine = 16;

// One entry: the file is open only while it is written, so that nothing is lost when the process dies.
class Entry {
public:
    explicit Entry(const char* file) : stream_(std::fopen(file, "a+")) {}
    ~Entry()
    {
        if (stream_ != nullptr) {
            std::fclose(stream_);
        }
    }
    Entry(const Entry&) = delete;
    Entry& operator=(const Entry&) = delete;

    [[gnu::format(printf, 2, 3)]] void print(const char* format, ...)
    {
        std::va_list arguments;
        va_start(arguments, format);
        printList(format, arguments);
        va_end(arguments);
    }

    [[gnu::format(printf, 2, 0)]] void printList(const char* format, std::va_list arguments)
    {
        if (stream_ != nullptr) {
            std::vfprintf(stream_, format, arguments);
            std::fflush(stream_);
        }
    }

    void dump(const unsigned char* data, int n)
    {
        if (stream_ == nullptr) {
            return;
        }
        if (n > kDumpLine) {
            std::fputc('\n', stream_);
        }
        int inLine = 0;
        for (int i = 0; i < n; ++i) {
            std::fprintf(stream_, "%02X ", unsigned{data[i]});
            if (++inLine == kDumpLine) {
                std::fputc('\n', stream_);
                inLine = 0;
            }
        }
        std::fputc('\n', stream_);
    }

private:
    std::FILE* stream_;
};

} // namespace

namespace vorn {

void logService(const char* format, ...)
{
    std::va_list arguments;
    va_start(arguments, format);
    Entry(VORN_SERVICE_FILE).printList(format, arguments);
    va_end(arguments);
}

void logTrace(const char* format, ...)
{
    std::va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(DbgString, sizeof DbgString, format, arguments);
    va_end(arguments);
    log_write(DbgString);
}

} // namespace vorn

extern "C" {

void log_write(const char* text) { Entry(VORN_TRACE_FILE).print("%s\r\n", vorn::textOf(text)); }

void log_num(int n) { Entry(VORN_TRACE_FILE).print("%d", n); }

void log_write_bcd(const unsigned char* data, int n) { Entry(VORN_TRACE_FILE).dump(data, n); }

void messLog_write_bcd(const unsigned char* data, int n) { Entry(VORN_SERVICE_FILE).dump(data, n); }

} // extern "C"

void messLog(char* text) { vorn::logService("%s", vorn::textOf(text)); }
