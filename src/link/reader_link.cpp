// SPDX-License-Identifier: Apache-2.0
// Opening and closing the link with the reader's own line protocol: the reader listens at 9600 baud until it is
// switched, works at 38400, and is switched back. The delays are part of that protocol.
#include "link/medium.h"
#include "link/waiting.h"

#include "vorn/link.h"

#include <cstddef>

int vrdk03com_handle = -1;
int vr_comportmode = 0;
char vr_comportparam[128] = {};

namespace {

constexpr int kRestSpeed = 9600;
constexpr int kWorkSpeed = 38400;

constexpr unsigned char kSwitchToWork[] = {0x1B, 0x24, 0x49, 0x32};        // ESC $ I 2
constexpr unsigned char kSwitchToRest[] = {0x1B, 0x24, 0x49, 0x34};        // ESC $ I 4
constexpr unsigned char kRestore[] = {0x1B, 0x24, 0x42, 0x1B, 0x25, 0x41}; // ESC $ B ESC % A

constexpr unsigned kAfterSwitchUs = 12000;
constexpr unsigned kAfterSpeedUs = 7000;
constexpr unsigned kAfterSwitchBackUs = 30000;
constexpr unsigned kAfterRestoreUs = 12000;
constexpr unsigned kAfterCloseUs = 3000;

template <std::size_t N>
void send(const unsigned char (&sequence)[N])
{
    WriteBytes(vrdk03com_handle, sequence, static_cast<int>(N));
}

// A descriptor whose speed cannot be set has been closed: its number must not be written to any more, it may soon be
// another file's.
void setSpeed(int speed)
{
    if (Set_baud(vrdk03com_handle, speed) != 0) {
        vrdk03com_handle = -1;
    }
}

// A link of mode 1 has none even if it could not be opened.
bool hasLineSpeed() { return vr_comportmode == 0 && vorn::currentMedium().hasLineSpeed; }

} // namespace

extern "C" {

int opdev()
{
    vrdk03com_handle = OpenDev(vr_comportmode, vr_comportparam);
    if (vrdk03com_handle == -1) {
        return VORN_OPEN_FAILED;
    }
    if (hasLineSpeed()) {
        send(kSwitchToWork);
        vorn::pauseFor(kAfterSwitchUs);
        setSpeed(kWorkSpeed);
        vorn::pauseFor(kAfterSpeedUs);
    }
    return VORN_OK;
}

int cldev()
{
    if (hasLineSpeed()) {
        send(kSwitchToRest);
        vorn::pauseFor(kAfterSwitchBackUs);
        setSpeed(kRestSpeed);
        send(kRestore);
        vorn::pauseFor(kAfterRestoreUs);
    }
    closeDev(vrdk03com_handle);
    vrdk03com_handle = -1;
    vorn::pauseFor(kAfterCloseUs);
    return VORN_OK;
}

} // extern "C"
