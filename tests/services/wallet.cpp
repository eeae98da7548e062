// SPDX-License-Identifier: Apache-2.0
// IC_GetZzhHardWalletInfo: the identification of a hard wallet card.
#include "support/card_text.h"
#include "support/scripted_reader.h"
#include "support/service_call.h"

#include "ICC_COMM_VORN.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

using namespace vorn::test;

namespace {

const std::string kFirst = "A00000087250";
const std::string kSecond = "A00000087249";
const std::string kThird = "A00000087253";
const std::string kContextId = "5A17C0DE99120034";
const std::string kInformation = "80 22 00 03 00";

class HardWallet : public ReaderTest {
protected:
    int call(int timeout = 4)
    {
        return IC_GetZzhHardWalletInfo(port(), "W1", 38400, timeout, contextId.text(), modeInfo.text(), aid.text());
    }

    // A contact card that carries the wallet under its first name.
    void selectFirst(const std::string& name = kFirst)
    {
        reader.powerOn().apdu(select(kFirst), ok(applicationFci(name)));
    }

    void expectTexts(const std::string& expectedContext, const std::string& expectedMode,
                     const std::string& expectedAid) const
    {
        EXPECT_EQ(contextId.value(), expectedContext);
        EXPECT_EQ(modeInfo.value(), expectedMode);
        EXPECT_EQ(aid.value(), expectedAid);
    }
    void expectEmptied() const
    {
        expectTexts("", "", "");
        EXPECT_EQ(callLog(), entry());
        expectClosed();
    }
    void expectUntouched() const { EXPECT_TRUE(contextId.untouched() && modeInfo.untouched() && aid.untouched()); }
    void expectClosed() const
    {
        EXPECT_TRUE(reader.done()) << "not asked: " << reader.next();
        EXPECT_TRUE(linkClosed());
        EXPECT_EQ(reader.lineEvents(), lineOfOneCall());
    }

    // The port is logged as its address, of which "%d" shows the low 32 bits.
    std::string entry(int timeout = 4) const
    {
        const auto address = static_cast<std::int32_t>(reinterpret_cast<std::intptr_t>(port()) & 0xFFFFFFFF);
        return "IC_GetZzhHardWalletInfo nPortNo:" + std::to_string(address) +
               ",extendPort:W1,nBaudRate:38400,nTimeout:" + std::to_string(timeout) + "\r\n";
    }

    Output contextId{ICC_CONTEXT_ID_CAPACITY};
    Output modeInfo{ICC_WALLET_TEXT_CAPACITY};
    Output aid{ICC_WALLET_TEXT_CAPACITY};
};

} // namespace

// ---------------------------------------------------------------- success

TEST_F(HardWallet, ReadsAWalletFromTheWire)
{
    reader.powerOn("3B 60 00 00")
        .apdu("00 A4 04 00 06 A0 00 00 08 72 50", "6F 0C 84 08 A0 00 00 08 72 50 01 02 A5 00 90 00")
        .apdu("80 22 00 03 00", "5A 17 C0 DE 99 12 00 34 5F 58 03 0A 0B 0C 90 00")
        .powerOff();
    EXPECT_EQ(call(), 0);
    expectTexts("5A17C0DE99120034", "0A0B0C", "A000000872500102");
    EXPECT_EQ(callLog(), entry() + "pszAID:A000000872500102, pszContextId=5A17C0DE99120034,pszTransModeInfo=0A0B0C");
    expectClosed();
}

TEST_F(HardWallet, TheModeInformationOfTwoBytesIsEnough)
{
    selectFirst();
    reader.apdu(kInformation, "1122334455667788 5F58020102 9000").powerOff();
    EXPECT_EQ(call(), 0);
    expectTexts("1122334455667788", "0102", kFirst);
}

TEST_F(HardWallet, TheServiceLogHoldsTheCallByteForByteAndTheTraceNothing)
{
    const std::string fci = ok(applicationFci(kFirst));
    reader.powerOn("3B00").apdu(select(kFirst), fci).apdu(kInformation, kContextId + "5F5802FFFE9000").powerOff();
    EXPECT_EQ(call(), 0);
    EXPECT_EQ(serviceLog(), entry() + slotEntries("icc_poweron", "3222018000", "3B00") +
                                slotEntries("capdu", "322600" + select(kFirst), fci) +
                                slotEntries("capdu", "3226008022000300", kContextId + "5F5802FFFE9000") +
                                "pszAID:" + kFirst + ", pszContextId=" + kContextId + ",pszTransModeInfo=FFFE" +
                                slotEntries("icc_poweroff", "322300", ""));
    EXPECT_EQ(traceLog(), "");
}

