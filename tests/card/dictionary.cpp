// SPDX-License-Identifier: Apache-2.0
// The tag dictionary and the look-up of a tag's format letter.
#include "support/dictionary_table.h"

#include "ICC_COMM_VORN.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <string>
#include <vector>

using namespace vorn::test;

namespace {

const char* dictionary() { return reinterpret_cast<const char*>(gcTagName); }

std::vector<TagFormat> entriesInOrder()
{
    const Bytes bytes(gcTagName, gcTagName + std::strlen(dictionary()));
    std::vector<TagFormat> entries;
    for (std::size_t at = 0; at + 1 < bytes.size();) {
        const std::size_t size = (bytes[at] & 0x1F) == 0x1F ? 2 : 1;
        const auto tag = bytes.begin() + static_cast<std::ptrdiff_t>(at);
        entries.push_back({Bytes(tag, tag + static_cast<std::ptrdiff_t>(size)), static_cast<char>(bytes[at + size])});
        at += size + 1;
    }
    return entries;
}

// The letter, or '-' when the tag is unknown.
char typeIn(const std::string& dictionaryHex, const std::string& tagHex)
{
    const Bytes tag = fromHex(tagHex);
    const Bytes bytes = fromHex(dictionaryHex);
    const unsigned char letter =
        vrdk_GetTagType(tag.data(), static_cast<int>(tag.size()), bytes.data(), static_cast<int>(bytes.size()));
    return letter == 0 ? '-' : static_cast<char>(letter);
}

char typeOf(const std::string& tagHex)
{
    return typeIn(toHex(Bytes(gcTagName, gcTagName + std::strlen(dictionary()))), tagHex);
}

std::string tagsInOrder(const std::vector<TagFormat>& entries)
{
    std::string text;
    for (const TagFormat& entry : entries) {
        text += toHex(entry.tag) + " ";
    }
    return text;
}

} // namespace

TEST(TagDictionary, Has160EntriesIn431BytesAndAZero)
{
    EXPECT_EQ(entriesInOrder().size(), 160U);
    EXPECT_EQ(std::strlen(dictionary()), 431U);
    EXPECT_EQ(sizeof gcTagName, 432U);
    EXPECT_EQ(gcTagName[431], 0);
}

TEST(TagDictionary, GivesEveryTagItsLetter)
{
    for (const TagFormat& entry : dictionaryTable()) {
        EXPECT_EQ(typeOf(toHex(entry.tag)), entry.letter) << toHex(entry.tag);
    }
}

TEST(TagDictionary, HoldsNoOtherTags)
{
    const std::vector<TagFormat> known = dictionaryTable();
    for (const TagFormat& entry : entriesInOrder()) {
        const bool listed =
            std::any_of(known.begin(), known.end(), [&](const TagFormat& other) { return other.tag == entry.tag; });
        EXPECT_TRUE(listed) << toHex(entry.tag);
    }
    EXPECT_EQ(known.size(), 159U); // 9F53 stands in it once
}

TEST(TagDictionary, AscendsButFor84Before83)
{
    std::vector<TagFormat> entries = entriesInOrder();
    const std::string inOrder = tagsInOrder(entries);
    EXPECT_NE(inOrder.find("82 84 83 86 "), std::string::npos);
    std::stable_sort(entries.begin(), entries.end(),
                     [](const TagFormat& a, const TagFormat& b) { return a.tag < b.tag; });
    std::string expected = tagsInOrder(entries);
    const std::size_t at = expected.find("83 84 ");
    ASSERT_NE(at, std::string::npos);
    EXPECT_EQ(inOrder, expected.replace(at, 6, "84 83 "));
    EXPECT_EQ(inOrder.substr(0, 9), "04 17 18 ");
    EXPECT_EQ(inOrder.substr(inOrder.size() - 24), "9F7F A5 BF0C C1 C2 DF69 ");
}

TEST(TagDictionary, Holds9F53FirstAsTextAndThenAsBinary)
{
    std::string letters;
    for (const TagFormat& entry : entriesInOrder()) {
        if (toHex(entry.tag) == "9F53") {
            letters += entry.letter;
        }
    }
    EXPECT_EQ(letters, "ab");
    EXPECT_EQ(typeOf("9F53"), 'a');
}

TEST(TagDictionary, DoesNotKnowOtherTags)
{
    for (const char* tag : {"DF01", "9F", "5F", "02", "9F0A", "9F5E", "BF", "DF68", "9F0201", "62", "A6", "00", "FF"}) {
        EXPECT_EQ(typeOf(tag), '-') << tag;
    }
}

