// SPDX-License-Identifier: Apache-2.0
// Every way in which the second half of an online transaction ends: its code, its log line and number, the card's
// power, the line, and what stands in the outputs.
#include "support/allocation.h"
#include "support/interruption.h"
#include "support/service_call.h"
#include "support/transaction.h"

using namespace vorn::test;

namespace {

const std::string kArpc = "1827364554637281";
const std::string kList = "8A029C01";
const std::string kRest = "5A0A" + kPan + "5F34010282027C00";
const std::string kScript = "720E 8605 8424000000 8605 841E000001"; // two commands
const std::string kEmptyScript = "7200";

class CompletionFailure : public TransactionTest, public ::testing::WithParamInterface<Way> {
protected:
    CompletionFailure()
    {
        setWay(GetParam());
        text.information = "40";
    }

    int second(const std::string& txData, const std::string& answer, const std::string& stateText)
    {
        return second(txData.c_str(), answer.c_str(), stateText.c_str());
    }
    int second(const char* txData, const char* answer, const char* stateText)
    {
        icType = kGivenType;
        return TransactionTest::second(txData, answer, stateText);
    }
    void expectTypeOfTheState() const { EXPECT_EQ(icType, static_cast<int>(GetParam())); }

    std::string type() const { return hexByte(static_cast<std::size_t>(GetParam())); }
    std::string goodState() const { return type() + tlv("8D", kList) + kRest; }
    static std::string answerWith(const std::string& arc, const std::string& more = "")
    {
        return "910A" + kArpc + arc + withoutBlanks(more);
    }
    Exchange authenticate(const std::string& arc) const { return card.externalAuthenticate(kArpc + arc); }

    void expectEnd(const std::string& lines, const std::string& answer, const std::string& stateText,
                   const std::string& script = "", const std::string& tcText = "") const
    {
        EXPECT_EQ(traceLog(), traceOf("IC_CtlScriptData"));
        EXPECT_EQ(callLog(), secondEntry(kNumberText, answer, stateText, kGivenType) + lines);
        EXPECT_EQ(scriptResult, script);
        EXPECT_EQ(tc, tcText);
        EXPECT_EQ(length, tcText.empty() ? -77 : static_cast<int>(tcText.size()));
    }
    std::string tcLine() const
    {
        return "pnTCLen:" + std::to_string(text.tc().size()) + ",pszTC:" + text.tc() + "\r\n";
    }

    static constexpr int kGivenType = -5; // which no state has
    IssuerText text;
};

INSTANTIATE_TEST_SUITE_P(, CompletionFailure, ::testing::Values(Way::Contact, Way::Field), wayName);

} // namespace

// ---------------------------------------------------------------- the link

TEST_P(CompletionFailure, WithoutAPortLeavesTheOutputsAlone)
{
    char tcText[] = "as it was", script[] = "as it was";
    icType = kGivenType;
    int result = 0;
    const std::string out = standardOutputOf([&] {
        result = IC_CtlScriptData("pts/nowhere", "E7", 115200, 5, &icType, kNumberText.c_str(),
                                  answerWith("3030").c_str(), &length, tcText, script, "027F");
    });
    EXPECT_EQ(result, -3);
    EXPECT_STREQ(tcText, "as it was");
    EXPECT_STREQ(script, "as it was");
    EXPECT_EQ(length, -77);
    EXPECT_EQ(icType, kGivenType);
    EXPECT_EQ(out, "vr_comportparam = pts/nowhere:9600,N,8,1,vr_comportmode=0\n");
    EXPECT_EQ(traceLog(), "----------------------------------------------\r\nIC_CtlScriptData\r\n"
                          "nPortNo=pts/nowhere extendPort=E7 nBaudRate=115200 nTimeout=5\r\nActual input is:\r\n"
                          "pts/nowhere:9600,N,8,1\r\n");
    EXPECT_EQ(callLog(), "IC_CtlScriptData nPortNo:pts/nowhere,extendPort:E7,nBaudRate:115200,nTimeout:5,pnIcType:" +
                             std::to_string(icType) + ",pszTxData:" + kNumberText + ",pszARPC:" + answerWith("3030") +
                             ",icc_tempappdata:027F\r\n");
    EXPECT_TRUE(line.sent().empty());
}

