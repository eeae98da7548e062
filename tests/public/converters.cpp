// SPDX-License-Identifier: Apache-2.0
// Conversions between raw bytes, hex text, 3x nibble text, BCD and dates. Every output buffer is filled with a guard
// byte before the call, so a byte too much shows.
#include "support/clock.h"
#include "support/line.h"

#include "ICC_COMM_VORN.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <string>
#include <vector>

using namespace vorn::test;

namespace {

constexpr std::uint8_t kGuard = 0xEE;

// An output buffer of which one sees what was written.
class Output {
public:
    explicit Output(std::size_t size = 64) : bytes_(size, kGuard) {}

    unsigned char* bytes() { return bytes_.data(); }
    char* text() { return reinterpret_cast<char*>(bytes_.data()); }

    // The first n bytes; fails when the byte behind them was written, too.
    std::string hex(std::size_t n) const
    {
        for (std::size_t i = n; i < bytes_.size(); ++i) {
            EXPECT_EQ(bytes_[i], kGuard) << "byte " << i << " was written, too";
        }
        return toHex(Bytes(bytes_.begin(), bytes_.begin() + static_cast<std::ptrdiff_t>(n)));
    }

private:
    Bytes bytes_;
};

Bytes allBytes()
{
    Bytes bytes(256);
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        bytes[i] = static_cast<std::uint8_t>(i);
    }
    return bytes;
}

const unsigned char* asBytes(const char* text) { return reinterpret_cast<const unsigned char*>(text); }

std::string asciiToHex(const char* text, int count, int size)
{
    Output out;
    AsciiToHex(text, out.bytes(), count);
    return out.hex(static_cast<std::size_t>(size));
}

std::string halfToChar(const char* text, int size)
{
    Output out;
    int count = -7;
    halftochar(text, out.bytes(), &count);
    EXPECT_EQ(count, size);
    return out.hex(static_cast<std::size_t>(size) + 1);
}

std::string from3x(const char* text, int count, int size)
{
    Output out;
    EXPECT_EQ(_3xToHex(asBytes(text), out.bytes(), count), size);
    return out.hex(static_cast<std::size_t>(size));
}

std::string charToArray(const char* text, int size)
{
    Output out;
    EXPECT_EQ(Vr_chartoarray(text, out.bytes()), size);
    return out.hex(static_cast<std::size_t>(size));
}

std::string ascToBcd(const std::string& digits, unsigned leftPad, std::size_t size)
{
    Output out;
    AscToBcd(out.bytes(), digits.c_str(), static_cast<int>(digits.size()), leftPad);
    return out.hex(size);
}

std::string numeric(const std::string& digits, int width)
{
    Output out(1024);
    EXPECT_EQ(bcdtocn(digits.c_str(), static_cast<int>(digits.size()), width, out.bytes()), width);
    return out.hex(static_cast<std::size_t>(width));
}

} // namespace

// ---------------------------------------------------------------- ConvAscii

TEST(ConvAscii, WritesTwoUpperCaseDigitsAByteAndANul)
{
    const unsigned char bytes[] = {0x00, 0x9F, 0x38, 0xAB, 0xCD, 0xEF};
    Output out;
    EXPECT_EQ(ConvAscii(bytes, out.text(), 6), out.text() + 12);
    EXPECT_EQ(out.hex(13), "30303946333841424344454600"); // 009F38ABCDEF
}

TEST(ConvAscii, OfNothingWritesOnlyANulAndReturnsTheStart)
{
    Output out;
    EXPECT_EQ(ConvAscii(asBytes(""), out.text(), 0), out.text());
    EXPECT_EQ(out.hex(1), "00");
}

TEST(ConvAscii, ReturnsTheNulSoThatTextsCanBeAppended)
{
    const unsigned char bytes[] = {0x6F, 0x1A, 0x84};
    Output out;
    char* end = ConvAscii(bytes, out.text(), 1);
    end = ConvAscii(bytes + 1, end, 2);
    EXPECT_EQ(end, out.text() + 6);
    EXPECT_STREQ(out.text(), "6F1A84");
}

