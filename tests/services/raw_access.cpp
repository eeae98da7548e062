// SPDX-License-Identifier: Apache-2.0
// Raw access to a card through the exported calls: power on, exchange, power off.
#include "support/card_text.h"
#include "support/scripted_reader.h"

#include "ICC_COMM_VORN.h"

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>

using namespace vorn::test;

namespace {

using Events = std::vector<std::string>;

const Events kLineOfOneCall = {"ESC $ I 2 at 9600", "ESC $ I 4 at 38400", "ESC $ B ESC % A at 9600"};
const char kContact[] = "32 22 01 80 00";
const char kField[] = "32 24 01 80";

std::string slotHex(int psam) { return toHex({static_cast<std::uint8_t>(psam + 15)}); }

class RawAccess : public ReaderTest {
protected:
    RawAccess() { poison(); }

    ~RawAccess() override { EXPECT_TRUE(unplugged || linkClosed()); }

    void poison()
    {
        atr.assign(ICC_ATR_CAPACITY, '#');
        response.assign(ICC_RESPONSE_CAPACITY, '#');
    }

    int powerOn(int cardType, int psam = 0, int timeout = 5)
    {
        return IC_PowerOn(port(), "ext", 9600, timeout, cardType, psam, atr.data());
    }
    int powerOff(int cardType, int psam = 0) { return IC_PowerOff(port(), "ext", 9600, 5, cardType, psam); }
    int sendApdu(const std::string& apdu, int cardType = 1, int psam = 0)
    {
        return IC_SendAPDU(port(), "ext", 9600, 5, cardType, psam, apdu.c_str(), response.data());
    }

    // An empty contact slot and an empty field.
    void noCard() { reader.command(kContact, "", 0x02).command(kField, "", 0x06); }

    std::string atrText() const { return atr.data(); }
    std::string responseText() const { return response.data(); }
    bool responseUntouched() const { return response == std::string(ICC_RESPONSE_CAPACITY, '#'); }

    // The delays of the line protocol, without the polling for bytes.
    static std::vector<unsigned> lineDelays()
    {
        std::vector<unsigned> delays;
        for (const unsigned sleep : Clock::sleeps()) {
            if (sleep != 1000) {
                delays.push_back(sleep);
            }
        }
        return delays;
    }

    std::string powerOnEntry(int cardType, int psam, int timeout) const
    {
        return entry("IC_PowerOn", cardType, psam, timeout);
    }
    std::string powerOffEntry(int cardType, int psam) const { return entry("IC_PowerOff", cardType, psam, 5); }

