// SPDX-License-Identifier: Apache-2.0
// IC_GetTranDeta: the transaction log of a card as one text of lettered fields.
#include "support/card_text.h"
#include "support/scripted_reader.h"
#include "support/service_call.h"

#include "ICC_COMM_VORN.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

using namespace vorn::test;

namespace {

const std::string kDebit = "A000000333010101";
const std::string kCredit = "A000000333010102";
const std::string kTenGbkCharacters = "C7E0BACCBFA7B7C8CAE9B5EAD4C4B6C1BDC7C2E4"; // ten characters of two bytes
const std::string kTenCharacters = "青禾咖啡书店阅读角落";

std::string padded(const std::string& hex, std::size_t bytes) { return hex + repeated("00", bytes - hex.size() / 2); }

// A log record of the fixed layout, and the text that stands for it.
struct LogRecord {
    std::string date = "240229";
    std::string time = "235958";
    std::string amount = "000000098765";
    std::string other = "000000000310";
    std::string country = "0702";
    std::string currency = "0978";
    std::string name = padded(hexOf("KIOSK 7"), 20);
    std::string type = "21";
    std::string counter = "01C4";
    std::string behind; // the card's own extension of the record
    int nameCount = 7;  // W's count
    std::string nameText = "KIOSK 7";

    std::string hex() const
    {
        return date + time + amount + other + country + currency + name + type + counter + behind;
    }

    std::string text() const
    {
        char count[8];
        std::snprintf(count, sizeof count, "%03d", nameCount);
        return "P012Q012" + other + "R004" + currency + "S006" + date + "T002" + type + "U006" + time + "V004" +
               country + "W" + count + nameText + "X004" + counter;
    }
};

LogRecord named(const std::string& nameHex, int count, const std::string& text)
{
    LogRecord record;
    record.name = nameHex;
    record.nameCount = count;
    record.nameText = text;
    return record;
}

std::string fciWithLog(const std::string& logEntry, const std::string& name = kDebit)
{
    return ok(applicationFci(name, tlv("BF0C", tlv("9F4D", logEntry))));
}

class TransactionLog : public ReaderTest {
protected:
    int call(const char* aidList, int icType = 1, int timeout = 9)
    {
        type = icType;
        return IC_GetTranDeta(port(), "P2", 57600, timeout, &type, aidList, &length, detail.text());
    }
    int call() { return call(kDebit.c_str()); }

    // A powered contact card whose application carries this log entry.
    void selectWithLog(const std::string& logEntry) { reader.powerOn().apdu(select(kDebit), fciWithLog(logEntry)); }

    void expectUntouchedOutputs() const
    {
        EXPECT_TRUE(detail.untouched());
        EXPECT_EQ(length, -44);
    }

    void expectClosed() const
    {
        EXPECT_TRUE(reader.done()) << "not asked: " << reader.next();
        EXPECT_TRUE(linkClosed());
        EXPECT_EQ(reader.lineEvents(), lineOfOneCall());
    }

    std::string entry(const std::string& aidList, int icType = 1, int timeout = 9) const
    {
        return "IC_GetTranDeta nPortNo:" + line.port() +
               ",extendPort:P2,nBaudRate:57600,nTimeout:" + std::to_string(timeout) +
               ",pnIcType:" + std::to_string(icType) + ",pszAIDlist:" + aidList + "\r\n";
    }
    static std::string results(const std::string& text)
    {
        return "pnTxDetailLen:" + std::to_string(text.size()) + "\r\nTxDetail:" + text + "\r\n";
    }

    Output detail{ICC_TX_DETAIL_CAPACITY};
    int length = -44;
    int type = 0;
};

} // namespace

// ---------------------------------------------------------------- the text

TEST_F(TransactionLog, ReadsOneTransactionFromTheWire)
{
    reader.powerOn("3B 6D 00 00 80 31 80 65")
        .apdu("00 A4 04 00 08 A0 00 00 03 33 01 01 01",
              "6F 15 84 08 A0 00 00 03 33 01 01 01 A5 09 BF 0C 06 9F 4D 03 0B 01 FF 90 00")
        .apdu("00 B2 01 5C 00", "23 12 31 09 15 42 00 00 00 01 99 00 00 00 00 00 50 00 01 56 03 44"
                                "43 41 46 45 20 4E 4F 52 44 00 00 00 00 00 00 00 00 00 00 00 00 00 1F 90 00")
        .powerOff();
    EXPECT_EQ(call("A000000333010101"), 0);
    EXPECT_EQ(detail.value(), "P012Q012000000005000R0040344S006231231T00200U006091542V0040156"
                              "W009CAFE NORDX004001F");
    EXPECT_EQ(length, 83);
    expectClosed();
}