TEST(ConvAscii, TextOfEveryByteValueReadsBackThroughAllHexReaders)
{
    const Bytes all = allBytes();
    Output text(600);
    ConvAscii(all.data(), text.text(), 256);
    ASSERT_EQ(toHex(all), text.text());

    Output viaText(300), viaBytes(300), viaHalf(300);
    EXPECT_EQ(AsciiToHex(text.text(), viaText.bytes(), 512), 512);
    EXPECT_EQ(viaText.hex(256), toHex(all));
    AsciiToHex(text.bytes(), viaBytes.bytes(), 512);
    EXPECT_EQ(viaBytes.hex(256), toHex(all));
    int count = 0;
    halftochar(text.text(), viaHalf.bytes(), &count);
    EXPECT_EQ(count, 256);
    EXPECT_EQ(viaHalf.hex(257), toHex(all) + "00");
}

// ---------------------------------------------------------------- AsciiToHex

TEST(AsciiToHex, ReadsEitherCase)
{
    EXPECT_EQ(asciiToHex("9f38", 4, 2), "9F38");
    EXPECT_EQ(asciiToHex("9F38", 4, 2), "9F38");
    EXPECT_EQ(asciiToHex("aBcDeF", 6, 3), "ABCDEF");
}

TEST(AsciiToHex, ReturnsTheCharactersTakenNotTheBytes)
{
    Output out;
    EXPECT_EQ(AsciiToHex("0123456789", out.bytes(), 10), 10);
    EXPECT_EQ(out.hex(5), "0123456789");
    EXPECT_EQ(AsciiToHex("9F3", out.bytes(), 3), 3);
}

TEST(AsciiToHex, OfNoCharactersWritesNothing)
{
    Output out;
    EXPECT_EQ(AsciiToHex("9F", out.bytes(), 0), 0);
    EXPECT_EQ(out.hex(0), "");
    AsciiToHex("9F", out.bytes(), -2);
    EXPECT_EQ(out.hex(0), "");
}

TEST(AsciiToHex, OddCountTakesTheCharacterBehindIt)
{
    EXPECT_EQ(asciiToHex("9F3", 3, 2), "9F30"); // the NUL
    EXPECT_EQ(asciiToHex("9F3857", 3, 2), "9F38");
}

// The first of a pair is masked to four bits, the second is added as it is.
TEST(AsciiToHex, CharacterThatIsNoDigitCarriesIntoTheHighNibble)
{
    EXPECT_EQ(asciiToHex("1G", 2, 1), "20"); // 7 + 9 = 16
    EXPECT_EQ(asciiToHex("2o", 2, 1), "38"); // 15 + 9 = 24
    EXPECT_EQ(asciiToHex("Fo", 2, 1), "08"); // and out of the byte
}

TEST(AsciiToHex, FirstCharacterThatIsNoDigitIsMasked)
{
    EXPECT_EQ(asciiToHex("G1", 2, 1), "01"); // 7 + 9 = 16, masked 0
    EXPECT_EQ(asciiToHex("o0", 2, 1), "80"); // 15 + 9 = 24, masked 8
}

TEST(AsciiToHex, CharactersUpToNineGiveTheirLowFourBits)
{
    EXPECT_EQ(asciiToHex("/ ", 2, 1), "F0");
    EXPECT_EQ(asciiToHex(" -", 2, 1), "0D");
    EXPECT_EQ(asciiToHex(":;", 2, 1), "44"); // above '9': 10 + 9 masked, 11 + 9 added
}

TEST(AsciiToHex, ByteOverloadReadsAlike)
{
    const struct {
        const char* text;
        int count;
        const char* bytes;
    } cases[] = {{"9f38", 4, "9F38"}, {"9F3", 3, "9F30"}, {"1G", 2, "20"}, {"G1", 2, "01"}, {"Fo", 2, "08"}};
    for (const auto& c : cases) {
        Output out;
        AsciiToHex(asBytes(c.text), out.bytes(), c.count);
        EXPECT_EQ(out.hex(fromHex(c.bytes).size()), c.bytes) << c.text;
    }
}

// ---------------------------------------------------------------- halftochar and chartohalf

TEST(HalfToChar, ReadsEitherCaseAndWritesANulBehind) { EXPECT_EQ(halfToChar("5f2009Af", 4), "5F2009AF00"); }

TEST(HalfToChar, OddLengthWritesNothingAndCountsZero)
{
    for (const char* text : {"ABC", "1", "12345"}) {
        Output out;
        int count = 9;
        halftochar(text, out.bytes(), &count);
        EXPECT_EQ(count, 0);
        EXPECT_EQ(out.hex(0), "");
    }
}

TEST(HalfToChar, EmptyTextWritesOnlyTheNul) { EXPECT_EQ(halfToChar("", 0), "00"); }

