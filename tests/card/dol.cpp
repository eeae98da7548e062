// SPDX-License-Identifier: Apache-2.0
// Data object lists: reading their entries, and building their values from a TLV buffer.
#include "support/card_text.h"
#include "support/line.h"

#include "ICC_COMM_VORN.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using namespace vorn::test;

namespace {

constexpr std::uint8_t kGuard = 0xEE;
constexpr int kUntouched = 4711;

struct Entry {
    int taken = 0;
    std::string tag; // without the NUL behind it
    int length = kUntouched;
};

// Reads the entry at the front of the list.
Entry entryOf(const std::string& dolHex)
{
    const Bytes dol = fromHex(dolHex);
    Bytes tag(300, kGuard);
    Entry entry;
    entry.taken = vrdk_GetTaginDOL(dol.data(), static_cast<int>(dol.size()), tag.data(), &entry.length);
    std::size_t end = 0;
    while (end < tag.size() && tag[end] != kGuard) {
        ++end;
    }
    for (std::size_t i = end; i < tag.size(); ++i) {
        EXPECT_EQ(tag[i], kGuard);
    }
    if (end > 0) {
        EXPECT_EQ(tag[end - 1], 0) << "no NUL behind the tag";
        entry.tag = toHex(Bytes(tag.begin(), tag.begin() + static_cast<std::ptrdiff_t>(end) - 1));
    }
    return entry;
}

void expectEntry(const std::string& dolHex, int taken, const std::string& tag, int length)
{
    const Entry entry = entryOf(dolHex);
    EXPECT_EQ(entry.taken, taken) << dolHex;
    EXPECT_EQ(entry.tag, tag) << dolHex;
    EXPECT_EQ(entry.length, length) << dolHex;
}

void expectNoEntry(const std::string& dolHex, int result) { EXPECT_EQ(entryOf(dolHex).taken, result) << dolHex; }

int asksFor(const std::string& tagHex, const std::string& dolHex)
{
    const Bytes tag = fromHex(tagHex);
    const Bytes dol = fromHex(dolHex);
    return vrdk_findtaginDOL(tag.data(), static_cast<int>(tag.size()), dol.data(), static_cast<int>(dol.size()));
}

struct Built {
    int result = 0;
    int length = kUntouched;
    Bytes output = Bytes(5000, kGuard);

    // The values, checking that nothing was written behind them.
    std::string values() const
    {
        for (std::size_t i = static_cast<std::size_t>(length); i < output.size(); ++i) {
            EXPECT_EQ(output[i], kGuard) << "byte " << i << " was written, too";
        }
        return toHex(Bytes(output.begin(), output.begin() + length));
    }
};

Built build(const std::string& dolHex, const std::string& sourceHex, bool bounded = true)
{
    const Bytes dol = fromHex(dolHex);
    const Bytes source = fromHex(sourceHex);
    Built built;
    built.result = vrdk_BuildDOL(source.data(), bounded ? static_cast<int>(source.size()) : 0, dol.data(),
                                 static_cast<int>(dol.size()), built.output.data(), &built.length);
    return built;
}

// The values of a list that can be built.
std::string values(const std::string& dolHex, const std::string& sourceHex)
{
    const Built built = build(dolHex, sourceHex);
    EXPECT_EQ(built.result, 0) << dolHex;
    return built.values();
}

const char* const kNoSource = "8A 02 3030";

} // namespace

// ---------------------------------------------------------------- reading an entry

TEST(DolEntry, OfOneLengthByte)
{
    expectEntry("9F02 06 5F2A 02", 3, "9F02", 6);
    expectEntry("95 05", 2, "95", 5);
    expectEntry("9A 00 9C 01", 2, "9A", 0);
    expectEntry("DF8105 04", 4, "DF8105", 4);
}

TEST(DolEntry, LengthsFrom80UpAreTakenAsTheyStand)
{
    expectEntry("9F46 80", 3, "9F46", 128);
    expectEntry("9F46 83 01", 3, "9F46", 131);
    expectEntry("9F46 FF", 3, "9F46", 255);
}

TEST(DolEntry, OfTheTwoExtendedLengths)
{
    expectEntry("9F46 81 C8 95 05", 4, "9F46", 200);
    expectEntry("95 81 05", 3, "95", 5);
    expectEntry("9F46 82 012C", 5, "9F46", 300);
    expectEntry("95 82 0002 9A 03", 4, "95", 2);
}

TEST(DolEntry, PaddingIsNone)
{
    expectNoEntry("FF 06", 0);
    expectNoEntry("9FFF 06", 0);
}

