// SPDX-License-Identifier: Apache-2.0
// Links that were left open, and openings that failed: what the next opening gives back, and that it does so quietly.
#include "support/scripted_reader.h"
#include "support/tty_calls.h"

#include "ICC_COMM_VORN.h"

#include <fcntl.h>
#include <sys/resource.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <string>

using namespace vorn::test;

namespace {

// The library's globals as a host finds them before its first call.
const struct {
    int handle = vrdk03com_handle;
    int mode = vr_comportmode;
    int open = m_portmode;
    unsigned char card = m_VrICType;
    std::string param = vr_comportparam;
} atStart;

bool isOpen(int descriptor) { return fcntl(descriptor, F_GETFD) != -1; }

std::string fileOf(int descriptor)
{
    return std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(descriptor)).string();
}

bool sameSettings(const struct termio& a, const struct termio& b)
{
    return a.c_iflag == b.c_iflag && a.c_oflag == b.c_oflag && a.c_cflag == b.c_cflag && a.c_lflag == b.c_lflag &&
           std::memcmp(a.c_cc, b.c_cc, sizeof a.c_cc) == 0;
}

class LinkRelease : public ReaderTest {
protected:
    LinkRelease()
    {
        ttyCalls() = TtyCalls{};
        m_portmode = 0;
        Clock::onSleep([this] { serveBoth(); }); // of two lines the last made would be the one that is served
    }

    ~LinkRelease() override
    {
        ttyCalls() = TtyCalls{};
        openNothing();
    }

    int open(const Line& which, const std::string& tail = ":9600,N,8,1") { return openParam(which.param(tail)); }

    static int openParam(std::string param) { return OpenDev(0, param.data()); }

    // An opening that takes nothing, and so only gives back.
    void openNothing() { EXPECT_EQ(openParam(""), -1); }

    int openSession(const Line& which)
    {
        vr_comportmode = 0;
        std::snprintf(vr_comportparam, sizeof vr_comportparam, "%s", which.param().c_str());
        return opdev();
    }

    void serveBoth()
    {
        line.serve();
        other.serve();
    }

    Line other;
};

TEST_F(LinkRelease, TheNextOpeningClosesTheLinkLeftOpenAndPutsItsSettingsBack)
{
    const struct termio before = line.settings();
    const int first = open(line);
    ASSERT_GE(first, 0);
    ASSERT_EQ(Set_baud(first, 38400), 0);
    const int descriptors = openDescriptors();
    const int second = open(other);
    ASSERT_GE(second, 0);
    EXPECT_TRUE(sameSettings(line.settings(), before));
    EXPECT_EQ(openDescriptors(), descriptors);
    char name[64] = {};
    ASSERT_EQ(ttyname_r(second, name, sizeof name), 0);
    EXPECT_EQ(std::string(name), "/dev/" + other.port());
    closeDev(second);
}

TEST_F(LinkRelease, TheReleaseSaysNothing)
{
    ASSERT_GE(open(line), 0);
    EXPECT_EQ(standardErrorOf([&] { EXPECT_EQ(standardOutputOf([&] { ASSERT_GE(open(other), 0); }), ""); }), "");
    line.serve();
    other.serve();
    EXPECT_TRUE(line.sent().empty());
    EXPECT_TRUE(other.sent().empty());
    EXPECT_TRUE(Clock::sleeps().empty());
    EXPECT_EQ(serviceLog() + traceLog(), "");
}

TEST_F(LinkRelease, TheReleaseOfALineThatWasHungUpSaysNothingEither)
{
    const int first = open(line);
    ASSERT_GE(first, 0);
    line.hangUp();
    const int descriptors = openDescriptors();
    EXPECT_EQ(standardErrorOf([&] { ASSERT_GE(open(other), 0); }), "");
    EXPECT_EQ(openDescriptors(), descriptors);
}

TEST_F(LinkRelease, OpeningsWithoutClosingDoNotPileUp)
{
    const int descriptors = openDescriptors();
    for (int i = 0; i < 50; ++i) {
        ASSERT_GE(open(i % 3 == 0 ? other : line), 0);
        ASSERT_EQ(openDescriptors(), descriptors + 1);
    }
    openNothing();
    EXPECT_EQ(openDescriptors(), descriptors);
}

