// SPDX-License-Identifier: Apache-2.0
// The serial half of the link, over a real tty.
#include "support/scripted_reader.h"
#include "support/tty_calls.h"

#include "ICC_COMM_VORN.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <string>

using namespace vorn::test;

namespace {

constexpr unsigned short kMade8N1 = 0x0880 | 0x30; // CREAD, CLOCAL, CS8

struct SpeedRow {
    int speed;
    unsigned short code;
};
const SpeedRow kSpeeds[] = {{1200, 0x0009},  {2400, 0x000B},  {4800, 0x000C},  {9600, 0x000D},
                            {19200, 0x000E}, {38400, 0x000F}, {115200, 0x1002}};

Bytes repeated(std::uint8_t byte, std::size_t count) { return Bytes(count, byte); }

Bytes joined(std::initializer_list<Bytes> parts)
{
    Bytes all;
    for (const Bytes& part : parts) {
        all.insert(all.end(), part.begin(), part.end());
    }
    return all;
}

bool isOpen(int descriptor) { return fcntl(descriptor, F_GETFD) != -1; }

bool sameSettings(const struct termio& a, const struct termio& b)
{
    return a.c_iflag == b.c_iflag && a.c_oflag == b.c_oflag && a.c_cflag == b.c_cflag && a.c_lflag == b.c_lflag &&
           a.c_line == b.c_line && std::memcmp(a.c_cc, b.c_cc, sizeof a.c_cc) == 0;
}

class SerialLink : public ReaderTest {
protected:
    SerialLink()
    {
        line.onBytes = {}; // these tests look at the bytes themselves
        ttyCalls() = TtyCalls{};
        m_portmode = 0;
    }

    ~SerialLink() override
    {
        ttyCalls() = TtyCalls{};
        if (handle >= 0 && isOpen(handle)) {
            closeDev(handle);
        }
        OpenDev(0, nullptr); // releases what a failed opening left
    }

    int openTail(const std::string& tail) { return openParam(line.param(tail)); }

    int openParam(std::string param)
    {
        ttyCalls().requests.clear();
        ttyCalls().applied.clear();
        handle = OpenDev(0, param.data());
        return handle;
    }

    // Several writes may come out of the tty one by one.
    void takeAllSent()
    {
        for (std::size_t before = std::size_t(-1); before != line.sent().size();) {
            before = line.sent().size();
            line.serve();
        }
    }

    // What ReadBytes_Ex returns, and what it stored.
    int readFrame(int max, int timeoutS, std::uint8_t start = 0x02, std::uint8_t end = 0x03)
    {
        got.assign(static_cast<std::size_t>(max) + 2, 0xEE);
        const int count = ReadBytes_Ex(handle, got.data(), max, start, end, timeoutS);
        EXPECT_EQ(got.back(), 0xEE) << "a byte was written behind max + 1";
        got.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
        return count;
    }

    int readUntilSilence(int timeoutS)
    {
        got.assign(VORN_READSTR_CAPACITY + 1, 0xEE);
        const int count = _VRDK_Readstr(handle, got.data(), timeoutS);
        EXPECT_EQ(got.back(), 0xEE) << "a byte was written behind the documented capacity";
        got.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
        return count;
    }

    int readIdFrame(int timeoutS)
    {
        got.assign(VORN_ID2_CAPACITY, 0xEE);
        const int count = _VRDK_ID2_Readstr(handle, got.data(), timeoutS);
        got.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
        return count;
    }

