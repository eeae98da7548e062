// SPDX-License-Identifier: Apache-2.0
// A reader as a USB device behind a unix socket, in the USB redirection protocol: a virtual machine (QEMU's usb-redir
// device) that connects to the socket has the reader plugged in.
#pragma once

#include "sim/reader/reader.h"

#include <memory>
#include <string>

namespace vorn::sim {

class UsbRedirPort {
public:
    // Listens on the socket and serves the reader from a thread of its own until destroyed. One machine at a time;
    // when it goes away the next one may connect. Throws std::system_error.
    UsbRedirPort(Reader& reader, std::string socketPath);
    ~UsbRedirPort();
    UsbRedirPort(const UsbRedirPort&) = delete;
    UsbRedirPort& operator=(const UsbRedirPort&) = delete;

private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace vorn::sim
