// SPDX-License-Identifier: Apache-2.0
// The link's waits: full under a host's signals, and independent of the date.
#include "support/scripted_reader.h"

#include "ICC_COMM_VORN.h"

using namespace vorn::test;

namespace {

class Waiting : public ReaderTest {
protected:
    const std::vector<unsigned> kProtocolPauses = {12000, 7000, 30000, 12000, 3000};
};

TEST_F(Waiting, ThePausesOfTheLineProtocolAreFullHoweverOftenTheyAreInterrupted)
{
    Clock::interruptEvery(900);
    openLink();
    closeLink();
    EXPECT_EQ(Clock::sleeps(), kProtocolPauses);
    EXPECT_EQ(Clock::interruptions(), 13u + 7 + 33 + 13 + 3);
    EXPECT_EQ(Clock::cutShort(), 0u);
}

TEST_F(Waiting, AnInterruptedPauseIsNotProlonged)
{
    const std::int64_t before = Clock::microseconds();
    Clock::interruptEvery(7);
    openLink();
    closeLink();
    EXPECT_EQ(Clock::microseconds() - before, 64000);
}

TEST_F(Waiting, AnInterruptedPollIsAsLongAsEver)
{
    openLink();
    Clock::forgetSleeps();
    Clock::interruptEvery(400);
    EXPECT_EQ(comm_read_adata(vrdk03com_handle, 5), -1001);
    EXPECT_EQ(Clock::sleeps(), std::vector<unsigned>(5, 1000));
    EXPECT_EQ(Clock::cutShort(), 0u);
    closeLink();
}

TEST_F(Waiting, ADateSetBackProlongsNoWait)
{
    openLink();
    Clock::forgetSleeps();
    Clock::onSleep([] { Clock::setDate(1000); });
    EXPECT_EQ(comm_read_adata(vrdk03com_handle, 5), -1001);
    EXPECT_EQ(Clock::sleeps().size(), 5u);
    Clock::onSleep([this] { line.serve(); });
    closeLink();
}

TEST_F(Waiting, ADateSetForwardEndsNoWait)
{
    openLink();
    line.sendLater(fromHex("5A"), 3);
    Clock::onSleep([this] {
        line.serve();
        Clock::setDate(2000000000);
    });
    EXPECT_EQ(comm_read_adata(vrdk03com_handle, 5), 0x5A);
    Clock::onSleep([this] { line.serve(); });
    closeLink();
}

} // namespace
