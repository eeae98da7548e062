// SPDX-License-Identifier: Apache-2.0
// The tool's own read, write and libusb_bulk_transfer come before those that the library was linked with: they pass
// every call on, and tell what it moved.
#include "tools/session/line_tap.h"

#include <dlfcn.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

struct libusb_device_handle;

namespace vorn::tool {

namespace {

int tap = -1;

template <class Function>
Function next(const char* name)
{
    Function function = nullptr;
    void* const symbol = ::dlsym(RTLD_NEXT, name);
    std::memcpy(&function, &symbol, sizeof function);
    return function;
}

void tell(TapRecord record, const void* bytes, ssize_t size)
{
    const auto* from = static_cast<const std::uint8_t*>(bytes);
    for (auto left = static_cast<std::size_t>(std::max<ssize_t>(size, 0)); left > 0;) {
        const std::size_t piece = std::min(left, kRecordMax);
        sendRecord(tap, record, from, piece);
        from += piece;
        left -= piece;
    }
}

// Of the descriptors that the worker has, only the reader's is a terminal.
void tellOfTerminal(TapRecord record, int descriptor, const void* bytes, ssize_t size)
{
    if (tap < 0 || size <= 0 || descriptor <= STDERR_FILENO) {
        return;
    }
    const int error = errno;
    if (::isatty(descriptor) == 1) {
        tell(record, bytes, size);
    }
    errno = error;
}

} // namespace

void tapLineTo(int socket) { tap = socket; }

void sendRecord(int socket, TapRecord record, const void* bytes, std::size_t size)
{
    std::array<std::uint8_t, 1 + kRecordMax> message{static_cast<std::uint8_t>(record)};
    size = std::min(size, kRecordMax);
    if (size > 0) {
        std::memcpy(message.data() + 1, bytes, size);
    }
    while (::send(socket, message.data(), 1 + size, MSG_NOSIGNAL) < 0 && errno == EINTR) {}
}

} // namespace vorn::tool

using vorn::tool::TapRecord;

extern "C" {

// Called before anything is set up, too: by then the kernel is asked directly.
ssize_t read(int descriptor, void* buffer, size_t size)
{
    static const auto passOn = vorn::tool::next<ssize_t (*)(int, void*, size_t)>("read");
    const ssize_t count =
        passOn != nullptr ? passOn(descriptor, buffer, size) : ::syscall(SYS_read, descriptor, buffer, size);
    vorn::tool::tellOfTerminal(TapRecord::Received, descriptor, buffer, count);
    return count;
}

ssize_t write(int descriptor, const void* bytes, size_t size)
{
    static const auto passOn = vorn::tool::next<ssize_t (*)(int, const void*, size_t)>("write");
    const ssize_t count =
        passOn != nullptr ? passOn(descriptor, bytes, size) : ::syscall(SYS_write, descriptor, bytes, size);
    vorn::tool::tellOfTerminal(TapRecord::Sent, descriptor, bytes, count);
    return count;
}

int libusb_bulk_transfer(libusb_device_handle* device, unsigned char endpoint, unsigned char* data, int length,
                         int* transferred, unsigned timeout)
{
    constexpr unsigned kIn = 0x80;
    constexpr int kNotSupported = -12;
    using Transfer = int (*)(libusb_device_handle*, unsigned char, unsigned char*, int, int*, unsigned);
    static const auto passOn = vorn::tool::next<Transfer>("libusb_bulk_transfer");
    int moved = 0;
    const int result = passOn == nullptr ? kNotSupported : passOn(device, endpoint, data, length, &moved, timeout);
    if (transferred != nullptr) {
        *transferred = moved;
    }
    if (vorn::tool::tap >= 0) {
        vorn::tool::tell((endpoint & kIn) != 0 ? TapRecord::Received : TapRecord::Sent, data, moved);
    }
    return result;
}

} // extern "C"