TEST_P(CompletionFailure, WithoutMemoryForOneOfItsTextsDoesNotOpenTheLink)
{
    icType = kGivenType;
    for (int number = 1; number <= 3; ++number) {
        SCOPED_TRACE(number);
        Output tcOutput{ICC_CRYPTOGRAM_CAPACITY};
        Output scriptOutput{ICC_SCRIPT_RESULT_CAPACITY};
        standardOutputOf([&] {
            const RefusedBlock block(number);
            EXPECT_EQ(IC_CtlScriptData(port(), "E7", 115200, 5, &icType, kNumberText.c_str(),
                                       answerWith("3030").c_str(), &length, tcOutput.text(), scriptOutput.text(),
                                       goodState().c_str()),
                      -1);
            EXPECT_TRUE(block.met());
        });
        EXPECT_TRUE(tcOutput.untouched() && scriptOutput.untouched());
        EXPECT_EQ(length, -77);
        EXPECT_EQ(icType, kGivenType);
    }
    EXPECT_TRUE(line.sent().empty());
}

// ---------------------------------------------------------------- the state

TEST_P(CompletionFailure, WithoutAState)
{
    EXPECT_EQ(second(kNumberText.c_str(), answerWith("3030").c_str(), nullptr), -1);
    EXPECT_EQ(icType, 0);
    expectEnd(errorLine(4634, -1), answerWith("3030"), "");
    expectClosed();
}

TEST_P(CompletionFailure, OfAStateThatDecodesToNothing)
{
    for (const std::string& damaged : {std::string(), std::string("0"), goodState() + "0", goodState().substr(1)}) {
        forgetLogs();
        setWay(GetParam());
        EXPECT_EQ(second(kNumberText, answerWith("3030"), damaged), -1);
        EXPECT_EQ(icType, 0);
        EXPECT_EQ(m_VrICType, 0);
        expectEnd(errorLine(4634, -1), answerWith("3030"), damaged);
        EXPECT_TRUE(linkClosed());
    }
}

TEST_P(CompletionFailure, OfAStateWithoutASecondList)
{
    const std::string states[] = {type(), type() + kRest, type() + "FF" + tlv("8D", kList), type() + "9F8D0400000000",
                                  type() + "5A7F" + tlv("8D", kList)};
    for (const std::string& damaged : states) {
        forgetLogs();
        setWay(GetParam());
        EXPECT_EQ(second(kNumberText, answerWith("3030"), damaged), -1);
        expectTypeOfTheState();
        expectEnd(errorLine(4634, -1), answerWith("3030"), damaged);
        EXPECT_TRUE(linkClosed());
    }
}

TEST_P(CompletionFailure, OfASecondListThatCannotBeBuilt)
{
    const std::string states[] = {
        type() + "8D00" + kRest,                            // asks for nothing
        type() + tlv("8D", "8A029F") + kRest,               // an unfinished tag
        type() + tlv("8D", "8A0295") + kRest,               // no length
        type() + tlv("8D", "8A02FF01") + kRest,             // padding
        type() + tlv("8D", repeated("9F4E14", 13)) + kRest, // 260 bytes
        type() + "8D068A029F",                              // the text ends inside the list
        type() + "8D",                                      // and before its length
    };
    for (const std::string& damaged : states) {
        forgetLogs();
        setWay(GetParam());
        EXPECT_EQ(second(kNumberText, answerWith("3030", kScript), damaged), -1);
        expectTypeOfTheState();
        expectEnd(errorLine(4962, -1), answerWith("3030", kScript), damaged);
        EXPECT_TRUE(linkClosed());
    }
}

