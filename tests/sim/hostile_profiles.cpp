// SPDX-License-Identifier: Apache-2.0
// Profiles from strangers: nesting, sizes, counts, and files that are none of theirs.
#include "sim/cards/emv_card.h"
#include "sim/data/json_node.h"
#include "sim/data/json_text.h"
#include "sim/data/named_file.h"
#include "sim/data/profile_error.h"
#include "sim/data/tlv.h"
#include "sim/issuer/issuer.h"
#include "sim/profiles/profile.h"
#include "support/scripted_reader.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>

namespace vorn::sim {
namespace {

namespace fs = std::filesystem;

std::string complaint(const std::string& json)
{
    const Profile profile{"x", "x.json", json};
    Reader reader;
    try {
        load(profile, reader);
        issuerOf(profile);
    } catch (const ProfileError& error) {
        return error.what();
    }
    return "none";
}

std::string repeated(const std::string& text, std::size_t count)
{
    std::string all;
    for (std::size_t i = 0; i < count; ++i) {
        all += text;
    }
    return all;
}

std::string nested(std::size_t depth, const std::string& open, const std::string& close)
{
    return repeated(open, depth) + repeated(close, depth);
}

// ---------------------------------------------------------------- nesting

TEST(HostileProfile, ListsAndObjectsNestedWithoutEnd)
{
    const std::string said = "x.json: nested deeper than 64 levels";
    EXPECT_EQ(complaint(nested(200000, "[", "]")), said);
    EXPECT_EQ(complaint(R"({"name":)" + nested(200000, "[", "]") + "}"), said);
    EXPECT_EQ(complaint(repeated("[", 200000)), said) << "not even closed";
    EXPECT_EQ(complaint(nested(100000, R"({"a":)", "}")), said);
    EXPECT_NE(complaint(R"({"name":)" + nested(60, "[", "]") + "}").find("name: expected a text"), std::string::npos);
}

TEST(HostileProfile, TwentyThousandNestedDirectories)
{
    const auto card = [](std::size_t depth) {
        return R"({"cards":[{"slot":"contact","type":"emv","atr":"3B00","applications":[],"pse":{"directory":[)" +
               repeated(R"({"ddf":"A","directory":[)", depth) + repeated("]}", depth) + "]}}]}";
    };
    EXPECT_EQ(complaint(card(20000)), "x.json: nested deeper than 64 levels");
    EXPECT_EQ(complaint(card(20)), "none");
}

TEST(HostileProfile, TwentyThousandNestedTemplates)
{
    Bytes bytes = {0x5A, 0x01, 0x00};
    for (int i = 0; i < 20000 && bytes.size() + 4 < 0xFFFF; ++i) {
        const auto size = bytes.size();
        const Bytes header = {0x70, 0x82, static_cast<std::uint8_t>(size >> 8), static_cast<std::uint8_t>(size & 0xFF)};
        bytes.insert(bytes.begin(), header.begin(), header.end());
    }
    EXPECT_FALSE(tlv::find(bytes, 0x5A));

    Bytes usual = {0x5A, 0x01, 0x07};
    for (unsigned i = 1; i < tlv::kDepthMax; ++i) {
        usual = tlv::encode(0x70, usual);
    }
    EXPECT_EQ(tlv::find(usual, 0x5A), Bytes{0x07});
}

// ---------------------------------------------------------------- size and count

TEST(HostileProfile, MoreTextValuesOrNameThanAnyProfileHas)
{
    EXPECT_EQ(complaint(std::string(kJsonSizeMax + 1, ' ')), "x.json: longer than 1048576 bytes");
    EXPECT_EQ(complaint("[" + repeated("0,", kJsonValuesMax) + "0]"), "x.json: more than 50000 values");
    EXPECT_EQ(complaint("{\"" + std::string(kJsonNameMax + 1, 'a') + "\":0}"),
              "x.json: a member's name of more than 1000 bytes");
    EXPECT_LT(complaint("{\"" + std::string(kJsonNameMax, 'a') + "\":0}").size(), 200U);
}

TEST(HostileProfile, AFileWithoutEndIsNotReadToItsEnd)
{
    EXPECT_EQ(complaint(findProfile("/dev/zero").json), "x.json: longer than 1048576 bytes");
}

TEST(HostileProfile, MoreCardsDataThanACardHolds)
{
    const auto application = [](const std::string& members) {
        return R"({"cards":[{"slot":"contact","type":"emv","atr":"3B00","applications":[{"aid":"A0",)" + members +
               "}]}]}";
    };
    EXPECT_NE(
        complaint(application(R"("records":{"1":[)" + repeated("\"7000\",", 254) + "\"7000\"]}")).find("254 records"),
        std::string::npos);
    EXPECT_NE(complaint(application(R"("fci":{"BF0C":")" + std::string(140000, '0') + "\"}")).find("65535 bytes"),
              std::string::npos);
    EXPECT_NE(complaint(R"({"cards":[{"slot":"contact","type":"emv","atr":"3B00","pse":false,"applications":[)" +
                        repeated(R"({"aid":"A0"},)", 32) + R"({"aid":"A0"}]}]})")
                  .find("32 applications"),
              std::string::npos);
}

std::string issuer(const std::string& scripts)
{
    return R"({"issuer":{"keys":{"mk_ac":"000102030405060708090A0B0C0D0E0F"},"scripts":[)" + scripts + "]}}";
}

TEST(HostileProfile, MoreScriptCommandsThanAnybodySends)
{
    const std::string hundred = R"({"raw":"0084000008","repeat":100})";
    EXPECT_EQ(complaint(issuer(R"({"commands":[)" + repeated(hundred + ",", 9) + hundred + "]}")), "none");
    EXPECT_NE(complaint(issuer(R"({"commands":[)" + repeated(hundred + ",", 2000) + hundred + "]}"))
                  .find("no more than 1000 script commands"),
              std::string::npos);
    EXPECT_NE(
        complaint(issuer(repeated(R"({"commands":[)" + hundred + "]},", 10) + R"({"commands":[)" + hundred + "]}"))
            .find("no more than 1000 script commands in all"),
        std::string::npos);
    EXPECT_NE(complaint(issuer(R"({"commands":[{"raw":")" + std::string(60000, '0') + R"(","repeat":100}]})"))
                  .find("a command of at most 261 bytes"),
              std::string::npos);
}

// The most memory of a process of its own, in kilobytes.
long peakOf(const std::function<void()>& work)
{
    const pid_t child = ::fork();
    if (child == 0) {
        work();
        ::_exit(0);
    }
    int status = 0;
    struct rusage usage {};
    EXPECT_EQ(::wait4(child, &status, 0, &usage), child);
    EXPECT_EQ(status, 0);
    return usage.ru_maxrss;
}

TEST(HostileProfile, SixtyFiveKilobytesDoNotCostHundredsOfMegabytes)
{
    constexpr std::size_t size = 65000;
    const std::string name(kJsonNameMax, 'n');
    const std::string profiles[] = {
        R"({"cards":)" + repeated("{\"" + name + "\":", 30) + "[" + repeated("[],", 10000) + "[]]" +
            std::string(30, '}') + "}",
        R"({"cards":[)" + repeated("{},", size / 3) + "{}]}",
        R"({"cards":[{"slot":"contact","type":"emv","atr":"3B00","applications":[],"commands":{"8022":[)" +
            repeated("\"9000\",", size / 7) + "\"9000\"]}}]}",
        issuer(R"({"commands":[)" + repeated(R"({"raw":"","repeat":100},)", size / 24) + R"({"raw":""}]})"),
    };
    const long nothing = peakOf([] {});
    for (const std::string& each : profiles) {
        EXPECT_LT(peakOf([&each] { complaint(each); }) - nothing, 64 * 1024) << each.substr(0, 80);
    }
}

// ---------------------------------------------------------------- files

class HostileImage : public ::testing::Test {
protected:
    fs::path outside, folder;

