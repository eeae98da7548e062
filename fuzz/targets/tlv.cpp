// SPDX-License-Identifier: Apache-2.0
// Data objects in buffers of just their size: searches, values, the list of tags still wanted, and the dictionary.
#include "card/tlv.h"

#include "support/input.h"
#include "support/require.h"

#include "vorn/card.h"

#include <algorithm>
#include <cstring>
#include <memory>

using namespace vorn;
using namespace vorn::fuzz;

namespace {

constexpr int kLongest = 65535;

void requireValue(int result, int size, int room)
{
    require(result == 0 ? size >= 0 && size <= room : result == -1 && size == -7, "a value's length");
}

void searchBounded(const Exact& tag, Exact& buffer)
{
    const unsigned char* const found = vrdk_findtag(tag.data(), tag.size(), buffer.data(), buffer.size());
    require(found == nullptr || (found >= buffer.data() && found < buffer.data() + buffer.size()),
            "an object lies in its buffer");
    const int room = std::max(255, buffer.size());
    const std::unique_ptr<std::uint8_t[]> value(new std::uint8_t[static_cast<std::size_t>(room)]);
    int size = -7;
    requireValue(vrdk_gettagvalue(tag.data(), tag.size(), buffer.data(), buffer.size(), value.get(), &size), size,
                 room);
}

// Without a bound a zero in place of a tag ends the buffer: enough of them, whatever length stood last.
void searchEnded(const Exact& tag, ByteView objects)
{
    constexpr std::size_t kInputMax = 8192;
    static std::uint8_t buffer[kInputMax + kLongest + 8];
    static std::uint8_t value[kLongest];
    const ByteView taken = objects.first(kInputMax);
    taken.copyTo(buffer);
    int size = -7;
    vrdk_findtag(tag.data(), tag.size(), buffer, 0);
    requireValue(vrdk_gettagvalue(tag.data(), tag.size(), buffer, 0, value, &size), size, kLongest);
    std::memset(buffer, 0, taken.size());
}

// The object must be whole, so a copy stands in front of enough zeros.
void takeValue(ByteView objects, int tagLength)
{
    std::uint8_t whole[4 + 255 + 255] = {};
    objects.first(sizeof whole - 270).copyTo(whole);
    std::uint8_t value[255];
    unsigned char size = 0;
    vrdk_GetTagData(tagLength, whole, value, &size);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    Input input(data, size);
    const std::uint8_t how = input.byte();
    const Exact tag(input.take(how & 0x03));
    Exact list(input.take(how >> 2 & 0x1F));
    const ByteView objects = input.rest();

    Exact bounded(objects);
    if (bounded.size() != 0) {
        searchBounded(tag, bounded);
        const int left = vrdk_findapptag(bounded.data(), bounded.size(), list.data(), list.size());
        require(left >= 0 && left <= list.size(), "the list of wanted tags only shrinks");
        vrdk_GetTagType(tag.data(), tag.size(), bounded.data(), bounded.size());
    }
    takeValue(objects, 1 + (how & 1));
    vrdk_GetTagType(tag.data(), tag.size(), gcTagName, static_cast<int>(sizeof gcTagName - 1));
    searchEnded(tag, objects);
    return 0;
}
