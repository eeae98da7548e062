// SPDX-License-Identifier: Apache-2.0
// The tool as people and scripts meet it: a program with arguments, outputs and an exit code.
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace {

namespace fs = std::filesystem;
using Arguments = std::vector<std::string>;
using Json = nlohmann::json;

enum Code {
    kOk = 0,
    kUsage = 2,
    kPort = 3,
    kPermission = 4,
    kNoCard = 5,
    kSilent = 6,
    kRefused = 7,
    kMute = 8,
    kNoApplication = 9,
    kCardRefused = 10,
    kMissing = 11,
    kDeclined = 12,
    kScriptFailed = 14,
    kNoAccess = 15,
    kUnconfirmed = 16,
    kProfile = 17,
    kOutput = 18,
    kInterrupted = 130
};

const std::string kPan = "6229990000710246589"; // of the profile "debit"
const std::string kMaskedPan = "622999*********6589";

fs::path tool() { return fs::read_symlink("/proc/self/exe").parent_path().parent_path() / "vorn"; }

// A directory of the test's own. The tool's temporary directories go there too.
class Scratch {
public:
    Scratch()
    {
        std::string name = (fs::temp_directory_path() / "vorn-test-XXXXXX").string();
        path_ = ::mkdtemp(name.data());
        fs::create_directory(temporary());
    }
    ~Scratch() { fs::remove_all(path_); }
    Scratch(const Scratch&) = delete;
    Scratch& operator=(const Scratch&) = delete;

    fs::path path() const { return path_; }
    fs::path temporary() const { return path_ / "tmp"; }
    std::string file(const std::string& name, const std::string& text) const
    {
        std::ofstream(path_ / name) << text;
        return (path_ / name).string();
    }

private:
    fs::path path_;
};

std::string contents(const fs::path& path)
{
    std::ostringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
}

class ToolTest : public testing::Test {
protected:
    Scratch scratch;
};

// A running tool.
class Process {
public:
    // results: a descriptor for its standard output, -1 for a pipe.
    Process(const Scratch& scratch, const Arguments& arguments, int results = -1, bool unprivileged = false)
    {
        std::array<int, 2> in{}, out{}, err{};
        if (::pipe2(in.data(), O_CLOEXEC) != 0 || ::pipe2(out.data(), O_CLOEXEC) != 0 ||
            ::pipe2(err.data(), O_CLOEXEC) != 0) {
            std::abort();
        }
        pid_ = ::fork();
        if (pid_ == 0) {
            become(scratch, arguments, in[0], results < 0 ? out[1] : results, err[1], unprivileged);
        }
        ::close(in[0]);
        ::close(out[1]);
        ::close(err[1]);
        in_ = in[1];
        out_ = out[0];
        err_ = err[0];
    }
    ~Process()
    {
        for (const int fd : {in_, out_, err_}) {
            if (fd >= 0) {
                ::close(fd);
            }
        }
        if (pid_ > 0) {
            ::kill(pid_, SIGKILL);
            ::waitpid(pid_, nullptr, 0);
        }
    }
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;

    void write(const std::string& text) const
    {
        EXPECT_EQ(::write(in_, text.data(), text.size()), static_cast<ssize_t>(text.size()));
    }
    void closeInput()
    {
        ::close(in_);
        in_ = -1;
    }
    void signal(int number) const { ::kill(pid_, number); }

    std::string outputLine() { return lineFrom(out_); }
    std::string errorLine() { return lineFrom(err_); }

    // Both outputs to their ends, and the exit code.
    int finish(std::string& output, std::string& errors)
    {
        std::array<pollfd, 2> waiting{{{out_, POLLIN, 0}, {err_, POLLIN, 0}}};
        std::array<std::string*, 2> texts{&output, &errors};
        for (int open = 2; open > 0;) {
            if (::poll(waiting.data(), waiting.size(), 60000) <= 0) {
                return -1;
            }
            for (std::size_t i = 0; i < 2; ++i) {
                if (waiting[i].revents == 0) {
                    continue;
                }
                std::array<char, 4096> piece{};
                const ssize_t count = ::read(waiting[i].fd, piece.data(), piece.size());
                if (count > 0) {
                    texts[i]->append(piece.data(), static_cast<std::size_t>(count));
                } else {
                    waiting[i].fd = -1;
                    --open;
                }
            }
        }
        int status = 0;
        ::waitpid(pid_, &status, 0);
        pid_ = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

private:
    [[noreturn]] static void become(const Scratch& scratch, const Arguments& arguments, int in, int out, int err,
                                    bool unprivileged)
    {
        ::dup2(in, STDIN_FILENO);
        ::dup2(out, STDOUT_FILENO);
        ::dup2(err, STDERR_FILENO);
        ::setenv("TMPDIR", scratch.temporary().c_str(), 1);
        const std::string program = tool().string();
        std::vector<char*> argv{const_cast<char*>(program.c_str())};
        for (const std::string& argument : arguments) {
            argv.push_back(const_cast<char*>(argument.c_str()));
        }
        argv.push_back(nullptr);
        constexpr unsigned nobody = 65534;
        if (unprivileged && (::setgid(nobody) != 0 || ::setuid(nobody) != 0)) {
            ::_exit(127);
        }
        ::execv(program.c_str(), argv.data());
        ::_exit(127);
    }

    static std::string lineFrom(int fd)
    {
        std::string line;
        char c = 0;
        while (::read(fd, &c, 1) == 1 && c != '\n') {
            line += c;
        }
        return line;
    }

    pid_t pid_ = -1;
    int in_ = -1, out_ = -1, err_ = -1;
};

struct Result {
    int code = -1;
    std::string output;
    std::string errors;

    Json json() const { return Json::parse(output); }
    bool says(const std::string& text) const { return output.find(text) != std::string::npos; }
    bool complains(const std::string& text) const { return errors.find(text) != std::string::npos; }
};

Result run(const Scratch& scratch, const Arguments& arguments, const std::string& input = {}, int results = -1,
           bool unprivileged = false)
{
    Process process(scratch, arguments, results, unprivileged);
    if (!input.empty()) {
        process.write(input);
    }
    process.closeInput();
    Result result;
    result.code = process.finish(result.output, result.errors);
    return result;
}

Arguments with(Arguments arguments, const Arguments& more)
{
    arguments.insert(arguments.end(), more.begin(), more.end());
    return arguments;
}

// ---------------------------------------------------------------- the command line

TEST_F(ToolTest, HelpIsAResult)
{
    const Result result = run(scratch, {"--help"});
    EXPECT_EQ(result.code, kOk);
    EXPECT_TRUE(result.says("sale"));
    EXPECT_TRUE(result.errors.empty());
    const Result sub = run(scratch, {"info", "--help"});
    EXPECT_EQ(sub.code, kOk);
    EXPECT_TRUE(sub.says("--wait"));
}

TEST_F(ToolTest, WrongArgumentsAreUsageErrors)
{
    const Arguments lines[] = {{},
                               {"nothing"},
                               {"info"},
                               {"info", "--sim", "debit", "--port", "ttyS1"},
                               {"info", "--port", "ttyS1", "--paced"},
                               {"info", "--sim", "debit", "--tags", "AZ"},
                               {"info", "--sim", "debit", "--aid", "A00"},
                               {"info", "--sim", "debit", "--fault", "nonsense"},
                               {"atr", "--sim", "psam", "--psam", "5"},
                               {"apdu", "--sim", "debit", "00"},
                               {"m1", "write", "--sim", "memory", "--block", "4", "--data", "00"},
                               {"sale", "--sim", "debit", "--amount", "1.234"},
                               {"sale", "--sim", "debit", "--date", "2026-13-01"},
                               {"decode", "5"}};
    for (const Arguments& line : lines) {
        const Result result = run(scratch, line);
        EXPECT_EQ(result.code, kUsage) << testing::PrintToString(line) << result.errors;
        EXPECT_TRUE(result.output.empty());
        EXPECT_TRUE(result.complains("vorn: "));
    }
}

TEST_F(ToolTest, AProfileThatCannotBeUsedIsNamed)
{
    const Result unknown = run(scratch, {"info", "--sim", "nosuchprofile"});
    EXPECT_EQ(unknown.code, kProfile);
    EXPECT_TRUE(unknown.complains("nosuchprofile"));
    const Result broken = run(scratch, {"info", "--sim", scratch.file("broken.json", "{\"cards\": 3}")});
    EXPECT_EQ(broken.code, kProfile);
    EXPECT_TRUE(broken.complains("cards"));
}

// ---------------------------------------------------------------- ports

TEST_F(ToolTest, APortThatCannotBeOpenedIsExplained)
{
    const Result missing = run(scratch, {"info", "--port", "ttyNone7"});
    EXPECT_EQ(missing.code, kPort);
    EXPECT_TRUE(missing.complains("no such port: /dev/ttyNone7"));
    const Result prefixed = run(scratch, {"info", "--port", "/dev/ttyNone7"});
    EXPECT_EQ(prefixed.code, kPort);
    EXPECT_TRUE(prefixed.complains("no such port: /dev/ttyNone7"));
    const Result noTty = run(scratch, {"info", "--port", "null"});
    EXPECT_EQ(noTty.code, kPort);
    EXPECT_TRUE(noTty.complains("not a tty"));
    const Result small = run(scratch, {"info", "--port", "usb"});
    EXPECT_EQ(small.code, kPort);
    EXPECT_TRUE(small.complains("--port USB"));
    const Result elsewhere = run(scratch, {"info", "--port", scratch.file("plain", "")});
    EXPECT_EQ(elsewhere.code, kPort);
}

TEST_F(ToolTest, APortWithoutPermissionIsNotTakenForAMissingOne)
{
    const int master = ::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    ASSERT_GE(master, 0);
    ASSERT_EQ(::grantpt(master), 0);
    ASSERT_EQ(::unlockpt(master), 0);
    const std::string path = ::ptsname(master);
    ASSERT_EQ(::chmod(path.c_str(), 0), 0);
    const bool root = ::geteuid() == 0;
    fs::permissions(scratch.path(), fs::perms::all);
    fs::permissions(scratch.temporary(), fs::perms::all);
    const Result result = run(scratch, {"info", "--port", path}, "", -1, root);
    ::close(master);
    if (result.code == 127) {
        GTEST_SKIP() << "another user may not run the tool here";
    }
    EXPECT_EQ(result.code, kPermission) << result.errors;
    EXPECT_TRUE(result.complains("dialout"));
}

TEST_F(ToolTest, ALinkToATerminalIsAPort)
{
    const std::string link = (scratch.path() / "reader").string();
    Process reader(scratch, {"sim", "debit", "--link", link});
    EXPECT_EQ(reader.outputLine().substr(0, 4), "pts/");
    const Result result = run(scratch, {"info", "--port", link});
    EXPECT_EQ(result.code, kOk) << result.errors;
    reader.signal(SIGTERM);
    std::string output, errors;
    EXPECT_EQ(reader.finish(output, errors), kOk);
    EXPECT_FALSE(fs::is_symlink(link));
}

// ---------------------------------------------------------------- waiting, silence, refusals

TEST_F(ToolTest, NoCardInTimeEndsTheWait)
{
    const Result result = run(scratch, {"info", "--sim", "psam", "--wait", "1"});
    EXPECT_EQ(result.code, kNoCard);
    EXPECT_TRUE(result.complains("waiting for a card"));
    EXPECT_TRUE(result.complains("no card in time"));
    EXPECT_TRUE(result.output.empty());
    for (const Arguments& line :
         {Arguments{"log"}, {"wallet"}, {"sale", "--ask"}, {"atr"}, {"apdu", "00A40400"}, {"m1", "activate"}}) {
        EXPECT_EQ(run(scratch, with(line, {"--sim", "psam", "--wait", "0"})).code, kNoCard) << line[0];
    }
}

TEST_F(ToolTest, ACardThatComesLateIsRead)
{
    const std::string profile = scratch.file("late.json", R"({"cards": [{"slot": "contact", "after_ms": 600,
        "type": "transcript", "atr": "3B00", "pairs": []}]})");
    const Result result = run(scratch, {"atr", "--sim", profile});
    EXPECT_EQ(result.code, kOk);
    EXPECT_TRUE(result.complains("waiting for a card"));
    EXPECT_TRUE(result.says("ATR   3B00"));
}

