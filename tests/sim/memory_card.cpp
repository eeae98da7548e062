// SPDX-License-Identifier: Apache-2.0
// The simulated memory card: keys, access conditions, value blocks, image files.
#include "sim/cards/memory_card.h"

#include "sim/profiles/profile.h"
#include "support/line.h"
#include "support/scripted_reader.h"

#include <climits>
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <fstream>
#include <stdexcept>

namespace vorn::sim {
namespace {

using test::fromHex;
using test::toHex;
using Key = MemoryCard::Key;

const Bytes kDelivered = Bytes(6, 0xFF);
const Bytes kKeyA = fromHex("A0A1A2A3A4A5");
const Bytes kKeyB = fromHex("B0B1B2B3B4B5");

// Access bits for four conditions, each written C1 C2 C3 as in "100", the trailer's last.
Bytes accessBits(const std::array<std::string, 4>& conditions)
{
    unsigned c[3] = {0, 0, 0};
    for (unsigned group = 0; group < 4; ++group) {
        for (unsigned bit = 0; bit < 3; ++bit) {
            if (conditions[group][bit] == '1') {
                c[bit] |= 1U << group;
            }
        }
    }
    const unsigned bytes[3] = {(~c[1] & 0xFU) << 4 | (~c[0] & 0xFU), c[0] << 4 | (~c[2] & 0xFU), c[2] << 4 | c[1]};
    Bytes result;
    for (const unsigned byte : bytes) {
        result.push_back(static_cast<std::uint8_t>(byte));
    }
    return result;
}

Bytes trailer(const std::array<std::string, 4>& conditions, std::uint8_t free = 0x69)
{
    Bytes block = kKeyA;
    const Bytes bits = accessBits(conditions);
    block.insert(block.end(), bits.begin(), bits.end());
    block.push_back(free);
    block.insert(block.end(), kKeyB.begin(), kKeyB.end());
    return block;
}

// A card whose sector 1 (blocks 4 to 7) has the same condition for all its data blocks.
SectorCard cardWith(const std::string& data, const std::string& last)
{
    SectorCard card(fromHex("01020304"), SectorCard::kSmall);
    card.setBlock(4, ValueBlock{100, 4}.encode());
    card.setBlock(5, ValueBlock{100, 5}.encode());
    card.setBlock(7, trailer({data, data, data, last}));
    card.activate();
    return card;
}

bool open(SectorCard& card, Key which, unsigned block = 4)
{
    return card.authenticate(block, which, which == Key::A ? kKeyA : kKeyB);
}

TEST(SimMemoryCard, ADeliveredCardOpensWithTheDeliveryKeysAndIsFree)
{
    SectorCard card(fromHex("01020304"), SectorCard::kSmall);
    EXPECT_EQ(toHex(card.activate()), "01020304");
    for (unsigned block = 0; block < 64; ++block) {
        ASSERT_TRUE(card.authenticate(block, Key::A, kDelivered)) << block;
        const bool last = block % 4 == 3;
        EXPECT_EQ(toHex(card.read(block).value()), last         ? "000000000000FF078069FFFFFFFFFFFF"
                                                   : block == 0 ? "01020304040000000000000000000000"
                                                                : std::string(32, '0'))
            << block;
        if (!last) {
            EXPECT_EQ(card.write(block, Bytes(16, 0xEE)), block != 0) << block; // block 0 is the maker's
        }
    }
    EXPECT_FALSE(card.authenticate(64, Key::A, kDelivered));
}

TEST(SimMemoryCard, ALongIdentificationHasSevenBytes)
{
    SectorCard card(fromHex("04112233445566"), SectorCard::kSmall);
    EXPECT_EQ(toHex(card.activate()), "04112233445566");
}

TEST(SimMemoryCard, TheLargeCardHasLongSectorsAtItsEnd)
{
    SectorCard card(fromHex("01020304"), SectorCard::kLarge);
    card.activate();
    // Sector 39, blocks 240 to 255: five blocks to a condition.
    Bytes last = trailer({"000", "111", "000", "001"});
    card.setBlock(255, last);
    ASSERT_TRUE(card.authenticate(247, Key::A, kKeyA));
    for (unsigned block = 240; block < 255; ++block) {
        EXPECT_EQ(card.read(block).has_value(), block < 245 || block > 249) << block;
    }
    EXPECT_TRUE(card.read(255));
    EXPECT_FALSE(card.read(239));
    ASSERT_TRUE(card.authenticate(127, Key::A, kDelivered)); // the last of the short sectors
    EXPECT_TRUE(card.read(124));
    EXPECT_FALSE(card.read(123));
    EXPECT_FALSE(card.read(128));
}

TEST(SimMemoryCard, NothingGoesWithoutActivationOrAuthentication)
{
    SectorCard card(fromHex("01020304"), SectorCard::kSmall);
    EXPECT_FALSE(card.authenticate(4, Key::A, kDelivered));
    card.activate();
    EXPECT_FALSE(card.read(4));
    EXPECT_FALSE(card.write(4, Bytes(16, 0)));
    ASSERT_TRUE(card.authenticate(4, Key::A, kDelivered));
    EXPECT_TRUE(card.read(4));
    card.activate();
    EXPECT_FALSE(card.read(4));
    ASSERT_TRUE(card.authenticate(4, Key::A, kDelivered));
    card.deactivate();
    EXPECT_FALSE(card.read(4));
    EXPECT_FALSE(card.authenticate(4, Key::A, kDelivered));
}

TEST(SimMemoryCard, AKeyOpensItsOwnSectorOnly)
{
    SectorCard card = cardWith("000", "011");
    ASSERT_TRUE(open(card, Key::A, 6));
    EXPECT_TRUE(card.read(4));
    EXPECT_TRUE(card.read(7));
    EXPECT_FALSE(card.read(3));
    EXPECT_FALSE(card.read(8));
    EXPECT_FALSE(card.read(200));
    ASSERT_TRUE(card.authenticate(8, Key::A, kDelivered));
    EXPECT_FALSE(card.read(4));
}

TEST(SimMemoryCard, AWrongKeyIsRefusedAndEndsTheAuthenticationBefore)
{
    SectorCard card = cardWith("000", "011");
    ASSERT_TRUE(open(card, Key::A));
    EXPECT_FALSE(card.authenticate(4, Key::A, kKeyB));
    EXPECT_FALSE(card.read(4));
    EXPECT_FALSE(card.authenticate(4, Key::B, kKeyA));
    EXPECT_TRUE(open(card, Key::B));
    EXPECT_TRUE(card.read(4));
}

TEST(SimMemoryCard, ARefusedAccessKeepsTheAuthentication)
{
    SectorCard card = cardWith("010", "011");
    ASSERT_TRUE(open(card, Key::A));
    EXPECT_FALSE(card.write(4, Bytes(16, 0)));
    EXPECT_TRUE(card.read(4));
}

TEST(SimMemoryCard, AWriteOfAnotherSizeIsRefused)
{
    SectorCard card = cardWith("000", "011");
    ASSERT_TRUE(open(card, Key::A));
    EXPECT_FALSE(card.write(4, Bytes(15, 0)));
    EXPECT_FALSE(card.write(4, Bytes(17, 0)));
}

// ---------------------------------------------------------------- access conditions

// For each condition of a data block, what key A may, then key B: r w + -
TEST(SimMemoryCard, DataBlocksObeyTheirConditions)
{
    struct {
        const char* condition;
        const char* a;
        const char* b;
    } table[] = {
        {"000", "rw+-", "rw+-"}, {"010", "r   ", "r   "}, {"100", "r   ", "rw  "}, {"110", "r  -", "rw+-"},
        {"001", "r  -", "r  -"}, {"011", "    ", "rw  "}, {"101", "    ", "r   "}, {"111", "    ", "    "},
    };
    for (const auto& row : table) {
        for (const Key key : {Key::A, Key::B}) {
            const std::string expected = key == Key::A ? row.a : row.b;
            SectorCard card = cardWith(row.condition, "011"); // key B cannot be read, so it may authenticate
            ASSERT_TRUE(open(card, key));
            std::string allowed = "    ";
            if (card.read(4)) {
                allowed[0] = 'r';
            }
            if (card.write(5, ValueBlock{7, 5}.encode())) {
                allowed[1] = 'w';
            }
            if (card.increment(4, 1)) {
                allowed[2] = '+';
            }
            if (card.decrement(4, 1)) {
                allowed[3] = '-';
            }
            EXPECT_EQ(allowed, expected) << row.condition << (key == Key::A ? " key A" : " key B");
            EXPECT_EQ(card.restore(4), expected[3] == '-') << row.condition;
            EXPECT_EQ(card.transfer(5), expected[3] == '-') << row.condition;
        }
    }
}

TEST(SimMemoryCard, EachBlockOfASectorHasItsOwnCondition)
{
    SectorCard card(fromHex("01020304"), SectorCard::kSmall);
    card.setBlock(7, trailer({"000", "010", "111", "011"}));
    card.activate();
    ASSERT_TRUE(open(card, Key::A));
    EXPECT_TRUE(card.write(4, Bytes(16, 1)));
    EXPECT_FALSE(card.write(5, Bytes(16, 1)));
    EXPECT_TRUE(card.read(5));
    EXPECT_FALSE(card.read(6));
}

// For each condition of a trailer, the parts that key A may write and read, then key B: a = key A, c = access bits,
// b = key B.
TEST(SimMemoryCard, TrailersObeyTheirConditions)
{
    struct Row {
        const char *condition, *writeA, *readA, *writeB, *readB;
    };
    const Row table[] = {
        {"000", "a b", " cb", "   ", "---"}, {"010", "   ", " cb", "   ", "---"}, {"100", "   ", " c ", "a b", " c "},
        {"110", "   ", " c ", "   ", " c "}, {"001", "acb", " cb", "   ", "---"}, {"011", "   ", " c ", "acb", " c "},
        {"101", "   ", " c ", " c ", " c "}, {"111", "   ", " c ", "   ", " c "},
    };
    for (const auto& row : table) {
        for (const Key key : {Key::A, Key::B}) {
            const std::string what = std::string(row.condition) + (key == Key::A ? " key A" : " key B");
            SectorCard card = cardWith("000", row.condition);
            const Bytes before = card.blocks()[7];
            ASSERT_TRUE(open(card, key)) << what;

            const std::string readable = key == Key::A ? row.readA : row.readB;
            const auto shown = card.read(7);
            if (readable == "---") { // a key B that can be read opens nothing
                EXPECT_FALSE(shown) << what;
                EXPECT_FALSE(card.read(4)) << what;
                EXPECT_FALSE(card.write(4, Bytes(16, 0))) << what;
                EXPECT_FALSE(card.increment(4, 1)) << what;
            } else {
                ASSERT_TRUE(shown) << what;
                EXPECT_EQ(toHex(*shown).substr(0, 12), "000000000000") << what;
                EXPECT_EQ(toHex(*shown).substr(12, 8), toHex(before).substr(12, 8)) << what;
                EXPECT_EQ(toHex(*shown).substr(20), readable[2] == 'b' ? toHex(kKeyB) : "000000000000") << what;
            }

            const std::string writable = key == Key::A ? row.writeA : row.writeB;
            Bytes wanted = fromHex("111111111111");
            const Bytes bits = accessBits({"000", "000", "000", "011"});
            wanted.insert(wanted.end(), bits.begin(), bits.end());
            wanted.push_back(0x77);
            wanted.insert(wanted.end(), 6, 0x22);
            EXPECT_EQ(card.write(7, wanted), writable != "   ") << what;
            const std::string old = toHex(before), fresh = toHex(wanted), now = toHex(card.blocks()[7]);
            EXPECT_EQ(now.substr(0, 12), (writable[0] == 'a' ? fresh : old).substr(0, 12)) << what;
            EXPECT_EQ(now.substr(12, 8), (writable[1] == 'c' ? fresh : old).substr(12, 8)) << what;
            EXPECT_EQ(now.substr(20), (writable[2] == 'b' ? fresh : old).substr(20)) << what;
        }
    }
}

TEST(SimMemoryCard, AccessBitsThatContradictThemselvesCloseTheSector)
{
    for (unsigned bit = 0; bit < 24; ++bit) {
        SectorCard card = cardWith("000", "001");
        ASSERT_TRUE(open(card, Key::A));
        Bytes broken = trailer({"000", "000", "000", "001"});
        broken[6 + bit / 8] ^= static_cast<std::uint8_t>(1U << bit % 8);
        EXPECT_TRUE(card.write(7, broken)) << bit;
        EXPECT_FALSE(card.read(4)) << bit;
        EXPECT_FALSE(card.write(7, trailer({"000", "000", "000", "001"}))) << bit;
        EXPECT_FALSE(open(card, Key::A)) << bit;
        EXPECT_FALSE(open(card, Key::B)) << bit;
        EXPECT_TRUE(card.authenticate(8, Key::A, kDelivered)) << bit;
    }
}

TEST(SimMemoryCard, ANewKeyCountsFromTheNextAuthentication)
{
    SectorCard card = cardWith("000", "001");
    ASSERT_TRUE(open(card, Key::A));
    Bytes changed = trailer({"000", "000", "000", "001"});
    std::fill(changed.begin(), changed.begin() + 6, std::uint8_t{0x44});
    EXPECT_TRUE(card.write(7, changed));
    EXPECT_TRUE(card.read(4));
    EXPECT_FALSE(open(card, Key::A));
    EXPECT_TRUE(card.authenticate(4, Key::A, Bytes(6, 0x44)));
}

// ---------------------------------------------------------------- value blocks

TEST(SimValueBlock, HasThreeCopiesAndItsAddress)
{
    EXPECT_EQ(toHex(ValueBlock{0x01020304, 0x08}.encode()), "04030201"
                                                            "FBFCFDFE"
                                                            "04030201"
                                                            "08F708F7");
    EXPECT_EQ(toHex(ValueBlock{-1, 0xFF}.encode()), "FFFFFFFF"
                                                    "00000000"
                                                    "FFFFFFFF"
                                                    "FF00FF00");
    for (const std::int32_t value : {0, 1, -1, 12500, INT32_MAX, INT32_MIN}) {
        const auto decoded = ValueBlock::decode(ValueBlock{value, 7}.encode());
        ASSERT_TRUE(decoded) << value;
        EXPECT_EQ(decoded->value, value);
        EXPECT_EQ(decoded->address, 7);
    }
}

TEST(SimValueBlock, ABlockWithAnyBitTurnedIsNone)
{
    const Bytes good = ValueBlock{12500, 8}.encode();
    for (unsigned bit = 0; bit < 128; ++bit) {
        Bytes bad = good;
        bad[bit / 8] ^= static_cast<std::uint8_t>(1U << bit % 8);
        EXPECT_FALSE(ValueBlock::decode(bad)) << bit;
    }
    EXPECT_FALSE(ValueBlock::decode(Bytes(15, 0)));
    EXPECT_FALSE(ValueBlock::decode(Bytes(16, 0)));
}

TEST(SimValueBlock, SumsGoThroughTheRegister)
{
    SectorCard card = cardWith("000", "011");
    ASSERT_TRUE(open(card, Key::A));
    EXPECT_TRUE(card.increment(4, 25));
    EXPECT_EQ(ValueBlock::decode(*card.read(4))->value, 100); // only in the register so far
    EXPECT_TRUE(card.transfer(4));
    EXPECT_EQ(ValueBlock::decode(*card.read(4))->value, 125);
    EXPECT_TRUE(card.decrement(4, 225));
    EXPECT_TRUE(card.transfer(5));
    EXPECT_EQ(ValueBlock::decode(*card.read(5))->value, -100);
    EXPECT_EQ(ValueBlock::decode(*card.read(5))->address, 4); // the address goes with the value
    EXPECT_TRUE(card.restore(4));
    EXPECT_TRUE(card.transfer(6));
    EXPECT_EQ(toHex(*card.read(6)), toHex(*card.read(4)));
}

TEST(SimValueBlock, WhatIsNoValueOrWouldOverflowIsRefused)
{
    SectorCard card = cardWith("000", "011");
    ASSERT_TRUE(open(card, Key::A));
    EXPECT_FALSE(card.transfer(4)); // nothing in the register
    EXPECT_FALSE(card.increment(6, 1));
    EXPECT_FALSE(card.restore(6));
    EXPECT_FALSE(card.increment(7, 1)); // a trailer never is one
    ASSERT_TRUE(card.write(4, ValueBlock{INT32_MAX, 4}.encode()));
    EXPECT_FALSE(card.increment(4, 1));
    ASSERT_TRUE(card.write(4, ValueBlock{INT32_MIN, 4}.encode()));
    EXPECT_FALSE(card.decrement(4, 1));
    EXPECT_TRUE(card.restore(4));
    ASSERT_TRUE(open(card, Key::A));
    EXPECT_FALSE(card.transfer(4)); // authentication empties it
}

// ---------------------------------------------------------------- image files

class SimImage : public ::testing::Test {
protected:
    std::string directory = ::testing::TempDir() + "imageXXXXXX";
    std::string path;