    std::string atr, response;
    bool unplugged = false; // the line is gone

private:
    std::string entry(const std::string& function, int cardType, int psam, int timeout) const
    {
        return function + " nPortNo:" + line.port() +
               ",extendPort:ext,nBaudRate:9600,nTimeout:" + std::to_string(timeout) +
               ",nCardType:" + std::to_string(cardType) + ",nPSAMCardNo:" + std::to_string(psam) + "\r\n";
    }
};

// The clock stands at `seconds[i]` when it is read for the i-th time, and at the last of them from then on.
void clockReads(std::vector<int> seconds)
{
    const std::int64_t start = Clock::microseconds();
    auto next = std::make_shared<std::size_t>(0);
    Clock::onTime([start, next, seconds] {
        const std::size_t i = std::min(*next, seconds.size() - 1);
        ++*next;
        const std::int64_t wanted = start + std::int64_t{seconds[i]} * 1000000;
        Clock::advance(std::max<std::int64_t>(0, wanted - Clock::microseconds()));
    });
}

// ---------------------------------------------------------------- IC_OpenPort, IC_ClosePort

TEST_F(RawAccess, OpeningAndClosingThePortDoNothing)
{
    std::strcpy(vr_comportparam, "as it was");
    vr_comportmode = 7;
    for (const char* name : {port(), "no-such-tty", "USB", static_cast<const char*>(nullptr)}) {
        EXPECT_EQ(IC_OpenPort(name, "ext", 9600, 5), 0);
        EXPECT_EQ(IC_ClosePort(name, "ext", 9600, 5), 0);
        EXPECT_EQ(IC_OpenPort(name, nullptr, -1, -1), 0);
        EXPECT_EQ(IC_ClosePort(name, nullptr, -1, -1), 0);
    }
    EXPECT_STREQ(vr_comportparam, "as it was");
    EXPECT_EQ(vr_comportmode, 7);
    line.serve();
    EXPECT_TRUE(line.sent().empty());
    EXPECT_TRUE(Clock::sleeps().empty());
    EXPECT_EQ(serviceLog() + traceLog(), "");
}

// ---------------------------------------------------------------- the port argument

TEST_F(RawAccess, ATtyNameIsMadeTheSerialParameter)
{
    vr_comportmode = 1;
    reader.command("32 25 00 00");
    EXPECT_EQ(powerOff(1), 0);
    EXPECT_EQ(vr_comportmode, 0);
    EXPECT_EQ(std::string(vr_comportparam), line.port() + ":9600,N,8,1");
}

TEST_F(RawAccess, OnlyUsbInCapitalsIsTheUsbReader)
{
    const int descriptors = openDescriptors();
    for (const char* name : {"usb", "Usb", "USB ", " USB", "USB0", "US", ""}) {
        SCOPED_TRACE(name);
        EXPECT_EQ(IC_PowerOff(name, "", 9600, 5, 1, 0), -3);
        EXPECT_EQ(vr_comportmode, 0);
        EXPECT_EQ(std::string(vr_comportparam), std::string(name) + ":9600,N,8,1");
    }
    EXPECT_EQ(openDescriptors(), descriptors);
    EXPECT_TRUE(Clock::sleeps().empty());
}

TEST_F(RawAccess, ANullPortIsAnEmptyOne)
{
    EXPECT_EQ(IC_PowerOn(nullptr, nullptr, 1, 2, 1, 0, atr.data()), -3);
    EXPECT_STREQ(vr_comportparam, ":9600,N,8,1");
    EXPECT_EQ(serviceLog(), "IC_PowerOn nPortNo:,extendPort:,nBaudRate:1,nTimeout:2,nCardType:1,nPSAMCardNo:0\r\n");
    EXPECT_EQ(IC_SendAPDU(nullptr, nullptr, 0, 0, 1, 0, nullptr, response.data()), -3);
    EXPECT_EQ(IC_PowerOff(nullptr, nullptr, 0, 0, 1, 0), -3);
}

TEST_F(RawAccess, ThePortNameMayHave116Characters)
{
    const std::string longest(116, 'y');
    EXPECT_EQ(IC_PowerOff(longest.c_str(), "", 9600, 5, 1, 0), -3);
    EXPECT_EQ(std::string(vr_comportparam), longest + ":9600,N,8,1");
    EXPECT_EQ(IC_PowerOff((longest + "z").c_str(), "", 9600, 5, 1, 0), -3);
    EXPECT_EQ(std::string(vr_comportparam), longest + "z:9600,N,8,"); // what the text has room for
    const std::string tooLong(400, 'y');
    EXPECT_EQ(IC_PowerOff(tooLong.c_str(), "", 9600, 5, 1, 0), -3);
    EXPECT_LT(std::strlen(vr_comportparam), sizeof vr_comportparam);
}

// ---------------------------------------------------------------- IC_PowerOn, the user's card

TEST_F(RawAccess, PowerOnReturnsTheContactCardsAtr)
{
    m_VrICType = 2;
    reader.command(kContact, "3B 6D 00 00 00 31 C0 71 C6 65 01 B0");
    EXPECT_EQ(powerOn(1), 0);
    EXPECT_EQ(atrText(), "3B6D00000031C071C66501B0");
    EXPECT_EQ(m_VrICType, 1);
    EXPECT_EQ(reader.lineEvents(), kLineOfOneCall);
    EXPECT_EQ(lineDelays(), (std::vector<unsigned>{12000, 7000, 30000, 12000, 3000}));
    EXPECT_EQ(serviceLog(), powerOnEntry(1, 0, 5) + "Indata----------------------icc_poweron\n"
                                                    "32 22 01 80 00 \n"
                                                    "Outdata----------------------icc_poweron\n"
                                                    "3B 6D 00 00 00 31 C0 71 C6 65 01 B0 \n");
    EXPECT_EQ(traceLog(), "");
}

TEST_F(RawAccess, PowerOnTriesTheFieldBehindAnEmptySlot)
{
    reader.command(kContact, "", 0x06).command(kField, "3B 8F 80 01");
    EXPECT_EQ(powerOn(1), 0);
    EXPECT_EQ(atrText(), "3B8F8001");
    EXPECT_EQ(m_VrICType, 2);
    EXPECT_EQ(callLog(), powerOnEntry(1, 0, 5));
}

TEST_F(RawAccess, PowerOnLogsItsSixArgumentsAsGiven)
{
    EXPECT_EQ(IC_PowerOn("no-such-tty", "a,b %d%s", -115200, -7, 99, -3, atr.data()), -3);
    EXPECT_EQ(serviceLog(), "IC_PowerOn nPortNo:no-such-tty,extendPort:a,b %d%s,nBaudRate:-115200,nTimeout:-7,"
                            "nCardType:99,nPSAMCardNo:-3\r\n");
}

TEST_F(RawAccess, PowerOnLogsArgumentsOfAnyLength)
{
    const std::string extend(3000, 'e');
    EXPECT_EQ(IC_PowerOn("no-such-tty", extend.c_str(), 1, 2, 1, 0, atr.data()), -3);
    EXPECT_EQ(serviceLog(), "IC_PowerOn nPortNo:no-such-tty,extendPort:" + extend +
                                ",nBaudRate:1,nTimeout:2,nCardType:1,nPSAMCardNo:0\r\n");
}

TEST_F(RawAccess, PowerOnEmptiesTheAtrBeforeItOpensTheLink)
{
    EXPECT_EQ(IC_PowerOn("no-such-tty", "ext", 9600, 5, 1, 0, atr.data()), -3);
    EXPECT_EQ(atrText(), "");
    EXPECT_EQ(atr[1], '#'); // and no more than that
    EXPECT_TRUE(Clock::sleeps().empty());
}

TEST_F(RawAccess, AnAtrThatIsNotWantedIsNotWritten)
{
    reader.command(kContact, "3B00").command("32 22 01 80 11", "3B01");
    EXPECT_EQ(IC_PowerOn(port(), "", 9600, 5, 1, 0, nullptr), 0);
    EXPECT_EQ(IC_PowerOn(port(), "", 9600, 5, 2, 2, nullptr), 0);
}

TEST_F(RawAccess, TheLongestAtrFillsTheDocumentedCapacity)
{
    const std::string longest = toHex(Bytes(494, 0xC3));
    reader.command(kContact, longest);
    EXPECT_EQ(powerOn(1), 0);
    EXPECT_EQ(atrText(), longest);
    EXPECT_EQ(atrText().size() + 1, std::size_t{ICC_ATR_CAPACITY});
}

TEST_F(RawAccess, WithoutTimePowerOnTriesOnceAndIsLate)
{
    for (const int timeout : {0, -1, -2147483647}) {
        SCOPED_TRACE(timeout);
        poison();
        forgetLogs();
        noCard();
        EXPECT_EQ(powerOn(1, 0, timeout), -2);
        EXPECT_TRUE(reader.done());
        EXPECT_EQ(atrText(), "");
        EXPECT_EQ(callLog(), powerOnEntry(1, 0, timeout) + "vr_openicc outtime!\n");
    }
    EXPECT_EQ(reader.lineEvents().size(), 3 * kLineOfOneCall.size());
}

TEST_F(RawAccess, WithoutTimeACardThatAnsweredIsLateTooAndStaysPowered)
{
    reader.command(kContact, "3B00");
    EXPECT_EQ(powerOn(1, 0, 0), -2);
    EXPECT_EQ(atrText(), "");
    EXPECT_EQ(m_VrICType, 1);
    EXPECT_EQ(reader.lineEvents(), kLineOfOneCall);
}

TEST_F(RawAccess, WithoutTimeARefusalIsLateToo)
{
    reader.command(kContact, "", 0x01);
    EXPECT_EQ(powerOn(1, 0, 0), -2); // and nothing is powered down
    EXPECT_EQ(callLog(), powerOnEntry(1, 0, 0) + "vr_openicc outtime!\n");
}

TEST_F(RawAccess, PowerOnAsksAgainUntilTheTimeIsUp)
{
    clockReads({100, 100, 101, 101, 102});
    noCard(); // then the clock is read twice
    noCard();
    noCard();
    noCard(); // 102 - 100 is not below 2 any more
    EXPECT_EQ(powerOn(1, 0, 2), -2);
    EXPECT_TRUE(reader.done());
    EXPECT_EQ(m_VrICType, 2);
    EXPECT_EQ(callLog(), powerOnEntry(1, 0, 2) + "vr_openicc outtime!\n");
    EXPECT_EQ(reader.lineEvents(), kLineOfOneCall);
}

TEST_F(RawAccess, ACardThatComesWithinTheTimeIsTaken)
{
    clockReads({100, 100, 101, 102, 102});
    noCard();
    noCard();
    noCard();
    reader.command(kContact, "3B 02");
    EXPECT_EQ(powerOn(1, 0, 3), 0);
    EXPECT_EQ(atrText(), "3B02");
    EXPECT_EQ(m_VrICType, 1);
    EXPECT_EQ(callLog(), powerOnEntry(1, 0, 3));
}

TEST_F(RawAccess, ACardThatComesOnTheLastAttemptIsLateAndStaysPowered)
{
    clockReads({100, 100, 101});
    noCard();
    reader.command(kContact, "", 0x02).command(kField, "3B 80"); // when this is done the second is over
    EXPECT_EQ(powerOn(1, 0, 1), -2);
    EXPECT_EQ(atrText(), "");
    EXPECT_EQ(m_VrICType, 2);
    EXPECT_EQ(callLog(), powerOnEntry(1, 0, 1) + "vr_openicc outtime!\n");
}

TEST_F(RawAccess, ARefusalOnTheLastAttemptIsLateToo)
{
    clockReads({100, 100, 105});
    noCard();
    reader.command(kContact, "", 0x01);
    EXPECT_EQ(powerOn(1, 0, 5), -2);
}

TEST_F(RawAccess, TheFirstAttemptIsNotCountedInTheTime)
{
    // Each answer costs 2.9 seconds. The first attempt's pass before the wait begins; the second's end it.
    const auto answer = line.onBytes;
    line.onBytes = [&](const Bytes& bytes, int speed) {
        answer(bytes, speed);
        if (bytes[0] == 0x02) {
            Clock::advance(2900000);
        }
    };
    noCard();
    noCard();
    EXPECT_EQ(powerOn(1, 0, 1), -2);
    EXPECT_TRUE(reader.done());
    EXPECT_EQ(callLog(), powerOnEntry(1, 0, 1) + "vr_openicc outtime!\n");
}

TEST_F(RawAccess, ThePollRunsAsFastAsTheReaderAnswers)
{
    for (int i = 0; i < 50; ++i) {
        noCard();
    }
    reader.command(kContact, "3B 03");
    EXPECT_EQ(powerOn(1, 0, 1), 0);
    EXPECT_EQ(lineDelays(), (std::vector<unsigned>{12000, 7000, 30000, 12000, 3000}));
    EXPECT_EQ(Clock::sleeps().size(), 5u + 101); // one millisecond for each of the 101 answers
}

struct Refused {
    const char* name;
    unsigned char interface;
    std::function<void(ScriptedReader&)> attempt;
    int result;
    const char* powerDown;
    unsigned char after;
};

const Refused kRefused[] = {
    {"contact refused", 1, [](auto& r) { r.command(kContact, "", 0x01); }, -25, "32 23 00", 1},
    {"contact refused, contactless before", 2, [](auto& r) { r.command(kContact, "", 0x03); }, -25, "32 25 00 00", 2},
    {"contact refused, a PSAM before", 0, [](auto& r) { r.command(kContact, "", 0xFF); }, -25, "32 25 00 00", 0},
    {"contact silent", 1, [](auto& r) { r.silent(kContact); }, -11, "32 23 00", 1},
    {"field refused", 1, [](auto& r) { r.command(kContact, "", 0x02).command(kField, "", 0x01); }, -25, "32 25 00 00",
     2},
    {"field silent", 1, [](auto& r) { r.command(kContact, "", 0x06).silent(kField); }, -11, "32 25 00 00", 2},
};

TEST_F(RawAccess, ARefusalIsPoweredDownLoggedAndReturned)
{
    for (const Refused& row : kRefused) {
        SCOPED_TRACE(row.name);
        forgetLogs();
        poison();
        m_VrICType = row.interface;
        row.attempt(reader);
        reader.command(row.powerDown);
        EXPECT_EQ(powerOn(1, 0, 30), row.result);
        EXPECT_TRUE(reader.done());
        EXPECT_EQ(atrText(), "");
        EXPECT_EQ(m_VrICType, row.after);
        EXPECT_EQ(callLog(), powerOnEntry(1, 0, 30) + "vr_openicc fail!return=" + std::to_string(row.result) + "\n");
        EXPECT_TRUE(linkClosed());
    }
}

TEST_F(RawAccess, ThePowerDownComesBeforeItsLogLine)
{
    m_VrICType = 1;
    reader.command(kContact, "", 0x01).command("32 23 00", "", 0x01);
    EXPECT_EQ(powerOn(1), -25);
    EXPECT_EQ(serviceLog(), powerOnEntry(1, 0, 5) + "Indata----------------------icc_poweron\n"
                                                    "32 22 01 80 00 \n"
                                                    "Outdata----------------------icc_poweron\n"
                                                    "\n"
                                                    "Indata----------------------icc_poweroff\n"
                                                    "32 23 00 \n"
                                                    "Outdata----------------------icc_poweroff\n"
                                                    "\n"
                                                    "vr_openicc fail!return=-25\n");
}

TEST_F(RawAccess, ARefusalEndsTheWait)
{
    noCard();
    noCard();
    reader.command(kContact, "", 0x09).command("32 25 00 00");
    EXPECT_EQ(powerOn(1, 0, 60), -25);
    EXPECT_EQ(callLog(), powerOnEntry(1, 0, 60) + "vr_openicc fail!return=-25\n");
}

// ---------------------------------------------------------------- IC_PowerOn, PSAMs

TEST_F(RawAccess, PowerOnReturnsThePsamsAtr)
{
    for (int psam = 1; psam <= 4; ++psam) {
        SCOPED_TRACE(psam);
        forgetLogs();
        m_VrICType = 1;
        reader.command("32 22 01 80" + slotHex(psam), "3B 00 0" + std::to_string(psam));
        EXPECT_EQ(powerOn(2, psam, 0), 0); // no wait, so no time is needed
        EXPECT_EQ(atrText(), "3B000" + std::to_string(psam));
        EXPECT_EQ(m_VrICType, 0);
        EXPECT_EQ(callLog(), powerOnEntry(2, psam, 0));
        EXPECT_TRUE(linkClosed());
    }
    EXPECT_EQ(lineDelays().size(), 4u * 5);
}

TEST_F(RawAccess, WhatAPsamSaysWithARefusalIsNoAtr)
{
    reader.command("32 22 01 80 10", "3B 00 01", 0x04);
    EXPECT_EQ(powerOn(2, 1, 5), -25);
    EXPECT_EQ(atrText(), "");
}

TEST_F(RawAccess, APsamThatDoesNotAnswerIsNotWaitedFor)
{
    const struct {
        int status; // below 0: silence
        int result;
    } rows[] = {{0x02, -9}, {0x06, -9}, {0x01, -25}, {0x0A, -25}, {0xFF, -25}, {-1, -11}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.status);
        forgetLogs();
        poison();
        m_VrICType = 2;
        const std::string command = "32 22 01 80 12";
        row.status < 0 ? reader.silent(command) : reader.command(command, "", static_cast<std::uint8_t>(row.status));
        EXPECT_EQ(powerOn(2, 3, 60), row.result);
        EXPECT_EQ(atrText(), "");
        EXPECT_EQ(m_VrICType, 0);
        EXPECT_EQ(callLog(), powerOnEntry(2, 3, 60));
        EXPECT_TRUE(linkClosed());
    }
}

