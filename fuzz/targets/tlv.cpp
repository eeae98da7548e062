// SPDX-License-Identifier: Apache-2.0
// Data objects in buffers of just their size: searches, values, the list of tags still wanted, and the dictionary.
#include "card/tlv.h"

#include "support/input.h"
#include "support/require.h"

#include "vorn/card.h"

#include <algorithm>
#include <cstring>
#include <vector>

using namespace vorn;
using namespace vorn::fuzz;

namespace {

void find(Exact& tag, Exact& buffer, int length)
{
    const unsigned char* const found = vrdk_findtag(tag.data(), tag.size(), buffer.data(), length);
    require(found == nullptr || (found >= buffer.data() && found < buffer.data() + buffer.size()),
            "an object lies in its buffer");
    const std::size_t room = length == 0 ? 65535U : static_cast<std::size_t>(std::max(255, length));
    std::vector<std::uint8_t> value(room);
    int size = -7;
    const int result = vrdk_gettagvalue(tag.data(), tag.size(), buffer.data(), length, value.data(), &size);
    require(result == 0 ? size >= 0 && size <= static_cast<int>(room) : result == -1 && size == -7, "a value's length");
}

// The object must be whole, so a copy stands in front of enough zeros.
void takeValue(const Exact& buffer, int tagLength)
{
    std::vector<std::uint8_t> whole(buffer.data(), buffer.data() + buffer.size());
    whole.resize(whole.size() + 270);
    std::uint8_t value[255];
    unsigned char size = 0;
    vrdk_GetTagData(tagLength, whole.data(), value, &size);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    Input input(data, size);
    const std::uint8_t how = input.byte();
    Exact tag(input.take(how & 0x03));
    Exact list(input.take(how >> 2 & 0x1F));
    const ByteView objects = input.rest();

    Exact bounded(objects);
    if (bounded.size() != 0) {
        find(tag, bounded, bounded.size());
        const int left = vrdk_findapptag(bounded.data(), bounded.size(), list.data(), list.size());
        require(left >= 0 && left <= list.size(), "the list of wanted tags only shrinks");
        vrdk_GetTagType(tag.data(), tag.size(), bounded.data(), bounded.size());
    }
    takeValue(bounded, 1 + (how & 1));
    vrdk_GetTagType(tag.data(), tag.size(), gcTagName,
                    static_cast<int>(std::strlen(reinterpret_cast<const char*>(gcTagName))));

    // Without a bound a zero in place of a tag ends the buffer: enough of them, whatever length stood last.
    std::vector<std::uint8_t> ended(objects.data(), objects.data() + objects.size());
    ended.resize(ended.size() + 65535 + 8);
    Exact zeroEnded(ByteView(ended.data(), ended.size()));
    find(tag, zeroEnded, 0);
    return 0;
}
