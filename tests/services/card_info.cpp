// SPDX-License-Identifier: Apache-2.0
// IC_GetInfo over the scripted reader: every exchange, every field rule, every way out with its logs.
#include "support/card_text.h"
#include "support/scripted_reader.h"

#include "ICC_COMM_VORN.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <map>
#include <ostream>
#include <string>
#include <vector>

using namespace vorn::test;

namespace {

constexpr char kGuard = '~';
constexpr int kLengthBefore = -5;
constexpr const char* kAllLetters = "ABCDEFGHIJKL";
const std::string kAid = "A000000333010101";
const std::vector<std::string> kSwitchedAndRestored = {"ESC $ I 2 at 9600", "ESC $ I 4 at 38400",
                                                       "ESC $ B ESC % A at 9600"};

// A hex dump as the log files show it.
std::string dump(const std::string& hex)
{
    const Bytes bytes = fromHex(hex);
    std::string text = bytes.size() > 16 ? "\n" : "";
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        text += toHex({bytes[i]}) + ' ';
        if (i % 16 == 15) {
            text += '\n';
        }
    }
    return text + '\n';
}

std::string logged(const std::string& marker, const std::string& command, const std::string& payload)
{
    return "Indata----------------------" + marker + "\n" + dump(command) + "Outdata----------------------" + marker +
           "\n" + dump(payload);
}

// The whole text record: the letters given with their texts, the others with 000, the omitted ones not at all.
std::string infoText(const std::map<char, std::string>& fields, const std::string& omitted = "")
{
    std::string text;
    for (char letter = 'A'; letter <= 'L'; ++letter) {
        if (omitted.find(letter) == std::string::npos) {
            const auto found = fields.find(letter);
            text += field(letter, found == fields.end() ? "" : found->second);
        }
    }
    return text;
}

// A card with one application, as far as the query sees it.
struct Card {
    std::vector<std::string> records = {};
    std::size_t recordsRead = 99;                     // all
    std::map<std::string, std::string> counters = {}; // answers to GET DATA by tag; the others are refused
};

class CardInfo : public ReaderTest {
public:
    // The script, in the order of time. What the exchanges write to the service log is expected along with them.
    CardInfo& exchange(const std::string& marker, const std::string& command, const std::string& payload = "",
                       std::uint8_t status = 0)
    {
        reader.command(command, payload, status);
        return says(logged(marker, command, payload));
    }
    CardInfo& apdu(const std::string& command, const std::string& response)
    {
        return exchange("capdu", "32 26" + hexByte(slot_) + command, response);
    }
    CardInfo& says(const std::string& entry)
    {
        serviceLog_ += entry;
        return *this;
    }
    CardInfo& powerOn()
    {
        slot_ = 0x00;
        return exchange("icc_poweron", "32 22 01 80 00", "3B 65 00 00 9C 02 02 07 62");
    }
    CardInfo& emptySlot(std::uint8_t status = 0x02) { return exchange("icc_poweron", "32 22 01 80 00", "", status); }
    CardInfo& activate()
    {
        slot_ = 0xFF;
        return exchange("picc_Active", "32 24 01 80", "3B 84 80 01 11 22 33 44");
    }
    CardInfo& emptyField(std::uint8_t status = 0x02) { return exchange("picc_Active", "32 24 01 80", "", status); }
    CardInfo& powerOff() { return exchange("icc_poweroff", "32 23 00"); }
    CardInfo& deactivate() { return exchange("picc_Deactive", "32 25 00 00"); }

    CardInfo& readDirectory(const std::string& aid = kAid)
    {
        return apdu(select(kPseName), ok(directoryFci(kPseName)))
            .apdu(readRecord(1, 1), ok(tlv("70", directoryEntry(aid))))
            .apdu(readRecord(2, 1), "6A83");
    }
    CardInfo& selectThroughDirectory(const std::string& proprietary = "")
    {
        return readDirectory().apdu(select(kAid), ok(applicationFci(kAid, proprietary)));
    }
    CardInfo& process(const std::string& afl, const std::string& commandData = "83 00")
    {
        return apdu("80 A8 00 00" + hexByte(fromHex(commandData).size()) + commandData, ok(tlv("80", "7C00" + afl)));
    }
    CardInfo& getData(const std::string& tag, const std::string& response)
    {
        return apdu("80 CA" + tag + "00", response);
    }
    CardInfo& refuseGetData()
    {
        return getData("9F79", "6A81").getData("9F77", "6A88").getData("9F78", "6985").getData("9F36", "6D00");
    }
    CardInfo& answers(const Card& card)
    {
        process("08 01" + hexByte(card.records.size()) + "00");
        for (std::size_t i = 0; i < std::min(card.records.size(), card.recordsRead); ++i) {
            apdu(readRecord(i + 1, 1), ok(card.records[i]));
        }
        for (const std::string tag : {"9F79", "9F77", "9F78", "9F36"}) {
            const auto found = card.counters.find(tag);
            getData(tag, found == card.counters.end() ? "6A88" : ok(found->second));
        }
        return *this;
    }
    CardInfo& returns(const std::string& info)
    {
        return says("pnUsrInfoLen:" + std::to_string(info.size() + 1) + "\r\n").says("pnUsrInfoLen:" + info + "\r\n");
    }
    // A contact card that is found through its directory, up to the power-off.
    void contactCard(const Card& card, const std::string& info)
    {
        powerOn().selectThroughDirectory().answers(card).returns(info).powerOff();
    }

protected:
    void SetUp() override
    {
        setenv("TZ", "UTC0", 1);
        tzset();
    }

    int call(const char* aidList = "", const char* tagList = kAllLetters, int timeout = 9)
    {
        descriptors_ = openDescriptors();
        beginLine_ = "begin func IC_GetInfo(nPortNo:" + line.port() +
                     ",extendPort:ext,nBaudRate:115200,nTimeout:" + std::to_string(timeout) +
                     ",pnIcType:" + std::to_string(icType) + ",pszAIDlist:" + (aidList == nullptr ? "" : aidList) +
                     ",pszTaglist:" + (tagList == nullptr ? "" : tagList) + "\r\n";
        traceLog_ = std::string(46, '-') + "\r\nIC_GetInfo\r\nnPortNo=" + line.port() +
                    " extendPort=ext nBaudRate=115200 nTimeout=" + std::to_string(timeout) +
                    "\r\nActual input is:\r\n" + line.port() + ":9600,N,8,1\r\n";
        return IC_GetInfo(port(), "ext", 115200, timeout, &icType, aidList, tagList, &length, text.data());
    }
    // Logs, line and card as every way out leaves them once the link was open.
    void expectEnd()
    {
        EXPECT_TRUE(reader.done()) << "not asked: " << reader.next();
        EXPECT_EQ(serviceLog(), beginLine_ + serviceLog_);
        EXPECT_EQ(traceLog(), traceLog_);
        EXPECT_EQ(reader.lineEvents(), kSwitchedAndRestored);
        EXPECT_TRUE(linkClosed());
        EXPECT_EQ(openDescriptors(), descriptors_);
    }
    void expectInfo(const std::string& info)
    {
        EXPECT_EQ(std::string(text.data()), info);
        EXPECT_EQ(length, static_cast<int>(info.size()) + 1);
        expectGuardFrom(info.size() + 1);
        expectEnd();
    }
    void expectNothingReturned()
    {
        EXPECT_STREQ(text.data(), "");
        EXPECT_EQ(length, kLengthBefore);
        expectGuardFrom(1);
    }
    void expectFailure()
    {
        expectNothingReturned();
        expectEnd();
    }
    void expectGuardFrom(std::size_t at)
    {
        EXPECT_TRUE(std::all_of(text.begin() + static_cast<std::ptrdiff_t>(at), text.end(),
                                [](char c) { return c == kGuard; }));
    }