const struct {
    int cardType, psam;
} kNoSuchCard[] = {{2, 0}, {2, 5}, {2, -1}, {2, 16}, {2, 257}, {0, 1}, {3, 1}, {-1, 1}, {257, 1}, {99, 0}};

TEST_F(RawAccess, PowerOnRefusesAnUnknownCardAfterOpeningTheLink)
{
    for (const auto& row : kNoSuchCard) {
        SCOPED_TRACE(std::to_string(row.cardType) + "/" + std::to_string(row.psam));
        forgetLogs();
        poison();
        line.forget();
        m_VrICType = 1;
        EXPECT_EQ(powerOn(row.cardType, row.psam), -1);
        EXPECT_EQ(atrText(), "");
        EXPECT_EQ(m_VrICType, 1);
        EXPECT_EQ(line.pieces(), (Events{"1B244932@9600", "1B244934@38400", "1B24421B2541@9600"}));
        EXPECT_EQ(serviceLog(), powerOnEntry(row.cardType, row.psam, 5));
        EXPECT_TRUE(linkClosed());
    }
}

// ---------------------------------------------------------------- IC_PowerOff

TEST_F(RawAccess, PowerOffFollowsTheInterfaceAndIgnoresTheAnswer)
{
    const struct {
        unsigned char interface;
        const char* command;
        const char* marker;
        const char* dumped;
    } rows[] = {
        {1, "32 23 00", "icc_poweroff", "32 23 00 \n"},
        {2, "32 25 00 00", "picc_Deactive", "32 25 00 00 \n"},
        {0, "32 25 00 00", "picc_Deactive", "32 25 00 00 \n"},
    };
    for (const auto& row : rows) {
        for (const int status : {0x00, 0x02, 0x06, 0x01, 0xFF, -1}) {
            SCOPED_TRACE(std::string(row.command) + ", status " + std::to_string(status));
            forgetLogs();
            m_VrICType = row.interface;
            status < 0 ? reader.silent(row.command)
                       : reader.command(row.command, "", static_cast<std::uint8_t>(status));
            EXPECT_EQ(powerOff(1), 0);
            EXPECT_EQ(m_VrICType, row.interface);
            EXPECT_EQ(serviceLog(), powerOffEntry(1, 0) + "Indata----------------------" + row.marker + "\n" +
                                        row.dumped + "Outdata----------------------" + row.marker + "\n\n");
            EXPECT_TRUE(linkClosed());
        }
    }
}