TEST_F(ToolTest, AReaderThatIsSilentIsNotTakenForAMissingCard)
{
    const Result result = run(scratch, {"atr", "--sim", "debit", "--fault", "silence"});
    EXPECT_EQ(result.code, kSilent);
    EXPECT_TRUE(result.complains("does not answer"));
}

TEST_F(ToolTest, RefusalsOfTheReaderHaveCodesOfTheirOwn)
{
    EXPECT_EQ(run(scratch, {"atr", "--sim", "debit", "--fault", "status=04/22"}).code, kMute);
    EXPECT_EQ(run(scratch, {"apdu", "--sim", "debit", "--fault", "status=04/26", "00A4040000"}).code, kRefused);
}

TEST_F(ToolTest, AnInterruptedWaitEndsCleanly)
{
    Process process(scratch, {"info", "--sim", "psam", "--wait", "60"});
    EXPECT_NE(process.errorLine().find("waiting"), std::string::npos);
    process.signal(SIGINT);
    std::string output, errors;
    EXPECT_EQ(process.finish(output, errors), kInterrupted);
    EXPECT_TRUE(fs::is_empty(scratch.temporary()));
}

// ---------------------------------------------------------------- output and log files

TEST_F(ToolTest, NothingRemainsOfTheLogFiles)
{
    EXPECT_EQ(run(scratch, {"info", "--sim", "debit"}).code, kOk);
    EXPECT_EQ(run(scratch, {"info", "--sim", "wallet"}).code, kNoApplication);
    EXPECT_TRUE(fs::is_empty(scratch.temporary()));
}