    int icType = 1;
    int length = kLengthBefore;
    std::vector<char> text = std::vector<char>(ICC_USER_INFO_CAPACITY + 64, kGuard);

private:
    std::size_t slot_ = 0;
    int descriptors_ = 0;
    std::string beginLine_, serviceLog_, traceLog_;
};

} // namespace

// ---------------------------------------------------------------- whole calls

TEST_F(CardInfo, ReadsAContactCardThroughItsDirectory)
{
    powerOn()
        .apdu("00 A4 04 00 0E 31 50 41 59 2E 53 59 53 2E 44 44 46 30 31",
              "6F 15 84 0E 31 50 41 59 2E 53 59 53 2E 44 44 46 30 31 A5 03 88 01 01 90 00")
        .apdu("00 B2 01 0C 00", "70 10 61 0E 4F 08 A0 00 00 03 33 01 01 01 87 01 01 7F 90 00")
        .apdu("00 B2 02 0C 00", "6A 83")
        .apdu("00 A4 04 00 08 A0 00 00 03 33 01 01 01",
              "6F 14 84 08 A0 00 00 03 33 01 01 01 A5 08 9F 38 05 9F 7A 01 9C 01 90 00")
        .apdu("80 A8 00 00 04 83 02 01 01", "80 0A 7C 00 08 01 02 01 10 03 03 00 90 00")
        .apdu("00 B2 01 0C 00",
              "70 24 57 0F 62 00 00 12 34 56 78 90 D2 51 22 01 00 00 0F 5F 20 0A 5A 48 41 4E 47 20 53 41 4E 20 "
              "9F 62 01 00 90 00")
        .apdu("00 B2 02 0C 00",
              "70 2B 5A 09 62 00 00 12 34 56 78 90 9F 5F 24 03 25 12 31 5F 34 01 03 9F 61 12 31 31 30 31 30 31 31 39 "
              "39 30 30 31 30 31 31 32 33 34 90 00")
        .apdu("00 B2 03 14 00", "70 0A 9F 0B 07 C0 EE CB C4 20 20 20 90 00")
        .apdu("80 CA 9F 79 00", "9F 79 06 00 00 00 01 23 45 90 00")
        .apdu("80 CA 9F 77 00", "9F 77 06 00 00 00 10 00 00 90 00")
        .apdu("80 CA 9F 78 00", "9F 78 06 00 00 00 05 00 00 90 00")
        .apdu("80 CA 9F 36 00", "9F 36 02 01 A7 90 00");
    const std::string info = "A01762000012345678909"
                             "B0296200001234567890=251220100000"
                             "C012000000012345"
                             "D012000000100000"
                             "E006251231"
                             "F012000000050000"
                             "G00203"
                             "H00401A7"
                             "I00200"
                             "J036313130313031313939303031303131323334"
                             "K0185A48414E472053414E"
                             "L008C0EECBC4";
    returns(info).powerOff();
    EXPECT_EQ(call(), 0);
    EXPECT_EQ(icType, 1);
    expectInfo(info);
}

TEST_F(CardInfo, ReadsAContactlessCardThroughTheField)
{
    icType = 2;
    const std::string info = infoText({{'A', "6231"}});
    activate().selectThroughDirectory().answers({{tlv("70", tlv("5A", "6231"))}}).returns(info).deactivate();
    EXPECT_EQ(call(), 0);
    EXPECT_EQ(icType, 2);
    EXPECT_EQ(m_VrICType, 2);
    expectInfo(info);
}

TEST_F(CardInfo, PrefersTheContactCardOfEither)
{
    icType = 3;
    const std::string info = infoText({{'G', "05"}});
    powerOn().selectThroughDirectory().answers({{tlv("70", tlv("5F34", "05"))}}).returns(info).powerOff();
    EXPECT_EQ(call(), 0);
    EXPECT_EQ(icType, 1);
    expectInfo(info);
}

TEST_F(CardInfo, LooksInTheFieldWhenTheSlotIsEmpty)
{
    icType = 3;
    const std::string info = infoText({{'G', "06"}});
    emptySlot().activate().selectThroughDirectory().answers({{tlv("70", tlv("5F34", "06"))}}).returns(info);
    deactivate();
    EXPECT_EQ(call(), 0);
    EXPECT_EQ(icType, 2);
    expectInfo(info);
}

TEST_F(CardInfo, IgnoresHowThePowerOffEnds)
{
    const std::string info = infoText({});
    powerOn().selectThroughDirectory().answers({}).returns(info).exchange("icc_poweroff", "32 23 00", "", 0x05);
    EXPECT_EQ(call(), 0);
    expectInfo(info);
}

TEST_F(CardInfo, FollowsTheCardsStatusWords)
{
    const std::string fci = applicationFci(kAid);
    powerOn().readDirectory();
    apdu(select(kAid), "61 " + hexByte(fromHex(fci).size())).apdu("00C00000" + hexByte(fromHex(fci).size()), ok(fci));
    apdu("80 A8 00 00 02 83 00", "62 00").apdu("00 C0 00 00 00", "80 06 7C 00 08 01 01 00 90 00");
    apdu(readRecord(1, 1), "6C 06").apdu("00 B2 01 0C 06", "70 04 5A 02 62 28 90 00");
    getData("9F79", "6C 04").apdu("80 CA 9F 79 04", "9F 79 01 55 90 00");
    getData("9F77", "62 81").apdu("00 C0 00 00 00", "6A 88").getData("9F78", "6A88").getData("9F36", "6A88");
    const std::string info = infoText({{'A', "6228"}, {'C', "55"}});
    returns(info).powerOff();
    EXPECT_EQ(call(), 0);
    expectInfo(info);
}

// ---------------------------------------------------------------- the fields from the records

