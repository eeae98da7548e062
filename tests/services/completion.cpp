// SPDX-License-Identifier: Apache-2.0
// The second half of an online transaction without a script: the issuer's answer, the second cryptogram, the TC text.
#include "support/service_call.h"
#include "support/terminal_rows.h"

using namespace vorn::test;

namespace {

const std::string kArpc = "E1D2C3B4A5968778";
const std::string kApproved = "3030";
const DataObjects kCdol2 = {{"8A", "3030"}, {"9F02", "000000000000"}, {"9F37", kNumber}};

std::string answerWith(const std::string& arc) { return "910A" + kArpc + arc; }

class Completion : public TransactionTest {
protected:
    Completion() { text.information = "40"; }

    static std::string stateWith(const std::string& cdol2, const std::string& type = "01",
                                 const std::string& rest = "5A0A" + kPan + "5F34010282027C00")
    {
        return type + tlv("8D", cdol2) + rest;
    }
    static std::string state01() { return stateWith(dolOf(kCdol2)); }

    Exchanges approved(const std::string& reference = "40", const std::string& arc = kApproved) const
    {
        return {card.externalAuthenticate(kArpc + arc),
                card.generate(reference, valuesOf(changed(kCdol2, {{"8A", arc}})), text.response()), card.lastOnline()};
    }
    std::string tcLine() const
    {
        return "pnTCLen:" + std::to_string(text.tc().size()) + ",pszTC:" + text.tc() + "\r\n";
    }

    IssuerText text;
};

} // namespace

// ---------------------------------------------------------------- whole transcripts

TEST_F(Completion, TranscriptOfAnApprovedSale)
{
    const std::string given = "P012000000012345Q012000000000678R0040840S00820260319T00221K0089F7C4411N00200";
    reader.apdu("008200000A 0F1E2D3C4B5A6978 3030", "9000")
        .apdu("80AE400019 3030 000000012345 0000000800 9F7C4411 260319 21 00 0840 01",
              "801E 40 0042 B1B2B3B4B5B6B7B8 07010103A0B002010A01000000000099C3B2A1 9000")
        .apdu("80CA9F1300", "9F1302003F 9000");
    const int result =
        second(given, "910A0F1E2D3C4B5A69783030",
               withoutBlanks("01 8D17 8A029F020695059F37049A039C019F7A015F2A02DF6901 5A0A6225123456789012345F"
                             "5F340101 82027C00"));

    ASSERT_EQ(result, 0);
    EXPECT_EQ(tc, withoutBlanks("9F2608B1B2B3B4B5B6B7B8 9F270140 9F1013 07010103A0B002010A01000000000099C3B2A1"
                                "9F37049F7C4411 9F36020042 95050000000800 9F1302003F 9A03260319 9C0121"
                                "9F06000000012345 5F020840 5A0A6225123456789012345F 5F340101 82027C00"
                                "9F020156 9F06000000000678 9F330320A100"));
    EXPECT_EQ(length, static_cast<int>(tc.size()));
    EXPECT_EQ(scriptResult, "");
    EXPECT_EQ(icType, 1);
    expectClosed(); // and the card stays on
}

TEST_F(Completion, FollowsTheFirstHalfOnTheSameCard)
{
    for (const Way way : {Way::Contact, Way::Field}) {
        setWay(way);
        text = IssuerText();
        const std::string cdol1 = "9F02069F37049C01";
        expect({card.powerOn(), card.finalSelect(), card.processing("", "80067C0010010100"),
                card.record(1, tlv("8C", cdol1) + tlv("8D", dolOf(kCdol2)) + tlv("5A", kPan) + tlv("5F34", "02")),
                card.generate("80", "000000005000" + kNumber + "01", text.response()), card.lastOnline()});
        const std::string given = kNumberText + "P0045000";
        ASSERT_EQ(first(given, kAid.c_str()), 0);

        icType = 0;
        text.information = "40";
        text.amount = "000000005000";
        expect({card.externalAuthenticate(kArpc + kApproved),
                card.generate("40", valuesOf(changed(kCdol2, {{"9F02", text.amount}})), text.response()),
                card.lastOnline()});
        EXPECT_EQ(second(given, answerWith(kApproved), state), 0);
        EXPECT_EQ(tc, text.tc());
        EXPECT_EQ(icType, static_cast<int>(way));
        EXPECT_TRUE(linkClosed());
    }
}

