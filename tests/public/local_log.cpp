// SPDX-License-Identifier: Apache-2.0
// The two log files in the working directory, byte for byte.
#include "support/line.h"
#include "support/scripted_reader.h"

#include "ICC_COMM_VORN.h"

#include <climits>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <thread>

using namespace vorn::test;
namespace fs = std::filesystem;

namespace {

const char* const kTrace = "vr_log.txt";
const char* const kService = "ICC_COMM_VORN.log";

// A fresh working directory.
class LocalLogs : public ::testing::Test {
protected:
    LocalLogs()
    {
        directory_ = (fs::temp_directory_path() / "vorn-log-XXXXXX").string();
        if (mkdtemp(directory_.data()) == nullptr || chdir(directory_.c_str()) != 0) {
            throw std::runtime_error("no working directory for the test");
        }
    }
    ~LocalLogs() override
    {
        std::error_code ignored;
        fs::current_path("/", ignored);
        fs::remove_all(directory_, ignored);
    }

    const std::string& directory() const { return directory_; }

    // Is a log file held open?
    static bool logHeldOpen()
    {
        for (const auto& entry : fs::directory_iterator("/proc/self/fd")) {
            std::error_code gone;
            const fs::path name = fs::read_symlink(entry.path(), gone).filename();
            if (name == kTrace || name == kService) {
                return true;
            }
        }
        return false;
    }

private:
    std::string directory_;
};

void service(const char* text)
{
    std::string writable(text);
    messLog(writable.data());
}

Bytes counting(std::size_t n)
{
    Bytes bytes(n);
    for (std::size_t i = 0; i < n; ++i) {
        bytes[i] = static_cast<std::uint8_t>(0xF8 + i);
    }
    return bytes;
}

using Dump = void (*)(const unsigned char*, int);

struct Channel {
    const char* name;
    const char* file;
    Dump dump;
};

class Dumps : public LocalLogs, public ::testing::WithParamInterface<Channel> {
protected:
    std::string dumpOf(std::size_t n) const
    {
        const Bytes bytes = counting(n);
        GetParam().dump(bytes.data(), static_cast<int>(n));
        return fileText(GetParam().file);
    }
};

const Channel kChannels[] = {{"Trace", kTrace, log_write_bcd}, {"Service", kService, messLog_write_bcd}};

std::string channelName(const ::testing::TestParamInfo<Channel>& info) { return info.param.name; }

} // namespace

// ---------------------------------------------------------------- vr_log.txt

TEST_F(LocalLogs, LogWriteEndsEveryTextWithCarriageReturnAndLineFeed)
{
    log_write("IC_GetInfo Start");
    log_write("");
    log_write("nPortNo=ttyS1");
    EXPECT_EQ(fileText(kTrace), "IC_GetInfo Start\r\n\r\nnPortNo=ttyS1\r\n");
}

TEST_F(LocalLogs, LogWriteTakesFormatCharactersAsTheyStand)
{
    log_write("100%s %d\n%n");
    EXPECT_EQ(fileText(kTrace), "100%s %d\n%n\r\n");
}

TEST_F(LocalLogs, LogWriteTakesTextsOfAnyLength)
{
    const std::string text(5000, 'x');
    log_write(text.c_str());
    EXPECT_EQ(fileText(kTrace), text + "\r\n");
}

TEST_F(LocalLogs, LogWriteTakesAMissingTextAsAnEmptyOne)
{
    log_write(nullptr);
    EXPECT_EQ(fileText(kTrace), "\r\n");
}

TEST_F(LocalLogs, LogNumWritesTheNumberWithoutALineEnd)
{
    log_num(0);
    log_num(-25);
    log_num(INT_MAX);
    log_num(INT_MIN);
    EXPECT_EQ(fileText(kTrace), "0-252147483647-2147483648");
}

TEST_F(LocalLogs, TraceEntriesFollowEachOtherInOneFile)
{
    const unsigned char bytes[] = {0x90, 0x00};
    log_num(2);
    log_write(" bytes");
    log_write_bcd(bytes, 2);
    EXPECT_EQ(fileText(kTrace), "2 bytes\r\n90 00 \n");
    EXPECT_FALSE(fs::exists(kService));
}

