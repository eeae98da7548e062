// SPDX-License-Identifier: Apache-2.0
// Every way in which the first half of an online transaction ends early: its code, its log line and number, the
// card's power, the line, and what stands in the outputs.
#include "support/allocation.h"
#include "support/interruption.h"
#include "support/transaction.h"

using namespace vorn::test;

namespace {

const DataObjects kCdol1 = {{"9F02", "000000000000"}, {"9C", "01"}, {"9F37", kNumber}};
const std::string kText = kNumberText;

class ArqcFailure : public TransactionTest, public ::testing::WithParamInterface<Way> {
protected:
    ArqcFailure() { card.way = GetParam(); }

    static std::string firstRecord() { return tlv("8C", dolOf(kCdol1)) + tlv("5A", kPan) + tlv("5F34", "02"); }
    static std::string secondRecord() { return tlv("8D", "8A029F3704"); }
    static std::string recordsText() { return lowerCase(tlv("70", firstRecord()) + tlv("70", secondRecord())); }

    // The calls are given type 3: a type of 1 or 2 behind them is the one that answered.
    Exchanges emptySlot() const
    {
        return GetParam() == Way::Contact ? Exchanges{} : Exchanges{Exchange{"3222018000", "", 0x02}};
    }
    Exchanges activation() const { return emptySlot() + Exchanges{card.powerOn()}; }
    Exchanges toSelection() const { return activation() + card.directory(); }
    Exchanges toProcessing() const
    {
        return toSelection() + Exchanges{card.finalSelect("9F6604"), card.processing("F4000000", kProcessing)};
    }
    Exchanges toRecords() const
    {
        return toProcessing() + Exchanges{card.record(1, firstRecord()), card.record(2, secondRecord())};
    }
    Exchanges toCryptogram() const
    {
        return toRecords() + Exchanges{card.generate("80", valuesOf(kCdol1), text.response())};
    }
    std::string generateCommand() const { return card.generate("80", valuesOf(kCdol1), "").command; }

    int first(const std::string& txData, const char* aidList = nullptr, int timeout = 5)
    {
        icType = givenType;
        return TransactionTest::first(txData, aidList, timeout);
    }
    void expectTypeOfTheCard() const { EXPECT_EQ(icType, static_cast<int>(GetParam())); }
    void expectTypeAsGiven() const { EXPECT_EQ(icType, givenType); }

    // The texts begin empty, and the length is as it was.
    void expectTexts(const std::string& arqcText, const std::string& stateText, int arqcLength = -77) const
    {
        EXPECT_EQ(arqc, arqcText);
        EXPECT_EQ(state, stateText);
        EXPECT_EQ(length, arqcLength);
    }
    void expectLogs(const std::string& lines, const std::string& aidList = "", int timeout = 5) const
    {
        EXPECT_EQ(traceLog(), traceOf("IC_GenARQC", timeout));
        EXPECT_EQ(callLog(), firstEntry(kText, aidList, givenType, timeout) + lines);
    }
    // Whether the error line stands in front of the power-off's own entries.
    static bool loggedBeforePowerOff(const std::string& line)
    {
        const std::string log = serviceLog();
        const std::size_t off = std::min(log.find("icc_poweroff"), log.find("picc_Deactive"));
        EXPECT_NE(off, std::string::npos);
        return log.find(line) < off;
    }

    IssuerText text;
    int givenType = 3;
};

INSTANTIATE_TEST_SUITE_P(, ArqcFailure, ::testing::Values(Way::Contact, Way::Field), wayName);

} // namespace

// ---------------------------------------------------------------- before the card

TEST_P(ArqcFailure, WithoutAStateBufferTouchesNothing)
{
    char arqcText[] = "as it was";
    icType = givenType;
    EXPECT_EQ(IC_GenARQC(port(), "E7", 115200, 5, &icType, nullptr, kText.c_str(), &length, arqcText, nullptr), -24);
    EXPECT_STREQ(arqcText, "as it was");
    EXPECT_EQ(length, -77);
    expectTypeAsGiven();
    EXPECT_TRUE(reader.lineEvents().empty());
    EXPECT_TRUE(line.sent().empty());
    expectLogs("param icc_tempappdata  is null!");
}