TEST(HalfToChar, MissingTextIsAnEmptyOne) { EXPECT_EQ(halfToChar(nullptr, 0), "00"); }

// 'a' to 'f' are read by the rule for everything that is no digit and no capital: the code less 57h.
TEST(HalfToChar, OtherCharactersCountFromSmallA)
{
    EXPECT_EQ(halfToChar("X0", 1), "1000"); // 58h - 57h
    EXPECT_EQ(halfToChar("a0", 1), "A000");
    EXPECT_EQ(halfToChar("[0", 1), "4000"); // 5Bh - 57h
    EXPECT_EQ(halfToChar("3Z", 1), "3300"); // 5Ah - 57h
}

TEST(CharToHalf, WritesTwoUpperCaseDigitsAndANul)
{
    const struct {
        int value;
        const char* text;
    } cases[] = {{0x00, "00"}, {0x0A, "0A"}, {0x7F, "7F"}, {0x80, "80"}, {0xEF, "EF"}, {0x1AB, "AB"}, {-2, "FE"}};
    for (const auto& c : cases) {
        Output out;
        chartohalf(c.value, out.text());
        EXPECT_EQ(out.hex(3), toHex(Bytes(c.text, c.text + 3)));
    }
}

// ---------------------------------------------------------------- 3x nibble text

TEST(ConvTo3x, WritesEachNibbleAsACharacterFrom30)
{
    const unsigned char bytes[] = {0xAF, 0x05, 0x92};
    Output out;
    EXPECT_EQ(convTo3x(bytes, 3, out.bytes()), 6);
    EXPECT_EQ(out.hex(6), "3A3F30353932"); // no NUL behind
    EXPECT_EQ(out.bytes()[0], ':');
    EXPECT_EQ(out.bytes()[1], '?');
}

TEST(ConvTo3x, OfNothingWritesNothing)
{
    Output out;
    EXPECT_EQ(convTo3x(asBytes("A"), 0, out.bytes()), 0);
    EXPECT_EQ(out.hex(0), "");
}

TEST(One2Two30, WritesBothNibblesWithoutANul)
{
    const struct {
        unsigned char byte;
        const char* characters;
    } cases[] = {{0xAF, "3A3F"}, {0x00, "3030"}, {0x9C, "393C"}, {0xFF, "3F3F"}, {0x80, "3830"}};
    for (const auto& c : cases) {
        Output out;
        one2two_30(out.bytes(), c.byte);
        EXPECT_EQ(out.hex(2), c.characters);
    }
}

TEST(From3x, CountIsOfCharactersAndTheResultOfBytes)
{
    EXPECT_EQ(from3x(":?05", 4, 2), "AF05");
    EXPECT_EQ(from3x(":?05", 2, 1), "AF");
    EXPECT_EQ(from3x(":?05", 0, 0), "");
}

TEST(From3x, OddCountIsRoundedDown)
{
    EXPECT_EQ(from3x("123456", 5, 2), "1234");
    EXPECT_EQ(from3x("123456", 1, 0), "");
}

TEST(From3x, OnlyTheLowFourBitsOfACharacterCount) { EXPECT_EQ(from3x("AO\x7F\xB2", 4, 2), "1FF2"); }

TEST(From3x, ReadsAWholeFrameOf512Characters)
{
    const Bytes all = allBytes();
    Output text(1024), out(300);
    ASSERT_EQ(convTo3x(all.data(), 256, text.bytes()), 512);
    EXPECT_EQ(_3xToHex(text.bytes(), out.bytes(), 512), 256);
    EXPECT_EQ(out.hex(256), toHex(all));
}

TEST(From3x, MoreThan512CharactersAreCut)
{
    const std::string text(1200, ';');
    Output out(700);
    EXPECT_EQ(_3xToHex(asBytes(text.c_str()), out.bytes(), 514), 256);
    out.hex(256);
}

TEST(From3x, NoMoreThanTheCharactersCountedAreNeeded)
{
    // Exactly two characters on the heap: reading a third is seen by the sanitizer.
    const std::vector<unsigned char> text{'7', '<'};
    Output out;
    EXPECT_EQ(_3xToHex(text.data(), out.bytes(), 2), 1);
    EXPECT_EQ(out.hex(1), "7C");
}

TEST(From3x, OfANegativeCountWritesNothing) { EXPECT_EQ(from3x("3132", -2, 0), ""); }

