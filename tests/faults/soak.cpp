// SPDX-License-Identifier: Apache-2.0
// A terminal that runs for months with a reader that does what it likes: thousands of calls in one process against
// replies that are lost, doubled, late, damaged or another's, and cards that come and go. Whatever happens, each call
// ends with a result that its header names, nothing is left open, and the next call with a good reader is right.
#include "support/simulated_desk.h"

#include "ICC_COMM_VORN.h"

#include <malloc.h>

#include <algorithm>
#include <random>
#include <regex>

using namespace vorn::test;
namespace sim = vorn::sim;

namespace {

constexpr int kCalls = 20000;
constexpr unsigned kSeed = 20261121;

// What a bad line and a bad reader make of one reply. Each row is as likely as the others.
enum class Mischief { Lost, Doubled, Late, Damaged, Cut, Noise, OtherStatus, Endless, Echo, Count };

class BadReader {
public:
    explicit BadReader(Line& line) : line_(line), random_(kSeed) {}

    // How many replies of a hundred come out wrong.
    void misbehave(int percent) { percent_ = percent; }

    void receive(SimulatedDesk& desk, const Bytes& bytes, int speed)
    {
        for (const sim::Reader::Output& output : desk.reader().receive(bytes, speed)) {
            if (below(100) < percent_) {
                spoil(output.bytes, bytes);
            } else {
                line_.sendLater(output.bytes, static_cast<int>(output.delay / std::chrono::milliseconds(1)));
            }
        }
    }

    int below(int bound) { return std::uniform_int_distribution<int>(0, bound - 1)(random_); }

private:
    void spoil(Bytes reply, const Bytes& command)
    {
        switch (static_cast<Mischief>(below(static_cast<int>(Mischief::Count)))) {
        case Mischief::Lost:
            return;
        case Mischief::Doubled:
            line_.send(reply);
            break;
        case Mischief::Late:
            line_.sendLater(reply, 3000 + below(200));
            return;
        case Mischief::Damaged:
            reply[static_cast<std::size_t>(below(static_cast<int>(reply.size())))] = byte();
            break;
        case Mischief::Cut:
            reply.resize(static_cast<std::size_t>(below(static_cast<int>(reply.size()))));
            break;
        case Mischief::Noise:
            line_.send({byte(), byte(), byte()});
            break;
        case Mischief::OtherStatus:
            reply = replyFrame(byte(), {});
            break;
        case Mischief::Endless:
            reply.back() = 0x30;
            break;
        case Mischief::Echo:
            reply = command;
            break;
        case Mischief::Count:
            break;
        }
        line_.send(reply);
    }

    std::uint8_t byte() { return static_cast<std::uint8_t>(below(256)); }

    Line& line_;
    std::mt19937 random_;
    int percent_ = 0;
};

class Soak : public ReaderTest {
protected:
    Soak()
    {
        for (const Errand& errand : errands()) {
            desks_.push_back(std::make_unique<SimulatedDesk>(line.port(), errand.profile));
        }
        line.onBytes = [this](const Bytes& bytes, int speed) { bad.receive(*desks_[current_], bytes, speed); };
    }

    std::vector<CallRecord> run(std::size_t errand)
    {
        current_ = errand;
        line.discardUnread(); // between two customers what was late has come and gone
        std::vector<CallRecord> records = errands()[errand].run(*desks_[errand]);
        desks_[errand]->reader().clearHistory();
        line.forget();
        Clock::forgetSleeps();
        return records;
    }

    void restart(std::size_t errand)
    {
        desks_[errand] = std::make_unique<SimulatedDesk>(line.port(), errands()[errand].profile);
    }

