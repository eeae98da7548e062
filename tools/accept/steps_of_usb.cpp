// SPDX-License-Identifier: Apache-2.0
// Steps about the USB device: its descriptors, and how it cuts replies into packets.
#include "tools/accept/steps.h"

#include <algorithm>
#include <string>

namespace vorn::tool::accept {

namespace {

// USB 2.0, 9.6.6: the endpoints of a configuration descriptor, "01 bulk out 64".
std::string endpointsIn(const Bytes& descriptors)
{
    constexpr std::uint8_t kEndpoint = 5;
    constexpr std::size_t kSize = 7;
    static const char* const kTypes[] = {"control", "isochronous", "bulk", "interrupt"};
    std::string text;
    for (std::size_t at = 0; at + 2 <= descriptors.size() && descriptors[at] >= 2; at += descriptors[at]) {
        if (descriptors[at + 1] != kEndpoint || at + kSize > descriptors.size()) {
            continue;
        }
        const std::uint8_t* const one = descriptors.data() + at;
        text += (text.empty() ? "" : ", ") + sim::toHex({one[2]}) + " " + kTypes[one[3] & 0x03U] +
                ((one[2] & 0x80U) != 0 ? " in " : " out ") + std::to_string(one[4] + 256 * one[5]);
    }
    return text;
}

} // namespace

void describeUsb(Bench& bench)
{
    const Channel& device = bench.line.channel();
    bench.findings.hex("usb.device", device.deviceDescriptor());
    bench.findings.hex("usb.configuration", device.configurationDescriptor());
    bench.findings.text("usb.endpoints", endpointsIn(device.configurationDescriptor()));
}

// Of replies that need more than one packet it can be seen how they are cut.
void countPackets(Bench& bench)
{
    std::size_t longest = 0, zeros = 0;
    std::vector<std::size_t> cut;
    for (const Heard& heard : bench.line.replies()) {
        std::vector<std::size_t> sizes = heard.packets;
        zeros += static_cast<std::size_t>(std::count(sizes.begin(), sizes.end(), 0U));
        sizes.erase(std::remove(sizes.begin(), sizes.end(), 0U), sizes.end());
        if (sizes.size() > cut.size()) {
            cut = sizes;
            longest = *std::max_element(sizes.begin(), sizes.end());
        }
    }
    std::string text;
    for (const std::size_t size : cut) {
        text += (text.empty() ? "" : " ") + std::to_string(size);
    }
    bench.findings.text("usb.cut", text);
    if (cut.size() > 1) {
        bench.findings.number("usb.packet", static_cast<long>(longest));
    }
    const bool always = zeros + 1 >= bench.line.replies().size();
    bench.findings.word("usb.zero", zeros == 0 ? "never" : always ? "always" : "after whole packets");
}

} // namespace vorn::tool::accept