// ---------------------------------------------------------------- ICC_COMM_VORN.log

TEST_F(LocalLogs, MessLogWritesTheTextExactlyAsGiven)
{
    service("IC_PowerOn\n");
    service("no end,");
    service("");
    service("100%s %d\r\n");
    EXPECT_EQ(fileText(kService), "IC_PowerOn\nno end,100%s %d\r\n");
    EXPECT_FALSE(fs::exists(kTrace));
}

TEST_F(LocalLogs, MessLogTakesTextsOfAnyLength)
{
    const std::string text(5000, 'y');
    service(text.c_str());
    EXPECT_EQ(fileText(kService), text);
}

TEST_F(LocalLogs, MessLogTakesAMissingTextAsAnEmptyOne)
{
    char* const missing = nullptr;
    messLog(missing);
    EXPECT_EQ(fileText(kService), "");
    EXPECT_TRUE(fs::exists(kService));
}

TEST_F(LocalLogs, ServiceEntriesFollowEachOtherInOneFile)
{
    const unsigned char bytes[] = {0x32, 0x22, 0x01};
    service("Indata----\n");
    messLog_write_bcd(bytes, 3);
    service("end\n");
    EXPECT_EQ(fileText(kService), "Indata----\n32 22 01 \nend\n");
}

// ---------------------------------------------------------------- hex dumps, alike in both files

TEST_P(Dumps, OfNothingIsALineFeed) { EXPECT_EQ(dumpOf(0), "\n"); }

TEST_P(Dumps, OfOneByteIsALine) { EXPECT_EQ(dumpOf(1), "F8 \n"); }

TEST_P(Dumps, Of15BytesIsOneLine) { EXPECT_EQ(dumpOf(15), "F8 F9 FA FB FC FD FE FF 00 01 02 03 04 05 06 \n"); }

TEST_P(Dumps, Of16BytesIsALineAndTwoLineFeeds)
{
    const std::string text = dumpOf(16);
    EXPECT_EQ(text, "F8 F9 FA FB FC FD FE FF 00 01 02 03 04 05 06 07 \n\n");
    EXPECT_EQ(text.size(), 48U + 2U);
}

TEST_P(Dumps, Of17BytesBeginsWithALineFeed)
{
    EXPECT_EQ(dumpOf(17), "\nF8 F9 FA FB FC FD FE FF 00 01 02 03 04 05 06 07 \n08 \n");
}

TEST_P(Dumps, Of32BytesEndsWithTwoLineFeeds)
{
    EXPECT_EQ(dumpOf(32), "\nF8 F9 FA FB FC FD FE FF 00 01 02 03 04 05 06 07 \n"
                          "08 09 0A 0B 0C 0D 0E 0F 10 11 12 13 14 15 16 17 \n\n");
}

TEST_P(Dumps, Of33BytesGoesOnInAThirdLine)
{
    EXPECT_EQ(dumpOf(33), "\nF8 F9 FA FB FC FD FE FF 00 01 02 03 04 05 06 07 \n"
                          "08 09 0A 0B 0C 0D 0E 0F 10 11 12 13 14 15 16 17 \n18 \n");
}

TEST_P(Dumps, AreDroppedWhenTheFileCannotBeOpened)
{
    fs::create_directory(GetParam().file);
    const Bytes bytes = counting(17);
    GetParam().dump(bytes.data(), 17);
    EXPECT_TRUE(fs::is_empty(GetParam().file));
    EXPECT_FALSE(logHeldOpen());
    fs::remove(GetParam().file);
    EXPECT_EQ(dumpOf(1), "F8 \n"); // and the next entry is written again
}

INSTANTIATE_TEST_SUITE_P(LocalLogs, Dumps, ::testing::ValuesIn(kChannels), channelName);

// ---------------------------------------------------------------- the files