TEST_P(CompletionFailure, OfAListComesBeforeThatOfTheAnswer)
{
    EXPECT_EQ(second(kNumberText, "", type() + "8D00"), -1);
    expectTypeOfTheState();
    expectEnd(errorLine(4962, -1), "", type() + "8D00");
    expectClosed();
}

TEST_P(CompletionFailure, OfACutStateKeepsWhatIsThere)
{
    // One byte more than the state holds is looked at, and it is 00.
    const struct {
        std::string rest, pan, sequence, aip;
    } table[] = {
        {"", "", "", ""},
        {"5A0A6217", "5A03621700", "", ""},
        {"5A", "5A00", "", ""},
        {"5A0A" + kPan, "5A0A" + kPan, "", ""},
        {"5A0A" + kPan + "5F34", "5A0A" + kPan, "5F3400", ""},
        {"5A0A" + kPan + "5F", "5A0A" + kPan, "", ""},
        {"5A0A" + kPan + "5F34010282", "5A0A" + kPan, "5F340102", "82020000"},
        {"5A0A" + kPan + "5F34010282027C", "5A0A" + kPan, "5F340102", "82027C00"},
    };
    for (const auto& row : table) {
        SCOPED_TRACE(row.rest);
        const std::string damaged = type() + tlv("8D", kList) + row.rest;
        text.pan = row.pan;
        text.sequence = row.sequence;
        text.aip = row.aip;
        expect({authenticate("3030"), card.generate("40", "303001", text.response()), card.lastOnline()});
        EXPECT_EQ(second(kNumberText, answerWith("3030"), damaged), 0);
        expectTypeOfTheState();
        EXPECT_EQ(tc, text.tc());
        EXPECT_TRUE(linkClosed());
    }
}

TEST_P(CompletionFailure, OfAStateOfOtherCharacters)
{
    for (const char* damaged : {"zzzz", "    ", "\x7F\x80\xFF\xFE"}) {
        forgetLogs();
        setWay(GetParam());
        EXPECT_EQ(second(kNumberText, answerWith("3030"), damaged), -1);
        expectEnd(errorLine(4634, -1), answerWith("3030"), damaged);
        EXPECT_TRUE(linkClosed());
    }
}

// ---------------------------------------------------------------- the issuer's answer

TEST_P(CompletionFailure, WithoutAnAnswer)
{
    EXPECT_EQ(second(kNumberText.c_str(), nullptr, goodState().c_str()), -2);
    expectTypeOfTheState();
    expectEnd(errorLine(4977, 0), "", goodState());
    expectClosed();
}

TEST_P(CompletionFailure, OfAnAnswerThatDecodesToNothing)
{
    for (const std::string& answer : {std::string(), std::string("9"), answerWith("3030") + "7"}) {
        forgetLogs();
        EXPECT_EQ(second(kNumberText, answer, goodState()), -2);
        expectTypeOfTheState();
        expectEnd(errorLine(4977, 0), answer, goodState());
        EXPECT_TRUE(linkClosed());
    }
}

TEST_P(CompletionFailure, WithoutIssuerAuthenticationData)
{
    const struct {
        std::string answer, script;
    } table[] = {
        {"8A023030", ""},
        {"00", ""},
        {"FF910A" + kArpc + "3030", ""},
        {"7200", "DF31050000000000"},
        {"71009F180400000055", "DF31050055"},
        {"9F180400000055", ""},
        {"8620910A" + kArpc + "3030", ""}, // inside another object
    };
    for (const auto& row : table) {
        SCOPED_TRACE(row.answer);
        forgetLogs();
        EXPECT_EQ(second(kNumberText, row.answer, goodState()), -4);
        expectTypeOfTheState();
        expectEnd(errorLine(5010, -1), row.answer, goodState(), row.script);
        EXPECT_TRUE(linkClosed());
    }
}

