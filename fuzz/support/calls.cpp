// SPDX-License-Identifier: Apache-2.0
#include "support/calls.h"

#include <libusb-1.0/libusb.h>

namespace vorn::fuzz {

// The first byte: bit 0 USB; bits 4 to 6 what is refused below, 0 and 7 nothing. Then, if something is refused, its
// number.
Circumstances::Circumstances(Input& input)
{
    const std::uint8_t how = input.byte();
    port = (how & 0x01) != 0 ? "USB" : "ttyS1";
    timeout = (how & 0x02) != 0 ? 0 : 3;
    attach(readerOnUsb());
    const unsigned kind = how >> 4 & 0x07;
    if (kind == 0 || kind == 7) {
        return;
    }
    const unsigned nth = input.byte();
    const bool interrupted = (how & 0x80) != 0;
    switch (kind) {
    case 1:
        refuse(Operation::Open, nth, interrupted);
        break;
    case 2:
        refuse(Operation::Settings, nth, interrupted);
        break;
    case 3:
        refuse(Operation::Read, nth, interrupted);
        break;
    case 4:
        refuse(Operation::Write, nth, interrupted);
        break;
    default:
        breakTransfer(nth, kind == 5 ? LIBUSB_ERROR_PIPE : LIBUSB_ERROR_TIMEOUT, interrupted ? 5 : 0);
        break;
    }
}

void endOfCalls()
{
    Text nothing{ByteView()};
    OpenDev(0, nothing.writable()); // opens nothing, but releases
    m_VrICType = VORN_INTERFACE_NONE;
    require(openDescriptors() == 0, "a released link is closed");
}

void requireLinkClosed(int result)
{
    require(result == VORN_OPEN_FAILED || openDescriptors() == 0, "the link is closed after the call");
}

} // namespace vorn::fuzz
