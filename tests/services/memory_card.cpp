// SPDX-License-Identifier: Apache-2.0
// The calls for contactless memory cards: one reader command each, and a link that stays open in between.
#include "support/card_text.h"
#include "support/scripted_reader.h"
#include "support/service_call.h"

#include "ICC_COMM_VORN.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

using namespace vorn::test;

namespace {

const std::string kKey = "A0B1C2D3E4F5";
const std::string kBlock = "00112233445566778899AABBCCDDEEFF";

class MemoryCardCalls : public ReaderTest {
protected:
    ~MemoryCardCalls() override
    {
        if (!linkClosed()) {
            closeLink();
        }
    }

    int activate() { return IC_M1ActiveCard(port(), "E", 9600, 5, flag.bytes(), uid.text()); }
    int checkPin(int block, const std::string& keyMode, const std::string& key = kKey)
    {
        return IC_M1CheckCardPin(port(), "E", 9600, 5, block, keyMode.c_str(), fromHex(key).data());
    }
    int readBlock(int block) { return IC_M1ReadCard(port(), "E", 9600, 5, block, data.bytes()); }
    int writeBlock(int block, const std::string& hex)
    {
        return IC_M1WriteCard(port(), "E", 9600, 5, block, fromHex(hex).data());
    }
    int powerOff() { return IC_M1PowerOff(port(), "E", 9600, 5); }

    Output flag{1};
    Output uid{ICC_ATR_CAPACITY};
    Output data{ICC_M1_BLOCK_SIZE};
};

} // namespace

// ---------------------------------------------------------------- the commands

TEST_F(MemoryCardCalls, ActivationHandsBackTheCardsIdentificationAsHexText)
{
    reader.command("32 41 01 00", "4D 0A 9B C7");
    EXPECT_EQ(activate(), 0);
    EXPECT_EQ(flag.hex(1), "01");
    EXPECT_EQ(uid.value(), "4D0A9BC7");
    EXPECT_EQ(serviceLog(), "IC_M1ActiveCard start!recv:4D0A9BC7!");
}

TEST_F(MemoryCardCalls, AnIdentificationOfNoBytesIsAnEmptyText)
{
    reader.command("32410100");
    EXPECT_EQ(activate(), 0);
    EXPECT_EQ(flag.hex(1), "01");
    EXPECT_EQ(uid.value(), "");
    EXPECT_EQ(serviceLog(), "IC_M1ActiveCard start!recv:!");
}

TEST_F(MemoryCardCalls, TheLongestIdentificationFillsTheDocumentedCapacity)
{
    const std::string payload = repeated("F7", VORN_PAYLOAD_MAX);
    reader.command("32410100", payload);
    EXPECT_EQ(activate(), 0);
    EXPECT_EQ(uid.value(), payload);
    EXPECT_EQ(uid.value().size() + 1, std::size_t{ICC_ATR_CAPACITY});
}

TEST_F(MemoryCardCalls, AuthenticationCarriesBlockKeyModeAndKeyAsTheyAre)
{
    reader.command("32 42 07 60 A0 B1 C2 D3 E4 F5");
    EXPECT_EQ(checkPin(7, "\x60"), 0);
    EXPECT_EQ(serviceLog(), "IC_M1CheckCardPin start!return OK!");
}

TEST_F(MemoryCardCalls, OnlyTheKeyModesFirstByteIsSent)
{
    reader.command("3242036100FF00FF00FF");
    EXPECT_EQ(checkPin(3, "a-and-more", "00FF00FF00FF"), 0);
}

TEST_F(MemoryCardCalls, EveryKeyModeByteIsPassedOn)
{
    for (const char mode : {'\x01', '0', 'A', 'B', '\x7F', '\x80', '\xFF'}) {
        reader.command("324201" + toHex({static_cast<std::uint8_t>(mode)}) + kKey);
        EXPECT_EQ(checkPin(1, std::string(1, mode)), 0);
    }
}