TEST_F(RawAccess, PowerOffOfAPsamIgnoresTheAnswerToo)
{
    for (int psam = 1; psam <= 4; ++psam) {
        for (const int status : {0x00, 0x02, 0x01, -1}) {
            SCOPED_TRACE(std::to_string(psam) + ", status " + std::to_string(status));
            forgetLogs();
            m_VrICType = 1;
            const std::string command = "32 23" + slotHex(psam);
            status < 0 ? reader.silent(command) : reader.command(command, "", static_cast<std::uint8_t>(status));
            EXPECT_EQ(powerOff(2, psam), 0);
            EXPECT_EQ(m_VrICType, 1);
            EXPECT_EQ(callLog(), powerOffEntry(2, psam));
            EXPECT_TRUE(linkClosed());
        }
    }
}

TEST_F(RawAccess, PowerOffRefusesAnUnknownCardAfterOpeningTheLink)
{
    for (const auto& row : kNoSuchCard) {
        SCOPED_TRACE(std::to_string(row.cardType) + "/" + std::to_string(row.psam));
        forgetLogs();
        line.forget();
        EXPECT_EQ(powerOff(row.cardType, row.psam), -1);
        EXPECT_EQ(line.pieces(), (Events{"1B244932@9600", "1B244934@38400", "1B24421B2541@9600"}));
        EXPECT_EQ(serviceLog(), powerOffEntry(row.cardType, row.psam));
        EXPECT_TRUE(linkClosed());
    }
}