namespace {

struct RecordField {
    const char* name;
    std::string records; // the content of the template 70
    std::map<char, std::string> fields;
};

void PrintTo(const RecordField& row, std::ostream* out) { *out << row.name; }

const RecordField kRecordFields[] = {
    {"PanUpToItsFirstF", "5A 09 62 00 00 12 34 56 78 90 9F", {{'A', "62000012345678909"}}},
    {"PanWithoutF", "5A 08 62 28 48 00 10 12 34 56", {{'A', "6228480010123456"}}},
    {"PanWithOtherHexDigits", "5A 04 62 AB CD E0", {{'A', "62ABCDE0"}}},
    {"PanOfFirstF", "5A 03 F1 23 45", {}},
    {"PanWithSeveralF", "5A 04 62 F8 F9 12", {{'A', "62"}}},
    {"PanWithoutValue", "5A 00", {}},
    {"Track2WithItsSeparator",
     "57 0F 62 00 00 12 34 56 78 90 D2 51 22 01 00 00 0F",
     {{'B', "6200001234567890=251220100000"}}},
    {"Track2WithoutPadding", "57 04 62 28 D2 51", {{'B', "6228=251"}}},
    {"Track2WithoutSeparator", "57 04 62 28 12 51", {{'B', "62281251"}}},
    {"Track2WithTwoSeparators", "57 04 62 D8 D2 51", {{'B', "62=8D251"}}},
    {"Track2WithFBeforeItsSeparator", "57 04 62 F8 D2 51", {{'B', "62"}}},
    {"Track2ThatBeginsWithItsSeparator", "57 02 D1 F0", {{'B', "=1"}}},
    {"Expiry", "5F 24 03 30 11 30", {{'E', "301130"}}},
    {"ExpiryWithF", "5F 24 03 3F FD 30", {{'E', "3FFD30"}}},
    {"SequenceNumber", "5F 34 01 09", {{'G', "09"}}},
    {"SequenceNumberWhole", "5F 34 02 F1 20", {{'G', "F120"}}},
    {"DocumentType", "9F 62 01 05", {{'I', "05"}}},
    {"DocumentTypeWithBlanks", "9F 62 02 30 20", {{'I', "3020"}}},
    {"DocumentNumberWithoutBlanksBehind", "9F 61 06 47 31 32 46 20 20", {{'J', "47313246"}}},
    {"DocumentNumberWithBlanksInside", "9F 61 05 20 31 20 32 20", {{'J', "20312032"}}},
    {"DocumentNumberOfBlanks", "9F 61 03 20 20 20", {}},
    {"DocumentNumberEndingInZero", "9F 61 03 31 20 00", {{'J', "312000"}}},
    {"NamePaddedTo26Bytes",
     "5F 20 1A 5A 48 41 4E 47 20 53 41 4E 20 20 20 20 20 20 20 20 20 20 20 20 20 20 20 20 20",
     {{'K', "5A48414E472053414E"}}},
    {"NameInGbk", "5F 20 06 D5 C5 C8 FD 20 20", {{'K', "D5C5C8FD"}}},
    {"NameWithoutValue", "5F 20 00", {}},
    {"NameExtended", "9F 0B 05 D5 C5 4F 20 20", {{'L', "D5C54F"}}},
    {"TheFirstOfTwo", "5F 34 01 01 5F 34 01 02 5A 01 11 5A 01 22", {{'A', "11"}, {'G', "01"}}},
    {"NestedObjects", "61 07 A5 05 5F 20 02 41 42", {{'K', "4142"}}},
    {"TagOfLetterEInTheList", "9F 24 02 12 34", {}}, // the list asks for 9F24, the field is 5F24
    {"CountersInARecord", "9F 79 01 11 9F 77 01 22 9F 78 01 33 9F 36 01 44", {}}, // come by GET DATA only
    {"LengthInTwoBytes", "5F 20 82 00 03 41 42 43", {{'K', "414243"}}},
    {"ValuePastTheEnd", "5F 20 10 41 42 43", {{'K', "414243"}}},
    {"UnfinishedTagAtTheEnd", "5F 34 01 07 5F", {{'G', "07"}}},
    {"PaddingEndsTheRecords", "5F 34 01 07 FF 5A 01 62", {{'G', "07"}}},
};

class CardInfoField : public CardInfo, public ::testing::WithParamInterface<RecordField> {};

INSTANTIATE_TEST_SUITE_P(Records, CardInfoField, ::testing::ValuesIn(kRecordFields),
                         [](const auto& row) { return row.param.name; });

} // namespace

TEST_P(CardInfoField, IsWrittenByItsRule)
{
    const std::string info = infoText(GetParam().fields);
    contactCard({{tlv("70", GetParam().records)}}, info);
    EXPECT_EQ(call(), 0);
    expectInfo(info);
}

TEST_F(CardInfo, CountsFieldsOfMoreThanAHundredCharacters)
{
    const std::string info = infoText({{'K', repeated("4A", 60)}, {'L', repeated("4B", 56)}});
    contactCard({{tlv("70", tlv("5F20", repeated("4A", 60)) + tlv("9F0B", repeated("4B", 56) + "2020"))}}, info);
    EXPECT_NE(info.find("K1204A"), std::string::npos);
    EXPECT_NE(info.find("L1124B"), std::string::npos);
    EXPECT_EQ(call(), 0);
    expectInfo(info);
}

TEST_F(CardInfo, ReadsALengthInTheForm81FromTheFirstRecordsSecondByte)
{
    // The record begins 70 81: the object of 144 bytes gives 129.
    const std::string info = infoText({{'L', repeated("4B", 0x81)}});
    contactCard({{tlv("70", tlv("9F0B", repeated("4B", 0x90)))}}, info);
    EXPECT_EQ(call(), 0);
    expectInfo(info);
}

TEST_F(CardInfo, ReadsALengthInTheForm81AlsoInALaterRecord)
{
    // The first record begins 70 04: four bytes.
    const std::string info = infoText({{'G', "01"}, {'L', repeated("4B", 4)}});
    contactCard({{tlv("70", tlv("5F34", "01")), tlv("70", tlv("9F0B", repeated("4B", 0x90)))}}, info);
    EXPECT_EQ(call(), 0);
    expectInfo(info);
}

TEST_F(CardInfo, CutsAValueOfMoreThan255Bytes)
{
    // The name claims 300 bytes and takes the following record with it.
    const std::string first = "70 81 F0 5F 20 82 01 2C" + repeated("6D", 0xEB);
    const std::string second = tlv("70", tlv("9F4B", repeated("6E", 100)));
    const std::string info = infoText({{'K', repeated("6D", 0xEB) + second.substr(0, 2 * (255 - 0xEB))}});
    contactCard({{first, second}}, info);
    EXPECT_EQ(call(), 0);
    expectInfo(info);
}

// ---------------------------------------------------------------- the fields from GET DATA

namespace {

struct Counter {
    char letter;
    const char* tag;
};

void PrintTo(const Counter& row, std::ostream* out) { *out << row.letter; }

class CardInfoCounter : public CardInfo, public ::testing::WithParamInterface<Counter> {};

INSTANTIATE_TEST_SUITE_P(GetData, CardInfoCounter,
                         ::testing::Values(Counter{'C', "9F79"}, Counter{'D', "9F77"}, Counter{'F', "9F78"},
                                           Counter{'H', "9F36"}));

} // namespace