TEST_F(LinkRelease, ALineOpenedTwiceGetsItsFirstSettingsBack)
{
    struct termio settings = line.settings();
    settings.c_iflag = 0x0123;
    settings.c_lflag = 0x0B3B;
    settings.c_cc[VMIN] = 9;
    line.setSettings(settings);
    const struct termio before = line.settings();
    ASSERT_GE(open(line), 0);
    ASSERT_GE(open(line, ":19200,N,8,1"), 0);
    const int third = open(line, ":2400,N,8,1");
    ASSERT_GE(third, 0);
    closeDev(third);
    EXPECT_TRUE(sameSettings(line.settings(), before));
}

TEST_F(LinkRelease, AnOpeningThatFailsReleasesTheLinkLeftOpenToo)
{
    const struct termio before = line.settings();
    const int descriptors = openDescriptors();
    for (const char* param : {"", "no-such-tty:9600,N,8,1", "ttyS1", ":9600"}) {
        SCOPED_TRACE(param);
        ASSERT_GE(open(line), 0);
        EXPECT_EQ(openParam(param), -1);
        EXPECT_EQ(openDescriptors(), descriptors);
        EXPECT_TRUE(sameSettings(line.settings(), before));
    }
}

TEST_F(LinkRelease, DescriptorsOfFailedOpeningsDoNotPileUp)
{
    const int descriptors = openDescriptors();
    for (int i = 0; i < 50; ++i) {
        EXPECT_EQ(open(line, ":57600,N,8,1"), -1);
        ASSERT_EQ(openDescriptors(), descriptors + 1);
        EXPECT_EQ(openParam("null:9600,N,8,1"), -1);
        ASSERT_EQ(openDescriptors(), descriptors + 1);
        ttyCalls().refuseGet = 1 + i % 2;
        EXPECT_EQ(open(line), -1);
        ASSERT_EQ(openDescriptors(), descriptors + 1);
    }
    openNothing();
    EXPECT_EQ(openDescriptors(), descriptors);
}

TEST_F(LinkRelease, AFailedOpeningLeavesTheSettingsAlone)
{
    struct termio settings = line.settings();
    settings.c_iflag = 0x0500;
    settings.c_cc[VTIME] = 3;
    line.setSettings(settings);
    const struct termio before = line.settings();
    EXPECT_EQ(open(line, ":57600,N,8,1"), -1);
    ttyCalls().applied.clear();
    openNothing();
    EXPECT_TRUE(ttyCalls().applied.empty()); // nothing was changed, so nothing is put back
    EXPECT_TRUE(sameSettings(line.settings(), before));
}

TEST_F(LinkRelease, AFailedOpeningBehindAGoodOnePutsBackOnlyTheGoodOnesSettings)
{
    struct termio settings = other.settings();
    settings.c_iflag = 0x0040;
    other.setSettings(settings);
    const struct termio lineBefore = line.settings();
    const struct termio otherBefore = other.settings();
    ASSERT_GE(open(line), 0);
    EXPECT_EQ(open(other, ":57600,N,8,1"), -1);
    openNothing();
    EXPECT_TRUE(sameSettings(line.settings(), lineBefore));
    EXPECT_TRUE(sameSettings(other.settings(), otherBefore));
}

TEST_F(LinkRelease, AClosedLinkIsNotReleasedAgain)
{
    const int first = open(line);
    ASSERT_GE(first, 0);
    closeDev(first);
    struct termio settings = line.settings();
    settings.c_iflag = 0x0001; // what the host does with its line afterwards is its own
    line.setSettings(settings);
    const struct termio after = line.settings();
    const int second = open(other);
    ASSERT_GE(second, 0);
    EXPECT_TRUE(sameSettings(line.settings(), after));
    closeDev(second);
    EXPECT_TRUE(sameSettings(line.settings(), after));
}

TEST_F(LinkRelease, ANumberThatIsAnotherFilesByNowIsLeftAlone)
{
    const int first = open(line);
    ASSERT_GE(first, 0);
    close(first); // the host itself
    const int file = ::open("/dev/null", O_RDWR | O_CLOEXEC);
    ASSERT_EQ(file, first) << "the number was to be used again";
    const int second = open(other);
    ASSERT_GE(second, 0);
    EXPECT_NE(second, file); // it would have got the number, had the file been closed
    EXPECT_EQ(fileOf(file), "/dev/null");
    closeDev(second);
    close(file);
}

