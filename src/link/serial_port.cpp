// SPDX-License-Identifier: Apache-2.0
// The serial half of the link: a tty through the old-style terminal record.
#include "link/id_frame.h"
#include "link/medium.h"
#include "link/waiting.h"

#include "vorn/link.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace vorn {
namespace {

using Flags = unsigned short; // one mode word of struct termio

constexpr int kWritePiece = 128;
constexpr int kPollUs = 1000;
constexpr int kSilenceMs = 50;
constexpr int kIdFrameByteMs = 200;

struct Speed {
    int bitsPerSecond;
    Flags code;
};
constexpr Speed kSpeeds[] = {
    {1200, B1200}, {2400, B2400}, {4800, B4800}, {9600, B9600}, {19200, B19200}, {38400, B38400}, {115200, B115200},
};

const Speed* speedOf(int bitsPerSecond)
{
    for (const Speed& speed : kSpeeds) {
        if (speed.bitsPerSecond == bitsPerSecond) {
            return &speed;
        }
    }
    return nullptr;
}

Flags controlModes(const Speed& speed) { return static_cast<Flags>(CREAD | CLOCAL | CS8 | speed.code); }

struct termio _vr_tbuf;     // the settings being applied
struct termio _vr_tsavebuf; // those read at open, put back at close

// What this unit has open. The file's name tells whether a descriptor left open is still the tty's: a host may have
// closed it itself, and its number may be another file's by now.
struct FileName {
    char text[128] = {};

    // Of a descriptor; empty when it is closed. A tty that is gone has a remark behind its name.
    explicit FileName(int descriptor)
    {
        char link[40];
        std::snprintf(link, sizeof link, "/proc/self/fd/%d", descriptor);
        [[maybe_unused]] const ssize_t ignored = readlink(link, text, sizeof text - 1);
        if (char* remark = std::strstr(text, " (deleted)")) {
            *remark = '\0';
        }
    }