    void SetUp() override
    {
        ASSERT_NE(::mkdtemp(directory.data()), nullptr);
        path = directory + "/card.image";
    }
    void TearDown() override
    {
        for (const char* name : {"/card.image", "/card.json"}) {
            ::unlink((directory + name).c_str());
        }
        ::rmdir(directory.c_str());
    }
    NamedFile image() const { return {directory, "card.image"}; }
    void writeFile(const std::string& text) const { std::ofstream(path) << text; }
    std::string complaint() const
    {
        try {
            loadImage(image());
        } catch (const std::runtime_error& error) {
            return error.what();
        }
        return "none";
    }
    static std::string lines(unsigned count)
    {
        std::string text;
        while (count-- > 0) {
            text += std::string(32, '0') + "\n";
        }
        return text;
    }
};

TEST_F(SimImage, WhatIsSavedIsLoaded)
{
    for (const std::size_t size : {SectorCard::kSmall, SectorCard::kLarge}) {
        std::vector<Bytes> blocks;
        for (std::size_t i = 0; i < size; ++i) {
            blocks.emplace_back(16, static_cast<std::uint8_t>(i * 7));
        }
        saveImage(image(), blocks);
        EXPECT_EQ(loadImage(image()), blocks);
    }
}

TEST_F(SimImage, CommentsBlanksAndLineEndsOfAnyKindAreRead)
{
    writeFile("# a card\r\n\r\n00112233 44556677 8899aabb CCDDEEFF # maker\r\n\n" + lines(63));
    const auto blocks = loadImage(image());
    ASSERT_EQ(blocks.size(), 64U);
    EXPECT_EQ(toHex(blocks[0]), "00112233445566778899AABBCCDDEEFF");
}

TEST_F(SimImage, MistakesAreNamedWithTheirLine)
{
    EXPECT_EQ(complaint(), path + ": cannot be read");
    writeFile(lines(2) + "# 3\n" + "0011\n" + lines(61));
    EXPECT_EQ(complaint(), path + ": line 4: expected a block of 32 hex digits");
    writeFile(lines(1) + std::string(31, '0') + "g\n");
    EXPECT_EQ(complaint(), path + ": line 2: expected a block of 32 hex digits");
    writeFile(lines(63));
    EXPECT_EQ(complaint(), path + ": expected 64 or 256 blocks, found 63");
    writeFile("");
    EXPECT_EQ(complaint(), path + ": expected 64 or 256 blocks, found 0");
}

TEST_F(SimImage, EveryChangeOfACardIsSaved)
{
    SectorCard card = cardWith("000", "011");
    card.saveTo(image());
    ASSERT_TRUE(open(card, Key::A));
    ASSERT_TRUE(card.write(6, Bytes(16, 0xAB)));
    EXPECT_EQ(loadImage(image()), card.blocks());
    ASSERT_TRUE(card.increment(4, 1) && card.transfer(4));
    EXPECT_EQ(loadImage(image()), card.blocks());

    SectorCard again(loadImage(image()));
    EXPECT_EQ(toHex(again.activate()), "01020304");
    ASSERT_TRUE(open(again, Key::A));
    EXPECT_EQ(ValueBlock::decode(*again.read(4))->value, 101);
}

TEST_F(SimImage, AChangeThatCannotBeSavedIsRefusedAndUndone)
{
    SectorCard card = cardWith("000", "011");
    card.saveTo({directory, "missing/card.image"});
    ASSERT_TRUE(open(card, Key::A));
    const Bytes before = *card.read(6);
    EXPECT_FALSE(card.write(6, Bytes(16, 0xAB)));
    EXPECT_EQ(*card.read(6), before);
}

TEST_F(SimImage, AProfileLoadsAndSavesBesideItself)
{
    SectorCard card = cardWith("000", "011");
    saveImage(image(), card.blocks());
    const Profile profile{"t", directory + "/card.json",
                          R"({"cards":[{"slot":"field","type":"memory","image":"card.image","save":"card.image",
                              "blocks":{"6":{"value":-3,"address":9}}}]})"};
    Reader reader;
    load(profile, reader);
    const auto ask = [&reader](const std::string& hex) {
        return toHex(reader.receive(test::frame(fromHex(hex))).at(0).bytes);
    };
    EXPECT_EQ(ask("32410100"), toHex(test::replyFrame(0, fromHex("01020304"))));
    EXPECT_EQ(ask("324206 60 A0A1A2A3A4A5"), toHex(test::replyFrame(0, {})));
    EXPECT_EQ(ask("324306"), toHex(test::replyFrame(0, ValueBlock{-3, 9}.encode())));
    EXPECT_EQ(ask("324405" + std::string(32, 'C')), toHex(test::replyFrame(0, {})));
    EXPECT_EQ(toHex(loadImage(image()).at(5)), std::string(32, 'C'));
}