TEST_P(ArqcFailure, WithoutMemoryForTheTextDoesNotOpenTheLink)
{
    icType = givenType;
    const RefusedBlock block(1);
    EXPECT_EQ(first(kText), -1);
    EXPECT_TRUE(block.met());
    EXPECT_EQ(arqc + state, "");
    EXPECT_EQ(length, -77);
    expectTypeAsGiven();
    EXPECT_TRUE(line.sent().empty());
}

TEST_P(ArqcFailure, WithoutAPortEmptiesTheTexts)
{
    std::vector<char> arqcText(ICC_CRYPTOGRAM_CAPACITY, '~'), stateText(ICC_STATE_CAPACITY, '~');
    icType = givenType;
    EXPECT_EQ(IC_GenARQC("pts/nowhere", "E7", 115200, 5, &icType, "", kText.c_str(), &length, arqcText.data(),
                         stateText.data()),
              -3);
    EXPECT_STREQ(arqcText.data(), "");
    EXPECT_STREQ(stateText.data(), "");
    EXPECT_EQ(arqcText[1], '~');
    EXPECT_EQ(stateText[1], '~');
    EXPECT_EQ(length, -77);
    expectTypeAsGiven();
    EXPECT_TRUE(line.sent().empty());
    EXPECT_EQ(traceLog(), "----------------------------------------------\r\nIC_GenARQC\r\nnPortNo=pts/nowhere "
                          "extendPort=E7 nBaudRate=115200 nTimeout=5\r\nActual input is:\r\n"
                          "pts/nowhere:9600,N,8,1\r\n");
    EXPECT_EQ(callLog(), "IC_GenARQC nPortNo:pts/nowhere,extendPort:E7,nBaudRate:115200,nTimeout:5,pnIcType:" +
                             std::to_string(givenType) + ",pszAIDlist:,pszTxData:" + kText + "\r\n");
}

TEST_P(ArqcFailure, WithoutTimeIsTooLateEvenForACardThatAnswers)
{
    for (const int timeout : {0, -1, -3600}) {
        forgetLogs();
        expect(activation()); // and stays on
        EXPECT_EQ(first(kText, "", timeout), -2);
        expectTypeAsGiven();
        EXPECT_TRUE(linkClosed());
        expectTexts("", "");
        expectLogs("", "", timeout);
    }
}

TEST_P(ArqcFailure, WithoutTimeAsksForTheCardOnce)
{
    givenType = static_cast<int>(GetParam());
    for (const std::uint8_t status : Bytes{0x02, 0x06, 0x0A}) {
        expect(Exchange{card.powerOn().command, "", status});
        EXPECT_EQ(first(kText, "", 0), -2);
        EXPECT_TRUE(linkClosed());
        EXPECT_TRUE(reader.done());
    }
}

TEST_P(ArqcFailure, WhenTheReaderRefusesToPowerTheCard)
{
    // A contact slot that refuses leaves the interface of the call before.
    m_VrICType = static_cast<unsigned char>(GetParam());
    expect(emptySlot() + Exchanges{Exchange{card.powerOn().command, "", 0x0A}, card.powerOff()});
    EXPECT_EQ(first(kText), -25);
    expectTypeAsGiven();
    expectTexts("", "");
    expectLogs(errorLine(3665, -25));
    EXPECT_FALSE(loggedBeforePowerOff(errorLine(3665, -25)));
    expectClosed();
}

TEST_P(ArqcFailure, WhenTheReaderRefusesAfterItHadNoCard)
{
    givenType = static_cast<int>(GetParam());
    expect({Exchange{card.powerOn().command, "", 0x02}, Exchange{card.powerOn().command, "", 0x06},
            Exchange{card.powerOn().command, "", 0xE1}, card.powerOff()});
    EXPECT_EQ(first(kText), -25);
    expectLogs(errorLine(3665, -25));
    expectClosed();
}