TEST_F(RawAccess, PowerOffLogsItsSixArgumentsAsGiven)
{
    EXPECT_EQ(IC_PowerOff("no-such-tty", nullptr, 38400, 12, 2, 4), -3);
    EXPECT_EQ(serviceLog(), "IC_PowerOff nPortNo:no-such-tty,extendPort:,nBaudRate:38400,nTimeout:12,nCardType:2,"
                            "nPSAMCardNo:4\r\n");
}

// ---------------------------------------------------------------- IC_SendAPDU

TEST_F(RawAccess, SendApduReturnsTheWholeReply)
{
    m_VrICType = 1;
    reader.command("32 26 00 00 84 00 00 04", "A1 B2 C3 D4 90 00");
    EXPECT_EQ(sendApdu("0084000004"), 0);
    EXPECT_EQ(responseText(), "A1B2C3D49000");
    EXPECT_EQ(reader.lineEvents(), kLineOfOneCall);
    EXPECT_EQ(lineDelays(), (std::vector<unsigned>{12000, 7000, 30000, 12000, 3000}));
    EXPECT_EQ(serviceLog(), "APDU:0084000004!\n"
                            "Indata----------------------capdu\n"
                            "32 26 00 00 84 00 00 04 \n"
                            "Outdata----------------------capdu\n"
                            "A1 B2 C3 D4 90 00 \n"
                            "recv:A1B2C3D49000!");
    EXPECT_EQ(traceLog(), "");
}

