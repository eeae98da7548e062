// SPDX-License-Identifier: Apache-2.0
// The tool's view of data objects, and what it and the simulator read of lists and cryptogram texts.
#include "sim/issuer/cryptogram_text.h"
#include "support/input.h"
#include "support/require.h"
#include "tools/explain/tlv_view.h"

using namespace vorn;
using namespace vorn::fuzz;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    Input input(data, size);
    const bool show = (input.byte() & 1) != 0;
    const ByteView rest = input.rest();
    const sim::Bytes bytes(rest.data(), rest.data() + rest.size());

    const tool::TlvWalk walk = tool::walkTlv(bytes);
    for (const tool::TlvNode& node : walk.nodes) {
        require(node.valueAt <= bytes.size() && node.value.size() <= bytes.size() - node.valueAt,
                "an object lies in its bytes");
        tool::tagName(node.tag);
        tool::valueHex(node.tag, node.value, show);
        tool::valueInWords(node, show);
    }
    require(tool::hexText(bytes, show).size() >= 2 * bytes.size(), "two characters a byte");

    sim::tlv::parse(bytes);
    sim::tlv::find(bytes, 0x5A);
    if (const auto list = sim::tlv::parseDol(bytes)) {
        const std::size_t length = sim::tlv::dataLength(*list);
        if (length < 65536) {
            sim::tlv::split(*list, sim::Bytes(length));
        }
    }
    const std::string hex = sim::toHex(bytes);
    sim::readCryptogramText(sim::CryptogramText::Arqc, hex);
    sim::readCryptogramText(sim::CryptogramText::Tc, hex);
    return 0;
}