TEST_F(MemoryCardCalls, AnEmptyKeyModeSendsItsNul)
{
    reader.command("32420100" + kKey);
    EXPECT_EQ(checkPin(1, ""), 0);
}

TEST_F(MemoryCardCalls, ReadingHandsBackTheBlockRaw)
{
    reader.command("32 43 3E", "00 01 7F 80 FF FE 20 0A 0D 1B 02 03 41 61 00 99");
    EXPECT_EQ(readBlock(62), 0);
    EXPECT_EQ(data.hex(16), "00017F80FFFE200A0D1B020341610099");
    EXPECT_EQ(serviceLog(), "IC_M1ReadCard start!return OK!");
}

TEST_F(MemoryCardCalls, AShortBlockWritesNoMoreThanCame)
{
    reader.command("324305", "0102030405");
    EXPECT_EQ(readBlock(5), 0);
    EXPECT_EQ(data.hex(16), "0102030405A5A5A5A5A5A5A5A5A5A5A5");
}

TEST_F(MemoryCardCalls, AnEmptyBlockWritesNothing)
{
    reader.command("324305");
    EXPECT_EQ(readBlock(5), 0);
    EXPECT_TRUE(data.untouched());
}

TEST_F(MemoryCardCalls, WhatAReaderSendsBeyondABlockIsDropped)
{
    for (const std::size_t size : {17U, 32U, 256U, 494U}) {
        SCOPED_TRACE(size);
        reader.command("324305", repeated("C3", size));
        EXPECT_EQ(readBlock(5), 0);
        EXPECT_EQ(data.hex(16), repeated("C3", 16));
    }
}

TEST_F(MemoryCardCalls, WritingCarriesSixteenBytesAsTheyAre)
{
    reader.command("32 44 2A 00 11 22 33 44 55 66 77 88 99 AA BB CC DD EE FF");
    EXPECT_EQ(writeBlock(42, kBlock + "0123"), 0);
    EXPECT_EQ(serviceLog(), "IC_M1WriteCard start!return OK!");
}

TEST_F(MemoryCardCalls, WhatAReaderAnswersToAuthenticationAndWritingIsNotUsed)
{
    reader.command("32420160" + kKey, repeated("EE", 494)).command("324401" + kBlock, repeated("EE", 494));
    EXPECT_EQ(checkPin(1, "\x60"), 0);
    EXPECT_EQ(writeBlock(1, kBlock), 0);
}

TEST_F(MemoryCardCalls, OnlyTheLowByteOfTheBlockNumberCounts)
{
    const struct {
        int block;
        std::string byte;
    } rows[] = {{0, "00"}, {255, "FF"}, {256, "00"}, {257, "01"}, {0x7FFFFF42, "42"}, {-1, "FF"}, {-256, "00"}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.block);
        reader.command("3243" + row.byte, kBlock)
            .command("3242" + row.byte + "60" + kKey)
            .command("3244" + row.byte + kBlock);
        EXPECT_EQ(readBlock(row.block), 0);
        EXPECT_EQ(checkPin(row.block, "\x60"), 0);
        EXPECT_EQ(writeBlock(row.block, kBlock), 0);
    }
}

TEST_F(MemoryCardCalls, PoweringOffSwitchesTheFieldOffAndClosesTheLink)
{
    reader.command("32 25 00 00");
    EXPECT_EQ(powerOff(), 0);
    EXPECT_EQ(serviceLog(), slotEntries("picc_Deactive", "32250000", "")); // no line of its own
    EXPECT_TRUE(linkClosed());
    EXPECT_EQ(reader.lineEvents(), lineOfOneCall());
}

TEST_F(MemoryCardCalls, PoweringOffIsSuccessWhateverTheReaderAnswers)
{
    for (const int status : {0x00, 0x02, 0x06, 0x01, 0xFF}) {
        SCOPED_TRACE(status);
        reader.command("32250000", "AABB", static_cast<std::uint8_t>(status));
        EXPECT_EQ(powerOff(), 0);
        EXPECT_TRUE(linkClosed());
    }
    reader.silent("32250000");
    EXPECT_EQ(powerOff(), 0);
    EXPECT_TRUE(linkClosed());
}

