// SPDX-License-Identifier: Apache-2.0
// Searches and lists on random bytes, mostly no well-formed data, against plain walks written down here: one object after
// the other, and for each entry of a list a walk of its own. The seed is fixed, so a failure comes back in the next run.
#include "support/line.h"

#include "ICC_COMM_VORN.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <vector>

using namespace vorn::test;

namespace {

constexpr int kRounds = 4000;
constexpr std::size_t kNone = SIZE_MAX;

// A byte behind the end reads as zero.
std::uint8_t at(const Bytes& bytes, std::size_t place) { return place < bytes.size() ? bytes[place] : 0; }

// Of the tag at this place; 0 when the walk ends there.
std::size_t tagSize(const Bytes& bytes, std::size_t place)
{
    if (place >= bytes.size() || bytes[place] == 0xFF) {
        return 0;
    }
    if ((bytes[place] & 0x1F) != 0x1F) {
        return 1;
    }
    for (std::size_t size = 2; size <= 256 && place + size <= bytes.size(); ++size) {
        const std::uint8_t byte = bytes[place + size - 1];
        if (byte == 0xFF) {
            return 0;
        }
        if ((byte & 0x80) == 0) {
            return size;
        }
    }
    return 0;
}

struct Length {
    std::size_t size, value;
};

Length lengthAt(const Bytes& bytes, std::size_t place)
{
    switch (at(bytes, place)) {
    case 0x82:
        return {3, std::size_t{at(bytes, place + 1)} * 256 + at(bytes, place + 2)};
    case 0x81:
        return {2, at(bytes, place + 1)};
    default:
        return {1, at(bytes, place)};
    }
}

std::size_t search(const Bytes& tag, const Bytes& data)
{
    for (std::size_t place = 0; place < data.size();) {
        const std::size_t size = tagSize(data, place);
        if (size == 0) {
            return kNone;
        }
        if (Bytes(data.begin() + static_cast<std::ptrdiff_t>(place),
                  data.begin() + static_cast<std::ptrdiff_t>(place + size)) == tag) {
            return place;
        }
        const Length length = lengthAt(data, place + size);
        place += size + length.size + ((data[place] & 0x20) != 0 ? 0 : length.value);
    }
    return kNone;
}

Bytes valueAt(const Bytes& data, std::size_t place, std::size_t sizeOfTag)
{
    const Length length = lengthAt(data, place + sizeOfTag);
    const std::size_t begin = std::min(place + sizeOfTag + length.size, data.size());
    const std::size_t end = std::min(begin + length.value, data.size());
    return Bytes(data.begin() + static_cast<std::ptrdiff_t>(begin), data.begin() + static_cast<std::ptrdiff_t>(end));
}

Bytes fieldOf(unsigned char letter, std::size_t length, Bytes value)
{
    if (letter == 0 || letter == 't') {
        return Bytes(length, 0);
    }
    if (letter != 'n') {
        value.resize(length, letter == 'c' ? 0xFF : 0x00);
        return value;
    }
    Bytes field(length, 0);
    field.insert(field.end(), value.begin(), value.end());
    return Bytes(field.end() - static_cast<std::ptrdiff_t>(length), field.end());
}

struct Built {
    int result = 0;
    Bytes values;
};

Built build(const Bytes& source, const Bytes& dol)
{
    static const Bytes dictionary(gcTagName, gcTagName + 431); // a copy is walked
    Built built;
    for (std::size_t place = 0; place < dol.size();) {
        const std::size_t size = tagSize(dol, place);
        const Length length = lengthAt(dol, place + size);
        if (size == 0 || place + size + length.size > dol.size() ||
            length.value > VORN_DOL_DATA_CAPACITY - built.values.size()) {
            built.result = -1;
            return built;
        }
        const auto begin = dol.begin() + static_cast<std::ptrdiff_t>(place);
        const Bytes tag(begin, std::find(begin, begin + static_cast<std::ptrdiff_t>(size), 0)); // as a text
        place += size + length.size;
        const std::size_t found = search(tag, source);
        const unsigned char letter = vrdk_GetTagType(tag.data(), static_cast<int>(tag.size()), dictionary.data(), 431);
        const Bytes field =
            found == kNone ? Bytes(length.value, 0) : fieldOf(letter, length.value, valueAt(source, found, tag.size()));
        built.values.insert(built.values.end(), field.begin(), field.end());
    }
    return built;
}

// Bytes of which many are tags of the dictionary, short lengths and templates.
class Random {
public:
    Bytes bytes(std::size_t most)
    {
        Bytes all;
        for (const std::size_t size = below(most); all.size() < size;) {
            switch (below(4)) {
            case 0: {
                const std::size_t from = below(428);
                all.insert(all.end(), gcTagName + from, gcTagName + from + 3);
                break;
            }
            case 1:
                all.push_back(0x70);
                break;
            case 2:
                all.push_back(static_cast<std::uint8_t>(below(6)));
                break;
            default:
                all.push_back(static_cast<std::uint8_t>(below(256)));
            }
        }
        return all;
    }