TEST_P(CardInfoCounter, IsTheWholeValueInHex)
{
    const std::string info = infoText({{GetParam().letter, "00DF2099F020"}});
    contactCard({{}, 0, {{GetParam().tag, std::string(GetParam().tag) + "06 00 DF 20 99 F0 20"}}}, info);
    EXPECT_EQ(call(), 0);
    expectInfo(info);
}

TEST_P(CardInfoCounter, IsEmptyForAnObjectWithoutValue)
{
    const std::string info = infoText({});
    contactCard({{}, 0, {{GetParam().tag, std::string(GetParam().tag) + "00"}}}, info);
    EXPECT_EQ(call(), 0);
    expectInfo(info);
}

TEST_P(CardInfoCounter, IsFoundInATemplate)
{
    const std::string info = infoText({{GetParam().letter, "1234"}});
    contactCard({{}, 0, {{GetParam().tag, "77 08 9F 13 00" + std::string(GetParam().tag) + "02 12 34"}}}, info);
    EXPECT_EQ(call(), 0);
    expectInfo(info);
}

TEST_P(CardInfoCounter, IsLeftOutWhenTheCardAnswersSomethingElse)
{
    const std::string info = infoText({}, std::string(1, GetParam().letter));
    contactCard({{}, 0, {{GetParam().tag, "9F 17 01 03"}}}, info);
    EXPECT_EQ(call(), 0);
    expectInfo(info);
}

TEST_P(CardInfoCounter, IsLeftOutWhenTheCardAnswersNothing)
{
    const std::string info = infoText({}, std::string(1, GetParam().letter));
    contactCard({{}, 0, {{GetParam().tag, ""}}}, info);
    EXPECT_EQ(call(), 0);
    expectInfo(info);
}

TEST_P(CardInfoCounter, IsEmptyWhenTheReaderFails)
{
    powerOn().selectThroughDirectory().process("");
    for (const std::string tag : {"9F79", "9F77", "9F78", "9F36"}) {
        if (tag == GetParam().tag) {
            exchange("capdu", "32 26 00 80 CA" + tag + "00", "", 0x05);
        } else {
            getData(tag, tag + "01 7A 90 00");
        }
    }
    std::map<char, std::string> fields{{'C', "7A"}, {'D', "7A"}, {'F', "7A"}, {'H', "7A"}};
    fields[GetParam().letter] = "";
    returns(infoText(fields)).powerOff();
    EXPECT_EQ(call(), 0);
    expectInfo(infoText(fields));
}

TEST_F(CardInfo, LeavesOutAllFourCounters)
{
    const std::string info = "A000B000E000G000I000J000K000L000";
    contactCard({{}, 0, {{"9F79", "9F1700"}, {"9F77", "9F7900"}, {"9F78", ""}, {"9F36", "9F3501A0"}}}, info);
    EXPECT_EQ(call(), 0);
    expectInfo(info);
}

TEST_F(CardInfo, ReadsACountersLengthInTheForm81FromItsTag)
{
    const std::string info = infoText({{'C', repeated("13", 0x79)}}); // the second byte of 9F79
    contactCard({{}, 0, {{"9F79", "9F7981A0" + repeated("13", 0xA0)}}}, info);
    EXPECT_EQ(call(), 0);
    expectInfo(info);
}

// ---------------------------------------------------------------- the letters that are asked for

namespace {

const std::vector<std::string> kThreeRecords = {
    tlv("70", tlv("5A", "6225") + tlv("5F24", "301231")),
    tlv("70", tlv("5F20", "4142") + tlv("57", "6225D3012F")),
    tlv("70", tlv("5F34", "01") + tlv("9F62", "00") + tlv("9F61", "3132") + tlv("9F0B", "43")),
};
// The record's text after one, two and three of them.
const std::string kReadTexts[] = {
    infoText({}),
    infoText({{'A', "6225"}, {'E', "301231"}}),
    infoText({{'A', "6225"}, {'E', "301231"}, {'K', "4142"}, {'B', "6225=3012"}}),
    infoText({{'A', "6225"},
              {'E', "301231"},
              {'K', "4142"},
              {'B', "6225=3012"},
              {'G', "01"},
              {'I', "00"},
              {'J', "3132"},
              {'L', "43"}}),
};

struct Wanted {
    const char* letters;
    std::size_t recordsRead;
};

void PrintTo(const Wanted& row, std::ostream* out) { *out << '"' << row.letters << '"'; }

class CardInfoLetters : public CardInfo, public ::testing::WithParamInterface<Wanted> {};

INSTANTIATE_TEST_SUITE_P(Lists, CardInfoLetters,
                         ::testing::Values(Wanted{"A", 1}, Wanted{"K", 2}, Wanted{"AB", 2}, Wanted{"BA", 2},
                                           Wanted{"AKAB", 2}, Wanted{"GIJL", 3}, Wanted{"L", 3}, //
                                           Wanted{"xA y", 1},               // other characters are passed over
                                           Wanted{"", 0}, Wanted{"abc", 0}, // nothing is asked for
                                           Wanted{"C", 3}, Wanted{"AC", 3}, // no record holds a counter
                                           Wanted{"E", 3},                  // asks for no tag that a record holds
                                           Wanted{"EA", 3},                 // nor does 9F5A
                                           Wanted{kAllLetters, 3}, Wanted{"ABKABKABKABKABKABKABKABKABKABKABKABK", 2},
                                           Wanted{"AAAAAAAAAAAAAAAAAAAAK", 2})); // the late letter counts

} // namespace

TEST_P(CardInfoLetters, EndTheReadingAndNotTheFields)
{
    const std::string info = kReadTexts[GetParam().recordsRead];
    contactCard({kThreeRecords, GetParam().recordsRead}, info);
    EXPECT_EQ(call("", GetParam().letters), 0);
    expectInfo(info);
}

TEST_F(CardInfo, TakesNoLettersForAnEmptyList)
{
    contactCard({kThreeRecords, 0}, kReadTexts[0]);
    EXPECT_EQ(call("", nullptr), 0);
    expectInfo(kReadTexts[0]);
}

TEST_F(CardInfo, TheLastOfTheLettersThatAListHoldsCounts)
{
    contactCard({kThreeRecords, 2}, kReadTexts[2]);
    EXPECT_EQ(call("", (std::string(133, 'A') + "K").c_str()), 0);
    expectInfo(kReadTexts[2]);
}

TEST_F(CardInfo, PassesOverALetterThatTheListDoesNotHold)
{
    contactCard({kThreeRecords, 1}, kReadTexts[1]);
    EXPECT_EQ(call("", (std::string(134, 'A') + "K").c_str()), 0);
    expectInfo(kReadTexts[1]);
}