TEST_P(CompletionFailure, OfShortIssuerAuthenticationData)
{
    const struct {
        std::string answer, script;
    } table[] = {
        {"9109" + kArpc + "30", ""},
        {"9108" + kArpc, ""},
        {"9101307200", "DF31050000000000"},
        {"9100", ""},
        {"910072009F1804000000AB", "DF310500AB"},
        {"910A" + kArpc + "30", ""}, // the text ends before it does
    };
    for (const auto& row : table) {
        SCOPED_TRACE(row.answer);
        forgetLogs();
        EXPECT_EQ(second(kNumberText, row.answer, goodState()), -4);
        expectTypeOfTheState();
        expectEnd(errorLine(5018, 0), row.answer, goodState(), row.script);
        EXPECT_TRUE(linkClosed());
    }
}

// ---------------------------------------------------------------- the second cryptogram

TEST_P(CompletionFailure, OfARefusedTc)
{
    for (const char* information : {"00", "10", "3F"}) {
        forgetLogs();
        text.information = information;
        expect({authenticate("3030"), card.generate("40", "303001", text.response())});
        EXPECT_EQ(second(kNumberText, answerWith("3030", kScript), goodState()), -30);
        expectTypeOfTheState();
        expectEnd(errorLine(5069, 0), answerWith("3030", kScript), goodState(), "DF31050000000000");
        EXPECT_TRUE(linkClosed()); // the card stays on, the script is not run
    }
}

TEST_P(CompletionFailure, OfAnEmptyAnswerIsARefusedTc)
{
    for (const char* response : {"", "80", "8000"}) {
        forgetLogs();
        expect({authenticate("3131"), card.generate("40", "313101", response)});
        EXPECT_EQ(second(kNumberText, answerWith("3131"), goodState()), -30);
        expectTypeOfTheState();
        expectEnd(errorLine(5069, 0), answerWith("3131"), goodState());
        EXPECT_TRUE(linkClosed());
    }
}

TEST_P(CompletionFailure, OfADeclinedTransactionIsNone)
{
    text.information = "00";
    expect({authenticate("3531"), card.generate("00", "353101", text.response())});
    EXPECT_EQ(second(kNumberText, answerWith("3531", kScript), goodState()), 0);
    expectTypeOfTheState();
    expectEnd(errorLine(5089, 0), answerWith("3531", kScript), goodState(), "DF31050000000000");
    expectClosed();
}

TEST_P(CompletionFailure, OfTheSecondCryptogramByItsResponseCode)
{
    // The answer counts as zeros: where a TC or an AAC was asked for, as an AAC.
    const struct {
        std::string arc, reference;
        int result, number;
    } table[] = {
        {"3030", "40", -30, 5069}, {"3130", "40", -30, 5069}, {"3131", "40", -30, 5069},
        {"3031", "C0", -30, 5099}, {"3032", "C0", -30, 5099}, {"3035", "00", 0, 5089},
    };
    for (const auto& row : table) {
        forgetLogs();
        expect({authenticate(row.arc), card.apdu("80AE" + row.reference + "0003" + row.arc + "01", "6985")});
        EXPECT_EQ(second(kNumberText, answerWith(row.arc, kScript), goodState()), row.result);
        expectTypeOfTheState();
        expectEnd(errorLine(row.number, 0x6985), answerWith(row.arc, kScript), goodState(), "DF31050000000000");
        EXPECT_TRUE(linkClosed());
    }
}

TEST_P(CompletionFailure, OfAnotherCryptogramLeavesTheLinkOpenAndTheCardOn)
{
    for (const char* information : {"80", "C0"}) {
        forgetLogs();
        text.information = information;
        expect({authenticate("3030"), card.generate("40", "303001", text.response())});
        EXPECT_EQ(second(kNumberText, answerWith("3030", kScript), goodState()), -2);
        expectTypeOfTheState();
        expectEnd("", answerWith("3030", kScript), goodState(), "DF31050000000000");
        EXPECT_FALSE(linkClosed());
        EXPECT_EQ(reader.lineEvents().back(), "ESC $ I 2 at 9600");
    }
}

