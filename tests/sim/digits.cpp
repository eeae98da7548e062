// SPDX-License-Identifier: Apache-2.0
// Numbers that people and profiles write as text.
#include "sim/data/digits.h"

#include <gtest/gtest.h>

namespace {

using vorn::sim::isDigits;
using vorn::sim::numberOf;

TEST(Digits, AreAtLeastOneAndNothingElse)
{
    for (const char* const text : {"0", "0123456789", "007"}) {
        EXPECT_TRUE(isDigits(text)) << text;
    }
    for (const char* const text : {"", " 1", "1 ", "-1", "+1", "1.0", "0x1", "A", "/", ":", "\xD9\xA1"}) {
        EXPECT_FALSE(isDigits(text)) << text;
    }
}

TEST(Digits, OfANumberAreNoMoreThanAllowed)
{
    EXPECT_EQ(numberOf("0", 1), 0U);
    EXPECT_EQ(numberOf("007", 3), 7U);
    EXPECT_EQ(numberOf("255", 3), 255U);
    EXPECT_EQ(numberOf("999999999", 9), 999999999U);
    for (const char* const text : {"", "0000", "1000", "1x", "-1"}) {
        EXPECT_EQ(numberOf(text, 3), std::nullopt) << text;
    }
}

} // namespace
