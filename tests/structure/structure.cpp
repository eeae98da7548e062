// SPDX-License-Identifier: Apache-2.0
// What a host relies on besides behaviour: the exported names, the libraries needed, the hardening, headers that
// compile alone; and what we rely on: includes that only point down, scripts that fail only for a reason. Tools and
// paths come from the build.
#include <gtest/gtest.h>

#include <regex.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

namespace fs = std::filesystem;

namespace {

const fs::path kSourceTree = VORN_SOURCE_TREE;

// The library that the tests run with (see tests/support/main.cpp), or else the one of this build.
const char* const kExpectedLibrary = std::getenv("VORN_EXPECT_LIBRARY");
const std::string kLibrary = kExpectedLibrary != nullptr ? kExpectedLibrary : VORN_LIBRARY;

const std::string kNm = VORN_NM;
const std::string kReadelf = VORN_READELF;

struct Outcome {
    int status = -1;
    std::string output; // both streams
};

Outcome run(const std::string& command)
{
    Outcome outcome;
    FILE* const pipe = popen((command + " 2>&1").c_str(), "r");
    if (pipe == nullptr) {
        return outcome;
    }
    char piece[4096];
    for (std::size_t size = 0; (size = fread(piece, 1, sizeof piece, pipe)) > 0;) {
        outcome.output.append(piece, size);
    }
    const int status = pclose(pipe);
    outcome.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return outcome;
}

std::string inQuotes(const std::string& text) { return "'" + text + "'"; }

std::vector<std::string> lines(const std::string& text)
{
    std::vector<std::string> all;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        all.push_back(line);
    }
    return all;
}