TEST_P(ArqcFailure, OfAnotherCardType)
{
    // The interface is the one of the call before.
    m_VrICType = static_cast<unsigned char>(GetParam());
    for (const int type : {0, 4, -1, 257}) {
        forgetLogs();
        givenType = type;
        expect(card.powerOff());
        EXPECT_EQ(first(kText), -1);
        expectTypeAsGiven();
        expectTexts("", "");
        expectLogs(errorLine(3665, -1));
        EXPECT_TRUE(linkClosed());
    }
}

TEST_P(ArqcFailure, WithoutACardTypeIsOfAnotherOne)
{
    m_VrICType = static_cast<unsigned char>(GetParam());
    std::vector<char> arqcText(ICC_CRYPTOGRAM_CAPACITY), stateText(ICC_STATE_CAPACITY);
    expect(card.powerOff());
    EXPECT_EQ(
        IC_GenARQC(port(), "E7", 115200, 5, nullptr, "", kText.c_str(), &length, arqcText.data(), stateText.data()),
        -1);
    givenType = 0;
    expectLogs(errorLine(3665, -1));
    expectClosed();
}

// ---------------------------------------------------------------- selection

TEST_P(ArqcFailure, WithoutADirectory)
{
    expect(activation() + Exchanges{card.apdu(select(kPseName), "6A82"), card.powerOff()});
    EXPECT_EQ(first(kText), -26);
    expectTypeOfTheCard();
    expectTexts("", "");
    expectLogs(errorLine(3681, 0));
    EXPECT_FALSE(loggedBeforePowerOff(errorLine(3681, 0)));
    expectClosed();
}

TEST_P(ArqcFailure, WithAnEmptyDirectory)
{
    expect(activation() + Exchanges{card.apdu(select(kPseName), ok(directoryFci(kPseName))),
                                    card.apdu(readRecord(1, 1), "6A83"), card.powerOff()});
    EXPECT_EQ(first(kText), -26);
    expectTypeOfTheCard();
    expectLogs(errorLine(3681, 0));
    expectClosed();
}

TEST_P(ArqcFailure, WithNeitherTheListsApplicationNorADirectory)
{
    expect(activation() +
           Exchanges{card.apdu(select("A00000000499"), "6A82"), card.apdu(select(kPseName), "6A81"), card.powerOff()});
    EXPECT_EQ(first(kText, "A00000000499"), -26);
    expectTypeOfTheCard();
    expectTexts("", "");
    expectLogs(errorLine(3720, 0), "A00000000499");
    EXPECT_FALSE(loggedBeforePowerOff(errorLine(3720, 0)));
    expectClosed();
}

TEST_P(ArqcFailure, OfTheFinalSelect)
{
    expect(toSelection() + Exchanges{card.apdu(select(kAid), "6A82"), card.powerOff()});
    EXPECT_EQ(first(kText), -27);
    expectTypeOfTheCard();
    expectTexts("", "");
    expectLogs(errorLine(3692, 0x6A82));
    EXPECT_FALSE(loggedBeforePowerOff(errorLine(3692, 0x6A82)));
    expectClosed();
}

TEST_P(ArqcFailure, OfTheFinalSelectOfABlockedApplication)
{
    expect(toSelection() +
           Exchanges{card.apdu(select(kAid), "6283"), card.apdu("00C0000000", "6D00"), card.powerOff()});
    EXPECT_EQ(first(kText), -27);
    expectLogs(errorLine(3692, 0x6D00));
    expectClosed();
}

TEST_P(ArqcFailure, OfTheFinalSelectAfterAList)
{
    expect(activation() + Exchanges{card.apdu(select("A00000000499"), "6A82")} + card.directory() +
           Exchanges{card.apdu(select(kAid), "6999"), card.powerOff()});
    EXPECT_EQ(first(kText, "A00000000499"), -27);
    expectTypeOfTheCard();
    expectTexts("", "");
    expectLogs(errorLine(3731, 0x6999), "A00000000499");
    EXPECT_FALSE(loggedBeforePowerOff(errorLine(3731, 0x6999)));
    expectClosed();
}