TEST_F(MemoryCardCalls, PoweringOffSwitchesTheFieldWhateverWasPoweredBefore)
{
    m_VrICType = VORN_INTERFACE_CONTACT;
    reader.command("32250000");
    EXPECT_EQ(powerOff(), 0);
    EXPECT_EQ(m_VrICType, VORN_INTERFACE_CONTACT);
}

TEST_F(MemoryCardCalls, TheTraceFileIsNotTouched)
{
    reader.command("32410100", "01").command("32250000");
    EXPECT_EQ(activate(), 0);
    EXPECT_EQ(powerOff(), 0);
    EXPECT_EQ(traceLog(), "");
}

TEST_F(MemoryCardCalls, TheCardOfTheOtherCallsIsNotForgotten)
{
    m_VrICType = VORN_INTERFACE_CONTACT;
    reader.command("32410100", "01").command("32430A", kBlock);
    EXPECT_EQ(activate(), 0);
    EXPECT_EQ(readBlock(10), 0);
    EXPECT_EQ(m_VrICType, VORN_INTERFACE_CONTACT);
}

// ---------------------------------------------------------------- every call alike

namespace {

// One of the four calls that leave the link open, and what is known of it.
struct CallRow {
    const char* name;
    const char* command;
    const char* start; // its line in the log
    int (*call)(const char* port, unsigned char* flag, char* uid, unsigned char* data);
};

const unsigned char kRawKey[ICC_M1_KEY_SIZE] = {0xA0, 0xB1, 0xC2, 0xD3, 0xE4, 0xF5};
const unsigned char kRawBlock[ICC_M1_BLOCK_SIZE] = {0x00, 0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77,
                                                    0x88, 0x99, 0xAA, 0xBB, 0xCC, 0xDD, 0xEE, 0xFF};

const CallRow kCalls[] = {
    {"Active", "32410100", "IC_M1ActiveCard start!",
     [](const char* port, unsigned char* flag, char* uid, unsigned char*) {
         return IC_M1ActiveCard(port, "E", 9600, 5, flag, uid);
     }},
    {"CheckPin", "32420961A0B1C2D3E4F5", "IC_M1CheckCardPin start!",
     [](const char* port, unsigned char*, char*, unsigned char*) {
         return IC_M1CheckCardPin(port, "E", 9600, 5, 9, "a", kRawKey);
     }},
    {"Read", "324309", "IC_M1ReadCard start!",
     [](const char* port, unsigned char*, char*, unsigned char* data) {
         return IC_M1ReadCard(port, "E", 9600, 5, 9, data);
     }},
    {"Write", "32440900112233445566778899AABBCCDDEEFF", "IC_M1WriteCard start!",
     [](const char* port, unsigned char*, char*, unsigned char*) {
         return IC_M1WriteCard(port, "E", 9600, 5, 9, kRawBlock);
     }},
};

} // namespace

class EachMemoryCardCall : public MemoryCardCalls, public ::testing::WithParamInterface<CallRow> {
protected:
    int call() { return call(port()); }
    int call(const char* where) { return GetParam().call(where, flag.bytes(), uid.text(), data.bytes()); }
    bool outputsUntouched() const { return flag.untouched() && uid.untouched() && data.untouched(); }
};

INSTANTIATE_TEST_SUITE_P(Calls, EachMemoryCardCall, ::testing::ValuesIn(kCalls),
                         [](const auto& row) { return std::string(row.param.name); });