TEST_F(HardWallet, AContactlessCardIsFoundAndSwitchedOff)
{
    reader.powerOnField()
        .apdu(select(kFirst), ok(applicationFci(kFirst)))
        .apdu(kInformation, kContextId + "5F580201029000")
        .powerOff();
    EXPECT_EQ(call(), 0);
    EXPECT_EQ(m_VrICType, VORN_INTERFACE_CONTACTLESS);
    expectTexts(kContextId, "0102", kFirst);
    expectClosed();
}

TEST_F(HardWallet, TheNamesAreTriedInTheirOrder)
{
    reader.powerOn()
        .apdu(select(kFirst), "6A82")
        .apdu(select(kSecond), ok(applicationFci(kSecond)))
        .apdu(kInformation, kContextId + "5F580201029000")
        .powerOff();
    EXPECT_EQ(call(), 0);
    expectTexts(kContextId, "0102", kSecond);
}

TEST_F(HardWallet, ACardWithOnlyTheThirdNameIsFound)
{
    reader.powerOn()
        .apdu(select(kFirst), "6A82")
        .apdu(select(kSecond), "6A82")
        .apdu(select(kThird), ok(applicationFci(kThird)))
        .apdu(kInformation, kContextId + "5F580201029000")
        .powerOff();
    EXPECT_EQ(call(), 0);
    expectTexts(kContextId, "0102", kThird);
}

TEST_F(HardWallet, TheModeInformationMayLieInATemplateBehindOtherObjects)
{
    selectFirst();
    reader.apdu(kInformation, kContextId + "9F1002ABCD" + tlv("70", tlv("5F58", "31323334")) + "9000").powerOff();
    EXPECT_EQ(call(), 0);
    EXPECT_EQ(modeInfo.value(), "31323334");
}

TEST_F(HardWallet, ObjectsBehindAZeroWhereATagIsExpectedAreFound)
{
    reader.powerOn()
        .apdu(select(kFirst), ok(tlv("6F", "0000" + tlv("84", kFirst))))
        .apdu(kInformation, kContextId + "0000"
                                         "0001EE"
                                         "5F58020102"
                                         "9000")
        .powerOff();
    EXPECT_EQ(call(), 0);
    expectTexts(kContextId, "0102", kFirst);
}

TEST_F(HardWallet, TheStatusWordStaysInTheRangeThatIsSearched)
{
    // The object announces two bytes more than the card's data hold; they are the status word.
    selectFirst();
    reader.apdu(kInformation, kContextId + "5F5803AA 9000").powerOff();
    EXPECT_EQ(call(), 0);
    EXPECT_EQ(modeInfo.value(), "AA9000");
}

TEST_F(HardWallet, AContextIdThatLooksLikeTheObjectIsNotSearched)
{
    selectFirst();
    reader.apdu(kInformation, "5F58021111110000" + std::string("5F580222229000")).powerOff();
    EXPECT_EQ(call(), 0);
    expectTexts("5F58021111110000", "2222", kFirst);
}

TEST_F(HardWallet, TheLongestValuesFillTheDocumentedCapacity)
{
    // Lengths from 128 on are written as 82 xx xx: behind 81 the length would be taken from another place.
    const std::string name = repeated("5B", 0x7F);
    const std::string mode = repeated("6C", 255);
    selectFirst(name);
    reader.apdu(kInformation, kContextId + "5F588200FF" + mode + "9000").powerOff();
    EXPECT_EQ(call(), 0);
    expectTexts(kContextId, mode, name);
    EXPECT_EQ(modeInfo.value().size() + 1, std::size_t{ICC_WALLET_TEXT_CAPACITY});
}

// Behind 81 the length that counts is the second byte of what is searched: the FCI, or the answer from its ninth
// byte on.
TEST_F(HardWallet, AValueInTheLongLengthFormIsAsLongAsTheSecondByteSearchedSays)
{
    const struct {
        std::string fci, name, data, mode;
    } table[] = {
        {"6F04"
         "84810A"
         "A000000872501234",
         "A0000008",
         "5A03112233"
         "5F588102"
         "0A0B0C",
         "0A0B0C"},
        {"6F0D"
         "848102"
         "A0000008725001020304050607",
         "A0000008725001020304050607",
         "9F2702ABCD"
         "5F588101"
         "E1",
         "E19000" + repeated("00", 0x27 - 3)}, // filled up with zeros
        {applicationFci(kFirst), kFirst,
         "5F588102"
         "F1F2",
         "F1F29000" + repeated("00", 0x58 - 4)},
    };
    for (const auto& row : table) {
        SCOPED_TRACE(row.fci);
        reader.powerOn()
            .apdu(select(kFirst), ok(row.fci))
            .apdu(kInformation, kContextId + row.data + "9000")
            .powerOff();
        EXPECT_EQ(call(), 0);
        expectTexts(kContextId, row.mode, row.name);
    }
}