    void SetUp() override
    {
        std::string directory = ::testing::TempDir() + "hostileXXXXXX";
        ASSERT_NE(::mkdtemp(directory.data()), nullptr);
        outside = directory;
        folder = outside / "profiles";
        fs::create_directories(folder / "images");
        write(outside / "secret.image");
        write(folder / "card.image");
        write(folder / "images" / "card.image");
    }
    void TearDown() override { fs::remove_all(outside); }

    static std::string blank()
    {
        return repeated(std::string(32, '0') + "\n", 3) +
               repeated(std::string(14, 'F') + "078069" + std::string(12, 'F') + "\n", 61);
    }
    static void write(const fs::path& path) { std::ofstream(path) << blank(); }
    static std::string textOf(const fs::path& path)
    {
        std::ostringstream text;
        text << std::ifstream(path).rdbuf();
        return text.str();
    }

    // Of a profile in the folder whose memory card has this member besides.
    std::string complaintOf(const std::string& member) const
    {
        Reader reader;
        try {
            load(profileWith(member), reader);
        } catch (const ProfileError& error) {
            return error.what();
        }
        return "none";
    }
    Profile profileWith(const std::string& member) const
    {
        return {"x", (folder / "x.json").string(), R"({"cards":[{"slot":"field","type":"memory",)" + member + "}]}"};
    }
    // The reader's status for a write to a card that saves to this file.
    int statusOfSaving(const std::string& name) const
    {
        Reader reader;
        load(profileWith(R"("uid":"01020304","save":")" + name + "\""), reader);
        const auto ask = [&reader](const std::string& hex) {
            return test::toHex(reader.receive(test::frame(test::fromHex(hex))).at(0).bytes);
        };
        ask("32410100");
        ask("324204 60 FFFFFFFFFFFF");
        const std::string answer = ask("324404" + std::string(32, 'C'));
        for (const int status : {0x00, 0x08}) {
            if (answer == test::toHex(test::replyFrame(static_cast<std::uint8_t>(status), {}))) {
                return status;
            }
        }
        return -1;
    }
};