TEST_F(TransactionLog, AppendsTheRecordsInTheirOrderWithoutSeparators)
{
    LogRecord second;
    second.date = "240301";
    second.counter = "01C3";
    LogRecord third = named(padded("41", 20), 1, "A");
    third.other = "999999999999";
    selectWithLog("0503");
    reader.apdu("00B2012C00", ok(LogRecord{}.hex()))
        .apdu("00B2022C00", ok(second.hex()))
        .apdu("00B2032C00", ok(third.hex()))
        .powerOff();
    EXPECT_EQ(call(), 0);
    EXPECT_EQ(detail.value(), LogRecord{}.text() + second.text() + third.text());
    EXPECT_EQ(length, static_cast<int>(detail.value().size()));
}

TEST_F(TransactionLog, TheAuthorisedAmountIsWrittenOverByTheOtherAmount)
{
    LogRecord record;
    record.amount = "123456789012";
    record.other = "000000000042";
    selectWithLog("0101");
    reader.apdu("00B2010C00", ok(record.hex())).powerOff();
    EXPECT_EQ(call(), 0);
    EXPECT_EQ(detail.value().substr(0, 20), "P012Q012000000000042");
    EXPECT_EQ(detail.value().find("123456789012"), std::string::npos);
}

TEST_F(TransactionLog, AnEmptyLogIsAnEmptyTextAndSuccess)
{
    selectWithLog("0B00");
    reader.powerOff();
    EXPECT_EQ(call(), 0);
    EXPECT_EQ(detail.value(), "");
    EXPECT_EQ(length, 0);
    EXPECT_EQ(callLog(), entry(kDebit) + "pnTxDetailLen:0\r\nTxDetail:\r\n");
    expectClosed();
}

TEST_F(TransactionLog, TenRecordsOfTheEleventhShortFile)
{
    selectWithLog("0B0A");
    std::string text;
    for (int number = 1; number <= 10; ++number) {
        LogRecord record;
        record.counter = "00" + hexByte(static_cast<std::size_t>(0x40 + number));
        reader.apdu("00B2" + hexByte(static_cast<std::size_t>(number)) + "5C00", ok(record.hex()));
        text += record.text();
    }
    reader.powerOff();
    EXPECT_EQ(call(), 0);
    EXPECT_EQ(detail.value(), text);
}

// The short file identifier in READ RECORD's P2.
TEST_F(TransactionLog, TheShortFileIdentifierIsShiftedIntoTheCommand)
{
    const std::pair<std::string, std::string> rows[] = {{"01", "0C"}, {"0A", "54"}, {"0F", "7C"}, {"1E", "F4"},
                                                        {"1F", "FC"}, {"00", "04"}, {"25", "2C"}};
    for (const auto& [shortFile, p2] : rows) {
        SCOPED_TRACE(shortFile);
        selectWithLog(shortFile + "01");
        reader.apdu("00B201" + p2 + "00", ok(LogRecord{}.hex())).powerOff();
        EXPECT_EQ(call(), 0);
        EXPECT_EQ(detail.value(), LogRecord{}.text());
    }
}

TEST_F(TransactionLog, WhatFollowsTheLogEntrysSecondByteDoesNotCount)
{
    selectWithLog("0201FF0A");
    reader.apdu("00B2011400", ok(LogRecord{}.hex())).powerOff();
    EXPECT_EQ(call(), 0);
    EXPECT_EQ(detail.value(), LogRecord{}.text());
}

TEST_F(TransactionLog, TheFullestLogFillsNoMoreThanItsCapacity)
{
    // 80h is one byte in GBK and three in UTF-8: a name cannot grow further.
    const LogRecord record = named(repeated("80", 20), 23, repeated("€", 20));
    selectWithLog("0BFF");
    std::string text;
    for (std::size_t number = 1; number <= 255; ++number) {
        reader.apdu("00B2" + hexByte(number) + "5C00", ok(record.hex()));
        text += record.text();
    }
    reader.powerOff();
    EXPECT_EQ(call(), 0);
    EXPECT_EQ(detail.value(), text);
    EXPECT_EQ(length, ICC_TX_DETAIL_CAPACITY - 1);
}

TEST_F(TransactionLog, AFullLogOfChineseNamesIsDelivered)
{
    LogRecord record = named(kTenGbkCharacters, 20, kTenCharacters);
    record.type = "00";
    selectWithLog("0BFF");
    for (std::size_t number = 1; number <= 255; ++number) {
        reader.apdu("00B2" + hexByte(number) + "5C00", ok(record.hex()));
    }
    reader.powerOff();
    EXPECT_EQ(call(), 0);
    EXPECT_EQ(length, 255 * 104);
    EXPECT_EQ(detail.value().substr(254 * 104), record.text());
}