TEST_F(HardWallet, AValueInTheLongLengthFormIsTooShortWhenThatByteSaysSo)
{
    reader.powerOn()
        .apdu(select(kFirst), ok("500157"
                                 "848106" +
                                 kFirst))
        .powerOff();
    EXPECT_EQ(call(), VORN_OBJECT_MISSING);
    expectTexts("", "", "");
    selectFirst();
    reader
        .apdu(kInformation, kContextId + "5A0162"
                                         "5F588102"
                                         "0A0B"
                                         "9000")
        .powerOff();
    EXPECT_EQ(call(), VORN_OBJECT_MISSING);
    expectTexts("", "", "");
    EXPECT_TRUE(reader.done());
    EXPECT_TRUE(linkClosed());
}

TEST_F(HardWallet, AnAnswerThatComesWithGetResponseIsFollowed)
{
    selectFirst();
    reader.apdu(kInformation, "610D").apdu("00C000000D", kContextId + "5F580201029000").powerOff();
    EXPECT_EQ(call(), 0);
    expectTexts(kContextId, "0102", kFirst);
}

TEST_F(HardWallet, OutputsThatAreMissingAreNotWritten)
{
    selectFirst();
    reader.apdu(kInformation, kContextId + "5F580201029000").powerOff();
    EXPECT_EQ(IC_GetZzhHardWalletInfo(port(), nullptr, 38400, 4, nullptr, nullptr, nullptr), 0);
    reader.powerOn().apdu(select(kFirst), "6985").powerOff();
    EXPECT_EQ(IC_GetZzhHardWalletInfo(port(), nullptr, 38400, 4, nullptr, nullptr, nullptr), VORN_NO_APPLICATION);
}

// ---------------------------------------------------------------- failures of the card

TEST_F(HardWallet, NoNameFoundEmptiesTheOutputs)
{
    reader.powerOn().apdu(select(kFirst), "6A82").apdu(select(kSecond), "6A82").apdu(select(kThird), "6A82").powerOff();
    EXPECT_EQ(call(), VORN_NO_APPLICATION);
    expectEmptied();
}

namespace {

struct SelectRow {
    const char* name;
    std::string answer;
    std::uint8_t status;
};
const SelectRow kSelectFailures[] = {{"FunctionNotSupported", "6A81", 0x00},
                                     {"WrongParameters", "6A86", 0x00},
                                     {"ConditionsNotMet", "6985", 0x00},
                                     {"AlmostNotFound", "6A83", 0x00},
                                     {"TakenOut", "", 0x02},
                                     {"ReaderRefuses", "", 0x0B}};

} // namespace

class WalletSelectFailure : public HardWallet, public ::testing::WithParamInterface<SelectRow> {};

INSTANTIATE_TEST_SUITE_P(Answers, WalletSelectFailure, ::testing::ValuesIn(kSelectFailures),
                         [](const auto& row) { return std::string(row.param.name); });

TEST_P(WalletSelectFailure, OfTheFirstNameEndsTheCallWithoutTryingTheOthers)
{
    reader.powerOn().command("322600" + select(kFirst), GetParam().answer, GetParam().status).powerOff();
    EXPECT_EQ(call(), VORN_NO_APPLICATION);
    expectEmptied();
}

TEST_P(WalletSelectFailure, OfTheSecondNameEndsTheCallToo)
{
    reader.powerOn()
        .apdu(select(kFirst), "6A82")
        .command("322600" + select(kSecond), GetParam().answer, GetParam().status)
        .powerOff();
    EXPECT_EQ(call(), VORN_NO_APPLICATION);
    expectEmptied();
}

TEST_P(WalletSelectFailure, OfTheThirdNameEndsTheCallAsWell)
{
    reader.powerOn()
        .apdu(select(kFirst), "6A82")
        .apdu(select(kSecond), "6A82")
        .command("322600" + select(kThird), GetParam().answer, GetParam().status)
        .powerOff();
    EXPECT_EQ(call(), VORN_NO_APPLICATION);
    expectEmptied();
}