TEST_F(SimImage, TheShippedCardIsAsItsCommentsSay)
{
    Reader reader;
    load(findProfile("memory"), reader);
    const auto ask = [&reader](const std::string& hex) {
        return toHex(reader.receive(test::frame(fromHex(hex))).at(0).bytes);
    };
    const auto reply = [](std::uint8_t status, const Bytes& payload = {}) {
        return toHex(test::replyFrame(status, payload));
    };
    EXPECT_EQ(ask("32410100"), reply(0, fromHex("6A1F90C2")));
    EXPECT_EQ(ask("324208 60 A0A1A2A3A4A5"), reply(0));
    EXPECT_EQ(ask("324308"), reply(0, ValueBlock{12500, 8}.encode()));
    EXPECT_EQ(ask("324408" + std::string(32, '0')), reply(0x08));
    EXPECT_EQ(ask("324208 61 B0B1B2B3B4B5"), reply(0));
    EXPECT_EQ(ask("324408" + toHex(ValueBlock{13000, 8}.encode())), reply(0));
    EXPECT_EQ(ask("32420C 60 A0A1A2A3A4A5"), reply(0));
    EXPECT_EQ(ask("32430C"), reply(0x08)); // key B only
    EXPECT_EQ(ask("32430D"), reply(0, fromHex("4E45564552204348414E474553202020")));
    EXPECT_EQ(ask("32430E"), reply(0x08)); // never
    EXPECT_EQ(ask("324210 00 FFFFFFFFFFFF"), reply(0));
    EXPECT_EQ(ask("324410" + std::string(32, 'A')), reply(0));
    EXPECT_EQ(ask("324310"), reply(0, Bytes(16, 0xAA)));
}

} // namespace
} // namespace vorn::sim