    int handle = -1;
    Bytes got;
};

// ---------------------------------------------------------------- opening

TEST_F(SerialLink, OpensReadWriteAndWithoutBlocking)
{
    ASSERT_GE(openTail(":9600,N,8,1"), 0);
    const int flags = fcntl(handle, F_GETFL);
    EXPECT_EQ(flags & O_ACCMODE, O_RDWR);
    EXPECT_NE(flags & O_NONBLOCK, 0);
}

TEST_F(SerialLink, OpeningWritesNothingAndSleepsNot)
{
    ASSERT_GE(openTail(":9600,N,8,1"), 0);
    line.serve();
    EXPECT_TRUE(line.sent().empty());
    EXPECT_TRUE(Clock::sleeps().empty());
}

TEST_F(SerialLink, OpeningReadsTheSettingsTwiceAndAppliesThemOnceAfterDrainAndFlush)
{
    ASSERT_GE(openTail(":9600,N,8,1"), 0);
    EXPECT_EQ(ttyCalls().requests, (std::vector<unsigned long>{TCGETA, TCGETA, TCSETAF}));
}

// From any settings: the word masks, and what is kept as it was.
struct Start {
    const char* name;
    unsigned short input, output, local;
    unsigned char vmin, vtime;
};
const Start kStarts[] = {
    {"everything on", 0x7FFF, 0x0005, 0xBFFF, 7, 9},        {"everything off", 0x0000, 0x0000, 0x0000, 0, 0},
    {"a login line", 0x4500, 0x0005, 0x8A3B, 1, 0},         {"only what is to go", 0x0532, 0x0004, 0x001B, 255, 255},
    {"only what is to stay", 0x7ACD, 0x0001, 0xBFE4, 1, 1},
};

TEST_F(SerialLink, OpeningMasksTheModesAndKeepsTheRest)
{
    for (const Start& start : kStarts) {
        SCOPED_TRACE(start.name);
        struct termio settings = line.settings();
        settings.c_iflag = start.input;
        settings.c_oflag = start.output;
        settings.c_lflag = start.local;
        settings.c_cc[VMIN] = start.vmin;
        settings.c_cc[VTIME] = start.vtime;
        settings.c_cc[VINTR] = 0x11;
        settings.c_cc[VQUIT] = 0x22;
        settings.c_cc[VERASE] = 0x33;
        settings.c_cc[VKILL] = 0x44;
        settings.c_cc[VEOF] = 0x55;
        line.setSettings(settings);
        const struct termio before = line.settings();
        ASSERT_EQ(before.c_iflag, start.input);
        ASSERT_EQ(before.c_oflag, start.output);
        ASSERT_EQ(before.c_lflag, start.local);

        ASSERT_GE(openTail(":4800,N,8,1"), 0);
        ASSERT_EQ(ttyCalls().applied.size(), 1u);
        const struct termio& applied = ttyCalls().applied[0];
        EXPECT_EQ(applied.c_iflag, start.input & 0xFACD);
        EXPECT_EQ(applied.c_oflag, start.output);
        EXPECT_EQ(applied.c_lflag, start.local & 0xFFE4);
        EXPECT_EQ(applied.c_cflag, 0x0880 | 0x30 | 0x000C);
        EXPECT_EQ(applied.c_line, before.c_line);
        EXPECT_EQ(applied.c_cc[VMIN], 0);
        EXPECT_EQ(applied.c_cc[VTIME], 0);
        EXPECT_EQ(applied.c_cc[VINTR], 0x11);
        EXPECT_EQ(applied.c_cc[VQUIT], 0x22);
        EXPECT_EQ(applied.c_cc[VERASE], 0x33);
        EXPECT_EQ(applied.c_cc[VKILL], 0x44);
        EXPECT_EQ(applied.c_cc[VEOF], 0x55);
        EXPECT_TRUE(sameSettings(line.settings(), applied));

        closeDev(handle);
        EXPECT_TRUE(sameSettings(line.settings(), before));
    }
}

TEST_F(SerialLink, EachSpeedOfTheListOpens)
{
    for (const SpeedRow& row : kSpeeds) {
        SCOPED_TRACE(row.speed);
        ASSERT_GE(openTail(":" + std::to_string(row.speed) + ",N,8,1"), 0);
        ASSERT_EQ(ttyCalls().applied.size(), 1u);
        EXPECT_EQ(ttyCalls().applied[0].c_cflag, kMade8N1 | row.code);
        EXPECT_EQ(line.speed(), row.speed);
        closeDev(handle);
    }
}

TEST_F(SerialLink, WhatFollowsTheCommaIsNotRead)
{
    for (const char* tail : {":9600,E,7,2", ":9600,O,5,1", ":9600,", ":9600,,,", ":9600,57600", ":9600,E:19200,7"}) {
        SCOPED_TRACE(tail);
        ASSERT_GE(openTail(tail), 0);
        ASSERT_EQ(ttyCalls().applied.size(), 1u);
        EXPECT_EQ(ttyCalls().applied[0].c_cflag, kMade8N1 | 0x000D);
        closeDev(handle);
    }
}

TEST_F(SerialLink, TheSpeedIsReadAsANumberAtTheBeginningOfItsText)
{
    for (const char* tail : {": 19200,N", ":19200baud,N", ":+19200,N", ":019200,N", ":19200.5,N"}) {
        SCOPED_TRACE(tail);
        ASSERT_GE(openTail(tail), 0);
        EXPECT_EQ(line.speed(), 19200);
        closeDev(handle);
    }
}

TEST_F(SerialLink, OpeningATtyIsNotedAsSerial)
{
    m_portmode = 1; // a USB link that was never closed
    ASSERT_GE(openTail(":9600,N,8,1"), 0);
    EXPECT_EQ(m_portmode, 0);
}

TEST_F(SerialLink, TheParameterIsLeftAsItWas)
{
    std::string param = line.param(":2400,N,8,1");
    const std::string before = param;
    handle = OpenDev(0, param.data());
    ASSERT_GE(handle, 0);
    EXPECT_EQ(param, before);
}

TEST_F(SerialLink, AParameterWithoutAColonOpensNothing)
{
    const int descriptors = openDescriptors();
    EXPECT_EQ(OpenDev(0, nullptr), -1);
    EXPECT_EQ(openParam(""), -1);
    EXPECT_EQ(openParam(line.port()), -1);
    EXPECT_EQ(openParam(line.port() + ",9600"), -1);
    EXPECT_EQ(openParam("VID_3A5C&PID_7E21"), -1);
    EXPECT_EQ(openDescriptors(), descriptors);
    EXPECT_TRUE(ttyCalls().requests.empty());
}

TEST_F(SerialLink, ATtyThatIsNotThereIsRefused)
{
    const int descriptors = openDescriptors();
    EXPECT_EQ(openParam("no-such-tty:9600,N,8,1"), -1);
    EXPECT_EQ(openParam(":9600,N,8,1"), -1); // /dev itself
    EXPECT_EQ(openParam(std::string(300, 'x') + ":9600,N,8,1"), -1);
    EXPECT_EQ(openDescriptors(), descriptors);
}

TEST_F(SerialLink, AParameterWithoutACommaIsRefusedAndItsDescriptorClosed)
{
    const int descriptors = openDescriptors();
    const struct termio before = line.settings();
    EXPECT_EQ(openTail(":9600"), -1);
    EXPECT_EQ(openTail(":"), -1);
    EXPECT_EQ(openDescriptors(), descriptors);
    EXPECT_TRUE(sameSettings(line.settings(), before));
}

TEST_F(SerialLink, ASpeedThatIsNotInTheListIsRefusedAndItsDescriptorStaysOpen)
{
    const int descriptors = openDescriptors();
    const struct termio before = line.settings();
    for (const char* tail : {":57600,N,8,1", ":300,N", ":600,N", ":1800,N", ":9601,N", ":230400,N", ":0,N", ":,N",
                             ":-9600,N", ":fast,N", ":x9600,N"}) {
        SCOPED_TRACE(tail);
        EXPECT_EQ(openTail(tail), -1);
        EXPECT_EQ(openDescriptors(), descriptors + 1);
        EXPECT_TRUE(ttyCalls().applied.empty());
        EXPECT_TRUE(sameSettings(line.settings(), before));
    }
}

TEST_F(SerialLink, ADeviceWithoutSettingsIsRefusedAndItsDescriptorStaysOpen)
{
    const int descriptors = openDescriptors();
    EXPECT_EQ(openParam("null:9600,N,8,1"), -1);
    EXPECT_EQ(openDescriptors(), descriptors + 1);
}

TEST_F(SerialLink, EitherReadingOfTheSettingsMayFail)
{
    for (const int refused : {1, 2}) {
        SCOPED_TRACE(refused);
        EXPECT_EQ(openParam(":"), -1); // releases what the round before left
        const int descriptors = openDescriptors();
        ttyCalls().refuseGet = refused;
        EXPECT_EQ(openTail(":9600,N,8,1"), -1);
        EXPECT_EQ(ttyCalls().refuseGet, 0);
        EXPECT_TRUE(ttyCalls().applied.empty());
        EXPECT_EQ(openDescriptors(), descriptors + 1);
    }
}

TEST_F(SerialLink, RefusedSettingsCloseTheDescriptor)
{
    const int descriptors = openDescriptors();
    const struct termio before = line.settings();
    ttyCalls().refuseSet = true;
    EXPECT_EQ(openTail(":9600,N,8,1"), -1);
    EXPECT_EQ(openDescriptors(), descriptors);
    EXPECT_TRUE(sameSettings(line.settings(), before));
}

// ---------------------------------------------------------------- changing the speed

TEST_F(SerialLink, SetBaudAppliesEachSpeedOfTheList)
{
    ASSERT_GE(openTail(":9600,N,8,1"), 0);
    for (const SpeedRow& row : kSpeeds) {
        SCOPED_TRACE(row.speed);
        ttyCalls().requests.clear();
        ttyCalls().applied.clear();
        EXPECT_EQ(Set_baud(handle, row.speed), 0);
        ASSERT_EQ(ttyCalls().requests, (std::vector<unsigned long>{TCSETAF}));
        EXPECT_EQ(ttyCalls().applied[0].c_cflag, kMade8N1 | row.code);
        EXPECT_EQ(line.speed(), row.speed);
    }
}

TEST_F(SerialLink, SetBaudLeavesTheOtherWordsAsOpeningMadeThem)
{
    struct termio settings = line.settings();
    settings.c_iflag = 0x1FFF;
    settings.c_oflag = 0x0000;
    settings.c_lflag = 0x0FFF;
    settings.c_cc[VMIN] = 4;
    settings.c_cc[VTIME] = 5;
    settings.c_cc[VKILL] = 0x66;
    line.setSettings(settings);
    ASSERT_GE(openTail(":9600,N,8,1"), 0);
    EXPECT_EQ(Set_baud(handle, 115200), 0);
    ASSERT_EQ(ttyCalls().applied.size(), 2u);
    struct termio expected = ttyCalls().applied[0];
    EXPECT_EQ(expected.c_iflag, 0x1FFF & 0xFACD);
    expected.c_cflag = 0x0880 | 0x30 | 0x1002;
    EXPECT_TRUE(sameSettings(ttyCalls().applied[1], expected));
}

TEST_F(SerialLink, SetBaudRefusesAnUnknownSpeedAndAppliesNothing)
{
    ASSERT_GE(openTail(":9600,N,8,1"), 0);
    ttyCalls().requests.clear();
    for (const int speed : {0, -1, 300, 9599, 57600, 38401, 230400}) {
        EXPECT_EQ(Set_baud(handle, speed), -1) << speed;
    }
    EXPECT_TRUE(ttyCalls().requests.empty());
    EXPECT_TRUE(isOpen(handle));
    EXPECT_EQ(line.speed(), 9600);
    EXPECT_EQ(Set_baud(handle, 2400), 0); // and the link still works
    EXPECT_EQ(line.speed(), 2400);
}

TEST_F(SerialLink, SetBaudClosesTheDescriptorWhenTheSettingsAreRefused)
{
    ASSERT_GE(openTail(":9600,N,8,1"), 0);
    ttyCalls().refuseSet = true;
    EXPECT_EQ(Set_baud(handle, 38400), -1);
    EXPECT_FALSE(isOpen(handle));
    EXPECT_EQ(line.speed(), 9600);
}

// ---------------------------------------------------------------- closing

TEST_F(SerialLink, ClosingPutsTheSettingsBackAndSaysNothing)
{
    struct termio settings = line.settings();
    settings.c_iflag = 0x0321;
    settings.c_oflag = 0x0001;
    settings.c_lflag = 0x0A5A;
    settings.c_cflag = static_cast<unsigned short>(settings.c_cflag & ~0x100F) | 0x000B; // 2400
    settings.c_cc[VMIN] = 3;
    settings.c_cc[VTIME] = 8;
    line.setSettings(settings);
    const struct termio before = line.settings();
    ASSERT_GE(openTail(":9600,N,8,1"), 0);
    ASSERT_EQ(Set_baud(handle, 38400), 0);
    ttyCalls().requests.clear();
    EXPECT_EQ(standardErrorOf([&] { closeDev(handle); }), "");
    EXPECT_EQ(ttyCalls().requests, (std::vector<unsigned long>{TCSETAF}));
    EXPECT_FALSE(isOpen(handle));
    EXPECT_TRUE(sameSettings(line.settings(), before));
    EXPECT_EQ(line.speed(), 2400);
    EXPECT_EQ(m_portmode, 0);
}

TEST_F(SerialLink, SettingsThatCannotBePutBackAreReportedAndTheDescriptorIsClosedAllTheSame)
{
    ASSERT_GE(openTail(":9600,N,8,1"), 0);
    ttyCalls().refuseSet = true;
    const std::string expected = "ioctl:: " + std::string(std::strerror(EPERM)) + "\n";
    EXPECT_EQ(standardErrorOf([&] { closeDev(handle); }), expected);
    EXPECT_FALSE(isOpen(handle));
}

// The host's standard error is a pipe that nobody reads, or a file that may not grow.
TEST_F(SerialLink, AReportThatCannotBeWrittenEndsNoHost)
{
    const auto host = [&](int console) {
        std::signal(SIGPIPE, SIG_DFL);
        std::signal(SIGXFSZ, SIG_DFL);
        ASSERT_GE(openTail(":9600,N,8,1"), 0);
        ttyCalls().refuseSet = true;
        dup2(console, STDERR_FILENO);
        const rlimit nothing = {0, 0};
        setrlimit(RLIMIT_FSIZE, &nothing);
        closeDev(handle);
        std::_Exit(isOpen(handle) ? 1 : 0);
    };
    int ends[2] = {-1, -1};
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    close(ends[0]);
    EXPECT_EXIT(host(ends[1]), ::testing::ExitedWithCode(0), "");
    close(ends[1]);
    const int file = open(".", O_TMPFILE | O_RDWR | O_CLOEXEC, 0600);
    ASSERT_GE(file, 0);
    EXPECT_EXIT(host(file), ::testing::ExitedWithCode(0), "");
    close(file);
}

TEST_F(SerialLink, ClosingALineThatWasHungUpIsReported)
{
    ASSERT_GE(openTail(":9600,N,8,1"), 0);
    line.hangUp();
    const std::string expected = "ioctl:: " + std::string(std::strerror(EIO)) + "\n";
    EXPECT_EQ(standardErrorOf([&] { closeDev(handle); }), expected);
    EXPECT_FALSE(isOpen(handle));
}

// ---------------------------------------------------------------- writing

TEST_F(SerialLink, WritesGoOutInPiecesOf128Bytes)
{
    const struct {
        int size;
        std::vector<std::size_t> pieces;
    } rows[] = {
        {1, {1}},
        {127, {127}},
        {128, {128}},
        {129, {128, 1}},
        {255, {128, 127}},
        {256, {128, 128}},
        {257, {128, 128, 1}},
        {384, {128, 128, 128}},
        {500, {128, 128, 128, 116}},
    };
    ASSERT_GE(openTail(":9600,N,8,1"), 0);
    ttyCalls().watched = handle;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.size);
        Bytes bytes;
        for (int i = 0; i < row.size; ++i) {
            bytes.push_back(static_cast<std::uint8_t>('!' + i % 89));
        }
        ttyCalls().pieces.clear();
        line.forget();
        EXPECT_EQ(WriteBytes(handle, bytes.data(), row.size), row.size);
        EXPECT_EQ(ttyCalls().pieces, row.pieces);
        takeAllSent();
        EXPECT_EQ(line.sent(), bytes);
    }
}

