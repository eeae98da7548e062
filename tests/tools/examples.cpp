// SPDX-License-Identifier: Apache-2.0
// The examples and README's first program do what they say, beside a simulated reader.
#include "tools/running_tool.h"

#include "ICC_COMM_VORN.h"

namespace {

using namespace vorn::test;

const fs::path kBuild = tool().parent_path();
const fs::path kTree = VORN_TREE_OF_TEST;
const std::string kLibrary = (kBuild / "ICC_COMM_VORN.so").string();

#ifdef __SANITIZE_ADDRESS__
constexpr bool kSanitized = true; // the library needs a program that has the sanitizers' library, too
#else
constexpr bool kSanitized = false;
#endif

class Examples : public ToolTest {
protected:
    void SetUp() override
    {
        fs::create_directory(directory());
        if (!fs::exists(kBuild / "examples" / "read_card")) {
            GTEST_SKIP() << "the examples are not built (VORN_EXAMPLES)";
        }
    }

    fs::path directory() const { return scratch.path() / "run"; }
    static std::string example(const std::string& name) { return "'" + (kBuild / "examples" / name).string() + "'"; }
    static std::string issuer(const std::string& more) { return "\"" + tool().string() + " issuer " + more + "\""; }
    static bool there(const std::string& program)
    {
        return std::system(("command -v " + program + " >/dev/null").c_str()) == 0;
    }

    // A shell command in a directory of its own: both its outputs.
    Result shell(const std::string& command) const
    {
        Result result;
        const std::string whole = "cd '" + directory().string() + "' && { " + command + "\n} 2>&1";
        FILE* const pipe = ::popen(whole.c_str(), "r");
        char piece[4096];
        for (std::size_t size = 0; (size = std::fread(piece, 1, sizeof piece, pipe)) > 0;) {
            result.output.append(piece, size);
        }
        const int status = ::pclose(pipe);
        result.code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        return result;
    }

    // PORT in the command is the port of a reader with this profile's cards.
    Result beside(const Arguments& profile, std::string command) const
    {
        Process reader(scratch, with({"sim"}, profile));
        const std::string port = reader.outputLine();
        for (std::size_t at = 0; (at = command.find("PORT", at)) != std::string::npos;) {
            command.replace(at, 4, port);
        }
        return shell(command);
    }