// ---------------------------------------------------------------- the merchant's name

namespace {

struct NameRow {
    const char* name;
    LogRecord record;
};

LogRecord withType(LogRecord record, const std::string& type, const std::string& counter = "0012",
                   const std::string& behind = "")
{
    record.type = type;
    record.counter = counter;
    record.behind = behind;
    return record;
}

} // namespace

class MerchantName : public TransactionLog, public ::testing::WithParamInterface<NameRow> {};

TEST_P(MerchantName, IsCountedInTheCardsBytesAndWrittenInUtf8)
{
    const LogRecord& record = GetParam().record;
    selectWithLog("0101");
    reader.apdu("00B2010C00", ok(record.hex())).powerOff();
    EXPECT_EQ(call(), 0);
    EXPECT_EQ(detail.value(), record.text());
    EXPECT_EQ(length, static_cast<int>(record.text().size()));
}

INSTANTIATE_TEST_SUITE_P(
    Names, MerchantName,
    ::testing::Values(
        NameRow{"TwentyGbkBytesBeforeATypeOfZero", withType(named(kTenGbkCharacters, 20, kTenCharacters), "00")},
        NameRow{"TwentyBytesCountOnIntoTheType", withType(named(kTenGbkCharacters, 21, kTenCharacters), "01")},
        NameRow{"CountsOnIntoTheFirstByteOfTheCounter",
                withType(named(repeated("42", 20), 22, std::string(20, 'B')), "01", "0500")},
        NameRow{"CountsOnToTheEndOfTheRecord",
                withType(named(repeated("42", 20), 23, std::string(20, 'B')), "01", "0501")},
        NameRow{"CountsOnBehindTheLayout",
                withType(named(repeated("42", 20), 27, std::string(20, 'B')), "60", "1111", "3132333400FF")},
        // 255 bytes without a zero: all from the name on, which begins at 22, count.
        NameRow{"CountsTheWholeOfTheLongestRecord",
                withType(named(repeated("42", 20), 233, std::string(20, 'B')), "60", "1111", repeated("31", 210))},
        NameRow{
            "StopsOneByteBeforeTheEndOfTheLongestRecord",
            withType(named(repeated("42", 20), 232, std::string(20, 'B')), "60", "1111", repeated("31", 209) + "00")},
        NameRow{"FourGbkCharacters", named(padded("C7E0BACCBFA7B7C8", 20), 8, "青禾咖啡")},
        NameRow{"MixedWithLatinLetters", named(padded(hexOf("CAFE ") + "BACC", 20), 7, "CAFE 禾")},
        NameRow{"OneLetter", named(padded("5A", 20), 1, "Z")},
        NameRow{"NineteenLetters", named(padded(repeated("4D", 19), 20), 19, std::string(19, 'M'))},
        NameRow{"Empty", named(padded("", 20), 0, "")},
        NameRow{"EmptyBeforeOtherBytes", named("00" + repeated("41", 19), 0, "")},
        NameRow{"EndsAtTheFirstZero", named("414200" + repeated("43", 17), 2, "AB")},
        NameRow{"KeepsWhatComesBeforeAByteThatIsNoGbk", named(padded(hexOf("SHOP") + "FF41", 20), 6, "SHOP")},
        NameRow{"LosesACharacterThatIsCutInHalf",
                withType(named(repeated("44", 19) + "C7", 20, std::string(19, 'D')), "00")},
        NameRow{"BlanksAreKept", named(padded(hexOf("A  "), 20), 3, "A  ")}),
    [](const auto& row) { return std::string(row.param.name); });

// ---------------------------------------------------------------- records that fail or are odd

namespace {

struct FailureRow {
    const char* name;
    std::string answer; // of the reader to READ RECORD: the payload
    std::uint8_t status;
    bool answered;
};

} // namespace

class UnreadableRecord : public TransactionLog, public ::testing::WithParamInterface<FailureRow> {
protected:
    void failedRead(const std::string& apdu)
    {
        const FailureRow& row = GetParam();
        if (row.answered) {
            reader.command("322600" + apdu, row.answer, row.status);
        } else {
            reader.silent("322600" + apdu);
        }
    }
};

TEST_P(UnreadableRecord, EndsTheTextAndPowersTheCardOffTwice)
{
    LogRecord records[3];
    records[1].date = "230105";
    records[2].date = "221212";
    selectWithLog("0B0A");
    for (std::size_t i = 0; i < 3; ++i) {
        reader.apdu("00B2" + hexByte(i + 1) + "5C00", ok(records[i].hex()));
    }
    failedRead("00B2045C00");
    reader.powerOff().powerOff();
    EXPECT_EQ(call(), 0);
    EXPECT_EQ(detail.value(), records[0].text() + records[1].text() + records[2].text());
    EXPECT_EQ(length, static_cast<int>(detail.value().size()));
    EXPECT_EQ(callLog(), entry(kDebit) + results(detail.value()));
    expectClosed();
}