TEST_F(SerialLink, ALineThatTakesAPartGetsTheRest)
{
    ASSERT_GE(openTail(":9600,N,8,1"), 0);
    ttyCalls().watched = handle;
    ttyCalls().takenOfPiece = 100;
    const Bytes bytes = joined({repeated(0x41, 128), repeated(0x42, 128), repeated(0x43, 5)});
    EXPECT_EQ(WriteBytes(handle, bytes.data(), 261), 261);
    EXPECT_EQ(ttyCalls().pieces, sizes({128, 28, 128, 28, 5}));
    takeAllSent();
    EXPECT_EQ(line.sent(), bytes);
}

TEST_F(SerialLink, ALineThatTakesNoneOfTheBytesIsGivenUp)
{
    ASSERT_GE(openTail(":9600,N,8,1"), 0);
    ttyCalls().watched = handle;
    ttyCalls().takenOfPiece = 0;
    EXPECT_EQ(WriteBytes(handle, "ABC", 3), 3);
    EXPECT_GT(ttyCalls().pieces.size(), 1u);
    ttyCalls().takenOfPiece = 3;
    ttyCalls().pieces.clear();
    EXPECT_EQ(WriteBytes(handle, "DEF", 3), 3);
    EXPECT_EQ(ttyCalls().pieces, sizes({3}));
    takeAllSent();
    EXPECT_EQ(line.sent(), Bytes({'D', 'E', 'F'}));
}

