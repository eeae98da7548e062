// SPDX-License-Identifier: Apache-2.0
#include "public/local_log.h"

#include "public/bytes.h"
#include "public/quiet_signals.h"

#include "vorn/log.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <iterator>

char DbgString[512];

namespace {

using vorn::ByteView;
using vorn::QuietSignals;

constexpr std::size_t kDumpLine = 16;

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

// Two digits and a blank a byte; a line of 16 is ended. Returns the end.
char* putDumpLine(char* text, ByteView line)
{
    constexpr char kDigits[] = "0123456789ABCDEF";
    for (std::size_t i = 0; i < line.size(); ++i) {
        *text++ = kDigits[line[i] >> 4];
        *text++ = kDigits[line[i] & 0x0F];
        *text++ = ' ';
    }
    if (line.size() == kDumpLine) {
        *text++ = '\n';
    }
    return text;
}

// One entry: the file is open only while it is written, so that nothing is lost when the process dies.
class Entry {
public:
    Entry(const char* file, QuietSignals& quiet) : descriptor_(openLog(file)), quiet_(quiet) {}
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
            write(whole, whole + length);
            std::free(whole);
        } else {
            write(beginning, beginning + (length < sizeof beginning ? length : sizeof beginning - 1));
        }
        va_end(again);
    }

    void dump(ByteView bytes)
    {
        constexpr std::ptrdiff_t kRoom = 3 * kDumpLine + 2; // a line, and the line feed at the end
        char text[32 * kRoom];                              // the longest reply of a reader at once
        char* end = text;
        if (bytes.size() > kDumpLine) {
            *end++ = '\n';
        }
        for (; !bytes.empty(); bytes = bytes.from(kDumpLine)) {
            if (std::end(text) - end < kRoom) {
                write(text, end);
                end = text;
            }
            end = putDumpLine(end, bytes.first(kDumpLine));
        }
        *end++ = '\n';
        write(text, end);
    }

private:
    void write(const char* text, const char* end)
    {
        while (descriptor_ != -1 && text != end) {
            const ssize_t written = ::write(descriptor_, text, static_cast<std::size_t>(end - text));
            if (written > 0) {
                text += written;
            } else if (errno != EINTR) {
                quiet_.failed();
                return;
            }
        }
    }

    int descriptor_;
    QuietSignals& quiet_;
};

void dumpInto(const char* file, const unsigned char* data, int n)
{
    QuietSignals quiet;
    Entry(file, quiet).dump(vorn::viewOf(data, n));
}

} // namespace

namespace vorn {

void logService(const char* format, ...)
{
    std::va_list arguments;
    va_start(arguments, format);
    QuietSignals quiet;
    Entry(VORN_SERVICE_FILE, quiet).printList(format, arguments);
    va_end(arguments);
}

void logExchange(const char* marker, ByteView command, ByteView answer)
{
    QuietSignals quiet; // once for the four
    Entry(VORN_SERVICE_FILE, quiet).print("Indata----------------------%s\n", marker);
    Entry(VORN_SERVICE_FILE, quiet).dump(command);
    Entry(VORN_SERVICE_FILE, quiet).print("Outdata----------------------%s\n", marker);
    Entry(VORN_SERVICE_FILE, quiet).dump(answer);
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

void log_write(const char* text)
{
    QuietSignals quiet;
    Entry(VORN_TRACE_FILE, quiet).print("%s\r\n", vorn::textOf(text));
}

void log_num(int n)
{
    QuietSignals quiet;
    Entry(VORN_TRACE_FILE, quiet).print("%d", n);
}

void log_write_bcd(const unsigned char* data, int n) { dumpInto(VORN_TRACE_FILE, data, n); }

void messLog_write_bcd(const unsigned char* data, int n) { dumpInto(VORN_SERVICE_FILE, data, n); }

} // extern "C"

void messLog(char* text) { vorn::logService("%s", vorn::textOf(text)); }