TEST_F(HardWallet, AReaderThatFallsSilentDuringSelectionEndsTheCall)
{
    reader.powerOn().silent("322600" + select(kFirst)).powerOff();
    EXPECT_EQ(call(), VORN_NO_APPLICATION);
    expectEmptied();
}

TEST_F(HardWallet, ANameThatIsMissingOrShortEmptiesTheOutputs)
{
    for (const std::string& fci : {tlv("6F", tlv("A5", tlv("50", "57"))), tlv("6F", "8400"), applicationFci("A0")}) {
        SCOPED_TRACE(fci);
        reader.powerOn().apdu(select(kFirst), ok(fci)).powerOff();
        EXPECT_EQ(call(), VORN_OBJECT_MISSING);
        expectTexts("", "", "");
        EXPECT_TRUE(linkClosed());
    }
    EXPECT_EQ(callLog(), entry() + entry() + entry());
}

TEST_F(HardWallet, AnInformationCommandThatFailsEmptiesEvenTheName)
{
    for (const std::string answer : {"6D00", "6982", "6A82", "9001"}) {
        SCOPED_TRACE(answer);
        selectFirst();
        reader.apdu(kInformation, answer).powerOff();
        EXPECT_EQ(call(), VORN_SELECT_FAILED);
        expectTexts("", "", "");
        EXPECT_TRUE(linkClosed());
    }
}

TEST_F(HardWallet, AReaderThatRefusesTheInformationCommandEmptiesTheOutputs)
{
    selectFirst();
    reader.command("3226008022000300", "", 0x04).powerOff();
    EXPECT_EQ(call(), VORN_SELECT_FAILED);
    expectEmptied();
}

TEST_F(HardWallet, AReaderThatDoesNotAnswerTheInformationCommandEmptiesTheOutputs)
{
    selectFirst();
    reader.silent("3226008022000300").powerOff();
    EXPECT_EQ(call(), VORN_SELECT_FAILED);
    expectEmptied();
}

namespace {

struct AnswerRow {
    const char* name;
    std::string answer;
};

} // namespace

class WalletAnswer : public HardWallet, public ::testing::WithParamInterface<AnswerRow> {};

TEST_P(WalletAnswer, WithoutModeInformationEmptiesTheOutputs)
{
    selectFirst();
    reader.apdu(kInformation, GetParam().answer).powerOff();
    EXPECT_EQ(call(), VORN_OBJECT_MISSING);
    expectEmptied();
}

INSTANTIATE_TEST_SUITE_P(Answers, WalletAnswer,
                         ::testing::Values(AnswerRow{"OnlyTheContextId", kContextId + "9000"},
                                           AnswerRow{"OnlyTheStatusWord", "9000"},
                                           AnswerRow{"FewerThanEightBytes", "5F5802112290 00"},
                                           AnswerRow{"AnotherObject", kContextId + "5F5702010290 00"},
                                           AnswerRow{"AnEmptyObject", kContextId + "5F58009000"},
                                           AnswerRow{"OneByte", kContextId + "5F5801019000"},
                                           AnswerRow{"HiddenInAnotherObject", kContextId + "9F10055F580201029000"},
                                           AnswerRow{"InTheContextIdOnly", "5F58040102030405 9000"}),
                         [](const auto& row) { return std::string(row.param.name); });

// ---------------------------------------------------------------- failures before

TEST_F(HardWallet, WithoutTimeToWaitOneAttemptIsMadeAndTheCardIsLate)
{
    for (const int timeout : {0, -7}) {
        forgetLogs();
        reader.powerOn();
        EXPECT_EQ(call(timeout), VORN_NO_CARD_IN_TIME);
        EXPECT_EQ(callLog(), entry(timeout));
        EXPECT_TRUE(reader.done());
        EXPECT_TRUE(linkClosed());
    }
    expectUntouched();
}

TEST_F(HardWallet, AnActivationThatFailsLeavesTheCardAndTheOutputsAlone)
{
    reader.command("3222018000", "", 0x05);
    EXPECT_EQ(call(), VORN_POWER_ON_REFUSED);
    expectUntouched();
    EXPECT_EQ(callLog(), entry());
    expectClosed();
}