// A caller's seconds are counted in milliseconds, as far as these can be counted.
TEST_F(SerialLink, SecondsMayBeNoneAndMoreThanMillisecondsCanCount)
{
    ASSERT_GE(openTail(":9600,N,8,1"), 0);
    line.sendAndArrive({0x02, 0x41, 0x03});
    for (const int seconds : {0, -1, -2147483647}) {
        SCOPED_TRACE(seconds);
        EXPECT_EQ(readFrame(10, seconds), -1);
        EXPECT_EQ(readUntilSilence(seconds), -1);
        EXPECT_EQ(readIdFrame(seconds), -1);
    }
    EXPECT_TRUE(Clock::sleeps().empty());
    EXPECT_EQ(readFrame(10, 2147483647), 3);
    line.sendLater({0x02, 0x42, 0x03}, 5000); // the product of the seconds with 1000 in 32 bits is 704 milliseconds
    EXPECT_EQ(readFrame(10, 4294968), 3);
}

TEST_F(SerialLink, ALineWithoutRoomIsAskedAgain)
{
    ASSERT_GE(openTail(":9600,N,8,1"), 0);
    ttyCalls().watched = handle;
    ttyCalls().full = 3;
    EXPECT_EQ(WriteBytes(handle, "ABC", 3), 3);
    EXPECT_EQ(ttyCalls().pieces, sizes({3, 3, 3, 3}));
    EXPECT_EQ(Clock::sleeps(), std::vector<unsigned>(3, 1000));
    takeAllSent();
    EXPECT_EQ(toHex(line.sent()), "414243");
}

TEST_F(SerialLink, WritingTellsTheCountAlsoWhenTheLineTakesLess)
{
    ASSERT_GE(openTail(":9600,N,8,1"), 0);
    ttyCalls().watched = handle;
    ttyCalls().stuck = true;
    const Bytes bytes = repeated(0x41, 300);
    EXPECT_EQ(WriteBytes(handle, bytes.data(), 300), 300);
    EXPECT_EQ(ttyCalls().pieces, std::vector<std::size_t>(ttyCalls().pieces.size(), 128)); // nothing behind the first
    EXPECT_EQ(Clock::sleeps(), std::vector<unsigned>(1000, 1000));
    ttyCalls().stuck = false;
}

TEST_F(SerialLink, WritingNothingWritesNothing)
{
    ASSERT_GE(openTail(":9600,N,8,1"), 0);
    ttyCalls().watched = handle;
    EXPECT_EQ(WriteBytes(handle, "A", 0), 0);
    EXPECT_EQ(ttyCalls().pieces, sizes({0}));
    EXPECT_EQ(WriteBytes(handle, "A", -1), -1);
    EXPECT_EQ(WriteBytes(handle, nullptr, 5), 5);
    EXPECT_EQ(ttyCalls().pieces, sizes({0}));
    takeAllSent();
    EXPECT_TRUE(line.sent().empty());
}

TEST_F(SerialLink, WritingToNoLinkTellsTheCountToo)
{
    const Bytes bytes = repeated(0x31, 200);
    EXPECT_EQ(WriteBytes(-1, bytes.data(), 200), 200);
}

// ---------------------------------------------------------------- one byte

TEST_F(SerialLink, AByteThatIsThereIsReadAtOnce)
{
    ASSERT_GE(openTail(":9600,N,8,1"), 0);
    line.send(fromHex("00 03 0A 0D 11 13 1A 7F 80 FF"));
    for (const int byte : {0x00, 0x03, 0x0A, 0x0D, 0x11, 0x13, 0x1A, 0x7F, 0x80, 0xFF}) {
        EXPECT_EQ(comm_read_adata(handle, 1), byte);
    }
    EXPECT_TRUE(Clock::sleeps().empty());
}

TEST_F(SerialLink, SilenceIsPolledEveryMillisecondUntilTheTimeIsUp)
{
    ASSERT_GE(openTail(":9600,N,8,1"), 0);
    EXPECT_EQ(comm_read_adata(handle, 5), -1001);
    EXPECT_EQ(Clock::sleeps(), std::vector<unsigned>(5, 1000));
}