TEST_P(UnreadableRecord, AsTheFirstOneLeavesAnEmptyTextAndSuccess)
{
    selectWithLog("0B0A");
    failedRead("00B2015C00");
    reader.powerOff().powerOff();
    EXPECT_EQ(call(), 0);
    EXPECT_EQ(detail.value(), "");
    EXPECT_EQ(length, 0);
    expectClosed();
}

INSTANTIATE_TEST_SUITE_P(
    Answers, UnreadableRecord,
    ::testing::Values(FailureRow{"NoSuchRecord", "6A83", 0x00, true}, FailureRow{"SecurityStatus", "6982", 0x00, true},
                      FailureRow{"WarningOfTheCard", "6300", 0x00, true}, FailureRow{"CardTakenOut", "", 0x02, true},
                      FailureRow{"CardLeftTheField", "", 0x06, true}, FailureRow{"ReaderRefuses", "", 0x04, true},
                      FailureRow{"NoStatusWord", "90", 0x00, true}, FailureRow{"NoReply", "", 0x00, false}),
    [](const auto& row) { return std::string(row.param.name); });

TEST_F(TransactionLog, AContactlessCardThatFailsIsDeactivatedTwice)
{
    reader.command("3222018000", "", 0x02)
        .command("32240180", "3B80")
        .slot(0xFF)
        .apdu(select(kDebit), fciWithLog("0102"))
        .apdu("00B2010C00", ok(LogRecord{}.hex()))
        .apdu("00B2020C00", "6A83")
        .command("32250000")
        .command("32250000");
    EXPECT_EQ(call(kDebit.c_str(), 3), 0);
    EXPECT_EQ(detail.value(), LogRecord{}.text());
    EXPECT_EQ(type, 2);
}

TEST_F(TransactionLog, ARecordShorterThanTheLayoutReadsAsZerosBehindItsEnd)
{
    selectWithLog("0102");
    reader
        .apdu("00B2010C00", ok(LogRecord{}.hex())) // whatever it held must not show through
        .apdu("00B2020C00", ok("240115"))
        .powerOff();
    EXPECT_EQ(call(), 0);
    EXPECT_EQ(detail.value(), LogRecord{}.text() + "P012Q012000000000000R0040000S006240115T00200U006000000V0040000"
                                                   "W000X0040000");
}

TEST_F(TransactionLog, ARecordThatNeedsGetResponseIsFollowed)
{
    selectWithLog("0101");
    reader.apdu("00B2010C00", "612D").apdu("00C000002D", ok(LogRecord{}.hex())).powerOff();
    EXPECT_EQ(call(), 0);
    EXPECT_EQ(detail.value(), LogRecord{}.text());
}

// ---------------------------------------------------------------- the log entry

namespace {

struct LogEntryRow {
    const char* name;
    std::string fci;
};

} // namespace

class NoLogEntry : public TransactionLog, public ::testing::WithParamInterface<LogEntryRow> {};

TEST_P(NoLogEntry, EmptiesTheTextAndPowersTheCardOff)
{
    reader.powerOn().apdu(select(kDebit), ok(GetParam().fci)).powerOff();
    EXPECT_EQ(call(), VORN_OBJECT_MISSING);
    EXPECT_EQ(detail.value(), "");
    EXPECT_EQ(length, -44);
    EXPECT_EQ(callLog(), entry(kDebit));
    expectClosed();
}

INSTANTIATE_TEST_SUITE_P(
    Fcis, NoLogEntry,
    ::testing::Values(LogEntryRow{"Absent", applicationFci(kDebit)},
                      LogEntryRow{"OtherObjectsOnly", applicationFci(kDebit, tlv("BF0C", tlv("9F4C", "0B0A")))},
                      LogEntryRow{"Empty", applicationFci(kDebit, tlv("BF0C", "9F4D00"))},
                      LogEntryRow{"OneByte", applicationFci(kDebit, tlv("BF0C", tlv("9F4D", "0B")))}),
    [](const auto& row) { return std::string(row.param.name); });

TEST_F(TransactionLog, ALogEntryAtTheTopOfTheFciCounts)
{
    reader.powerOn()
        .apdu(select(kDebit), ok(tlv("6F", tlv("84", kDebit) + tlv("9F4D", "0301"))))
        .apdu("00B2011C00", ok(LogRecord{}.hex()))
        .powerOff();
    EXPECT_EQ(call(), 0);
    EXPECT_EQ(detail.value(), LogRecord{}.text());
}