TEST_F(Completion, DeclinesWithoutATcWhenTheIssuerDoes)
{
    text.information = "00";
    Exchanges exchanges = approved("00", "3531");
    exchanges.pop_back();
    expect(exchanges);
    EXPECT_EQ(second(kNumberText, answerWith("3531"), state01()), 0);
    EXPECT_EQ(tc, "");
    EXPECT_EQ(scriptResult, "");
    EXPECT_EQ(length, -77);
    EXPECT_EQ(callLog(), secondEntry(kNumberText, answerWith("3531"), state01()) + errorLine(5089, 0));
    expectClosed();
}

// ---------------------------------------------------------------- logs and standard output

TEST_F(Completion, LogsItsEntryItsTextAndThatThereIsNoScript)
{
    icType = 99;
    expect(approved());
    EXPECT_EQ(second(kNumberText, answerWith(kApproved), state01()), 0);
    EXPECT_EQ(traceLog(), traceOf("IC_CtlScriptData"));
    EXPECT_EQ(callLog(),
              secondEntry(kNumberText, answerWith(kApproved), state01(), 99) + tcLine() + errorLine(5411, -1));
}

TEST_F(Completion, PrintsThePort)
{
    expect(approved());
    second(kNumberText, answerWith(kApproved), state01());
    EXPECT_EQ(printed, "vr_comportparam = " + line.port() + ":9600,N,8,1,vr_comportmode=0\n");
}

// ---------------------------------------------------------------- the card of the state

TEST_F(Completion, TalksThroughTheInterfaceOfTheState)
{
    const struct {
        std::string type;
        Way way;
        int icType;
    } table[] = {
        {"01", Way::Contact, 1}, {"02", Way::Field, 2},   {"00", Way::Field, 0},
        {"7F", Way::Field, 127}, {"FF", Way::Field, 255},
    };
    for (const auto& row : table) {
        card.way = row.way;
        m_VrICType = 9;
        icType = -5;
        expect(approved());
        EXPECT_EQ(second(kNumberText, answerWith(kApproved), stateWith(dolOf(kCdol2), row.type)), 0);
        EXPECT_EQ(icType, row.icType);
        EXPECT_EQ(m_VrICType, row.icType);
        EXPECT_EQ(tc, text.tc());
        EXPECT_TRUE(linkClosed());
    }
}

TEST_F(Completion, LeavesOutWhatTheStateLacks)
{
    const std::string pan = "5A0A" + kPan, sequence = "5F340102", aip = "82027C00";
    const struct {
        std::string pan, sequence, aip;
    } table[] = {
        {pan, sequence, aip}, {"", sequence, aip}, {pan, "", aip}, {pan, sequence, ""},
        {"", "", aip},        {"", "", ""},        {pan, "", ""},  {"5A086212345678901234", "5F34020304", "82021980"},
    };
    for (const auto& row : table) {
        text.pan = row.pan;
        text.sequence = row.sequence;
        text.aip = row.aip;
        expect(approved());
        const std::string stateText = stateWith(dolOf(kCdol2), "01", row.pan + row.sequence + row.aip);
        EXPECT_EQ(second(kNumberText, answerWith(kApproved), stateText), 0);
        EXPECT_EQ(tc, text.tc());
        EXPECT_EQ(length, static_cast<int>(text.tc().size()));
    }
}

TEST_F(Completion, TakesTwoBytesOfALongerInterchangeProfile)
{
    text.aip = "82021980";
    expect(approved());
    EXPECT_EQ(second(kNumberText, answerWith(kApproved),
                     stateWith(dolOf(kCdol2), "01", "5A0A" + kPan + "5F340102" + "82041980AABB")),
              0);
    EXPECT_EQ(tc, text.tc());
}

TEST_F(Completion, ReadsTheStateInLowerCase)
{
    expect(approved());
    EXPECT_EQ(second(kNumberText, lowerCase(answerWith(kApproved)), lowerCase(state01())), 0);
    EXPECT_EQ(tc, text.tc());
}