TEST_F(SerialLink, AByteWithinTheTimeoutEndsTheWait)
{
    ASSERT_GE(openTail(":9600,N,8,1"), 0);
    line.sendLater(fromHex("5A"), 3); // during the fourth millisecond
    EXPECT_EQ(comm_read_adata(handle, 5), 0x5A);
    EXPECT_EQ(Clock::sleeps(), std::vector<unsigned>(4, 1000));
}

TEST_F(SerialLink, AByteOfTheLastMillisecondIsTooLate)
{
    ASSERT_GE(openTail(":9600,N,8,1"), 0);
    line.sendLater(fromHex("5A"), 4); // during the fifth: the clock is looked at before the line is
    EXPECT_EQ(comm_read_adata(handle, 5), -1001);
    EXPECT_EQ(comm_read_adata(handle, 1), 0x5A);
}

TEST_F(SerialLink, NoTimeMeansNoTry)
{
    ASSERT_GE(openTail(":9600,N,8,1"), 0);
    line.send(fromHex("5A"));
    EXPECT_EQ(comm_read_adata(handle, 0), -1001);
    EXPECT_EQ(comm_read_adata(handle, -3), -1001);
    EXPECT_TRUE(Clock::sleeps().empty());
    EXPECT_EQ(comm_read_adata(handle, 1), 0x5A);
}

TEST_F(SerialLink, TimeIsTakenInWholeMilliseconds)
{
    Clock::advance(700);
    ASSERT_GE(openTail(":9600,N,8,1"), 0);
    Clock::onSleep([] { Clock::advance(250); });
    // Readings at .700, 1.950, 3.200, 4.450, 5.700 and 6.950 ms: 0, 1, 3, 4, 5 and 6 milliseconds.
    EXPECT_EQ(comm_read_adata(handle, 6), -1001);
    EXPECT_EQ(Clock::sleeps().size(), 5u);
}

// ---------------------------------------------------------------- a frame

TEST_F(SerialLink, AFrameIsReadFromItsStartToItsEnd)
{
    ASSERT_GE(openTail(":9600,N,8,1"), 0);
    line.send(fromHex("02 31 32 33 03 34 35"));
    EXPECT_EQ(readFrame(1000, 3), 5);
    EXPECT_EQ(toHex(got), "0231323303");
    EXPECT_EQ(comm_read_adata(handle, 1), 0x34); // what follows waits for the next read
}

TEST_F(SerialLink, NoiseBeforeTheStartIsDropped)
{
    ASSERT_GE(openTail(":9600,N,8,1"), 0);
    line.send(fromHex("00 FF 03 31 03 7E 02 3F 03"));
    EXPECT_EQ(readFrame(1000, 3), 3);
    EXPECT_EQ(toHex(got), "023F03");
}

TEST_F(SerialLink, AnyNumberOfNoiseBytesIsDropped)
{
    ASSERT_GE(openTail(":9600,N,8,1"), 0);
    line.send(joined({repeated(0x55, 1500), fromHex("02 30 03")}));
    EXPECT_EQ(readFrame(10, 1), 3);
}

TEST_F(SerialLink, AStartByteInsideAFrameIsStored)
{
    ASSERT_GE(openTail(":9600,N,8,1"), 0);
    line.send(fromHex("02 02 31 02 03"));
    EXPECT_EQ(readFrame(1000, 3), 5);
    EXPECT_EQ(toHex(got), "0202310203");
}

TEST_F(SerialLink, StartAndEndAreTheCallersChoice)
{
    ASSERT_GE(openTail(":9600,N,8,1"), 0);
    line.send(fromHex("02 31 03 F0 02 03 0D 7E 7E 31 7E"));
    EXPECT_EQ(readFrame(1000, 3, 0xF0, 0x0D), 4);
    EXPECT_EQ(toHex(got), "F002030D");
    EXPECT_EQ(readFrame(1000, 3, 0x7E, 0x7E), 2);
    EXPECT_EQ(toHex(got), "7E7E");
}

TEST_F(SerialLink, TwoFramesAreReadOneAfterTheOther)
{
    ASSERT_GE(openTail(":9600,N,8,1"), 0);
    line.send(fromHex("02 31 03 02 32 33 03"));
    EXPECT_EQ(readFrame(1000, 3), 3);
    EXPECT_EQ(readFrame(1000, 3), 4);
    EXPECT_EQ(toHex(got), "02323303");
}

TEST_F(SerialLink, NoStartWithinTheTimeoutGivesUp)
{
    ASSERT_GE(openTail(":9600,N,8,1"), 0);
    EXPECT_EQ(readFrame(1000, 2), -1);
    EXPECT_EQ(Clock::sleeps(), std::vector<unsigned>(2000, 1000));
}

TEST_F(SerialLink, NoEndWithinTheTimeoutGivesUp)
{
    ASSERT_GE(openTail(":9600,N,8,1"), 0);
    line.send(fromHex("02 31 32"));
    EXPECT_EQ(readFrame(1000, 1), -1);
    EXPECT_EQ(Clock::sleeps(), std::vector<unsigned>(1000, 1000));
}

TEST_F(SerialLink, TheTimeoutCountsForEachByteOfNoiseAndFrame)
{
    ASSERT_GE(openTail(":9600,N,8,1"), 0);
    int after = 0;
    for (const char* byte : {"55", "02", "31", "32", "33", "03"}) {
        line.sendLater(fromHex(byte), after += 950);
    }
    EXPECT_EQ(readFrame(1000, 1), 5);
    EXPECT_EQ(toHex(got), "0231323303");
}

TEST_F(SerialLink, AByteLaterThanTheTimeoutEndsTheFrame)
{
    ASSERT_GE(openTail(":9600,N,8,1"), 0);
    line.sendLater(fromHex("02 31"), 900);
    line.sendLater(fromHex("03"), 900 + 1010);
    EXPECT_EQ(readFrame(1000, 1), -1);
}

