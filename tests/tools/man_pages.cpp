// SPDX-License-Identifier: Apache-2.0
// The manual pages that the build makes: for every export and every subcommand, and readable.
#include "tools/running_tool.h"

#include <algorithm>
#include <functional>
#include <set>

namespace {

using namespace vorn::test;

const fs::path kPages = tool().parent_path() / "man";

// What a shell command prints, both streams.
std::string said(const std::string& command)
{
    std::string all;
    FILE* const pipe = ::popen((command + " 2>&1").c_str(), "r");
    char piece[4096];
    for (std::size_t size = 0; (size = std::fread(piece, 1, sizeof piece, pipe)) > 0;) {
        all.append(piece, size);
    }
    ::pclose(pipe);
    return all;
}

bool there(const std::string& program) { return std::system(("command -v " + program + " >/dev/null").c_str()) == 0; }

std::vector<fs::path> pages()
{
    std::vector<fs::path> all;
    for (const auto& file : fs::directory_iterator(kPages)) {
        all.push_back(file.path());
    }
    std::sort(all.begin(), all.end());
    return all;
}

// As a person sees it, on a wide terminal and without marks.
std::string shown(const std::string& page)
{
    return said("LC_ALL=C.UTF-8 MANWIDTH=1000 man -l '" + (kPages / page).string() + "' | col -bx");
}

// A page, or the one that it stands for.
std::string followed(const std::string& name)
{
    const std::string text = contents(kPages / name);
    const std::string mark = ".so man3/";
    return text.compare(0, mark.size(), mark) == 0 ? text.substr(mark.size(), text.find('\n') - mark.size()) : name;
}

class ManPages : public ToolTest {};

TEST_F(ManPages, EveryExportHasOneThatNamesItAndShowsItsDeclaration)
{
    std::istringstream list(contents(VORN_TREE_OF_TEST "/tests/exports.txt"));
    std::size_t count = 0;
    for (std::string name; std::getline(list, name);) {
        if (name.compare(0, 2, "_Z") == 0) {
            continue; // a C++ name of a function that has its page under the C one
        }
        ++count;
        ASSERT_TRUE(fs::exists(kPages / (name + ".3"))) << name;
        const std::string text = contents(kPages / followed(name + ".3"));
        EXPECT_NE(text.find(name), std::string::npos) << name;
        EXPECT_NE(text.find("\n.SH NAME\n"), std::string::npos) << name;
        EXPECT_NE(text.find("\n#include <ICC_COMM_VORN.h>\n"), std::string::npos) << name;
        EXPECT_NE(text.find("\n.SH DESCRIPTION\n"), std::string::npos) << name;
    }
    EXPECT_GT(count, 90U);
}

TEST_F(ManPages, EverySubcommandHasOneWithAllItsOptions)
{
    const Json all = run(scratch, {"complete", "--describe"}).json();
    EXPECT_TRUE(fs::exists(kPages / "vorn.1"));
    EXPECT_TRUE(fs::exists(kPages / "vorn-profile.5"));
    EXPECT_TRUE(fs::exists(kPages / "ICC_COMM_VORN.7"));
    ASSERT_FALSE(all.at("subcommands").empty());
    for (const Json& command : all.at("subcommands")) {
        const std::string name = "vorn-" + command.at("name").get<std::string>();
        const fs::path page = kPages / (name + ".1");
        ASSERT_TRUE(fs::exists(page)) << name;
        const std::string text = contents(page);
        const std::function<void(const Json&)> look = [&](const Json& described) {
            for (const Json& option : described.at("options")) {
                std::string last = option.at("names").back();
                for (std::size_t at = 0; (at = last.find('-', at)) != std::string::npos; at += 2) {
                    last.insert(at, "\\");
                }
                EXPECT_NE(text.find("\\fB" + last + "\\fR"), std::string::npos) << name << " " << last;
            }
            for (const Json& sub : described.at("subcommands")) {
                look(sub);
            }
        };
        look(command);
    }
}

TEST_F(ManPages, ManAndMandocHaveNothingToSayAboutThem)
{
    if (!there("man") || !there("mandoc")) {
        GTEST_SKIP() << "no man or no mandoc here";
    }
    std::string others;
    for (const fs::path& page : pages()) {
        if (followed(page.filename().string()) != page.filename().string()) {
            continue; // a name of another page, which is looked for where pages are installed
        }
        EXPECT_EQ(said("LC_ALL=C.UTF-8 MANWIDTH=80 man --warnings -E UTF-8 -l '" + page.string() + "' >/dev/null"), "")
            << page;
        others += " '" + page.string() + "'";
    }
    EXPECT_EQ(said("mandoc -T lint -W warning" + others), "");
}

TEST_F(ManPages, TextComesThroughAsItStandsInTheHeader)
{
    if (!there("man")) {
        GTEST_SKIP() << "no man here";
    }
    const std::string info = shown("IC_GetInfo.3");
    for (const char* const text :
         {"pszAIDlist\n", "an application identifier or the beginning of one, hex text, 127 bytes at most;",
          "B 57 track 2 ('=' for its first 'D')\n",
          "Returns 0; -1 another card type; -2; -3; -11, -25 activation failed", "-28 (VORN_GPO_FAILED)\n",
          "ICC_USER_INFO_CAPACITY = 6169\n",
          "int IC_GetInfo(const char* nPortNo, const char* extendPort, int nBaudRate,\n"}) {
        EXPECT_NE(info.find(text), std::string::npos) << text << info;
    }
    EXPECT_NE(shown("log_write.3").find("\"\\r\\n\""), std::string::npos);
    EXPECT_NE(
        shown("AsciiToHex.3").find("void AsciiToHex(const unsigned char* text, unsigned char* bytes, int count);"),
        std::string::npos);
    const std::string all = shown("ICC_COMM_VORN.7");
    EXPECT_NE(all.find("IC_GenARQC(3)"), std::string::npos);
    EXPECT_NE(all.find("VORN_NO_CARD_IN_TIME = -2\n"), std::string::npos);
}

TEST_F(ManPages, TheToolsPagesHaveItsManual)
{
    if (!there("man")) {
        GTEST_SKIP() << "no man here";
    }
    const std::string vorn = shown("vorn.1");
    const Result codes = run(scratch, {"help", "codes"});
    std::istringstream lines(codes.output);
    std::string code, meaning;
    while (lines >> code && std::getline(lines >> std::ws, meaning)) {
        EXPECT_NE(vorn.find(meaning), std::string::npos) << meaning;
    }
    EXPECT_NE(shown("vorn-m1.1").find("Block number. 0 to 255, must be given."), std::string::npos);
    EXPECT_NE(shown("vorn-sale.1").find("Send the host a reversal"), std::string::npos);
    EXPECT_NE(shown("vorn-replay.1").find("one card: what it answered"), std::string::npos);
    EXPECT_NE(shown("vorn-profile.5").find("\"gbk:王\""), std::string::npos);
}

TEST_F(ManPages, OneDayGivesTheSameBytes)
{
    const std::string commands = scratch.file("commands.json", run(scratch, {"complete", "--describe"}).output);
    const auto made = [&](const std::string& folder) {
        const std::string output = (scratch.path() / folder).string();
        EXPECT_NE(said("SOURCE_DATE_EPOCH=86400 python3 '" VORN_TREE_OF_TEST
                       "/scripts/man-pages' --version 1.2.3 --commands '" +
                       commands + "' '" + output + "'")
                      .find(" pages\n"),
                  std::string::npos);
        return output;
    };
    const std::string first = made("first"), second = made("second");
    EXPECT_EQ(said("diff -r '" + first + "' '" + second + "'"), "");
    EXPECT_EQ(contents(first + "/vorn.1").substr(0, 55),
              ".TH VORN 1 \"1970-01-02\" \"ICC_COMM_VORN 1.2.3\" \"Card rea");
}

} // namespace
