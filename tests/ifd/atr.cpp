// SPDX-License-Identifier: Apache-2.0
#include "ifd/atr.h"

#include "support/line.h"

#include <gtest/gtest.h>

#include <ostream>
#include <string>

using namespace vorn::ifd;
using vorn::ByteView;
using vorn::test::Bytes;
using vorn::test::fromHex;
using vorn::test::toHex;

namespace {

ByteView viewOf(const Bytes& bytes) { return {bytes.data(), bytes.size()}; }

struct Case {
    const char* name;
    const char* atr;
    bool wellFormed;
    int protocol;
};
void PrintTo(const Case& c, std::ostream* out) { *out << c.name; }

constexpr Case kCases[] = {
    {"NoInterfaceBytesAreT0", "3B 02 14 50", true, 0},
    {"T0WithHistoricalBytes", "3B 6C 00 00 51 49 4E 47 48 45 43 52 45 44 49 54", true, 0},
    {"T1HasACheckByte", "3B ED 00 00 81 31 FE 45 51 49 4E 47 48 45 44 45 42 49 54 30 31 A5", true, 1},
    {"InverseConvention", "3F 00", true, 0},
    {"FirstOfTwoProtocols", "3B 80 80 01 01", true, 0},
    {"FixedByTa2", "3B 80 90 01 01 10", true, 1},
    {"OnlyGlobalBytes", "3B 80 1F 00 9F", true, 0},
    {"WrongCheckByte", "3B ED 00 00 81 31 FE 45 51 49 4E 47 48 45 44 45 42 49 54 30 31 A6", false, 1},
    {"OneByteShort", "3B 02 14", false, 0},
    {"OneByteTooMany", "3B 02 14 50 00", false, 0},
    {"AnnouncedProtocolIsMissing", "3B 80", false, 0},
    {"NoInitialCharacter", "3C 00", false, 0},
    {"OneByte", "3B", false, 0},
    {"Nothing", "", false, 0},
    {"LongerThanOneCanBe",
     "3B 0F 00 01 02 03 04 05 06 07 08 09 0A 0B 0C 0D 0E 00 00 00 00 00 00 00 00 00 00 00 00 00 "
     "00 00 00 00 00",
     false, 0},
};

class AtrCase : public ::testing::TestWithParam<Case> {};

std::string caseName(const ::testing::TestParamInfo<Case>& info) { return info.param.name; }

std::string shown(const std::string& answer)
{
    const Atr atr = contactlessAtr(viewOf(fromHex(answer)));
    return toHex(Bytes(atr.data(), atr.data() + atr.size()));
}

} // namespace

TEST_P(AtrCase, IsRead)
{
    const Bytes atr = fromHex(GetParam().atr);
    const AtrFacts facts = readAtr(viewOf(atr));
    EXPECT_EQ(facts.wellFormed, GetParam().wellFormed);
    EXPECT_EQ(facts.protocol, GetParam().protocol);
}

INSTANTIATE_TEST_SUITE_P(Atr, AtrCase, ::testing::ValuesIn(kCases), caseName);

TEST(ContactlessAtr, KeepsAnAnswerToReset) { EXPECT_EQ(shown("3B 80 80 01 01"), "3B80800101"); }

TEST(ContactlessAtr, TakesTheHistoricalBytesOfAnAnswerToSelect)
{
    EXPECT_EQ(shown("09 78 33 88 02 41 42 43 44"), "3B8480014142434401");
    EXPECT_EQ(shown("03 00 80"), "3B8180018080");
    EXPECT_EQ(shown("12 70 77 81 02 80 31 80 66 B0 84 0C 01 6E 01 83 00 90"), "3B8D800180318066B0840C016E018300901E");
}

TEST(ContactlessAtr, OfAnAnswerWithoutHistoricalBytesHasNone)
{
    EXPECT_EQ(shown("01"), "3B80800101");
    EXPECT_EQ(shown("05 78 33 88 02"), "3B80800101");
}

TEST(ContactlessAtr, OfAnythingElseHasNone)
{
    for (const char* answer : {"", "3B 80", "04 78 33 88", "02 70", "50 01 02 03 04 05 06 07 08 09 0A 0B", "FF",
                               "12 00 01 02 03 04 05 06 07 08 09 0A 0B 0C 0D 0E 0F 10"}) {
        EXPECT_EQ(shown(answer), "3B80800101") << answer;
    }
}
