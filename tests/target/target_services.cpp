// SPDX-License-Identifier: Apache-2.0
// The service calls through the kernel's own serial driver, or through its USB stack, in real time. Each test belongs
// to a profile of the reader's cards: Debit, Memory, Wallet, Psam.
#include "sim/issuer/issuer.h"
#include "sim/profiles/profile.h"
#include "support/clock.h"
#include "support/timer.h"

#include "ICC_COMM_VORN.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

namespace {

std::string environment(const char* name)
{
    const char* value = std::getenv(name);
    return value == nullptr ? "" : value;
}

std::size_t descriptors()
{
    const std::filesystem::directory_iterator begin("/proc/self/fd");
    return static_cast<std::size_t>(std::distance(begin, std::filesystem::directory_iterator()));
}

struct Output {
    int status;
    std::string text;
};

// The tool on the same port.
Output vorn(const std::string& arguments)
{
    const std::string command = "/bin/vorn " + arguments + " --port " + environment("VORN_PORT") + " 2>&1";
    FILE* pipe = popen(command.c_str(), "r");
    if (pipe == nullptr) {
        return {-1, "no pipe"};
    }
    Output output{0, ""};
    std::array<char, 512> part{};
    for (std::size_t n = 0; (n = std::fread(part.data(), 1, part.size(), pipe)) > 0;) {
        output.text.append(part.data(), n);
    }
    const int status = pclose(pipe);
    output.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return output;
}

// After every call the port is as it was: a tty with its own settings, and no descriptor more.
class OnThePort : public ::testing::Test {
protected:
    OnThePort()
    {
        if (serial()) {
            tty_ = open(("/dev/" + port_).c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK);
            settings_ = settings();
        }
        descriptors_ = descriptors();
    }

    ~OnThePort() override
    {
        EXPECT_EQ(descriptors(), descriptors_);
        if (serial()) {
            const struct termio now = settings();
            EXPECT_EQ(now.c_cflag, settings_.c_cflag);
            EXPECT_EQ(now.c_lflag, settings_.c_lflag);
            EXPECT_EQ(now.c_iflag, settings_.c_iflag);
            EXPECT_EQ(std::memcmp(now.c_cc, settings_.c_cc, sizeof now.c_cc), 0);
            close(tty_);
        }
    }

    bool serial() const { return port_ != "USB"; }
    const char* port() const { return port_.c_str(); }

    // All of the card's data but the transaction counter, which goes up with each reading.
    std::string infoWithoutCounter()
    {
        int cardType = VORN_OPEN_CONTACT;
        int length = 0;
        std::vector<char> record(ICC_USER_INFO_CAPACITY);
        EXPECT_EQ(IC_GetInfo(port(), "", 9600, 10, &cardType, "", "ABCDEFGHIJKL", &length, record.data()), 0);
        std::string text = record.data();
        const std::size_t counter = text.find("H004");
        return counter == std::string::npos ? text : text.erase(counter, 8);
    }

    std::string powerOn(int cardType, int slot)
    {
        std::vector<char> atr(ICC_ATR_CAPACITY);
        EXPECT_EQ(IC_PowerOn(port(), "", 9600, 5, cardType, slot, atr.data()), 0);
        return atr.data();
    }

    std::string apdu(int cardType, int slot, const char* command)
    {
        std::vector<char> response(ICC_RESPONSE_CAPACITY);
        EXPECT_EQ(IC_SendAPDU(port(), "", 9600, 5, cardType, slot, command, response.data()), 0);
        return response.data();
    }

private:
    struct termio settings() const
    {
        struct termio now {};
        EXPECT_EQ(ioctl(tty_, TCGETA, &now), 0);
        return now;
    }

