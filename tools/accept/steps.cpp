// SPDX-License-Identifier: Apache-2.0
#include "tools/accept/steps.h"

#include <algorithm>

namespace vorn::tool::accept {

const std::vector<Step>& steps()
{
    using On = Step::On;
    static const std::vector<Step> all = {
        {"usb", "reads what the device says of itself", On::Usb, false, describeUsb},
        {"rest", "asks for the version at 9600 baud, and what it is at 38400", On::Tty, false, findLine},
        {"version", "reads the version, and how soon it comes", On::Tty, false, readVersion},
        {"switching", "switches to 38400 baud and back", On::Tty, false, trySwitching},
        {"slots", "looks into every slot and the field", On::Any, false, lookIntoSlots},
        {"insertion", "has a card put into the contact slot and taken out", On::Any, true, moveCard},
        {"power", "powers the cards in the slots on and off", On::Any, false, powerCards},
        {"field", "activates the card in the field, and switches the field off", On::Any, false, useField},
        {"timing", "takes the time of short replies", On::Any, false, timeReplies},
        {"card", "reads a card's directory and its first record", On::Any, false, readTestCard},
        {"packets", "counts the packets of all replies so far", On::Usb, false, countPackets},
        {"frames", "sends frames of every size, up to 2052 characters", On::Any, false, tryFrameSizes},
        {"unknown", "sends commands that there are not", On::Any, false, sendUnknown},
        {"check", "sends frames with a wrong check byte and a wrong character", On::Any, false, sendWrongCheck},
        {"cut", "sends half a frame, then a whole one", On::Any, false, cutFrame},
        {"two", "sends two frames at once", On::Any, false, sendTwoFrames},
        {"pauses", "shortens the pauses of the switch, until it fails", On::Tty, false, shortenPauses},
    };
    return all;
}

std::optional<Time> believedTime(const std::function<std::optional<Time>()>& measure)
{
    constexpr int kTries = 9;
    constexpr std::size_t kAgree = 3;
    std::vector<Time> times;
    for (int i = 0; i < kTries; ++i) {
        const auto time = measure();
        if (!time) {
            break;
        }
        times.push_back(*time);
        std::sort(times.begin(), times.end());
        const Time least = times.front();
        const bool agreed = times.size() >= kAgree && times[kAgree - 1] - least <= Time(20) + least / 10;
        if (times.size() >= kAgree && (least < kTolerance / 2 || agreed)) {
            break;
        }
    }
    return times.empty() ? std::nullopt : std::optional(times.front());
}

} // namespace vorn::tool::accept
