// SPDX-License-Identifier: Apache-2.0
// A host whose timer interrupts whatever the library waits in, every millisecond, in real time.
#include "support/scripted_reader.h"
#include "support/timer.h"
#include "support/tty_calls.h"

#include "ICC_COMM_VORN.h"

#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <thread>

using namespace vorn::test;

namespace {

// The reader at the line's other end, in real time.
class Served {
public:
    explicit Served(Line& line)
        : thread_([this, &line] {
              sigset_t alarm;
              sigemptyset(&alarm);
              sigaddset(&alarm, SIGALRM);
              pthread_sigmask(SIG_BLOCK, &alarm, nullptr);
              while (!ended_) {
                  line.serve();
                  usleep(200);
              }
          })
    {}
    ~Served()
    {
        ended_ = true;
        thread_.join();
    }
    Served(const Served&) = delete;
    Served& operator=(const Served&) = delete;

private:
    std::atomic<bool> ended_{false};
    std::thread thread_;
};

class HostSignals : public ReaderTest {
protected:
    HostSignals()
    {
        ttyCalls() = TtyCalls{};
        Clock::releaseSlow(50);
    }

    // Of each call, the pauses of the line protocol; polls are not among them.
    static std::vector<unsigned> protocolPauses()
    {
        std::vector<unsigned> pauses;
        for (const unsigned sleep : Clock::sleeps()) {
            if (sleep != 1000) {
                pauses.push_back(sleep);
            }
        }
        return pauses;
    }
};

TEST_F(HostSignals, EveryCallIsGoodAndEveryPauseFull)
{
    constexpr int kCalls = 200;
    std::vector<unsigned> expected;
    for (int i = 0; i < kCalls / 2; ++i) {
        reader.powerOn("3B00").powerOff();
    }
    for (int i = 0; i < kCalls; ++i) {
        expected.insert(expected.end(), {12000, 7000, 30000, 12000, 3000});
    }
    {
        const Served served(line);
        const Timer timer;
        for (int i = 0; i < kCalls / 2; ++i) {
            char atr[ICC_ATR_CAPACITY] = "";
            ASSERT_EQ(IC_PowerOn(port(), "", 9600, 60, 1, 0, atr), 0) << i;
            ASSERT_STREQ(atr, "3B00");
            ASSERT_EQ(IC_PowerOff(port(), "", 9600, 5, 1, 0), 0) << i;
        }
    }
    EXPECT_EQ(protocolPauses(), expected);
    EXPECT_EQ(Clock::cutShort(), 0u);
    EXPECT_GT(Clock::interruptions(), unsigned{kCalls});
    EXPECT_TRUE(linkClosed());
}

} // namespace