TEST_P(EachMemoryCardCall, LeavesTheLinkOpenOnSuccess)
{
    const int before = openDescriptors();
    reader.command(GetParam().command, kBlock);
    EXPECT_EQ(call(), 0);
    EXPECT_FALSE(linkClosed());
    EXPECT_EQ(openDescriptors(), before + 1);
    EXPECT_EQ(line.speed(), 38400);
    EXPECT_EQ(reader.lineEvents(), std::vector<std::string>{"ESC $ I 2 at 9600"});
}

TEST_P(EachMemoryCardCall, OpensTheLinkAgainAfterACallThatLeftItOpen)
{
    reader.command("32410100", "01020304").command(GetParam().command, kBlock);
    EXPECT_EQ(activate(), 0);
    const int open = openDescriptors();
    EXPECT_EQ(call(), 0);
    EXPECT_EQ(openDescriptors(), open); // the link of the call before was given back
    EXPECT_EQ(reader.lineEvents(), (std::vector<std::string>{"ESC $ I 2 at 9600", "ESC $ I 2 at 9600"}));
    EXPECT_EQ(line.speed(), 38400);
}

namespace {

struct RefusalRow {
    int status; // below 0: no reply
    int result;
};
const RefusalRow kRefusals[] = {{0x02, VORN_READER_NO_CARD}, {0x06, VORN_READER_NO_CARD}, {0x01, VORN_READER_REFUSED},
                                {0x07, VORN_READER_REFUSED}, {0x08, VORN_READER_REFUSED}, {0xFF, VORN_READER_REFUSED},
                                {-1, VORN_NO_REPLY}};

} // namespace

TEST_P(EachMemoryCardCall, ClosesTheLinkOnEveryRefusalAndWritesNoOutput)
{
    const int before = openDescriptors();
    for (const RefusalRow& row : kRefusals) {
        SCOPED_TRACE(row.status);
        forgetLogs();
        if (row.status < 0) {
            reader.silent(GetParam().command);
        } else {
            reader.command(GetParam().command, "0102030405060708", static_cast<std::uint8_t>(row.status));
        }
        EXPECT_EQ(call(), row.result);
        EXPECT_TRUE(linkClosed());
        EXPECT_EQ(openDescriptors(), before);
        EXPECT_EQ(serviceLog(), GetParam().start); // neither a result nor a slot command's entries
    }
    EXPECT_TRUE(outputsUntouched());
}

TEST_P(EachMemoryCardCall, ARefusalAfterASuccessClosesBothLinks)
{
    const int before = openDescriptors();
    reader.command("32410100", "01").command(GetParam().command, "", 0x09);
    EXPECT_EQ(activate(), 0);
    EXPECT_EQ(call(), VORN_READER_REFUSED);
    EXPECT_TRUE(linkClosed());
    EXPECT_EQ(openDescriptors(), before);
    EXPECT_EQ(reader.lineEvents(), (std::vector<std::string>{"ESC $ I 2 at 9600", "ESC $ I 2 at 9600",
                                                             "ESC $ I 4 at 38400", "ESC $ B ESC % A at 9600"}));
}

TEST_P(EachMemoryCardCall, APortThatCannotBeOpenedIsReportedAfterTheStartLine)
{
    EXPECT_EQ(call("no-such-tty"), VORN_OPEN_FAILED);
    EXPECT_EQ(serviceLog(), GetParam().start);
    EXPECT_EQ(traceLog(), "");
    EXPECT_TRUE(outputsUntouched());
    EXPECT_TRUE(line.sent().empty());
}

TEST_P(EachMemoryCardCall, TheUsbPortsNameIsCaseSensitive)
{
    EXPECT_EQ(call("usb"), VORN_OPEN_FAILED);
    EXPECT_EQ(vr_comportmode, 0);
    EXPECT_STREQ(vr_comportparam, "usb:9600,N,8,1");
}

TEST_P(EachMemoryCardCall, KeepsTheDelaysOfTheLine)
{
    reader.command(GetParam().command, kBlock);
    EXPECT_EQ(call(), 0);
    ASSERT_GE(Clock::sleeps().size(), 2U);
    EXPECT_EQ(Clock::sleeps()[0], 12000U);
    EXPECT_EQ(Clock::sleeps()[1], 7000U);
}