TEST_F(Completion, GoesOnBehindAZeroWhereATagIsExpected)
{
    // In the state, and in the card's answers: the third byte of that to GENERATE AC tells its kind.
    Exchanges exchanges = approved();
    exchanges[1] = card.generate("40", valuesOf(kCdol2), "000140" + text.response());
    exchanges[2] = card.lastOnline("00009F130201229000");
    expect(exchanges);
    const std::string stateText = "01"
                                  "0000" +
                                  tlv("8D", dolOf(kCdol2)) +
                                  "00025A00"
                                  "5A0A" +
                                  kPan +
                                  "0000"
                                  "5F340102" +
                                  "0001EE"
                                  "82027C00";
    EXPECT_EQ(second(kNumberText, answerWith(kApproved), stateText), 0);
    EXPECT_EQ(tc, text.tc());
}

TEST_F(Completion, SendsUpTo255BytesOfListValues)
{
    for (std::size_t size = 250; size <= 255; ++size) {
        SCOPED_TRACE(size);
        const std::string values = repeated("00", size - 2) + kApproved;
        expect({card.externalAuthenticate(kArpc + kApproved), card.generate("40", values, text.response()),
                card.lastOnline()});
        EXPECT_EQ(second(kNumberText, answerWith(kApproved), stateWith("9F7F" + hexByte(size - 2) + "8A02")), 0);
        EXPECT_EQ(tc, text.tc());
    }
    EXPECT_EQ(second(kNumberText, answerWith(kApproved), stateWith("9F7FFE8A02")), -1);
}

// ---------------------------------------------------------------- the issuer's answer

TEST_F(Completion, SendsTenBytesOfALongerAnswer)
{
    expect(approved());
    EXPECT_EQ(second(kNumberText, "910E" + kArpc + kApproved + "AABBCCDD", state01()), 0);
    EXPECT_EQ(tc, text.tc());
}

TEST_F(Completion, FindsTheAnswerBehindOtherObjects)
{
    // Behind a 00 as well, which ends only the search for scripts.
    for (const std::string front : {"8A023030", "0000", "00028A00", "7700", "9F100201029F1802AABB"}) {
        expect(approved("40", "3131")); // not the code that stands in for a lost one
        EXPECT_EQ(second(kNumberText, front + answerWith("3131"), state01()), 0);
        EXPECT_EQ(tc, text.tc());
    }
}

TEST_F(Completion, TakesTheFirstOfTwoAnswers)
{
    expect(approved());
    EXPECT_EQ(second(kNumberText, answerWith(kApproved) + "910A00000000000000003531", state01()), 0);
    EXPECT_EQ(tc, text.tc());
}

TEST_F(Completion, DoesNotAskWhetherTheCardAcceptedTheIssuer)
{
    for (const char* response : {"6300", "6985", "63C0", "6D00"}) {
        Exchanges exchanges = approved();
        exchanges[0] = card.externalAuthenticate(kArpc + kApproved, response);
        expect(exchanges);
        EXPECT_EQ(second(kNumberText, answerWith(kApproved), state01()), 0);
        EXPECT_EQ(tc, text.tc());
        EXPECT_TRUE(linkClosed());
    }
}

TEST_F(Completion, AnswersTheCardsListWithTheIssuersResponseCode)
{
    for (const std::string arc : {"3030", "3130", "3131"}) {
        expect(approved("40", arc));
        EXPECT_EQ(second(kNumberText, answerWith(arc), state01()), 0);
        EXPECT_EQ(tc, text.tc());
    }
}

TEST_F(Completion, ReadsAnAnswerInTheLongLengthFormByTheTextsSecondByte)
{
    const std::string front = "8A0B" + repeated("20", 11);
    const struct {
        std::string answer;
        int result;
    } table[] = {
        {front + "918102" + kArpc + kApproved, 0}, // its own length is two
        {"91810A" + kArpc + kApproved, 0},         // 129 of which ten are there
        {"8A023030"
         "91810A" +
             kArpc + kApproved,
         -4}, // two
        {"8A09" + repeated("20", 9) + "91810A" + kArpc + kApproved, -4},
        {"8A0A" + repeated("20", 10) + "91810A" + kArpc + kApproved, 0},
    };
    for (const auto& row : table) {
        SCOPED_TRACE(row.answer);
        forgetLogs();
        if (row.result == 0) {
            expect(approved());
        }
        EXPECT_EQ(second(kNumberText, row.answer, state01()), row.result);
        EXPECT_EQ(tc, row.result == 0 ? text.tc() : "");
        EXPECT_EQ(callLog(), secondEntry(kNumberText, row.answer, state01()) +
                                 (row.result == 0 ? tcLine() + errorLine(5411, -1) : errorLine(5018, 0)));
        EXPECT_TRUE(linkClosed());
        EXPECT_TRUE(reader.done());
    }
}