TEST_F(LinkRelease, ANumberThatIsFreeByNowIsLeftAlone)
{
    const int first = open(line);
    ASSERT_GE(first, 0);
    close(first); // the host itself
    const struct termio after = line.settings();
    openNothing();
    EXPECT_FALSE(isOpen(first));
    EXPECT_TRUE(sameSettings(line.settings(), after));
}

// Files of one directory differ in nothing but their inode number.
TEST_F(LinkRelease, ANumberThatIsANeighbouringFilesByNowIsLeftAlone)
{
    const std::string directory = std::filesystem::canonical(".").string();
    for (const char* name : {"first", "second"}) {
        close(::open(name, O_RDWR | O_CREAT | O_CLOEXEC, 0600));
    }
    EXPECT_EQ(openParam(".." + directory + "/first:9600,N,8,1"), -1); // no tty: it stays open
    const int file = ::open("/dev/null", O_RDWR | O_CLOEXEC);
    const int left = file - 1;
    ASSERT_EQ(fileOf(left), directory + "/first");
    close(left); // the host itself
    ASSERT_EQ(::open("second", O_RDWR | O_CLOEXEC), left) << "the number was to be used again";
    openNothing();
    EXPECT_TRUE(isOpen(left));
    EXPECT_EQ(fileOf(left), directory + "/second");
    close(left);
    close(file);
}