TEST_F(HostileImage, IsLoadedFromTheProfilesFolderAndBelow)
{
    EXPECT_EQ(complaintOf(R"("image":"card.image")"), "none");
    EXPECT_EQ(complaintOf(R"("image":"images/card.image")"), "none");
}

TEST_F(HostileImage, IsNotLoadedFromElsewhere)
{
    const std::string inside = "expected a file in the profile's folder";
    for (const std::string& name :
         {std::string("../secret.image"), std::string("images/../../secret.image"), (outside / "secret.image").string(),
          std::string("/dev/zero"), std::string("./card.image"), std::string("images//card.image"), std::string(".."),
          std::string()}) {
        EXPECT_NE(complaintOf(R"("image":")" + name + "\"").find(inside), std::string::npos) << name;
    }
}

TEST_F(HostileImage, IsNotLoadedThroughALink)
{
    fs::create_symlink("../secret.image", folder / "link.image");
    fs::create_symlink("..", folder / "up");
    fs::create_symlink("/dev/zero", folder / "zero");
    EXPECT_NE(complaintOf(R"("image":"link.image")").find("expected a regular file"), std::string::npos);
    EXPECT_NE(complaintOf(R"("image":"zero")").find("expected a regular file"), std::string::npos);
    EXPECT_NE(complaintOf(R"("image":"up/secret.image")").find("profile's folder"), std::string::npos);
}

TEST_F(HostileImage, IsARegularFileOfBoundedSize)
{
    ASSERT_EQ(::mkfifo((folder / "fifo").c_str(), 0600), 0);
    EXPECT_NE(complaintOf(R"("image":"fifo")").find("expected a regular file"), std::string::npos);
    EXPECT_NE(complaintOf(R"("image":"images")").find("expected a regular file"), std::string::npos);
    std::ofstream(folder / "large.image") << std::string(1024 * 1024, '#');
    EXPECT_NE(complaintOf(R"("image":"large.image")").find("longer than 65536 bytes"), std::string::npos);
}

TEST_F(HostileImage, ADeviceIsNoImage)
{
    EXPECT_THROW(readFile({"/dev", "zero"}, 1000), FileError);
    EXPECT_THROW(replaceFile({"/dev", "null"}, "x"), FileError);
}

TEST_F(HostileImage, IsSavedInTheProfilesFolderForItsOwnerAlone)
{
    EXPECT_EQ(statusOfSaving("new.image"), 0x00);
    struct stat status {};
    ASSERT_EQ(::stat((folder / "new.image").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0600U);
    EXPECT_NE(textOf(folder / "new.image").find(std::string(32, 'C')), std::string::npos);

    ASSERT_EQ(::chmod((folder / "card.image").c_str(), 0644), 0);
    EXPECT_EQ(statusOfSaving("card.image"), 0x00);
    ASSERT_EQ(::stat((folder / "card.image").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0600U) << "there are keys in it";
}

TEST_F(HostileImage, IsNotSavedElsewhere)
{
    fs::create_symlink("../secret.image", folder / "link.image");
    fs::create_symlink("..", folder / "up");
    for (const std::string& name : {std::string("../secret.image"), std::string("link.image"),
                                    std::string("up/secret.image"), (outside / "secret.image").string()}) {
        EXPECT_EQ(statusOfSaving(name), 0x08) << name;
        EXPECT_EQ(textOf(outside / "secret.image"), blank()) << name;
    }
    EXPECT_TRUE(fs::is_symlink(folder / "link.image"));
    EXPECT_EQ(statusOfSaving("images"), 0x08);
}

TEST_F(HostileImage, SavingLeavesNothingElseBehind)
{
    statusOfSaving("card.image");
    statusOfSaving("link.image");
    statusOfSaving("images");
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(folder)) {
        names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    EXPECT_EQ(names, (std::vector<std::string>{"card.image", "images", "link.image"}));
}

// A program that reads the image while it is saved sees one whole image or the other.
TEST_F(HostileImage, ASavedImageReplacesTheOldOneAsAWhole)
{
    std::ifstream before(folder / "card.image");
    replaceFile({folder.string(), "card.image"}, "new");
    std::ostringstream seen;
    seen << before.rdbuf();
    EXPECT_EQ(seen.str(), blank()) << "the old file was left alone";
    EXPECT_EQ(textOf(folder / "card.image"), "new");
}

} // namespace
} // namespace vorn::sim