// ---------------------------------------------------------------- what is asked for, and what the card gives

namespace {

// The whole table: what a response code asks for and what becomes of what the card gives.
struct ArcRow {
    std::string name;
    std::string arc;
    std::string reference;
    int below; // the result, and its log line's number, when the card gives less than a TC
    int number;
};

std::ostream& operator<<(std::ostream& out, const ArcRow& row) { return out << row.arc; }

class ResponseCode : public Completion, public ::testing::WithParamInterface<ArcRow> {
protected:
    // Answers the second GENERATE AC with this information byte; what follows is added by the test.
    int runWith(const std::string& information, const Exchanges& after)
    {
        const ArcRow& row = GetParam();
        forgetLogs();
        text.information = information;
        Exchanges exchanges = approved(row.reference, row.arc);
        exchanges.pop_back();
        expect(exchanges + after);
        return second(kNumberText, answerWith(row.arc), state01());
    }
    void expectLines(const std::string& lines) const
    {
        EXPECT_EQ(callLog(), secondEntry(kNumberText, answerWith(GetParam().arc), state01()) + lines);
        EXPECT_EQ(traceLog(), traceOf("IC_CtlScriptData"));
    }
};

const ArcRow kArcRows[] = {
    {"00", "3030", "40", -30, 5069},
    {"10", "3130", "40", -30, 5069},
    {"11", "3131", "40", -30, 5069},
    {"01", "3031", "C0", -2, 0},
    {"02", "3032", "C0", -2, 0},
    {"03", "3033", "00", 0, 5089},
    {"05", "3035", "00", 0, 5089},
    {"12", "3132", "00", 0, 5089},
    {"20", "3230", "00", 0, 5089},
    {"51", "3531", "00", 0, 5089},
    {"Y1", "5931", "00", 0, 5089},
    {"Z3", "5A33", "00", 0, 5089},
    {"zero bytes", "0000", "00", 0, 5089},
    {"0 and a NUL", "3000", "00", 0, 5089},
    {"0 and a blank", "3020", "00", 0, 5089},
    {"binary one", "0001", "00", 0, 5089},
};

INSTANTIATE_TEST_SUITE_P(, ResponseCode, ::testing::ValuesIn(kArcRows), rowName<ArcRow>);

} // namespace

TEST_P(ResponseCode, WithATcGivesTheText)
{
    for (const char* information : {"40", "41", "4F", "7F"}) {
        EXPECT_EQ(runWith(information, {card.lastOnline()}), 0);
        EXPECT_EQ(tc, text.tc());
        EXPECT_EQ(length, static_cast<int>(text.tc().size()));
        expectLines(tcLine() + errorLine(5411, -1));
        EXPECT_TRUE(linkClosed());
    }
}

TEST_P(ResponseCode, WithAnAacGivesNoText)
{
    for (const char* information : {"00", "08", "3F"}) {
        EXPECT_EQ(runWith(information, {}), GetParam().below);
        EXPECT_EQ(tc, "");
        EXPECT_EQ(length, -77);
        expectLines(GetParam().number == 0 ? "" : errorLine(GetParam().number, 0));
        EXPECT_EQ(linkClosed(), GetParam().number != 0);
    }
}

TEST_P(ResponseCode, WithAnotherCryptogramLeavesTheLinkOpen)
{
    for (const char* information : {"80", "BF", "C0", "FF"}) {
        EXPECT_EQ(runWith(information, {}), -2);
        EXPECT_EQ(tc, "");
        EXPECT_EQ(length, -77);
        expectLines("");
        EXPECT_FALSE(linkClosed());
        EXPECT_EQ(line.speed(), 38400);
    }
}

TEST_P(ResponseCode, WithARefusedCommandGivesNoText)
{
    const ArcRow& row = GetParam();
    expect({card.externalAuthenticate(kArpc + row.arc),
            card.apdu("80AE" + row.reference + "000C" + valuesOf(changed(kCdol2, {{"8A", row.arc}})), "6985")});
    EXPECT_EQ(second(kNumberText, answerWith(row.arc), state01()), row.reference == "00" ? 0 : -30);
    EXPECT_EQ(tc, "");
    EXPECT_EQ(length, -77);
    expectLines(errorLine(row.number == 0 ? 5099 : row.number, 0x6985));
    expectClosed();
}