TEST_F(LinkRelease, ADescriptorThatARefusedSpeedClosedIsNotClosedAgain)
{
    const int first = open(line);
    ASSERT_GE(first, 0);
    ttyCalls().refuseSet = true;
    EXPECT_EQ(Set_baud(first, 38400), -1);
    ttyCalls().refuseSet = false;
    const int reused = ::open(("/dev/" + line.port()).c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
    ASSERT_EQ(reused, first) << "the number was to be used again";
    const int second = open(other);
    ASSERT_GE(second, 0);
    EXPECT_NE(second, reused);
    EXPECT_EQ(fileOf(reused), "/dev/" + line.port()); // the same tty even, but the host's
    close(reused);
}

TEST_F(LinkRelease, AClosedSessionHasNoHandle)
{
    ASSERT_EQ(openSession(line), 0);
    EXPECT_GE(vrdk03com_handle, 0);
    EXPECT_EQ(cldev(), 0);
    EXPECT_EQ(vrdk03com_handle, -1);
}

TEST_F(LinkRelease, ASessionWhoseSpeedIsRefusedHasNoHandle)
{
    Clock::onSleep([this] {
        serveBoth();
        ttyCalls().refuseSet = true; // from behind the switch sequence on
    });
    EXPECT_EQ(openSession(line), 0) << "the commands find out";
    EXPECT_EQ(vrdk03com_handle, -1);
}

// The medium of a link that is not open is a tty's, whatever the mode.
TEST_F(LinkRelease, AUsbLinkThatDidNotOpenIsClosedWithoutTheSequencesOfALine)
{
    vr_comportmode = 1;
    vrdk03com_handle = -1;
    Clock::forgetSleeps();
    EXPECT_EQ(cldev(), 0);
    EXPECT_EQ(Clock::sleeps(), std::vector<unsigned>{3000});
}

// A real line's modem signals fall when its last descriptor is closed.
TEST_F(LinkRelease, TheLineIsOpenedAgainBeforeTheLinkLeftOpenIsClosed)
{
    const int first = open(line);
    ASSERT_GE(first, 0);
    const int second = open(line);
    ASSERT_GE(second, 0);
    EXPECT_NE(second, first); // the number was still taken
    EXPECT_FALSE(isOpen(first));
    closeDev(second);
}

TEST_F(LinkRelease, ALineOpenedAgainDoesNotFallBackToItsOwnSettingsBetween)
{
    ASSERT_GE(open(line), 0);
    ttyCalls().applied.clear();
    ASSERT_GE(open(line), 0);
    ASSERT_EQ(ttyCalls().applied.size(), 1u);
    EXPECT_EQ(ttyCalls().applied[0].c_cflag, CREAD | CLOCAL | CS8 | B9600);
}

TEST_F(LinkRelease, ALineOpenedAgainAndRefusedGetsItsFirstSettingsBackAtOnce)
{
    const struct termio before = line.settings();
    for (const char* tail : {":57600,N,8,1", ":9600"}) {
        SCOPED_TRACE(tail);
        ASSERT_GE(open(line), 0);
        ASSERT_GE(open(line), 0);
        EXPECT_EQ(open(line, tail), -1);
        EXPECT_TRUE(sameSettings(line.settings(), before));
    }
}

TEST_F(LinkRelease, ALineThatOnlyOneMayHaveOpenIsReleasedFirst)
{
    const int first = open(line);
    ASSERT_GE(first, 0);
    ttyCalls().openings.clear();
    ttyCalls().refuseOpen = 1; // as TIOCEXCL does for those who are not root
    const int second = open(line);
    EXPECT_EQ(second, first);
    EXPECT_EQ(ttyCalls().openings.size(), 2u);
    closeDev(second);
}

TEST_F(LinkRelease, TheTtyIsKnownWithoutItsName)
{
    const int first = open(line);
    ASSERT_GE(first, 0);
    ttyCalls().noLinks = true; // a host in a root without /proc
    ASSERT_EQ(close(first), 0);
    const int file = ::open("/dev/null", O_RDWR | O_CLOEXEC);
    ASSERT_EQ(file, first);
    openNothing();
    EXPECT_TRUE(isOpen(file));
    close(file);
    const int again = open(line);
    ASSERT_GE(again, 0);
    openNothing();
    EXPECT_FALSE(isOpen(again));
}

// A slot command before the first opening would otherwise go to the host's standard input.
TEST_F(LinkRelease, AProcessBeginsWithoutALink)
{
    EXPECT_EQ(atStart.handle, -1);
    EXPECT_EQ(atStart.mode, 0);
    EXPECT_EQ(atStart.open, 0);
    EXPECT_EQ(atStart.card, VORN_INTERFACE_NONE);
    EXPECT_EQ(atStart.param, "");
}

TEST_F(LinkRelease, ClosedStandardStreamsDoNotBecomeTheLink)
{
    for (const int closed : {0, 1, 2, 3}) { // 3: all of them
        SCOPED_TRACE(closed);
        int saved[3];
        for (int stream = 0; stream < 3; ++stream) {
            saved[stream] = fcntl(stream, F_DUPFD_CLOEXEC, 10);
            if (stream == closed || closed == 3) {
                close(stream);
            }
        }
        const int link = open(line);
        bool stillClosed = true;
        for (int stream = 0; stream < 3; ++stream) {
            stillClosed = stillClosed && (isOpen(stream) == (stream != closed && closed != 3));
            dup2(saved[stream], stream);
            close(saved[stream]);
        }
        EXPECT_GT(link, 2);
        EXPECT_TRUE(stillClosed) << "what stood in for the streams is still there";
        closeDev(link);
    }
}

// Where nothing can stand in for a closed stream, nothing is closed in its place either.
TEST_F(LinkRelease, AClosedStandardStreamWithoutAStandInStaysClosed)
{
    rlimit before = {};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
    const int saved = fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 10);
    close(STDIN_FILENO);
    const rlimit none = {0, before.rlim_max};
    const std::string param = line.param(":9600,N,8,1");
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
    const int link = openParam(param); // nothing else, which could want a descriptor: sanitizers do
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &before), 0);
    const bool closed = !isOpen(STDIN_FILENO);
    dup2(saved, STDIN_FILENO);
    close(saved);
    EXPECT_EQ(link, -1);
    EXPECT_TRUE(closed);
    EXPECT_GE(open(line), 0);
}

// The line then gets the stream's number; it is the host's link like any other.
TEST_F(LinkRelease, ALineThatGotTheNumberOfAClosedStreamIsNotClosedBehindItsOpening)
{
    const int saved = fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 10);
    close(STDIN_FILENO);
    ttyCalls().noEpoll = true;
    const int link = open(line);
    const bool stillOpen = isOpen(link);
    closeDev(link);
    const bool closedThen = !isOpen(link);
    dup2(saved, STDIN_FILENO);
    close(saved);
    EXPECT_EQ(link, STDIN_FILENO);
    EXPECT_TRUE(stillOpen);
    EXPECT_TRUE(closedThen);
}

