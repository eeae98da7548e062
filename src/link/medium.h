// SPDX-License-Identifier: Apache-2.0
// The seam between the reader's protocol and what carries its bytes.
#pragma once

#include <climits>

#include <cstdint>

namespace vorn {

struct Medium {
    void (*write)(int handle, const std::uint8_t* bytes, int count);
    int (*readFrame)(int handle, std::uint8_t* buffer, int max, std::uint8_t start, std::uint8_t end, int timeoutS);
    int (*readUntilSilence)(int handle, std::uint8_t* buffer, int capacity, int timeoutS);
    int (*readIdFrame)(int handle, std::uint8_t* buffer, int timeoutS);
    void (*close)(int handle);
    // Gives back, without a word, what an earlier opening left open.
    void (*release)();
};

extern const Medium serialMedium;
extern const Medium usbMedium;

// Both return what OpenDev returns.
int openSerial(const char* param);
int openUsb(char* param);

// The medium of the open link.
const Medium& currentMedium();

// A caller's seconds, without overflow.
inline int millisecondsOf(int seconds) { return seconds > INT_MAX / 1000 ? INT_MAX : seconds < 0 ? 0 : seconds * 1000; }

// _VRDK_Readstr into a buffer of known size.
int readUntilSilence(int handle, std::uint8_t* buffer, int capacity, int timeoutS);

} // namespace vorn