TEST(VrCharToArray, ReadsPairs) { EXPECT_EQ(charToArray("3;00<>", 3), "3B00CE"); }

TEST(VrCharToArray, OddLastCharacterIsAByteOfItsOwnUnshifted)
{
    EXPECT_EQ(charToArray("123", 2), "1203");
    EXPECT_EQ(charToArray(":?1", 2), "AF01");
    EXPECT_EQ(charToArray("<", 1), "0C");
}

TEST(VrCharToArray, OnlyTheLowFourBitsCount) { EXPECT_EQ(charToArray("AOz", 2), "1F0A"); }

TEST(VrCharToArray, EmptyAndMissingTextGiveNothing)
{
    EXPECT_EQ(charToArray("", 0), "");
    EXPECT_EQ(charToArray(nullptr, 0), "");
}

TEST(VrCharToArray, Reads4096BytesAtMost)
{
    Output out(5000);
    EXPECT_EQ(Vr_chartoarray(std::string(8192, '5').c_str(), out.bytes()), 4096);
    out.hex(4096);
    EXPECT_EQ(Vr_chartoarray(std::string(8195, '6').c_str(), out.bytes()), 4096);
    EXPECT_EQ(out.hex(4096).substr(8188), "6666");
}

// ---------------------------------------------------------------- BCD

TEST(AscToBcd, PacksTwoDigitsAByteAndStores50Behind)
{
    EXPECT_EQ(ascToBcd("20291231", 0, 5), "2029123150");
    EXPECT_EQ(ascToBcd("20291231", 1, 5), "2029123150"); // the flag matters with an odd count only
}

TEST(AscToBcd, OddCountIsPaddedOnTheLeftWithTheFlag)
{
    EXPECT_EQ(ascToBcd("12345", 1, 4), "01234550");
    EXPECT_EQ(ascToBcd("7", 1, 2), "0750");
    EXPECT_EQ(ascToBcd("987", 0x80000000U, 3), "098750");
}

TEST(AscToBcd, OddCountLosesItsLastDigitWithoutTheFlag)
{
    EXPECT_EQ(ascToBcd("12345", 0, 3), "123450");
    EXPECT_EQ(ascToBcd("7", 0, 1), "50");
}

TEST(AscToBcd, OfNoDigitsStoresOnly50)
{
    EXPECT_EQ(ascToBcd("", 0, 1), "50");
    EXPECT_EQ(ascToBcd("", 1, 1), "50");
}

TEST(AscToBcd, LettersOfEitherCaseAreHexDigits) { EXPECT_EQ(ascToBcd("aFBc0d", 0, 4), "AFBC0D50"); }

TEST(AscToBcd, CharactersBetweenTheDigitsAndTheLettersCountFromTheNearestBelow)
{
    EXPECT_EQ(ascToBcd("1:2?", 0, 3), "1A2F50"); // 3Ah - 30h, 3Fh - 30h
    EXPECT_EQ(ascToBcd("F0`0", 0, 3), "F09050"); // 60h - 37h = 29h: its low nibble fits
}

TEST(AscToBcd, CharactersBelowZeroCountAsZero) { EXPECT_EQ(ascToBcd("1/ 2-+", 0, 4), "10020050"); }

TEST(BcdToCn, PadsWithZerosOnTheLeft)
{
    EXPECT_EQ(numeric("100", 6), "000000000100");
    EXPECT_EQ(numeric("9", 1), "09");
    EXPECT_EQ(numeric("", 3), "000000");
}

TEST(BcdToCn, FieldThatIsJustFullIsTakenWhole) { EXPECT_EQ(numeric("123456", 3), "123456"); }

TEST(BcdToCn, CutsOnTheLeft)
{
    EXPECT_EQ(numeric("1234567", 2), "4567");
    EXPECT_EQ(numeric("98765", 2), "8765");
}

TEST(BcdToCn, CharacterThatIsNoDigitCountsAsZero)
{
    EXPECT_EQ(numeric("1A2b", 2), "1020");
    EXPECT_EQ(numeric("-5 6", 2), "0506");
}

TEST(BcdToCn, OfNoWidthWritesNothing) { EXPECT_EQ(numeric("123", 0), ""); }

TEST(BcdToCn, OfANegativeWidthWritesNothing)
{
    Output out;
    EXPECT_EQ(bcdtocn("123", 3, -1, out.bytes()), 0);
    EXPECT_EQ(out.hex(0), "");
}

