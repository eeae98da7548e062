// SPDX-License-Identifier: Apache-2.0
// TLV search in flat buffers. Bounded buffers lie on the heap in their exact size, so that the sanitizer sees a byte
// read behind them.
#include "support/card_text.h"
#include "support/line.h"

#include "ICC_COMM_VORN.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

using namespace vorn::test;

namespace {

constexpr std::uint8_t kGuard = 0xEE;
constexpr int kAbsent = -1;
constexpr int kUntouched = 4711;

// Exactly these bytes, on the heap.
class Exact {
public:
    explicit Exact(const std::string& hex) : size_(fromHex(hex).size()), bytes_(new unsigned char[size_])
    {
        const Bytes bytes = fromHex(hex);
        std::copy(bytes.begin(), bytes.end(), bytes_.get());
    }
    unsigned char* data() const { return bytes_.get(); }
    int size() const { return static_cast<int>(size_); }

private:
    std::size_t size_;
    std::unique_ptr<unsigned char[]> bytes_;
};

int offsetOf(const std::string& tagHex, const Exact& buffer, int bound)
{
    const Bytes tag = fromHex(tagHex);
    const unsigned char* const found = vrdk_findtag(tag.data(), static_cast<int>(tag.size()), buffer.data(), bound);
    return found == nullptr ? kAbsent : static_cast<int>(found - buffer.data());
}

// Where the object begins, or kAbsent.
int found(const std::string& tagHex, const std::string& bufferHex)
{
    const Exact buffer(bufferHex);
    return offsetOf(tagHex, buffer, buffer.size());
}

// The same without a bound: the buffer must hold the zero that ends it.
int foundUnbounded(const std::string& tagHex, const std::string& bufferHex)
{
    return offsetOf(tagHex, Exact(bufferHex), 0);
}

struct Value {
    int result = 0;
    int length = kUntouched;
    Bytes output = Bytes(2000, kGuard);

    // Checks that nothing was written behind the value.
    std::string hex() const
    {
        if (result != 0) {
            EXPECT_EQ(length, kUntouched);
        }
        const std::size_t size = result == 0 ? static_cast<std::size_t>(length) : 0;
        for (std::size_t i = size; i < output.size(); ++i) {
            EXPECT_EQ(output[i], kGuard) << "byte " << i << " was written, too";
        }
        return result == 0 ? toHex(Bytes(output.begin(), output.begin() + length)) : std::to_string(result);
    }
};

std::string valueIn(const std::string& tagHex, const Exact& buffer, int bound)
{
    const Bytes tag = fromHex(tagHex);
    Value value;
    value.result = vrdk_gettagvalue(tag.data(), static_cast<int>(tag.size()), buffer.data(), bound, value.output.data(),
                                    &value.length);
    return value.hex();
}

// The value as hex, or "-1".
std::string value(const std::string& tagHex, const std::string& bufferHex)
{
    const Exact buffer(bufferHex);
    return valueIn(tagHex, buffer, buffer.size());
}

std::string valueUnbounded(const std::string& tagHex, const std::string& bufferHex)
{
    return valueIn(tagHex, Exact(bufferHex), 0);
}

std::string tagData(int tagLength, const std::string& objectHex)
{
    const Exact object(objectHex);
    Value value;
    unsigned char length = 0xEE;
    value.result = vrdk_GetTagData(tagLength, object.data(), value.output.data(), &length);
    value.length = length;
    return value.hex();
}

// What remains of the list.
std::string missing(const std::string& listHex, const std::string& dataHex, bool bounded = true)
{
    const Exact data(dataHex);
    Exact list(listHex);
    const int length = vrdk_findapptag(data.data(), bounded ? data.size() : 0, list.data(), list.size());
    return toHex(Bytes(list.data(), list.data() + length));
}

} // namespace

// ---------------------------------------------------------------- finding, bounded

TEST(FindTag, FindsAnObjectInsideATemplate)
{
    const std::string record = "70 0A 5F20 07 41424344454647";
    EXPECT_EQ(found("5F20", record), 2);
    EXPECT_EQ(found("70", record), 0);
    EXPECT_EQ(found("5A", record), kAbsent);
}

