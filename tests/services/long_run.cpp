// SPDX-License-Identifier: Apache-2.0
// A terminal runs for months: thousands of calls in one process leave nothing behind.
#include "support/card_text.h"
#include "support/scripted_reader.h"
#include "support/service_call.h"

#include "ICC_COMM_VORN.h"

#include <gtest/gtest.h>

#include <malloc.h>

#include <fstream>
#include <string>

using namespace vorn::test;

namespace {

#if defined(__SANITIZE_ADDRESS__)
constexpr bool kOwnHeap = true; // the sanitizer keeps freed blocks: its own leak check looks at the end of the process
#else
constexpr bool kOwnHeap = false;
#endif

constexpr int kMemoryCardCalls = 2000;
constexpr int kDeviceCalls = 500;
constexpr std::size_t kHeapMargin = 16 * 1024; // far below a hundred bytes a call
constexpr long kResidentMarginKb = 2048;

std::size_t heapInUse() { return mallinfo2().uordblks; }

long residentKb()
{
    std::ifstream status("/proc/self/status");
    for (std::string word; status >> word;) {
        if (word == "VmRSS:") {
            long kilobytes = 0;
            status >> kilobytes;
            return kilobytes;
        }
    }
    ADD_FAILURE() << "no VmRSS";
    return 0;
}

class LongRun : public ReaderTest {
protected:
    LongRun()
    {
        line.onBytes = [this](const Bytes& bytes, int) { answer(bytes); };
    }

    // A reader that does whatever it is asked; every seventh frame is refused, every 97th is not answered.
    void answer(const Bytes& bytes)
    {
        if (toHex(bytes) == "1B4B544C564E") {
            line.send({'V', '3', '.', '1', '4'});
        } else if (bytes.front() == 0x02 && ++frames_ % 97 != 0) {
            line.send(replyFrame(frames_ % 7 == 0 ? 0x08 : 0x00, fromHex(repeated("5E", 16))));
        }
    }

    // The test's own records and the log files grow with each call; they are not what is looked at here.
    void forget()
    {
        line.forget();
        Clock::forgetSleeps();
        forgetLogs();
    }

    // Five calls, each of which may fail as the reader pleases.
    int memoryCardRound(int round)
    {
        static const unsigned char key[ICC_M1_KEY_SIZE] = {1, 2, 3, 4, 5, 6};
        unsigned char flag = 0;
        const int results[] = {IC_M1ActiveCard(port(), "", 9600, 1, &flag, uid.text()),
                               IC_M1CheckCardPin(port(), "", 9600, 1, round, "a", key),
                               IC_M1ReadCard(port(), "", 9600, 1, round, block.bytes()),
                               IC_M1WriteCard(port(), "", 9600, 1, round, block.bytes()),
                               IC_M1PowerOff(port(), "", 9600, 1)};
        forget();
        for (const int result : results) {
            EXPECT_TRUE(result == 0 || result == VORN_READER_REFUSED || result == VORN_NO_REPLY) << result;
            refused_ += result != 0 ? 1 : 0;
        }
        return static_cast<int>(sizeof results / sizeof results[0]);
    }

    int deviceCall(int round)
    {
        if (round % 2 == 0) {
            EXPECT_EQ(GetDevInfo(port(), version.text(), date.text(), serial.text()), 0);
        } else {
            int length = 0;
            EXPECT_EQ(DEV_CommCall(R"({"RequestPort":"60100"})", nullptr, reply.text(), &length), 0);
            EXPECT_GT(length, 0);
        }
        forget();
        return 1;
    }

    // Runs `call` until `calls` of them are done and compares before and after.
    template <class Call>
    void expectNothingLeftBehind(int calls, Call call)
    {
        for (int round = 0; round < 50; ++round) {
            call(round); // what is made once is made now
        }
        const int descriptors = openDescriptors();
        const std::size_t heap = heapInUse();
        const long resident = residentKb();
        for (int done = 0, round = 0; done < calls; ++round) {
            done += call(round);
        }
        EXPECT_EQ(openDescriptors(), descriptors);
        EXPECT_TRUE(linkClosed()) << "the tty's own settings did not come back";
        EXPECT_EQ(line.speed(), speed_);
        if (!kOwnHeap) {
            EXPECT_LT(heapInUse(), heap + kHeapMargin);
            EXPECT_LT(residentKb(), resident + kResidentMarginKb);
        }
    }

    Output uid{ICC_ATR_CAPACITY};
    Output block{ICC_M1_BLOCK_SIZE};
    Output version{ICC_DEVICE_TEXT_CAPACITY};
    Output date{1};
    Output serial{1};
    Output reply{ICC_DEVICE_JSON_CAPACITY};
    int refused_ = 0;

private:
    int frames_ = 0;
    const int speed_ = line.speed();
};

} // namespace

TEST_F(LongRun, ThousandsOfMemoryCardCallsLeaveNothingBehind)
{
    expectNothingLeftBehind(kMemoryCardCalls, [this](int round) { return memoryCardRound(round); });
    EXPECT_GT(refused_, kMemoryCardCalls / 20) << "the failing calls are to be among them";
}

TEST_F(LongRun, HundredsOfDeviceCallsLeaveNothingBehind)
{
    expectNothingLeftBehind(kDeviceCalls, [this](int round) { return deviceCall(round); });
}

TEST_F(LongRun, BothByTurnsLeaveNothingBehind)
{
    expectNothingLeftBehind(kMemoryCardCalls + kDeviceCalls,
                            [this](int round) { return memoryCardRound(round) + deviceCall(round); });
}