TEST_F(ToolTest, ANamedLogDirectoryIsPrivateAndKept)
{
    const fs::path logs = scratch.path() / "logs";
    const Result result = run(scratch, {"info", "--sim", "debit", "--log-dir", logs.string()});
    EXPECT_EQ(result.code, kOk);
    EXPECT_EQ(fs::status(logs).permissions(), fs::perms::owner_all);
    for (const char* const name : {"vr_log.txt", "ICC_COMM_VORN.log"}) {
        EXPECT_TRUE(fs::exists(logs / name)) << name;
        EXPECT_EQ(fs::status(logs / name).permissions(), fs::perms::owner_read | fs::perms::owner_write) << name;
    }
    EXPECT_NE(contents(logs / "ICC_COMM_VORN.log").find(kPan), std::string::npos);
    EXPECT_TRUE(result.complains(logs.string()));
}

TEST_F(ToolTest, KeptLogsAreNamed)
{
    const Result result = run(scratch, {"info", "--sim", "debit", "--keep-logs"});
    EXPECT_EQ(result.code, kOk);
    ASSERT_FALSE(fs::is_empty(scratch.temporary()));
    const fs::path kept = fs::directory_iterator(scratch.temporary())->path();
    EXPECT_TRUE(result.complains(kept.string()));
    EXPECT_EQ(fs::status(kept).permissions(), fs::perms::owner_all);
}

