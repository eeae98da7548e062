// SPDX-License-Identifier: Apache-2.0
// The tool's view of an answer to reset.
#include "support/input.h"
#include "support/require.h"
#include "tools/explain/atr_view.h"

using namespace vorn;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const auto parts = tool::decodeAtr(sim::Bytes(data, data + size));
    fuzz::require(parts.size() <= size + 1, "no more parts than bytes");
    return 0;
}
