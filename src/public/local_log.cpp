// SPDX-License-Identifier: Apache-2.0
#include "public/local_log.h"

#include "public/bytes.h"
#include "public/quiet_signals.h"

#include "vorn/convert.h"
#include "vorn/log.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>

char DbgString[512];

namespace {

using vorn::ByteView;

// Card data are for the host's user alone, whatever its umask. A file that is there keeps its mode, so that an operator
// can prepare it for a collector.
int openLog(const char* file)
{
    constexpr int kFlags = O_RDWR | O_APPEND | O_CLOEXEC;
    constexpr mode_t kMode = S_IRUSR | S_IWUSR;

    int descriptor = open(file, kFlags);
    if (descriptor == -1 && errno == ENOENT) {
        descriptor = open(file, kFlags | O_CREAT, kMode);
        if (descriptor != -1) {
            static_cast<void>(fchmod(descriptor, kMode));
        }
    }
    return descriptor;
}

// One entry: the file is open only while it is written, so that nothing is lost when the process dies.
class Entry {
public:
    explicit Entry(const char* file) : descriptor_(openLog(file)) {}
    ~Entry()
    {
        if (descriptor_ != -1) {
            close(descriptor_);
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

    // Without memory for the whole text its beginning is written.
    [[gnu::format(printf, 2, 0)]] void printList(const char* format, std::va_list arguments)
    {
        char beginning[1024];
        std::va_list again;
        va_copy(again, arguments);
        const int printed = std::vsnprintf(beginning, sizeof beginning, format, arguments);
        const std::size_t length = printed > 0 ? static_cast<std::size_t>(printed) : 0;
        char* whole = length < sizeof beginning ? nullptr : static_cast<char*>(std::malloc(length + 1));
        if (whole != nullptr) {
            std::vsnprintf(whole, length + 1, format, again);
            write(whole, length);
            std::free(whole);
        } else {
            write(beginning, length < sizeof beginning ? length : sizeof beginning - 1);
        }
        va_end(again);
    }

    void dump(ByteView bytes)
    {
        constexpr std::size_t kLine = 16;
        char text[64 * (3 * kLine + 1)]; // the longest reply of a reader at once
        std::size_t size = 0;
        if (bytes.size() > kLine) {
            text[size++] = '\n';
        }
        for (std::size_t i = 0; i < bytes.size(); ++i) {
            ConvAscii(bytes.data() + i, text + size, 1);
            size += 2;
            text[size++] = ' ';
            if (i % kLine == kLine - 1) {
                text[size++] = '\n';
            }
            if (size > sizeof text - kRoomForByte) {
                write(text, size);
                size = 0;
            }
        }
        text[size++] = '\n';
        write(text, size);
    }

private:
    static constexpr std::size_t kRoomForByte = 5; // digits, blank and line feeds

    void write(const char* text, std::size_t size) const
    {
        const vorn::QuietSignals quiet;
        while (descriptor_ != -1 && size > 0) {
            const ssize_t written = ::write(descriptor_, text, size);
            if (written > 0) {
                text += written;
                size -= static_cast<std::size_t>(written);
            } else if (errno != EINTR) {
                return;
            }
        }
    }

    int descriptor_;
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

void log_write_bcd(const unsigned char* data, int n) { Entry(VORN_TRACE_FILE).dump(vorn::viewOf(data, n)); }

void messLog_write_bcd(const unsigned char* data, int n) { Entry(VORN_SERVICE_FILE).dump(vorn::viewOf(data, n)); }

} // extern "C"

void messLog(char* text) { vorn::logService("%s", vorn::textOf(text)); }