// The library looks its own dictionary up by an index. A copy is a host's own, and is walked.
TEST(TagType, IsThatOfTheWalkForEveryTagOfOneAndTwoBytes)
{
    const Bytes copy(gcTagName, gcTagName + 431);
    int known = 0;
    for (unsigned number = 0; number <= 0xFFFF; ++number) {
        const unsigned char tag[] = {static_cast<unsigned char>(number >> 8), static_cast<unsigned char>(number)};
        for (const int size : {1, 2}) {
            const unsigned char* const begin = tag + (2 - size);
            const unsigned char walked = vrdk_GetTagType(begin, size, copy.data(), 431);
            ASSERT_EQ(vrdk_GetTagType(begin, size, gcTagName, 431), walked) << toHex(Bytes(begin, tag + 2));
            known += walked != 0 && (size == 2 || tag[0] == 0) ? 1 : 0;
        }
    }
    EXPECT_EQ(known, 159);
}

TEST(TagType, IsThatOfTheWalkForRandomTags)
{
    const Bytes copy(gcTagName, gcTagName + 431);
    std::mt19937 random(20291231);
    for (int round = 0; round < 20000; ++round) {
        Bytes tag(random() % 6);
        for (std::uint8_t& byte : tag) {
            byte = random() % 2 == 0 ? gcTagName[random() % 431] : static_cast<std::uint8_t>(random() & 0xFF);
        }
        const int size = static_cast<int>(tag.size());
        ASSERT_EQ(vrdk_GetTagType(tag.data(), size, gcTagName, 431),
                  vrdk_GetTagType(tag.data(), size, copy.data(), 431))
            << toHex(tag);
    }
}

TEST(TagType, OwnDictionaryOfAnotherLengthIsWalked)
{
    const unsigned char last[] = {0xDF, 0x69};
    const unsigned char first[] = {0x04};
    EXPECT_EQ(vrdk_GetTagType(last, 2, gcTagName, 431), 'n');
    EXPECT_EQ(vrdk_GetTagType(last, 2, gcTagName, 428), 0);
    EXPECT_EQ(vrdk_GetTagType(first, 1, gcTagName, 2), 'g');
    EXPECT_EQ(vrdk_GetTagType(first, 1, gcTagName, 0), 0);
}

TEST(TagType, TagOfNoLengthIsUnknown) { EXPECT_EQ(vrdk_GetTagType(gcTagName, 0, gcTagName, 431), 0); }

TEST(TagType, FirstEntryOfATagCounts) { EXPECT_EQ(typeIn("9A 6E 9F02 63 9F02 6E", "9F02"), 'c'); }

TEST(TagType, ALetterIsNoTag) { EXPECT_EQ(typeIn("9A 61 9C 6E", "61"), '-'); }

TEST(TagType, EntryMatchesByItsWholeTag)
{
    EXPECT_EQ(typeIn("9F02 6E 9F0203 62", "9F"), '-');
    EXPECT_EQ(typeIn("5A 63 9A 6E", "5A9A"), '-');
}

TEST(TagType, TagsOfMoreBytesAreReadWhole)
{
    EXPECT_EQ(typeIn("DF8101 62 9A 6E", "DF8101"), 'b');
    EXPECT_EQ(typeIn("DF8101 62 9A 6E", "9A"), 'n');
    EXPECT_EQ(typeIn("DF8101 62 9A 6E", "DF81"), '-');
}

TEST(TagType, PaddingEndsTheDictionary)
{
    EXPECT_EQ(typeIn("9A 6E FF 9C 6E", "9A"), 'n');
    EXPECT_EQ(typeIn("9A 6E FF 9C 6E", "9C"), '-');
    EXPECT_EQ(typeIn("FF01 6E 9C 6E", "9C"), '-');
    EXPECT_EQ(typeIn("9FFF 6E 9C 6E", "9C"), '-');
}

TEST(TagType, DictionaryOfNoLengthKnowsNothing) { EXPECT_EQ(typeIn("", "9A"), '-'); }

TEST(TagType, UnfinishedLastEntryIsNotRead)
{
    EXPECT_EQ(typeIn("9A 6E 9F", "9F"), '-');
    EXPECT_EQ(typeIn("9A 6E 9F81", "9F81"), '-');
    EXPECT_EQ(typeIn("9A 6E 9C", "9C"), '-'); // its letter is missing
}