    BadReader bad{line};

private:
    std::vector<std::unique_ptr<SimulatedDesk>> desks_;
    std::size_t current_ = 0;
};

// The forms of entries in the service log; an entry that was torn fits none of them.
bool whole(const std::string& log)
{
    static const std::regex entries(
        "(IC_[A-Za-z0-9]+ nPortNo:[^\r]*\r\n|IC_M1[A-Za-z]+ start!|return OK!|DEV_CommCall|begin func "
        "IC_GetInfo[^\r]*\r\n|APDU:[0-9A-F]*!\n|recv:[0-9A-F]*!"
        "|(In|Out)data-{22}[a-zA-Z_]+\n|\n?([0-9A-F]{2} ){0,16}\n|vr_openicc outtime!\n?|vr_openicc "
        "fail!return=-?\\d+\n?"
        "|vrdk_(Pse|Final)AppSelect fail!return=-?\\d+\n?|func IC_GetInfo return -?\\d+\n?|pnUsrInfoLen:[^\r]*\r\n"
        "|pnTxDetailLen:\\d+\r\n|TxDetail:[^\r]*\r\n|\\[ICC/ICC_COMM_VORN:\\d+\\]-?\\d+(\\(-2\\))?|pnARQCLen:\\d+\r\n"
        "|pszARQC:[0-9A-F]*\r\n|icc_tempappdata:[0-9A-F]*\r\n|pnTCLen:\\d+,pszTC:[0-9A-F]*\r\n"
        "|pszScriptResult:[0-9A-F]*\r\n|pszAID:[0-9A-F]*, pszContextId=[0-9A-F]*,pszTransModeInfo=[0-9A-F]*)");
    auto from = log.cbegin();
    for (std::smatch match; from != log.cend(); from = match.suffix().first) {
        if (!std::regex_search(from, log.cend(), match, entries, std::regex_constants::match_continuous)) {
            ADD_FAILURE() << "no entry of the log: " << std::string(from, log.cend()).substr(0, 200);
            return false;
        }
    }
    return true;
}

} // namespace

TEST_F(Soak, WhateverTheReaderDoesEachCallEndsAsDocumentedAndTheNextGoodOneIsGood)
{
    constexpr int kAllGood = 10; // one errand of ten has a good reader
    std::vector<std::vector<CallRecord>> good;
    for (std::size_t errand = 0; errand < errands().size(); ++errand) {
        good.push_back(run(errand));
        ASSERT_EQ(good.back().back().result, VORN_OK) << errands()[errand].name;
        restart(errand);
    }
    forgetLogs();
    int descriptors = 0;
    int wrong = 0;
    for (int calls = 0, round = 0; calls < kCalls; ++round) {
        const auto errand = static_cast<std::size_t>(bad.below(static_cast<int>(errands().size())));
        const bool goodReader = round % kAllGood == 0;
        if (goodReader) {
            restart(errand); // a transaction counter that moved on would make other texts
        }
        bad.misbehave(goodReader ? 0 : 1 + bad.below(40));
        const std::vector<CallRecord> records = run(errand);
        for (const CallRecord& record : records) {
            EXPECT_TRUE(documentedResults(record.call).count(record.result) == 1)
                << "round " << round << ": " << toText(record);
            wrong += record.result != VORN_OK ? 1 : 0;
        }
        if (goodReader) {
            EXPECT_EQ(records.size(), good[errand].size());
            EXPECT_TRUE(records == good[errand])
                << "round " << round << ": " << toText(records.front()) << "\nnot  " << toText(good[errand].front());
            if (errands()[errand].run != nullptr && records.front().call != "IC_M1ActiveCard") {
                EXPECT_TRUE(linkClosed()) << errands()[errand].name;
            }
            descriptors = descriptors == 0 ? openDescriptors() : descriptors;
            EXPECT_EQ(openDescriptors(), descriptors);
        }
        if (round % 100 == 0) {
            EXPECT_TRUE(whole(serviceLog())) << "round " << round;
        }
        forgetLogs();
        calls += static_cast<int>(records.size());
        if (HasFailure()) {
            break;
        }
    }
    EXPECT_GT(wrong, kCalls / 20) << "the failing calls are to be among them";
}