    bool operator==(const FileName& other) const { return std::strcmp(text, other.text) == 0; }
};

struct OpenTty {
    int descriptor;
    FileName file;
    bool changed; // settings to put back
};
constexpr int kNothingOpen = -1;
OpenTty tty = {kNothingOpen, FileName(kNothingOpen), false};

void forgetTty() { tty.descriptor = kNothingOpen; }

void closeTty(int descriptor)
{
    close(descriptor);
    if (tty.descriptor == descriptor) {
        forgetTty();
    }
}

void releaseSerial()
{
    if (tty.descriptor < 0) {
        return;
    }
    if (FileName(tty.descriptor) == tty.file) {
        if (tty.changed) {
            ioctl(tty.descriptor, TCSETAF, &_vr_tsavebuf);
        }
        close(tty.descriptor);
    }
    forgetTty();
}

void closeSerial(int handle)
{
    if (ioctl(handle, TCSETAF, &_vr_tsavebuf) < 0) {
        std::perror("ioctl:");
    }
    closeTty(handle);
}

// Opens /dev/ and the first `length` characters of `name`.
int openTty(const char* name, std::size_t length)
{
    char path[256];
    if (length >= sizeof path - sizeof "/dev/") {
        return -1;
    }
    std::snprintf(path, sizeof path, "/dev/%.*s", static_cast<int>(length), name);
    return open(path, O_RDWR | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
}

// Raw bytes, no waiting in read; output modes and line discipline stay as they were.
void makeRaw(struct termio& settings)
{
    settings.c_lflag = static_cast<Flags>(settings.c_lflag & 0xFFE4);
    settings.c_cc[VMIN] = 0;
    settings.c_cc[VTIME] = 0;
    settings.c_cflag = CREAD | CLOCAL;
    settings.c_iflag = static_cast<Flags>(settings.c_iflag & 0xFACD);
}

// One byte if there is one. VORN_BYTE_TIMEOUT says that there is none.
int byteNow(int descriptor)
{
    std::uint8_t byte = 0;
    return read(descriptor, &byte, 1) == 1 ? int{byte} : int{VORN_BYTE_TIMEOUT};
}

void writeSerial(int handle, const std::uint8_t* bytes, int count)
{
    // A reader that does not take the bytes shows itself by not answering; nothing is done about it here.
    const auto send = [handle](const std::uint8_t* piece, int size) {
        [[maybe_unused]] const ssize_t ignored = write(handle, piece, static_cast<std::size_t>(size));
    };
    for (; count > kWritePiece; bytes += kWritePiece, count -= kWritePiece) {
        send(bytes, kWritePiece);
    }
    send(bytes, count);
}

int readFrameSerial(int handle, std::uint8_t* buffer, int max, std::uint8_t start, std::uint8_t end, int timeoutS)
{
    const int timeoutMs = millisecondsOf(timeoutS);
    int byte = 0;
    do {
        byte = comm_read_adata(handle, timeoutMs);
        if (byte == VORN_BYTE_TIMEOUT) {
            return -1;
        }
    } while (byte != start);

    int count = 0;
    buffer[count++] = start;
    while (count <= max) {
        byte = comm_read_adata(handle, timeoutMs);
        if (byte == VORN_BYTE_TIMEOUT) {
            return -1;
        }
        buffer[count++] = static_cast<std::uint8_t>(byte);
        if (byte == end) {
            return count;
        }
    }
    return -1;
}

int readUntilSilenceSerial(int handle, std::uint8_t* buffer, int capacity, int timeoutS)
{
    int count = 0;
    int byte = comm_read_adata(handle, millisecondsOf(timeoutS));
    while (byte != VORN_BYTE_TIMEOUT && count < capacity) {
        buffer[count++] = static_cast<std::uint8_t>(byte);
        byte = count < capacity ? comm_read_adata(handle, kSilenceMs) : int{VORN_BYTE_TIMEOUT};
    }
    return count > 0 ? count : -1;
}

int readIdFrameSerial(int handle, std::uint8_t* buffer, int timeoutS)
{
    IdFrameScanner scanner(buffer);
    int byte = comm_read_adata(handle, millisecondsOf(timeoutS));
    if (byte == VORN_BYTE_TIMEOUT) {
        return -1;
    }
    for (;; byte = comm_read_adata(handle, kIdFrameByteMs)) {
        // Silence counts as a byte before the body: it breaks a preamble, and stands in for a length byte.
        if (!scanner.inBody()) {
            scanner.header(static_cast<std::uint8_t>(byte & 0xFF));
        } else if (byte != VORN_BYTE_TIMEOUT) {
            scanner.body(static_cast<std::uint8_t>(byte));
            if (scanner.bodyLeft() <= 0) {
                return scanner.count();
            }
        }
    }
}

} // namespace

const Medium serialMedium = {writeSerial,       readFrameSerial, readUntilSilenceSerial,
                             readIdFrameSerial, closeSerial,     releaseSerial};

int openSerial(const char* param)
{
    const char* colon = param == nullptr ? nullptr : std::strchr(param, ':');
    if (colon == nullptr) {
        return -1;
    }
    const int descriptor = openTty(param, static_cast<std::size_t>(colon - param));
    if (descriptor < 0) {
        return -1;
    }
    // On the two failures that leave the descriptor open, the next opening finds it here.
    tty = OpenTty{descriptor, FileName(descriptor), false};
    if (ioctl(descriptor, TCGETA, &_vr_tbuf) < 0 || ioctl(descriptor, TCGETA, &_vr_tsavebuf) < 0) {
        return -1;
    }
    makeRaw(_vr_tbuf);
    if (std::strchr(colon + 1, ',') == nullptr) {
        closeTty(descriptor);
        return -1;
    }
    const Speed* speed = speedOf(std::atoi(colon + 1));
    if (speed == nullptr) {
        return -1;
    }
    _vr_tbuf.c_cflag = controlModes(*speed);
    if (ioctl(descriptor, TCSETAF, &_vr_tbuf) < 0) {
        closeTty(descriptor);
        return -1;
    }
    tty.changed = true;
    return descriptor;
}

} // namespace vorn

using namespace vorn;

extern "C" {

int Set_baud(int fd, int speed)
{
    const Speed* known = speedOf(speed);
    if (known == nullptr) {
        return -1;
    }
    _vr_tbuf.c_cflag = controlModes(*known);
    if (ioctl(fd, TCSETAF, &_vr_tbuf) < 0) {
        closeTty(fd);
        return -1;
    }
    return 0;
}

int comm_read_adata(int fd, int timeoutMs)
{
    const std::int64_t start = monotonicMilliseconds();
    while (monotonicMilliseconds() - start < timeoutMs) {
        const int byte = byteNow(fd);
        if (byte != VORN_BYTE_TIMEOUT) {
            return byte;
        }
        pauseFor(kPollUs);
    }
    return VORN_BYTE_TIMEOUT;
}

} // extern "C"