TEST_P(CompletionFailure, OfATcInFormat2LeavesTheLinkOpen)
{
    // The third byte is the tag's, which does not look like a TC.
    expect({authenticate("3030"), card.generate("40", "303001", tlv("77", "9F2701409F36020138"))});
    EXPECT_EQ(second(kNumberText, answerWith("3030"), goodState()), -2);
    expectTypeOfTheState();
    expectEnd("", answerWith("3030"), goodState());
    EXPECT_FALSE(linkClosed());
}

TEST_P(CompletionFailure, OfAnAnswerThatLooksLikeATcWithoutTheTag)
{
    for (const char* response : {"7706500441424344", "570140", "7703500140"}) {
        forgetLogs();
        expect({authenticate("3030"), card.generate("40", "303001", response)});
        EXPECT_EQ(second(kNumberText, answerWith("3030", kEmptyScript), goodState()), -3);
        expectTypeOfTheState();
        expectEnd(errorLine(5115, -1), answerWith("3030", kEmptyScript), goodState(), "DF31050000000000");
        EXPECT_TRUE(linkClosed());
    }
}

// ---------------------------------------------------------------- the end

TEST_P(CompletionFailure, OfTheScriptPowersOff)
{
    expect({authenticate("3030"), card.generate("40", "303001", text.response()), card.lastOnline(),
            card.apdu("8424000000", "9000"), card.apdu("841E000001", "6A81"), card.powerOff()});
    EXPECT_EQ(second(kNumberText, answerWith("3030", kScript), goodState()), -31);
    expectTypeOfTheState();
    expectEnd(tcLine() + errorLine(5430, 0x6A81), answerWith("3030", kScript), goodState(), "DF31051200000000",
              text.tc());
    expectClosed();
}

TEST_P(CompletionFailure, NoneWithoutAScriptLeavesTheCardOn)
{
    expect({authenticate("3030"), card.generate("40", "303001", text.response()), card.lastOnline()});
    EXPECT_EQ(second(kNumberText, answerWith("3030"), goodState()), 0);
    expectTypeOfTheState();
    expectEnd(tcLine() + errorLine(5411, -1), answerWith("3030"), goodState(), "", text.tc());
    expectClosed();
}

TEST_P(CompletionFailure, NoneWithAScriptPowersOff)
{
    expect({authenticate("3030"), card.generate("40", "303001", text.response()), card.lastOnline(),
            card.apdu("8424000000", "9000"), card.apdu("841E000001", "9000"), card.powerOff()});
    EXPECT_EQ(second(kNumberText, answerWith("3030", kScript), goodState()), 0);
    expectTypeOfTheState();
    expectEnd(tcLine() + "pszScriptResult:DF31052000000000\r\n", answerWith("3030", kScript), goodState(),
              "DF31052000000000", text.tc());
    expectClosed();
}

// ---------------------------------------------------------------- the bytes behind the texts

