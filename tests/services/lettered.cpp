// SPDX-License-Identifier: Apache-2.0
// The lettered texts of the interface: letters into tags, and lettered fields into binary items.
#include "support/card_text.h"

#include "ICC_COMM_VORN.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <ostream>
#include <string>

using namespace vorn::test;

namespace {

constexpr std::uint8_t kGuard = 0xA5;

struct Letters {
    const char* letters;
    const char* tags; // as counted
};

void PrintTo(const Letters& row, std::ostream* out) { *out << '"' << row.letters << '"'; }

class TagsOfLetters : public ::testing::TestWithParam<Letters> {};

INSTANTIATE_TEST_SUITE_P(Lists, TagsOfLetters,
                         ::testing::Values(Letters{"A", "5A"}, Letters{"B", "57"}, Letters{"C", "9F79"},
                                           Letters{"D", "9F77"}, Letters{"E", "9F"}, Letters{"F", "9F78"},
                                           Letters{"G", "5F34"}, Letters{"H", "9F36"}, Letters{"I", "9F62"},
                                           Letters{"J", "9F61"}, Letters{"K", "5F20"}, Letters{"L", "9F0B"},
                                           Letters{"", ""}, Letters{"EA", "9F5A"}, Letters{"AE", "5A9F"},
                                           Letters{"EE", "9F9F"}, Letters{"EK", "9F5F20"}, Letters{"xAy", "5A"},
                                           Letters{"abcdefghijkl", ""}, Letters{"M@Z 1", ""},
                                           Letters{"KGK", "5F205F345F20"}, Letters{"LA", "9F0B5A"},
                                           Letters{"ABCDEFGHIJKL", "5A579F799F779F9F785F349F369F629F615F209F0B"},
                                           Letters{"LKJIHGFEDCBA", "9F0B5F209F619F629F365F349F789F9F779F79575A"}));

struct Field {
    const char* text;
    const char* items;
};

void PrintTo(const Field& row, std::ostream* out) { *out << '"' << row.text << '"'; }

class ItemsOfText : public ::testing::TestWithParam<Field> {};

INSTANTIATE_TEST_SUITE_P(Texts, ItemsOfText,
                         ::testing::Values(Field{"", ""},                                    //
                                           Field{"C0051234A", "43 03 01 23 4A"},             // odd: a 0 in front
                                           Field{"A003123", "41 02 01 23"},                  //
                                           Field{"P0047FfA", "50 02 7F FA"},                 // even, either case
                                           Field{"Q000", "51 00"},                           //
                                           Field{"A001F", "41 01 0F"},                       //
                                           Field{"P012000000000100R0040156T00201S006231114", // one after the other
                                                 "50 06 00 00 00 00 01 00 52 02 01 56 54 01 01 53 03 23 11 14"},
                                           Field{"Q003ABCP0021F",
                                                 "51 02 0A BC 50 01 1F"},   // the read position moves by three
                                           Field{"a0021F", "61 01 1F"},     // any letter
                                           Field{"#0021F", "23 01 1F"},     //
                                           Field{"A0021G", "41 01 20"},     // what AsciiToHex makes of it
                                           Field{"Axyz", "41 00"},          // no digits
                                           Field{"A 3x12F", "41 02 01 2F"}, // digits as atoi reads them
                                           Field{"A1x2BQ0021F", "41 01 0B 51 01 1F"}, //
                                           Field{"A+0212", "41 01 12"},               //
                                           Field{"A-12B0021F", "41 00 42 01 1F"},     // below zero: nothing
                                           Field{"A", "41 00"},                       // a field without its digits
                                           Field{"A0", "41 00"},                      //
                                           Field{"A02", "41 01 00"},                  //
                                           Field{"A002", "41 01 00"},                 // digits that the text lacks
                                           Field{"A0041", "41 02 10 00"},             //
                                           Field{"A00412", "41 02 12 00"},            //
                                           Field{"A0031", "41 02 01 00"}));

} // namespace

// ---------------------------------------------------------------- ConvertFlag