// Behind 81 the length that counts is the FCI's second byte.
TEST_F(TransactionLog, ALogEntryInTheLongLengthFormIsAsLongAsTheFcisSecondByteSays)
{
    reader.powerOn()
        .apdu(select(kDebit), ok(tlv("6F", tlv("84", kDebit) + "9F4D81010301"))) // its own length is one byte
        .apdu("00B2011C00", ok(LogRecord{}.hex()))
        .powerOff();
    EXPECT_EQ(call(), 0);
    EXPECT_EQ(detail.value(), LogRecord{}.text());

    reader.powerOn()
        .apdu(select(kDebit), ok("500142" + tlv("84", kDebit) + "9F4D81020301")) // and here two
        .powerOff();
    EXPECT_EQ(call(), VORN_OBJECT_MISSING);
    EXPECT_EQ(detail.value(), "");
    EXPECT_TRUE(reader.done());
}

// ---------------------------------------------------------------- activation

TEST_F(TransactionLog, CardTypesChooseTheInterfaceAndComeBackAsTheOneThatAnswered)
{
    struct Row {
        int asked;
        bool contactPresent;
        int answered;
    };
    for (const Row& row : {Row{1, true, 1}, Row{2, false, 2}, Row{3, true, 1}, Row{3, false, 2}}) {
        SCOPED_TRACE(row.asked);
        if (row.asked != 2) {
            reader.command("3222018000", row.contactPresent ? "3B00" : "", row.contactPresent ? 0x00 : 0x02);
        }
        if (row.answered == 2) {
            reader.command("32240180", "3B8001");
        }
        reader.slot(row.answered == 1 ? 0x00 : 0xFF).apdu(select(kDebit), fciWithLog("0100")).powerOff();
        EXPECT_EQ(call(kDebit.c_str(), row.asked), 0);
        EXPECT_EQ(type, row.answered);
        EXPECT_EQ(m_VrICType, row.answered);
    }
}

TEST_F(TransactionLog, OtherCardTypesAreRefusedWithoutACommandToTheReader)
{
    for (const int icType : {0, 4, -1, 100}) {
        SCOPED_TRACE(icType);
        EXPECT_EQ(call(kDebit.c_str(), icType), VORN_BAD_ARGUMENT);
        EXPECT_EQ(type, icType);
    }
    expectUntouchedOutputs();
    EXPECT_TRUE(linkClosed());
}

TEST_F(TransactionLog, AMissingCardTypeIsNone)
{
    EXPECT_EQ(IC_GetTranDeta(port(), "P2", 57600, 9, nullptr, kDebit.c_str(), &length, detail.text()),
              VORN_BAD_ARGUMENT);
    EXPECT_EQ(callLog(), entry(kDebit, 0));
    expectUntouchedOutputs();
    expectClosed();
}

namespace {

struct ActivationRow {
    const char* name;
    int icType;
    int status; // of the reader; below 0: it is silent
    int result;
};

} // namespace

class FailedActivation : public TransactionLog, public ::testing::WithParamInterface<ActivationRow> {};

TEST_P(FailedActivation, ClosesTheLinkAndLeavesTheCardAndTheOutputsAlone)
{
    const ActivationRow& row = GetParam();
    const std::string command = row.icType == 2 ? "32240180" : "3222018000";
    if (row.status < 0) {
        reader.silent(command);
    } else {
        reader.command(command, "", static_cast<std::uint8_t>(row.status));
    }
    EXPECT_EQ(call(kDebit.c_str(), row.icType), row.result);
    EXPECT_EQ(type, row.icType);
    expectUntouchedOutputs();
    EXPECT_EQ(callLog(), entry(kDebit, row.icType));
    expectClosed();
}

INSTANTIATE_TEST_SUITE_P(Answers, FailedActivation,
                         ::testing::Values(ActivationRow{"ContactRefused", 1, 0x04, VORN_POWER_ON_REFUSED},
                                           ActivationRow{"FieldRefused", 2, 0x01, VORN_POWER_ON_REFUSED},
                                           ActivationRow{"EitherRefused", 3, 0xFF, VORN_POWER_ON_REFUSED},
                                           ActivationRow{"ContactSilent", 1, -1, VORN_NO_REPLY},
                                           ActivationRow{"FieldSilent", 2, -1, VORN_NO_REPLY},
                                           ActivationRow{"EitherSilent", 3, -1, VORN_NO_REPLY}),
                         [](const auto& row) { return std::string(row.param.name); });

TEST_F(TransactionLog, AFieldThatRefusesAfterAnEmptyContactSlotFailsToo)
{
    reader.command("3222018000", "", 0x06).command("32240180", "", 0x09);
    EXPECT_EQ(call(kDebit.c_str(), 3), VORN_POWER_ON_REFUSED);
    EXPECT_EQ(type, 3);
    expectUntouchedOutputs();
    expectClosed();
}