TEST_F(RawAccess, SendApduGoesWhereTheUsersCardWasPoweredLast)
{
    for (const int interface : {0, 1, 2}) {
        SCOPED_TRACE(interface);
        m_VrICType = static_cast<unsigned char>(interface);
        reader.command(std::string("32 26") + (interface == 1 ? "00" : "FF") + "80CA9F3600", "9F360200019000");
        EXPECT_EQ(sendApdu("80CA9F3600"), 0);
        EXPECT_EQ(responseText(), "9F360200019000");
    }
}

TEST_F(RawAccess, SendApduToAPsamNamesItsSlot)
{
    for (int psam = 1; psam <= 4; ++psam) {
        SCOPED_TRACE(psam);
        forgetLogs();
        reader.command("32 26" + slotHex(psam) + "00B0960006", "0102030405069000");
        EXPECT_EQ(sendApdu("00B0960006", 2, psam), 0);
        EXPECT_EQ(responseText(), "0102030405069000");
        EXPECT_EQ(serviceLog(), "APDU:00B0960006!\n"
                                "Indata----------------------samicc_capdu\n"
                                "32 26 " +
                                    slotHex(psam) +
                                    " 00 B0 96 00 06 \n"
                                    "Outdata----------------------samicc_capdu\n"
                                    "01 02 03 04 05 06 90 00 \n"
                                    "recv:0102030405069000!");
    }
}

TEST_F(RawAccess, AnotherStatusWordOfTheUsersCardIsNotPassedOn)
{
    m_VrICType = 1;
    for (const char* reply : {"6A82", "9001", "6985", "AABBCC6A88", "0000"}) {
        SCOPED_TRACE(reply);
        forgetLogs();
        poison();
        reader.command("32 26 00 00A4040000", reply);
        EXPECT_EQ(sendApdu("00A4040000"), 0);
        EXPECT_EQ(responseText(), "");
        EXPECT_EQ(callLog(), "APDU:00A4040000!\nrecv:!");
    }
}

TEST_F(RawAccess, AnotherStatusWordOfAPsamIsTheResponse)
{
    const struct {
        const char* reply;
        const char* response;
    } rows[] = {{"6A82", "6A82"}, {"9001", "9001"}, {"6700", "6700"}, {"AABBCC6A88", "AABB"}, {"AB6300", "AB63"}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.reply);
        forgetLogs();
        poison();
        reader.command("32 26 11 00A4040000", row.reply);
        EXPECT_EQ(sendApdu("00A4040000", 2, 2), 0);
        EXPECT_EQ(responseText(), row.response);
        EXPECT_EQ(callLog(), std::string("APDU:00A4040000!\nrecv:") + row.response + "!");
    }
}

TEST_F(RawAccess, SendApduFollowsTheStatusWord)
{
    m_VrICType = 2;
    reader.slot(0xFF).apdu("00A404000100", "6105").apdu("00C0000005", "6F038401009000");
    EXPECT_EQ(sendApdu("00A404000100"), 0);
    EXPECT_EQ(responseText(), "6F038401009000");

    reader.slot(0x13).apdu("00B2010C00", "6C03").apdu("00B2010C03", "7001009000");
    EXPECT_EQ(sendApdu("00B2010C00", 2, 4), 0);
    EXPECT_EQ(responseText(), "7001009000");

    reader.slot(0x10).apdu("0032", "6283").apdu("00C0000000", "9000"); // shorter than a GET RESPONSE
    EXPECT_EQ(sendApdu("0032", 2, 1), 0);
    EXPECT_EQ(responseText(), "9000");
}

TEST_F(RawAccess, AReaderFailureIsReturnedAndTheResponseLeftAsItWas)
{
    const struct {
        int status; // below 0: silence
        int result;
    } rows[] = {{0x02, -9}, {0x06, -9}, {0x01, -10}, {0xFF, -10}, {-1, -11}};
    m_VrICType = 1;
    for (const auto& row : rows) {
        for (const int cardType : {1, 2}) {
            SCOPED_TRACE(std::to_string(row.status) + ", card type " + std::to_string(cardType));
            forgetLogs();
            poison();
            const std::string command = std::string("32 26") + (cardType == 1 ? "00" : "12") + "0084000008";
            row.status < 0 ? reader.silent(command)
                           : reader.command(command, "", static_cast<std::uint8_t>(row.status));
            EXPECT_EQ(sendApdu("0084000008", cardType, 3), row.result);
            EXPECT_TRUE(responseUntouched());
            EXPECT_EQ(callLog(), "APDU:0084000008!\n");
            EXPECT_TRUE(linkClosed());
        }
    }
}