namespace {

// What the answer carries besides 91, and the seventeen bytes that it leaves of the script's result when no script has
// run. A5 is what the caller had there: without a script only the first byte is written, and an identifier goes to its
// place with a NUL behind it, whatever stands around.
struct Carried {
    const char* name;
    std::string text;
    std::string result;
    bool script;
};

const std::string kCallers = "A5";
const std::string kNothingCarried = "00" + repeated(kCallers, 16);
const Carried kCarried[] = {
    {"nothing", "", kNothingCarried, false},
    {"an identifier", "9F1804010203C4", "00" + repeated(kCallers, 7) + hexOf("C4") + "00" + repeated(kCallers, 6),
     false},
    {"a script", withoutBlanks(kScript), hexOf("DF31050000000000") + "00", true},
    {"both", withoutBlanks(kScript) + "9F1804010203C4", hexOf("DF310500C4") + "00" + hexOf("00000") + "00", true},
};

class CompletionOutputs : public CompletionFailure {
protected:
    // A call's bytes: the TC's text, and the script's result as hex.
    void expectBytes(int result, const std::string& answer, const std::string& stateText, const std::string& tcText,
                     const std::string& scriptBytes)
    {
        Output tcOutput{ICC_CRYPTOGRAM_CAPACITY};
        Output scriptOutput{ICC_SCRIPT_RESULT_CAPACITY};
        standardOutputOf([&] {
            EXPECT_EQ(IC_CtlScriptData(port(), "E7", 115200, 5, &icType, kNumberText.c_str(), answer.c_str(), &length,
                                       tcOutput.text(), scriptOutput.text(), stateText.c_str()),
                      result);
        });
        const std::size_t behind = ICC_CRYPTOGRAM_CAPACITY - tcText.size() - 1;
        EXPECT_EQ(tcOutput.hex(ICC_CRYPTOGRAM_CAPACITY), hexOf(tcText) + "00" + repeated(kCallers, behind));
        EXPECT_EQ(scriptOutput.hex(ICC_SCRIPT_RESULT_CAPACITY), scriptBytes);
        EXPECT_TRUE(reader.done()) << reader.next();
    }

    // The second cryptogram and what the card gives for it.
    Exchanges asked(const std::string& arc, const std::string& reference, const std::string& response) const
    {
        return {authenticate(arc), card.generate(reference, arc + "01", response)};
    }
    std::string responseOf(const std::string& information)
    {
        text.information = information;
        return text.response();
    }
    // The result's characters 6 and 7.
    static std::string withOutcome(std::string bytes, const std::string& outcome)
    {
        return bytes.replace(12, 4, hexOf(outcome));
    }
};

INSTANTIATE_TEST_SUITE_P(, CompletionOutputs, ::testing::Values(Way::Contact, Way::Field), wayName);

} // namespace

TEST_P(CompletionOutputs, BehindTheTextsStayWithoutAPort)
{
    Output tcOutput{ICC_CRYPTOGRAM_CAPACITY};
    Output scriptOutput{ICC_SCRIPT_RESULT_CAPACITY};
    standardOutputOf([&] {
        EXPECT_EQ(IC_CtlScriptData("pts/nowhere", "E7", 115200, 5, &icType, kNumberText.c_str(),
                                   answerWith("3030", kScript).c_str(), &length, tcOutput.text(), scriptOutput.text(),
                                   goodState().c_str()),
                  -3);
    });
    EXPECT_TRUE(tcOutput.untouched() && scriptOutput.untouched());
}

TEST_P(CompletionOutputs, BehindTheTextsStayBeforeTheAnswerIsLookedAt)
{
    for (const Carried& carried : kCarried) {
        SCOPED_TRACE(carried.name);
        expectBytes(-1, answerWith("3030", carried.text), type() + kRest, "", kNothingCarried);
        expectBytes(-1, answerWith("3030", carried.text), type() + "8D00", "", kNothingCarried);
        expectBytes(-2, "", goodState(), "", kNothingCarried);
        expectBytes(-2, answerWith("3030", carried.text) + "7", goodState(), "", kNothingCarried);
    }
}

TEST_P(CompletionOutputs, BehindTheTextsStayWithoutTheIssuersData)
{
    for (const Carried& carried : kCarried) {
        SCOPED_TRACE(carried.name);
        expectBytes(-4, "8A023030" + carried.text, goodState(), "", carried.result);
        expectBytes(-4, "9109" + kArpc + "30" + carried.text, goodState(), "", carried.result);
    }
}