TEST_F(TransactionLog, WithoutTimeToWaitOneAttemptIsMadeAndTheCardIsLate)
{
    for (const int timeout : {0, -1, -100}) {
        SCOPED_TRACE(timeout);
        forgetLogs();
        reader.powerOn();
        EXPECT_EQ(call(kDebit.c_str(), 1, timeout), VORN_NO_CARD_IN_TIME);
        EXPECT_EQ(type, 1);
        EXPECT_TRUE(reader.done());
        EXPECT_EQ(callLog(), entry(kDebit, 1, timeout)); // no line about the time-out in this call
        EXPECT_TRUE(linkClosed());
    }
    expectUntouchedOutputs();
}

TEST_F(TransactionLog, ASecondThatPassesBetweenTheTwoReadingsOfTheClockIsATimeout)
{
    Clock::onTime([] { Clock::advance(1000000); });
    reader.powerOn();
    EXPECT_EQ(call(kDebit.c_str(), 1, 1), VORN_NO_CARD_IN_TIME);
    EXPECT_EQ(callLog(), entry(kDebit, 1, 1));
    expectClosed();
}

TEST_F(TransactionLog, WithASecondToSpareThePassingSecondIsNone)
{
    Clock::onTime([] { Clock::advance(1000000); });
    selectWithLog("0100");
    reader.powerOff();
    EXPECT_EQ(call(kDebit.c_str(), 1, 2), 0);
}

TEST_F(TransactionLog, WaitsForTheCardFarBeyondTheTimeGiven)
{
    const auto receive = line.onBytes;
    line.onBytes = [receive](const Bytes& bytes, int speed) {
        Clock::advance(2000000); // every answer takes its time
        receive(bytes, speed);
    };
    for (int attempt = 0; attempt < 40; ++attempt) {
        reader.command("3222018000", "", 0x02);
    }
    selectWithLog("0100");
    reader.powerOff();
    EXPECT_EQ(call(kDebit.c_str(), 1, 1), 0);
    EXPECT_GT(Clock::microseconds(), (1700000000 + 80) * std::int64_t{1000000});
}

TEST_F(TransactionLog, OfEitherInterfaceBothAreAskedUntilACardComes)
{
    for (int attempt = 0; attempt < 3; ++attempt) {
        reader.command("3222018000", "", 0x02).command("32240180", "", attempt == 1 ? 0x02 : 0x06);
    }
    reader.powerOnField().apdu(select(kDebit), fciWithLog("0100")).powerOff();
    EXPECT_EQ(call(kDebit.c_str(), 3), 0);
    EXPECT_EQ(type, 2);
}

// ---------------------------------------------------------------- selection

class LogSelection : public TransactionLog {
protected:
    void directory(const std::string& record)
    {
        reader.apdu(select(kPseName), ok(directoryFci(kPseName)))
            .apdu(readRecord(1, 1), ok(tlv("70", record)))
            .apdu(readRecord(2, 1), "6A83");
    }
    void finish(const std::string& name)
    {
        reader.apdu(select(name), fciWithLog("0101", name)).apdu("00B2010C00", ok(LogRecord{}.hex())).powerOff();
    }
};

TEST_F(LogSelection, WithoutAnAidTheDirectorysFirstApplicationIsTaken)
{
    for (const char* aidList : {static_cast<const char*>(nullptr), ""}) {
        forgetLogs();
        reader.powerOn();
        directory(directoryEntry(kCredit, "02") + directoryEntry(kDebit, "01"));
        finish(kCredit);
        EXPECT_EQ(call(aidList), 0);
        EXPECT_EQ(detail.value(), LogRecord{}.text());
        EXPECT_EQ(callLog(), entry("") + results(LogRecord{}.text()));
    }
}

TEST_F(LogSelection, AnAidThatFindsNothingFallsBackToTheDirectory)
{
    reader.powerOn().apdu(select("A0000003330101FF"), "6A82");
    directory(directoryEntry(kCredit));
    finish(kCredit);
    EXPECT_EQ(call("A0000003330101FF"), 0);
    EXPECT_EQ(detail.value(), LogRecord{}.text());
}

TEST_F(LogSelection, TheBeginningOfAnAidTakesTheFirstMatch)
{
    reader.powerOn()
        .apdu(select("A000000333"), fciWithLog("0301"))
        .apdu(select("A000000333", "02"), fciWithLog("0901", kCredit))
        .apdu(select("A000000333", "02"), "6A82")
        .apdu(select(kDebit), ok(applicationFci(kDebit)))
        .apdu("00B2011C00", ok(LogRecord{}.hex()))
        .powerOff();
    EXPECT_EQ(call("a000000333"), 0);
    EXPECT_EQ(detail.value(), LogRecord{}.text());
}