TEST_F(RawAccess, AReplyWithoutAStatusWordIsAReaderFailure)
{
    reader.slot(0xFF).apdu("0084000008", "90");
    EXPECT_EQ(sendApdu("0084000008"), -10);
    EXPECT_TRUE(responseUntouched());
}

TEST_F(RawAccess, SendApduRefusesAnUnknownCardAfterOpeningTheLink)
{
    for (const auto& row : kNoSuchCard) {
        SCOPED_TRACE(std::to_string(row.cardType) + "/" + std::to_string(row.psam));
        forgetLogs();
        line.forget();
        EXPECT_EQ(sendApdu("0084000008", row.cardType, row.psam), -1);
        EXPECT_TRUE(responseUntouched());
        EXPECT_EQ(line.pieces(), (Events{"1B244932@9600", "1B244934@38400", "1B24421B2541@9600"}));
        EXPECT_EQ(serviceLog(), "APDU:0084000008!\n");
        EXPECT_TRUE(linkClosed());
    }
}

TEST_F(RawAccess, SendApduWritesNothingWhenTheLinkCannotBeOpened)
{
    EXPECT_EQ(IC_SendAPDU("no-such-tty", "ext", 9600, 5, 1, 0, "0084000008", response.data()), -3);
    EXPECT_TRUE(responseUntouched());
    EXPECT_FALSE(std::filesystem::exists(VORN_SERVICE_FILE));
    EXPECT_FALSE(std::filesystem::exists(VORN_TRACE_FILE));
    EXPECT_TRUE(Clock::sleeps().empty());
}

TEST_F(RawAccess, AnOddLastCharacterOfTheApduIsDroppedButLogged)
{
    reader.slot(0xFF).apdu("00840000", "AB9000");
    EXPECT_EQ(sendApdu("008400008"), 0);
    EXPECT_EQ(responseText(), "AB9000");
    EXPECT_EQ(callLog(), "APDU:008400008!\nrecv:AB9000!");
}

TEST_F(RawAccess, TheApduMayBeInEitherCaseAndTheResponseIsInCapitals)
{
    reader.slot(0xFF).apdu("00A4040005 ABCDEFABCD", "FEDCBA9000");
    EXPECT_EQ(sendApdu("00a4040005abcDEFabCD"), 0);
    EXPECT_EQ(responseText(), "FEDCBA9000");
    EXPECT_EQ(callLog(), "APDU:00a4040005abcDEFabCD!\nrecv:FEDCBA9000!");
}

TEST_F(RawAccess, CharactersThatAreNoHexDigitsAreNotRefused)
{
    // 'G' is 16 and carries as the second of a pair, and is 0 as the first; ' ' is 0.
    reader.slot(0xFF).apdu("20 01 00 05", "9000");
    EXPECT_EQ(sendApdu("1GG1   5"), 0);
}

TEST_F(RawAccess, AnEmptyApduIsPassedOn)
{
    reader.slot(0xFF).apdu("", "6700").slot(0x10).apdu("", "6700").slot(0x10).apdu("", "9000");
    EXPECT_EQ(sendApdu(""), 0);
    EXPECT_EQ(responseText(), "");
    EXPECT_EQ(sendApdu("0", 2, 1), 0);
    EXPECT_EQ(responseText(), "6700");
    forgetLogs();
    EXPECT_EQ(IC_SendAPDU(port(), nullptr, 0, 0, 2, 1, nullptr, response.data()), 0);
    EXPECT_EQ(responseText(), "9000");
    EXPECT_EQ(callLog(), "APDU:!\nrecv:9000!");
}

TEST_F(RawAccess, AResponseThatIsNotWantedIsNotWritten)
{
    reader.slot(0xFF).apdu("0084000001", "559000");
    EXPECT_EQ(IC_SendAPDU(port(), "", 0, 0, 1, 0, "0084000001", nullptr), 0);
    EXPECT_EQ(callLog(), "APDU:0084000001!\nrecv:559000!");
}

TEST_F(RawAccess, TheLongestApduAndResponseAreCarried)
{
    const std::string apdu = toHex(Bytes(505, 0x3C));
    const std::string reply = toHex(Bytes(492, 0xC3)) + "9000";
    for (const int cardType : {1, 2}) {
        forgetLogs();
        reader.slot(cardType == 1 ? 0xFF : 0x11).apdu(apdu, reply);
        EXPECT_EQ(sendApdu(apdu, cardType, 2), 0);
        EXPECT_EQ(responseText(), reply);
        EXPECT_EQ(responseText().size() + 1, std::size_t{ICC_RESPONSE_CAPACITY});
        EXPECT_EQ(callLog(), "APDU:" + apdu + "!\nrecv:" + reply + "!");
    }
}

TEST_F(RawAccess, AnApduThatDoesNotFitIsABadArgument)
{
    for (const std::size_t size : {506u, 508u, 509u, 20000u}) {
        for (const int cardType : {1, 2}) {
            SCOPED_TRACE(std::to_string(size) + ", card type " + std::to_string(cardType));
            forgetLogs();
            poison();
            const std::string apdu = toHex(Bytes(size, 0x3C));
            EXPECT_EQ(sendApdu(apdu, cardType, 1), -1);
            EXPECT_TRUE(responseUntouched());
            EXPECT_EQ(callLog(), "APDU:" + apdu + "!\n");
            EXPECT_TRUE(linkClosed());
        }
    }
}