TEST(FindTag, FindsTopLevelObjectsOneAfterTheOther)
{
    const std::string data = "5A 02 1234 9F02 01 00 57 00 9F36 02 0001";
    EXPECT_EQ(found("5A", data), 0);
    EXPECT_EQ(found("9F02", data), 4);
    EXPECT_EQ(found("57", data), 8);
    EXPECT_EQ(found("9F36", data), 10);
}

TEST(FindTag, StepsOverATwoByteTemplateLengthIntoNestedTemplates)
{
    const std::string fci = "6F 81 20 84 07 A0000003330101 A5 15 50 05 50424F4341 9F38 03 9F1A02 BF0C 03 9F4D00";
    EXPECT_EQ(found("9F38", fci), 21);
    EXPECT_EQ(found("A5", fci), 12);
    EXPECT_EQ(found("BF0C", fci), 27);
    EXPECT_EQ(found("9F4D", fci), 30);
}

TEST(FindTag, StepsOverAThreeByteTemplateLength) { EXPECT_EQ(found("9F36", "77 82 00 05 9F36 02 0102"), 4); }

TEST(FindTag, EntersEveryTemplateAtAnyDepth)
{
    std::string buffer = "9F36 02 0001";
    const char* templates[] = {"BF0C", "A5", "E1", "6F", "77", "61", "3F01", "7F21", "20", "71", "72", "73"};
    for (const char* tag : templates) {
        buffer = tlv(tag, buffer);
    }
    const std::string whole = toHex(fromHex(buffer));
    EXPECT_EQ(found("9F36", buffer), static_cast<int>(whole.size() / 2) - 5);
}

TEST(FindTag, DoesNotLookIntoThePrimitiveValues)
{
    EXPECT_EQ(found("5A", "57 04 5A021111 5A 01 22"), 6);
    EXPECT_EQ(found("5A", "9F46 03 5A0111"), kAbsent);
}

TEST(FindTag, FirstOccurrenceInBufferOrderWinsAlsoANestedOne)
{
    EXPECT_EQ(found("5A", "70 03 5A0111 5A 01 22"), 2);
    EXPECT_EQ(found("5A", "5A 01 22 70 03 5A0111"), 0);
}

TEST(FindTag, SkipsPrimitiveValuesByEveryLengthForm)
{
    const struct {
        const char* length;
        std::size_t size;
    } forms[] = {{"00", 0},      {"01", 1},        {"7F", 127},     {"80", 128},  {"83", 131},
                 {"FE", 254},    {"FF", 255},      {"81 00", 0},    {"81 05", 5}, {"81 FF", 255},
                 {"82 0003", 3}, {"82 0100", 256}, {"82 0301", 769}};
    for (const auto& form : forms) {
        const std::string skipped = withoutBlanks(std::string("9F46") + form.length + repeated("5A", form.size));
        EXPECT_EQ(found("5A", skipped + "5A0177"), static_cast<int>(skipped.size() / 2)) << form.length;
    }
}

// Only 81 and 82 are extended lengths; 80 and 83 behind a template are one byte like any other.
TEST(FindTag, StepsOverATemplateLengthOfOneByteForOtherValues)
{
    for (const char* length : {"00", "03", "7F", "80", "83", "84", "FF"}) {
        EXPECT_EQ(found("5A", std::string("70") + length + "5A0133"), 2) << length;
    }
}

TEST(FindTag, ComparesWholeTags)
{
    EXPECT_EQ(found("9F", "9F02 01 11"), kAbsent);
    EXPECT_EQ(found("9F0201", "9F02 01 11"), kAbsent);
    EXPECT_EQ(found("5F20", "5F24 01 11 5F20 01 22"), 4);
}

TEST(FindTag, ReadsTagsOfMoreThanTwoBytes)
{
    const std::string data = "DF8105 01 AA DF818203 01 CC 9A 01 DD";
    EXPECT_EQ(found("DF8105", data), 0);
    EXPECT_EQ(found("DF818203", data), 5);
    EXPECT_EQ(found("9A", data), 11);
    EXPECT_EQ(found("DF81", data), kAbsent);
    EXPECT_EQ(found("DF8182", data), kAbsent);
}

