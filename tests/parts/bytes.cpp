// SPDX-License-Identifier: Apache-2.0
// Bounded reading and writing: what holds at the edges that no caller of today comes to.
#include "public/bytes.h"

#include "card/tlv.h"
#include "link/reader_commands.h"
#include "public/growing_bytes.h"
#include "support/line.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

using namespace vorn;
using test::Bytes;
using test::fromHex;
using test::toHex;

namespace {

std::string hexOf(ByteView bytes) { return toHex(Bytes(bytes.data(), bytes.data() + bytes.size())); }

ByteView viewOf(const Bytes& bytes) { return ByteView(bytes.data(), bytes.size()); }

} // namespace

// ---------------------------------------------------------------- views

TEST(View, HoldsWhatLiesInsideAndNothingElse)
{
    const Bytes bytes = fromHex("112233");
    const ByteView view = viewOf(bytes);
    EXPECT_TRUE(view.holds(0, 3));
    EXPECT_TRUE(view.holds(3, 0));
    EXPECT_FALSE(view.holds(0, 4));
    EXPECT_FALSE(view.holds(4, 0));
    EXPECT_FALSE(view.holds(1, SIZE_MAX));
    EXPECT_FALSE(view.holds(SIZE_MAX, 1));
}

TEST(View, ReadsZeroOutside)
{
    const Bytes bytes = fromHex("112233");
    EXPECT_EQ(viewOf(bytes)[2], 0x33);
    EXPECT_EQ(viewOf(bytes)[3], 0x00);
    EXPECT_EQ(viewOf(bytes)[SIZE_MAX], 0x00);
    EXPECT_EQ(ByteView(nullptr, 3).size(), 0U);
    EXPECT_EQ(viewOf(bytes).from(3).size(), 0U);
    EXPECT_EQ(viewOf(bytes).from(SIZE_MAX).size(), 0U);
    EXPECT_EQ(viewOf(bytes).first(SIZE_MAX).size(), 3U);
}

TEST(View, IsEqualToTheSameBytesElsewhere)
{
    const Bytes bytes = fromHex("112233");
    const Bytes same = fromHex("112233");
    const Bytes other = fromHex("112234");
    EXPECT_TRUE(viewOf(bytes) == viewOf(same));
    EXPECT_FALSE(viewOf(bytes) == viewOf(other));
    EXPECT_FALSE(viewOf(bytes) == viewOf(same).first(2));
    EXPECT_TRUE(ByteView() == viewOf(bytes).first(0));
}

// ---------------------------------------------------------------- buffers

TEST(Buffer, RefusesWholeWhatWouldOverflow)
{
    ByteBuffer<4> buffer;
    const Bytes bytes = fromHex("112233");
    EXPECT_TRUE(buffer.append(viewOf(bytes)));
    EXPECT_FALSE(buffer.append(viewOf(bytes)));
    EXPECT_FALSE(buffer.skip(2));
    EXPECT_TRUE(buffer.append(0x44));
    EXPECT_FALSE(buffer.append(0x55));
    EXPECT_TRUE(buffer.skip(0));
    EXPECT_EQ(hexOf(buffer.view()), "11223344");
}

// What does not fit is refused wherever it ends: in the tag, before the length, in the value.
TEST(Buffer, RefusesAnObjectThatDoesNotFit)
{
    const Bytes value = fromHex("AABB");
    const Tag tag(0x9F26);
    ByteBuffer<1> noTag;
    ByteBuffer<2> noLength;
    ByteBuffer<4> noValue;
    ByteBuffer<5> enough;
    EXPECT_FALSE(putObject(noTag, tag, viewOf(value)));
    EXPECT_FALSE(putObject(noLength, tag, viewOf(value)));
    EXPECT_FALSE(putObject(noValue, tag, viewOf(value)));
    EXPECT_TRUE(putObject(enough, tag, viewOf(value)));
    EXPECT_EQ(hexOf(enough.view()), "9F2602AABB");
}

TEST(Command, WithMoreThanAFrameCarriesIsNotComplete)
{
    ReaderCommand command(Operation::Apdu, {0x00});
    const Bytes most(VORN_COMMAND_MAX - 3, 0x11);
    EXPECT_TRUE(command.with(viewOf(most)).complete());
    EXPECT_EQ(command.view().size(), std::size_t{VORN_COMMAND_MAX});
    EXPECT_FALSE(command.with(viewOf(most).first(1)).complete());
    EXPECT_FALSE(command.with({}).complete()) << "what came later made it whole again";
}

// ---------------------------------------------------------------- bytes on the heap

TEST(Growing, KeepsAllThatIsAppended)
{
    GrowingBytes bytes;
    std::string expected;
    for (int i = 0; i < 300; ++i) {
        const Bytes piece(static_cast<std::size_t>(i), static_cast<std::uint8_t>(i));
        bytes.append(viewOf(piece));
        expected += toHex(piece);
    }
    EXPECT_TRUE(bytes.complete());
    EXPECT_EQ(hexOf(bytes.view()), expected);
}

// Nothing is read of bytes that there is no memory for, and nothing is kept behind a gap.
TEST(Growing, IsNotCompleteBehindWhatItHadNoMemoryFor)
{
    for (const std::size_t size : {SIZE_MAX, SIZE_MAX / 2}) {
        GrowingBytes bytes;
        const Bytes piece = fromHex("112233");
        bytes.append(viewOf(piece));
        bytes.append(ByteView(piece.data(), size));
        EXPECT_FALSE(bytes.complete());
        bytes.append(viewOf(piece));
        EXPECT_FALSE(bytes.complete());
        EXPECT_EQ(hexOf(bytes.view()), "112233");
    }
}

// ---------------------------------------------------------------- tags

TEST(TagNumber, IsWrittenInOneByteOrTwo)
{
    for (const auto& [number, text] : {std::pair(0x5AU, "5A"), std::pair(0xFFU, "FF"), std::pair(0x9F26U, "9F26")}) {
        EXPECT_EQ(hexOf(Tag(number).view()), text);
    }
}

TEST(TagSize, OfNothingIsNone)
{
    EXPECT_EQ(tagSize({}, Bound::Length), 0U);
    EXPECT_EQ(tagSize({}, Bound::Zero), 0U);
}