TEST_F(ToolTest, AReaderOfThePipeThatGoesAwayEndsTheToolQuietly)
{
    std::array<int, 2> closed{};
    ASSERT_EQ(::pipe2(closed.data(), O_CLOEXEC), 0);
    ::close(closed[0]);
    const Result result = run(scratch, {"info", "--sim", "debit"}, "", closed[1]);
    ::close(closed[1]);
    EXPECT_EQ(result.code, kOutput);
    EXPECT_TRUE(result.errors.empty()) << result.errors;
    EXPECT_TRUE(fs::is_empty(scratch.temporary()));
}

TEST_F(ToolTest, AResultThatCannotBeWrittenIsAnError)
{
    const int full = ::open("/dev/full", O_WRONLY | O_CLOEXEC);
    ASSERT_GE(full, 0);
    for (const Arguments& line : {Arguments{"info", "--sim", "debit"}, {"sale", "--sim", "debit"}}) {
        const Result result = run(scratch, line, "", full);
        EXPECT_EQ(result.code, kOutput) << line[0];
        EXPECT_TRUE(result.complains("could not be written"));
    }
    ::close(full);
    EXPECT_TRUE(fs::is_empty(scratch.temporary()));
}

TEST_F(ToolTest, JsonIsAloneOnStandardOutput)
{
    const Arguments lines[] = {{"info", "--sim", "debit"},
                               {"atr", "--sim", "debit"},
                               {"apdu", "--sim", "debit", "00A404000E315041592E5359532E4444463031"},
                               {"sale", "--sim", "debit"},
                               {"log", "--sim", "debit"},
                               {"m1", "activate", "--sim", "memory"},
                               {"m1", "auth", "--sim", "memory", "--block", "16"},
                               {"m1", "read", "--sim", "memory", "--block", "16"},
                               {"wallet", "--sim", "wallet"},
                               {"device", "--sim", "debit"},
                               {"decode", "5A081234567890123456"},
                               {"sim", "--list"}};
    for (const Arguments& line : lines) {
        const Result result = run(scratch, with(line, {"--json"}));
        EXPECT_EQ(result.code, kOk) << line[0] << result.errors;
        EXPECT_TRUE(Json::accept(result.output)) << line[0] << result.output;
    }
}

TEST_F(ToolTest, AccountNumbersAreMaskedEverywhere)
{
    const Arguments lines[] = {{"info", "--sim", "debit"},
                               {"info", "--sim", "debit", "--json"},
                               {"sale", "--sim", "debit", "-v"},
                               {"sale", "--sim", "debit", "--json"},
                               {"sale", "--sim", "debit", "--json", "--wrong-issuer-key"},
                               {"log", "--sim", "debit"},
                               {"apdu", "--sim", "debit", "00A4040008A000000333010101", "00B2010C00", "00B2011400"},
                               {"decode", "700B5A0A" + kPan + "F"}};
    for (const Arguments& line : lines) {
        const Result result = run(scratch, line);
        EXPECT_FALSE(result.output.empty()) << result.errors;
        EXPECT_EQ(result.output.find(kPan), std::string::npos) << result.output;
        EXPECT_EQ(result.errors.find(kPan), std::string::npos) << result.errors;
    }
}

// ---------------------------------------------------------------- info

TEST_F(ToolTest, InfoShowsTheCardsData)
{
    const Result result = run(scratch, {"info", "--sim", "debit"});
    EXPECT_EQ(result.code, kOk);
    for (const char* const text : {"Read through                contact", "622999*********6589", "356.80", "1000.00",
                                   "500.00", "2030-12-31", "欧阳晓明", "identity card (00)"}) {
        EXPECT_TRUE(result.says(text)) << text << result.output;
    }
    EXPECT_FALSE(result.says("199003150017"));
}

TEST_F(ToolTest, InfoShowsAllWhenAsked)
{
    const Json shown = run(scratch, {"info", "--sim", "debit", "--json", "--show"}).json();
    EXPECT_EQ(shown["pan"], kPan);
    EXPECT_EQ(shown["track2"], kPan + "=301222000007287");
    EXPECT_EQ(shown["documentNumber"], "000000199003150017");
    EXPECT_EQ(shown["masked"], false);
    const Json masked = run(scratch, {"info", "--sim", "debit", "--json"}).json();
    EXPECT_EQ(masked["pan"], kMaskedPan);
    EXPECT_EQ(masked["track2"], kMaskedPan + "=***************");
    EXPECT_EQ(masked["name"], "欧阳晓明");
    EXPECT_EQ(masked["masked"], true);
}

TEST_F(ToolTest, InfoPrintsTheRecordAsItStands)
{
    const Result result = run(scratch, {"info", "--sim", "debit", "--raw"});
    EXPECT_EQ(result.code, kOk);
    EXPECT_EQ(result.output.substr(0, 4 + kPan.size()), "A019" + kPan);
    EXPECT_EQ(result.output.back(), '\n');
}