TEST(FindTag, TagsMayBe256BytesLong)
{
    const std::string longest = "9F" + repeated("81", 254) + "01";
    EXPECT_EQ(found(longest, "5A 00" + longest + "01 00"), 2);
    EXPECT_EQ(found("5A", longest + "00 5A 00"), 257);
}

TEST(FindTag, PaddingEndsTheWalk)
{
    EXPECT_EQ(found("5A", "FF 5A 01 11"), kAbsent);
    EXPECT_EQ(found("5A", "FF01 00 5A 01 11"), kAbsent); // also where it could be read as a tag
    EXPECT_EQ(found("FF", "FF 01 11"), kAbsent);
    EXPECT_EQ(found("5A", "9A 01 11 FF 5A 01 11"), kAbsent);
    EXPECT_EQ(found("5A", "70 04 9A 00 FF 00 5A 01 11"), kAbsent); // inside a template, too
}

TEST(FindTag, PaddingInsideATagEndsTheWalk)
{
    EXPECT_EQ(found("5A", "9FFF 01 11 5A 01 11"), kAbsent);
    EXPECT_EQ(found("9FFF", "9FFF 01 11"), kAbsent);
    EXPECT_EQ(found("5A", "DF81FF 01 11 5A 01 11"), kAbsent);
}

TEST(FindTag, PaddingInsideAValueDoesNot) { EXPECT_EQ(found("5A", "9A 02 FFFF 5A 01 11"), 4); }

TEST(FindTag, ZeroIsATagLikeAnyOther)
{
    EXPECT_EQ(found("5A", "00 02 1122 5A 01 33"), 4);
    EXPECT_EQ(found("00", "9A 01 11 00 01 22"), 3);
    EXPECT_EQ(found("5A", "00 00 00 00 5A 01 33"), 4);
}

TEST(FindTag, UnfinishedTagAtTheEndEndsTheWalk)
{
    EXPECT_EQ(found("9F", "5A 01 11 9F"), kAbsent);
    EXPECT_EQ(found("9F81", "5A 01 11 9F81"), kAbsent);
    EXPECT_EQ(found("5A", "9F"), kAbsent);
}

TEST(FindTag, CompleteTagAtTheEndIsFound)
{
    EXPECT_EQ(found("9F02", "5A 01 11 9F02"), 3);
    EXPECT_EQ(found("9C", "5A 01 11 9C"), 3);
}

TEST(FindTag, LengthPastTheEndEndsTheWalk)
{
    EXPECT_EQ(found("9C", "5A 08 1122 9C 01 00"), kAbsent);
    EXPECT_EQ(found("9C", "5A 82 FFFF 9C 01 00"), kAbsent);
    EXPECT_EQ(found("9C", "5A 81"), kAbsent);
    EXPECT_EQ(found("9C", "5A 82 00"), kAbsent);
    EXPECT_EQ(found("9C", "70"), kAbsent);
    EXPECT_EQ(found("9C", "70 82 01"), kAbsent);
}

TEST(FindTag, NothingBehindTheBoundIsFound)
{
    const Exact buffer("9A 01 11 5A 01 22");
    EXPECT_EQ(offsetOf("5A", buffer, 6), 3);
    EXPECT_EQ(offsetOf("5A", buffer, 4), 3); // its tag is inside
    EXPECT_EQ(offsetOf("5A", buffer, 3), kAbsent);
}

// ---------------------------------------------------------------- finding, without a bound

TEST(FindTagUnbounded, FindsTheObjectAndStopsAtTheZeroBehindTheData)
{
    const std::string data = "9F02 06 000000000100 00";
    EXPECT_EQ(foundUnbounded("9F02", data), 0);
    EXPECT_EQ(foundUnbounded("5A", data), kAbsent);
}

TEST(FindTagUnbounded, ZerosInValuesAndLengthsDoNotEndTheWalk)
{
    EXPECT_EQ(foundUnbounded("9C", "95 05 0000000000 57 00 9C 01 00 00"), 9);
}

