// SPDX-License-Identifier: Apache-2.0
// The tool's view of an answer to reset: whatever came, each of its bytes stands in one part, in their order.
#include "support/require.h"
#include "tools/explain/atr_view.h"

using namespace vorn;

namespace {

constexpr const char* kInside = "  "; // before the name of a part of the historical bytes

bool isInside(const tool::AtrPart& part) { return part.name.rfind(kInside, 0) == 0; }

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const sim::Bytes atr(data, data + size);
    std::string all;
    std::string historical;
    std::string inside;
    for (const tool::AtrPart& part : tool::decodeAtr(atr)) {
        (isInside(part) ? inside : all) += part.hex;
        historical = part.name == "historical" ? part.hex : historical;
    }
    fuzz::require(inside.empty() || inside == historical, "the historical bytes, each in one object");
    fuzz::require(all == sim::toHex(atr), "the bytes in their order");
    return 0;
}