    // Objects with tags of the dictionary, or entries of a list when they have no values.
    Bytes objects(std::size_t most, bool values)
    {
        Bytes all;
        for (std::size_t left = 1 + below(most); left > 0; --left) {
            std::size_t from = below(3) == 0 ? below(428) : 2 * below(10);
            const bool two = (gcTagName[from] & 0x1F) == 0x1F;
            all.insert(all.end(), gcTagName + from, gcTagName + from + (two ? 2 : 1));
            const std::size_t size = below(9);
            all.push_back(static_cast<std::uint8_t>(size));
            for (std::size_t i = 0; values && i < size; ++i) {
                all.push_back(static_cast<std::uint8_t>(below(256)));
            }
        }
        return all;
    }

    std::size_t below(std::size_t bound) { return engine_() % bound; }

private:
    std::mt19937 engine_{20301231};
};

int sizeOf(const Bytes& bytes) { return static_cast<int>(bytes.size()); }

} // namespace

TEST(PlainWalk, FindsWhatTheSearchFinds)
{
    Random random;
    int found = 0;
    for (int round = 0; round < kRounds && !HasFailure(); ++round) {
        const Bytes data = random.below(2) == 0 ? random.bytes(60) : random.objects(12, true);
        const std::size_t from = random.below(428);
        const Bytes tag(gcTagName + from, gcTagName + from + 1 + random.below(2));
        if (data.empty()) {
            continue; // no length is another kind of buffer
        }
        const unsigned char* const place = vrdk_findtag(tag.data(), sizeOf(tag), data.data(), sizeOf(data));
        const std::size_t expected = search(tag, data);
        ASSERT_EQ(place == nullptr ? kNone : static_cast<std::size_t>(place - data.data()), expected)
            << toHex(tag) << " in " << toHex(data);
        found += expected != kNone ? 1 : 0;
    }
    EXPECT_GT(found, 100);
}

TEST(PlainWalk, BuildsWhatTheListBuilds)
{
    Random random;
    int whole = 0;
    int filled = 0;
    for (int round = 0; round < kRounds && !HasFailure(); ++round) {
        const Bytes source = random.below(3) == 0 ? random.bytes(80) : random.objects(20, true);
        const Bytes dol = random.below(3) == 0 ? random.bytes(40) : random.objects(100, false);
        if (source.empty() || dol.empty()) {
            continue;
        }
        const Built expected = build(source, dol);
        Bytes output(VORN_DOL_DATA_CAPACITY, 0xEE);
        int length = -5;
        const int result =
            vrdk_BuildDOL(source.data(), sizeOf(source), dol.data(), sizeOf(dol), output.data(), &length);
        ASSERT_EQ(result, expected.result) << toHex(dol) << " from " << toHex(source);
        ASSERT_EQ(length, sizeOf(expected.values)) << toHex(dol) << " from " << toHex(source);
        output.resize(static_cast<std::size_t>(length));
        ASSERT_EQ(toHex(output), toHex(expected.values)) << toHex(dol) << " from " << toHex(source);
        whole += result == 0 ? 1 : 0;
        filled += std::any_of(output.begin(), output.end(), [](std::uint8_t byte) { return byte != 0; }) ? 1 : 0;
    }
    EXPECT_GT(whole, 100);
    EXPECT_GT(filled, 100);
}