// ---------------------------------------------------------------- sessions with the reader

TEST_F(LinkRelease, ASessionLeftOpenLeavesTheLineSequencesAsTheyAre)
{
    ASSERT_EQ(openSession(line), 0);
    ASSERT_EQ(openSession(line), 0);
    EXPECT_EQ(line.speed(), 38400);
    EXPECT_EQ(cldev(), 0);
    EXPECT_EQ(reader.lineEvents(), (std::vector<std::string>{"ESC $ I 2 at 9600", "ESC $ I 2 at 9600",
                                                             "ESC $ I 4 at 38400", "ESC $ B ESC % A at 9600"}));
    EXPECT_TRUE(linkClosed());
}

TEST_F(LinkRelease, SessionsLeftOpenDoNotPileUp)
{
    const int descriptors = openDescriptors();
    for (int i = 0; i < 30; ++i) {
        ASSERT_EQ(openSession(i % 2 == 0 ? line : other), 0);
        ASSERT_EQ(openDescriptors(), descriptors + 1);
    }
    EXPECT_EQ(cldev(), 0);
    EXPECT_EQ(openDescriptors(), descriptors);
    EXPECT_TRUE(linkClosed());
}

TEST_F(LinkRelease, ACallBehindASessionLeftOpenLeavesNothingBehind)
{
    ASSERT_EQ(openSession(other), 0);
    const struct termio whileOpen = other.settings();
    reader.powerOn("3B00");
    char atr[ICC_ATR_CAPACITY];
    EXPECT_EQ(IC_PowerOn(port(), "", 9600, 5, 1, 0, atr), 0);
    EXPECT_STREQ(atr, "3B00");
    EXPECT_TRUE(linkClosed());
    EXPECT_FALSE(sameSettings(other.settings(), whileOpen));
}

TEST_F(LinkRelease, ACallThatCannotOpenItsLinkReleasesTheOneLeftOpen)
{
    const int descriptors = openDescriptors();
    ASSERT_EQ(openSession(line), 0);
    EXPECT_EQ(IC_PowerOff("no-such-tty", "", 9600, 5, 1, 0), -3);
    EXPECT_EQ(openDescriptors(), descriptors);
    EXPECT_TRUE(linkClosed());
}

TEST_F(LinkRelease, CallsWhoseLinkCannotBeOpenedDoNotPileUp)
{
    const int descriptors = openDescriptors();
    for (int i = 0; i < 50; ++i) {
        EXPECT_EQ(IC_PowerOff("null", "", 9600, 5, 1, 0), -3);
        ASSERT_LE(openDescriptors(), descriptors + 1); // the last one's stays until the next opening
    }
    openNothing();
    EXPECT_EQ(openDescriptors(), descriptors);
}

// When the line refuses its new speed, the descriptor is closed and its number may soon be another file's.
TEST_F(LinkRelease, ASessionWithoutASpeedTouchesNoOtherFile)
{
    Clock::onSleep([&] {
        serveBoth();
        ttyCalls().refuseSet = true;
    });
    ASSERT_EQ(openSession(line), 0);
    ttyCalls().refuseSet = false;
    Clock::onSleep([this] { serveBoth(); });

    int pipeEnds[2];
    ASSERT_EQ(pipe2(pipeEnds, O_CLOEXEC | O_NONBLOCK), 0);
    const unsigned char command[] = {0x32, 0x25, 0x00, 0x00};
    unsigned char payload[VORN_PAYLOAD_MAX];
    int length = 0;
    EXPECT_EQ(trans_icc_cmd(command, 4, payload, &length), -11);
    standardErrorOf([] { EXPECT_EQ(cldev(), 0); });
    EXPECT_TRUE(isOpen(pipeEnds[0]));
    EXPECT_TRUE(isOpen(pipeEnds[1]));
    char byte = 0;
    EXPECT_EQ(read(pipeEnds[0], &byte, 1), -1) << "a byte for the reader went into the pipe";
    close(pipeEnds[0]);
    close(pipeEnds[1]);
}