// ---------------------------------------------------------------- the application

TEST_P(ArqcFailure, OfProcessingOptions)
{
    expect(toSelection() + Exchanges{card.finalSelect(), card.apdu("80A80000028300", "6985"), card.powerOff()});
    EXPECT_EQ(first(kText), -28);
    expectTypeOfTheCard();
    expectTexts("", "");
    expectLogs(errorLine(4054, 0x6985));
    EXPECT_FALSE(loggedBeforePowerOff(errorLine(4054, 0x6985)));
    expectClosed();
}

TEST_P(ArqcFailure, OfProcessingOptionsInNeitherFormat)
{
    for (const char* response : {"8000", "77048202 7C00", "6F00", ""}) {
        forgetLogs();
        expect(toSelection() +
               Exchanges{card.finalSelect(), card.apdu("80A80000028300", ok(response)), card.powerOff()});
        EXPECT_EQ(first(kText), -28);
        expectLogs(errorLine(4054, -1));
        EXPECT_TRUE(linkClosed());
    }
}

TEST_P(ArqcFailure, OfAProcessingListThatCannotBeRead)
{
    expect(toSelection() + Exchanges{card.finalSelect("9F660495059F"), card.powerOff()});
    EXPECT_EQ(first(kText), -28);
    expectLogs(errorLine(4054, -1));
    expectClosed();
}

TEST_P(ArqcFailure, WithoutTheFirstListLeavesTheCardOn)
{
    const std::string record = tlv("5A", kPan) + tlv("8D", "8A02");
    expect(toProcessing() + Exchanges{card.record(1, record), card.apdu("00B2021400", "6A83")});
    EXPECT_EQ(first(kText), -2);
    expectTypeOfTheCard();
    expectTexts("", lowerCase(tlv("70", record)));
    expectLogs(errorLine(4119, -1, "(-2)"));
    expectClosed();
}

TEST_P(ArqcFailure, WithoutAnyRecordHasNoFirstList)
{
    expect(toProcessing() + Exchanges{card.apdu("00B2011400", "6A83"), card.apdu("00B2021400", "6A83")});
    EXPECT_EQ(first(kText), -2);
    expectTexts("", "");
    expectLogs(errorLine(4119, -1, "(-2)"));
    expectClosed();
}

TEST_P(ArqcFailure, OfAFirstListThatCannotBeBuiltLeavesTheCardOn)
{
    const std::string lists[] = {
        "",                     // asks for nothing
        "9F0206FF01",           // padding in it
        "9F02069F",             // an unfinished tag
        "9F0206950501",         // a last tag without a length
        repeated("9F0206", 43), // 258 bytes: more than a command carries
    };
    for (const std::string& list : lists) {
        forgetLogs();
        const std::string record = tlv("8C", list) + tlv("8D", "8A02");
        expect(toProcessing() + Exchanges{card.record(1, record), card.apdu("00B2021400", "6A83")});
        EXPECT_EQ(first(kText), -1);
        expectTypeOfTheCard();
        expectTexts("", lowerCase(tlv("70", record)));
        expectLogs(errorLine(4134, -1));
        EXPECT_TRUE(linkClosed());
    }
}

TEST_P(ArqcFailure, OfTheCryptogramLogsBeforeItPowersOff)
{
    expect(toRecords() + Exchanges{card.apdu("80AE80000B" + valuesOf(kCdol1), "6985"), card.powerOff()});
    EXPECT_EQ(first(kText), -29);
    expectTypeOfTheCard();
    expectTexts("", recordsText());
    expectLogs(errorLine(4145, 0x6985));
    EXPECT_TRUE(loggedBeforePowerOff(errorLine(4145, 0x6985)));
    expectClosed();
}