TEST_F(CardInfo, GoesOnBehindAZeroWhereATagIsExpected)
{
    const std::string info = infoText({{'A', "6225"}, {'B', "6225=3012"}, {'C', "000000001234"}, {'G', "01"}});
    contactCard({{tlv("70", "0000" + tlv("5A", "6225") + "0001EE" + tlv("57", "6225D3012F")),
                  "0000" + tlv("70", tlv("5F34", "01"))},
                 99,
                 {{"9F79", "0000" + tlv("9F79", "000000001234")}}},
                info);
    EXPECT_EQ(call(), 0);
    expectInfo(info);
}

TEST_F(CardInfo, ManyMoreLettersThanThereAreObjects)
{
    contactCard({kThreeRecords, 1}, kReadTexts[1]);
    EXPECT_EQ(call("", std::string(3000, 'A').c_str()), 0);
    expectInfo(kReadTexts[1]);
}

// ---------------------------------------------------------------- the caller's AID list

TEST_F(CardInfo, SelectsTheCallersApplication)
{
    powerOn().apdu("00 A4 04 00 08 A0 00 00 03 33 01 01 01", ok(applicationFci(kAid))).answers({});
    returns(infoText({})).powerOff();
    EXPECT_EQ(call("A000000333010101"), 0);
    expectInfo(infoText({}));
}

TEST_F(CardInfo, TakesTheListInLowerCase)
{
    powerOn().apdu("00 A4 04 00 06 D1 56 00 00 AB CD", ok(applicationFci("D1560000ABCD"))).answers({});
    returns(infoText({})).powerOff();
    EXPECT_EQ(call("d1560000abcd"), 0);
    expectInfo(infoText({}));
}

TEST_F(CardInfo, UsesTheFirstApplicationOfAPrefix)
{
    powerOn()
        .apdu(select("A000000333"), ok(applicationFci("A00000033301", tlv("9F38", "9C01"))))
        .apdu(select("A000000333", "02"), ok(applicationFci("A00000033302", tlv("9F38", "9F3704"))))
        .apdu(select("A000000333", "02"), "6A82")
        .apdu(select("A00000033301"), ok(applicationFci("A00000033301")))
        .process("", "83 01 01") // the first one's list
        .refuseGetData()
        .returns(infoText({}))
        .powerOff();
    EXPECT_EQ(call("A000000333"), 0);
    expectInfo(infoText({}));
}

TEST_F(CardInfo, FallsBackToTheDirectoryWhenTheListFindsNothing)
{
    powerOn().apdu(select("A0000000031010"), "6A82").selectThroughDirectory().answers({}).returns(infoText({}));
    powerOff();
    EXPECT_EQ(call("A0000000031010"), 0);
    expectInfo(infoText({}));
}

TEST_F(CardInfo, FallsBackToTheDirectoryWhenTheListFindsAnotherName)
{
    powerOn().apdu(select("A000000333010102"), ok(applicationFci(kAid, tlv("9F38", "9C01"))));
    selectThroughDirectory().answers({}).returns(infoText({})).powerOff();
    EXPECT_EQ(call("A000000333010102"), 0);
    expectInfo(infoText({}));
}

TEST_F(CardInfo, FallsBackToTheDirectoryWhenTheListsApplicationIsBlocked)
{
    powerOn().apdu(select(kAid), "6283").apdu("00 C0 00 00 00", "6985");
    selectThroughDirectory().answers({}).returns(infoText({})).powerOff();
    EXPECT_EQ(call(kAid.c_str()), 0);
    expectInfo(infoText({}));
}

TEST_F(CardInfo, TakesTheListWhole)
{
    const std::string list = repeated("A7", 127);
    powerOn().apdu("00 A4 04 00 7F" + list, ok(applicationFci(list))).answers({}).returns(infoText({})).powerOff();
    EXPECT_EQ(call(list.c_str()), 0);
    expectInfo(infoText({}));
}

TEST_F(CardInfo, CountsTheListsCharactersInOneByte)
{
    const std::string list = "A000000333" + repeated("EE", 128); // 266 characters: ten
    powerOn().apdu("00 A4 04 00 05 A0 00 00 03 33", ok(applicationFci("A000000333"))).answers({});
    returns(infoText({})).powerOff();
    EXPECT_EQ(call(list.c_str()), 0);
    expectInfo(infoText({}));
}

TEST_F(CardInfo, TakesAListOf256OrOfOneCharacterMoreForAnEmptyName)
{
    for (const std::size_t characters : {std::size_t{256}, std::size_t{257}}) {
        SCOPED_TRACE(characters);
        powerOn()
            .apdu("00 A4 04 00 00", ok(applicationFci(kAid)))
            .apdu("00 A4 04 02 00", "6A82")
            .apdu(select(kAid), "9000")
            .answers({})
            .returns(infoText({}))
            .powerOff();
        EXPECT_EQ(call(std::string(characters, 'B').c_str()), 0);
        EXPECT_TRUE(reader.done()) << reader.next();
    }
}

TEST_F(CardInfo, TakesAListOf255CharactersForANameOf127Bytes)
{
    const std::string name = repeated("A7", 127);
    powerOn().apdu("00 A4 04 00 7F" + name, ok(applicationFci(name))).answers({}).returns(infoText({})).powerOff();
    EXPECT_EQ(call((name + "5").c_str()), 0);
    expectInfo(infoText({}));
}

TEST_F(CardInfo, DropsAnOddCharacterOfTheList)
{
    powerOn().apdu("00 A4 04 00 05 A0 00 00 03 33", ok(applicationFci("A000000333"))).answers({});
    returns(infoText({})).powerOff();
    EXPECT_EQ(call("A0000003337"), 0);
    expectInfo(infoText({}));
}

TEST_F(CardInfo, UsesTheDirectoryWithoutAList)
{
    contactCard({}, infoText({}));
    EXPECT_EQ(call(nullptr), 0);
    expectInfo(infoText({}));
}

TEST_F(CardInfo, SelectsTheFirstRecordOfTheDirectorysList)
{
    // The first entry has no priority and is overwritten by the second; the third comes behind it.
    const std::string entries = directoryEntry("A0000003330101", "") + directoryEntry("A0000003330102", "09") +
                                directoryEntry("A0000003330103", "01");
    powerOn()
        .apdu(select(kPseName), ok(directoryFci(kPseName)))
        .apdu(readRecord(1, 1), ok(tlv("70", entries)))
        .apdu(readRecord(2, 1), "6A83")
        .apdu(select("A0000003330102"), ok(applicationFci("A0000003330102")))
        .answers({})
        .returns(infoText({}))
        .powerOff();
    EXPECT_EQ(call(), 0);
    expectInfo(infoText({}));
}

// ---------------------------------------------------------------- the terminal's data

