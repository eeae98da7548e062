// SPDX-License-Identifier: Apache-2.0
// Issuer scripts in the second half of an online transaction: which one runs, how far it got, what the result's text
// says, and that the card is off behind it.
#include "support/transaction.h"

using namespace vorn::test;

namespace {

const std::string kAuthentication = "0102030405060708"
                                    "3030";
const std::string kList = "8A029C01"; // asks for six digits: the response code and the type
const std::string kState = "01" + tlv("8D", kList) + tlv("5A", kPan) + tlv("5F34", "02") + "82027C00";
const std::string kIdentifier = "9F1804A1B2C3D4";

// The nth command of a script.
std::string command(std::size_t n, const std::string& kind = "84DA9F")
{
    return kind + hexByte(n) + "03" + repeated(hexByte(n), 2) + "EE";
}

std::string commands(std::size_t count, const std::string& kind = "84DA9F")
{
    std::string all;
    for (std::size_t n = 1; n <= count; ++n) {
        all += tlv("86", command(n, kind));
    }
    return all;
}

class CompletionScript : public TransactionTest {
protected:
    CompletionScript() { text.information = "40"; }

    // Up to the script.
    Exchanges approved() const
    {
        return {card.externalAuthenticate(kAuthentication), card.generate("40", "303001", text.response()),
                card.lastOnline()};
    }
    void expectCommands(std::size_t count, std::size_t failing = 0, const std::string& status = "6985")
    {
        for (std::size_t n = 1; n <= count && (failing == 0 || n <= failing); ++n) {
            expect(card.apdu(command(n), n == failing ? status : "9000"));
        }
    }
    int run(const std::string& answer) { return second(kNumberText, answerOf(answer), stateText()); }
    static std::string answerOf(const std::string& scripts) { return tlv("91", kAuthentication) + scripts; }
    std::string stateText() const { return (card.way == Way::Contact ? "01" : "02") + kState.substr(2); }

    void expectLines(const std::string& answer, const std::string& lines) const
    {
        EXPECT_EQ(callLog(), secondEntry(kNumberText, answerOf(answer), stateText(), givenType) + "pnTCLen:" +
                                 std::to_string(text.tc().size()) + ",pszTC:" + text.tc() + "\r\n" + lines);
        EXPECT_EQ(traceLog(), traceOf("IC_CtlScriptData"));
    }
    static bool loggedBeforePowerOff(const std::string& line)
    {
        const std::string log = serviceLog();
        const std::size_t off = std::min(log.find("icc_poweroff"), log.find("picc_Deactive"));
        EXPECT_NE(off, std::string::npos);
        return log.find(line) < off;
    }

    IssuerText text;
    int givenType = 1;
};

// Where the script stands, and whether it has an identifier.
enum class Place { After, Before, Both, BothReversed };

struct ScriptRow {
    std::string name;
    Place place;
    bool identified;
    Way way;
};

std::ostream& operator<<(std::ostream& out, const ScriptRow& row) { return out << row.name; }

std::vector<ScriptRow> scriptRows()
{
    std::vector<ScriptRow> rows;
    const struct {
        const char* name;
        Place place;
    } places[] = {
        {"72", Place::After}, {"71", Place::Before}, {"72 and 71", Place::Both}, {"71 and 72", Place::BothReversed}};
    for (const auto& place : places) {
        for (const bool identified : {false, true}) {
            for (const Way way : {Way::Contact, Way::Field}) {
                rows.push_back({std::string(place.name) + (identified ? " identified" : " nameless") +
                                    (way == Way::Contact ? " contact" : " contactless"),
                                place.place, identified, way});
            }
        }
    }
    return rows;
}

class PlacedScript : public CompletionScript, public ::testing::WithParamInterface<ScriptRow> {
protected:
    PlacedScript() { card.way = GetParam().way; }

    static std::string scripts(std::size_t count)
    {
        const std::string front = GetParam().identified ? kIdentifier : "";
        const std::string run = front + commands(count);
        const std::string other = commands(3, "8016AA"); // never sent
        switch (GetParam().place) {
        case Place::After:
            return tlv("72", run);
        case Place::Before:
            return tlv("71", run);
        case Place::Both:
            return tlv("72", run) + tlv("71", other);
        default:
            return tlv("71", other) + tlv("72", run);
        }
    }
    static std::string resultText(const std::string& outcome)
    {
        return "DF3105" + outcome + (GetParam().identified ? "D4" : "00000000");
    }
};

INSTANTIATE_TEST_SUITE_P(, PlacedScript, ::testing::ValuesIn(scriptRows()), rowName<ScriptRow>);

} // namespace