TEST(BcdToCn, WidestFieldIs512Bytes)
{
    const std::string digits(1024, '7');
    EXPECT_EQ(numeric(digits, 512), digits);
    Output out(1024);
    EXPECT_EQ(bcdtocn("12", 2, 600, out.bytes()), 512);
    EXPECT_EQ(out.hex(512).substr(1020), "0012");
}

// ---------------------------------------------------------------- date

class TodaysDate : public ::testing::Test {
protected:
    ~TodaysDate() override
    {
        Clock::release();
        unsetenv("TZ");
        tzset();
    }

    static std::string at(std::time_t seconds, const char* zone)
    {
        Clock::freeze(seconds);
        setenv("TZ", zone, 1); // the library is to notice by itself
        Output out;
        GetYYMMDD(out.bytes());
        return out.hex(3);
    }
};

TEST_F(TodaysDate, IsSixBcdDigitsInThreeBytes)
{
    EXPECT_EQ(at(1700000000, "UTC0"), "231114"); // 2023-11-14 22:13:20
    EXPECT_EQ(at(1112313600, "UTC0"), "050401"); // 2005-04-01 00:00:00
}

TEST_F(TodaysDate, IsTheLocalOne)
{
    EXPECT_EQ(at(1893454200, "UTC0"), "291231"); // 2029-12-31 23:30:00
    EXPECT_EQ(at(1893454200, "CST-8"), "300101");
    EXPECT_EQ(at(1893454200, "UTC0"), "291231"); // a terminal's zone may be set while the library is loaded
}

TEST_F(TodaysDate, KeepsTheYearModuloAHundred)
{
    EXPECT_EQ(at(946684799, "UTC0"), "991231");  // 1999
    EXPECT_EQ(at(951782400, "UTC0"), "000229");  // 2000
    EXPECT_EQ(at(4102444800, "UTC0"), "000101"); // 2100
}

// ---------------------------------------------------------------- random

class RandomBytes : public ::testing::Test {
protected:
    ~RandomBytes() override { Clock::release(); }

    static std::string drawnAt(std::time_t seconds, int count)
    {
        Clock::freeze(seconds);
        Output out(8192);
        EXPECT_EQ(get_random(count, out.bytes()), count);
        return out.hex(static_cast<std::size_t>(count));
    }
};

TEST_F(RandomBytes, AreTheNonZeroLowBytesOfTheGeneratorSeededWithTheSecond)
{
    const std::time_t second = 1234567890;
    const std::string drawn = drawnAt(second, 3000);

    Bytes expected;
    int zeros = 0;
    srand(static_cast<unsigned>(second));
    while (expected.size() < 3000) {
        const int low = rand() & 0xFF;
        if (low == 0) {
            ++zeros;
        } else {
            expected.push_back(static_cast<std::uint8_t>(low));
        }
    }
    EXPECT_EQ(drawn, toHex(expected));
    EXPECT_GT(zeros, 0) << "no zero came up: draw more bytes";
}

TEST_F(RandomBytes, RepeatWithinASecondAndDifferInTheNext)
{
    const std::string first = drawnAt(1700000000, 8);
    EXPECT_EQ(drawnAt(1700000000, 8), first);
    EXPECT_NE(drawnAt(1700000001, 8), first);
    EXPECT_EQ(drawnAt(1700000000, 4), first.substr(0, 8));
}

TEST_F(RandomBytes, OfNoneWritesNothing) { EXPECT_EQ(drawnAt(1700000000, 0), ""); }

// ---------------------------------------------------------------- bit length

TEST(RsaBitLength, CountsFromTheHighestBitOfTheLastByte)
{
    const struct {
        const char* magnitude;
        int bits;
    } cases[] = {
        {"", 0},     {"00", 0},    {"000000", 0},  {"01", 1},          {"02", 2},
        {"03", 2},   {"80", 8},    {"FF", 8},      {"0080", 16},       {"0100", 1},
        {"0001", 9}, {"FF7F", 15}, {"000010", 21}, {"FFFF000000", 16}, {"00004000", 23},
    };
    for (const auto& c : cases) {
        const Bytes bytes = fromHex(c.magnitude);
        EXPECT_EQ(RSA_GetBitLen(bytes.data(), static_cast<int>(bytes.size())), c.bits) << c.magnitude;
    }
}

// ---------------------------------------------------------------- characters from 80h up
//
// A plain char has a sign on one machine and none on the other; the bytes are to be the same on both.