TEST_F(CardInfo, AnswersThePdolFromItsFixedList)
{
    const std::string pdol = "9F0206 9F0306 9F1A02 9505 5F2A02 9C01 9F3704 9F6604 9F7A01 9F7B06 9F4E14 9A03 DF6001 "
                             "DF6901";
    powerOn().selectThroughDirectory(tlv("9F38", pdol));
    process("", "83 3E"
                "000000000012"                             // amount
                "000000000000"                             // other amount
                "0156"                                     // country
                "0000000800"                               // TVR
                "0156"                                     // currency
                "01"                                       // type
                "12345678"                                 // unpredictable number
                "F4000000"                                 // TTQ
                "01"                                       // electronic cash indicator
                "000001000000"                             // electronic cash limit
                "C396C390C2B9C3BAC387C3A0C2BAC38CC2B4C2A2" // merchant name
                "231114"                                   // date
                "00"                                       // DF60: in the list, but in no dictionary
                "01");                                     // DF69
    refuseGetData().returns(infoText({})).powerOff();
    EXPECT_EQ(call(), 0);
    expectInfo(infoText({}));
}

TEST_F(CardInfo, AnswersThePdolWithTodaysDate)
{
    Clock::freeze(1709164800); // 29 February 2024
    Clock::onSleep([this] { line.serve(); });
    powerOn().selectThroughDirectory(tlv("9F38", "9A03")).process("", "83 03 240229").refuseGetData();
    returns(infoText({})).powerOff();
    EXPECT_EQ(call(), 0);
    expectInfo(infoText({}));
}

TEST_F(CardInfo, AnswersThePdolInOtherWidths)
{
    const std::string pdol = "9F0203 9F0208 9F4E04 9F4E17 9F3702 9F1A03 9F3303 5A02";
    powerOn().selectThroughDirectory(tlv("9F38", pdol));
    process("", "83 30"
                "000012"                                         // numeric: cut on the left
                "0000000000000012"                               //
                "C396C390"                                       // text: cut on the right
                "C396C390C2B9C3BAC387C3A0C2BAC38CC2B4C2A2000000" //
                "1234"                                           // binary: cut on the right
                "000156"                                         //
                "000000"                                         // not in the list
                "0000");
    refuseGetData().returns(infoText({})).powerOff();
    EXPECT_EQ(call(), 0);
    expectInfo(infoText({}));
}

// ---------------------------------------------------------------- finding the card

TEST_F(CardInfo, AsksAgainAsLongAsNoCardIsThere)
{
    emptySlot(0x02).emptySlot(0x06).emptySlot(0x02);
    contactCard({}, infoText({}));
    EXPECT_EQ(call(), 0);
    expectInfo(infoText({}));
}

TEST_F(CardInfo, AsksTheFieldAgain)
{
    icType = 2;
    emptyField(0x02).emptyField(0x06).activate().selectThroughDirectory().answers({}).returns(infoText({}));
    deactivate();
    EXPECT_EQ(call(), 0);
    expectInfo(infoText({}));
}

TEST_F(CardInfo, AsksBothInTurn)
{
    icType = 3;
    emptySlot().emptyField().emptySlot().emptyField(0x06).emptySlot(0x06).emptyField();
    powerOn().selectThroughDirectory().answers({}).returns(infoText({})).powerOff();
    EXPECT_EQ(call(), 0);
    EXPECT_EQ(icType, 1);
    expectInfo(infoText({}));
}

TEST_F(CardInfo, WaitsWithoutABound)
{
    // Two seconds pass with every question; the wait is for one.
    const auto answer = line.onBytes;
    line.onBytes = [answer](const Bytes& bytes, int speed) {
        answer(bytes, speed);
        Clock::advance(2000000);
    };
    for (int i = 0; i < 20; ++i) {
        emptySlot();
    }
    contactCard({}, infoText({}));
    EXPECT_EQ(call("", kAllLetters, 1), 0);
    expectInfo(infoText({}));
}

TEST_F(CardInfo, ReadsTheClockTwiceForTheWaitAndNotAgain)
{
    int readings = 0;
    Clock::onTime([&readings] { ++readings; });
    for (int i = 0; i < 5; ++i) {
        emptySlot();
    }
    powerOn().exchange("capdu", "32 26 00" + select(kPseName), "6A82").powerOff();
    says("vrdk_PseAppSelect fail!return=0").says("func IC_GetInfo return -26");
    EXPECT_EQ(call(), -26); // ends before the date is read
    EXPECT_EQ(readings, 2);
    expectFailure();
}

TEST_F(CardInfo, ReadsTheClockBeforeTheFirstRetry)
{
    // The second reading falls behind a boundary of seconds. With one second to wait that is too late at once.
    int readings = 0;
    Clock::onTime([&readings] {
        if (++readings == 2) {
            Clock::advance(1000000);
        }
    });
    emptySlot().says("vr_openicc outtime!");
    EXPECT_EQ(call("", kAllLetters, 1), -2);
    EXPECT_EQ(icType, 1);
    expectFailure();
}

TEST_F(CardInfo, OutlastsABoundaryOfSecondsWithTwoSecondsToWait)
{
    int readings = 0;
    Clock::onTime([&readings] {
        if (++readings == 2) {
            Clock::advance(1000000);
        }
    });
    emptySlot();
    contactCard({}, infoText({}));
    EXPECT_EQ(call("", kAllLetters, 2), 0);
    expectInfo(infoText({}));
}

TEST_F(CardInfo, IsLateWithoutTimeAndLeavesTheCardPowered)
{
    for (const int timeout : {0, -1, -100}) {
        SCOPED_TRACE(timeout);
        forgetLogs();
        icType = 3;
        EXPECT_TRUE(reader.done());
        reader.command("32 22 01 80 00", "3B 00"); // the card answers at once, and no power-off comes
        EXPECT_EQ(call("", kAllLetters, timeout), -2);
        EXPECT_EQ(icType, 3);
        EXPECT_EQ(m_VrICType, 1);
        expectNothingReturned();
        EXPECT_TRUE(linkClosed());
        EXPECT_EQ(callLog().substr(callLog().find("\r\n") + 2), "vr_openicc outtime!");
    }
}

TEST_F(CardInfo, AsksOnceWithoutTime)
{
    emptySlot().says("vr_openicc outtime!");
    EXPECT_EQ(call("", kAllLetters, 0), -2);
    expectFailure();
}

TEST_F(CardInfo, IsLateAlsoWhenTheActivationFails)
{
    emptySlot(0x05).says("vr_openicc outtime!"); // neither -25 nor a power-off
    EXPECT_EQ(call("", kAllLetters, 0), -2);
    expectFailure();
}

// ---------------------------------------------------------------- activation failures

TEST_F(CardInfo, PowersOffAContactCardThatRefusesPower)
{
    emptySlot(0x05).powerOff().says("vr_openicc fail!return=-25");
    EXPECT_EQ(call(), -25);
    EXPECT_EQ(icType, 1);
    expectFailure();
}