TEST(FindTagUnbounded, ZeroInPlaceOfATagEndsTheWalk)
{
    EXPECT_EQ(foundUnbounded("9C", "95 01 11 00 9C 01 00 00"), kAbsent);
    EXPECT_EQ(foundUnbounded("00", "95 01 11 00 01 00"), kAbsent);
    EXPECT_EQ(foundUnbounded("9C", "00"), kAbsent);
}

TEST(FindTagUnbounded, PaddingEndsTheWalk)
{
    EXPECT_EQ(foundUnbounded("9C", "FF 9C 01 00 00"), kAbsent);
    EXPECT_EQ(foundUnbounded("9C", "FF01 00 9C 01 00 00"), kAbsent);
    EXPECT_EQ(foundUnbounded("9C", "9FFF 00 9C 01 00 00"), kAbsent);
}

TEST(FindTagUnbounded, EntersTemplates) { EXPECT_EQ(foundUnbounded("9C", "70 81 03 9C 01 00 00"), 3); }

TEST(FindTagUnbounded, TagsHaveAtMostTwoBytes)
{
    // DF81 with the length 05, whose value covers the five bytes that follow.
    const std::string data = "DF81 05 1122334455 9C 01 00 00";
    EXPECT_EQ(foundUnbounded("DF81", data), 0);
    EXPECT_EQ(foundUnbounded("9C", data), 8);
    EXPECT_EQ(foundUnbounded("DF8105", data), kAbsent);
}

// ---------------------------------------------------------------- reading a value

TEST(TagValue, ReadsAOneByteLength)
{
    EXPECT_EQ(value("9F36", "77 07 9F36 02 01A2 57 00"), "01A2");
    EXPECT_EQ(value("57", "77 07 9F36 02 01A2 57 00"), "");
}

TEST(TagValue, ReadsLengthsFrom80UpAsTheyStand)
{
    EXPECT_EQ(value("9F46", "9F46 80" + repeated("3C", 128) + "5A00"), repeated("3C", 128));
    EXPECT_EQ(value("9F46", "9F46 83" + repeated("3D", 131) + "5A00"), repeated("3D", 131));
    EXPECT_EQ(value("9F46", "9F46 FF" + repeated("3E", 255)), repeated("3E", 255));
}

TEST(TagValue, ReadsATwoByteLength)
{
    EXPECT_EQ(value("9F46", "9F46 82 0102" + repeated("C3", 258) + "5A00"), repeated("C3", 258));
    EXPECT_EQ(value("9F46", "9F46 82 0003 A1A2A3 FF"), "A1A2A3");
}

TEST(TagValue, ReadsATemplateWhole) { EXPECT_EQ(value("A5", "6F 07 A5 05 50 03 414243"), "5003414243"); }

TEST(TagValue, AbsentTagWritesNothing)
{
    EXPECT_EQ(value("5A", "57 01 11"), "-1");
    EXPECT_EQ(value("5A", "FF 5A 01 11"), "-1");
    EXPECT_EQ(valueUnbounded("5A", "57 01 11 00"), "-1");
}

// A length in the 81 form is taken from the second byte of the whole buffer.
TEST(TagValue, Of81FormHasTheLengthInTheBuffersSecondByte)
{
    EXPECT_EQ(value("9F46", "5A 02 1122 9F46 81 05 C1C2C3C4C5"), "C1C2");
    EXPECT_EQ(value("9F46", "9A 03 112233 70 0A 9F46 81 04 C1C2C3C4 5A 00"), "C1C2C3");
    EXPECT_EQ(value("9F46", "9F46 81 02" + repeated("D7", 0x46)), repeated("D7", 0x46)); // its own tag's second byte
    EXPECT_EQ(value("57", "9A 00 57 81 03 112233"), "");
}