TEST_F(LogSelection, ADirectoryWithoutApplicationsEndsTheCall)
{
    reader.powerOn();
    directory("");
    reader.powerOff();
    EXPECT_EQ(call(nullptr), VORN_NO_APPLICATION);
    expectUntouchedOutputs();
    EXPECT_EQ(callLog(), entry(""));
    expectClosed();
}

TEST_F(LogSelection, ACardWithoutADirectoryEndsTheCall)
{
    reader.powerOnField().apdu(select(kPseName), "6A82").powerOff();
    EXPECT_EQ(call("", 3), VORN_NO_APPLICATION);
    EXPECT_EQ(type, 2);
    expectUntouchedOutputs();
    expectClosed();
}

TEST_F(LogSelection, AFinalSelectThatFailsEndsTheCall)
{
    for (const std::string answer : {"6A81", "6283", "6985"}) {
        SCOPED_TRACE(answer);
        forgetLogs();
        reader.powerOn();
        directory(directoryEntry(kDebit));
        if (answer == "6283") {
            reader.apdu(select(kDebit), answer).apdu("00C0000000", "6A81");
        } else {
            reader.apdu(select(kDebit), answer);
        }
        reader.powerOff();
        EXPECT_EQ(call(nullptr), VORN_SELECT_FAILED);
        EXPECT_EQ(callLog(), entry(""));
        EXPECT_TRUE(linkClosed());
    }
    expectUntouchedOutputs();
}

// ---------------------------------------------------------------- port, logs, arguments

TEST_F(TransactionLog, APortThatCannotBeOpenedLeavesEverythingAsItWas)
{
    type = 3;
    EXPECT_EQ(IC_GetTranDeta("no-such-tty", "X", 1, 2, &type, "A0", &length, detail.text()), VORN_OPEN_FAILED);
    EXPECT_EQ(type, 3);
    expectUntouchedOutputs();
    EXPECT_EQ(traceLog(), "----------------------------------------------\r\n"
                          "IC_GetTranDeta\r\n"
                          "nPortNo=no-such-tty extendPort=X nBaudRate=1 nTimeout=2\r\n"
                          "Actual input is:\r\n"
                          "no-such-tty:9600,N,8,1\r\n");
    EXPECT_EQ(serviceLog(), "IC_GetTranDeta nPortNo:no-such-tty,extendPort:X,nBaudRate:1,nTimeout:2,pnIcType:3,"
                            "pszAIDlist:A0\r\n");
    EXPECT_TRUE(line.sent().empty());
}

TEST_F(TransactionLog, BothLogsHoldTheCallByteForByte)
{
    const std::string fci = fciWithLog("0201");
    reader.powerOn("3B6500002063CB6800").apdu(select(kDebit), fci).apdu("00B2011400", ok(LogRecord{}.hex())).powerOff();
    EXPECT_EQ(call(), 0);
    EXPECT_EQ(traceLog(), "----------------------------------------------\r\nIC_GetTranDeta\r\nnPortNo=" + line.port() +
                              " extendPort=P2 nBaudRate=57600 nTimeout=9\r\nActual input is:\r\n" + line.port() +
                              ":9600,N,8,1\r\n");
    EXPECT_EQ(serviceLog(), entry(kDebit) + slotEntries("icc_poweron", "3222018000", "3B6500002063CB6800") +
                                slotEntries("capdu", "322600" + select(kDebit), fci) +
                                slotEntries("capdu", "32260000B2011400", ok(LogRecord{}.hex())) +
                                results(LogRecord{}.text()) + slotEntries("icc_poweroff", "322300", ""));
}

TEST_F(TransactionLog, OutputsThatAreMissingAreNotWritten)
{
    selectWithLog("0101");
    reader.apdu("00B2010C00", ok(LogRecord{}.hex())).powerOff();
    type = 1;
    EXPECT_EQ(IC_GetTranDeta(port(), nullptr, 57600, 9, &type, kDebit.c_str(), nullptr, nullptr), 0);
    EXPECT_NE(callLog().find(",extendPort:,nBaudRate:57600"), std::string::npos);
    reader.powerOn().apdu(select(kDebit), ok(applicationFci(kDebit))).powerOff();
    EXPECT_EQ(IC_GetTranDeta(port(), nullptr, 57600, 9, &type, kDebit.c_str(), nullptr, nullptr), VORN_OBJECT_MISSING);
}