TEST_P(CompletionOutputs, BehindTheTextsStayWithoutATc)
{
    for (const Carried& carried : kCarried) {
        SCOPED_TRACE(carried.name);
        const auto expectAfter = [&](const std::string& arc, const Exchanges& exchanges, int result) {
            expect(exchanges);
            expectBytes(result, answerWith(arc, carried.text), goodState(), "", carried.result);
        };
        expectAfter("3030", asked("3030", "40", responseOf("00")), -30);
        expectAfter("3531", asked("3531", "00", responseOf("00")), 0);
        expectAfter("3031", {authenticate("3031"), card.apdu("80AEC00003303101", "6985")}, -30);
        expectAfter("3030", asked("3030", "40", responseOf("80")), -2);
        expectAfter("3030", asked("3030", "40", "570140"), -3);
    }
}

TEST_P(CompletionOutputs, BehindTheTextsStayWithATc)
{
    for (const Carried& carried : kCarried) {
        SCOPED_TRACE(carried.name);
        const Exchanges approved = asked("3030", "40", responseOf("40")) + Exchanges{card.lastOnline()};
        const Exchange accepted = card.apdu("8424000000", "9000");
        if (carried.script) {
            expect(approved + Exchanges{accepted, card.apdu("841E000001", "9000"), card.powerOff()});
            expectBytes(0, answerWith("3030", carried.text), goodState(), text.tc(), withOutcome(carried.result, "20"));
            expect(approved + Exchanges{accepted, card.apdu("841E000001", "6A81"), card.powerOff()});
            expectBytes(-31, answerWith("3030", carried.text), goodState(), text.tc(),
                        withOutcome(carried.result, "12"));
        } else {
            expect(approved);
            expectBytes(0, answerWith("3030", carried.text), goodState(), text.tc(), carried.result);
        }
    }
}

// ---------------------------------------------------------------- interrupted at every exchange

namespace {

struct Consequence {
    std::size_t at; // the exchange in the list of an undisturbed call
    const char* name;
    std::size_t next; // the first exchange that still follows, by its place in that list
    std::size_t end;  // and the one behind the last
    int result;
    std::string line; // with "$" for the number that the failing step left
    std::string script;
    bool tcWritten;
};

// The reader carries on as told from an exchange on.
class Interrupted : public CompletionFailure {
protected:
    static constexpr std::size_t kOff = 5; // the place of the power-off

