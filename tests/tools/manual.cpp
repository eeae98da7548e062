// SPDX-License-Identifier: Apache-2.0
// The manual's tables say what the program does.
#include "sim/reader/fault.h"
#include "tools/running_tool.h"

#include <map>
#include <regex>
#include <set>

namespace {

using namespace vorn::test;

std::string manual() { return contents(VORN_TREE_OF_TEST "/docs/vorn.md"); }

// The rows of the table under a heading line, cell by cell, without their marks.
std::vector<std::vector<std::string>> tableUnder(const std::string& text, const std::string& heading)
{
    std::vector<std::vector<std::string>> rows;
    std::istringstream lines(text.substr(text.find(heading)));
    std::string line;
    std::getline(lines, line);
    std::getline(lines, line); // the rule
    while (std::getline(lines, line) && line.compare(0, 1, "|") == 0) {
        std::vector<std::string> cells;
        std::istringstream row(line.substr(1));
        for (std::string cell; std::getline(row, cell, '|');) {
            cell = std::regex_replace(cell, std::regex("^[ `]+|[ `]+$"), "");
            cells.push_back(cell);
        }
        rows.push_back(cells);
    }
    return rows;
}

TEST_F(ToolTest, TheManualListsTheExitCodesThatThereAre)
{
    std::map<std::string, std::string> documented, known;
    for (const auto& row : tableUnder(manual(), "| Code | Meaning |")) {
        documented[row.at(0)] = row.at(1);
    }
    const Result codes = run(scratch, {"help", "codes"});
    ASSERT_EQ(codes.code, kOk);
    std::istringstream lines(codes.output);
    std::string code, meaning;
    while (lines >> code && std::getline(lines >> std::ws, meaning)) {
        known[code] = meaning;
    }
    EXPECT_EQ(documented, known);
}

TEST_F(ToolTest, TheManualListsTheFaultsThatThereAre)
{
    std::set<std::string> documented, known;
    for (const auto& row : tableUnder(manual(), "| Kind | What goes wrong |")) {
        const std::string kind = row.at(0).substr(0, row.at(0).find('='));
        documented.insert(kind);
        EXPECT_TRUE(vorn::sim::parseFault(row.at(0).find('=') == std::string::npos ? kind : kind + "=10")) << kind;
    }
    const std::string source = contents(VORN_TREE_OF_TEST "/sim/reader/fault.cpp");
    const std::regex row("\\{\"([a-z]+)\", Fault::Kind::");
    for (auto at = std::sregex_iterator(source.begin(), source.end(), row); at != std::sregex_iterator(); ++at) {
        known.insert((*at)[1]);
    }
    EXPECT_EQ(documented, known);
    EXPECT_FALSE(known.empty());
}

TEST_F(ToolTest, TheManualListsTheLettersWithTheirMembers)
{
    const Json all = run(scratch, {"info", "--sim", "debit", "--json"}).json();
    const std::string raw = run(scratch, {"info", "--sim", "debit", "--raw"}).output;
    std::string letters;
    for (const auto& row : tableUnder(manual(), "| Letter | Data |")) {
        letters += row.at(0);
        EXPECT_TRUE(all.contains(row.at(2))) << row.at(2);
    }
    std::string present;
    for (std::size_t at = 0; at + 4 <= raw.size(); at += 4 + std::stoul(raw.substr(at + 1, 3))) {
        present += raw[at];
    }
    EXPECT_EQ(letters, present);
}

TEST_F(ToolTest, TheManualListsTheSubcommandsThatThereAre)
{
    std::set<std::string> documented, known;
    for (const auto& row : tableUnder(manual(), "| Subcommand | What it does |")) {
        documented.insert(row.at(0));
    }
    std::istringstream help(run(scratch, {"--help"}).output);
    bool listing = false;
    for (std::string line; std::getline(help, line);) {
        if (listing && line.compare(0, 2, "  ") == 0 && line.size() > 2 && line[2] != ' ') {
            known.insert(line.substr(2, line.find(' ', 2) - 2));
        }
        listing = listing || line.find("ubcommands:") != std::string::npos;
    }
    EXPECT_EQ(documented, known);
}

TEST_F(ToolTest, TheGuideSaysWhatToDoAboutEveryResult)
{
    std::set<std::string> documented, known;
    for (const auto& row : tableUnder(contents(VORN_TREE_OF_TEST "/docs/guide.md"), "| result | what it says |")) {
        std::istringstream results(row.at(0));
        for (std::string result; std::getline(results >> std::ws, result, ',');) {
            documented.insert(result);
        }
    }
    std::string header = contents(VORN_TREE_OF_TEST "/include/vorn/result.h");
    header.resize(header.find("enum vorn_limit"));
    const std::regex constant("VORN_[A-Z_]+ = (-?[0-9]+)");
    for (auto at = std::sregex_iterator(header.begin(), header.end(), constant); at != std::sregex_iterator(); ++at) {
        known.insert((*at)[1]);
    }
    EXPECT_EQ(documented, known);
    EXPECT_GT(known.size(), 10U);
}

TEST_F(ToolTest, TroubleshootingNamesTheExitCodesThatThereAre)
{
    const std::string page = contents(VORN_TREE_OF_TEST "/docs/troubleshooting.md");
    const std::string codes = "\n" + run(scratch, {"help", "codes"}).output;
    std::set<std::string> named;
    for (const char* const part : {"## The reader", "## The card", "## A sale"}) {
        const std::string text = page.substr(page.find(part));
        for (const auto& row : tableUnder(text, "| what is seen | result |")) {
            const std::regex number("[0-9]+");
            for (auto at = std::sregex_iterator(row.at(2).begin(), row.at(2).end(), number);
                 at != std::sregex_iterator(); ++at) {
                named.insert(at->str());
            }
        }
    }
    EXPECT_GT(named.size(), 15U);
    for (const std::string& code : named) {
        EXPECT_TRUE(std::regex_search(codes, std::regex("\n *" + code + " "))) << code << codes;
    }
}

// scripts/tool-picture takes it anew.
TEST_F(ToolTest, TheToolsPictureShowsWhatItPrints)
{
    if (std::system("command -v python3 >/dev/null") != 0) {
        GTEST_SKIP() << "no python3 here";
    }
    const std::string taken = (scratch.path() / "vorn.svg").string();
    const std::string script = "python3 '" VORN_TREE_OF_TEST "/scripts/tool-picture' '";
    ASSERT_EQ(std::system((script + tool().string() + "' '" + taken + "'").c_str()), 0);
    const std::string picture = contents(VORN_TREE_OF_TEST "/docs/images/vorn.svg");
    EXPECT_NE(picture.find("622999*********6589"), std::string::npos);
    EXPECT_EQ(picture, contents(taken));
}

} // namespace