    static void expectNoSecret(const Result& result)
    {
        for (const std::string& secret : {kPan, std::string("6250990710031424"), std::string("C5B7D1F4CFFEC3F7")}) {
            EXPECT_EQ(result.output.find(secret), std::string::npos) << result.output;
        }
    }
};

TEST_F(Examples, ACardIsReadAndNothingSecretIsShown)
{
    const Result debit = beside({"debit"}, example("read_card") + " PORT");
    EXPECT_EQ(debit.code, 0) << debit.output;
    EXPECT_TRUE(debit.says("contact interface:\n  A ...6589\n  B (35 characters)\n  C 000000035680\n")) << debit.output;
    expectNoSecret(debit);
    const Result silent = beside({"debit", "--fault", "silence"}, example("read_card") + " PORT");
    EXPECT_EQ(silent.code, 1);
    EXPECT_TRUE(silent.says("IC_PowerOn returned -11")) << silent.output;
}

TEST_F(Examples, TheLogIsShownWithItsMerchants)
{
    const Result debit = beside({"debit"}, example("read_log") + " PORT");
    EXPECT_EQ(debit.code, 0) << debit.output;
    EXPECT_TRUE(debit.says("26-09-18 18:30  type 00  currency 0156  number 0047  青禾超市城北店")) << debit.output;
    EXPECT_EQ(std::count(debit.output.begin(), debit.output.end(), '\n'), 6) << debit.output;
    const Result credit = beside({"credit"}, example("read_log") + " PORT");
    EXPECT_EQ(credit.code, 0);
    EXPECT_TRUE(credit.says("keeps no log")) << credit.output;
}

TEST_F(Examples, ASaleIsApprovedDeclinedOrReversed)
{
    const Result approved = beside({"debit"}, example("sale") + " PORT 12345 " + issuer("debit"));
    EXPECT_EQ(approved.code, 0) << approved.output;
    EXPECT_TRUE(approved.says("\napproved, script result DF31052")) << approved.output;
    expectNoSecret(approved);
    const Result declined = beside({"debit"}, example("sale") + " PORT 3000000 " + issuer("debit"));
    EXPECT_EQ(declined.code, 1);
    EXPECT_TRUE(declined.says("not approved by the issuer")) << declined.output;
    const Result unbelieved = beside({"debit"}, example("sale") + " PORT 12345 " + issuer("debit --wrong-key"));
    EXPECT_EQ(unbelieved.code, 1);
    EXPECT_TRUE(unbelieved.says("not completed (-30): send the issuer a reversal")) << unbelieved.output;
    const Result unanswered = beside({"debit"}, example("sale") + " PORT 12345 false");
    EXPECT_EQ(unanswered.code, 1);
    EXPECT_TRUE(unanswered.says("no answer from the issuer")) << unanswered.output;
}

// What the card decided when its last answer is lost, nobody knows.
TEST_F(Examples, ASaleWhoseLastAnswerIsLostIsReversed)
{
    bool seen = false;
    for (int at = 20; at < 30 && !seen; ++at) { // the commands of the second call
        const Result lost = beside({"credit", "--fault", "silence@" + std::to_string(at)},
                                   example("sale") + " PORT 12345 " + issuer("credit"));
        EXPECT_EQ(lost.code == 0, lost.says("\napproved")) << at << lost.output;
        seen = lost.says("not completed (-30): send the issuer a reversal");
    }
    EXPECT_TRUE(seen);
}

TEST_F(Examples, TheLibraryIsLoadedAtRunTime)
{
    const Result card = beside({"debit"}, example("load_library") + " '" + kLibrary + "' PORT");
    EXPECT_EQ(card.code, 0) << card.output;
    EXPECT_EQ(card.output, "card ...6589\n");
    EXPECT_EQ(shell(example("load_library") + " /nonexistent.so ttyS1").code, 1);
    EXPECT_TRUE(shell("ldd " + example("load_library")).output.find("ICC_COMM_VORN") == std::string::npos);
}

TEST_F(Examples, PythonRaisesResultsAndMasks)
{
    if (kSanitized || !there("python3")) {
        GTEST_SKIP() << "no python3 here, or one without the sanitizers";
    }
    const std::string program =
        "python3 -B '" + (kTree / "examples/python/read_card.py").string() + "' '" + kLibrary + "'";
    const Result card = beside({"debit"}, program + " PORT");
    EXPECT_EQ(card.code, 0) << card.output;
    EXPECT_TRUE(card.says("reader DK7710")) << card.output;
    EXPECT_TRUE(card.says("card ***************6589\n")) << card.output;
    EXPECT_TRUE(card.says("'expiry': '301231'")) << card.output;
    expectNoSecret(card);
    const Result none = beside({"debit"}, program + " PORTx");
    EXPECT_EQ(none.code, 1);
    EXPECT_TRUE(none.says("the port could not be opened (-3)")) << none.output;
}

TEST_F(Examples, PythonTakesARecordAsTheHeaderDescribesIt)
{
    if (!there("python3")) {
        GTEST_SKIP() << "no python3 here";
    }
    const Result result = shell("cd '" + (kTree / "examples/python").string() +
                                "' && python3 -B -c 'import vorn_reader as v\n"
                                "print(v.ATR_CAPACITY, v.RESPONSE_CAPACITY, v.USER_INFO_CAPACITY, "
                                "v.DEVICE_TEXT_CAPACITY)\n"
                                "print(v.fields_of(\"A00812345678E000\"), v.masked(\"12\"))\n"
                                "try: v.fields_of(\"A0091\")\n"
                                "except ValueError as error: print(error)'");
    EXPECT_EQ(result.output, std::to_string(ICC_ATR_CAPACITY) + " " + std::to_string(ICC_RESPONSE_CAPACITY) + " " +
                                 std::to_string(ICC_USER_INFO_CAPACITY) + " " +
                                 std::to_string(ICC_DEVICE_TEXT_CAPACITY) +
                                 "\n{'pan': '****5678', 'expiry': ''} **\nnot a card record\n");
}

TEST_F(Examples, JavaReadsACardThroughJna)
{
    const std::string archive = "/usr/share/java/jna.jar";
    if (kSanitized || !there("java") || !fs::exists(archive)) {
        GTEST_SKIP() << "no java or no JNA here, or one without the sanitizers";
    }
    const fs::path source = kTree / "examples/java/ReadCard.java";
    for (const auto& [name, size] :
         {std::pair("ATR_CAPACITY", ICC_ATR_CAPACITY), std::pair("USER_INFO_CAPACITY", ICC_USER_INFO_CAPACITY)}) {
        EXPECT_NE(contents(source).find(std::string("int ") + name + " = " + std::to_string(size) + ";"),
                  std::string::npos)
            << name;
    }
    const std::string program = "java -cp " + archive + " '" + source.string() + "' '" + kLibrary + "' ";
    const Result card = beside({"debit"}, program + "PORT && echo && " + program + "PORTx");
    EXPECT_EQ(card.code, 1) << card.output;
    EXPECT_TRUE(card.says("card ...6589\n")) << card.output;
    EXPECT_TRUE(card.says("IC_PowerOn: the port cannot be opened (-3)\n")) << card.output;
}

TEST_F(Examples, ACounterApplicationPassesItsOwnCases)
{
    const std::string script = "VORN='" + tool().string() + "' '" + (kTree / "examples/ci/run").string() + "' ";
    const Result passed = shell(script + example("counter"));
    EXPECT_EQ(passed.code, 0) << passed.output;
    EXPECT_TRUE(passed.says("10 of 10 cases passed")) << passed.output;
    // One that always says that all is well fails them.
    const std::string careless = scratch.file("careless", "#!/bin/sh\necho 'Card ending in 6589'\n");
    fs::permissions(careless, fs::perms::owner_all);
    const Result failed = shell(script + careless);
    EXPECT_EQ(failed.code, 1);
    EXPECT_TRUE(failed.says("FAILED a reader that says nothing")) << failed.output;
    EXPECT_TRUE(failed.says("4 of 10 cases passed")) << failed.output;
}

TEST_F(Examples, AReaderThatCannotStartIsToldApart)
{
    const Result result = shell("VORN='" + tool().string() + "' '" + (kTree / "examples/ci/with-reader").string() +
                                "' nosuch -- echo started");
    EXPECT_EQ(result.code, 125);
    EXPECT_FALSE(result.says("started"));
    EXPECT_TRUE(result.says("nosuch")) << result.output;
}

// The first program, and the lines by which README compiles it.
class FirstProgram : public Examples {
protected:
    void SetUp() override
    {
        Examples::SetUp();
        readme = contents(kTree / "README.md");
        readme.erase(0, readme.find("## A first program"));
        std::ofstream(directory() / "first.c") << block("```c\n");
    }