TEST_F(LinkRelease, AReaderPluggedOutAndInAgainIsFoundByTheNextCall)
{
    ASSERT_EQ(openSession(line), 0);
    line.hangUp();
    standardErrorOf([] { EXPECT_EQ(cldev(), 0); });

    ScriptedReader again(other);
    again.command("32 25 00 00");
    EXPECT_EQ(IC_PowerOff(other.port().c_str(), "", 9600, 5, 1, 0), 0);
    EXPECT_EQ(again.lineEvents().size(), 3u);
}

// ---------------------------------------------------------------- a line that goes away in mid-call

// Its descriptor is closed once: by the time the call ends, and at each call after it, the number may be another
// file's. Here it is the host's pipe as soon as it is free.
class LineHungUp : public LinkRelease {
protected:
    LineHungUp()
    {
        EXPECT_EQ(pipe2(pipeEnds, O_CLOEXEC | O_NONBLOCK), 0);
        const auto answer = line.onBytes;
        line.onBytes = [this, answer](const Bytes& bytes, int speed) {
            if (bytes[0] == 0x02 && --answersLeft < 0) {
                gone = vrdk03com_handle;
                line.hangUp();
            } else {
                answer(bytes, speed);
            }
        };
        Clock::onSleep([this] {
            serveBoth();
            if (gone != -1 && again == -1 && !isOpen(gone)) {
                again = fcntl(pipeEnds[1], F_DUPFD_CLOEXEC, gone);
                EXPECT_EQ(again, gone) << "the number was to be used again";
            }
        });
    }
    ~LineHungUp() override
    {
        close(pipeEnds[0]);
        close(pipeEnds[1]);
        close(again);
    }

    void expectPipeLeftAlone() const
    {
        ASSERT_NE(again, -1) << "the descriptor was not closed inside the call";
        EXPECT_TRUE(isOpen(again));
        char byte = 0;
        EXPECT_EQ(read(pipeEnds[0], &byte, 1), -1) << "a byte for the reader went into the pipe";
        EXPECT_EQ(errno, EAGAIN);
    }

    // The next calls find no line, closing changes nothing, and another line works.
    void expectNextCallsGood()
    {
        unsigned char data[ICC_M1_BLOCK_SIZE];
        for (int i = 0; i < 3; ++i) {
            EXPECT_EQ(IC_PowerOff(port(), "", 9600, 5, 1, 0), -3);
            EXPECT_EQ(IC_M1ReadCard(port(), "", 9600, 5, 4, data), -3);
            standardErrorOf([] { EXPECT_EQ(cldev(), 0); });
            expectPipeLeftAlone();
        }
        ScriptedReader next(other);
        next.command("32 25 00 00");
        EXPECT_EQ(IC_PowerOff(other.port().c_str(), "", 9600, 5, 1, 0), 0);
        expectPipeLeftAlone();
    }

    int answersLeft = 0;
    int pipeEnds[2] = {-1, -1};
    int gone = -1;  // the link's descriptor, when its line has gone
    int again = -1; // the same number, when it is the host's
};

TEST_F(LineHungUp, InACallThatClosesItsLink)
{
    char response[ICC_RESPONSE_CAPACITY] = "as it was";
    standardErrorOf([&] { EXPECT_EQ(IC_SendAPDU(port(), "", 9600, 5, 2, 1, "0084000004", response), -11); });
    EXPECT_STREQ(response, "as it was");
    expectPipeLeftAlone();
    expectNextCallsGood();
}

TEST_F(LineHungUp, InACallBehindOneThatLeftItsLinkOpen)
{
    answersLeft = 1;
    reader.command("32 41 01 00", "01020304");
    unsigned char flag = 0;
    char uid[ICC_ATR_CAPACITY];
    EXPECT_EQ(IC_M1ActiveCard(port(), "", 9600, 5, &flag, uid), 0);
    unsigned char data[ICC_M1_BLOCK_SIZE] = {0xA5};
    standardErrorOf([&] { EXPECT_EQ(IC_M1ReadCard(port(), "", 9600, 5, 4, data), -11); });
    EXPECT_EQ(data[0], 0xA5);
    expectPipeLeftAlone();
    expectNextCallsGood();
}

} // namespace