TEST_F(ToolTest, InfoTellsMissingDataFromOtherAnswers)
{
    const Json credit = run(scratch, {"info", "--sim", "credit", "--json"}).json();
    EXPECT_TRUE(credit.contains("ecBalance"));
    EXPECT_TRUE(credit["ecBalance"].is_null());
    // GET DATA 9F79 is answered with another object: the record then has no field C.
    const std::string profile = scratch.file("other.json", R"({"cards": [{"slot": "contact", "type": "transcript",
        "atr": "3B00", "otherwise": "6A88", "pairs": [
        ["00A40400*", "6F0A8408A0000003330101019000"], ["00A40402*", "6A82"],
        ["80A8*", "80064000080101009000"], ["80CA9F7900", "9F780600000000000190 00"],
        ["00B2010C00", "70065F24033012319000"]]}]})");
    const Result result = run(scratch, {"info", "--sim", profile, "--aid", "A000000333010101", "--json"});
    ASSERT_EQ(result.code, kOk) << result.errors;
    EXPECT_FALSE(result.json().contains("ecBalance"));
    EXPECT_TRUE(result.json()["ecBalanceLimit"].is_null());
}

TEST_F(ToolTest, InfoReadsThroughTheInterfaceNamed)
{
    EXPECT_EQ(run(scratch, {"info", "--sim", "debit", "--contact"}).code, kOk);
    EXPECT_EQ(run(scratch, {"info", "--sim", "debit", "--contactless", "--wait", "0"}).code, kNoCard);
}

TEST_F(ToolTest, InfoSelectsTheApplicationNamed)
{
    const Json first = run(scratch, {"info", "--sim", "multi", "--json"}).json();
    const Json second = run(scratch, {"info", "--sim", "multi", "--json", "--aid", "A000000333010102"}).json();
    EXPECT_NE(first["pan"], second["pan"]);
    EXPECT_EQ(second["pan"], "625099******7187");
}

TEST_F(ToolTest, ACardWithoutApplicationSaysSo)
{
    const Result result = run(scratch, {"info", "--sim", "wallet"});
    EXPECT_EQ(result.code, kNoApplication);
    EXPECT_TRUE(result.complains("no application"));
    EXPECT_TRUE(result.complains("--aid"));
}

TEST_F(ToolTest, ControlCharactersOfACardDoNotReachTheTerminal)
{
    const std::string profile = scratch.file("escape.json", R"({"cards": [{"slot": "contact", "type": "transcript",
        "atr": "3B00", "otherwise": "6A88", "pairs": [
        ["00A40400*", "6F0A8408A0000003330101019000"], ["00A40402*", "6A82"],
        ["80A8*", "80064000080101009000"], ["00B2010C00", "70095F20061B5B324A41429000"]]}]})");
    const Result result = run(scratch, {"info", "--sim", profile, "--aid", "A000000333010101"});
    ASSERT_EQ(result.code, kOk) << result.errors;
    EXPECT_EQ(result.output.find('\x1B'), std::string::npos);
    EXPECT_TRUE(result.says("?[2JAB"));
}

// ---------------------------------------------------------------- atr and apdu

TEST_F(ToolTest, AtrIsTakenApart)
{
    const Result user = run(scratch, {"atr", "--sim", "debit"});
    EXPECT_EQ(user.code, kOk);
    EXPECT_TRUE(user.says("Card  contact"));
    EXPECT_TRUE(user.says("\"QINGHEDEBIT01\""));
    const Json sam = run(scratch, {"atr", "--sim", "psam", "--psam", "2", "--json"}).json();
    EXPECT_EQ(sam["card"], "psam2");
    EXPECT_EQ(sam["atr"], "3B6800000102030405060708");
    EXPECT_EQ(sam["parts"][0]["name"], "TS");
    EXPECT_EQ(run(scratch, {"atr", "--sim", "psam", "--psam", "3"}).code, kNoCard);
    const Json checked = run(scratch, {"decode", "--atr", "3B8001", "--json"}).json();
    EXPECT_EQ(checked["objects"].back()["title"], "TCK");
}

TEST_F(ToolTest, ApduShowsStatusWords)
{
    const Result found = run(scratch, {"apdu", "--sim", "debit", "00 A4 04 00 08 A000000333010101"});
    EXPECT_EQ(found.code, kOk);
    EXPECT_TRUE(found.says("< 9000 (done)"));
    const Result missing = run(scratch, {"apdu", "--sim", "debit", "00A4040008A000000333999999"});
    EXPECT_EQ(missing.code, kCardRefused);
    EXPECT_TRUE(missing.says("< 6A82 (file or application not found)"));
    EXPECT_EQ(run(scratch, {"apdu", "--sim", "debit", "--any-status", "00A4040008A000000333999999"}).code, kOk);
}

TEST_F(ToolTest, ApduFetchesWhatIsAnnounced)
{
    const Result more = run(scratch, {"apdu", "--sim", "psam", "--psam", "2", "00A40000023F00", "00B0950000"});
    EXPECT_EQ(more.code, kOk) << more.output;
    EXPECT_TRUE(more.says("< 6106 (done, 6 bytes more to fetch)\n> 00C0000006"));
    EXPECT_TRUE(more.says("< 6C04 (wrong Le, 4 bytes are there)\n> 00B0950004"));
    const Result plain = run(scratch, {"apdu", "--sim", "psam", "--psam", "2", "--no-follow", "00A40000023F00"});
    EXPECT_EQ(plain.code, kCardRefused);
    EXPECT_FALSE(plain.says("00C0000006"));
}