TEST_F(Completion, ReleasesALinkThatACallBeforeLeftOpen)
{
    text.information = "80";
    Exchanges exchanges = approved();
    exchanges.pop_back();
    expect(exchanges);
    EXPECT_EQ(second(kNumberText, answerWith(kApproved), state01()), -2);
    EXPECT_FALSE(linkClosed());
    EXPECT_EQ(reader.lineEvents(), std::vector<std::string>{"ESC $ I 2 at 9600"});
    const int descriptors = openDescriptors();

    text.information = "40";
    expect(approved());
    EXPECT_EQ(second(kNumberText, answerWith(kApproved), state01()), 0);
    EXPECT_TRUE(linkClosed());
    EXPECT_EQ(openDescriptors(), descriptors - 1);
}

// ---------------------------------------------------------------- the card's answers

TEST_F(Completion, WithElevenBytesOfAnswerHasNoIssuerData)
{
    text.issuerData = "";
    expect(approved());
    EXPECT_EQ(second(kNumberText, answerWith(kApproved), state01()), 0);
    EXPECT_EQ(tc, text.tc());
    EXPECT_EQ(tc.find("9F10"), std::string::npos);
}

TEST_F(Completion, WithTwelveBytesOfAnswerHasOneByteOfIssuerData)
{
    text.issuerData = "C5";
    expect(approved());
    EXPECT_EQ(second(kNumberText, answerWith(kApproved), state01()), 0);
    EXPECT_EQ(tc, text.tc());
}

TEST_F(Completion, ReadsACutAnswerAsFarAsItGoes)
{
    const struct {
        const char* answer; // the counter and the cryptogram that it leaves
        const char *counter, *cryptogram;
    } rows[] = {{"800140", "0000", "0000000000000000"},
                {"80FF40", "0000", "0000000000000000"},
                {"8005 40 0137 AABB", "0137", "AABB000000000000"},
                {"801E 40 0137 AABBCC", "0137", "AABBCC0000000000"},
                {"80FF 40 0137 1F2E3D4C5B6A7988", "0137", "1F2E3D4C5B6A7988"}};
    text.issuerData = "";
    for (const auto& row : rows) {
        SCOPED_TRACE(row.answer);
        Exchanges exchanges = approved();
        exchanges[1] = card.generate("40", valuesOf(changed(kCdol2, {{"8A", kApproved}})), row.answer);
        text.counter = row.counter;
        text.cryptogram = row.cryptogram;
        expect(exchanges);
        EXPECT_EQ(second(kNumberText, answerWith(kApproved), state01()), 0);
        EXPECT_EQ(tc, text.tc());
        EXPECT_EQ(length, static_cast<int>(tc.size()));
    }
}

TEST_F(Completion, TakesTheLastOnlineCounterWithItsLength)
{
    const struct {
        std::string answer, item;
    } table[] = {
        {"9F130200059000", "9F13020005"},
        {"9F1301559000", "9F130155"},
        {"9F13009000", "9F1300"},
        {"6A88", ""},
        {"6D00", ""},
        {"9F3602013790 00", "0000000000"},
        {"5A0162 9000", "000000"}, // a hole of the answer's length
    };
    for (const auto& row : table) {
        Exchanges exchanges = approved();
        exchanges.back() = card.lastOnline(row.answer);
        expect(exchanges);
        text.lastOnline = row.item;
        EXPECT_EQ(second(kNumberText, answerWith(kApproved), state01()), 0);
        EXPECT_EQ(tc, text.tc());
        EXPECT_EQ(length, static_cast<int>(text.tc().size()));
    }
}

// ---------------------------------------------------------------- the terminal's data

