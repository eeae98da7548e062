// SPDX-License-Identifier: Apache-2.0
// What the line, the terminal and the reader may take in time before calls fail, on either side of the limit. The
// limits themselves are tables of docs/margins.md; here it is what a host depends on.
#include "support/clock.h"
#include "support/scripted_reader.h"
#include "support/simulated_desk.h"
#include "support/timed_line.h"
#include "support/timed_usb.h"

#include "ICC_COMM_VORN.h"

#include <gtest/gtest.h>

#include <stdlib.h>

#include <algorithm>
#include <filesystem>
#include <stdexcept>

using namespace vorn::test;
namespace sim = vorn::sim;

namespace {

constexpr std::int64_t kMs = 1000;

using Records = std::vector<CallRecord>;

class TimedTest : public ::testing::Test {
protected:
    TimedTest()
    {
        directory_ = (std::filesystem::temp_directory_path() / "vorn-test-XXXXXX").string();
        if (mkdtemp(directory_.data()) == nullptr) {
            throw std::runtime_error("no working directory for the test");
        }
        std::filesystem::current_path(directory_);
    }
    ~TimedTest() override
    {
        Clock::sleepAs({});
        std::error_code ignored;
        std::filesystem::current_path("/", ignored);
        std::filesystem::remove_all(directory_, ignored);
    }

    void connect(const std::string& profile, const LineTiming& timing = {})
    {
        Clock::advance(60000 * kMs); // nothing is late any more
        desk_ = std::make_unique<SimulatedDesk>(TimedLine::kPort, profile);
        line.renew(desk_->reader(), timing);
        m_VrICType = VORN_INTERFACE_NONE;
    }

    void connectUsb(const std::string& profile, const UsbTiming& timing = {})
    {
        desk_ = std::make_unique<SimulatedDesk>("USB", profile);
        usb.renew(desk_->reader(), timing);
        m_VrICType = VORN_INTERFACE_NONE;
    }

    Records run(const char* name)
    {
        const auto errand = std::find_if(errands().begin(), errands().end(),
                                         [name](const Errand& e) { return std::string(name) == e.name; });
        return errand->run(*desk_);
    }

    // The first call of an errand that differs from what it is on a good line; VORN_OK when none does.
    int firstFailure(const char* name, const LineTiming& timing)
    {
        const auto errand = std::find_if(errands().begin(), errands().end(),
                                         [name](const Errand& e) { return std::string(name) == e.name; });
        connect(errand->profile);
        const Records good = run(name);
        connect(errand->profile, timing);
        const Records now = run(name);
        for (std::size_t i = 0; i < now.size(); ++i) {
            if (!(now[i] == good[i])) {
                return now[i].result == VORN_OK ? kWrong : now[i].result;
            }
        }
        return VORN_OK;
    }

    static constexpr int kWrong = 1; // success, and another output

    SimulatedDesk& desk() { return *desk_; }

    TimedLine line;
    TimedUsb usb;

private:
    std::string directory_;
    std::unique_ptr<SimulatedDesk> desk_;
};

template <class Member, class Value>
LineTiming with(Member LineTiming::*member, Value value, LineTiming timing = {})
{
    timing.*member = value;
    return timing;
}

} // namespace

// ---------------------------------------------------------------- the line itself

TEST_F(TimedTest, TheReaderHearsEachSequenceAtItsSpeed)
{
    connect("debit");
    run("raw access");
    const std::vector<std::string> events = desk().reader().events();
    const std::vector<std::string> sequences = {"switch 38400", "switch 9600", "restore"};
    std::vector<std::string> heard;
    std::copy_if(events.begin(), events.end(), std::back_inserter(heard), [&](const std::string& event) {
        return event.find("switch") == 0 || event == "restore" || event.find("garbage") == 0;
    });
    ASSERT_EQ(heard.size(), 4 * sequences.size());
    for (std::size_t i = 0; i < heard.size(); ++i) {
        EXPECT_EQ(heard[i], sequences[i % sequences.size()]);
    }
}

TEST_F(TimedTest, EveryErrandIsRightBehindAnAdapterWith16Milliseconds)
{
    LineTiming adapter;
    adapter.sendDelay = 2 * kMs;
    adapter.tellsUnsent = false;
    adapter.handOverEvery = 16 * kMs;
    for (const Errand& errand : errands()) {
        EXPECT_EQ(firstFailure(errand.name, adapter), VORN_OK) << errand.name;
    }
}

TEST_F(TimedTest, EveryErrandIsRightOnATerminalWithTicksOf10Milliseconds)
{
    for (const Errand& errand : errands()) {
        connect(errand.profile);
        const Records good = run(errand.name);
        connect(errand.profile);
        Clock::sleepAs([](std::int64_t asked) {
            constexpr std::int64_t kTick = 10 * kMs;
            const std::int64_t end = Clock::microseconds() + asked;
            return (end + kTick - 1) / kTick * kTick - Clock::microseconds();
        });
        EXPECT_TRUE(run(errand.name) == good) << errand.name;
        Clock::sleepAs({});
    }
}

TEST_F(TimedTest, AnAdapterThatHoldsBytesBackBehindTheSpeedChangeLosesTheCall)
{
    LineTiming adapter;
    adapter.tellsUnsent = false;
    EXPECT_EQ(firstFailure("card information", with(&LineTiming::sendDelay, 7 * kMs, adapter)), VORN_OK);
    EXPECT_EQ(firstFailure("card information", with(&LineTiming::sendDelay, 9 * kMs, adapter)), VORN_NO_REPLY);
    adapter.tellsUnsent = true; // the library waits for it
    EXPECT_EQ(firstFailure("card information", with(&LineTiming::sendDelay, 900 * kMs, adapter)), VORN_OK);
}