TEST_F(SerialLink, OneByteMoreThanTheMaximumIsStoredWhenItEndsTheFrame)
{
    for (const int max : {2, 10, 1000}) {
        SCOPED_TRACE(max);
        const auto frameOf = [](int size) {
            return joined({fromHex("02"), repeated(0x35, static_cast<std::size_t>(size - 2)), fromHex("03")});
        };
        ASSERT_GE(openTail(":9600,N,8,1"), 0);
        line.send(frameOf(max));
        EXPECT_EQ(readFrame(max, 1), max);
        line.send(frameOf(max + 1));
        EXPECT_EQ(readFrame(max, 1), max + 1);
        EXPECT_EQ(got, frameOf(max + 1));
        line.send(frameOf(max + 2));
        EXPECT_EQ(readFrame(max, 1), -1);
        EXPECT_EQ(comm_read_adata(handle, 1), 0x03); // the one byte not read
        closeDev(handle);
    }
}

TEST_F(SerialLink, MoreThanTheMaximumWithoutAnEndGivesUpWithoutWaiting)
{
    ASSERT_GE(openTail(":9600,N,8,1"), 0);
    line.send(joined({fromHex("02"), repeated(0x30, 1000), fromHex("36")}));
    EXPECT_EQ(readFrame(1000, 3), -1);
    EXPECT_TRUE(Clock::sleeps().empty());
    EXPECT_EQ(comm_read_adata(handle, 1), 0x36); // 1001 bytes were read
}

// ---------------------------------------------------------------- reading ahead

TEST_F(SerialLink, WhatIsThereIsTakenInOneRead)
{
    ASSERT_GE(openTail(":9600,N,8,1"), 0);
    line.send(joined({fromHex("02"), repeated(0x35, 500), fromHex("03")}));
    EXPECT_EQ(readFrame(1000, 3), 502);
    EXPECT_EQ(ttyCalls().reads, 1u);
}

TEST_F(SerialLink, WhatWasReadAheadIsTheNextReadsWhicheverItIs)
{
    ASSERT_GE(openTail(":9600,N,8,1"), 0);
    line.send(fromHex("02 31 03 41 55 AAAAAA9669 0001 7E 02 32 03 58 59"));
    EXPECT_EQ(readFrame(1000, 3), 3);
    EXPECT_EQ(comm_read_adata(handle, 1), 0x41);
    EXPECT_EQ(readIdFrame(1), 8);
    EXPECT_EQ(toHex(got), "AAAAAA966900017E");
    EXPECT_EQ(readFrame(1000, 3), 3);
    EXPECT_EQ(toHex(got), "023203");
    EXPECT_EQ(readUntilSilence(1), 2);
    EXPECT_EQ(toHex(got), "5859");
}

TEST_F(SerialLink, WhatWasReadAheadComesBeforeWhatCameLater)
{
    ASSERT_GE(openTail(":9600,N,8,1"), 0);
    line.send(fromHex("02 31 03 41"));
    EXPECT_EQ(readFrame(1000, 3), 3);
    line.send(fromHex("42"));
    EXPECT_EQ(readUntilSilence(1), 2);
    EXPECT_EQ(toHex(got), "4142");
}

TEST_F(SerialLink, NoTimeMeansNoTryOfWhatWasReadAheadEither)
{
    ASSERT_GE(openTail(":9600,N,8,1"), 0);
    line.send(fromHex("02 31 03 41"));
    EXPECT_EQ(readFrame(1000, 3), 3);
    EXPECT_EQ(comm_read_adata(handle, 0), -1001);
    EXPECT_EQ(comm_read_adata(handle, 1), 0x41);
}

TEST_F(SerialLink, ASpeedChangeDropsWhatHasCome)
{
    ASSERT_GE(openTail(":9600,N,8,1"), 0);
    line.send(fromHex("02 31 03 41 42"));
    EXPECT_EQ(readFrame(1000, 3), 3);  // 41 42 read ahead
    line.sendAndArrive(fromHex("43")); // still in the tty
    EXPECT_EQ(Set_baud(handle, 38400), 0);
    EXPECT_EQ(comm_read_adata(handle, 5), -1001);
}

TEST_F(SerialLink, ARefusedSpeedDropsNothing)
{
    ASSERT_GE(openTail(":9600,N,8,1"), 0);
    line.send(fromHex("02 31 03 41"));
    EXPECT_EQ(readFrame(1000, 3), 3);
    EXPECT_EQ(Set_baud(handle, 300), -1);
    EXPECT_EQ(comm_read_adata(handle, 1), 0x41);
}

TEST_F(SerialLink, ClosingAndOpeningDropWhatHasCome)
{
    line.setRaw();
    ASSERT_GE(openTail(":9600,N,8,1"), 0);
    line.send(fromHex("02 31 03 41"));
    EXPECT_EQ(readFrame(1000, 3), 3);
    closeDev(handle);
    line.sendAndArrive(fromHex("42"));
    ASSERT_GE(openTail(":9600,N,8,1"), 0);
    EXPECT_EQ(comm_read_adata(handle, 5), -1001);
    line.send(fromHex("02 31 03 43"));
    EXPECT_EQ(readFrame(1000, 3), 3);
    ASSERT_GE(openTail(":9600,N,8,1"), 0); // the link was left open
    EXPECT_EQ(comm_read_adata(handle, 5), -1001);
}

// A descriptor of the host's own: what is behind the byte asked for stays in its file.
TEST_F(SerialLink, OfAnotherDescriptorNothingIsReadAhead)
{
    ASSERT_GE(openTail(":9600,N,8,1"), 0);
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_NONBLOCK | O_CLOEXEC), 0);
    ASSERT_EQ(write(ends[1], "ABC", 3), 3);
    EXPECT_EQ(comm_read_adata(ends[0], 1), 'A');
    char rest[4] = {};
    EXPECT_EQ(read(ends[0], rest, sizeof rest), 2);
    EXPECT_STREQ(rest, "BC");
    close(ends[0]);
    close(ends[1]);
}

// ---------------------------------------------------------------- a host's signals

TEST_F(SerialLink, EveryInterruptedCallIsMadeAgain)
{
    const struct termio before = line.settings();
    ttyCalls().interrupt = true;
    ASSERT_GE(openTail(":9600,N,8,1"), 0);
    EXPECT_EQ(Set_baud(handle, 38400), 0);
    EXPECT_EQ(line.speed(), 38400);
    const Bytes bytes = repeated(0x41, 300);
    WriteBytes(handle, bytes.data(), 300);
    takeAllSent();
    EXPECT_EQ(line.sent(), bytes);
    line.send(fromHex("02 31 03"));
    Clock::forgetSleeps();
    EXPECT_EQ(readFrame(1000, 3), 3);
    EXPECT_TRUE(Clock::sleeps().empty());
    EXPECT_EQ(standardErrorOf([&] { closeDev(handle); }), "");
    EXPECT_GE(ttyCalls().interrupted, 9u);
    ttyCalls().interrupt = false;
    EXPECT_TRUE(sameSettings(line.settings(), before));
}