namespace {

// What this call does with a text: `asked` goes to the card, `written` to the issuer. A currency or a number that the
// walk does not reach any more is replaced.
struct SecondRow {
    std::string name;
    std::string text;
    DataObjects asked;
    DataObjects written = {};
    bool currencyLost = false;
};

std::ostream& operator<<(std::ostream& out, const SecondRow& row) { return out << row.text; }

class CompletionTerminalData : public Completion, public ::testing::WithParamInterface<SecondRow> {
protected:
    void runWith(const std::string& given, const DataObjects& asked, const DataObjects& written)
    {
        const DataObjects arc = {{"8A", kApproved}};
        DataObjects all = arc;
        all.insert(all.end(), asked.begin(), asked.end());
        text.take(written);
        expect({card.externalAuthenticate(kArpc + kApproved), card.generate("40", valuesOf(all), text.response()),
                card.lastOnline()});
        EXPECT_EQ(second(given, answerWith(kApproved), stateWith(dolOf(all))), 0);
        EXPECT_EQ(tc, text.tc());
        EXPECT_EQ(length, static_cast<int>(text.tc().size()));
        expectClosed();
    }
};

// The rows that both calls share: those without L and N, which are this call's own.
std::vector<SecondRow> sharedRows()
{
    std::vector<SecondRow> rows;
    for (const Row& row : kWithin) {
        if (row.name.rfind("L ", 0) != 0 && row.name.rfind("N ", 0) != 0 && row.name != "all keys") {
            rows.push_back({row.name, row.text, row.asked, row.written});
        }
    }
    return rows;
}

// What stands behind a given L when the walk runs over it all: nothing of it is found.
const DataObjects kAllLost = {{"95", "0000000000"},
                              {"5F2A", "0000"},
                              {"9C", "00"},
                              {"9A", "000000"},
                              {"9F21", "000000"},
                              {"9F37", "00000000"},
                              {"9F66", "00000000"},
                              {"9F7A", "00"},
                              {"9F7B", "000000000000"},
                              {"9F4E", std::string(40, '0')},
                              {"DF69", "00"}};
const DataObjects kReplaced = {{"5F2A", "0156"}, {"9F37", "12345678"}};

// The gap behind 95 makes it an empty object, and the value's bytes are read as what follows it.
const SecondRow kGapRows[] = {
    {"L as it is without", "L0100000000800", {{"95", "0000000000"}}},
    {"L of zeros", "L0100000000000", {{"95", "0000000000"}}},
    {"L empty", "L000", {{"95", "0000000000"}}},
    {"L cut to its field", "L01400000008001122", {{"95", "0000000000"}}},
    {"L that hides the rest", "L0108000048000T00221S006260319", kAllLost, kReplaced, true},
    {"L short", "L0040880R0040840", kAllLost, kReplaced, true},
    {"L odd", "L00780000F0", kAllLost, kReplaced, true},
    {"L that leads to the date",
     "L0100C00000000T00221S006260319U006101112",
     {{"95", "0000000000"}, {"5F2A", "0000"}, {"9C", "00"}, {"9A", "260319"}, {"9F21", "101112"}},
     {{"5F2A", "0156"}},
     true},
    {"L that leads to the time",
     "L0101100000000T00221S006260319U006101112",
     {{"95", "0000000000"}, {"5F2A", "0000"}, {"9C", "00"}, {"9A", "000000"}, {"9F21", "101112"}},
     {{"5F2A", "0156"}},
     true},
    {"L that leads behind the qualifiers",
     "L0101A00000000",
     {{"95", "0000000000"}, {"5F2A", "0000"}, {"9C", "00"}, {"9F37", "00000000"}, {"9F66", "00000000"}},
     kReplaced,
     true},
    {"L that leads to the support indicator",
     "L0101A00000000N00234",
     {{"95", "0000000000"}, {"5F2A", "0000"}, {"9C", "00"}, {"9F37", "00000000"}, {"9F66", "34000000"}, {"9F7A", "00"}},
     kReplaced,
     true},
    {"L that leads to a cut support indicator",
     "L0101A00000000N0065A7788M00811223344",
     {{"95", "0000000000"}, {"5F2A", "0000"}, {"9C", "00"}, {"9F37", "00000000"}, {"9F66", "5A000000"}, {"9F7A", "00"}},
     kReplaced,
     true},
};

const SecondRow kIndicatorRows[] = {
    {"N exact", "N00200", {{"9F7A", "00"}}},
    {"N other", "N0025A", {{"9F7A", "00"}}},
    {"N long", "N0045A02", {{"9F7A", "00"}}},
    {"N odd", "N0013", {{"9F7A", "00"}}},
    {"N empty", "N000", {{"9F7A", "00"}}},
    {"N beside M", "M00836004000N00255", {{"9F66", "36004000"}, {"9F7A", "00"}}},
};

// The five fields that are not cut in the first call are cut here.
const SecondRow kCutRows[] = {
    {"P long", "P0160A0000000123FFFF", {{"9F02", "0A0000000123"}}},
    {"P of 255 bytes", "P510000000000777" + repeated("AA", 249), {{"9F02", "000000000777"}}},
    {"Q long",
     "P012000000000999Q0309F02060000000003219F0306000000",
     {{"9F02", "000000000999"}, {"9F03", "9F0206000000"}}},
    {"J long", "J0080840AABB", {{"9F1A", "0840"}}},
    {"J one byte too long", "J006034401", {{"9F1A", "0344"}}},
    {"R long", "R006097803", {{"5F2A", "0978"}}},
    {"R of 100 bytes", "R2000978" + repeated("EE", 98), {{"5F2A", "0978"}}},
    {"all keys but L and N",
     "P012000000012345Q012000000000500J0040344R0040392T00220S006260319U006101112M00836004000"
     "O012000000200000V040" +
         kExactName,
     {{"9F02", "000000012345"},
      {"9F03", "000000000500"},
      {"9F1A", "0344"},
      {"5F2A", "0392"},
      {"9C", "20"},
      {"9A", "260319"},
      {"9F21", "101112"},
      {"9F66", "36004000"},
      {"9F7B", "000000200000"},
      {"9F4E", kExactName}}},
};

INSTANTIATE_TEST_SUITE_P(Shared, CompletionTerminalData, ::testing::ValuesIn(sharedRows()), rowName<SecondRow>);
INSTANTIATE_TEST_SUITE_P(Gap, CompletionTerminalData, ::testing::ValuesIn(kGapRows), rowName<SecondRow>);
INSTANTIATE_TEST_SUITE_P(Indicator, CompletionTerminalData, ::testing::ValuesIn(kIndicatorRows), rowName<SecondRow>);
INSTANTIATE_TEST_SUITE_P(Cut, CompletionTerminalData, ::testing::ValuesIn(kCutRows), rowName<SecondRow>);

} // namespace