    // What stands in the fenced block that begins so, without its fence.
    std::string block(const std::string& beginning) const
    {
        const std::size_t from = readme.find(beginning);
        const std::size_t begin = readme.find('\n', from) + 1;
        return from == std::string::npos ? "" : readme.substr(begin, readme.find("```", begin) - begin);
    }

    void expectThatItRuns(const std::string& line)
    {
        const Result compiled = shell(line);
        ASSERT_EQ(compiled.code, 0) << line << compiled.output;
        EXPECT_EQ(compiled.output, "");
        const std::string program = "LD_LIBRARY_PATH='" + kBuild.string() + "' ./first PORT";
        const Result card = beside({"debit"}, program);
        EXPECT_EQ(card.code, 0) << card.output;
        EXPECT_TRUE(card.says(" characters of card data\n")) << card.output;
        expectNoSecret(card);
        const Result mute = beside({"debit", "--fault", "status=04"}, program);
        EXPECT_EQ(mute.code, 1);
        EXPECT_TRUE(mute.says("no card data: -25")) << mute.output;
    }

    std::string readme;
};

TEST_F(FirstProgram, IsCompiledFromTheBuildFolderAndRuns)
{
    if (kSanitized) {
        GTEST_SKIP() << "the line has no sanitizers";
    }
    fs::create_symlink(kBuild, directory() / "build");
    fs::create_symlink(kTree / "include", directory() / "include");
    expectThatItRuns(block("```\ncc first.c -Iinclude"));
}

TEST_F(FirstProgram, IsCompiledThroughPkgConfigAndRuns)
{
    if (kSanitized) {
        GTEST_SKIP() << "the line has no sanitizers";
    }
    // The library is installed by others; here a description of the build folder stands in for the installed one.
    std::ofstream(directory() / "ICC_COMM_VORN.pc")
        << "Name: ICC_COMM_VORN\nDescription: of the build folder\nVersion: 1\nLibs: -L" << kBuild.string()
        << " -l:ICC_COMM_VORN.so\nCflags: -I" << (kTree / "include").string() << "\n";
    expectThatItRuns("export PKG_CONFIG_PATH=$PWD; " + block("```\ncc first.c $(pkg-config"));
}

} // namespace
