// SPDX-License-Identifier: Apache-2.0
// Whatever a USB device says of itself, and its packets: descriptors, alternate settings, endpoints, transfers that end
// early or fail.
#include "support/calls.h"
#include "support/readers.h"

#include <libusb-1.0/libusb.h>

using namespace vorn;
using namespace vorn::fuzz;

namespace {

UsbInterface interfaceOf(Input& input)
{
    UsbInterface made;
    for (unsigned settings = input.byte() % 4; settings > 0; --settings) {
        const ByteView addresses = input.take(input.byte() % 33);
        made.settings.emplace_back(addresses.data(), addresses.data() + addresses.size());
    }
    return made;
}

UsbDevice deviceOf(Input& input)
{
    UsbDevice device;
    const std::uint8_t how = input.byte();
    if ((how & 0x01) != 0) {
        device.vendor = static_cast<std::uint16_t>(input.word());
    }
    device.withDriver = (how & 0x02) != 0;
    device.withoutDescriptor = (how & 0x0C) == 0x04;
    device.withoutConfiguration = (how & 0x0C) == 0x08;
    device.unclaimable = (how & 0x30) == 0x10;
    for (unsigned interfaces = input.byte() % 33; interfaces > 0 && !input.atEnd(); --interfaces) {
        device.interfaces.push_back(interfaceOf(input));
    }
    return device;
}

void rawTransfers(Input& input)
{
    Output version(ICC_DEVICE_TEXT_CAPACITY);
    Output date(1);
    Output serial(1);
    requireResult(GetDevInfo("USB", version.text(), date.text(), serial.text()),
                  {VORN_OK, VORN_OPEN_FAILED, VORN_NO_REPLY});
    Text name(ByteView(reinterpret_cast<const std::uint8_t*>("VID_3A5C&PID_7E21"), 17));
    const int handle = OpenDev(1, name.writable());
    if (handle == -1) {
        return;
    }
    while (!input.atEnd() && input.left() > 1) {
        say(input.take(1U + (input.byte() & 0x3F)));
    }
    Output frame(VORN_ID2_CAPACITY);
    _VRDK_ID2_Readstr(handle, frame.bytes(), 1);
    closeDev(handle);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    Input input(data, size);
    AnsweringReader reader(input);
    beginWorld(&reader);
    const std::uint8_t how = input.byte();
    for (unsigned devices = 1 + (how & 0x03); devices > 0; --devices) {
        attach(deviceOf(input));
    }
    if ((how & 0x40) != 0) {
        const unsigned nth = input.byte();
        breakTransfer(nth, (how & 0x20) != 0 ? LIBUSB_ERROR_TIMEOUT : LIBUSB_ERROR_NO_DEVICE, input.byte());
    }
    if ((how & 0x80) != 0) {
        rawTransfers(input);
    } else {
        Output atr(ICC_ATR_CAPACITY);
        Output response(ICC_RESPONSE_CAPACITY);
        IC_PowerOn("USB", "", 9600, 1, 1, 0, atr.text());
        IC_SendAPDU("USB", "", 9600, 1, 1, 0, "00A4040000", response.text());
        requireLinkClosed(IC_PowerOff("USB", "", 9600, 1, 1, 0));
    }
    endOfCalls();
    return 0;
}