TEST(TagValue, Of81FormInARecordOf81FormHas129Bytes)
{
    // 70 81 LL: the second byte is the 81 itself.
    const std::string certificate = repeated("B5", 0x90);
    EXPECT_EQ(value("90", "70 81 93 90 81 90" + certificate), repeated("B5", 129));
    // As the first object of the buffer, too.
    EXPECT_EQ(value("90", "90 81 90" + certificate), repeated("B5", 129));
    // What follows the object is handed out with it.
    EXPECT_EQ(value("92", "70 81 8A 92 81 03 A1A2A3 5A 81 80" + repeated("77", 128)),
              "A1A2A35A8180" + repeated("77", 123));
}

TEST(TagValue, Of81FormIsFilledWithZerosPastTheEnd)
{
    EXPECT_EQ(value("90", "70 81 07 90 81 04 01020304"), "01020304" + repeated("00", 125));
    EXPECT_EQ(value("90", "9A 04 00000000 90 81"), "00000000");
}

TEST(TagValue, OtherFormsAreCutAtTheEnd)
{
    EXPECT_EQ(value("5A", "5A 08 622233"), "622233");
    EXPECT_EQ(value("5A", "5A 82 0100 6222"), "6222");
    EXPECT_EQ(value("5A", "9A 00 5A"), "");
    EXPECT_EQ(value("5A", "9A 00 5A 82 01"), "");
}

TEST(TagValue, IsReadWithoutABoundToo)
{
    EXPECT_EQ(valueUnbounded("9F02", "9A 03 291231 9F02 06 000000000100 00"), "000000000100");
    EXPECT_EQ(valueUnbounded("9F4E", "9A 02 2912 9F4E 82 0003 414243 00"), "414243");
    EXPECT_EQ(valueUnbounded("9F4E", "9A 02 2912 9F4E 81 03 414243 00"), "4142"); // the 81 form, here, too
}

// ---------------------------------------------------------------- an object found before

TEST(TagData, ReadsAOneByteLength)
{
    EXPECT_EQ(tagData(1, "5A 03 622233 9A"), "622233");
    EXPECT_EQ(tagData(2, "9F36 02 00A1"), "00A1");
    EXPECT_EQ(tagData(3, "DF8101 01 77"), "77");
    EXPECT_EQ(tagData(1, "57 00"), "");
}

TEST(TagData, ReadsThe81FormFromItsOwnLength)
{
    EXPECT_EQ(tagData(1, "90 81 03 A1A2A3"), "A1A2A3");
    EXPECT_EQ(tagData(2, "9F46 81 F0" + repeated("6B", 240)), repeated("6B", 240));
}

TEST(TagData, KeepsOnlyTheLowByteOfThe82Form)
{
    EXPECT_EQ(tagData(1, "90 82 0004 A1A2A3A4"), "A1A2A3A4");
    EXPECT_EQ(tagData(1, "90 82 0105" + repeated("6C", 261)), repeated("6C", 5));
    EXPECT_EQ(tagData(2, "9F46 82 0200" + repeated("6D", 512)), "");
}

TEST(TagData, ReadsOtherLengthsFrom80UpAsTheyStand)
{
    EXPECT_EQ(tagData(1, "90 80" + repeated("6E", 128)), repeated("6E", 128));
    EXPECT_EQ(tagData(1, "90 83" + repeated("6F", 131)), repeated("6F", 131));
}

// ---------------------------------------------------------------- pruning a list

TEST(FindAppTag, RemovesTheTagsThatTheDataHold)
{
    EXPECT_EQ(missing("5A 5F20 9F1F", "70 04 5A 02 6222"), "5F209F1F");
    EXPECT_EQ(missing("5A 5F20 9F1F", "70 05 5F20 02 4142"), "5A9F1F");
    EXPECT_EQ(missing("5A 5F20 9F1F", "70 05 9F1F 02 4142"), "5A5F20");
}

TEST(FindAppTag, LeavesTheListWhenNothingIsThere) { EXPECT_EQ(missing("8C 5A 5F34", "70 03 57 01 11"), "8C5A5F34"); }

TEST(FindAppTag, EmptiesTheListWhenAllIsThere)
{
    EXPECT_EQ(missing("5A 5F20 57", "57 01 11 70 07 5F20 01 22 5A 01 33"), "");
}

