// SPDX-License-Identifier: Apache-2.0
// Contactless memory cards.
#include "tools/running_tool.h"

namespace {

using namespace vorn::test;

// Of the profile "memory", with its changes saved to a file.
std::string memoryProfile(const Scratch& scratch)
{
    fs::copy_file(VORN_PROFILES_OF_TEST "/memory.image", scratch.path() / "memory.image",
                  fs::copy_options::overwrite_existing);
    return scratch.file("m.json", R"({"cards": [{"slot": "field", "type": "memory", "image": "memory.image",
        "save": "memory.image"}]})");
}

TEST_F(ToolTest, MemoryCardsAreReadWithTheRightKey)
{
    EXPECT_TRUE(run(scratch, {"m1", "activate", "--sim", "memory"}).says("Card  6A1F90C2"));
    const Result wrong = run(scratch, {"m1", "read", "--sim", "memory", "--block", "4"});
    EXPECT_EQ(wrong.code, kNoAccess);
    EXPECT_TRUE(wrong.complains("sector 1"));
    const Result right =
        run(scratch, {"m1", "read", "--sim", "memory", "--block", "4", "--count", "2", "--key", "A0A1A2A3A4A5"});
    EXPECT_EQ(right.code, kOk);
    EXPECT_TRUE(right.says("EMPLOYEE 004711"));
    EXPECT_TRUE(right.says("CHEN XIAO"));
    // A wrong key before the right one does not stand in its way, nor does the wrong kind.
    const Result second = run(scratch, {"m1", "auth", "--sim", "memory", "--block", "4", "--key", "FFFFFFFFFFFF",
                                        "--key", "B0B1B2B3B4B5", "--key-type", "AB"});
    EXPECT_EQ(second.code, kOk);
    EXPECT_TRUE(second.says("key B"));
    EXPECT_TRUE(
        run(scratch, {"m1", "read", "--sim", "memory", "--block", "8", "--key", "A0A1A2A3A4A5"}).says("value 12500"));
}

TEST_F(ToolTest, MemoryCardsAreWrittenAndReadBack)
{
    const std::string profile = memoryProfile(scratch);
    const std::string data = "00112233445566778899AABBCCDDEEFF";
    const Result result = run(scratch, {"m1", "write", "--sim", profile, "--block", "16", "--data", data});
    EXPECT_EQ(result.code, kOk) << result.errors;
    EXPECT_TRUE(result.says("read back"));
    EXPECT_TRUE(run(scratch, {"m1", "read", "--sim", profile, "--block", "16"}).says(data));
    const Result refused =
        run(scratch, {"m1", "write", "--sim", profile, "--block", "4", "--data", data, "--key", "A0A1A2A3A4A5"});
    EXPECT_EQ(refused.code, kNoAccess);
}

TEST_F(ToolTest, ATrailerIsWrittenOnlyWhenToldTwice)
{
    const std::string profile = memoryProfile(scratch);
    const std::string before = contents(scratch.path() / "memory.image");
    const Arguments write = {"m1",      "write", "--sim",  profile,
                             "--block", "19",    "--data", "A0A1A2A3A4A5FF078069B0B1B2B3B4B5"};
    for (const Arguments& more : {Arguments{}, {"--trailer"}, {"--yes-overwrite-trailer"}}) {
        const Result result = run(scratch, with(write, more));
        EXPECT_EQ(result.code, kUnconfirmed);
        EXPECT_TRUE(result.complains("trailer of sector 4"));
        EXPECT_EQ(contents(scratch.path() / "memory.image"), before);
    }
    const Arguments twice = {"--trailer", "--yes-overwrite-trailer"};
    // Access bits that contradict themselves would lock the sector.
    const Result locking = run(
        scratch,
        with({"m1", "write", "--sim", profile, "--block", "19", "--data", "A0A1A2A3A4A5FF078169B0B1B2B3B4B5"}, twice));
    EXPECT_EQ(locking.code, kUnconfirmed);
    EXPECT_EQ(contents(scratch.path() / "memory.image"), before);

    EXPECT_EQ(run(scratch, with(write, twice)).code, kOk);
    EXPECT_EQ(run(scratch, {"m1", "auth", "--sim", profile, "--block", "16", "--key", "A0A1A2A3A4A5"}).code, kOk);
    EXPECT_EQ(run(scratch, with({"m1", "write", "--sim", profile, "--block", "20", "--data", std::string(32, '0')},
                                {"--trailer"}))
                  .code,
              kUsage);
}

