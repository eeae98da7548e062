// SPDX-License-Identifier: Apache-2.0
// What a shell offers behind "vorn": subcommands, options, and what they take.
#include "tools/running_tool.h"

#include <algorithm>
#include <set>

namespace {

using namespace vorn::test;

const std::string kFolder = VORN_TREE_OF_TEST "/tools/completion/";

std::set<std::string> linesOf(const std::string& text)
{
    std::set<std::string> all;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        all.insert(line);
    }
    return all;
}

class CompletionTest : public ToolTest {
protected:
    // The words that may stand next, without their meanings.
    std::set<std::string> offered(const Arguments& words)
    {
        const Result result = run(scratch, with({"complete", "--"}, words));
        EXPECT_EQ(result.code, kOk) << result.errors;
        std::set<std::string> all;
        for (const std::string& line : linesOf(result.output)) {
            all.insert(line.substr(0, line.find('\t')));
        }
        return all;
    }

    // A script's output: its directory is an empty one but for the file wallet-card.json.
    std::string output(const std::string& shell, const std::string& text, const Arguments& arguments = {})
    {
        const std::string program = scratch.file("script", text);
        fs::create_directory(scratch.path() / "here");
        std::ofstream(scratch.path() / "here" / "wallet-card.json") << "{}";
        std::string command = "cd '" + (scratch.path() / "here").string() + "' && " + shell + " '" + program + "'";
        for (const std::string& argument : arguments) {
            command += " '" + argument + "'";
        }
        std::string all;
        FILE* const pipe = ::popen((command + " 2>/dev/null").c_str(), "r");
        char piece[4096];
        for (std::size_t size = 0; (size = std::fread(piece, 1, sizeof piece, pipe)) > 0;) {
            all.append(piece, size);
        }
        ::pclose(pipe);
        return all;
    }

    // As bash calls it: the words that it has taken the line apart into.
    std::set<std::string> inBash(const Arguments& words)
    {
        return linesOf(output("bash",
                              "source \"$1\"; shift\n"
                              "COMP_WORDS=(\"$@\"); COMP_CWORD=$(($# - 1))\n"
                              "_vorn\n"
                              "printf '%s\\n' \"${COMPREPLY[@]}\"\n",
                              with({kFolder + "vorn.bash", tool().string()}, words)));
    }

    static bool hasZsh() { return std::system("command -v zsh >/dev/null") == 0; }
};

using Words = std::set<std::string>;

TEST_F(CompletionTest, SubcommandsAreOfferedByTheirBeginning)
{
    EXPECT_EQ(offered({"wa"}), (Words{"wallet", "watch"}));
    EXPECT_EQ(offered({"m1", "re"}), (Words{"read", "restore"}));
    EXPECT_EQ(offered({"m1", "read", ""}).count("--block"), 1U);
}

TEST_F(CompletionTest, AllSubcommandsOfTheHelpAreOfferedAndNoOthers)
{
    Words known;
    std::istringstream help(run(scratch, {"--help"}).output);
    bool listing = false;
    for (std::string line; std::getline(help, line);) {
        if (listing && line.compare(0, 2, "  ") == 0 && line[2] != ' ') {
            known.insert(line.substr(2, line.find(' ', 2) - 2));
        }
        listing = listing || line.find("ubcommands:") != std::string::npos;
    }
    EXPECT_EQ(offered({""}), known);
    EXPECT_EQ(known.count("complete"), 0U);
}

TEST_F(CompletionTest, OptionsAreThoseThatCanStillStand)
{
    EXPECT_EQ(offered({"info", "--cont"}), (Words{"--contact", "--contactless"}));
    EXPECT_EQ(offered({"info", "--contact", "--cont"}), Words{});
    EXPECT_EQ(offered({"info", "--port", "ttyS1", "--si"}), Words{});
    EXPECT_EQ(offered({"info", "--sim", "debit", "--fault", "check", "--fau"}), Words{"--fault"});
}