    std::string port_ = environment("VORN_PORT");
    int tty_ = -1;
    struct termio settings_ {};
    std::size_t descriptors_ = 0;
};

using Debit = OnThePort;
using Memory = OnThePort;
using Wallet = OnThePort;
using Psam = OnThePort;

constexpr char kAccount[] = "6229990000710246589";

TEST_F(Debit, InfoHoldsTheCustomersData)
{
    int cardType = VORN_OPEN_EITHER;
    int length = 0;
    std::vector<char> record(ICC_USER_INFO_CAPACITY);
    ASSERT_EQ(IC_GetInfo(port(), "", 9600, 10, &cardType, "", "ABCDEFGHIJKL", &length, record.data()), 0);
    const std::string text = record.data();
    EXPECT_EQ(length, static_cast<int>(text.size()) + 1);
    EXPECT_EQ(cardType, VORN_INTERFACE_CONTACT);
    EXPECT_EQ(text.substr(0, 4 + sizeof kAccount - 1), std::string("A019") + kAccount);
    EXPECT_NE(text.find("C012000000035680"), std::string::npos) << text;
    EXPECT_NE(text.find("E006301231"), std::string::npos) << text;
}

TEST_F(Debit, InfoByAidReadsTheSameAccount)
{
    int cardType = VORN_OPEN_CONTACT;
    int length = 0;
    std::vector<char> record(ICC_USER_INFO_CAPACITY);
    ASSERT_EQ(IC_GetInfo(port(), "", 9600, 10, &cardType, "A000000333", "A", &length, record.data()), 0);
    EXPECT_EQ(std::string(record.data()).substr(4, sizeof kAccount - 1), kAccount);
}

TEST_F(Debit, RawAccessPowersExchangesAndPowersOff)
{
    EXPECT_EQ(powerOn(1, 0), "3BED00008131FE4551494E47484544454249543031A5");
    EXPECT_EQ(apdu(1, 0, "00A404000E315041592E5359532E4444463031").substr(0, 2), "6F");
    EXPECT_EQ(apdu(1, 0, "00A4040005A000000999"), "");
    EXPECT_EQ(IC_PowerOff(port(), "", 9600, 5, 1, 0), 0);
}

TEST_F(Debit, LogHasTheCardsTransactions)
{
    int cardType = VORN_OPEN_EITHER;
    int length = 0;
    std::vector<char> detail(ICC_TX_DETAIL_CAPACITY);
    ASSERT_EQ(IC_GetTranDeta(port(), "", 9600, 10, &cardType, "", &length, detail.data()), 0);
    const std::string text = detail.data();
    EXPECT_EQ(length, static_cast<int>(text.size()));
    std::size_t groups = 0;
    for (std::size_t at = 0; (at = text.find("P012Q012", at)) != std::string::npos; ++at) {
        ++groups;
    }
    EXPECT_EQ(groups, 6U) << text;
}

TEST_F(Debit, SaleIsVerifiedAtBothEnds)
{
    const auto issuer = vorn::sim::issuerOf(vorn::sim::findProfile(environment("VORN_PROFILE")));
    ASSERT_TRUE(issuer);
    constexpr char kTransaction[] = "P012000000012345S006261121U006101112T00200";
    int cardType = VORN_OPEN_EITHER;
    int arqcLength = 0;
    std::vector<char> arqc(ICC_CRYPTOGRAM_CAPACITY);
    std::vector<char> state(ICC_STATE_CAPACITY);
    ASSERT_EQ(IC_GenARQC(port(), "", 9600, 10, &cardType, "", kTransaction, &arqcLength, arqc.data(), state.data()), 0);
    const auto authorised = issuer->authorise(arqc.data());
    ASSERT_TRUE(authorised.request.verified) << authorised.request.why;

    int tcLength = 0;
    std::vector<char> tc(ICC_CRYPTOGRAM_CAPACITY);
    std::vector<char> scriptResult(ICC_SCRIPT_RESULT_CAPACITY);
    ASSERT_EQ(IC_CtlScriptData(port(), "", 9600, 10, &cardType, kTransaction, authorised.text.c_str(), &tcLength,
                               tc.data(), scriptResult.data(), state.data()),
              0);
    const auto completion = issuer->verifyCompletion(tc.data());
    EXPECT_TRUE(completion.verified) << completion.why;
    EXPECT_EQ(std::string(scriptResult.data()), "DF31052001"); // done, and the identifier's last byte
}

TEST_F(Debit, ReaderTellsItsVersionOverTheTtyOnly)
{
    std::vector<char> version(ICC_DEVICE_TEXT_CAPACITY);
    std::vector<char> date(ICC_DEVICE_TEXT_CAPACITY, 'x');
    std::vector<char> serialNumber(ICC_DEVICE_TEXT_CAPACITY, 'x');
    const int result = GetDevInfo(port(), version.data(), date.data(), serialNumber.data());
    if (serial()) {
        EXPECT_EQ(result, 0);
        EXPECT_NE(std::string(version.data()), "");
        EXPECT_EQ(date[0], '\0');
    } else {
        EXPECT_EQ(result, VORN_NO_REPLY);
    }
}

TEST_F(Debit, DescriptionInJson)
{
    std::string request = R"({"RequestPort": "0"})";
    if (serial()) {
        ASSERT_TRUE(symlink(port(), "/dev/COM7") == 0 || errno == EEXIST);
        request = R"({"RequestPort": "7"})";
    }
    std::vector<char> reply(ICC_DEVICE_JSON_CAPACITY);
    int length = 0;
    EXPECT_EQ(DEV_CommCall(request.c_str(), nullptr, reply.data(), &length), 0);
    const std::string text = reply.data();
    EXPECT_EQ(length, static_cast<int>(text.size()));
    EXPECT_NE(text.find("\"DeviceModel\":\t\"DK7710\""), std::string::npos) << text;
    EXPECT_EQ(text.find("\"DeviceVersion\":\t\"\"") == std::string::npos, serial()) << text;
}

TEST_F(Debit, ToolReadsTheCard)
{
    const Output info = vorn("info --json --show");
    EXPECT_EQ(info.status, 0) << info.text;
    EXPECT_NE(info.text.find(kAccount), std::string::npos) << info.text;
}

TEST_F(Debit, ManyCallsInARow)
{
    for (int i = 0; i < 10; ++i) {
        powerOn(1, 0);
        EXPECT_EQ(IC_PowerOff(port(), "", 9600, 5, 1, 0), 0);
    }
}

// Of the library's pauses since the clock was released, those of the line protocol; polls are not among them.
std::vector<unsigned> protocolPauses()
{
    std::vector<unsigned> pauses;
    for (const unsigned sleep : vorn::test::Clock::sleeps()) {
        if (sleep != 1000) {
            pauses.push_back(sleep);
        }
    }
    return pauses;
}

// Here the kernel's serial driver is interrupted, as it opens, drains, sets and writes to the line.
TEST_F(Debit, TwoHundredCallsUnderATimerAreAllGoodAndTheirPausesFull)
{
    if (!serial()) {
        GTEST_SKIP() << "the pauses are those of a tty";
    }
    constexpr int kRounds = 50; // of four calls
    constexpr char kAtr[] = "3BED00008131FE4551494E47484544454249543031A5";
    constexpr char kSelect[] = "00A404000E315041592E5359532E4444463031";
    const std::string expectedInfo = infoWithoutCounter();
    powerOn(1, 0);
    const std::string expectedResponse = apdu(1, 0, kSelect);
    ASSERT_EQ(expectedInfo.substr(4, sizeof kAccount - 1), kAccount);
    ASSERT_EQ(expectedResponse.substr(0, 2), "6F");

    vorn::test::Clock::releaseSlow(50); // emulated on a busy machine, a reply can come later than in three seconds
    {
        const vorn::test::Timer timer;
        for (int i = 0; i < kRounds && !HasFailure(); ++i) {
            EXPECT_EQ(infoWithoutCounter(), expectedInfo) << i;
            EXPECT_EQ(powerOn(1, 0), kAtr) << i;
            EXPECT_EQ(apdu(1, 0, kSelect), expectedResponse) << i;
            EXPECT_EQ(IC_PowerOff(port(), "", 9600, 5, 1, 0), 0) << i;
        }
    }
    std::vector<unsigned> expectedPauses;
    for (int i = 0; i < 4 * kRounds; ++i) {
        expectedPauses.insert(expectedPauses.end(), {12000, 7000, 30000, 12000, 3000});
    }
    EXPECT_EQ(protocolPauses(), expectedPauses);
    EXPECT_EQ(vorn::test::Clock::cutShort(), 0U);
    EXPECT_GT(vorn::test::Clock::interruptions(), unsigned{4 * kRounds});
}

TEST_F(Debit, NoSuchPortAndNoSuchSlot)
{
    std::vector<char> atr(ICC_ATR_CAPACITY);
    EXPECT_EQ(IC_PowerOn("ttyNONE", "", 9600, 5, 1, 0, atr.data()), VORN_OPEN_FAILED);
    EXPECT_EQ(IC_PowerOn(port(), "", 9600, 5, 2, 5, atr.data()), VORN_BAD_ARGUMENT);
}

TEST_F(Debit, EmptyPsamSlotSaysNoCard)
{
    std::vector<char> atr(ICC_ATR_CAPACITY);
    EXPECT_EQ(IC_PowerOn(port(), "", 9600, 5, 2, 1, atr.data()), VORN_READER_NO_CARD);
}

TEST_F(Psam, AtrApduAndStatusWord)
{
    EXPECT_EQ(powerOn(2, 1), "3B6D000080318065000000000000100001");
    EXPECT_EQ(apdu(2, 1, "00B0950000"), "801234567890000000019000");
    EXPECT_EQ(apdu(2, 1, "00A4040002AABB"), "6A82");
    EXPECT_EQ(powerOn(2, 2), "3B6800000102030405060708");
    EXPECT_EQ(apdu(2, 2, "00A40000023F00"), "6F0484023F009000");
    EXPECT_EQ(IC_PowerOff(port(), "", 9600, 5, 2, 2), 0);
    EXPECT_EQ(IC_PowerOff(port(), "", 9600, 5, 2, 1), 0);
}

TEST_F(Psam, NoUserCardIsATimeOut)
{
    std::vector<char> atr(ICC_ATR_CAPACITY);
    EXPECT_EQ(IC_PowerOn(port(), "", 9600, 1, 1, 0, atr.data()), VORN_NO_CARD_IN_TIME);
}

TEST_F(Memory, WholeCycle)
{
    const unsigned char key[] = {0xA0, 0xA1, 0xA2, 0xA3, 0xA4, 0xA5};
    std::array<unsigned char, ICC_M1_BLOCK_SIZE> before{};
    std::array<unsigned char, ICC_M1_BLOCK_SIZE> block{};
    unsigned char flag = 0;
    std::vector<char> uid(ICC_ATR_CAPACITY);
    ASSERT_EQ(IC_M1ActiveCard(port(), "", 9600, 5, &flag, uid.data()), 0);
    EXPECT_EQ(flag, 1);
    EXPECT_GE(std::strlen(uid.data()), 8U);
    ASSERT_EQ(IC_M1CheckCardPin(port(), "", 9600, 5, 0, "A", key), 0);
    EXPECT_EQ(IC_M1ReadCard(port(), "", 9600, 5, 0, before.data()), 0);
    EXPECT_EQ(IC_M1ReadCard(port(), "", 9600, 5, 0, block.data()), 0);
    EXPECT_EQ(before, block);

    const unsigned char factoryKey[] = {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF};
    const std::array<unsigned char, ICC_M1_BLOCK_SIZE> written = {0x00, 0x02, 0x03, 0x1B, 0xFF, 0x80, 0x7F, 0x0A,
                                                                  0x0D, 0x11, 0x13, 0x20, 0x30, 0x3F, 0xAA, 0x55};
    ASSERT_EQ(IC_M1CheckCardPin(port(), "", 9600, 5, 20, "A", factoryKey), 0);
    EXPECT_EQ(IC_M1WriteCard(port(), "", 9600, 5, 20, written.data()), 0);
    EXPECT_EQ(IC_M1ReadCard(port(), "", 9600, 5, 20, block.data()), 0);
    EXPECT_EQ(block, written);
    EXPECT_EQ(IC_M1PowerOff(port(), "", 9600, 5), 0);
}

TEST_F(Memory, WrongKeyIsRefusedAndClosesTheLink)
{
    const unsigned char key[] = {0x11, 0x22, 0x33, 0x44, 0x55, 0x66};
    unsigned char flag = 0;
    std::vector<char> uid(ICC_ATR_CAPACITY);
    ASSERT_EQ(IC_M1ActiveCard(port(), "", 9600, 5, &flag, uid.data()), 0);
    EXPECT_LT(IC_M1CheckCardPin(port(), "", 9600, 5, 4, "A", key), 0);
    EXPECT_EQ(IC_M1PowerOff(port(), "", 9600, 5), 0);
}

TEST_F(Memory, ToolDumpsTheCard)
{
    const Output dump = vorn("m1 dump --key A0A1A2A3A4A5 --key B0B1B2B3B4B5 --key FFFFFFFFFFFF --key-type AB");
    EXPECT_NE(dump.text.find("EMPLOYEE 004711"), std::string::npos) << dump.text;
    EXPECT_EQ(dump.status, 15) << dump.text; // this card has blocks that no key opens
}

TEST_F(Wallet, AllThreeTexts)
{
    std::vector<char> contextId(ICC_CONTEXT_ID_CAPACITY);
    std::vector<char> mode(ICC_WALLET_TEXT_CAPACITY);
    std::vector<char> aid(ICC_WALLET_TEXT_CAPACITY);
    ASSERT_EQ(IC_GetZzhHardWalletInfo(port(), "", 9600, 5, contextId.data(), mode.data(), aid.data()), 0);
    EXPECT_STREQ(contextId.data(), "3156201908770042");
    EXPECT_STREQ(mode.data(), "0102");
    EXPECT_STREQ(aid.data(), "A00000087249");
}

TEST_F(Wallet, ToolShowsIt)
{
    const Output wallet = vorn("wallet");
    EXPECT_EQ(wallet.status, 0) << wallet.text;
    EXPECT_NE(wallet.text.find("A00000087249"), std::string::npos) << wallet.text;
}

} // namespace