TEST_P(ArqcFailure, OfACryptogramThatIsNoRequestLeavesNoLine)
{
    for (const char* information : {"00", "40", "C0", "3F", "7F", "41"}) {
        forgetLogs();
        text.information = information;
        expect(toCryptogram());
        EXPECT_EQ(first(kText), -2);
        expectTypeOfTheCard();
        expectTexts("", recordsText());
        expectLogs("");
        EXPECT_TRUE(linkClosed());
    }
}

TEST_P(ArqcFailure, OfAnEmptyAnswerIsNoRequest)
{
    for (const char* response : {"", "80", "8000"}) {
        forgetLogs();
        expect(toRecords() + Exchanges{card.generate("80", valuesOf(kCdol1), response)});
        EXPECT_EQ(first(kText), -2);
        expectTexts("", recordsText());
        expectLogs("");
        EXPECT_TRUE(linkClosed());
    }
}

TEST_P(ArqcFailure, OfACryptogramInFormat2)
{
    // The third byte of a template 77 is a tag's first one, and 9F looks like a request for going online.
    const std::string format2 = tlv("77", "9F270180 9F36020137" + tlv("9F26", text.cryptogram));
    expect(toRecords() + Exchanges{card.generate("80", valuesOf(kCdol1), format2)});
    EXPECT_EQ(first(kText), -3);
    expectTypeOfTheCard();
    expectTexts("", recordsText());
    expectLogs(errorLine(4162, -1));
    expectClosed();
}

TEST_P(ArqcFailure, WithoutTheSecondListHasWrittenTheArqc)
{
    const std::string record = firstRecord() + tlv("5F20", hexOf("LI SI"));
    expect(toProcessing() + Exchanges{card.record(1, record), card.apdu("00B2021400", "6A82"),
                                      card.generate("80", valuesOf(kCdol1), text.response()), card.lastOnline()});
    EXPECT_EQ(first(kText), -2);
    expectTypeOfTheCard();
    expectTexts(text.arqc(), lowerCase(tlv("70", record)), static_cast<int>(text.arqc().size()));
    expectLogs(errorLine(4465, -1));
    expectClosed();
}

// ---------------------------------------------------------------- the clock

namespace {

// At each reading of the clock: the command that the reader gets next.
class ArqcClock : public ArqcFailure {
protected:
    ArqcClock()
    {
        Clock::onTime([this] { readings.push_back(reader.next()); });
    }
    ~ArqcClock() override { Clock::onTime({}); }

    std::vector<std::string> readings;
};

INSTANTIATE_TEST_SUITE_P(, ArqcClock, ::testing::Values(Way::Contact, Way::Field), wayName);

} // namespace

// Two readings bound the wait for the card. A third one is for the number that the terminal draws, and the application
// is selected by then.
TEST_P(ArqcClock, IsReadForTheNumberBehindTheSelection)
{
    const Exchange gpo = card.apdu("80A80000028300", "6985");
    const std::string directory = card.directory().front().command;
    expect(toSelection() + Exchanges{card.finalSelect(), gpo, card.powerOff()});
    EXPECT_EQ(first(""), -28);
    EXPECT_EQ(readings, (std::vector<std::string>{directory, directory, gpo.command}));
}

TEST_P(ArqcClock, IsReadForTheNumberBehindTheSelectionByAList)
{
    const Exchange gpo = card.apdu("80A80000028300", "6985");
    expect(activation() + Exchanges{card.finalSelect(), gpo, card.powerOff()});
    EXPECT_EQ(first("", kAid.c_str()), -28);
    const std::string selection = card.finalSelect().command;
    EXPECT_EQ(readings, (std::vector<std::string>{selection, selection, gpo.command}));
}

TEST_P(ArqcClock, IsNotReadForANumberThatIsGiven)
{
    expect(toSelection() + Exchanges{card.finalSelect(), card.apdu("80A80000028300", "6985"), card.powerOff()});
    EXPECT_EQ(first(kText), -28);
    EXPECT_EQ(readings.size(), 2U);
}

