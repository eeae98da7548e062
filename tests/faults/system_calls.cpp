// SPDX-License-Identifier: Apache-2.0
// Every call that the library makes to the system fails once, and every place fails for good, over every service call.
// Interruptions and short writes must not show at all. Of the rest: a result that the header names, what is open and
// how the tty is set as before, no more said than is true, and the next call good.
#include "support/failing_calls.h"
#include "support/simulated_desk.h"

#include "ICC_COMM_VORN.h"

#include <algorithm>
#include <set>

using namespace vorn::test;
namespace sim = vorn::sim;

namespace {

class SystemCalls : public ReaderTest, public ::testing::WithParamInterface<Errand> {
protected:
    SystemCalls()
    {
        line.onBytes = [this](const Bytes& bytes, int speed) {
            for (const sim::Reader::Output& output : desk_->reader().receive(bytes, speed)) {
                line.sendLater(output.bytes, static_cast<int>(output.delay / std::chrono::milliseconds(1)));
            }
        };
    }

    std::vector<CallRecord> run()
    {
        desk_ = std::make_unique<SimulatedDesk>(line.port(), GetParam().profile);
        std::vector<CallRecord> records;
        standardErrorOf([&] { standardOutputOf([&] { records = GetParam().run(*desk_); }); });
        line.forget();
        Clock::forgetSleeps();
        forgetLogs();
        return records;
    }

    // What a memory-card call leaves open, an opening that fails gives back.
    void closeWhatIsLeft()
    {
        char nothing[] = "";
        OpenDev(0, nothing);
        line.discardUnread();
    }

    void expectAllAsBefore(Site site, const std::string& where)
    {
        closeWhatIsLeft();
        if (site == Site::Terminal) {
            line.setSettings(settings_); // putting them back was perhaps what failed
        }
        EXPECT_TRUE(linkClosed()) << where;
        EXPECT_EQ(openDescriptors(), descriptors_) << where;
    }

    void expectHonest(const std::vector<CallRecord>& records, const std::string& where)
    {
        for (std::size_t i = 0; i < records.size(); ++i) {
            const CallRecord& record = records[i];
            EXPECT_TRUE(documentedResults(record.call).count(record.result) == 1) << where << ": " << toText(record);
            ASSERT_EQ(record.call, good_[i].call);
            EXPECT_TRUE(saysNoMoreThan(good_[i], record))
                << where << ": " << toText(record) << "\nnot " << toText(good_[i]);
        }
    }

    void begin()
    {
        good_ = run();
        ASSERT_EQ(good_.back().result, VORN_OK) << toText(good_.back());
        closeWhatIsLeft();
        descriptors_ = openDescriptors();
    }

    // Does f once for every call that the library makes at this place. Returns how many there were.
    template <class Check>
    int forEachCall(Site site, How how, bool forGood, Check check)
    {
        for (int n = 1;; ++n) {
            failing_calls::arm(site, how, n, forGood);
            const std::vector<CallRecord> records = run();
            const bool struck = failing_calls::disarm();
            const std::string where =
                std::string(nameOf(site)) + " " + std::to_string(n) + " " + nameOf(how) + (forGood ? " for good" : "");
            if (struck) {
                check(records, where);
            } else {
                EXPECT_TRUE(records == good_) << where << ": " << toText(records.front());
            }
            expectAllAsBefore(how == How::Fail ? site : Site::Count, where);
            if (!struck || HasFailure()) {
                return n - 1;
            }
        }
    }

    const std::vector<CallRecord>& good() const { return good_; }

private:
    std::unique_ptr<SimulatedDesk> desk_;
    std::vector<CallRecord> good_;
    const struct termio settings_ = line.settings();
    int descriptors_ = 0;
};

std::string nameOfErrand(const ::testing::TestParamInfo<Errand>& info)
{
    std::string name = info.param.name;
    name.erase(std::remove(name.begin(), name.end(), ' '), name.end());
    return name;
}

} // namespace

TEST_P(SystemCalls, WhatIsInterruptedIsDoneAgain)
{
    begin();
    for (const Site site : {Site::Open, Site::Read, Site::Write, Site::Terminal, Site::Status, Site::LogOpen,
                            Site::LogWrite, Site::Print}) {
        forEachCall(site, How::Interrupt, false,
                    [this](const std::vector<CallRecord>& records, const std::string& where) {
                        EXPECT_TRUE(records == good()) << where << ": " << toText(records.front());
                    });
    }
}

TEST_P(SystemCalls, WhatIsCutShortGoesOn)
{
    begin();
    for (const Site site : {Site::Read, Site::Write, Site::LogWrite, Site::Print}) {
        forEachCall(site, How::Short, false, [this](const std::vector<CallRecord>& records, const std::string& where) {
            EXPECT_TRUE(records == good()) << where << ": " << toText(records.front());
        });
    }
}

TEST_P(SystemCalls, AnyFailureEndsAsDocumentedAndLeavesNothingBehind)
{
    begin();
    for (const Site site :
         {Site::Open, Site::Read, Site::Write, Site::Terminal, Site::Allocate, Site::OpenIconv, Site::Iconv}) {
        for (const bool forGood : {false, true}) {
            forEachCall(site, How::Fail, forGood,
                        [this](const std::vector<CallRecord>& records, const std::string& where) {
                            expectHonest(records, where);
                        });
        }
    }
}

TEST_P(SystemCalls, ATtyThatTheSystemSaysNothingOfIsNotOpened)
{
    begin();
    failing_calls::arm(Site::Status, How::Fail, 1);
    const std::vector<CallRecord> records = run();
    EXPECT_TRUE(failing_calls::disarm());
    EXPECT_EQ(records.front().result, VORN_OPEN_FAILED) << "it could not be told from another file when it is closed";
    expectAllAsBefore(Site::Status, "fstat");
}

TEST_P(SystemCalls, LogsAndConsoleNeverMakeACallFail)
{
    begin();
    for (const Site site : {Site::LogOpen, Site::LogWrite, Site::Print}) {
        for (const bool forGood : {false, true}) {
            forEachCall(site, How::Fail, forGood,
                        [this](const std::vector<CallRecord>& records, const std::string& where) {
                            EXPECT_TRUE(records == good()) << where << ": " << toText(records.front());
                        });
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Errands, SystemCalls, ::testing::ValuesIn(errands()), nameOfErrand);