TEST_F(CardInfo, DeactivatesAContactlessCardThatRefusesActivation)
{
    icType = 2;
    emptyField(0x01).deactivate().says("vr_openicc fail!return=-25");
    EXPECT_EQ(call(), -25);
    EXPECT_EQ(icType, 2);
    expectFailure();
}

TEST_F(CardInfo, DoesNotTryTheFieldWhenTheSlotFails)
{
    icType = 3;
    m_VrICType = 1; // as an earlier call left it
    emptySlot(0x03).powerOff().says("vr_openicc fail!return=-25");
    EXPECT_EQ(call(), -25);
    EXPECT_EQ(icType, 3);
    expectFailure();
}

TEST_F(CardInfo, ReportsTheFieldsFailureOfEither)
{
    icType = 3;
    emptySlot().emptyField().emptySlot().emptyField(0x03).deactivate().says("vr_openicc fail!return=-25");
    EXPECT_EQ(call(), -25);
    EXPECT_EQ(icType, 3);
    expectFailure();
}

TEST_F(CardInfo, EndsTheRetriesAtAnotherFailure)
{
    emptySlot().emptySlot().emptySlot(0x09).powerOff().says("vr_openicc fail!return=-25");
    EXPECT_EQ(call(), -25);
    expectFailure();
}

TEST_F(CardInfo, ReportsAReaderThatDoesNotAnswer)
{
    reader.silent("32 22 01 80 00").command("32 23 00");
    EXPECT_EQ(call(), -11);
    expectNothingReturned();
    EXPECT_EQ(callLog().substr(callLog().find("\r\n") + 2), "vr_openicc fail!return=-11");
    EXPECT_EQ(reader.lineEvents(), kSwitchedAndRestored);
    EXPECT_TRUE(linkClosed());
}

TEST_F(CardInfo, RefusesOtherCardTypes)
{
    for (const int type : {0, 4, -1, 255}) {
        SCOPED_TRACE(type);
        forgetLogs();
        icType = type;
        m_VrICType = 1;
        reader.command("32 23 00"); // nothing but the power-off
        EXPECT_EQ(call(), -1);
        EXPECT_EQ(icType, type);
        expectNothingReturned();
        EXPECT_TRUE(reader.done());
        EXPECT_TRUE(linkClosed());
        EXPECT_EQ(callLog().substr(callLog().find("\r\n") + 2), "vr_openicc fail!return=-1");
    }
}

// ---------------------------------------------------------------- selection and processing failures

TEST_F(CardInfo, FindsNoApplicationWithoutADirectory)
{
    powerOn().apdu(select(kPseName), "6A82").powerOff();
    says("vrdk_PseAppSelect fail!return=0").says("func IC_GetInfo return -26");
    icType = 3;
    EXPECT_EQ(call(), -26);
    EXPECT_EQ(icType, 1); // the interface is known already
    expectFailure();
}

TEST_F(CardInfo, FindsNoApplicationInAnEmptyDirectory)
{
    icType = 2;
    activate().apdu(select(kPseName), ok(directoryFci(kPseName))).apdu(readRecord(1, 1), "6A83").deactivate();
    says("vrdk_PseAppSelect fail!return=0").says("func IC_GetInfo return -26");
    EXPECT_EQ(call(), -26);
    expectFailure();
}

TEST_F(CardInfo, FindsNeitherTheListsApplicationNorADirectory)
{
    powerOn().apdu(select("A0000000031010"), "6A82").apdu(select(kPseName), "6A82").powerOff();
    says("vrdk_PseAppSelect fail!return=0").says("func IC_GetInfo return -26");
    EXPECT_EQ(call("A0000000031010"), -26);
    expectFailure();
}

TEST_F(CardInfo, ReportsTheStatusOfTheFinalSelect)
{
    powerOn().readDirectory().apdu(select(kAid), "6A82").powerOff();
    says("vrdk_FinalAppSelect fail!return=27266").says("func IC_GetInfo return -27");
    EXPECT_EQ(call(), -27);
    expectFailure();
}

TEST_F(CardInfo, ReportsTheReadersFailureAtTheFinalSelect)
{
    powerOn().readDirectory().exchange("capdu", "32 26 00" + select(kAid), "", 0x08).powerOff();
    says("vrdk_FinalAppSelect fail!return=-10").says("func IC_GetInfo return -27");
    EXPECT_EQ(call(), -27);
    expectFailure();
}

TEST_F(CardInfo, ReportsRefusedProcessingOptionsWithoutALogLine)
{
    powerOn().selectThroughDirectory().apdu("80 A8 00 00 02 83 00", "6985").powerOff();
    EXPECT_EQ(call(), -28);
    expectFailure();
}

TEST_F(CardInfo, ReportsAPdolThatCannotBeBuilt)
{
    powerOn().selectThroughDirectory(tlv("9F38", "9F02")).powerOff();
    EXPECT_EQ(call(), -28);
    expectFailure();
}

TEST_F(CardInfo, ReportsAResponseWithoutAnAfl)
{
    icType = 2;
    activate().selectThroughDirectory().apdu("80 A8 00 00 02 83 00", "77 04 82 02 7C 00 90 00").deactivate();
    EXPECT_EQ(call(), -28);
    expectFailure();
}

TEST_F(CardInfo, TakesUnreadableRecordsForMissingObjects)
{
    powerOn().selectThroughDirectory().process("08010200").apdu(readRecord(1, 1), "6A83");
    exchange("capdu", "32 26 00" + readRecord(2, 1), "", 0x05).refuseGetData().returns(infoText({})).powerOff();
    EXPECT_EQ(call(), 0);
    expectInfo(infoText({}));
}

// ---------------------------------------------------------------- the link

TEST_F(CardInfo, ReportsAPortThatIsNotThere)
{
    const int descriptors = openDescriptors();
    EXPECT_EQ(IC_GetInfo("none/99", "e", 9600, 5, &icType, "A0", "A", &length, text.data()), -3);
    expectNothingReturned();
    EXPECT_EQ(icType, 1);
    EXPECT_EQ(openDescriptors(), descriptors);
    EXPECT_EQ(serviceLog(), "begin func IC_GetInfo(nPortNo:none/99,extendPort:e,nBaudRate:9600,nTimeout:5,pnIcType:1,"
                            "pszAIDlist:A0,pszTaglist:A\r\n");
    EXPECT_EQ(traceLog(), std::string(46, '-') +
                              "\r\nIC_GetInfo\r\nnPortNo=none/99 extendPort=e nBaudRate=9600 nTimeout=5\r\n"
                              "Actual input is:\r\nnone/99:9600,N,8,1\r\n");
    EXPECT_EQ(vr_comportmode, 0);
    EXPECT_STREQ(vr_comportparam, "none/99:9600,N,8,1");
}