TEST_F(MemoryCardCalls, PoweringOffAPortThatCannotBeOpenedFails)
{
    EXPECT_EQ(IC_M1PowerOff("no-such-tty", "E", 9600, 5), VORN_OPEN_FAILED);
    EXPECT_EQ(serviceLog(), "");
}

// ---------------------------------------------------------------- a whole card

TEST_F(MemoryCardCalls, AWholeSessionLeavesTheLineAsItFoundIt)
{
    const int before = openDescriptors();
    reader.command("32410100", "DEADBEEF")
        .command("32420460" + kKey)
        .command("324304", kBlock)
        .command("324405" + kBlock)
        .command("324305", kBlock)
        .command("32250000");
    EXPECT_EQ(activate(), 0);
    EXPECT_EQ(checkPin(4, "\x60"), 0);
    EXPECT_EQ(readBlock(4), 0);
    EXPECT_EQ(writeBlock(5, kBlock), 0);
    EXPECT_EQ(readBlock(5), 0);
    EXPECT_EQ(powerOff(), 0);
    EXPECT_TRUE(linkClosed());
    EXPECT_EQ(openDescriptors(), before);
    EXPECT_EQ(serviceLog(), "IC_M1ActiveCard start!recv:DEADBEEF!IC_M1CheckCardPin start!return OK!"
                            "IC_M1ReadCard start!return OK!IC_M1WriteCard start!return OK!"
                            "IC_M1ReadCard start!return OK!" +
                                slotEntries("picc_Deactive", "32250000", ""));
    std::vector<std::string> events(6, "ESC $ I 2 at 9600");
    events.insert(events.end(), {"ESC $ I 4 at 38400", "ESC $ B ESC % A at 9600"});
    EXPECT_EQ(reader.lineEvents(), events);
}

TEST_F(MemoryCardCalls, AnotherCallAfterOneThatLeftTheLinkOpenWorks)
{
    reader.command("32410100", "01").command("322310");
    EXPECT_EQ(activate(), 0);
    EXPECT_EQ(IC_PowerOff(port(), "E", 9600, 5, 2, 1), 0);
    EXPECT_TRUE(linkClosed());
}

// ---------------------------------------------------------------- missing arguments

TEST_F(MemoryCardCalls, MissingInputsAreRefusedBeforeTheLinkIsOpened)
{
    EXPECT_EQ(IC_M1CheckCardPin(port(), "E", 9600, 5, 1, nullptr, kRawKey), VORN_BAD_ARGUMENT);
    EXPECT_EQ(IC_M1CheckCardPin(port(), "E", 9600, 5, 1, "a", nullptr), VORN_BAD_ARGUMENT);
    EXPECT_EQ(IC_M1WriteCard(port(), "E", 9600, 5, 1, nullptr), VORN_BAD_ARGUMENT);
    line.serve();
    EXPECT_TRUE(line.sent().empty());
    EXPECT_TRUE(linkClosed());
}

TEST_F(MemoryCardCalls, MissingOutputsAreNotWritten)
{
    reader.command("32410100", "0102").command("324301", kBlock);
    EXPECT_EQ(IC_M1ActiveCard(port(), nullptr, 9600, 5, nullptr, nullptr), 0);
    EXPECT_EQ(IC_M1ReadCard(port(), nullptr, 9600, 5, 1, nullptr), 0);
    EXPECT_EQ(serviceLog(), "IC_M1ActiveCard start!recv:0102!IC_M1ReadCard start!return OK!");
}

TEST_F(MemoryCardCalls, AMissingPortIsNoPort)
{
    EXPECT_EQ(IC_M1ActiveCard(nullptr, "E", 9600, 5, flag.bytes(), uid.text()), VORN_OPEN_FAILED);
    EXPECT_STREQ(vr_comportparam, ":9600,N,8,1");
}