TEST_F(LocalLogs, EntriesAreAppendedToWhatTheFileHolds)
{
    log_write("of an earlier process");
    log_write("of this one");
    EXPECT_EQ(fileText(kTrace), "of an earlier process\r\nof this one\r\n");
    service("a");
    fs::rename(kService, "rotated.log"); // between two entries the file is nobody's
    service("b");
    EXPECT_EQ(fileText("rotated.log"), "a");
    EXPECT_EQ(fileText(kService), "b");
}

TEST_F(LocalLogs, NoFileStaysOpenBetweenEntries)
{
    const unsigned char byte = 0x6A;
    log_write("text");
    EXPECT_FALSE(logHeldOpen());
    log_num(1);
    EXPECT_FALSE(logHeldOpen());
    log_write_bcd(&byte, 1);
    EXPECT_FALSE(logHeldOpen());
    service("text");
    EXPECT_FALSE(logHeldOpen());
    messLog_write_bcd(&byte, 1);
    EXPECT_FALSE(logHeldOpen());
}

TEST_F(LocalLogs, FilesLieInTheWorkingDirectoryOfTheMoment)
{
    fs::create_directory("other");
    log_write("first");
    service("first");
    ASSERT_EQ(chdir("other"), 0);
    log_write("second");
    service("second");
    EXPECT_EQ(fileText(directory() + "/vr_log.txt"), "first\r\n");
    EXPECT_EQ(fileText(directory() + "/other/vr_log.txt"), "second\r\n");
    EXPECT_EQ(fileText(directory() + "/ICC_COMM_VORN.log"), "first");
    EXPECT_EQ(fileText(directory() + "/other/ICC_COMM_VORN.log"), "second");
}

TEST_F(LocalLogs, TextsAreDroppedWhenTheFileCannotBeOpened)
{
    fs::create_directory(kTrace);
    fs::create_directory(kService);
    log_write("lost");
    log_num(5);
    service("lost");
    EXPECT_TRUE(fs::is_empty(kTrace));
    EXPECT_TRUE(fs::is_empty(kService));
    fs::remove(kTrace);
    fs::remove(kService);
    log_write("kept");
    service("kept");
    EXPECT_EQ(fileText(kTrace), "kept\r\n");
    EXPECT_EQ(fileText(kService), "kept");
}

TEST_F(LocalLogs, WorkingDirectoryThatIsGoneLosesTheEntriesOnly)
{
    fs::create_directory("gone");
    ASSERT_EQ(chdir("gone"), 0);
    fs::remove(directory() + "/gone");
    log_write("lost");
    service("lost");
    EXPECT_FALSE(fs::exists(directory() + "/vr_log.txt"));
    EXPECT_FALSE(fs::exists(directory() + "/ICC_COMM_VORN.log"));
}

TEST(DebugText, IsABufferOf512CharactersThatHostsMayLookAt) { EXPECT_EQ(sizeof DbgString, 512U); }

// ---------------------------------------------------------------- whose files they are

namespace {

class Umask {
public:
    explicit Umask(mode_t mask) : before_(umask(mask)) {}
    ~Umask() { umask(before_); }
    Umask(const Umask&) = delete;
    Umask& operator=(const Umask&) = delete;

private:
    mode_t before_;
};

unsigned modeOf(const char* file)
{
    struct stat status {};
    return stat(file, &status) == 0 ? status.st_mode & 07777U : 0;
}

void writeBoth()
{
    log_write("trace");
    service("service");
}

} // namespace

class LogFilesUnderAnyUmask : public LocalLogs, public ::testing::WithParamInterface<mode_t> {};

TEST_P(LogFilesUnderAnyUmask, AreCreatedForTheirUserAlone)
{
    const Umask mask(GetParam());
    writeBoth();
    EXPECT_EQ(modeOf(kTrace), 0600U);
    EXPECT_EQ(modeOf(kService), 0600U);
    writeBoth(); // and open for the next entry
    EXPECT_EQ(fileText(kService), "serviceservice");
}

INSTANTIATE_TEST_SUITE_P(LocalLogs, LogFilesUnderAnyUmask, ::testing::Values(0, 022, 077, 0277, 0777));