TEST_P(PlacedScript, Succeeds)
{
    for (const std::size_t count : {1U, 2U, 10U, 11U, 15U, 16U, 20U}) {
        forgetLogs();
        icType = 1;
        expect(approved());
        expectCommands(count);
        expect(card.powerOff());
        EXPECT_EQ(run(scripts(count)), 0);
        EXPECT_EQ(scriptResult, resultText("20"));
        EXPECT_EQ(tc, text.tc());
        EXPECT_EQ(length, static_cast<int>(text.tc().size()));
        const std::string logged = "pszScriptResult:" + resultText("20") + "\r\n";
        expectLines(scripts(count), logged);
        EXPECT_TRUE(loggedBeforePowerOff(logged));
        EXPECT_TRUE(linkClosed());
        EXPECT_TRUE(reader.done()) << reader.next();
    }
}

TEST_P(PlacedScript, FailsAtACommand)
{
    const struct {
        std::size_t at;
        const char* digit;
    } table[] = {
        {1, "1"}, {2, "2"}, {9, "9"}, {10, "A"}, {11, "B"}, {14, "E"}, {15, "F"}, {16, "F"}, {20, "F"},
    };
    for (const auto& row : table) {
        forgetLogs();
        icType = 1;
        expect(approved());
        expectCommands(20, row.at);
        expect(card.powerOff());
        EXPECT_EQ(run(scripts(20)), -31);
        EXPECT_EQ(scriptResult, resultText(std::string("1") + row.digit));
        EXPECT_EQ(tc, text.tc());
        EXPECT_EQ(length, static_cast<int>(text.tc().size()));
        expectLines(scripts(20), errorLine(5430, 0x6985));
        EXPECT_FALSE(loggedBeforePowerOff(errorLine(5430, 0x6985)));
        EXPECT_TRUE(linkClosed());
        EXPECT_TRUE(reader.done()) << reader.next();
    }
}

TEST_P(PlacedScript, WithoutACommandSucceeds)
{
    const std::string script = scripts(0);
    expect(approved() + Exchanges{card.powerOff()});
    EXPECT_EQ(run(script), 0);
    EXPECT_EQ(scriptResult, resultText("20"));
    EXPECT_EQ(tc, text.tc());
    expectLines(script, "pszScriptResult:" + resultText("20") + "\r\n");
    expectClosed();
}

TEST_P(PlacedScript, OfADeclinedTransactionDoesNotRun)
{
    text.information = "00";
    const std::string answer = tlv("91", "01020304050607083035") + scripts(2);
    expect({card.externalAuthenticate("01020304050607083035"), card.generate("00", "303501", text.response())});
    EXPECT_EQ(second(kNumberText, answer, stateText()), 0);
    EXPECT_EQ(tc, "");
    EXPECT_EQ(scriptResult, resultText("00"));
    EXPECT_EQ(callLog(), secondEntry(kNumberText, answer, stateText()) + errorLine(5089, 0));
    expectClosed(); // and the card stays on
}

// ---------------------------------------------------------------- which script, and which of its bytes

TEST_F(CompletionScript, RunsAfterEveryCryptogramThatIsATc)
{
    const struct {
        std::string arc, reference;
    } table[] = {{"3031", "C0"}, {"3531", "00"}, {"3130", "40"}};
    for (const auto& row : table) {
        expect({card.externalAuthenticate("0102030405060708" + row.arc),
                card.generate(row.reference, row.arc + "01", text.response()), card.lastOnline()});
        expectCommands(2);
        expect(card.powerOff());
        EXPECT_EQ(second(kNumberText, tlv("91", "0102030405060708" + row.arc) + tlv("72", commands(2)), kState), 0);
        EXPECT_EQ(scriptResult, "DF31052000000000");
    }
}

TEST_F(CompletionScript, RunsByItsRealLength)
{
    // Long length forms, longer than needed as well; the length of the text's first object plays no part.
    const std::string two = commands(2);
    for (const std::string& script : {"72" + hexByte(two.size() / 2) + two, "7281" + hexByte(two.size() / 2) + two,
                                      "728200" + hexByte(two.size() / 2) + two}) {
        expect(approved());
        expectCommands(2);
        expect(card.powerOff());
        EXPECT_EQ(run(script), 0);
        EXPECT_EQ(scriptResult, "DF31052000000000");
    }
}