TEST_F(CardInfo, TakesUsbInLowerCaseForATty)
{
    EXPECT_EQ(IC_GetInfo("usb", "", 0, 5, &icType, "", "A", &length, text.data()), -3);
    EXPECT_EQ(vr_comportmode, 0);
    EXPECT_NE(traceLog().find("Actual input is:\r\nusb:9600,N,8,1\r\n"), std::string::npos);
    expectNothingReturned();
}

TEST_F(CardInfo, LooksForTheReaderOnUsb)
{
    int result = 0;
    standardErrorOf([&] {
        standardOutputOf([&] { result = IC_GetInfo("USB", "", 0, 5, &icType, "", "A", &length, text.data()); });
    });
    EXPECT_EQ(result, -3); // no such device here
    EXPECT_EQ(vr_comportmode, 1);
    EXPECT_NE(traceLog().find("Actual input is:\r\nVID_3A5C&PID_7E21\r\n"), std::string::npos);
    expectNothingReturned();
}

TEST_F(CardInfo, WorksAgainOnTheSameLine)
{
    for (int i = 0; i < 3; ++i) {
        contactCard({{tlv("70", tlv("5A", "6231"))}}, infoText({{'A', "6231"}}));
        EXPECT_EQ(call("", "A"), 0);
        EXPECT_STREQ(text.data(), infoText({{'A', "6231"}}).c_str());
    }
    EXPECT_TRUE(linkClosed());
    EXPECT_EQ(reader.lineEvents().size(), 9U);
}

// ---------------------------------------------------------------- arguments that are missing

TEST_F(CardInfo, TakesMissingTextsForEmptyOnes)
{
    powerOn().selectThroughDirectory().process("08010100").refuseGetData().powerOff();
    EXPECT_EQ(IC_GetInfo(port(), nullptr, 7, 5, &icType, nullptr, nullptr, &length, text.data()), 0);
    EXPECT_EQ(std::string(text.data()), infoText({}));
    EXPECT_EQ(traceLog(), std::string(46, '-') + "\r\nIC_GetInfo\r\nnPortNo=" + line.port() +
                              " extendPort= nBaudRate=7 nTimeout=5\r\nActual input is:\r\n" + line.port() +
                              ":9600,N,8,1\r\n");
    EXPECT_EQ(callLog(), "begin func IC_GetInfo(nPortNo:" + line.port() +
                             ",extendPort:,nBaudRate:7,nTimeout:5,pnIcType:1,pszAIDlist:,pszTaglist:\r\n"
                             "pnUsrInfoLen:49\r\npnUsrInfoLen:" +
                             infoText({}) + "\r\n");
}

TEST_F(CardInfo, TakesAMissingPortForAnEmptyOne)
{
    EXPECT_EQ(IC_GetInfo(nullptr, "", 0, 5, &icType, "", "A", &length, text.data()), -3);
    EXPECT_STREQ(vr_comportparam, ":9600,N,8,1");
    expectNothingReturned();
}

TEST_F(CardInfo, TakesAMissingCardTypeForZero)
{
    m_VrICType = 2;
    reader.command("32 25 00 00");
    EXPECT_EQ(IC_GetInfo(port(), "", 0, 5, nullptr, "", "A", &length, text.data()), -1);
    EXPECT_NE(callLog().find(",pnIcType:0,"), std::string::npos);
    expectNothingReturned();
    EXPECT_TRUE(linkClosed());
}

TEST_F(CardInfo, DoesNotWriteOutputsThatAreMissing)
{
    powerOn().selectThroughDirectory().process("").refuseGetData().powerOff();
    EXPECT_EQ(IC_GetInfo(port(), "", 0, 5, &icType, "", "A", nullptr, nullptr), 0);
    EXPECT_NE(callLog().find("pnUsrInfoLen:" + infoText({}) + "\r\n"), std::string::npos);
    reader.command("32 22 01 80 00", "", 0x05).command("32 23 00");
    EXPECT_EQ(IC_GetInfo(port(), "", 0, 5, &icType, "", "A", nullptr, nullptr), -25);
    EXPECT_TRUE(linkClosed());
}

// ---------------------------------------------------------------- the longest record

TEST_F(CardInfo, TheLongestRecordFillsItsCapacityExactly)
{
    // The first record begins 70 FF and the answers to GET DATA E1 FF, so each length of the form 81 gives 255 bytes:
    // the value of 200 bytes and what follows it, zeros behind the end. No digit F cuts the first two.
    const std::vector<std::string> records = {
        "70FF5A81C8" + repeated("11", 200), "5781C8" + repeated("12", 200),   "5064" + repeated("13", 100),
        "5F2481C8" + repeated("14", 200),   "5F3481C8" + repeated("15", 200), "9F6281C8" + repeated("16", 200),
        "9F6181C8" + repeated("17", 200),   "5F2081C8" + repeated("18", 200), "9F0B81C8" + repeated("19", 200)};
    const auto counter = [](const std::string& tag) { return "E1FF" + tag + "81C8" + repeated("2A", 200); };
    const std::string counted = repeated("2A", 200) + repeated("00", 55);
    const std::map<char, std::string> fields = {
        {'A', repeated("11", 200) + "5781C8" + repeated("12", 52)},
        {'B', repeated("12", 200) + "5064" + repeated("13", 53)},
        {'C', counted},
        {'D', counted},
        {'E', repeated("14", 200) + "5F3481C8" + repeated("15", 51)},
        {'F', counted},
        {'G', repeated("15", 200) + "9F6281C8" + repeated("16", 51)},
        {'H', counted},
        {'I', repeated("16", 200) + "9F6181C8" + repeated("17", 51)},
        {'J', repeated("17", 200) + "5F2081C8" + repeated("18", 51)},
        {'K', repeated("18", 200) + "9F0B81C8" + repeated("19", 51)},
        {'L', repeated("19", 200) + repeated("00", 55)},
    };
    const std::string info = infoText(fields);
    ASSERT_EQ(info.size() + 1, static_cast<std::size_t>(ICC_USER_INFO_CAPACITY));
    contactCard(
        {records,
         99,
         {{"9F79", counter("9F79")}, {"9F77", counter("9F77")}, {"9F78", counter("9F78")}, {"9F36", counter("9F36")}}},
        info);
    EXPECT_EQ(call(), 0);
    expectInfo(info);
}

// ---------------------------------------------------------------- more records than a small buffer holds

TEST_F(CardInfo, FindsWhatStandsBehindThousandsOfBytesOfRecords)
{
    Card card;
    card.records.assign(18, tlv("70", tlv("9F4B", repeated("77", 241))));
    ASSERT_EQ(fromHex(card.records[0]).size(), 248U); // eighteen of them are 4,464 bytes
    card.records.push_back(tlv("70", tlv("5A", "6200001234567890")));
    card.records.push_back(tlv("70", tlv("57", "6200001234567890D2512201")));
    card.recordsRead = 19; // the wanted one is the last that is read
    const std::string info = infoText({{'A', "6200001234567890"}});
    contactCard(card, info);
    EXPECT_EQ(call("", "A"), 0);
    expectInfo(info);
}