TEST_P(TagsOfLetters, AreWrittenOneAfterTheOther)
{
    const std::string letters = GetParam().letters;
    Bytes tags(2 * letters.size() + 4, kGuard);
    const int count = ConvertFlag(letters.c_str(), static_cast<int>(letters.size()), tags.data());
    EXPECT_EQ(toHex(Bytes(tags.begin(), tags.begin() + count)), GetParam().tags);
    EXPECT_TRUE(std::all_of(tags.begin() + static_cast<int>(2 * letters.size()), tags.end(),
                            [](std::uint8_t byte) { return byte == kGuard; }));
}

TEST(ConvertFlag, WritesTheSecondByteOfEWithoutCountingIt)
{
    unsigned char tags[4] = {};
    EXPECT_EQ(ConvertFlag("AE", 2, tags), 2);
    EXPECT_EQ(toHex(Bytes(tags, tags + 4)), "5A9F2400");
    unsigned char single[4] = {};
    EXPECT_EQ(ConvertFlag("E", 1, single), 1);
    EXPECT_EQ(toHex(Bytes(single, single + 4)), "9F240000");
}

TEST(ConvertFlag, WritesOverTheSecondByteOfE)
{
    unsigned char tags[4] = {};
    EXPECT_EQ(ConvertFlag("EA", 2, tags), 2);
    EXPECT_EQ(toHex(Bytes(tags, tags + 4)), "9F5A0000");
}

TEST(ConvertFlag, TakesTheCountAndNotTheTextsEnd)
{
    unsigned char tags[8] = {};
    EXPECT_EQ(ConvertFlag("ABK", 2, tags), 2);
    EXPECT_EQ(toHex(Bytes(tags, tags + 4)), "5A570000");
    EXPECT_EQ(ConvertFlag("ABK", 0, tags), 0);
}

TEST(ConvertFlag, WritesTheOneByteTagsAsOneByte)
{
    unsigned char tags[3] = {kGuard, kGuard, kGuard};
    EXPECT_EQ(ConvertFlag("AB", 2, tags), 2);
    EXPECT_EQ(toHex(Bytes(tags, tags + 3)), "5A57A5");
}

// ---------------------------------------------------------------- convertFlagtoTLV

TEST_P(ItemsOfText, AreLetterLengthAndValue)
{
    const Bytes expected = fromHex(GetParam().items);
    Bytes items(std::strlen(GetParam().text) + 502, kGuard);
    convertFlagtoTLV(GetParam().text, items.data());
    EXPECT_EQ(toHex(Bytes(items.begin(), items.begin() + static_cast<std::ptrdiff_t>(expected.size()))),
              toHex(expected));
    EXPECT_TRUE(std::all_of(items.begin() + static_cast<std::ptrdiff_t>(expected.size()), items.end(),
                            [](std::uint8_t byte) { return byte == kGuard; }));
}

TEST(ConvertFlagToTlv, WritesNothingForNoText)
{
    unsigned char items[4] = {kGuard, kGuard, kGuard, kGuard};
    convertFlagtoTLV(nullptr, items);
    EXPECT_EQ(toHex(Bytes(items, items + 4)), "A5A5A5A5");
}

TEST(ConvertFlagToTlv, KeepsOnlyTheLowByteOfALongFieldsLength)
{
    const std::string text = "V999" + std::string(998, '5') + "6Q0021F";
    Bytes items(text.size() + 502, kGuard);
    convertFlagtoTLV(text.c_str(), items.data());
    EXPECT_EQ(toHex(Bytes(items.begin(), items.begin() + 506)),
              "56F4" + ("05" + repeated("55", 498) + "56") + "51011F" + "A5");
}

TEST(ConvertFlagToTlv, StaysInItsRoomWhenTheLongestFieldIsMissing)
{
    const std::string text = "A999";
    Bytes items(text.size() + 502, kGuard);
    convertFlagtoTLV(text.c_str(), items.data());
    EXPECT_EQ(toHex(items), "41F4" + repeated("00", 500) + repeated("A5", 4));
}