TEST_P(CompletionTerminalData, ReachTheCardAndTheIssuer)
{
    const SecondRow& row = GetParam();
    const DataObjects objects = changed(terminalObjects(), row.asked);
    text.currencyLost = row.currencyLost;
    runWith(hasNumber(row.text) ? row.text : kNumberText + row.text, objects, changed(objects, row.written));
}

// Results that lead the walk to the merchant name's last two bytes: these make an object of the five that follow, the
// last item and the zero behind it, which counts. The name's other bytes lead behind the table, so that a walk over an
// object more or fewer finds nothing.
TEST_F(Completion, TableEndsWithAZeroThatCounts)
{
    const std::string given = kNumberText + "L0103C00000000V040" + repeated("017F", 9) + "9A05";
    text.tvr = "0000000000";
    text.date = "DF6901";
    text.type = "00";
    text.number = "12345678";
    text.currencyLost = true;
    expect({card.externalAuthenticate(kArpc + kApproved), card.generate("40", "DF690101003030", text.response()),
            card.lastOnline()});
    EXPECT_EQ(second(given, answerWith(kApproved), stateWith("9A058A02")), 0);
    EXPECT_EQ(tc, text.tc());
    expectClosed();
}

// The walk is led into the merchant name, where objects stand that a terminal has not of its own: the capabilities, and
// a date and capabilities shorter than their items, which stand at the items' ends.
TEST_F(Completion, GivesTheItemsThatATextHidesInItsTable)
{
    const struct {
        std::string name, date, capabilities;
    } table[] = {
        {"9F3303E0F8C8" + std::string("050C") + repeated("00", 12), "000000", "E0F8C8"},
        {"9F3302E0F89A0123" + std::string("050A") + repeated("00", 10), "000023", "00E0F8"},
    };
    for (const auto& row : table) {
        expect({card.externalAuthenticate(kArpc + kApproved), card.generate("40", kApproved, text.response()),
                card.lastOnline()});
        text.tvr = "0000000000";
        text.date = row.date;
        text.type = "00";
        text.number = "12345678";
        text.currencyLost = true;
        const std::string given = kNumberText + "L0102A00000000V040" + row.name;
        EXPECT_EQ(second(given, answerWith(kApproved), stateWith("8A02")), 0);
        std::string expected = text.tc();
        EXPECT_EQ(tc, expected.replace(expected.size() - 6, 6, row.capabilities));
    }
}

