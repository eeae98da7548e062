// SPDX-License-Identifier: Apache-2.0
// The ports of this terminal that a reader may be at.
#pragma once

#include <string>
#include <vector>

namespace vorn::tool {

struct PortInfo {
    std::string name;   // as --port takes it
    std::string device; // "usb-serial", "16550A"; may be empty
    std::string group;  // that owns it
    std::string holder; // who has it locked or open; may be empty
    std::string advice; // how a user who may not open it gets it
    bool there = false;
    bool tty = false;
    bool allowed = false; // this user may open it
};

// Serial ttys with hardware behind them, and USB when a reader is plugged in.
std::vector<PortInfo> listPorts();
PortInfo portInfo(const std::string& name);

} // namespace vorn::tool
