// SPDX-License-Identifier: Apache-2.0
// However a card, a reader or a user behaves, a command ends, and says what ended it.
#include "tools/running_tool.h"

#include <sys/resource.h>
#include <termios.h>

#include <algorithm>
#include <atomic>

namespace {

using namespace vorn::test;

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

// It may be there already when a machine is slow to look for it, and comes later then.
TEST_F(ToolTest, ACardThatComesLateIsRead)
{
    bool wasAwaited = false;
    for (int afterMs = 600; !wasAwaited && afterMs < 60000; afterMs *= 3) {
        const std::string profile =
            scratch.file("late.json", R"({"cards": [{"slot": "contact", "after_ms": )" + std::to_string(afterMs) +
                                          R"(, "type": "transcript", "atr": "3B00", "pairs": []}]})");
        const Result result = run(scratch, {"atr", "--sim", profile, "--wait", "600"});
        EXPECT_EQ(result.code, kOk);
        EXPECT_TRUE(result.says("ATR   3B00"));
        wasAwaited = result.complains("waiting for a card");
    }
    EXPECT_TRUE(wasAwaited);
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

// ---------------------------------------------------------------- cards and lines without an end

// A line of a test's own: what the tool sends is answered as the test likes.
class Line {
public:
    Line() : master_(::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC))
    {
        EXPECT_EQ(::grantpt(master_), 0);
        EXPECT_EQ(::unlockpt(master_), 0);
        name_ = ::ptsname(master_);
        keeper_ = ::open(name_.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
        termios settings{};
        ::tcgetattr(keeper_, &settings);
        ::cfmakeraw(&settings);
        ::cfsetspeed(&settings, B9600);
        ::tcsetattr(keeper_, TCSANOW, &settings);
    }
    ~Line()
    {
        stop_ = true;
        ::close(keeper_); // ends a write that nobody makes room for
        if (thread_.joinable()) {
            thread_.join();
        }
        ::close(master_);
    }
    const std::string& name() const { return name_; }
    termios settings() const
    {
        termios now{};
        ::tcgetattr(keeper_, &now);
        return now;
    }
    void echo()
    {
        thread_ = std::thread([this] {
            while (!stop_) {
                pollfd input{master_, POLLIN, 0};
                std::array<char, 512> bytes{};
                if (::poll(&input, 1, 20) == 1) {
                    const ssize_t count = ::read(master_, bytes.data(), bytes.size());
                    [[maybe_unused]] const ssize_t ignored =
                        count > 0 ? ::write(master_, bytes.data(), static_cast<std::size_t>(count)) : 0;
                }
            }
        });
    }
    void talk(const std::string& text)
    {
        thread_ = std::thread([this, text] {
            while (!stop_) {
                [[maybe_unused]] const ssize_t ignored = ::write(master_, text.data(), text.size());
                pollfd input{master_, POLLIN, 0};
                std::array<char, 512> bytes{};
                if (::poll(&input, 1, 20) == 1) {
                    [[maybe_unused]] const ssize_t read = ::read(master_, bytes.data(), bytes.size());
                }
            }
        });
    }

private:
    int master_;
    int keeper_ = -1;
    std::string name_;
    std::atomic<bool> stop_{false};
    std::thread thread_;
};

TEST_F(ToolTest, ATerminalThatEchoesIsNoReader)
{
    Line line;
    line.echo();
    for (const Arguments& command : {Arguments{"device"}, {"info"}, {"atr"}, {"m1", "activate"}}) {
        const Result result = run(scratch, with(command, {"--port", line.name(), "--wait", "0"}));
        EXPECT_EQ(result.code, kWrongDevice) << command[0] << result.errors;
        EXPECT_TRUE(result.complains("no reader")) << result.errors;
    }
}

TEST_F(ToolTest, ALineThatTalksWithoutAnEndIsNoReader)
{
    Line line;
    line.talk("$GPGGA,120000,,,,,0,00,,,M,,M,,*66\r\n");
    EXPECT_EQ(run(scratch, {"device", "--port", line.name()}).code, kWrongDevice);
    const Result result = run(scratch, {"info", "--port", line.name(), "--wait", "0"});
    EXPECT_EQ(result.code, kWrongDevice) << result.errors;
    const termios settings = line.settings();
    EXPECT_EQ(::cfgetospeed(&settings), speed_t{B9600});
}

TEST_F(ToolTest, ACardThatAsksForMoreWithoutAnEndIsLeftAtRest)
{
    const std::string profile = scratch.file("more.json", R"({"cards": [{"slot": "contact", "type": "transcript",
        "atr": "3B00", "otherwise": "6100", "pairs": []}]})");
    Process reader(scratch, {"sim", profile, "-v"});
    const std::string port = reader.outputLine();
    const Result result = run(scratch, {"info", "--port", port, "--wait", "0"});
    EXPECT_EQ(result.code, kTooLong) << result.errors;
    EXPECT_TRUE(result.complains("was ended"));
    EXPECT_TRUE(fs::is_empty(scratch.temporary()));
    // The way back to the slow speed is not answered: the reader may get to it after the tool has ended.
    const auto stands = [](const std::string& events, const char* last, const char* before) {
        return events.rfind(last) != std::string::npos && events.rfind(last) > events.rfind(before);
    };
    const std::string events = reader.errorsUntil([&](const std::string& told) {
        return stands(told, "restore", "switch 38400") && stands(told, "power off 00", "power on 00");
    });
    const std::string end = events.substr(events.size() - std::min<std::size_t>(events.size(), 300));
    EXPECT_TRUE(stands(events, "power off 00", "power on 00")) << end;
    EXPECT_TRUE(stands(events, "restore", "switch 38400")) << end;
}

