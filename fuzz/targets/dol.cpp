// SPDX-License-Identifier: Apache-2.0
// Data object lists: reading entries, looking for tags, and filling a list from the terminal's data.
#include "support/input.h"
#include "support/require.h"

#include "vorn/card.h"

#include <memory>

using namespace vorn;
using namespace vorn::fuzz;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    Input input(data, size);
    Exact sought(input.take(input.byte() & 0x03));
    const Exact source(input.counted());
    const Exact list(input.rest());

    for (int at = 0; at < list.size();) {
        std::uint8_t tag[257];
        int length = 0;
        const int taken = vrdk_GetTaginDOL(list.data() + at, list.size() - at, tag, &length);
        require(taken >= -1 && taken <= list.size() - at, "an entry lies in its list");
        if (taken <= 0) {
            break;
        }
        at += taken;
    }
    const int absent = vrdk_findtaginDOL(sought.data(), sought.size(), list.data(), list.size());
    require(absent == 0 || absent == 1, "a tag is in a list or not");

    const auto output = std::make_unique<std::uint8_t[]>(VORN_DOL_DATA_CAPACITY);
    int length = 0;
    if (source.size() != 0 &&
        vrdk_BuildDOL(source.data(), source.size(), list.data(), list.size(), output.get(), &length) == 0) {
        require(length >= 0 && length <= VORN_DOL_DATA_CAPACITY, "the length of the list's values");
    }
    return 0;
}