// ---------------------------------------------------------------- lines that do not move

TEST_F(SerialLink, SettingsWaitForTheOutput)
{
    ASSERT_GE(openTail(":9600,N,8,1"), 0);
    ttyCalls().unsent = {9, 6, 2};
    ttyCalls().requests.clear();
    Clock::forgetSleeps();
    EXPECT_EQ(Set_baud(handle, 38400), 0);
    EXPECT_EQ(Clock::sleeps(), std::vector<unsigned>(3, 1000));
    EXPECT_EQ(ttyCalls().requests, (std::vector<unsigned long>{TCSETAF}));
    EXPECT_TRUE(ttyCalls().flushes.empty());
}

TEST_F(SerialLink, AStuckLineIsNotWaitedForWithoutAnEnd)
{
    const struct termio before = line.settings();
    ASSERT_GE(openTail(":9600,N,8,1"), 0);
    ttyCalls().stuck = true;
    EXPECT_EQ(Set_baud(handle, 38400), 0);
    EXPECT_EQ(line.speed(), 38400);
    EXPECT_EQ(ttyCalls().flushes, std::vector<long>{TCIOFLUSH});
    EXPECT_EQ(standardErrorOf([&] { closeDev(handle); }), "");
    EXPECT_TRUE(sameSettings(line.settings(), before));
    ASSERT_GE(openTail(":9600,N,8,1"), 0);
    EXPECT_EQ(ttyCalls().hangs, 0u);
    ttyCalls().stuck = false;
}

TEST_F(SerialLink, OutputThatMovesSlowlyIsWaitedFor)
{
    ASSERT_GE(openTail(":9600,N,8,1"), 0);
    for (int left = 3; left > 0; --left) {
        ttyCalls().unsent.insert(ttyCalls().unsent.end(), 900, left); // 900 ms without a byte, and again, and again
    }
    ttyCalls().requests.clear();
    EXPECT_EQ(Set_baud(handle, 38400), 0);
    EXPECT_EQ(ttyCalls().requests, (std::vector<unsigned long>{TCSETAF}));
}