    Exchanges undisturbed(const std::string& arc, const std::string& reference) const
    {
        return {authenticate(arc),
                card.generate(reference, arc + "01", text.response()),
                card.lastOnline(),
                card.apdu("8424000000", "9000"),
                card.apdu("841E000001", "9000"),
                card.powerOff()};
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

    void interrupt(const Consequence& row, Interruption how, const std::string& arc = "3030",
                   const std::string& reference = "40")
    {
        SCOPED_TRACE(std::string(row.name) + ", response code " + arc);
        forgetLogs();
        setWay(GetParam());
        const bool forGood = how == Interruption::DeadReader || how == Interruption::CardPulled;
        const Exchanges all = undisturbed(arc, reference);
        expect(Exchanges(all.begin(), all.begin() + static_cast<std::ptrdiff_t>(row.at)));
        expectAs(all[row.at], how);
        for (std::size_t i = row.next; i < row.end; ++i) {
            if (forGood) {
                expectAs(all[i], how);
            } else {
                expect(all[i]);
            }
        }
        text.lastOnline = row.at == 2 ? "" : IssuerText().lastOnline;
        const std::string answer = answerWith(arc, kScript);
        EXPECT_EQ(second(kNumberText, answer, goodState()), row.result);
        expectTypeOfTheState();
        std::string lines = row.line;
        if (lines.find('$') != std::string::npos) {
            lines.replace(lines.find('$'), 1, resultOf(how));
        }
        expectEnd((row.tcWritten ? tcLine() : "") + lines, answer, goodState(), row.script,
                  row.tcWritten ? text.tc() : "");
        EXPECT_TRUE(linkClosed());
        EXPECT_TRUE(reader.done()) << reader.next();
        reader.clear();
    }

    static std::string logged(int number) { return "[ICC/ICC_COMM_VORN:" + std::to_string(number) + "]$"; }

    // The commands that ask for a cryptogram, by what was asked for.
    void interruptCryptogram(Interruption how)
    {
        const struct {
            const char* arc;
            const char* reference;
            int result, number;
        } table[] = {{"3030", "40", -30, 5069}, {"3031", "C0", -30, 5099}, {"3531", "00", 0, 5089}};
        for (const auto& row : table) {
            interrupt({1, "second cryptogram", 0, 0, row.result, logged(row.number), "DF31050000000000", false}, how,
                      row.arc, row.reference);
            if (how == Interruption::DeadReader || how == Interruption::CardPulled) {
                interrupt(
                    {0, "external authentication", 1, 2, row.result, logged(row.number), "DF31050000000000", false},
                    how, row.arc, row.reference);
            }
        }
    }

    // Every exchange in turn, and what follows goes well.
    void interruptOnce(Interruption how)
    {
        interruptCryptogram(how);
        const Consequence rows[] = {
            {0, "external authentication", 1, kOff + 1, 0, done(), "DF31052000000000", true},
            {2, "last online counter", 3, kOff + 1, 0, done(), "DF31052000000000", true},
            {3, "first script command", kOff, kOff + 1, -31, logged(5430), "DF31051100000000", true},
            {4, "second script command", kOff, kOff + 1, -31, logged(5430), "DF31051200000000", true},
            {kOff, "power-off", 0, 0, 0, done(), "DF31052000000000", true},
        };
        for (const Consequence& row : rows) {
            interrupt(row, how);
        }
    }

    std::string done() const { return "pszScriptResult:DF31052000000000\r\n"; }
};

INSTANTIATE_TEST_SUITE_P(, Interrupted, ::testing::Values(Way::Contact, Way::Field), wayName);

} // namespace

TEST_P(Interrupted, ForGood)
{
    for (const Interruption how : {Interruption::DeadReader, Interruption::CardPulled}) {
        interruptCryptogram(how);
        const Consequence rows[] = {
            {3, "first script command", kOff, kOff + 1, -31, logged(5430), "DF31051100000000", true},
            {4, "second script command", kOff, kOff + 1, -31, logged(5430), "DF31051200000000", true},
            {kOff, "power-off", 0, 0, 0, done(), "DF31052000000000", true},
        };
        for (const Consequence& row : rows) {
            interrupt(row, how);
        }
    }
}

TEST_P(Interrupted, ForGoodAtTheLastOnlineCounter)
{
    // The TC is written without the counter; the script then fails at its first command.
    for (const bool silent : {true, false}) {
        forgetLogs();
        setWay(GetParam());
        const Interruption how = silent ? Interruption::DeadReader : Interruption::CardPulled;
        const Exchanges all = undisturbed("3030", "40");
        expect({all[0], all[1]});
        expectAs(all[2], how);
        expectAs(all[3], how);
        expectAs(all[kOff], how);
        text.lastOnline = "";
        EXPECT_EQ(second(kNumberText, answerWith("3030", kScript), goodState()), -31);
        expectTypeOfTheState();
        expectEnd(tcLine() + errorLine(5430, silent ? -11 : -9), answerWith("3030", kScript), goodState(),
                  "DF31051100000000", text.tc());
        EXPECT_TRUE(linkClosed());
    }
}

TEST_P(Interrupted, ForOneExchange)
{
    interruptOnce(Interruption::LostReply);
    interruptOnce(Interruption::CardSlipped);
}

TEST_P(Interrupted, ByAReplyOfNoneOrOneByte)
{
    interruptOnce(Interruption::EmptyReply);
    interruptOnce(Interruption::OneByte);
}