TEST_F(LocalLogs, FileThatIsThereKeepsItsMode)
{
    for (const char* file : {kTrace, kService}) {
        ASSERT_EQ(close(open(file, O_WRONLY | O_CREAT | O_CLOEXEC, 0600)), 0);
        ASSERT_EQ(chmod(file, 0640), 0);
    }
    writeBoth();
    EXPECT_EQ(modeOf(kTrace), 0640U);
    EXPECT_EQ(modeOf(kService), 0640U);
}

TEST_F(LocalLogs, LinksAreFollowed)
{
    fs::create_symlink("elsewhere.txt", kTrace); // to a file that is not there yet
    service("old,");
    fs::rename(kService, "kept.txt");
    fs::create_symlink("kept.txt", kService);
    writeBoth();
    EXPECT_EQ(fileText("elsewhere.txt"), "trace\r\n");
    EXPECT_EQ(modeOf("elsewhere.txt"), 0600U);
    EXPECT_EQ(fileText("kept.txt"), "old,service");
    EXPECT_TRUE(fs::is_symlink(kTrace) && fs::is_symlink(kService));
}

// ---------------------------------------------------------------- what they do to the host

TEST_F(LocalLogs, FilesAreNotInheritedByTheHostsChildren)
{
    // A pipe that nobody reads holds the library in its write, with the file open.
    ASSERT_EQ(mkfifo(kService, 0600), 0);
    const int reader = open(kService, O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    ASSERT_NE(reader, -1);
    const std::string text(200000, 'x');
    std::thread writer([&] { service(text.c_str()); });
    std::string flags;
    while (flags.empty()) {
        for (const auto& entry : fs::directory_iterator("/proc/self/fd")) {
            std::error_code gone;
            const bool log = fs::read_symlink(entry.path(), gone).filename() == kService;
            if (log && entry.path().filename() != std::to_string(reader)) {
                flags = fileText("/proc/self/fdinfo/" + entry.path().filename().string());
            }
        }
    }
    std::size_t taken = 0;
    char buffer[4096];
    while (taken < text.size()) {
        const ssize_t count = read(reader, buffer, sizeof buffer);
        taken += count > 0 ? static_cast<std::size_t>(count) : 0;
    }
    writer.join();
    close(reader);
    const std::size_t at = flags.find("flags:");
    ASSERT_NE(at, std::string::npos) << flags;
    EXPECT_NE(std::stoul(flags.substr(at + 6), nullptr, 8) & O_CLOEXEC, 0U) << flags;
}

TEST_F(LocalLogs, FileThatMayNotGrowEndsNoHost)
{
    const auto withLimit = [] {
        const rlimit limit = {10, 10};
        std::signal(SIGXFSZ, SIG_DFL);
        setrlimit(RLIMIT_FSIZE, &limit);
        const Bytes bytes = counting(40);
        writeBoth();
        writeBoth();
        service("longer than the limit");
        messLog_write_bcd(bytes.data(), 40);
        std::_Exit(modeOf(kService) == 0600U ? 0 : 1);
    };
    EXPECT_EXIT(withLimit(), ::testing::ExitedWithCode(0), "");
    EXPECT_EQ(fileText(kService), "serviceser");
}

TEST_F(LocalLogs, FullDeviceLosesTheEntriesOnly)
{
    fs::create_symlink("/dev/full", kService);
    fs::create_symlink("/dev/full", kTrace);
    writeBoth();
    EXPECT_FALSE(logHeldOpen());
}

TEST_P(Dumps, OfAnyLengthAreWhole)
{
    const std::size_t n = 5000;
    std::string expected = "\n";
    for (std::size_t i = 0; i < n; ++i) {
        expected += toHex({static_cast<std::uint8_t>(0xF8 + i)}) + " ";
        expected += i % 16 == 15 ? "\n" : "";
    }
    EXPECT_EQ(dumpOf(n), expected + "\n");
}

TEST_P(Dumps, OfANegativeCountAreThoseOfNothing)
{
    const unsigned char byte = 1;
    GetParam().dump(&byte, -1);
    EXPECT_EQ(fileText(GetParam().file), "\n");
}