TEST(DolEntry, UnfinishedTagIsNone)
{
    expectNoEntry("9F", 0);
    expectNoEntry("DF81", 0);
    expectNoEntry("9F" + repeated("81", 256) + "01 02", 0); // longer than the room for a tag
}

TEST(DolEntry, LongestTagHas256Bytes)
{
    const std::string tag = "9F" + repeated("81", 254) + "01";
    expectEntry(tag + "04", 257, tag, 4);
}

TEST(DolEntry, TwoByteLengthThatIsNotAllThereIsNone)
{
    expectNoEntry("9F46 82", 0);
    expectNoEntry("9F46 82 01", 0);
}

TEST(DolEntry, ShorterLengthThatIsNotThereIsAnError)
{
    expectNoEntry("9F02", -1);
    expectNoEntry("95", -1);
    expectNoEntry("9F46 81", -1);
}

TEST(DolEntry, NothingBehindTheRemainingLengthIsRead)
{
    const Bytes dol = fromHex("9F02 06");
    unsigned char tag[257];
    int length = 0;
    EXPECT_EQ(vrdk_GetTaginDOL(dol.data(), 3, tag, &length), 3);
    EXPECT_EQ(vrdk_GetTaginDOL(dol.data(), 2, tag, &length), -1);
    EXPECT_EQ(vrdk_GetTaginDOL(dol.data(), 1, tag, &length), 0);
}

// ---------------------------------------------------------------- asking for a tag

TEST(FindTagInDol, IsZeroWhenTheListAsksForTheTag)
{
    const std::string dol = "9F02 06 95 05 5F2A 02 9F37 04";
    for (const char* tag : {"9F02", "95", "5F2A", "9F37"}) {
        EXPECT_EQ(asksFor(tag, dol), 0) << tag;
    }
}

TEST(FindTagInDol, IsOneWhenItDoesNot)
{
    const std::string dol = "9F02 06 95 05 5F2A 02";
    for (const char* tag : {"9F03", "9F", "06", "2A", "9F0206", "5F"}) {
        EXPECT_EQ(asksFor(tag, dol), 1) << tag;
    }
}

TEST(FindTagInDol, StepsOverEveryLengthForm)
{
    EXPECT_EQ(asksFor("9A", "9F46 81 9A 95 05"), 1);
    EXPECT_EQ(asksFor("95", "9F46 81 9A 95 05"), 0);
    EXPECT_EQ(asksFor("9C", "9F46 82 9C01 9A 03"), 1);
    EXPECT_EQ(asksFor("9A", "9F46 82 9C01 9A 03"), 0);
    EXPECT_EQ(asksFor("9A", "9F46 83 9A 03"), 0); // 83 is one byte
    EXPECT_EQ(asksFor("9A", "9F46 80 9A 03"), 0);
}

TEST(FindTagInDol, TemplatesAreEntriesLikeOthers)
{
    EXPECT_EQ(asksFor("70", "70 04 9A 03"), 0);
    EXPECT_EQ(asksFor("9A", "70 04 9A 03"), 0);
}

TEST(FindTagInDol, PaddingEndsTheList)
{
    EXPECT_EQ(asksFor("9A", "FF 9A 03"), 1);
    EXPECT_EQ(asksFor("9A", "95 05 FF 9A 03"), 1);
    EXPECT_EQ(asksFor("9A", "9FFF 05 9A 03"), 1);
}

TEST(FindTagInDol, UnfinishedEntryEndsTheList)
{
    EXPECT_EQ(asksFor("9F", "95 05 9F"), 1);
    EXPECT_EQ(asksFor("9A", "95 82 01"), 1);
    EXPECT_EQ(asksFor("9A", "95 05 9A"), 0); // the tag itself is whole
}

TEST(FindTagInDol, EmptyListAsksForNothing)
{
    const unsigned char tag = 0x9A;
    EXPECT_EQ(vrdk_findtaginDOL(&tag, 1, &tag, 0), 1);
}

// ---------------------------------------------------------------- building: one field

struct Field {
    const char* what;
    const char* dol;
    const char* source;
    const char* values;
};

class DolField : public ::testing::TestWithParam<Field> {};

TEST_P(DolField, IsPaddedOrCutByItsFormat) { EXPECT_EQ(values(GetParam().dol, GetParam().source), GetParam().values); }