TEST_F(ToolTest, ApduReadsCommandsFromStandardInput)
{
    const Result result = run(scratch, {"apdu", "--sim", "psam", "--psam", "1", "-"},
                              "# the file system\n00A40000023F00\n\n00B0960006 # terminal number\n");
    EXPECT_EQ(result.code, kOk) << result.errors;
    EXPECT_TRUE(result.says("< 010000000027"));
}

TEST_F(ToolTest, ApduDoesNotRepeatAPin)
{
    const Result hidden = run(scratch, {"apdu", "--sim", "debit", "--any-status", "0020008008241234FFFFFFFFFF"});
    EXPECT_EQ(hidden.output.find("241234"), std::string::npos);
    const Result shown =
        run(scratch, {"apdu", "--sim", "debit", "--any-status", "--show", "0020008008241234FFFFFFFFFF"});
    EXPECT_TRUE(shown.says("241234"));
}

// ---------------------------------------------------------------- sale

TEST_F(ToolTest, ASaleShowsItsStepsAndIsApproved)
{
    const Result result = run(scratch, {"sale", "--sim", "debit", "--amount", "123.45"});
    EXPECT_EQ(result.code, kOk) << result.output << result.errors;
    for (const char* const text :
         {"SELECT A000000333010101", "\"PBOC DEBIT\"", "asking for ARQC", "ARQC verified", "approve",
          "EXTERNAL AUTHENTICATE", "asking for TC", "PUT DATA 9F77", "script        done", "TC verified", "approved"}) {
        EXPECT_TRUE(result.says(text)) << text << result.output;
    }
    EXPECT_FALSE(result.says("vr_comportparam"));
}

TEST_F(ToolTest, ASaleInJsonHasAllItsSteps)
{
    const Result result = run(scratch, {"sale", "--sim", "debit", "--amount", "123.45", "--date", "2026-03-15",
                                        "--time", "14:30:00", "--unpredictable", "01020304", "--json", "--show"});
    ASSERT_EQ(result.code, kOk) << result.errors;
    const Json sale = result.json();
    EXPECT_EQ(sale["outcome"], "approved");
    EXPECT_EQ(sale["transaction"],
              "P012000000012345Q012000000000000R0040156J0040156S006260315U006143000T00200K00801020304");
    EXPECT_EQ(sale["arqc"]["items"]["5A"], kPan + "F");
    EXPECT_EQ(sale["arqc"]["items"]["9F02"], "000000012345");
    EXPECT_EQ(sale["arqc"]["items"]["9A"], "260315");
    EXPECT_EQ(sale["tc"]["items"]["9F37"], "01020304");
    EXPECT_EQ(sale["issuer"]["decision"], "approve");
    EXPECT_EQ(sale["issuer"]["arqcVerified"], true);
    EXPECT_EQ(sale["completion"]["tcVerified"], true);
    EXPECT_FALSE(sale["cardAccount"].empty());
    EXPECT_GT(sale["steps"].size(), 8U);
    EXPECT_EQ(sale["steps"][0]["phase"], "request");
    EXPECT_EQ(sale["steps"].back()["phase"], "completion");
}

TEST_F(ToolTest, TheSimulatedCardSaysWhyItRefusesAWrongKey)
{
    const Result result = run(scratch, {"sale", "--sim", "debit", "--amount", "123.45", "--wrong-issuer-key"});
    EXPECT_EQ(result.code, kCardRefused);
    EXPECT_TRUE(result.says("ARQC wrong"));
    EXPECT_TRUE(result.says("The simulated card's own account:"));
    EXPECT_TRUE(result.says("ARPC wrong")) << result.output;
    EXPECT_TRUE(result.complains("refused"));
    const Result json = run(scratch, {"sale", "--sim", "debit", "--amount", "123.45", "--wrong-issuer-key", "--json"});
    EXPECT_EQ(json.code, kCardRefused);
    EXPECT_EQ(json.json()["outcome"], "failed");
    EXPECT_EQ(json.json()["issuer"]["arqcVerified"], false);
}

TEST_F(ToolTest, ADeclinedSaleIsNotAnError)
{
    const Result result = run(scratch, {"sale", "--sim", "debit", "--amount", "30000.00"});
    EXPECT_EQ(result.code, kDeclined) << result.output << result.errors;
    EXPECT_TRUE(result.says("decline"));
    EXPECT_TRUE(result.says("asking for AAC"));
}

TEST_F(ToolTest, TheHostsAnswerIsTakenAsText)
{
    const Result result =
        run(scratch, {"sale", "--sim", "debit", "--amount", "123.45", "--arpc", "910A00000000000000003531"});
    EXPECT_EQ(result.code, kDeclined) << result.errors;
    const Result noData = run(scratch, {"sale", "--sim", "debit", "--amount", "123.45", "--arpc", "8A023030"});
    EXPECT_EQ(noData.code, kMissing);
    EXPECT_TRUE(noData.complains("91"));
}