TEST_F(HardWallet, AFieldThatRefusesIsAFailedActivation)
{
    reader.command("3222018000", "", 0x02).command("32240180", "", 0x0A);
    EXPECT_EQ(call(), VORN_POWER_ON_REFUSED);
    expectUntouched();
    expectClosed();
}

TEST_F(HardWallet, AReaderThatDoesNotAnswerIsReported)
{
    reader.silent("3222018000");
    EXPECT_EQ(call(), VORN_NO_REPLY);
    expectUntouched();
    expectClosed();
}

TEST_F(HardWallet, WaitsForTheCardFarBeyondTheTimeGiven)
{
    const auto receive = line.onBytes;
    line.onBytes = [receive](const Bytes& bytes, int speed) {
        Clock::advance(1500000);
        receive(bytes, speed);
    };
    for (int attempt = 0; attempt < 20; ++attempt) {
        reader.command("3222018000", "", 0x02).command("32240180", "", 0x06);
    }
    selectFirst();
    reader.apdu(kInformation, kContextId + "5F580201029000").powerOff();
    EXPECT_EQ(call(1), 0);
    expectTexts(kContextId, "0102", kFirst);
}

TEST_F(HardWallet, ASecondThatPassesBetweenTheTwoReadingsOfTheClockIsATimeout)
{
    Clock::onTime([] { Clock::advance(1000000); });
    reader.powerOn();
    EXPECT_EQ(call(1), VORN_NO_CARD_IN_TIME);
    expectUntouched();
    expectClosed();
}

TEST_F(HardWallet, APortThatCannotBeOpenedLeavesTheOutputsAlone)
{
    const char* const nowhere = "no-such-tty";
    EXPECT_EQ(IC_GetZzhHardWalletInfo(nowhere, "W1", 38400, 4, contextId.text(), modeInfo.text(), aid.text()),
              VORN_OPEN_FAILED);
    expectUntouched();
    EXPECT_EQ(traceLog(), "");
    EXPECT_EQ(serviceLog().substr(0, 32), "IC_GetZzhHardWalletInfo nPortNo:");
    EXPECT_EQ(serviceLog().find("no-such-tty"), std::string::npos);
}

// ---------------------------------------------------------------- the information command by itself

class WalletInformation : public ReaderTest {
protected:
    void SetUp() override
    {
        m_VrICType = VORN_INTERFACE_CONTACT;
        openLink();
    }
    void TearDown() override { closeLink(); }

    Output answer{VORN_PAYLOAD_MAX};
    int length = -5;
};

TEST_F(WalletInformation, KeepsTheStatusWord)
{
    reader.apdu("8022000300", "0102039000");
    EXPECT_EQ(vrdk_getwalletinfo(answer.bytes(), &length), 0);
    EXPECT_EQ(length, 5);
    EXPECT_EQ(answer.hex(5), "0102039000");
}

TEST_F(WalletInformation, FailsWithTheStatusWordAndALengthOfZero)
{
    reader.apdu("8022000300", "0102036A80");
    EXPECT_EQ(vrdk_getwalletinfo(answer.bytes(), &length), 0x6A80);
    EXPECT_EQ(length, 0);
    EXPECT_TRUE(answer.untouched());
}

TEST_F(WalletInformation, TakesTheStatusWord0000ForNoSuccess)
{
    reader.apdu("8022000300", "0102030000");
    EXPECT_EQ(vrdk_getwalletinfo(answer.bytes(), &length), VORN_READER_REFUSED);
    EXPECT_EQ(length, 0);
    EXPECT_TRUE(answer.untouched());
}

TEST_F(WalletInformation, PassesTheReadersFailureOn)
{
    reader.command("3226008022000300", "", 0x02).command("3226008022000300", "", 0x33).silent("3226008022000300");
    for (const int result : {VORN_READER_NO_CARD, VORN_READER_REFUSED, VORN_NO_REPLY}) {
        length = -5;
        EXPECT_EQ(vrdk_getwalletinfo(answer.bytes(), &length), result);
        EXPECT_EQ(length, 0);
    }
    EXPECT_TRUE(answer.untouched());
}

TEST_F(WalletInformation, TakesTheLongestAnswer)
{
    const std::string longest = repeated("4E", VORN_PAYLOAD_MAX - 2) + "9000";
    reader.apdu("8022000300", longest);
    EXPECT_EQ(vrdk_getwalletinfo(answer.bytes(), &length), 0);
    EXPECT_EQ(length, VORN_PAYLOAD_MAX);
    EXPECT_EQ(answer.hex(VORN_PAYLOAD_MAX), longest);
}
