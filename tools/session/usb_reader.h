// SPDX-License-Identifier: Apache-2.0
// The reader on USB as this system shows it: its device node, and who lets users have it.
#pragma once

#include <optional>
#include <string>

namespace vorn::tool {

struct UsbReader {
    std::string node;   // "/dev/bus/usb/001/002"
    std::string driver; // of the kernel, on its first interface; as a rule none
};

// The first one, as the library takes it.
std::optional<UsbReader> attachedUsbReader();

// What to do where the node belongs to a group and this user may not open it.
std::string usbAccessAdvice(const std::string& group);

} // namespace vorn::tool