TEST_F(CompletionScript, EndsWithItsTemplate)
{
    // Commands outside a template are no script's.
    expect(approved());
    expectCommands(1);
    expect(card.powerOff());
    EXPECT_EQ(run(tlv("72", commands(1)) + tlv("86", command(2)) + tlv("86", command(3))), 0);
    EXPECT_EQ(scriptResult, "DF31052000000000");
    expectClosed();
}

TEST_F(CompletionScript, EmptyTemplateSendsNothing)
{
    const std::string empties[] = {
        "7200",
        "7100",
        "72007100",
        "7200" + tlv("71", commands(3)), // 72 goes first, whatever it holds
        "7200" + tlv("86", command(1)),
        "7100" + tlv("86", command(1)),
        "728100" + tlv("71", commands(1)),
    };
    for (const std::string& script : empties) {
        forgetLogs();
        icType = 1;
        expect(approved() + Exchanges{card.powerOff()});
        EXPECT_EQ(run(script), 0) << script;
        EXPECT_EQ(scriptResult, "DF31052000000000");
        expectLines(script, "pszScriptResult:DF31052000000000\r\n");
        EXPECT_TRUE(linkClosed());
    }
}

TEST_F(CompletionScript, EmptySeventyTwoBehindSeventyOneGoesFirst)
{
    const std::string script = tlv("71", commands(2)) + "7200";
    expect(approved() + Exchanges{card.powerOff()});
    EXPECT_EQ(run(script), 0);
    EXPECT_EQ(scriptResult, "DF31052000000000");
}

TEST_F(CompletionScript, CountsEmptyCommands)
{
    expect(approved() + Exchanges{card.apdu(command(1), "9000"), card.apdu(command(2), "6A80"), card.powerOff()});
    EXPECT_EQ(run(tlv("72", "8600" + tlv("86", command(1)) + "86008600" + tlv("86", command(2)))), -31);
    EXPECT_EQ(scriptResult, "DF31051500000000");
}

TEST_F(CompletionScript, TakesAWarningForAFailure)
{
    expect(approved() + Exchanges{card.apdu(command(1), "63C1"), card.powerOff()});
    EXPECT_EQ(run(tlv("72", commands(2))), -31);
    EXPECT_EQ(scriptResult, "DF31051100000000");
    expectLines(tlv("72", commands(2)), errorLine(5430, 0x63C1));
}

TEST_F(CompletionScript, TakesTheStatusWord0000ForAFailure)
{
    expect(approved() + Exchanges{card.apdu(command(1), "0000"), card.powerOff()});
    EXPECT_EQ(run(tlv("72", commands(2))), -31);
    EXPECT_EQ(scriptResult, "DF31051100000000");
    expectLines(tlv("72", commands(2)), errorLine(5430, -10));
    expectClosed();
}

TEST_F(CompletionScript, CutByTheEndOfTheTextRunsWhatIsThere)
{
    expect(approved());
    expectCommands(2);
    expect(card.powerOff());
    EXPECT_EQ(run("7240" + commands(2)), 0);
    EXPECT_EQ(scriptResult, "DF31052000000000");
}

TEST_F(CompletionScript, SecondTemplateOfAKindDoesNotRun)
{
    expect(approved());
    expectCommands(1);
    expect(card.powerOff());
    EXPECT_EQ(run(tlv("72", commands(1)) + tlv("72", commands(2, "8016AA"))), 0);
    EXPECT_EQ(scriptResult, "DF31052000000000");
}

// ---------------------------------------------------------------- where the search for a script ends

TEST_F(CompletionScript, IsNotFoundBehindAZeroByte)
{
    for (const std::string front : {"00", "0000", "9F1802AABB00"}) {
        forgetLogs();
        icType = 1;
        expect(approved());
        EXPECT_EQ(run(front + tlv("72", commands(2))), 0);
        EXPECT_EQ(scriptResult, "");
        EXPECT_EQ(tc, text.tc());
        expectLines(front + tlv("72", commands(2)), errorLine(5411, -1));
        EXPECT_TRUE(linkClosed()); // and the card stays on
    }
}

TEST_F(CompletionScript, IsNotFoundBehindPadding)
{
    expect(approved());
    EXPECT_EQ(run("FF" + tlv("72", commands(2))), 0);
    EXPECT_EQ(scriptResult, "");
    expectLines("FF" + tlv("72", commands(2)), errorLine(5411, -1));
}

