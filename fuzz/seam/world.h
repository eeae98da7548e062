// SPDX-License-Identifier: Apache-2.0
// All that the library meets outside itself, in memory: one tty or USB device, a clock that nobody waits for, and log
// files that go nowhere. The library's calls of the system come here by symbols.txt.
#pragma once

#include "public/bytes.h"

#include <cstdint>
#include <string>
#include <vector>

namespace vorn::fuzz {

// What is at the other end of the line. It answers with say().
class Peer {
public:
    virtual ~Peer() = default;
    virtual void receive(ByteView bytes) = 0;
};

// Starts over: nothing open, nothing on the line, no refusals, the same time of day. NULL: nobody listens.
void beginWorld(Peer* peer);

// Puts bytes on the line: they can be read so long after the ones before them. Over USB this is one packet.
void say(ByteView bytes, unsigned afterMs = 0);

// When the line has been silent for a while, these bytes come for ever. For readers that wait without an end.
void fillSilence(ByteView bytes);

// What the system refuses: the n-th call of a kind, counted from 1; 0 for none. With `interrupted` the call fails as one
// that a signal ended, and writing takes half of the bytes first.
enum class Operation { Open, Settings, Read, Write, Count };
void refuse(Operation operation, unsigned nth, bool interrupted);

// What the library writes to its log files is also appended to this text; NULL: it is dropped.
void keepLog(std::string* log);

unsigned openDescriptors(); // ttys and USB devices that the library holds

// ------------------------------------------------------------ USB

struct UsbInterface {
    std::vector<std::vector<std::uint8_t>> settings; // endpoint addresses of each alternate setting
};
struct UsbDevice {
    std::uint16_t vendor = 0x3A5C;
    std::uint16_t product = 0x7E21;
    std::vector<UsbInterface> interfaces;
    bool withoutDescriptor = false;
    bool withoutConfiguration = false;
    bool withDriver = false;
    bool unclaimable = false;
};
void attach(UsbDevice device);
UsbDevice readerOnUsb();                                      // one endpoint out, one in
void breakTransfer(unsigned nth, int error, int transferred); // the n-th transfer ends like this

} // namespace vorn::fuzz