std::string fileText(const fs::path& path)
{
    std::ifstream file(path, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

std::vector<std::string> committedList(const std::string& name)
{
    return lines(fileText(kSourceTree / "tests" / name));
}

std::set<std::string> asSet(const std::vector<std::string>& list) { return {list.begin(), list.end()}; }

// The sanitizers add names and libraries of their own to what we ship.
bool ofTheSanitizer(const std::string& name)
{
    return name.rfind("__odr_asan", 0) == 0 || name.rfind("libasan", 0) == 0 || name.rfind("libubsan", 0) == 0;
}

// Tests of the built file itself need binutils, which a terminal does not have.
class BuiltLibrary : public ::testing::Test {
protected:
    void SetUp() override
    {
        for (const std::string& tool : {kNm, kReadelf}) {
            if (access(tool.c_str(), X_OK) != 0) {
                GTEST_SKIP() << "no " << tool << " here: the built library is not looked at";
            }
        }
    }

    static std::vector<std::string> dynamicNames(const std::string& which)
    {
        const Outcome outcome = run(inQuotes(kNm) + " -D " + which + " " + inQuotes(kLibrary));
        EXPECT_EQ(outcome.status, 0) << outcome.output;
        std::vector<std::string> names;
        for (const std::string& line : lines(outcome.output)) {
            const std::string name = line.substr(line.rfind(' ') + 1);
            if (!ofTheSanitizer(name)) {
                names.push_back(name.substr(0, name.find('@')));
            }
        }
        return names;
    }

    static std::string readelf(const std::string& options)
    {
        const Outcome outcome = run("LC_ALL=C " + inQuotes(kReadelf) + " -W " + options + " " + inQuotes(kLibrary));
        EXPECT_EQ(outcome.status, 0) << outcome.output;
        return outcome.output;
    }
};

// For every line in which the (POSIX extended) pattern is found: the match, then its groups.
std::vector<std::vector<std::string>> matchesIn(const std::string& text, const std::string& pattern)
{
    regex_t compiled;
    if (regcomp(&compiled, pattern.c_str(), REG_EXTENDED) != 0) {
        ADD_FAILURE() << "not a pattern: " << pattern;
        return {};
    }
    std::vector<std::vector<std::string>> all;
    for (const std::string& line : lines(text)) {
        regmatch_t groups[4];
        if (regexec(&compiled, line.c_str(), 4, groups, 0) == 0) {
            std::vector<std::string> found;
            for (const regmatch_t& group : groups) {
                const bool taken = group.rm_so >= 0;
                found.push_back(taken ? line.substr(static_cast<std::size_t>(group.rm_so),
                                                    static_cast<std::size_t>(group.rm_eo - group.rm_so))
                                      : "");
            }
            all.push_back(found);
        }
    }
    regfree(&compiled);
    return all;
}

bool matches(const std::string& text, const std::string& pattern) { return !matchesIn(text, pattern).empty(); }

} // namespace

// ---------------------------------------------------------------- the built library

TEST_F(BuiltLibrary, ExportsTheCommittedNamesAndNoOthers)
{
    const std::vector<std::string> committed = committedList("exports.txt");
    EXPECT_GT(committed.size(), 90U);
    EXPECT_TRUE(std::is_sorted(committed.begin(), committed.end()));
    const std::set<std::string> wanted = asSet(committed);
    const std::set<std::string> real = asSet(dynamicNames("--defined-only"));
    for (const std::string& name : wanted) {
        EXPECT_EQ(real.count(name), 1U) << name << " is not exported";
    }
    for (const std::string& name : real) {
        EXPECT_EQ(wanted.count(name), 1U) << name << " is exported, too";
    }
}

TEST_F(BuiltLibrary, ExportsItsGlobalsWithTheirSizes)
{
    const std::map<std::string, int> sizes = {{"DbgString", 512},       {"gcTagName", 432},    {"m_VrICType", 1},
                                              {"vr_comportparam", 128}, {"vr_comportmode", 4}, {"m_portmode", 4},
                                              {"vrdk03com_handle", 4}};
    const std::string symbols = readelf("--dyn-syms");
    for (const auto& [name, size] : sizes) {
        EXPECT_TRUE(matches(symbols, " " + std::to_string(size) + " +OBJECT +GLOBAL +DEFAULT +[0-9]+ " + name + "$"))
            << name << " is not an object of " << size << " bytes";
    }
}

TEST_F(BuiltLibrary, NeedsOnlyTheCommittedLibraries)
{
    const std::string dynamic = readelf("--dynamic");
    std::set<std::string> needed;
    for (const auto& entry : matchesIn(dynamic, "\\(NEEDED\\).*\\[(.*)\\]")) {
        const std::string& name = entry[1];
        // Where the C library keeps the stack guard in its loader, the loader is named as well.
        if (!ofTheSanitizer(name) && name.rfind("ld-linux", 0) != 0) {
            needed.insert(name);
        }
    }
    EXPECT_EQ(needed, asSet(committedList("needed_libraries.txt")));
}

TEST_F(BuiltLibrary, HasReadOnlyRelocationsBoundAtStart)
{
    EXPECT_TRUE(matches(readelf("--program-headers"), "GNU_RELRO"));
    EXPECT_TRUE(matches(readelf("--dynamic"), "BIND_NOW|Flags:.*NOW"));
}

TEST_F(BuiltLibrary, HasNoExecutableStackAndNoTextRelocations)
{
    EXPECT_TRUE(matches(readelf("--program-headers"), "GNU_STACK .* RW +0x"));
    EXPECT_FALSE(matches(readelf("--dynamic"), "TEXTREL"));
}

TEST_F(BuiltLibrary, HasStackProtection)
{
    EXPECT_EQ(asSet(dynamicNames("--undefined-only")).count("__stack_chk_fail"), 1U);
}

TEST_F(BuiltLibrary, HasFortifiedCalls)
{
#if defined(VORN_FORTIFIED)
    std::set<std::string> checked;
    for (const std::string& name : dynamicNames("--undefined-only")) {
        if (matches(name, "^__.*_chk$")) {
            checked.insert(name);
        }
    }
    EXPECT_FALSE(checked.empty());
#else
    GTEST_SKIP() << "this configuration (debug, or with sanitizers) is not fortified";
#endif
}

// A host's loading of the library runs nothing of it: the one entry of each kind is the compiler's own.
TEST_F(BuiltLibrary, RunsNothingWhenItIsLoaded)
{
    const std::string symbols = run("LC_ALL=C " + inQuotes(kNm) + " " + inQuotes(kLibrary)).output;
    if (symbols.find("__asan_") != std::string::npos) {
        GTEST_SKIP() << "the sanitizers run something when the library is loaded";
    }
    EXPECT_FALSE(matches(symbols, " (_GLOBAL__sub_[ID]_|_GLOBAL__I_)")) << "an object has a constructor";
    const std::string sections = readelf("--section-headers");
    for (const std::string name : {"init_array", "fini_array"}) {
        const auto found = matchesIn(sections, "\\." + name + " +[A-Z_]+ +[0-9a-f]+ [0-9a-f]+ ([0-9a-f]+) ");
        if (!found.empty()) {
            EXPECT_EQ(std::stoul(found[0][1], nullptr, 16), sizeof(void*)) << name;
        }
    }
    EXPECT_EQ(asSet(dynamicNames("--undefined-only")).count("__cxa_atexit"), 0U) << "an object has a destructor";
}

// ---------------------------------------------------------------- headers

namespace {

const char* const kHeaders[] = {"ICC_COMM_VORN.h", "vorn/card.h", "vorn/convert.h", "vorn/export.h",
                                "vorn/link.h",     "vorn/log.h",  "vorn/result.h"};

class PublicHeader : public ::testing::TestWithParam<const char*> {
protected:
    void compileAlone(const std::string& compiler, const std::string& extension, const std::string& options) const
    {
        if (access(compiler.c_str(), X_OK) != 0) {
            GTEST_SKIP() << "no " << compiler << " here: the header is not compiled";
        }
        // Twice: a header guards itself. The declaration keeps a header of macros from being an empty file.
        std::string name = "/tmp/vorn-header-XXXXXX" + extension;
        const int file = mkstemps(name.data(), static_cast<int>(extension.size()));
        ASSERT_GE(file, 0);
        close(file);
        std::ofstream(name) << "#include \"" << GetParam() << "\"\n#include \"" << GetParam()
                            << "\"\ntypedef int vorn_alone;\n";
        const Outcome outcome = run(inQuotes(compiler) + " -fsyntax-only -Wall -Wextra -Wpedantic -Werror -Wshadow " +
                                    "-Wconversion -Wsign-conversion -Wundef " + options + " -I" +
                                    inQuotes((kSourceTree / "include").string()) + " " + inQuotes(name));
        fs::remove(name);
        EXPECT_EQ(outcome.status, 0) << outcome.output;
    }
};

std::string headerName(const ::testing::TestParamInfo<const char*>& info)
{
    std::string name = info.param;
    std::replace_if(
        name.begin(), name.end(), [](char c) { return c == '/' || c == '.'; }, '_');
    return name;
}

} // namespace

TEST_P(PublicHeader, CompilesAloneAsC11)
{
    compileAlone(VORN_C_COMPILER, ".c", "-std=c11 -Wstrict-prototypes -Wold-style-definition -Wmissing-prototypes");
}

TEST_P(PublicHeader, CompilesAloneAsCxx17)
{
    compileAlone(VORN_CXX_COMPILER, ".cpp", "-std=c++17 -Wold-style-cast -Wuseless-cast -Wnon-virtual-dtor");
}

INSTANTIATE_TEST_SUITE_P(Include, PublicHeader, ::testing::ValuesIn(kHeaders), headerName);

TEST(PublicHeaders, AreAllNamedHere)
{
    std::set<std::string> found;
    for (const auto& entry : fs::recursive_directory_iterator(kSourceTree / "include")) {
        if (entry.is_regular_file()) {
            found.insert(fs::relative(entry.path(), kSourceTree / "include").string());
        }
    }
    EXPECT_EQ(found, std::set<std::string>(std::begin(kHeaders), std::end(kHeaders)));
}

// ---------------------------------------------------------------- layers

namespace {

// Each layer and what it may include from. The bridge to the host's log library stands beside the public layer and
// knows of it only the headers that hosts have.
const std::map<std::string, std::set<std::string>> kMayInclude = {
    {"headers of public", {"headers of public"}},
    {"headers of link", {"headers of link", "headers of public"}},
    {"headers of card", {"headers of card", "headers of public"}},
    {"headers of ICC", {"headers of ICC", "headers of card", "headers of link", "headers of public"}},
    {"public", {"public", "headers of public"}},
    {"libzlblog", {"libzlblog", "public", "headers of public"}},
    {"link", {"link", "public", "headers of link", "headers of public"}},
    {"card", {"card", "link", "public", "headers of card", "headers of link", "headers of public"}},
    {"ICC",
     {"ICC", "card", "link", "public", "headers of ICC", "headers of card", "headers of link", "headers of public"}},
    // The PC/SC driver stands beside the services, on the link.
    {"ifd", {"ifd", "link", "public", "headers of link", "headers of public"}},
};

const std::map<std::string, std::string> kHeaderLayers = {
    {"vorn/convert.h", "headers of public"}, {"vorn/log.h", "headers of public"},
    {"vorn/export.h", "headers of public"},  {"vorn/result.h", "headers of public"},
    {"vorn/link.h", "headers of link"},      {"vorn/card.h", "headers of card"},
    {"ICC_COMM_VORN.h", "headers of ICC"},
};

// The layer of an include's text, or nothing: then it belongs to no layer, or does not say to which.
std::string layerOfInclude(const std::string& text)
{
    const auto header = kHeaderLayers.find(text);
    if (header != kHeaderLayers.end()) {
        return header->second;
    }
    const std::string folder = text.substr(0, text.find('/'));
    return folder != text && kMayInclude.count(folder) != 0 ? folder : "";
}

// The includes of a file that point where its layer may not look.
std::vector<std::string> wrongIncludes(const std::string& layer, const std::string& text)
{
    std::vector<std::string> wrong;
    for (const auto& include : matchesIn(text, "^[ \t]*#[ \t]*include[ \t]*([\"<])([^\">]*)[\">]")) {
        const std::string& name = include[2];
        const std::string target = layerOfInclude(name);
        const bool ours = include[1] == "\"" || !target.empty(); // the system's own stand in angle brackets
        if (ours && kMayInclude.at(layer).count(target) == 0) {
            wrong.push_back(name);
        }
    }
    return wrong;
}

std::string listed(const std::vector<std::string>& names)
{
    std::string text;
    for (const std::string& name : names) {
        text += name + " ";
    }
    return text;
}

} // namespace

TEST(Layers, SourcesIncludeOnlyDownwards)
{
    std::set<std::string> seen;
    for (const fs::path& folder : {kSourceTree / "src", kSourceTree / "ifd"}) {
        for (const auto& entry : fs::recursive_directory_iterator(folder)) {
            const std::string extension = entry.path().extension().string();
            if (extension != ".cpp" && extension != ".h") {
                continue;
            }
            const fs::path file = fs::relative(entry.path(), folder.filename() == "src" ? folder : kSourceTree);
            const std::string layer = file.begin()->string();
            ASSERT_EQ(kMayInclude.count(layer), 1U) << file << " lies in no layer";
            EXPECT_EQ(listed(wrongIncludes(layer, fileText(entry.path()))), "") << "in " << file;
            seen.insert(layer);
        }
    }
    EXPECT_EQ(seen, (std::set<std::string>{"ICC", "card", "ifd", "libzlblog", "link", "public"}));
}

TEST(Layers, PublicHeadersIncludeOnlyDownwards)
{
    for (const auto& [header, layer] : kHeaderLayers) {
        EXPECT_EQ(listed(wrongIncludes(layer, fileText(kSourceTree / "include" / header))), "") << "in " << header;
    }
}

TEST(Layers, IncludeThatPointsUpIsNoticed)
{
    EXPECT_EQ(listed(wrongIncludes("link", "#include \"card/tlv.h\"\n#include \"link/medium.h\"\n")), "card/tlv.h ");
    EXPECT_EQ(listed(wrongIncludes("card", "\n  #  include <ICC_COMM_VORN.h>\n")), "ICC_COMM_VORN.h ");
    EXPECT_EQ(listed(wrongIncludes("public", "#include \"vorn/link.h\"")), "vorn/link.h ");
    EXPECT_EQ(listed(wrongIncludes("libzlblog", "#include \"link/medium.h\"")), "link/medium.h ");
    EXPECT_EQ(listed(wrongIncludes("public", "#include \"libzlblog/host_log.h\"")), "libzlblog/host_log.h ");
    EXPECT_EQ(listed(wrongIncludes("ifd", "#include \"card/tlv.h\"\n#include \"link/medium.h\"\n")), "card/tlv.h ");
    EXPECT_EQ(listed(wrongIncludes("link", "#include \"ifd/lock.h\"")), "ifd/lock.h ");
    EXPECT_EQ(listed(wrongIncludes("card", "#include \"tlv.h\"")), "tlv.h "); // does not say its layer
    EXPECT_EQ(listed(wrongIncludes("headers of card", "#include \"vorn/link.h\"")), "vorn/link.h ");
    EXPECT_EQ(listed(wrongIncludes("ICC", "#include \"card/tlv.h\"\n#include <cstdio>\n#include \"vorn/log.h\"")), "");
}

// ---------------------------------------------------------------- scripts

namespace {

// Pipelines into a reader that ends at the first match. Scripts here ask for the status of each program in a pipeline
// (pipefail), and one that writes on to nobody ends by SIGPIPE: now and then, mostly on a busy machine, "found" becomes
// "failed". What is searched goes into the reader as a text: grep -q WORD <<<"$(program)".
std::vector<std::string> pipelinesCutShort(const std::string& text)
{
    std::vector<std::string> found;
    for (const auto& match : matchesIn(text, "^ *[^# ].*[^|]\\| *(grep( +-[-A-Za-z0-9]+)* +-[A-Za-z]*[qlm].*)")) {
        found.push_back(match[1]);
    }
    return found;
}

bool isScript(const fs::path& file)
{
    const std::string text = fileText(file).substr(0, 64);
    return file.extension() == ".bash" || text.rfind("#!/usr/bin/env bash", 0) == 0;
}

} // namespace

TEST(Scripts, NoPipelineIsCutShortByItsReader)
{
    int scripts = 0;
    const auto lookAt = [&](const fs::path& file) {
        if (fs::is_regular_file(file) && isScript(file)) {
            EXPECT_EQ(listed(pipelinesCutShort(fileText(file))), "") << "in " << file;
            ++scripts;
        }
    };
    for (const char* folder : {".", ".ci", "bench", "examples", "fuzz", "packaging", "scripts", "tests/packages"}) {
        // Below the others lie builds and the fuzzers' corpora.
        const bool withFolders = folder == std::string("scripts") || folder == std::string("examples");
        for (auto entry = fs::recursive_directory_iterator(kSourceTree / folder); entry != fs::end(entry); ++entry) {
            if (!withFolders) {
                entry.disable_recursion_pending();
            }
            lookAt(entry->path());
        }
    }
    EXPECT_GE(scripts, 30);
}

TEST(Scripts, PipelineThatIsCutShortIsNoticed)
{
    EXPECT_EQ(listed(pipelinesCutShort("ldd vorn | grep -qF x || exit\n")), "grep -qF x || exit ");
    EXPECT_EQ(listed(pipelinesCutShort("  a | b |grep -E -q x\n")), "grep -E -q x ");
    EXPECT_EQ(listed(pipelinesCutShort("a | grep -m 1 x\n")), "grep -m 1 x ");
    EXPECT_EQ(listed(pipelinesCutShort("# a | grep -q x\n  # a | grep -q x\n")), "");
    EXPECT_EQ(listed(pipelinesCutShort("grep -q x file || grep -q y <<<\"$(a | b)\"\na | grep -o x\n")), "");
}

// ---------------------------------------------------------------- documents

namespace {

std::string quotedIn(const std::string& line, std::size_t which)
{
    std::vector<std::string> quoted;
    for (std::size_t from = 0; (from = line.find('`', from)) != std::string::npos;) {
        const std::size_t to = line.find('`', from + 1);
        quoted.push_back(line.substr(from + 1, to - from - 1));
        from = to == std::string::npos ? to : to + 1;
    }
    return which < quoted.size() ? quoted[which] : "";
}

// Whether a source file has this test: "Suite.Name".
bool hasTest(const std::string& text, const std::string& test)
{
    const std::size_t dot = test.find('.');
    return dot != std::string::npos &&
           matches(text, "TEST(_F|_P)?\\(" + test.substr(0, dot) + ", *" + test.substr(dot + 1) + "\\)");
}

// What an entry of docs/compatibility.md names and the tree does not have.
struct CompatibilityEntry {
    std::string title;
    int files = 0;
    int tests = 0;
    bool stake = false;

    void add(const std::string& line)
    {
        if (line.rfind("- Code: ", 0) == 0) {
            for (std::size_t i = 0; !quotedIn(line, i).empty(); ++i, ++files) {
                EXPECT_TRUE(fs::is_regular_file(kSourceTree / quotedIn(line, i)))
                    << title << ": no file " << quotedIn(line, i);
            }
        } else if (line.rfind("- Test: `", 0) == 0) {
            EXPECT_TRUE(hasTest(fileText(kSourceTree / quotedIn(line, 0)), quotedIn(line, 1)))
                << title << ": no test " << quotedIn(line, 1) << " in " << quotedIn(line, 0);
            ++tests;
        } else if (line.rfind("- Test: none, ", 0) == 0) {
            ++tests;
        } else if (line.rfind("- A host would lose: ", 0) == 0) {
            stake = true;
        }
    }

    void expectWhole() const
    {
        EXPECT_TRUE(files > 0 && tests > 0 && stake) << title << ": Code, Test and what a host would lose";
    }
};

} // namespace

TEST(Documents, CompatibilityNamesFilesAndTestsThatExist)
{
    std::vector<CompatibilityEntry> entries;
    for (const std::string& line : lines(fileText(kSourceTree / "docs/compatibility.md"))) {
        if (line.rfind("### ", 0) == 0) {
            entries.push_back({line.substr(4)});
        } else if (!entries.empty()) {
            entries.back().add(line);
        }
    }
    EXPECT_GT(entries.size(), 60U);
    std::set<std::string> titles;
    for (const CompatibilityEntry& entry : entries) {
        entry.expectWhole();
        EXPECT_TRUE(titles.insert(entry.title).second) << entry.title << " is there twice";
    }
}

// A comment points to an entry by its title: (compatibility: "Title"), over two lines at most.
TEST(Documents, CompatibilityHasWhatCommentsPointTo)
{
    std::set<std::string> titles;
    for (const std::string& line : lines(fileText(kSourceTree / "docs/compatibility.md"))) {
        if (line.rfind("### ", 0) == 0) {
            titles.insert(line.substr(4));
        }
    }
    static const std::regex pointer("compatibility: \"([^\"]+)\"");
    static const std::regex lineBreak("\n *(//|\\*) *");
    int pointers = 0;
    for (const char* folder : {"src", "include"}) {
        for (const auto& file : fs::recursive_directory_iterator(kSourceTree / folder)) {
            const std::string text =
                file.is_regular_file() ? std::regex_replace(fileText(file.path()), lineBreak, " ") : std::string();
            for (std::sregex_iterator found(text.begin(), text.end(), pointer), end; found != end;
                 ++found, ++pointers) {
                EXPECT_EQ(titles.count((*found)[1]), 1U) << file.path() << " points to " << (*found)[1];
            }
        }
    }
    EXPECT_GT(pointers, 12);
}

// The classes of faults in docs/testing.md: each row names a file, the tests in it, and so on.
TEST(Documents, EachClassOfFaultsNamesTestsThatExist)
{
    int rows = 0;
    bool inSection = false;
    for (const std::string& line : lines(fileText(kSourceTree / "docs/testing.md"))) {
        if (line.rfind("## ", 0) == 0) {
            inSection = line == "## Classes of faults";
        }
        if (!inSection || line.rfind("| ", 0) != 0 || line.rfind("| class |", 0) == 0) {
            continue;
        }
        ++rows;
        int tests = 0;
        std::string file;
        const std::string named = line.substr(line.rfind("| ", line.size() - 2));
        for (std::size_t i = 0; !quotedIn(named, i).empty(); ++i) {
            const std::string name = quotedIn(named, i);
            if (name.find('/') != std::string::npos) {
                file = name;
                continue;
            }
            EXPECT_TRUE(hasTest(fileText(kSourceTree / "tests" / file), name)) << "no test " << name << " in " << file;
            ++tests;
        }
        EXPECT_GT(tests, 0) << line;
    }
    EXPECT_GE(rows, 15);
}

// A path in a document's code quotes, if it is one of this tree: "src/card/tlv.cpp", "tests/card".
TEST(Documents, NameOnlyFilesThatExist)
{
    int paths = 0;
    for (const char* document : {"README.md", "CONTRIBUTING.md", "docs/architecture.md", "tests/README.md"}) {
        for (const std::string& line : lines(fileText(kSourceTree / document))) {
            for (std::size_t i = 0; !quotedIn(line, i).empty(); ++i) {
                const std::string path = quotedIn(line, i);
                if (matches(path, "^(src|ifd|sim|tools|tests|scripts|include|docs|cmake|bench|examples|fuzz|packaging)/"
                                  "[A-Za-z0-9_./-]*$")) {
                    EXPECT_TRUE(fs::exists(kSourceTree / path)) << document << " names " << path;
                    ++paths;
                }
            }
        }
    }
    EXPECT_GT(paths, 40);
}

TEST(Documents, MissingTestIsNoticed)
{
    EXPECT_TRUE(hasTest("TEST_F(Suite, Name)\n", "Suite.Name"));
    EXPECT_FALSE(hasTest("TEST_F(Suite, Names)\n", "Suite.Name"));
    EXPECT_FALSE(hasTest("", "Suite.Name"));
}
