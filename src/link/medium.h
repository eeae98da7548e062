// SPDX-License-Identifier: Apache-2.0
// The seam between the reader's protocol and what carries its bytes.
//
// A new medium is a file that defines its Medium, and a row in vrdk_commdrv.cpp. Hosts name it as they name a tty, by a
// port text: it comes as a parameter of mode 0, the text with ":9600,N,8,1" behind it. What has no packets shares
// byte_stream.h.
#pragma once

#include <climits>

#include <cstdint>

namespace vorn {

struct Medium {
    // Is this parameter of OpenDev one of its own? The first row that says so opens it.
    bool (*takes)(int mode, const char* param);
    // Returns what OpenDev returns. What an earlier opening of the same medium left open is replaced, or given back when
    // this one fails.
    int (*open)(char* param);
    // Does a line with a speed lead to the reader? Such a reader is switched to its working speed and back.
    bool hasLineSpeed;
    // Sends all the bytes, or as many as can be: it goes on after a write that took a part of them and after a signal,
    // has an end when nothing is taken any more, and no reader that went away may end the host (a socket raises SIGPIPE
    // unless told not to). Nothing is reported: a reader that did not get its command does not answer.
    void (*write)(int handle, const std::uint8_t* bytes, int count);
    // What ReadBytes_Ex, _VRDK_Readstr (into a buffer of known size) and _VRDK_ID2_Readstr return.
    int (*readFrame)(int handle, std::uint8_t* buffer, int max, std::uint8_t start, std::uint8_t end, int timeoutS);
    int (*readUntilSilence)(int handle, std::uint8_t* buffer, int capacity, int timeoutS);
    int (*readIdFrame)(int handle, std::uint8_t* buffer, int timeoutS);
    // Before a command: what has come by now, and what comes before the command is out, is no answer to it.
    void (*dropReceived)(int handle);
    void (*close)(int handle);
    // Gives back, without a word, what an earlier opening left open.
    void (*release)();
};

// The medium of the open link.
const Medium& currentMedium();

// A caller's seconds, without overflow.
inline int millisecondsOf(int seconds) { return seconds > INT_MAX / 1000 ? INT_MAX : seconds < 0 ? 0 : seconds * 1000; }

// _VRDK_Readstr into a buffer of known size.
int readUntilSilence(int handle, std::uint8_t* buffer, int capacity, int timeoutS);

} // namespace vorn
