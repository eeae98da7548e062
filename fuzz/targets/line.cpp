// SPDX-License-Identifier: Apache-2.0
// Bytes on the line as they come, in any cut: every reading function of the link, over a tty and over USB.
#include "support/calls.h"

#include "vorn/convert.h"

using namespace vorn;
using namespace vorn::fuzz;

namespace {

// What comes after a command, cut into pieces with pauses between them. Each command gets some of them.
class RawLine final : public Peer {
public:
    explicit RawLine(Input& input) : input_(input) {}

    void receive(ByteView) override
    {
        const unsigned pieces = input_.byte() & 0x07;
        for (unsigned i = 0; i < pieces; ++i) {
            piece();
        }
    }

    void everything()
    {
        while (!input_.atEnd()) {
            piece();
        }
    }

private:
    void piece()
    {
        static constexpr unsigned kPausesMs[] = {0, 0, 0, 10, 60, 250, 1100, 3100};
        const std::uint8_t head = input_.byte();
        say(input_.take(head >> 3 != 0 ? head >> 3 : 64), kPausesMs[head & 0x07]);
    }

    Input& input_;
};

void readFrame(int handle, Input& input)
{
    const int max = static_cast<int>(input.word() % 1001);
    const std::uint8_t start = input.byte();
    const std::uint8_t end = input.byte();
    RawLine(input).everything();
    Output buffer(static_cast<std::size_t>(max) + 1);
    const int count = ReadBytes_Ex(handle, buffer.bytes(), max, start, end, 3);
    require(count <= max + 1 && count != 0 && count >= -5, "the result of ReadBytes_Ex");
}

void readText(int handle, Input& input)
{
    RawLine(input).everything();
    Output buffer(VORN_READSTR_CAPACITY);
    const int count = _VRDK_Readstr(handle, buffer.bytes(), 2);
    require(count == -1 || (count > 0 && count <= VORN_READSTR_CAPACITY), "the result of _VRDK_Readstr");
}

// A tty is waited for without an end, so a frame comes in the end.
void readIdFrame(int handle, Input& input)
{
    static constexpr std::uint8_t kFrame[] = {0xAA, 0xAA, 0xAA, 0x96, 0x69, 0x00, 0x01, 0x00};
    RawLine(input).everything();
    fillSilence(ByteView(kFrame, sizeof kFrame));
    Output buffer(VORN_ID2_CAPACITY);
    const int count = _VRDK_ID2_Readstr(handle, buffer.bytes(), 2);
    require(count == -1 || (count >= 8 && count <= VORN_ID2_CAPACITY), "the result of _VRDK_ID2_Readstr");
}

void exchange(Input& input)
{
    for (int i = 0; i < 4; ++i) {
        const Exact command(input.counted());
        Output out(VORN_PAYLOAD_MAX);
        int length = -7;
        const int result = trans_icc_cmd(command.data(), command.size(), out.bytes(), &length);
        requireResult(result, {VORN_OK, VORN_READER_NO_CARD, VORN_READER_REFUSED, VORN_NO_REPLY});
        require(result == VORN_NO_REPLY ? length == -7 : length >= 0 && length <= VORN_PAYLOAD_MAX, "a reply's length");
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    Input input(data, size);
    RawLine line(input);
    beginWorld(&line);
    const std::uint8_t how = input.byte();
    const bool usb = (how & 0x04) != 0;
    attach(readerOnUsb());
    Text serial(ByteView(reinterpret_cast<const std::uint8_t*>("ttyS1:9600,N"), 12));
    Text usbName(ByteView(reinterpret_cast<const std::uint8_t*>("VID_3A5C&PID_7E21"), 17));
    vr_comportmode = usb ? 1 : 0;
    vrdk03com_handle = OpenDev(vr_comportmode, usb ? usbName.writable() : serial.writable());
    switch (how & 0x03) {
    case 0:
        readFrame(vrdk03com_handle, input);
        break;
    case 1:
        readText(vrdk03com_handle, input);
        break;
    case 2:
        readIdFrame(vrdk03com_handle, input);
        break;
    default:
        exchange(input);
        break;
    }
    endOfCalls();
    return 0;
}
