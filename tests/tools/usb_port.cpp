// SPDX-License-Identifier: Apache-2.0
// The tool and a reader on USB, which another process plays: it is found, used, and explained when it may not be opened.
#include "tools/running_tool.h"

#include <cstdio>

#ifdef VORN_USB_READER
namespace {

using namespace vorn::test;

constexpr const char* kPlayed = "UMOCKDEV_DIR";
constexpr const char* kPreloaded = "LD_PRELOAD";

// The reader; what is started while it is there sees it on its USB.
class PlayedReader {
public:
    explicit PlayedReader(const std::string& profile)
    {
        EXPECT_EQ(::pipe2(toReader_.data(), O_CLOEXEC), 0);
        EXPECT_EQ(::pipe2(fromReader_.data(), O_CLOEXEC), 0);
        process_ = ::fork();
        if (process_ == 0) {
            ::dup2(toReader_[0], STDIN_FILENO);
            ::dup2(fromReader_[1], STDOUT_FILENO);
            ::setenv("TMPDIR", "/tmp", 1); // its sockets' names must stay short
            ::execl(VORN_USB_READER, VORN_USB_READER, profile.c_str(), nullptr);
            ::_exit(127);
        }
        ::close(toReader_[0]);
        ::close(fromReader_[1]);
        directory_ = line();
        ::setenv(kPlayed, directory_.c_str(), 1);
        ::setenv(kPreloaded, "libumockdev-preload.so.0", 1);
    }
    ~PlayedReader()
    {
        ::unsetenv(kPlayed);
        ::unsetenv(kPreloaded);
        ::close(toReader_[1]);
        ::close(fromReader_[0]);
        ::waitpid(process_, nullptr, 0);
    }
    PlayedReader(const PlayedReader&) = delete;
    PlayedReader& operator=(const PlayedReader&) = delete;

    void tell(const std::string& word) const
    {
        const std::string text = word + "\n";
        EXPECT_EQ(::write(toReader_[1], text.data(), text.size()), static_cast<ssize_t>(text.size()));
        EXPECT_EQ(line(), "done");
    }
    fs::path node() const { return directory_ + "/dev/bus/usb/001/002"; }

private:
    std::string line() const
    {
        std::string text;
        for (char c = 0; ::read(fromReader_[0], &c, 1) == 1 && c != '\n';) {
            text += c;
        }
        return text;
    }

    std::array<int, 2> toReader_{};
    std::array<int, 2> fromReader_{};
    pid_t process_ = -1;
    std::string directory_;
};

TEST_F(ToolTest, CommandsReadACardThroughTheReaderOnUsb)
{
    const PlayedReader reader("debit");
    reader.tell("plug");
    const Result info = run(scratch, {"info", "--port", "USB", "--json"});
    EXPECT_EQ(info.code, kOk) << info.errors;
    EXPECT_EQ(info.json()["pan"], kMaskedPan);
    EXPECT_TRUE(run(scratch, {"atr", "--port", "USB"}).says("3B"));
    EXPECT_EQ(run(scratch, {"log", "--port", "USB"}).code, kOk);
    const Json ports = run(scratch, {"ports", "--json"}).json()["ports"];
    ASSERT_FALSE(ports.empty());
    EXPECT_EQ(ports.back()["port"], "USB");
    EXPECT_EQ(ports.back()["allowed"], true);
    EXPECT_EQ(ports.back()["answer"], "a reader (over USB it does not tell its version)");
}

TEST_F(ToolTest, AReaderThatIsNotOnUsbIsNoPort)
{
    const PlayedReader reader("debit");
    reader.tell("plug");
    reader.tell("unplug");
    const Result info = run(scratch, {"info", "--port", "USB"});
    EXPECT_EQ(info.code, kPort);
    EXPECT_TRUE(info.complains("no reader on USB"));
}

TEST_F(ToolTest, DoctorSaysWhyAUserMayNotOpenTheReaderOnUsb)
{
    if (::geteuid() != 0) {
        GTEST_SKIP() << "only root can become another user";
    }
    const PlayedReader reader("debit");
    reader.tell("plug");
    fs::permissions(reader.node().parent_path().parent_path().parent_path().parent_path().parent_path(),
                    fs::perms::others_exec | fs::perms::others_read, fs::perm_options::add);
    fs::permissions(reader.node(), fs::perms::owner_read | fs::perms::owner_write);
    fs::permissions(scratch.path(), fs::perms::all);
    fs::permissions(scratch.temporary(), fs::perms::all);
    const Result doctor = run(scratch, {"doctor", "--port", "USB"}, {}, -1, true);
    EXPECT_EQ(doctor.code, kFindings);
    EXPECT_TRUE(doctor.says("BAD   USB: you may not open it; it belongs to the group root"));
    EXPECT_TRUE(doctor.says("plug the reader in again")) << doctor.output; // with the rule installed, or without
    const Result info = run(scratch, {"info", "--port", "USB"}, {}, -1, true);
    EXPECT_EQ(info.code, kPermission) << info.errors;
    EXPECT_TRUE(info.complains("no permission to use the reader on USB"));
}

} // namespace
#endif
