// SPDX-License-Identifier: Apache-2.0
// The other end of the USB redirection: whatever a virtual machine, or what connects in its place, sends. One guest is
// served without the port's thread and its socket, so the file itself is taken in.
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace {

const std::uint8_t* toGuest = nullptr;
std::size_t toGuestLeft = 0;

ssize_t fuzzReceive(int, void* out, std::size_t count, int)
{
    const std::size_t taken = std::min({count, toGuestLeft, std::size_t{512}});
    if (taken == 0) {
        return 0; // closed
    }
    std::memcpy(out, toGuest, taken);
    toGuest += taken;
    toGuestLeft -= taken;
    return static_cast<ssize_t>(taken);
}

ssize_t fuzzSend(int, const void*, std::size_t count, int) { return static_cast<ssize_t>(count); }
int fuzzClose(int) { return 0; }

} // namespace

#define recv  fuzzReceive
#define send  fuzzSend
#define close fuzzClose
#include "sim/reader/usb_redir_port.cpp"
#undef recv
#undef send
#undef close

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    toGuest = data;
    toGuestLeft = size;
    vorn::sim::Reader reader([] { return std::chrono::milliseconds(0); });
    vorn::sim::Guest guest(reader, 900);
    for (int turn = 0; guest.connected() && turn < 4096; ++turn) {
        guest.read();
        guest.write();
        guest.dueIn();
    }
    return 0;
}
