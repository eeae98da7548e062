// SPDX-License-Identifier: Apache-2.0
// Writes of the library's own that fail do not end the host, and leave the host's signals as they were.
#include "src/public/quiet_signals.h"

#include "support/scripted_reader.h"

#include "ICC_COMM_VORN.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <csignal>
#include <cstdlib>

using vorn::QuietSignals;

namespace {

// A pipe that nobody reads.
class ClosedPipe {
public:
    ClosedPipe()
    {
        int ends[2] = {-1, -1};
        EXPECT_EQ(pipe(ends), 0);
        close(ends[0]);
        end_ = ends[1];
    }
    ~ClosedPipe() { close(end_); }
    ClosedPipe(const ClosedPipe&) = delete;
    ClosedPipe& operator=(const ClosedPipe&) = delete;

    int write() const { return static_cast<int>(::write(end_, "x", 1)); }
    void takeThePlaceOf(int descriptor) const { dup2(end_, descriptor); }

private:
    int end_;
};

volatile std::sig_atomic_t caught;
void catchIt(int) { ++caught; }

// The host's own handling of SIGPIPE, as a test sets it.
class HostSignals : public ::testing::Test {
protected:
    void SetUp() override
    {
        caught = 0;
        before_ = std::signal(SIGPIPE, catchIt);
        sigprocmask(SIG_SETMASK, nullptr, &mask_);
    }
    void TearDown() override
    {
        sigprocmask(SIG_SETMASK, &mask_, nullptr);
        std::signal(SIGPIPE, before_);
    }

    static void block(int how)
    {
        sigset_t signals;
        sigemptyset(&signals);
        sigaddset(&signals, SIGPIPE);
        sigprocmask(how, &signals, nullptr);
    }
    static bool blocked()
    {
        sigset_t signals;
        sigprocmask(SIG_SETMASK, nullptr, &signals);
        return sigismember(&signals, SIGPIPE) == 1;
    }

private:
    void (*before_)(int) = SIG_DFL;
    sigset_t mask_{};
};

} // namespace

TEST_F(HostSignals, DoNotSeeAWriteToAClosedPipe)
{
    const ClosedPipe pipe;
    {
        QuietSignals quiet;
        errno = 0;
        EXPECT_EQ(pipe.write(), -1);
        quiet.failed();
        EXPECT_EQ(errno, EPIPE);
    }
    EXPECT_EQ(caught, 0);
    EXPECT_FALSE(blocked());
    EXPECT_EQ(pipe.write(), -1); // the host's own is the host's
    EXPECT_EQ(caught, 1);
}

TEST_F(HostSignals, StayBlockedWhenTheHostBlocksThem)
{
    const ClosedPipe pipe;
    block(SIG_BLOCK);
    {
        QuietSignals quiet;
        EXPECT_EQ(pipe.write(), -1);
        quiet.failed();
    }
    EXPECT_TRUE(blocked());
    block(SIG_UNBLOCK);
    EXPECT_EQ(caught, 0);
}

TEST_F(HostSignals, ThatWaitedBeforeAreStillDelivered)
{
    const ClosedPipe pipe;
    block(SIG_BLOCK);
    EXPECT_EQ(pipe.write(), -1);
    {
        QuietSignals quiet;
        EXPECT_EQ(pipe.write(), -1);
        quiet.failed();
    }
    EXPECT_EQ(caught, 0);
    block(SIG_UNBLOCK);
    EXPECT_EQ(caught, 1);
}

TEST_F(HostSignals, ThatComeFromElsewhereAreDelivered)
{
    {
        const QuietSignals quiet;
        std::raise(SIGPIPE);
        EXPECT_EQ(caught, 0);
    }
    EXPECT_EQ(caught, 1);
    EXPECT_FALSE(blocked());
}

TEST_F(HostSignals, LeaveErrnoAsTheWriteLeftIt)
{
    const ClosedPipe pipe;
    errno = 0;
    {
        QuietSignals quiet;
        EXPECT_EQ(pipe.write(), -1);
        quiet.failed();
    }
    EXPECT_EQ(errno, EPIPE);
}

// The whole way: what the library prints meets a standard output that nobody reads, in the call and at the host's end.
TEST(ClosedStandardOutput, EndsNoHost)
{
    const auto host = [] {
        std::signal(SIGPIPE, SIG_DFL);
        char directory[] = "/tmp/vorn-signals-XXXXXX"; // one that is gone keeps no logs
        if (mkdtemp(directory) == nullptr || chdir(directory) != 0 || rmdir(directory) != 0) {
            std::_Exit(2);
        }
        ClosedPipe().takeThePlaceOf(STDOUT_FILENO);
        int icType = 0;
        int length = 0;
        char tc[ICC_CRYPTOGRAM_CAPACITY];
        char script[ICC_SCRIPT_RESULT_CAPACITY];
        const int result = IC_CtlScriptData("no/such/tty", "", 9600, 1, &icType, "", "", &length, tc, script, "");
        std::exit(result == VORN_OPEN_FAILED ? 0 : 1);
    };
    EXPECT_EXIT(host(), ::testing::ExitedWithCode(0), "");
}