// ---------------------------------------------------------------- whole sessions

TEST_F(RawAccess, ASessionOpensAndClosesTheLinkForEachCall)
{
    reader.powerOnField("3B8F").apdu("00A4040000", "6F009000").apdu("80CA9F7900", "6A88").powerOff();
    EXPECT_EQ(powerOn(1), 0);
    EXPECT_TRUE(linkClosed());
    EXPECT_EQ(sendApdu("00A4040000"), 0);
    EXPECT_TRUE(linkClosed());
    EXPECT_EQ(sendApdu("80CA9F7900"), 0);
    EXPECT_EQ(responseText(), "");
    EXPECT_EQ(powerOff(1), 0);
    EXPECT_EQ(reader.lineEvents().size(), 4 * kLineOfOneCall.size());
    EXPECT_EQ(m_VrICType, 2); // also behind the power-off
}

TEST_F(RawAccess, APsamThatIsPoweredTurnsTheUsersCardToTheField)
{
    reader.powerOn("3B00");
    EXPECT_EQ(powerOn(1), 0);
    reader.command("32 22 01 80 10", "3B01");
    EXPECT_EQ(powerOn(2, 1), 0);
    reader.slot(0xFF).apdu("0084000004", "9000");
    EXPECT_EQ(sendApdu("0084000004"), 0);
    reader.command("32 25 00 00");
    EXPECT_EQ(powerOff(1), 0);
}

TEST_F(RawAccess, CallsLeaveNoDescriptorBehind)
{
    const int descriptors = openDescriptors();
    for (int i = 0; i < 20; ++i) {
        reader.powerOn().apdu("0084000004", "9000").powerOff();
        EXPECT_EQ(powerOn(1), 0);
        EXPECT_EQ(sendApdu("0084000004"), 0);
        EXPECT_EQ(powerOff(1), 0);
        EXPECT_EQ(powerOn(9), -1);
    }
    EXPECT_EQ(openDescriptors(), descriptors);
}

TEST_F(RawAccess, AReaderThatIsUnpluggedDuringACallIsNoReply)
{
    const auto answer = line.onBytes;
    line.onBytes = [&](const Bytes& bytes, int speed) {
        if (bytes[0] == 0x02) {
            unplugged = true;
            line.hangUp();
        } else {
            answer(bytes, speed);
        }
    };
    const int descriptors = openDescriptors();
    standardErrorOf([&] { EXPECT_EQ(sendApdu("0084000004", 2, 1), -11); });
    EXPECT_TRUE(responseUntouched());
    EXPECT_EQ(openDescriptors(), descriptors - 1); // the test's own other end
}

// ---------------------------------------------------------------- ATRs that make no sense

// What an ATR says of itself is not looked at: hosts get what the reader sent.
TEST_F(RawAccess, AnAtrIsHandedOverWhateverItsCountsSay)
{
    const std::string rows[] = {
        "",                            // none
        "3B",                          // no format byte
        "3B0F",                        // fifteen historical bytes announced and none there
        "3BF0",                        // and four interface bytes
        "3B02112233445566",            // more than announced
        "3B" + repeated("80", 40),     // each interface byte announces another
        "3B8001" + repeated("FF", 29), // 32 bytes, a wrong check byte
        "3B" + repeated("00", 32),     // 33 bytes
        repeated("3F", 200),
    };
    for (const std::string& row : rows) {
        SCOPED_TRACE(row);
        poison();
        reader.command(kContact, row);
        EXPECT_EQ(powerOn(1), 0);
        EXPECT_EQ(atrText(), row);
        poison();
        reader.command(kContact, "", 0x02).command(kField, row);
        EXPECT_EQ(powerOn(1), 0);
        EXPECT_EQ(atrText(), row);
        poison();
        reader.command("32 22 01 80 11", row);
        EXPECT_EQ(powerOn(2, 2), 0);
        EXPECT_EQ(atrText(), row);
    }
}

// The length of the reader's frame decides, whatever came: what is missing reads as zeros, behind the check byte.
TEST_F(RawAccess, AnAtrIsAsLongAsTheReadersFrameSays)
{
    const struct {
        const char* length; // four characters
        std::string atr;
    } rows[] = {
        {"0000", ""},
        {"0001", ""},
        {"0002", ""},
        {"0003", "3B"},
        {"0004", "3B00"},
        {"0008", "3B0009000000"},
        {"????", "3B0009" + repeated("00", VORN_PAYLOAD_MAX - 3)},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.length);
        poison();
        Bytes reply = replyFrame(0x00, fromHex("3B00"));
        std::copy_n(row.length, 4, reply.begin() + 1);
        reader.raw("32 22 01 80 00", reply);
        EXPECT_EQ(powerOn(1), 0);
        EXPECT_EQ(atrText(), row.atr);
    }
}

} // namespace