TEST(FindAppTag, GoesOnAtTheSamePlaceAfterARemoval)
{
    EXPECT_EQ(missing("5A 57 9F1F 5F20 8C", "5A 01 11 57 01 22 9F1F 01 33 8C 00"), "5F20");
    EXPECT_EQ(missing("5A 5A 57 5A", "5A 01 11"), "57"); // every entry of a tag
}

TEST(FindAppTag, OfAnEmptyListIsEmpty)
{
    unsigned char list = kGuard;
    const Exact data("5A 01 11");
    EXPECT_EQ(vrdk_findapptag(data.data(), data.size(), &list, 0), 0);
    EXPECT_EQ(list, kGuard);
}

TEST(FindAppTag, ListTagsHaveTwoBytesAtMost)
{
    // 9F81 and 05, not 9F8105: the data's own tag has three bytes and is another one.
    EXPECT_EQ(missing("9F81 05", "9F8105 01 11"), "9F8105");
    EXPECT_EQ(missing("9F81 05", "05 01 11"), "9F81");
}

TEST(FindAppTag, UnfinishedLastTagOfTheListStays) { EXPECT_EQ(missing("5A 9F", "5A 01 11 9F36 01 22"), "9F"); }

TEST(FindAppTag, TakesDataWithoutABound) { EXPECT_EQ(missing("9F02 5A 9C", "9F02 01 00 9C 01 31 00", false), "5A"); }

TEST(FindAppTag, WritesNothingBehindTheListsNewEnd)
{
    const Exact data("5A 01 11");
    Exact list("5A 57 9F1F");
    EXPECT_EQ(vrdk_findapptag(data.data(), data.size(), list.data(), 2), 1); // the list is its first two tags
    EXPECT_EQ(toHex(Bytes(list.data(), list.data() + 1)), "57");
    EXPECT_EQ(toHex(Bytes(list.data() + 2, list.data() + 4)), "9F1F");
}

// ---------------------------------------------------------------- lengths and tags without an end

// 80 is no indefinite form here: a template is entered whatever its length says, the two zeros at its end are an
// object of their own, and an object that is no template has 128 bytes.
TEST(IndefiniteLength, OfATemplateIsPassedOverWithItsEnd)
{
    EXPECT_EQ(found("5A", "70 80 5A 01 33 00 00 57 01 44"), 2);
    EXPECT_EQ(found("57", "70 80 5A 01 33 00 00 57 01 44"), 7);
    EXPECT_EQ(found("5A", "6F 80 A5 80 5A 01 33 00 00 00 00"), 4);
}

TEST(IndefiniteLength, OfAnotherObjectIsThatOf128Bytes)
{
    EXPECT_EQ(found("57", "5A 80 11 00 00 57 01 44"), kAbsent);
    EXPECT_EQ(value("5A", "5A 80 11 00 00 57 01 44"), "110000570144");
}

// As 84 three or four length bytes are one: what they would say is not looked at.
TEST(LongLength, OfMoreThanTwoBytesIsOneByte)
{
    for (const char* form : {"83 000002", "84 00000002", "84 FFFFFFFF", "88 0000000000000002", "FE 02", "FF 02"}) {
        const std::string object = withoutBlanks(std::string("5A") + form + "1122 57 01 44");
        EXPECT_EQ(found("57", object), kAbsent) << form;
        EXPECT_EQ(value("5A", object), object.substr(4)) << form;
    }
}

TEST(EndlessTag, EndsTheWalk)
{
    for (const std::size_t size : {255U, 256U, 300U, 70000U}) {
        const std::string data = "57 01 44 9F" + repeated("81", size) + "01 00 5A 01 33";
        EXPECT_EQ(found("57", data), 0) << size;
        EXPECT_EQ(found("5A", data), kAbsent) << size;
        EXPECT_EQ(missing("5A 57", data), "5A") << size;
    }
    EXPECT_EQ(found("5A", "9F" + repeated("81", 70000)), kAbsent); // to the end of the buffer
}

TEST(DeepNesting, NeedsNoStack)
{
    constexpr int kLevels = 500000; // a call for each would use up any stack
    EXPECT_EQ(found("5A", repeated("7080", kLevels) + "5A0133"), 2 * kLevels);
}