TEST_F(Completion, DrawsTheNumberAnew)
{
    Clock::freeze(1893456000);
    Clock::onSleep([this] { line.serve(); });
    std::srand(1893456000);
    Bytes drawn(4);
    for (std::uint8_t& byte : drawn) {
        byte = static_cast<std::uint8_t>(std::rand() & 0xFF);
    }
    text.number = toHex(drawn);
    expect({card.externalAuthenticate(kArpc + kApproved),
            card.generate("40", valuesOf(changed(kCdol2, {{"9F37", text.number}})), text.response()),
            card.lastOnline()});
    EXPECT_EQ(second("", answerWith(kApproved), state01()), 0);
    EXPECT_EQ(tc, text.tc());
}

// ---------------------------------------------------------------- arguments

TEST_F(Completion, WritesNoOutputThatTheCallerDoesNotWant)
{
    expect(approved());
    standardOutputOf([&] {
        EXPECT_EQ(IC_CtlScriptData(port(), "E7", 115200, 5, nullptr, kNumberText.c_str(), answerWith(kApproved).c_str(),
                                   nullptr, nullptr, nullptr, state01().c_str()),
                  0);
    });
    EXPECT_EQ(callLog(),
              secondEntry(kNumberText, answerWith(kApproved), state01(), 0) + tcLine() + errorLine(5411, -1));
    expectClosed();
}

TEST_F(Completion, LongestTextLeavesThreeBytesOfItsCapacity)
{
    // A given L hides the currency from the walk, so that its item keeps both tag bytes; amount, country and other
    // amount lack one each.
    const std::string pan = repeated("11", 255), sequence = repeated("12", 255);
    const std::string issuerData = repeated("6D", 237), counter = repeated("5C", 249);
    expect({card.externalAuthenticate(kArpc + kApproved),
            card.generate("40", kApproved,
                          "77FF"
                          "4200"
                          "8081F8"
                          "40" +
                              text.counter + text.cryptogram + issuerData),
            card.lastOnline("70FF"
                            "9F1381F9" +
                            counter + "9000")});
    Output tcText{ICC_CRYPTOGRAM_CAPACITY};
    Output result{ICC_SCRIPT_RESULT_CAPACITY};
    standardOutputOf([&] {
        EXPECT_EQ(
            IC_CtlScriptData(port(), "E7", 115200, 5, &icType, (kNumberText + "L0040880R0040840").c_str(),
                             answerWith(kApproved).c_str(), &length, tcText.text(), result.text(),
                             stateWith("8A02", "01", "5A8200FF" + pan + "5F348200FF" + sequence + "82027C00").c_str()),
            0);
    });
    // What the answers lack of 255 bytes is filled up with zeros.
    text.information = "40"
                       "9F10F4" +
                       issuerData + repeated("00", 7); // and the item behind it
    text.issuerData = "";
    text.number = "12345678";
    text.tvr = "0000000000";
    text.lastOnline = "9F13FF" + counter + repeated("00", 6);
    text.type = "00";
    text.currencyLost = true;
    text.pan = "5AFF" + pan;
    text.sequence = "5F34FF" + sequence;
    EXPECT_EQ(tcText.value(), text.tc());
    EXPECT_EQ(tcText.value().size(), std::size_t{ICC_CRYPTOGRAM_CAPACITY} - 1 - 2 * 3);
    EXPECT_EQ(length, static_cast<int>(tcText.value().size()));
    EXPECT_EQ(result.value(), "");
    expectClosed();
}

TEST_F(Completion, ReadsAListInTheLongLengthFormBeyondItsEnd)
{
    // The length that counts is the 81 behind the state's first tag: what follows the list is read as part of it, and
    // asks for more than a command carries.
    const std::string list = dolOf(kCdol2);
    const std::string behind = "5A0A" + kPan + "5F34010282027C00";
    EXPECT_EQ(second(kNumberText, answerWith(kApproved), "018D81" + hexByte(list.size() / 2) + list + behind), -1);
    EXPECT_EQ(callLog(),
              secondEntry(kNumberText, answerWith(kApproved), "018D81" + hexByte(list.size() / 2) + list + behind) +
                  errorLine(4962, -1));
    expectClosed();
}
