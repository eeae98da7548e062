// SPDX-License-Identifier: Apache-2.0
// The exchanges between library and reader, from the bytes on the line.
#pragma once

#include "sim/data/bytes.h"
#include "tools/session/line_tap.h"

#include <functional>
#include <string>
#include <vector>

namespace vorn::tool {

using sim::Bytes;

// The reader's operations: the second byte of a command.
enum class Operation : std::uint8_t {
    PowerOn = 0x22,
    PowerOff = 0x23,
    Activate = 0x24,
    Deactivate = 0x25,
    Apdu = 0x26,
    ActivateMemory = 0x41,
    Authenticate = 0x42,
    ReadBlock = 0x43,
    WriteBlock = 0x44
};

struct LineExchange {
    enum class Reply {
        Whole,   // status and payload say what it was
        Damaged, // a frame with a wrong length, check or character, or without its end
        None,    // nothing came
        Echo,    // what had been sent came back
        Foreign  // bytes came, and no frame among them
    };
    Bytes command; // as the reader takes it: 32 26 00 00 A4 ...
    Reply reply = Reply::None;
    unsigned status = 0;
    Bytes payload;

    Operation operation() const { return static_cast<Operation>(command.size() > 1 ? command[1] : 0); }
    bool of(Operation wanted) const { return operation() == wanted; }
    bool isOk() const { return reply == Reply::Whole && status == 0; }
    bool saysNoCard() const { return reply == Reply::Whole && (status == 0x02 || status == 0x06); }
    Bytes apdu() const; // empty: no APDU
};

// A frame is what stands between STX and ETX, two characters a byte, with its length and check.
struct LineFrame {
    bool whole = false;
    Bytes content;
};
LineFrame decodeFrame(const Bytes& characters);

class LineWatcher {
public:
    using Receiver = std::function<void(const LineExchange&)>;

    void onExchange(Receiver receiver) { receiver_ = std::move(receiver); }
    void begin(); // a call begins: what was seen before is forgotten
    void add(TapRecord record, const Bytes& bytes);
    // The call is over. What has not been answered by now is not answered any more; when the call was stopped nobody
    // knows, and the command is abandoned.
    void end(bool stopped);
    const Bytes& abandoned() const { return abandoned_; } // empty: none

    const std::vector<LineExchange>& exchanges() const { return exchanges_; }
    bool waiting() const { return waiting_; }          // a command is on its way
    const Bytes& strayBytes() const { return stray_; } // received while no command was under way
    const Bytes& rawSent() const { return sent_; }     // outside of frames

private:
    static constexpr std::size_t kMost = 65536; // bytes kept of a line that talks without an end
    void sent(const Bytes& bytes);
    void received(const Bytes& bytes);
    void finish();

    Receiver receiver_;
    std::vector<LineExchange> exchanges_;
    LineExchange current_;
    Bytes frameSent_; // characters of the command's frame, STX and ETX included
    Bytes reply_;
    Bytes stray_;
    Bytes sent_;
    Bytes abandoned_;
    bool inFrame_ = false;
    bool waiting_ = false;
};

} // namespace vorn::tool