TEST(HighCharacters, CountAsCodesAboveNineInAsciiToHex)
{
    EXPECT_EQ(asciiToHex("\x80\x30", 2, 1), "90"); // 0 + 9
    EXPECT_EQ(asciiToHex("\x30\x80", 2, 1), "09");
    EXPECT_EQ(asciiToHex("\xFF\xFF", 2, 1), "98"); // 24 masked, and 24 added
}

TEST(HighCharacters, CountFromSmallAInHalfToChar) { EXPECT_EQ(halfToChar("\xE1\x30", 1), "A000"); } // E1h - 57h

TEST(HighCharacters, CountFromSmallAInAscToBcd) { EXPECT_EQ(ascToBcd("\x80\x30", 0, 2), "9050"); } // 80h - 57h

TEST(HighCharacters, AreNoDigitsInBcdToCn) { EXPECT_EQ(numeric("\xB1\x31\xFF\x32", 2), "0102"); }

TEST(HighCharacters, GiveTheirLowFourBitsIn3xText)
{
    EXPECT_EQ(charToArray("\xB7\x8C\xF5", 2), "7C05");
    EXPECT_EQ(from3x("\xB7\x8C", 2, 1), "7C");
}

TEST(HighCharacters, AsBytesAreWrittenAsTwoDigits)
{
    const unsigned char bytes[] = {0x80, 0xFF};
    Output hex, nibbles;
    ConvAscii(bytes, hex.text(), 2);
    EXPECT_STREQ(hex.text(), "80FF");
    convTo3x(bytes, 2, nibbles.bytes());
    EXPECT_EQ(nibbles.hex(4), "38303F3F");
}

// ---------------------------------------------------------------- in place

namespace {

// A buffer that is input and output at once.
struct InPlace {
    explicit InPlace(const std::string& text) { text.copy(reinterpret_cast<char*>(bytes), sizeof bytes - 1); }
    const char* text() const { return reinterpret_cast<const char*>(bytes); }
    std::string hex(std::size_t count) const { return toHex(Bytes(bytes, bytes + count)); }

    unsigned char bytes[64] = {};
};

} // namespace

TEST(BcdToCn, ReadsItsDigitsWhereItWritesTheBytes)
{
    InPlace amount("100");
    EXPECT_EQ(bcdtocn(amount.text(), 3, 6, amount.bytes), 6);
    EXPECT_EQ(amount.hex(6), "000000000100");
    InPlace number("1234567");
    EXPECT_EQ(bcdtocn(number.text(), 7, 5, number.bytes), 5);
    EXPECT_EQ(number.hex(5), "0001234567");
    InPlace cut("123456789");
    EXPECT_EQ(bcdtocn(cut.text(), 9, 2, cut.bytes), 2);
    EXPECT_EQ(cut.hex(2), "6789");
    InPlace shifted("x98765"); // the bytes a little before the digits
    EXPECT_EQ(bcdtocn(shifted.text() + 1, 5, 4, shifted.bytes), 4);
    EXPECT_EQ(shifted.hex(4), "00098765");
}

TEST(Decoders, ReadTheirTextWhereTheyWriteTheBytes)
{
    InPlace hex("9F38A0b1");
    EXPECT_EQ(AsciiToHex(hex.text(), hex.bytes, 8), 8);
    EXPECT_EQ(hex.hex(4), "9F38A0B1");
    InPlace bytes("9F38A0b1");
    AsciiToHex(bytes.bytes, bytes.bytes, 8);
    EXPECT_EQ(bytes.hex(4), "9F38A0B1");
    int count = 0;
    InPlace half("0123aBcD");
    halftochar(half.text(), half.bytes, &count);
    EXPECT_EQ(count, 4);
    EXPECT_EQ(half.hex(5), "0123ABCD00");
    InPlace nibbles(":?1234");
    EXPECT_EQ(_3xToHex(nibbles.bytes, nibbles.bytes, 6), 3);
    EXPECT_EQ(nibbles.hex(3), "AF1234");
    InPlace array(":?123");
    EXPECT_EQ(Vr_chartoarray(array.text(), array.bytes), 3);
    EXPECT_EQ(array.hex(3), "AF1203");
    for (const unsigned pad : {0U, 1U}) {
        InPlace digits("12345");
        AscToBcd(digits.bytes, digits.text(), 5, pad);
        EXPECT_EQ(digits.hex(pad == 0 ? 3 : 4), pad == 0 ? "123450" : "01234550");
    }
}