TEST_P(ArqcClock, IsNotReadForTheNumberWithoutAnApplication)
{
    const std::string other = "A00000000499";
    const Exchange absent = card.apdu(select(kPseName), "6A82");
    const Exchange unknown = card.apdu(select(other), "6A82");
    expect(activation() + Exchanges{absent, card.powerOff()});
    EXPECT_EQ(first(""), -26);
    EXPECT_EQ(readings, (std::vector<std::string>{absent.command, absent.command}));

    readings.clear();
    expect(activation() + Exchanges{unknown, absent, card.powerOff()});
    EXPECT_EQ(first("", other.c_str()), -26);
    EXPECT_EQ(readings, (std::vector<std::string>{unknown.command, unknown.command}));
}

TEST_P(ArqcClock, IsNotReadForTheNumberWhenTheFinalSelectFails)
{
    const std::string other = "A00000000499";
    const Exchange unknown = card.apdu(select(other), "6A82");
    const std::string directory = card.directory().front().command;
    expect(toSelection() + Exchanges{card.apdu(select(kAid), "6985"), card.powerOff()});
    EXPECT_EQ(first(""), -27);
    EXPECT_EQ(readings, (std::vector<std::string>{directory, directory}));

    readings.clear();
    expect(activation() + Exchanges{unknown} + card.directory() +
           Exchanges{card.apdu(select(kAid), "6985"), card.powerOff()});
    EXPECT_EQ(first("", other.c_str()), -27);
    EXPECT_EQ(readings, (std::vector<std::string>{unknown.command, unknown.command}));
}

// ---------------------------------------------------------------- the whole log of one failure, dumps included

TEST_P(ArqcFailure, WritesEveryExchangeIntoTheServiceLog)
{
    const bool contact = GetParam() == Way::Contact;
    givenType = static_cast<int>(GetParam());
    expect({card.powerOn(), card.apdu(select(kPseName), "6A82"), card.powerOff()});
    EXPECT_EQ(first(kText), -26);
    const auto entry = [](const std::string& marker, const std::string& command, const std::string& payload) {
        return "Indata----------------------" + marker + "\n" + command + "\nOutdata----------------------" + marker +
               "\n" + payload + "\n";
    };
    EXPECT_EQ(serviceLog(),
              firstEntry(kText, "", givenType) +
                  (contact ? entry("icc_poweron", "32 22 01 80 00 ", "3B 00 ")
                           : entry("picc_Active", "32 24 01 80 ", "3B 80 01 ")) +
                  entry("capdu",
                        std::string("\n32 26 ") + (contact ? "00" : "FF") +
                            " 00 A4 04 00 0E 31 50 41 59 2E 53 59 53 \n2E 44 44 46 30 31 ",
                        "6A 82 ") +
                  (contact ? entry("icc_poweroff", "32 23 00 ", "") : entry("picc_Deactive", "32 25 00 00 ", "")) +
                  errorLine(3681, 0));
}

// ---------------------------------------------------------------- interrupted at every exchange

namespace {

// What comes after the exchange at which it happens.
struct Consequence {
    std::size_t at; // the exchange in the list of an undisturbed call
    const char* name;
    Exchanges after; // the commands that follow; answers only where a single exchange is lost
    int result;
    std::string lines; // with "$" for the number that the failing step left
    bool arqcWritten;
    std::string state;
};

class ArqcInterrupted : public ArqcFailure {
protected:
    // From the activation that succeeds on.
    Exchanges undisturbed() const
    {
        const Exchanges all = toCryptogram() + Exchanges{card.lastOnline()};
        return Exchanges(all.begin() + static_cast<std::ptrdiff_t>(emptySlot().size()), all.end());
    }
    std::string fullState() const
    {
        return hexByte(static_cast<std::size_t>(GetParam())) + secondRecord() + tlv("5A", kPan) + tlv("5F34", "02") +
               "82027C00";
    }
    std::string successLines() const
    {
        const std::string written = text.arqc();
        return "pnARQCLen:" + std::to_string(written.size()) + "\r\npszARQC:" + written +
               "\r\nicc_tempappdata:" + fullState() + "\r\n";
    }

