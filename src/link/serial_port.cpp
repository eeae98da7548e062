// SPDX-License-Identifier: Apache-2.0
// The serial half of the link: a tty through the old-style terminal record.
#include "link/byte_stream.h"
#include "link/medium.h"
#include "link/retry.h"
#include "link/waiting.h"
#include "public/console.h"

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

struct termio _vr_tbuf; // the settings being applied

// As the tty was found, put back at close: the record, and the control modes that it has no room for (hardware flow
// control, an input speed of its own).
struct FoundSettings {
    struct termio _vr_tsavebuf;
    tcflag_t upperControl;
    bool changed; // there is something to put back
};
FoundSettings found;

constexpr tcflag_t kUpperControl = ~tcflag_t{0xFFFF};

// ---------------------------------------------------------------- settings

template <class Argument>
int request(int descriptor, unsigned long what, Argument argument)
{
    return uninterrupted([&] { return ioctl(descriptor, what, argument); });
}

// False: the line takes nothing any more, an adapter hangs or the other end holds it up.
bool drained(int descriptor)
{
    int before = 0;
    std::int64_t lastProgress = monotonicMilliseconds();
    for (;; pauseFor(kPollUs)) {
        int waiting = 0;
        if (request(descriptor, TIOCOUTQ, &waiting) < 0 || waiting == 0) {
            return true;
        }
        const std::int64_t now = monotonicMilliseconds();
        if (waiting < before) {
            lastProgress = now;
        } else if (now - lastProgress >= kStallMs) {
            return false;
        }
        before = waiting;
    }
}

// TCSETAF waits without a bound until all output is sent, so that is not left to it.
int apply(int descriptor, const struct termio& settings)
{
    if (drained(descriptor)) {
        return request(descriptor, TCSETAF, &settings);
    }
    request(descriptor, TCFLSH, TCIOFLUSH);
    return request(descriptor, TCSETA, &settings);
}

tcflag_t upperControlOf(int descriptor)
{
    struct termios modern {};
    return tcgetattr(descriptor, &modern) == 0 ? modern.c_cflag & kUpperControl : 0;
}

void setUpperControl(int descriptor, tcflag_t upper)
{
    struct termios modern {};
    if (tcgetattr(descriptor, &modern) == 0) {
        modern.c_cflag = (modern.c_cflag & ~kUpperControl) | upper;
        uninterrupted([&] { return tcsetattr(descriptor, TCSANOW, &modern); });
    }
}

int putBackFoundSettings(int descriptor)
{
    const int result = apply(descriptor, found._vr_tsavebuf);
    if (found.upperControl != 0) {
        const int error = errno;
        setUpperControl(descriptor, found.upperControl);
        errno = error;
    }
    return result;
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

// Reads the settings to be changed, and keeps those to be put back. A tty that is taken over is already changed.
bool readSettings(int descriptor)
{
    struct termio first {};
    if (request(descriptor, TCGETA, &_vr_tbuf) < 0 || request(descriptor, TCGETA, &first) < 0) {
        return false;
    }
    if (!found.changed) {
        found._vr_tsavebuf = first;
        found.upperControl = upperControlOf(descriptor);
    }
    return true;
}

int applySpeed(int descriptor, const Speed& speed)
{
    _vr_tbuf.c_cflag = controlModes(speed);
    return apply(descriptor, _vr_tbuf);
}

// ---------------------------------------------------------------- the descriptor

void forgetTty()
{
    found.changed = false;
    linkStream.forget();
}

void closeTty(int descriptor)
{
    close(descriptor);
    if (descriptor == linkStream.descriptor()) {
        forgetTty();
    }
}

void releaseSerial()
{
    if (!linkStream.isOpen()) {
        return;
    }
    const int descriptor = linkStream.descriptor();
    if (linkStream.isFile(descriptor)) {
        if (found.changed) {
            putBackFoundSettings(descriptor);
        }
        close(descriptor);
    }
    forgetTty();
}

void closeSerial(int handle)
{
    if (putBackFoundSettings(handle) < 0) {
        printError("ioctl:");
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
    return uninterrupted([&] { return open(path, O_RDWR | O_NONBLOCK | O_NOCTTY | O_CLOEXEC); });
}

// Puts the new descriptor in the place of a link left open. The old one is closed only now: a line that is opened again
// keeps its modem signals up, and the settings that it was found with at first.
bool replaceLeftOpen(int descriptor)
{
    const int old = linkStream.descriptor();
    if (found.changed && linkStream.isFile(old) && linkStream.isFile(descriptor)) {
        close(old);
    } else {
        releaseSerial();
    }
    return linkStream.adopt(descriptor);
}

int openOrReplace(const char* name, std::size_t length)
{
    int descriptor = openTty(name, length);
    if (descriptor < 0 && linkStream.isOpen()) {
        releaseSerial(); // which may have been what stood in the way
        descriptor = openTty(name, length);
    }
    if (descriptor >= 0 && !replaceLeftOpen(descriptor)) {
        close(descriptor); // a tty that could not be told from another file later on
        return -1;
    }
    return descriptor;
}

bool takesSerial(int mode, const char*) { return mode == 0; }

// On two of the failures the descriptor stays open; the next opening finds it in the stream.
int openSerial(char* param)
{
    const char* colon = param == nullptr ? nullptr : std::strchr(param, ':');
    if (colon == nullptr) {
        releaseSerial();
        return -1;
    }
    const int descriptor = openOrReplace(param, static_cast<std::size_t>(colon - param));
    if (descriptor < 0 || !readSettings(descriptor)) {
        return -1;
    }
    makeRaw(_vr_tbuf);
    if (std::strchr(colon + 1, ',') == nullptr) {
        releaseSerial();
        return -1;
    }
    const Speed* speed = speedOf(std::atoi(colon + 1));
    if (speed == nullptr) {
        if (found.changed) {
            putBackFoundSettings(descriptor);
            found.changed = false;
        }
        return -1;
    }
    if (found.upperControl != 0) {
        setUpperControl(descriptor, 0);
    }
    if (applySpeed(descriptor, *speed) < 0) {
        releaseSerial();
        return -1;
    }
    found.changed = true;
    return descriptor;
}

void dropReceivedSerial(int handle)
{
    streamOf(handle).beginCommand();
    request(handle, TCFLSH, TCIFLUSH);
}

} // namespace

extern const Medium serialMedium;
const Medium serialMedium = {
    takesSerial,         openSerial,         true,        writeStream,  readFrameOfStream, readStreamUntilSilence,
    readIdFrameOfStream, dropReceivedSerial, closeSerial, releaseSerial};

} // namespace vorn

using namespace vorn;

extern "C" int Set_baud(int fd, int speed)
{
    const Speed* known = speedOf(speed);
    if (known == nullptr) {
        return -1;
    }
    if (applySpeed(fd, *known) < 0) {
        closeTty(fd);
        return -1;
    }
    streamOf(fd).dropReadAhead(); // what the tty had received is dropped, too
    return 0;
}