TEST_F(CompletionTest, ValuesAreOfTheirOptionsKind)
{
    EXPECT_EQ(offered({"info", "--sim", "walle"}), (Words{"wallet", ":files"}));
    EXPECT_EQ(offered({"info", "--sim=walle"}), (Words{"wallet", ":files"}));
    EXPECT_EQ(offered({"info", "--sim", "=", "walle"}), (Words{"wallet", ":files"}));
    EXPECT_EQ(offered({"sim", "ps"}), (Words{"psam", ":files"}));
    EXPECT_EQ(offered({"sim", "--fault", "s"}), (Words{"status=", "silence", "short="}));
    EXPECT_EQ(offered({"m1", "auth", "--key-type", "A"}), (Words{"A", "AB"}));
    EXPECT_EQ(offered({"decode", "--as", "a"}), (Words{"apdu", "arqc", "atr"}));
    EXPECT_EQ(offered({"info", "--log-dir", ""}), Words{":directories"});
    EXPECT_EQ(offered({"replay", ""}), Words{":files"});
    EXPECT_EQ(offered({"help", "m1", "d"}), Words{"dump"});
    EXPECT_EQ(offered({"info", "--wait", ""}), Words{});
}

TEST_F(CompletionTest, PortsAreThoseThatTheToolLists)
{
    Words ports;
    const Json listed = run(scratch, {"ports", "--dont-ask", "--json"}).json();
    for (const auto& port : listed.at("ports")) {
        ports.insert(port["port"].get<std::string>());
    }
    EXPECT_EQ(offered({"info", "--port", ""}), ports);
}

TEST_F(CompletionTest, AllValuesThatTheHelpNamesAreOfAKindThatIsCompleted)
{
    // What a person has to know: numbers, hex, texts.
    const Words free{"", "TEXT", "HEX", "LETTERS=ABCDEFGHIJKL", "LETTERS", "UINT"};
    const Words completed{"PORT", "PROFILE", "FAULT", "FILE", "DIR", "SUBCOMMAND"};
    const Json all = run(scratch, {"complete", "--describe"}).json();
    const std::function<void(const Json&)> look = [&](const Json& command) {
        for (const char* const list : {"options", "arguments"}) {
            for (const Json& option : command.at(list)) {
                const std::string value = option.at("value");
                const bool range = value.find(" in [") != std::string::npos;
                const bool set = value.compare(0, 1, "{") == 0;
                EXPECT_TRUE(range || set || free.count(value) + completed.count(value) == 1)
                    << command.at("name") << " " << option.at("names") << ": " << value;
            }
        }
        for (const Json& sub : command.at("subcommands")) {
            look(sub);
        }
    };
    look(all);
}

TEST_F(CompletionTest, BashOffersWordsAndFiles)
{
    EXPECT_EQ(inBash({"wa"}), (Words{"wallet", "watch"}));
    EXPECT_EQ(inBash({"info", "--sim", "walle"}), (Words{"wallet", "wallet-card.json"}));
    EXPECT_EQ(inBash({"info", "--sim", "=", "walle"}), (Words{"wallet", "wallet-card.json"}));
    EXPECT_EQ(inBash({"info", "--sim", "="}).count("wallet"), 1U);
    EXPECT_EQ(inBash({"info", "--json", "--ra"}), Words{""});
    EXPECT_EQ(output("bash", "source \"$1\"; complete -p vorn\n", {kFolder + "vorn.bash"}), "complete -F _vorn vorn\n");
}

// A shell on a terminal: what it has completed runs.
TEST_F(CompletionTest, ZshCompletesALineThatThenRuns)
{
    if (!hasZsh()) {
        GTEST_SKIP() << "no zsh here";
    }
    const std::string said =
        output("zsh -f",
               "zmodload zsh/zpty\n"
               "zpty -b shell \"PATH=${2:h}:\\$PATH TERM=dumb zsh -f -i\"\n"
               "zpty -w shell \"fpath=($1 \\$fpath); autoload -Uz compinit; compinit -u -D; echo "
               "RE''ADY\"\n"
               "zpty -r -m shell seen '*READY*'\n"
               "zpty -w shell $'vorn si\\t--lis\\t; vorn info --sim=deb\\t--raw; echo EN\\'\\'DED'\n"
               "zpty -r -m shell seen '*ENDED*'\n"
               "print -r -- \"$seen\"\n",
               {kFolder, tool().string()});
    EXPECT_NE(said.find("\r\nwallet\r\n"), std::string::npos) << said;
    EXPECT_NE(said.find("A019" + kPan), std::string::npos) << said;
}

} // namespace