    void expectAs(const Exchange& exchange, Interruption how)
    {
        if (how == Interruption::DeadReader || how == Interruption::LostReply) {
            reader.silent(exchange.command);
        } else if (how == Interruption::EmptyReply || how == Interruption::OneByte) {
            reader.command(exchange.command, how == Interruption::OneByte ? "90" : "");
        } else {
            reader.command(exchange.command, "", 0x06);
        }
    }

    void interrupt(const Consequence& row, Interruption how)
    {
        SCOPED_TRACE(row.name);
        forgetLogs();
        const Exchanges all = undisturbed();
        expect(emptySlot() + Exchanges(all.begin(), all.begin() + static_cast<std::ptrdiff_t>(row.at)));
        expectAs(all[row.at], how);
        const bool forGood = how == Interruption::DeadReader || how == Interruption::CardPulled;
        for (const Exchange& exchange : row.after) {
            if (forGood) {
                expectAs(exchange, how);
            } else {
                expect(exchange);
            }
        }
        text.lastOnline = all.size() == row.at + 1 ? "" : IssuerText().lastOnline;
        EXPECT_EQ(first(kText), row.result);
        expectTypeOfTheCard();
        std::string lines = row.result == 0 ? successLines() : row.lines;
        if (lines.find('$') != std::string::npos) {
            lines.replace(lines.find('$'), 1, resultOf(how));
        }
        expectLogs(lines);
        const std::string written = row.arqcWritten ? text.arqc() : "";
        expectTexts(written, row.result == 0 ? fullState() : row.state,
                    row.arqcWritten ? static_cast<int>(written.size()) : -77);
        EXPECT_TRUE(linkClosed());
        EXPECT_TRUE(reader.done()) << reader.next();
        reader.clear();
    }

    static std::string logged(int number, const std::string& result)
    {
        return "[ICC/ICC_COMM_VORN:" + std::to_string(number) + "]" + result;
    }

    // For good: no later exchange succeeds either.
    std::vector<Consequence> forGood() const
    {
        const Exchanges all = undisturbed();
        const std::string one = lowerCase(tlv("70", firstRecord()));
        const std::string two = lowerCase(tlv("70", secondRecord()));
        return {
            {1, "SELECT of the directory", {card.powerOff()}, -26, logged(3681, "0"), false, ""},
            {2, "first directory record", {card.powerOff()}, -26, logged(3681, "0"), false, ""},
            {3, "end of the directory", {all[4], card.powerOff()}, -27, logged(3692, "$"), false, ""},
            {4, "final SELECT", {card.powerOff()}, -27, logged(3692, "$"), false, ""},
            {5, "processing options", {card.powerOff()}, -28, logged(4054, "$"), false, ""},
            {6, "first record", {all[7]}, -2, logged(4119, "-1(-2)"), false, ""},
            {7, "second record", {all[8], card.powerOff()}, -29, logged(4145, "$"), false, one},
            {8, "cryptogram", {card.powerOff()}, -29, logged(4145, "$"), false, one + two},
            {9, "last online counter", {}, 0, "", true, ""},
        };
    }