TEST_F(ToolTest, TheHostsAnswerIsReadFromStandardInput)
{
    Process sale(scratch, {"sale", "--sim", "debit", "--amount", "123.45", "--ask", "--json"});
    const std::string line = sale.outputLine();
    ASSERT_TRUE(Json::accept(line)) << line;
    const std::string arqc = Json::parse(line)["arqc"];
    EXPECT_EQ(arqc.substr(0, 6), "9F2608");
    EXPECT_NE(arqc.find(kPan), std::string::npos);
    sale.write("910A00000000000000003531\n");
    std::string output, errors;
    EXPECT_EQ(sale.finish(output, errors), kDeclined) << errors;
    EXPECT_EQ(Json::parse(output)["outcome"], "declined");
    EXPECT_EQ(run(scratch, {"sale", "--sim", "debit", "--amount", "123.45", "--ask"}).code, kMissing);
}

// A reader at a port has somebody's card in it.
TEST_F(ToolTest, TheSimulatedIssuerAnswersAPortOnlyWhenToldSo)
{
    Process reader(scratch, {"sim", "debit"});
    const std::string port = reader.outputLine();
    const Result asked = run(scratch, {"sale", "--port", port, "--amount", "123.45"});
    EXPECT_EQ(asked.code, kMissing) << asked.output;
    EXPECT_FALSE(asked.says("EXTERNAL AUTHENTICATE"));
    EXPECT_EQ(run(scratch, {"sale", "--sim", "debit", "--simulated-issuer-on-real-card", "debit"}).code, kUsage);

    const Result told =
        run(scratch, {"sale", "--port", port, "--amount", "123.45", "--simulated-issuer-on-real-card", "debit"});
    EXPECT_EQ(told.code, kOk) << told.output << told.errors;
    const Json card = run(scratch, {"info", "--port", port, "--json"}).json();
    EXPECT_EQ(card["ecBalanceLimit"], "2000.00"); // what the script was for
}

TEST_F(ToolTest, AScriptThatFailsLeavesTheSaleApproved)
{
    Json profile = Json::parse(contents(VORN_PROFILES_OF_TEST "/debit.json"));
    profile["issuer"]["scripts"] =
        Json::parse(R"([{"template": "72", "commands": [{"set_limit": 1, "wrong_mac": true}]}])");
    const Result result =
        run(scratch, {"sale", "--sim", scratch.file("script.json", profile.dump()), "--amount", "123.45"});
    EXPECT_EQ(result.code, kScriptFailed) << result.output << result.errors;
    EXPECT_TRUE(result.says("failed at command 1"));
    EXPECT_TRUE(result.says("TC verified"));
}

// ---------------------------------------------------------------- log

TEST_F(ToolTest, LogIsATableThatSaysWhatItCannotTell)
{
    const Result result = run(scratch, {"log", "--sim", "debit"});
    EXPECT_EQ(result.code, kOk);
    for (const char* const text :
         {"2026-09-18", "18:30:42", "青禾超市城北店", "50.00", "cash (01)", "not told", "authorised"}) {
        EXPECT_TRUE(result.says(text)) << text << result.output;
    }
    EXPECT_FALSE(result.says("86.50"));
    const Json log = run(scratch, {"log", "--sim", "debit", "--json"}).json();
    ASSERT_EQ(log["transactions"].size(), 6U);
    EXPECT_EQ(log["transactions"][0]["atc"], "71");
    EXPECT_TRUE(log["transactions"][0]["amount"].is_null());
    EXPECT_FALSE(log["notTold"].empty());
}

std::string record(const std::string& merchantHex, const std::string& counter)
{
    return "260101120000000000000100000000000000"
           "01560156" +
           merchantHex + "00" + counter + "9000";
}

std::string logProfile(const std::vector<std::string>& records)
{
    const auto digits = [](std::size_t n) { return "0" + std::to_string(n); }; // of less than ten
    std::string pairs = R"(["00A40400*", "6F148408A000000333010101A508BF0C059F4D020B)" + digits(records.size()) +
                        R"(9000"], ["00A40402*", "6A82"])";
    for (std::size_t i = 0; i < records.size(); ++i) {
        pairs += ", [\"00B2" + digits(i + 1) + "5C00\", \"" + records[i] + "\"]";
    }
    return R"({"cards": [{"slot": "contact", "type": "transcript", "atr": "3B00", "otherwise": "6A83", "pairs": [)" +
           pairs + "]}]}";
}

