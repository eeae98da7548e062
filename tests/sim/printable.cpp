// SPDX-License-Identifier: Apache-2.0
// Foreign text in the simulator's messages: nothing of it reaches a terminal as an order.
#include "sim/data/printable.h"

#include "sim/cards/memory_card.h"
#include "sim/data/profile_error.h"
#include "sim/profiles/profile.h"
#include "sim/reader/pty_port.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <system_error>

namespace vorn::sim {
namespace {

TEST(SimPrintable, WhatPeopleWriteStaysAsItIs)
{
    for (const char* text : {"", "debit.json: cards[0].atr", "青禾借记卡", "Ærø £5 – “x”", "😀", "~ !"}) {
        EXPECT_EQ(printable(text), text);
    }
}

TEST(SimPrintable, ControlsAndEscapesAreNamed)
{
    EXPECT_EQ(printable("\x1B[2J\a\r\n\t"), "<U+001B>[2J<U+0007><U+000D><U+000A><U+0009>");
    EXPECT_EQ(printable("\x7F"), "<U+007F>");
    EXPECT_EQ(printable("\xC2\x9B"
                        "31m"),
              "<U+009B>31m")
        << "the control sequence introducer of one character";
    EXPECT_EQ(printable(std::string("a\0b", 3)), "a<U+0000>b");
}

TEST(SimPrintable, MarksOfDirectionAndCharactersWithoutWidthAreNamed)
{
    EXPECT_EQ(printable("a\u202Eb\u2066c\u2069\u200F\u061C"), "a<U+202E>b<U+2066>c<U+2069><U+200F><U+061C>");
    EXPECT_EQ(printable("\uFEFFa\u200Bb\u2028c\U000E0041"), "<U+FEFF>a<U+200B>b<U+2028>c<U+E0041>");
}

TEST(SimPrintable, BytesThatAreNoUtf8AreShownOneByOne)
{
    EXPECT_EQ(printable("\xFF\xC7\xE0"), "<FF><C7><E0>");
    EXPECT_EQ(printable("\xE9\x9D"), "<E9><9D>") << "cut off";
    EXPECT_EQ(printable("\xC0\x9B"), "<C0><9B>") << "longer than needed";
    EXPECT_EQ(printable("\xED\xA0\x80"), "<ED><A0><80>") << "half of a pair";
    EXPECT_EQ(printable("\xF4\x90\x80\x80"), "<F4><90><80><80>") << "behind the last character";
    EXPECT_EQ(printable("\x9D"), "<9D>");
}

TEST(SimPrintable, ALongTextIsCutBetweenCharacters)
{
    EXPECT_EQ(printable("青禾借记卡", 2), "青禾...");
    EXPECT_EQ(printable("青禾", 2), "青禾");
    EXPECT_EQ(printable("\x1B\x1B\x1B", 1), "<U+001B>...");
}

// ---------------------------------------------------------------- the messages

const std::string kHostile = "\x1B]0;owned\a\u202E";
const std::string kHostileInJson = "\\u001B]0;owned\\u0007\\u202E";
const std::string kShown = "<U+001B>]0;owned<U+0007><U+202E>";

std::string complaint(const Profile& profile)
{
    Reader reader;
    try {
        load(profile, reader);
    } catch (const ProfileError& error) {
        return error.what();
    }
    return "none";
}

TEST(SimMessages, NameTheProfilesPathPrintably)
{
    EXPECT_EQ(complaint({"x", kHostile + ".json", "[]"}).rfind(kShown + ".json: profile: expected", 0), 0U);
    try {
        findProfile(kHostile);
        FAIL();
    } catch (const ProfileError& error) {
        EXPECT_EQ(std::string(error.what()).rfind(kShown + ": no such profile", 0), 0U) << error.what();
    }
}

TEST(SimMessages, NameMembersAndValuesPrintably)
{
    EXPECT_EQ(complaint({"x", "x.json", "{\"" + kHostileInJson + "\":1}"})
                  .rfind("x.json: profile." + kShown + ": unknown here", 0),
              0U);
    EXPECT_EQ(complaint({"x", "x.json", R"({"faults":[")" + kHostileInJson + "\"]}"}).find('\x1B'), std::string::npos);
    EXPECT_NE(complaint({"x", "x.json", R"({"cards":[{"slot":"\u202E"}]})"}).find("found \"<U+202E>\""),
              std::string::npos);
    EXPECT_NE(complaint({"x", "x.json", "{\"\x1B\u202E"}).find("no JSON"), std::string::npos);
    EXPECT_EQ(complaint({"x", "x.json", "{\"a\u202E\" 1"}).find("\u202E"), std::string::npos);
}

TEST(SimMessages, NameImagesPrintably)
{
    const std::string json = R"({"cards":[{"slot":"field","type":"memory","image":")" + kHostileInJson + "\"}]}";
    EXPECT_EQ(complaint({"x", "dir/x.json", json}), "dir/x.json: cards[0].image: dir/" + kShown + ": cannot be read");
    try {
        loadImage({"dir", kHostile});
        FAIL();
    } catch (const FileError& error) {
        EXPECT_EQ(std::string(error.what()), "dir/" + kShown + ": cannot be read");
    }
}

TEST(SimMessages, NameLinksPrintably)
{
    Reader reader;
    try {
        const PtyPort port(reader, {false, "/nonexistent/" + kHostile});
        FAIL();
    } catch (const std::system_error& error) {
        EXPECT_NE(std::string(error.what()).find("/nonexistent/" + kShown), std::string::npos) << error.what();
    }
}

TEST(SimMessages, AProfilesNameIsShownPrintablyAndNotListedOtherwise)
{
    std::string directory = ::testing::TempDir() + "namesXXXXXX";
    ASSERT_NE(::mkdtemp(directory.data()), nullptr);
    std::ofstream(directory + "/a\x1B[2J.json") << "{}";
    std::ofstream(directory + "/plain.json") << "{}";
    EXPECT_EQ(findProfile(directory + "/a\x1B[2J.json").name, "a<U+001B>[2J");
    ::setenv("VORN_PROFILES", directory.c_str(), 1);
    const auto names = shippedProfiles();
    ::unsetenv("VORN_PROFILES");
    EXPECT_EQ(std::count(names.begin(), names.end(), "plain"), 1);
    for (const std::string& name : names) {
        EXPECT_EQ(name.find('\x1B'), std::string::npos);
    }
    std::filesystem::remove_all(directory);
}

} // namespace
} // namespace vorn::sim