TEST_F(TransactionLog, NothingOfOneCallIsLeftInTheNext)
{
    selectWithLog("0102");
    reader.apdu("00B2010C00", ok(LogRecord{}.hex())).apdu("00B2020C00", ok(LogRecord{}.hex())).powerOff();
    EXPECT_EQ(call(), 0);
    const LogRecord other = named(padded("51", 20), 1, "Q");
    selectWithLog("0101");
    reader.apdu("00B2010C00", ok(other.hex())).powerOff();
    EXPECT_EQ(call(), 0);
    EXPECT_EQ(detail.value(), other.text());
    EXPECT_EQ(length, static_cast<int>(other.text().size()));
    EXPECT_TRUE(linkClosed());
}

TEST_F(TransactionLog, ARecordThatCannotBeReadPowersTheCardOffBeforeTheResultsAreLogged)
{
    selectWithLog("0B02");
    reader.apdu("00B2015C00", "6A83").powerOff().powerOff();
    EXPECT_EQ(call(), 0);
    const std::string off = slotEntries("icc_poweroff", "322300", "");
    const std::string end = slotEntries("capdu", "32260000B2015C00", "6A83") + off + results("") + off;
    const std::string log = serviceLog();
    ASSERT_GT(log.size(), end.size());
    EXPECT_EQ(log.substr(log.size() - end.size()), end);
}

TEST_F(TransactionLog, ACardThatIsLateLeavesTheTypeThatWasAskedFor)
{
    reader.powerOn();
    EXPECT_EQ(call(kDebit.c_str(), 3, 0), VORN_NO_CARD_IN_TIME);
    EXPECT_EQ(type, 3);
    reader.powerOnField();
    EXPECT_EQ(call(kDebit.c_str(), 3, 0), VORN_NO_CARD_IN_TIME);
    EXPECT_EQ(type, 3);
    expectUntouchedOutputs();
}

TEST_F(TransactionLog, ALogEntryBehindAZeroWhereATagIsExpectedCounts)
{
    LogRecord record;
    reader.powerOn()
        .apdu(select(kDebit), ok(tlv("6F", "0000" + tlv("84", kDebit) + tlv("A5", "0001EE" + tlv("9F4D", "0B01")))))
        .apdu("00B2015C00", ok(record.hex()))
        .powerOff();
    EXPECT_EQ(call(), 0);
    EXPECT_EQ(detail.value(), record.text());
}

// The list's length counts modulo 256 characters: nothing is left of 256 and of 257, and the card selects its first
// application by an empty name.
TEST_F(LogSelection, AListOf256OrOfOneCharacterMoreIsAnEmptyName)
{
    for (const std::size_t characters : {std::size_t{256}, std::size_t{257}}) {
        SCOPED_TRACE(characters);
        reader.powerOn()
            .apdu("00A4040000", fciWithLog("0100"))
            .apdu("00A4040200", "6A82")
            .apdu(select(kDebit), "9000")
            .powerOff();
        EXPECT_EQ(call(std::string(characters, 'B').c_str()), 0);
        EXPECT_TRUE(reader.done()) << reader.next();
    }
}

TEST_F(LogSelection, AListOf255CharactersIsANameOf127Bytes)
{
    const std::string name = repeated("A7", 127);
    reader.powerOn().apdu("00A404007F" + name, fciWithLog("0100", name)).powerOff();
    EXPECT_EQ(call((name + "5").c_str()), 0);
    expectClosed();
}

TEST_F(TransactionLog, ALogEntryThatPointsNowhereIsAnEmptyLog)
{
    // The file that no card has, the last one, one beyond: 255 records announced, and the first asked for in vain.
    const std::pair<std::string, std::string> rows[] = {{"00", "04"}, {"1F", "FC"}, {"20", "04"}, {"FF", "FC"}};
    for (const auto& [shortFile, p2] : rows) {
        for (const char* answer : {"6A82", "6A83", "6A86", "6981"}) {
            SCOPED_TRACE(shortFile + " " + answer);
            length = -44;
            selectWithLog(shortFile + "FF");
            reader.apdu("00B201" + p2 + "00", answer).powerOff().powerOff();
            EXPECT_EQ(call(), 0);
            EXPECT_EQ(detail.value(), "");
            EXPECT_EQ(length, 0);
            EXPECT_TRUE(linkClosed());
        }
    }
}

TEST_F(TransactionLog, ALogOf255EmptyRecordsIsOneOfZeros)
{
    selectWithLog("00FF");
    for (std::size_t number = 1; number <= 255; ++number) {
        reader.apdu("00B2" + hexByte(number) + "0400", "9000");
    }
    reader.powerOff();
    EXPECT_EQ(call(), 0);
    EXPECT_EQ(detail.value(),
              repeated("P012Q012000000000000R0040000S006000000T00200U006000000V0040000W000X0040000", 255));
    EXPECT_EQ(length, static_cast<int>(detail.value().size()));
}