const Field kFields[] = {
    // as long as asked for
    {"NumericEqual", "9F02 06", "9F02 06 000000000100", "000000000100"},
    {"BinaryEqual", "9F37 04", "9F37 04 A1B2C3D4", "A1B2C3D4"},
    {"TextEqual", "9F1E 08", "9F1E 08 3132333435363738", "3132333435363738"},
    {"CompressedEqual", "5A 04", "5A 04 6222FFFF", "6222FFFF"},
    // longer: numeric loses its left end, all others the right one
    {"NumericCut", "9F02 04", "9F02 06 000000000100", "00000100"},
    {"NumericCutOfDigits", "9C 01", "9C 03 112233", "33"},
    {"BinaryCut", "9F4E 04", "9F4E 06 414243444546", "41424344"},
    {"TextCut", "5F20 02", "5F20 05 5741472F4D", "5741"},
    {"CompressedCut", "5A 03", "5A 04 62223344", "622233"},
    {"VariableCut", "84 05", "84 07 A0000003330101", "A000000333"},
    {"GroupCut", "04 01", "04 02 1122", "11"},
    // shorter: numeric on the right, compressed before FF, all others before zeros
    {"NumericPadded", "9F02 06", "9F02 02 0100", "000000000100"},
    {"NumericCountry", "9F1A 04", "9F1A 02 0156", "00000156"},
    {"CompressedPadded", "5A 0A", "5A 08 6222334455667788", "6222334455667788FFFF"},
    {"CompressedTrack", "9F20 05", "9F20 01 12", "12FFFFFFFF"},
    {"BinaryPadded", "9F66 04", "9F66 01 F4", "F4000000"},
    {"TextPadded", "9F1C 08", "9F1C 03 414243", "4142430000000000"},
    {"VariablePadded", "4F 08", "4F 05 A000000333", "A000000333000000"},
    {"GroupPadded", "04 03", "04 01 77", "770000"},
    // empty values
    {"NumericEmpty", "9F02 03", "9F02 00", "000000"},
    {"CompressedEmpty", "5A 03", "5A 00", "FFFFFF"},
    {"BinaryEmpty", "95 03", "95 00", "000000"},
    // the tag has two formats in the dictionary: the first is text
    {"FirstFormatCounts", "9F53 03", "9F53 01 52", "520000"},
    // zeros although the source has the tag
    {"UnknownTag", "DF01 02", "DF01 02 1234", "0000"},
    {"UnknownOneByteTag", "C3 02", "C3 02 1234", "0000"},
    {"UnknownLongTag", "DF8101 02", "DF8101 02 1234", "0000"},
    {"Template", "70 04", "70 04 9A021234", "00000000"},
    {"LongTemplate", "BF0C 02", "BF0C 04 9A021234", "0000"},
    // absent
    {"Absent", "9F37 04", "9F02 01 11", "00000000"},
    {"AbsentCompressed", "5A 04", "9F02 01 11", "00000000"},
    // found wherever the search finds it
    {"InsideATemplate", "9F36 02", "77 05 9F36 02 00A7", "00A7"},
    {"FirstOccurrence", "9C 01", "9C 01 01 9C 01 02", "01"},
    // nothing asked for
    {"LengthZero", "9A 00", "9A 03 291231", ""},
};

INSTANTIATE_TEST_SUITE_P(Dol, DolField, ::testing::ValuesIn(kFields),
                         [](const ::testing::TestParamInfo<Field>& i) { return std::string(i.param.what); });

// ---------------------------------------------------------------- building: the list

TEST(BuildDol, PutsTheFieldsOneBehindTheOther)
{
    EXPECT_EQ(values("9F02 06 9F03 06 9F1A 02 95 05 5F2A 02 9A 03 9C 01 9F37 04",
                     "9F1A 02 0156 9C 01 01 9A 03 291231 5F2A 02 0156 9F02 06 000000012345 9F37 04 01020304"),
              "000000012345"
              "000000000000"
              "0156"
              "0000000000"
              "0156"
              "291231"
              "01"
              "01020304");
}

TEST(BuildDol, AsksForATagAsOftenAsTheListDoes)
{
    EXPECT_EQ(values("9C 01 9C 02 9C 01", "9C 01 31"), "31"
                                                       "0031"
                                                       "31");
}

TEST(BuildDol, ValuesAreAlwaysTheSumOfTheLengthsAskedFor)
{
    EXPECT_EQ(values("9F46 81 C8 9F47 82 012C 9F48 80 9F49 83", kNoSource), repeated("00", 200 + 300 + 128 + 131));
}

