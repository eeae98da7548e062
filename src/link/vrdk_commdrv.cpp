// SPDX-License-Identifier: Apache-2.0
// One link at a time, serial or USB: which of them is open is kept in m_portmode, not in the handle.
#include "link/byte_stream.h"
#include "link/medium.h"

#include "vorn/link.h"

#include <fcntl.h>
#include <sys/epoll.h>
#include <unistd.h>

int m_portmode = 0;

namespace vorn {

extern const Medium usbMedium;
extern const Medium serialMedium;

namespace {

// The first that takes a parameter opens it, and the serial line what is left.
constexpr const Medium* kMedia[] = {&usbMedium, &serialMedium};

// Of the media that are opened with mode 0, the one opened last.
const Medium* mediumOfModeZero = &serialMedium;

const Medium& mediumFor(int mode, const char* param)
{
    for (const Medium* medium : kMedia) {
        if (medium->takes(mode, param)) {
            return *medium;
        }
    }
    return serialMedium;
}

// Keeps a host's closed standard streams from becoming the link, to which its next printf would go. While the link is
// opened an epoll instance stands in for each of them: it needs no file, and nothing can be written to it.
class StandardStreams {
public:
    StandardStreams()
    {
        for (int stream = STDIN_FILENO; stream <= STDERR_FILENO; ++stream) {
            // The lowest free number is given out, so it is this one.
            standIn_[stream] = fcntl(stream, F_GETFD) == -1 && epoll_create1(EPOLL_CLOEXEC) == stream;
        }
    }
    ~StandardStreams()
    {
        for (int stream = STDIN_FILENO; stream <= STDERR_FILENO; ++stream) {
            if (standIn_[stream]) {
                close(stream);
            }
        }
    }
    StandardStreams(const StandardStreams&) = delete;
    StandardStreams& operator=(const StandardStreams&) = delete;

private:
    bool standIn_[STDERR_FILENO + 1] = {};
};

} // namespace

const Medium& currentMedium() { return m_portmode == 1 ? usbMedium : *mediumOfModeZero; }

int readUntilSilence(int handle, std::uint8_t* buffer, int capacity, int timeoutS)
{
    return currentMedium().readUntilSilence(handle, buffer, capacity, timeoutS);
}

} // namespace vorn

using namespace vorn;

extern "C" {

int OpenDev(int mode, char* param)
{
    const StandardStreams kept;
    const Medium& medium = mediumFor(mode, param);
    if (&medium != &currentMedium()) {
        currentMedium().release();
    }
    m_portmode = 0;
    mediumOfModeZero = mode == 0 ? &medium : &serialMedium;
    return medium.open(param);
}

void closeDev(int handle)
{
    const Medium& medium = currentMedium();
    m_portmode = 0;
    medium.close(handle);
}

int WriteBytes(int handle, const void* buf, int n)
{
    if (buf != nullptr && n >= 0) {
        currentMedium().write(handle, static_cast<const std::uint8_t*>(buf), n);
    }
    return n;
}

int comm_read_adata(int fd, int timeoutMs) { return streamOf(fd).next(timeoutMs); }

int ReadBytes_Ex(int handle, unsigned char* buf, int max, unsigned char start, unsigned char end, int timeoutS)
{
    return currentMedium().readFrame(handle, buf, max, start, end, timeoutS);
}

int _VRDK_Readstr(int handle, unsigned char* buf, int timeoutS)
{
    return readUntilSilence(handle, buf, VORN_READSTR_CAPACITY, timeoutS);
}

int _VRDK_ID2_Readstr(int handle, unsigned char* buf, int timeoutS)
{
    return currentMedium().readIdFrame(handle, buf, timeoutS);
}

} // extern "C"