TEST_F(CompletionScript, SeventyOneInFrontOfAZeroByteRunsForASeventyTwoBehindIt)
{
    expect(approved());
    expectCommands(2);
    expect(card.powerOff());
    EXPECT_EQ(run(tlv("71", commands(2)) + "00" + tlv("72", commands(1, "8016AA"))), 0);
    EXPECT_EQ(scriptResult, "DF31052000000000");
}

TEST_F(CompletionScript, InFrontOfTheIssuersAnswerRuns)
{
    expect(approved());
    expectCommands(2);
    expect(card.powerOff());
    EXPECT_EQ(second(kNumberText, tlv("72", commands(2)) + tlv("91", kAuthentication), kState), 0);
    EXPECT_EQ(scriptResult, "DF31052000000000");
}

// ---------------------------------------------------------------- the identifier

TEST_F(CompletionScript, KeepsTheFourthByteOfItsIdentifier)
{
    const struct {
        std::string identifier, text;
    } table[] = {
        {"9F180411223344", "DF31052044"},      {"9F1804000000FF", "DF310520FF"}, {"9F1804FFFFFF00", "DF31052000"},
        {"9F18061122334455 66", "DF31052044"}, {"9F1802112 2", "DF31052000"},    {"9F1800", "DF31052000"},
    };
    for (const auto& row : table) {
        const std::string identifier = withoutBlanks(row.identifier);
        expect(approved());
        expectCommands(1);
        expect(card.powerOff());
        EXPECT_EQ(run(tlv("72", identifier + commands(1))), 0);
        EXPECT_EQ(scriptResult, row.text);
    }
}

TEST_F(CompletionScript, ReadsAnIdentifierInTheLongLengthFormByTheTextsSecondByte)
{
    // Ten bytes of it when the text begins with the issuer's data, though its own length is one.
    expect(approved());
    expectCommands(1);
    expect(card.powerOff());
    EXPECT_EQ(run(tlv("72", commands(1)) + "9F188101"
                                           "A1B2C3D4"),
              0);
    EXPECT_EQ(scriptResult, "DF310520D4");

    // Two bytes, so that the fourth is zero, though its own length is four.
    expect(approved());
    expectCommands(1);
    expect(card.powerOff());
    EXPECT_EQ(second(kNumberText,
                     "8A023030" + answerOf(tlv("72", commands(1)) + "9F188104"
                                                                    "A1B2C3D4"),
                     kState),
              0);
    EXPECT_EQ(scriptResult, "DF31052000");
}

TEST_F(CompletionScript, TakesAnIdentifierOutsideItsTemplate)
{
    expect(approved());
    expectCommands(11, 11, "6A84");
    expect(card.powerOff());
    EXPECT_EQ(run(tlv("72", commands(11)) + "9F180400000077"), -31);
    EXPECT_EQ(scriptResult, "DF31051B77");
}

TEST_F(CompletionScript, TakesTheFirstIdentifier)
{
    expect(approved());
    expectCommands(1);
    expect(card.powerOff());
    EXPECT_EQ(run(tlv("71", "9F1804000000A1" + commands(1, "8016AA")) + tlv("72", "9F1804000000A2" + commands(1))), 0);
    EXPECT_EQ(scriptResult, "DF310520A1");
}

TEST_F(CompletionScript, FindsItsIdentifierBehindAZeroByte)
{
    // The search for the identifier knows the text's length and does not end there.
    expect(approved());
    expectCommands(1);
    expect(card.powerOff());
    EXPECT_EQ(run(tlv("72", commands(1)) + "0000" + "9F1804010203E7"), 0);
    EXPECT_EQ(scriptResult, "DF310520E7");
}

TEST_F(CompletionScript, IdentifierWithoutAScriptLeavesTheResultEmpty)
{
    expect(approved());
    EXPECT_EQ(run(kIdentifier), 0);
    EXPECT_EQ(scriptResult, "");
    expectLines(kIdentifier, errorLine(5411, -1));
    expectClosed();
}

// ---------------------------------------------------------------- arguments

TEST_F(CompletionScript, RunsForACallerWhoDoesNotWantItsResult)
{
    expect(approved());
    expectCommands(2);
    expect(card.powerOff());
    const std::string answer = answerOf(tlv("72", commands(2)));
    standardOutputOf([&] {
        EXPECT_EQ(IC_CtlScriptData(port(), "E7", 115200, 5, &icType, kNumberText.c_str(), answer.c_str(), nullptr,
                                   nullptr, nullptr, kState.c_str()),
                  0);
    });
    expectLines(tlv("72", commands(2)), "pszScriptResult:DF31052000000000\r\n");
    expectClosed();
}