TEST_F(TimedTest, APauseOfTheProtocolMayBeAsLongAsTheTerminalLikes)
{
    connect("debit");
    const Records good = run("raw access");
    connect("debit");
    Clock::sleepAs([](std::int64_t asked) { return asked > kMs ? asked + 30000 * kMs : asked; });
    EXPECT_TRUE(run("raw access") == good);
}

// ---------------------------------------------------------------- the reader

TEST_F(TimedTest, AReaderHas14MillisecondsToSwitch)
{
    EXPECT_EQ(firstFailure("memory card", with(&LineTiming::afterSwitch, 14 * kMs)), VORN_OK);
    EXPECT_EQ(firstFailure("memory card", with(&LineTiming::afterSwitch, 15 * kMs)), VORN_NO_REPLY);
}

TEST_F(TimedTest, AReaderHas8MillisecondsBehindTheRestoreUntilTheNextCallMayCome)
{
    EXPECT_EQ(firstFailure("raw access", with(&LineTiming::afterRestore, 8 * kMs)), VORN_OK);
    EXPECT_EQ(firstFailure("raw access", with(&LineTiming::afterRestore, 9 * kMs)), VORN_NO_REPLY);
}

TEST_F(TimedTest, EveryByteOfAReplyHasThreeSeconds)
{
    EXPECT_EQ(firstFailure("raw access", with(&LineTiming::beforeReply, 2900 * kMs)), VORN_OK);
    EXPECT_EQ(firstFailure("raw access", with(&LineTiming::betweenBytes, 2900 * kMs)), VORN_OK);
    EXPECT_EQ(firstFailure("raw access", with(&LineTiming::gap, 3001 * kMs)), VORN_NO_REPLY);
}

TEST_F(TimedTest, TheVersionEndsAt50MillisecondsOfSilence)
{
    EXPECT_EQ(firstFailure("device", with(&LineTiming::gap, 45 * kMs)), VORN_OK);
    EXPECT_EQ(firstFailure("device", with(&LineTiming::gap, 55 * kMs)), kWrong);
    EXPECT_EQ(firstFailure("device", with(&LineTiming::beforeReply, 2001 * kMs)), VORN_NO_REPLY);
}

TEST_F(TimedTest, ALineThatTakesNothingIsWaitedForASecondWhenTheDriverIsFull)
{
    const LineTiming small = with(&LineTiming::sendRoom, std::size_t{16});
    EXPECT_EQ(firstFailure("sale", with(&LineTiming::stop, 990 * kMs, small)), VORN_OK);
    EXPECT_NE(firstFailure("sale", with(&LineTiming::stop, 1100 * kMs, small)), VORN_OK);
}

// ---------------------------------------------------------------- late replies

namespace {

int send(SimulatedDesk& desk, const char* apdu, std::string& text)
{
    Output response(ICC_RESPONSE_CAPACITY);
    const int result = IC_SendAPDU(desk.port(), "", 9600, 3, 1, 0, apdu, response.text());
    text = response.untouched() ? "" : response.value();
    return result;
}

} // namespace

TEST_F(TimedTest, AReplyUpToASecondTooLateIsNotTakenForTheNextCommands)
{
    const auto nextCall = [this](std::int64_t later, std::string& text) {
        LineTiming timing;
        timing.onlyReply = 2;
        timing.onlyReplyLater = later;
        connect("debit", timing);
        Output atr(ICC_ATR_CAPACITY);
        EXPECT_EQ(IC_PowerOn(desk().port(), "", 9600, 3, 1, 0, atr.text()), VORN_OK);
        const int first = send(desk(), "00A404000E315041592E5359532E4444463031", text);
        EXPECT_EQ(first, later == 0 ? VORN_OK : VORN_NO_REPLY);
        return send(desk(), "00B2010C00", text);
    };
    std::string good, text;
    ASSERT_EQ(nextCall(0, good), VORN_OK);
    for (const std::int64_t later : {3100 * kMs, 3500 * kMs, 3900 * kMs}) {
        EXPECT_EQ(nextCall(later, text), VORN_OK);
        EXPECT_EQ(text, good);
        EXPECT_FALSE(line.staleReplyRead());
    }
    // Whoever counts wrong successes has to see this one.
    EXPECT_EQ(nextCall(4500 * kMs, text), VORN_OK);
    EXPECT_NE(text, good);
    EXPECT_TRUE(line.staleReplyRead());
}

// ---------------------------------------------------------------- USB

TEST_F(TimedTest, OverUsbAReplyHasThreeSecondsAndEachFurtherPacketATenth)
{
    const auto result = [this](const UsbTiming& timing) {
        Records good, now;
        standardOutputOf([&] { // where the USB layer tells developers of every transfer
            connectUsb("debit");
            good = run("card information");
            connectUsb("debit", timing);
            now = run("card information");
        });
        return now == good ? VORN_OK : now[0].result == VORN_OK ? kWrong : now[0].result;
    };
    EXPECT_EQ(result({2990 * kMs, 0, 0}), VORN_OK);
    EXPECT_EQ(result({3010 * kMs, 0, 0}), VORN_NO_REPLY);
    EXPECT_EQ(result({0, 99 * kMs, 0}), VORN_OK);
    EXPECT_NE(result({0, 101 * kMs, 0}), VORN_OK);
    EXPECT_EQ(result({0, 0, 9990 * kMs}), VORN_OK);
    EXPECT_EQ(result({0, 0, 10010 * kMs}), VORN_NO_REPLY);
}