TEST(BuildDol, ReadsExtendedLengthsOfTheSourceAsTheirOwn)
{
    // Unlike vrdk_gettagvalue, which takes the 81 form from the buffer's second byte (05 here).
    EXPECT_EQ(values("9F4E 04", "95 05 1112131415 9F4E 81 03 414243"), "41424300");
    EXPECT_EQ(values("9F4E 04", "95 05 1112131415 9F4E 82 0003 414243"), "41424300");
    EXPECT_EQ(values("9F02 02", "95 05 1112131415 9F02 82 0003 414243"), "4243");
    EXPECT_EQ(values("9F46 82 0101", "9F46 82 0102" + repeated("AB", 258)), repeated("AB", 257));
    EXPECT_EQ(values("9F46 03", "9F46 83" + repeated("AC", 131)), "ACACAC");
}

TEST(BuildDol, TakesASourceWithoutABound)
{
    const Built built = build("9F02 06 9C 01 5A 02", "9F02 02 0100 9C 01 31 00", false);
    EXPECT_EQ(built.result, 0);
    EXPECT_EQ(built.values(), "000000000100"
                              "31"
                              "0000");
}

TEST(BuildDol, TagWithAZeroByteGivesZeros)
{
    EXPECT_EQ(values("00 02 9C 01", "00 02 1122 9C 01 31"), "0000"
                                                            "31");
    EXPECT_EQ(values("9F00 02 9C 01", "9F00 02 1122 9C 01 31"), "0000"
                                                                "31");
}

TEST(BuildDol, ValueThatRunsPastTheSourceIsNotReadBehindIt)
{
    EXPECT_EQ(values("9F37 04 9C 01", "9C 01 31 9F37 04 A1B2"), "A1B20000"
                                                                "31");
}

TEST(BuildDol, EmptyListCannotBeBuilt)
{
    unsigned char output = kGuard;
    const Bytes source = fromHex("9C 01 31");
    const unsigned char dol = 0x9C;
    int length = kUntouched;
    EXPECT_EQ(vrdk_BuildDOL(source.data(), 3, &dol, 0, &output, &length), -1);
    EXPECT_EQ(length, 0);
    EXPECT_EQ(output, kGuard);
}

TEST(BuildDol, MissingListCannotBeBuilt)
{
    unsigned char output = kGuard;
    const Bytes source = fromHex("9C 01 31");
    int length = kUntouched;
    EXPECT_EQ(vrdk_BuildDOL(source.data(), 3, nullptr, 5, &output, &length), -1);
    EXPECT_EQ(length, 0);
    EXPECT_EQ(output, kGuard);
}

struct Unreadable {
    const char* what;
    const char* dol;
};

class UnreadableDol : public ::testing::TestWithParam<Unreadable> {};

TEST_P(UnreadableDol, CannotBeBuilt) { EXPECT_EQ(build(GetParam().dol, "9C 01 31").result, -1); }

// The fields in front of the entry that breaks the list are there, as they were built.
TEST_P(UnreadableDol, KeepsTheFieldsBeforeTheBreak)
{
    const Built built = build(std::string("9C 01 9A 02") + GetParam().dol, "9C 01 31");
    EXPECT_EQ(built.result, -1);
    EXPECT_EQ(built.values(), "310000");
}

INSTANTIATE_TEST_SUITE_P(Dol, UnreadableDol,
                         ::testing::Values(Unreadable{"Padding", "FF 04"}, Unreadable{"PaddingInATag", "9FFF 04"},
                                           Unreadable{"UnfinishedTag", "9F"},
                                           Unreadable{"UnfinishedTwoByteLength", "9F46 82 01"},
                                           Unreadable{"MissingLength", "9F37"},
                                           Unreadable{"MissingLengthBehind81", "9F46 81"}),
                         [](const ::testing::TestParamInfo<Unreadable>& i) { return std::string(i.param.what); });

TEST(BuildDol, FillsTheWholeCapacityButNoMore)
{
    EXPECT_EQ(values("9F46 82 0FFF 9C 01", "9C 01 31"), repeated("00", 4095) + "31");
    EXPECT_EQ(build("9F46 82 1000 9C 01", "9C 01 31").result, -1);
    EXPECT_EQ(build("9F46 82 1001", "9C 01 31").result, -1);
    EXPECT_EQ(build("9F46 82 FFFF 9F46 82 FFFF", "9C 01 31").result, -1);
}

TEST(DolEntry, NoneLeavesTheTagAndTheLength)
{
    for (const std::string& dol : {std::string("FF 04"), std::string("9F"), "9F" + repeated("81", 256) + "01 02",
                                   std::string("9F46 82 01"), std::string("9F02"), std::string("9F46 81")}) {
        const Entry entry = entryOf(dol);
        EXPECT_LE(entry.taken, 0) << dol;
        EXPECT_EQ(entry.tag, "") << dol;
        EXPECT_EQ(entry.length, kUntouched) << dol;
    }
}