TEST_F(ToolTest, LogFindsTheCounterBehindAnyName)
{
    // "X004ABCDX0041234P012", 20 bytes; ten Chinese characters, 30 bytes in UTF-8; an empty name.
    const std::string tricky = "5830303441424344583030343132333450303132";
    const std::string chinese = "C7E0BACCC7E0BACCC7E0BACCC7E0BACCC7E0BACC";
    const std::string empty(40, '0');
    const std::string profile =
        scratch.file("log.json", logProfile({record(tricky, "0011"), record(chinese, "0012"), record(empty, "0013")}));
    const Result result = run(scratch, {"log", "--sim", profile, "--aid", "A000000333010101", "--json"});
    ASSERT_EQ(result.code, kOk) << result.errors;
    const Json log = result.json()["transactions"];
    ASSERT_EQ(log.size(), 3U) << result.output;
    EXPECT_EQ(log[0]["merchant"], "X004ABCDX0041234P012");
    EXPECT_EQ(log[0]["atc"], "17");
    EXPECT_EQ(log[1]["merchant"], "青禾青禾青禾青禾青禾");
    EXPECT_EQ(log[1]["merchantBytesOnCard"], 20);
    EXPECT_EQ(log[1]["atc"], "18");
    EXPECT_EQ(log[2]["merchant"], "");
    EXPECT_EQ(log[2]["atc"], "19");
    EXPECT_TRUE(result.errors.empty());
}

TEST_F(ToolTest, AnEmptyLogAndNoLogAreNotTheSame)
{
    const Result empty =
        run(scratch, {"log", "--sim", scratch.file("e.json", logProfile({})), "--aid", "A000000333010101"});
    EXPECT_EQ(empty.code, kOk) << empty.errors;
    EXPECT_TRUE(empty.says("The log is empty."));
    const std::string noEntry = scratch.file("n.json", R"({"cards": [{"slot": "contact", "type": "transcript",
        "atr": "3B00", "pairs": [["00A40400*", "6F0A8408A0000003330101019000"], ["00A40402*", "6A82"]]}]})");
    EXPECT_EQ(run(scratch, {"log", "--sim", noEntry, "--aid", "A000000333010101"}).code, kMissing);
}

// ---------------------------------------------------------------- memory cards

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

// ---------------------------------------------------------------- wallet, device, decode, sim

TEST_F(ToolTest, WalletShowsItsIdentification)
{
    const Json wallet = run(scratch, {"wallet", "--sim", "wallet", "--json"}).json();
    EXPECT_EQ(wallet["contextId"], "3156201908770042");
    EXPECT_EQ(wallet["transactionMode"], "0102");
    EXPECT_EQ(wallet["aid"], "A00000087249");
    EXPECT_EQ(run(scratch, {"wallet", "--sim", "debit"}).code, kNoApplication);
}

TEST_F(ToolTest, DeviceAsksTheReaderAlone)
{
    const std::string profile = scratch.file("v.json", R"({"version": "TEST 7.5", "cards": []})");
    EXPECT_EQ(run(scratch, {"device", "--sim", profile, "--json"}).json()["version"], "TEST 7.5");
    const Result mute = run(scratch, {"device", "--sim", scratch.file("q.json", R"({"version": "", "cards": []})")});
    EXPECT_EQ(mute.code, kSilent);
    EXPECT_TRUE(mute.complains("version"));
}

TEST_F(ToolTest, DecodeNamesWhatIsPasted)
{
    const Result fci = run(scratch, {"decode", "6F 14 84 08 A0 00 00 03 33 01 01 01 A5 08 50 06 44 45 42 49 54 31"});
    EXPECT_EQ(fci.code, kOk) << fci.errors;
    EXPECT_TRUE(fci.says("File control information"));
    EXPECT_TRUE(fci.says("DEBIT1"));
    EXPECT_TRUE(run(scratch, {"decode"}, "9F7906000000035680\n").says("356.80"));
    EXPECT_TRUE(run(scratch, {"decode", "--list", "9F02069A03"}).says("9F02  Amount, authorised"));
    EXPECT_TRUE(run(scratch, {"decode", "--show", "5A081234567890123456"}).says("1234567890123456"));
    const Result cut = run(scratch, {"decode", "9A0326010182027C"});
    EXPECT_EQ(cut.code, kMissing);
    EXPECT_TRUE(cut.says("2026-01-01"));
    EXPECT_TRUE(cut.complains("82"));
}

TEST_F(ToolTest, SimNamesItsPortOnTheFirstLineAndServesOtherPrograms)
{
    Process reader(scratch, {"sim", "debit", "-v"});
    const std::string port = reader.outputLine();
    EXPECT_TRUE(fs::is_character_file("/dev/" + port)) << port;
    EXPECT_EQ(run(scratch, {"info", "--port", port, "--json"}).json()["pan"], kMaskedPan);
    EXPECT_EQ(run(scratch, {"info", "--port", "/dev/" + port}).code, kOk);
    reader.signal(SIGINT);
    std::string output, errors;
    EXPECT_EQ(reader.finish(output, errors), kOk);
    EXPECT_TRUE(output.empty());
    EXPECT_NE(errors.find("> 32220180"), std::string::npos);
    EXPECT_NE(errors.find("switch 38400"), std::string::npos);
}

TEST_F(ToolTest, SimNeedsAProfileAndNamesThem)
{
    EXPECT_EQ(run(scratch, {"sim"}).code, kUsage);
    const Result list = run(scratch, {"sim", "--list"});
    EXPECT_EQ(list.code, kOk);
    for (const char* const name : {"debit\n", "credit\n", "multi\n", "memory\n", "wallet\n"}) {
        EXPECT_TRUE(list.says(name)) << name;
    }
}

} // namespace