    // For one exchange: what follows succeeds, and the call goes on where it can.
    std::vector<Consequence> once() const
    {
        const Exchanges all = undisturbed();
        const std::string one = lowerCase(tlv("70", firstRecord()));
        const std::string two = lowerCase(tlv("70", secondRecord()));
        return {
            {1, "SELECT of the directory", {card.powerOff()}, -26, logged(3681, "0"), false, ""},
            {2, "first directory record", {card.powerOff()}, -26, logged(3681, "0"), false, ""},
            {3, "end of the directory", Exchanges(all.begin() + 4, all.end()), 0, "", true, ""},
            {4, "final SELECT", {card.powerOff()}, -27, logged(3692, "$"), false, ""},
            {5, "processing options", {card.powerOff()}, -28, logged(4054, "$"), false, ""},
            {6, "first record", {all[7]}, -2, logged(4119, "-1(-2)"), false, two},
            {7, "second record", {all[8], all[9]}, -2, logged(4465, "-1"), true, one},
            {8, "cryptogram", {card.powerOff()}, -29, logged(4145, "$"), false, one + two},
            {9, "last online counter", {}, 0, "", true, ""},
        };
    }
};

INSTANTIATE_TEST_SUITE_P(, ArqcInterrupted, ::testing::Values(Way::Contact, Way::Field), wayName);

} // namespace

TEST_P(ArqcInterrupted, ByAReaderThatDies)
{
    for (const Consequence& row : forGood()) {
        interrupt(row, Interruption::DeadReader);
    }
}

TEST_P(ArqcInterrupted, ByOneLostReply)
{
    for (const Consequence& row : once()) {
        interrupt(row, Interruption::LostReply);
    }
}

TEST_P(ArqcInterrupted, ByACardThatIsPulled)
{
    for (const Consequence& row : forGood()) {
        interrupt(row, Interruption::CardPulled);
    }
}

TEST_P(ArqcInterrupted, ByACardThatSlips)
{
    for (const Consequence& row : once()) {
        interrupt(row, Interruption::CardSlipped);
    }
}

TEST_P(ArqcInterrupted, ByAReplyOfNoneOrOneByte)
{
    for (const Interruption how : {Interruption::EmptyReply, Interruption::OneByte}) {
        for (const Consequence& row : once()) {
            interrupt(row, how);
        }
    }
}

TEST_P(ArqcInterrupted, ByAReaderThatIsDeadFromTheFirst)
{
    m_VrICType = static_cast<unsigned char>(GetParam());
    expect(emptySlot());
    reader.silent(card.powerOn().command);
    reader.silent(card.powerOff().command);
    EXPECT_EQ(first(kText), -11);
    expectTypeAsGiven();
    expectTexts("", "");
    expectLogs(errorLine(3665, -11));
    expectClosed();
}

TEST_P(ArqcInterrupted, WhileWaitingForTheCard)
{
    givenType = static_cast<int>(GetParam());
    expect({Exchange{card.powerOn().command, "", 0x06}, Exchange{card.powerOn().command, "", 0x06}});
    reader.silent(card.powerOn().command);
    expect(card.powerOff());
    EXPECT_EQ(first(kText), -11);
    expectLogs(errorLine(3665, -11));
    expectClosed();
}

TEST_P(ArqcInterrupted, InsideTheListsSelection)
{
    // Without an answer the list has found nothing, and the directory is asked.
    expect(activation());
    reader.silent(card.apdu(select(kAid), "").command);
    reader.silent(card.apdu(select(kPseName), "").command);
    reader.silent(card.powerOff().command);
    EXPECT_EQ(first(kText, kAid.c_str()), -26);
    expectTypeOfTheCard();
    expectLogs(errorLine(3720, 0), kAid);
    expectClosed();
}

TEST_P(ArqcInterrupted, ByAHalfReply)
{
    // The frame ends in the middle: the same as none.
    expect(toRecords());
    Bytes half = replyFrame(0, fromHex(ok(text.response())));
    half.resize(half.size() / 2);
    reader.raw(generateCommand(), half);
    expect(card.powerOff());
    EXPECT_EQ(first(kText), -29);
    expectLogs(errorLine(4145, -11));
    expectClosed();
}

TEST_P(ArqcInterrupted, ByAReaderThatRefusesTheExchange)
{
    expect(toRecords() + Exchanges{Exchange{generateCommand(), "", 0x04}, card.powerOff()});
    EXPECT_EQ(first(kText), -29);
    expectLogs(errorLine(4145, -10));
    expectClosed();
}