TEST_F(ToolTest, ACardTakenAwayBeforeTheCallEndsTheWait)
{
    const Result result = run(scratch, {"info", "--sim", "debit", "--fault", "pull@1", "--wait", "1"});
    EXPECT_EQ(result.code, kCardGone) << result.errors;
    EXPECT_TRUE(result.complains("taken away"));
}

TEST_F(ToolTest, OneRequestToEndIsEnough)
{
    const std::string profile = scratch.file("more.json", R"({"cards": [{"slot": "contact", "type": "transcript",
        "atr": "3B00", "otherwise": "6100", "pairs": []}]})");
    for (const int signal : {SIGTERM, SIGINT}) {
        Process process(scratch, {"info", "--sim", profile, "--wait", "3600", "-v"});
        process.errorLine(); // the call has begun
        process.signal(signal);
        std::string output, errors;
        EXPECT_EQ(process.finish(output, errors), kInterrupted);
        EXPECT_NE(errors.find("waiting for IC_GetInfo to come to its end"), std::string::npos);
        EXPECT_TRUE(fs::is_empty(scratch.temporary()));
    }
}

TEST_F(ToolTest, APortIsOneProgramsAtATime)
{
    Process reader(scratch, {"sim", "psam"});
    const std::string port = reader.outputLine();
    Process first(scratch, {"info", "--port", port, "--wait", "3600"});
    EXPECT_NE(first.errorLine().find("waiting"), std::string::npos);
    const Result second = run(scratch, {"info", "--port", port});
    EXPECT_EQ(second.code, kPortBusy) << second.errors;
    EXPECT_TRUE(second.complains("is used by")) << second.errors;
    first.signal(SIGTERM);
    std::string output, errors;
    EXPECT_EQ(first.finish(output, errors), kInterrupted);
    EXPECT_EQ(run(scratch, {"info", "--port", port, "--wait", "0"}).code, kNoCard);
}

TEST_F(ToolTest, AFileThatMayNotGrowLeavesNothingBehind)
{
    const int file = ::open((scratch.path() / "result").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    ASSERT_GE(file, 0);
    rlimit before{};
    ::getrlimit(RLIMIT_FSIZE, &before);
    const rlimit small{64, before.rlim_max};
    ::setrlimit(RLIMIT_FSIZE, &small);
    const Result result = run(scratch, {"info", "--sim", "debit"}, "", file);
    ::setrlimit(RLIMIT_FSIZE, &before);
    ::close(file);
    EXPECT_EQ(result.code, kOutput) << result.errors;
    EXPECT_TRUE(fs::is_empty(scratch.temporary()));
}

} // namespace