TEST_F(SerialLink, FlowControlLeftOnBySomebodyIsOffWhileTheLinkIsOpenAndOnAgainBehindIt)
{
    const int keeper = open(("/dev/" + line.port()).c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
    struct termios modern {};
    ASSERT_EQ(tcgetattr(keeper, &modern), 0);
    modern.c_cflag |= CRTSCTS;
    ASSERT_EQ(tcsetattr(keeper, TCSANOW, &modern), 0);
    const auto flowControl = [keeper] {
        struct termios now {};
        EXPECT_EQ(tcgetattr(keeper, &now), 0);
        return (now.c_cflag & CRTSCTS) != 0;
    };
    ASSERT_TRUE(flowControl());
    const struct termio before = line.settings();

    ASSERT_GE(openTail(":9600,N,8,1"), 0);
    EXPECT_FALSE(flowControl());
    EXPECT_EQ(Set_baud(handle, 38400), 0);
    EXPECT_FALSE(flowControl());
    closeDev(handle);
    EXPECT_TRUE(flowControl());
    EXPECT_TRUE(sameSettings(line.settings(), before));

    ASSERT_GE(openTail(":9600,N,8,1"), 0); // left open, opened again, refused
    ASSERT_GE(openTail(":9600,N,8,1"), 0);
    EXPECT_FALSE(flowControl());
    EXPECT_EQ(openTail(":57600,N,8,1"), -1);
    EXPECT_TRUE(flowControl());
    EXPECT_TRUE(sameSettings(line.settings(), before));
    close(keeper);
}

TEST_F(SerialLink, FlowControlOfALineThatWasHungUpIsLeftAndTheDescriptorClosed)
{
    const int keeper = open(("/dev/" + line.port()).c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
    struct termios modern {};
    ASSERT_EQ(tcgetattr(keeper, &modern), 0);
    modern.c_cflag |= CRTSCTS;
    ASSERT_EQ(tcsetattr(keeper, TCSANOW, &modern), 0);
    close(keeper);
    ASSERT_GE(openTail(":9600,N,8,1"), 0);
    line.hangUp();
    const std::string expected = "ioctl:: " + std::string(std::strerror(EIO)) + "\n";
    EXPECT_EQ(standardErrorOf([&] { closeDev(handle); }), expected);
    EXPECT_FALSE(isOpen(handle));
}

// ---------------------------------------------------------------- until silence

TEST_F(SerialLink, EverythingUntilSilenceIsRead)
{
    ASSERT_GE(openTail(":9600,N,8,1"), 0);
    line.send(fromHex("02 03 00 FF 41 0D 0A"));
    EXPECT_EQ(readUntilSilence(1), 7);
    EXPECT_EQ(toHex(got), "020300FF410D0A");
    EXPECT_EQ(Clock::sleeps(), std::vector<unsigned>(50, 1000)); // the silence
}

TEST_F(SerialLink, NothingWithinTheFirstTimeoutGivesUp)
{
    ASSERT_GE(openTail(":9600,N,8,1"), 0);
    EXPECT_EQ(readUntilSilence(3), -1);
    EXPECT_EQ(Clock::sleeps(), std::vector<unsigned>(3000, 1000));
}

TEST_F(SerialLink, AGapBelowFiftyMillisecondsIsNoSilence)
{
    ASSERT_GE(openTail(":9600,N,8,1"), 0);
    line.sendLater(fromHex("41"), 1500);      // read at 1501
    line.sendLater(fromHex("42"), 1501 + 48); // read at 1501 + 49
    EXPECT_EQ(readUntilSilence(2), 2);
    EXPECT_EQ(toHex(got), "4142");
}

TEST_F(SerialLink, FiftyMillisecondsAreSilence)
{
    ASSERT_GE(openTail(":9600,N,8,1"), 0);
    line.sendLater(fromHex("41"), 1500);
    line.sendLater(fromHex("42"), 1501 + 49); // read not before 1501 + 50
    EXPECT_EQ(readUntilSilence(2), 1);
    EXPECT_EQ(toHex(got), "41");
}

TEST_F(SerialLink, ReadingUntilSilenceStopsWhenTheDocumentedCapacityIsFull)
{
    ASSERT_GE(openTail(":9600,N,8,1"), 0);
    for (int i = 0; i < 9; ++i) {
        line.sendLater(repeated(static_cast<std::uint8_t>(0x30 + i), 500), i * 10);
    }
    EXPECT_EQ(readUntilSilence(1), 4096);
    EXPECT_EQ(got[4095], 0x38);
    EXPECT_EQ(readUntilSilence(1), 404);
    EXPECT_EQ(got, repeated(0x38, 404));
}

// ---------------------------------------------------------------- frames AA AA AA 96 69

TEST_F(SerialLink, AnIdFrameIsReadByItsLength)
{
    ASSERT_GE(openTail(":9600,N,8,1"), 0);
    line.send(fromHex("AAAAAA9669 0004 00009031 77"));
    EXPECT_EQ(readIdFrame(1), 11);
    EXPECT_EQ(toHex(got), "AAAAAA9669000400009031");
    EXPECT_TRUE(Clock::sleeps().empty());
    EXPECT_EQ(comm_read_adata(handle, 1), 0x77);
}

TEST_F(SerialLink, TheIdFrameLengthIsBigEndian)
{
    ASSERT_GE(openTail(":9600,N,8,1"), 0);
    line.send(joined({fromHex("AAAAAA9669 0102"), repeated(0xAA, 258)}));
    EXPECT_EQ(readIdFrame(1), 7 + 258);
    EXPECT_EQ(got.back(), 0xAA);
}

TEST_F(SerialLink, AByteThatDoesNotFitThePreambleStartsItAnew)
{
    const char* const broken[] = {
        "00 11 96 69",                // before the first AA: ignored
        "AA 55",                      // in place of the second
        "AA AA 55",                   // of the third
        "AA AA AA 55",                // of 96
        "AA AA AA 96 55",             // of 69
        "AA AA AA 96 AA",             // an AA there is not the first of a new preamble
        "AA AA AA AA 96 69 00 01 7E", // nor is a fourth one
    };
    ASSERT_GE(openTail(":9600,N,8,1"), 0);
    for (const char* noise : broken) {
        SCOPED_TRACE(noise);
        line.send(joined({fromHex(noise), fromHex("AAAAAA9669 0002 1234")}));
        EXPECT_EQ(readIdFrame(1), 9);
        EXPECT_EQ(toHex(got), "AAAAAA966900021234");
    }
}

TEST_F(SerialLink, NoFirstByteOfAnIdFrameGivesUp)
{
    ASSERT_GE(openTail(":9600,N,8,1"), 0);
    EXPECT_EQ(readIdFrame(2), -1);
    EXPECT_EQ(Clock::sleeps(), std::vector<unsigned>(2000, 1000));
}

TEST_F(SerialLink, SilenceInsideAPreambleStartsItAnew)
{
    ASSERT_GE(openTail(":9600,N,8,1"), 0);
    line.send(fromHex("AAAAAA"));
    line.sendLater(fromHex("9669 0001 11"), 300);
    line.sendLater(fromHex("AAAAAA9669 0001 22"), 310);
    EXPECT_EQ(readIdFrame(1), 8);
    EXPECT_EQ(toHex(got), "AAAAAA9669000122");
}

TEST_F(SerialLink, LessThanTwoHundredMillisecondsAreNoSilenceInAPreamble)
{
    ASSERT_GE(openTail(":9600,N,8,1"), 0);
    line.send(fromHex("AAAAAA"));
    line.sendLater(fromHex("9669 0001 11"), 198);
    EXPECT_EQ(readIdFrame(1), 8);
    EXPECT_EQ(toHex(got), "AAAAAA9669000111");
}

TEST_F(SerialLink, SilenceBehindNoiseIsWaitedOutWithoutAnEnd)
{
    ASSERT_GE(openTail(":9600,N,8,1"), 0);
    line.send(fromHex("42"));
    line.sendLater(fromHex("AAAAAA9669 0001 33"), 3600 * 1000 / 10);
    EXPECT_EQ(readIdFrame(1), 8);
    EXPECT_EQ(toHex(got), "AAAAAA9669000133");
}

TEST_F(SerialLink, TwoHundredMillisecondsAreSilenceInAPreamble)
{
    ASSERT_GE(openTail(":9600,N,8,1"), 0);
    line.send(fromHex("AAAAAA"));
    line.sendLater(fromHex("9669 0001 11"), 199); // read not before the 200th millisecond is over
    line.sendLater(fromHex("AAAAAA9669 0001 22"), 230);
    EXPECT_EQ(readIdFrame(1), 8);
    EXPECT_EQ(toHex(got), "AAAAAA9669000122");
}

TEST_F(SerialLink, SilenceInPlaceOfALengthByteIsAByteOfItsOwn)
{
    ASSERT_GE(openTail(":9600,N,8,1"), 0);
    line.send(fromHex("AAAAAA9669 00"));
    line.sendLater(repeated(0x44, 0x17), 250);
    EXPECT_EQ(readIdFrame(1), 7 + 0x17);
    EXPECT_EQ(toHex(Bytes(got.begin(), got.begin() + 7)), "AAAAAA96690017");
    line.send(fromHex("AAAAAA9669"));
    line.sendLater(joined({fromHex("02"), repeated(0x45, 0x1702)}), 250);
    EXPECT_EQ(readIdFrame(1), 7 + 0x1702);
    EXPECT_EQ(toHex(Bytes(got.begin(), got.begin() + 7)), "AAAAAA96691702");
}

// The length is compared when a byte of the body has been stored, so one is taken in any case.
TEST_F(SerialLink, AnIdFrameOfLengthZeroEndsWithTheNextByte)
{
    ASSERT_GE(openTail(":9600,N,8,1"), 0);
    line.send(fromHex("AAAAAA9669 0000 51 52"));
    EXPECT_EQ(readIdFrame(1), 8);
    EXPECT_EQ(toHex(got), "AAAAAA9669000051");
}

TEST_F(SerialLink, SilenceInTheBodyOfAnIdFrameIsSkipped)
{
    ASSERT_GE(openTail(":9600,N,8,1"), 0);
    line.send(fromHex("AAAAAA9669 0003"));
    line.sendLater(fromHex("01"), 1000);
    line.sendLater(fromHex("02"), 5000);
    line.sendLater(fromHex("03"), 20000);
    EXPECT_EQ(readIdFrame(1), 10);
    EXPECT_EQ(toHex(got), "AAAAAA96690003010203");
}

} // namespace