TEST_F(ToolTest, ADumpIsWholeWithAllKeysAndCanBeLoaded)
{
    const Arguments keys = {"--key", "A0A1A2A3A4A5", "--key",      "FFFFFFFFFFFF",
                            "--key", "B0B1B2B3B4B5", "--key-type", "AB"};
    const std::string image = (scratch.path() / "copy.image").string();
    const Result result = run(scratch, with({"m1", "dump", "--sim", "memory", "--json", "--output", image}, keys));
    const Json dump = result.json();
    EXPECT_EQ(dump["sectors"].size(), 16U);
    EXPECT_EQ(dump["sectors"][1]["blocks"][0], "454D504C4F5945452030303437313120");
    EXPECT_EQ(dump["sectors"][1]["blocks"][3], "************78778800************");
    EXPECT_EQ(dump["sectors"][3]["blocks"][0], "4B45505420464F52204B455920422020"); // key B only
    EXPECT_EQ(dump["sectors"][3]["keys"], "A, B");
    EXPECT_TRUE(dump["sectors"][3]["blocks"][2].is_null()); // never
    EXPECT_EQ(result.code, kNoAccess);
    EXPECT_EQ(fs::status(image).permissions(), fs::perms::owner_read | fs::perms::owner_write);

    const std::string copy =
        scratch.file("copy.json", R"({"cards": [{"slot": "field", "type": "memory", "image": "copy.image"}]})");
    const Result again = run(scratch, {"m1", "read", "--sim", copy, "--block", "4", "--key", "A0A1A2A3A4A5"});
    EXPECT_TRUE(again.says("EMPLOYEE 004711")) << again.errors;
}

TEST_F(ToolTest, AnImageIsReplacedOnlyWhenToldAndIsItsUsersOwn)
{
    const std::string image = scratch.file("old.image", "old\n");
    fs::permissions(image, fs::perms::all);
    const Arguments dump = {"m1", "dump", "--sim", "memory", "--size", "mini", "--output", image};
    EXPECT_EQ(run(scratch, dump).code, kOutput);
    EXPECT_EQ(contents(image), "old\n");
    EXPECT_EQ(run(scratch, with(dump, {"--force"})).code, kNoAccess);
    EXPECT_NE(contents(image), "old\n");
    EXPECT_EQ(fs::status(image).permissions(), fs::perms::owner_read | fs::perms::owner_write);
}

TEST_F(ToolTest, AnImageIsWrittenBackToACard)
{
    const std::string profile = memoryProfile(scratch);
    const std::string keys = scratch.file("keys", "FFFFFFFFFFFF\nA0A1A2A3A4A5\nB0B1B2B3B4B5\n");
    const Arguments known = {"--key-file", keys, "--key-type", "AB"};
    const std::string image = (scratch.path() / "copy.image").string();
    run(scratch, with({"m1", "dump", "--sim", profile, "--output", image}, known));
    const std::string data = "00112233445566778899AABBCCDDEEFF";
    EXPECT_EQ(run(scratch, {"m1", "write", "--sim", profile, "--block", "16", "--data", data}).code, kOk);
    EXPECT_TRUE(run(scratch, {"m1", "read", "--sim", profile, "--block", "16"}).says(data));
    const Result restored = run(scratch, with({"m1", "restore", "--sim", profile, image}, known));
    EXPECT_FALSE(run(scratch, {"m1", "read", "--sim", profile, "--block", "16"}).says(data)) << restored.output;
    EXPECT_EQ(run(scratch, with({"m1", "restore", "--sim", profile, image, "--trailer"}, known)).code, kUnconfirmed);
    EXPECT_EQ(run(scratch, {"m1", "restore", "--sim", profile, "/dev/zero"}).code, kUsage);
}

} // namespace
