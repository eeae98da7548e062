// SPDX-License-Identifier: Apache-2.0
// The first half of an online transaction: what the card is asked, and the two texts that come of its answers.
#include "support/service_call.h"
#include "support/transaction.h"

using namespace vorn::test;

namespace {

// A card that asks for a little and keeps its lists and account in two records.
const DataObjects kPdol = {{"9F66", "F4000000"}, {"9F02", "000000000000"}, {"5F2A", "0156"}};
const DataObjects kCdol1 = {{"9F02", "000000000000"}, {"9F1A", "0156"}, {"95", "0000000800"}, {"5F2A", "0156"},
                            {"9A", "000000"},         {"9C", "01"},     {"9F37", kNumber}};
const std::string kCdol2 = "8A029F02069F3704";

class Arqc : public TransactionTest {
protected:
    std::string firstRecord() const { return tlv("8C", dolOf(kCdol1)) + tlv("5A", kPan) + tlv("5F34", "02"); }
    static std::string secondRecord() { return tlv("8D", kCdol2) + tlv("57", "6217003810022334455D2512"); }
    Exchanges records() const { return {card.record(1, firstRecord()), card.record(2, secondRecord())}; }

    // From the selected application to the cryptogram, when the text changes nothing that the card asks for.
    Exchanges fromProcessing() const
    {
        return Exchanges{card.processing(valuesOf(kPdol), kProcessing)} + records() +
               Exchanges{card.generate("80", valuesOf(kCdol1), text.response()), card.lastOnline()};
    }
    Exchanges ordinary() const
    {
        return Exchanges{card.powerOn()} + card.directory() + Exchanges{card.finalSelect(dolOf(kPdol))} +
               fromProcessing();
    }
    static std::string stateOf(const std::string& type = "01")
    {
        return type + tlv("8D", kCdol2) + tlv("5A", kPan) + tlv("5F34", "02") + "82027C00";
    }

    IssuerText text;
};

} // namespace

// ---------------------------------------------------------------- whole transcripts

TEST_F(Arqc, TranscriptOfAContactSale)
{
    reader.command("32 22 01 80 00", "3B6D000080318065B0")
        .apdu("00A404000E 315041592E5359532E4444463031",
              "6F1A 840E315041592E5359532E4444463031 A508 880101 5F2D027A68 9000")
        .apdu("00B2010C00", "7015 6113 4F08A000000333010101 50045042 4F43 870101 9000")
        .apdu("00B2020C00", "6A83")
        .apdu("00A4040008 A000000333010101", "6F1B 8408A000000333010101 A50F 50045042 4F43 9F3806 9F7A01 9F0206 9000")
        .apdu("80A8000009 8307 01 000000012345", "800A 7C00 08010101 10010200 9000")
        .apdu("00B2010C00", "7011 570F 6225123456789012345D27122010 0F 9000")
        .apdu("00B2011400", "7020 8C12 9F0206 9F0306 9505 5F2A02 9A03 9C01 9F3704 5A0A 62251234567890123 45F 9000")
        .apdu("00B2021400", "7010 8D0A 8A02 9F0206 9505 9F3704 5F340101 9000")
        .apdu("80AE80001B 000000012345 000000000678 8040048000 0840 260319 21 C0FFEE01",
              "801E 80 0042 A1A2A3A4A5A6A7A8 07010103A0A002010A01000000000041C3B2A1 9000")
        .apdu("80CA9F1300", "9F1302003F 9000");
    const int result = first("P012000000012345Q012000000000678R0040840L0108040048000S00820260319T00221K008C0FFEE01");

    ASSERT_EQ(result, 0);
    EXPECT_EQ(arqc, withoutBlanks("9F2608A1A2A3A4A5A6A7A8 9F270180 9F1013 07010103A0A002010A01000000000041C3B2A1"
                                  "9F3704C0FFEE01 9F36020042 95058040048000 9F1302003F 9A03260319 9C0121"
                                  "9F0206000000012345 5F2A020840 5A0A6225123456789012345F 5F340101 82027C00"
                                  "9F1A020156 9F0306000000000678 9F330320A100"));
    EXPECT_EQ(length, static_cast<int>(arqc.size()));
    EXPECT_EQ(state, withoutBlanks("01 8D0A8A029F020695059F3704 5A0A6225123456789012345F 5F340101 82027C00"));
    EXPECT_EQ(icType, 1);
    expectClosed();
}

TEST_F(Arqc, TranscriptOfAContactlessSale)
{
    icType = 3;
    reader.powerOnField("3B8A8001")
        .apdu("00A4040007 A0000003330101", "6F19 8407A0000003330101 A50E 50015A 9F3808 9F6604 9505 5F2A02 9000")
        .apdu("80A800000D 830B 36004000 0000000800 0156", "770E 82021980 9408 08010100 10020200 9000")
        .apdu("00B2010C00", "6A82")
        .apdu("00B2021400", "7023 5A086200001234567890 5F340103 8C0C 9F6604 9F7A01 9F2103 DF6901"
                            "8D05 8A02 9F3704 9000")
        .apdu("80AE800009 36004000 00 235958 01", "800B 80 00FF B1B2B3B4B5B6B7B8 9000")
        .apdu("80CA9F1300", "6A88");
    ASSERT_EQ(first("M00836004000N00200U006235958K0080B0C0D0E", "A0000003330101"), 0);
    EXPECT_EQ(arqc, withoutBlanks("9F2608B1B2B3B4B5B6B7B8 9F270180 9F37040B0C0D0E 9F360200FF 95050000000800"
                                  "9A03000000 9C0101 9F0206000000000000 5F2A020156 5A086200001234567890 5F340103"
                                  "82021980 9F1A020156 9F0306000000000000 9F330320A100"));
    EXPECT_EQ(length, static_cast<int>(arqc.size()));
    EXPECT_EQ(state, withoutBlanks("02 8D058A029F3704 5A086200001234567890 5F340103 82021980"));
    EXPECT_EQ(icType, 2);
    expectClosed();
}

TEST_F(Arqc, OfACardInTheFieldLeavesItPowered)
{
    setWay(Way::Field);
    expect(ordinary());
    EXPECT_EQ(first(kNumberText), 0);
    EXPECT_EQ(arqc, text.arqc());
    EXPECT_EQ(state, stateOf("02"));
    EXPECT_EQ(icType, 2);
    EXPECT_EQ(m_VrICType, 2);
    expectClosed();
}

TEST_F(Arqc, OfTypeThreeTakesTheFieldWhenTheSlotIsEmpty)
{
    setWay(Way::Field);
    icType = 3;
    expect(Exchange{"3222018000", "", 0x02});
    expect(ordinary());
    EXPECT_EQ(first(kNumberText), 0);
    EXPECT_EQ(state, stateOf("02"));
    EXPECT_EQ(icType, 2);
    expectClosed();
}

TEST_F(Arqc, OfTypeThreeTakesTheSlotFirst)
{
    icType = 3;
    expect(ordinary());
    EXPECT_EQ(first(kNumberText), 0);
    EXPECT_EQ(state, stateOf("01"));
    EXPECT_EQ(icType, 1);
    expectClosed();
}

// ---------------------------------------------------------------- logs

TEST_F(Arqc, LogsItsEntryAndItsTexts)
{
    expect(ordinary());
    ASSERT_EQ(first(kNumberText), 0);
    EXPECT_EQ(traceLog(), traceOf("IC_GenARQC"));
    EXPECT_EQ(callLog(), firstEntry(kNumberText) + "pnARQCLen:" + std::to_string(text.arqc().size()) +
                             "\r\npszARQC:" + text.arqc() + "\r\nicc_tempappdata:" + stateOf() + "\r\n");
}

TEST_F(Arqc, LogsTheListAndTheTypeAsTheyWereGiven)
{
    icType = 3;
    expect(Exchanges{card.powerOn(), card.finalSelect(dolOf(kPdol))} + fromProcessing());
    ASSERT_EQ(first(kNumberText, kAid.c_str()), 0);
    EXPECT_EQ(callLog().substr(0, callLog().find('\n') + 1), firstEntry(kNumberText, kAid, 3));
}

// ---------------------------------------------------------------- selection

TEST_F(Arqc, WithTheWholeNameSelectsOnce)
{
    expect(Exchanges{card.powerOn(), card.finalSelect(dolOf(kPdol))} + fromProcessing());
    EXPECT_EQ(first(kNumberText, lowerCase(kAid).c_str()), 0);
    EXPECT_EQ(arqc, text.arqc());
    expectClosed();
}

TEST_F(Arqc, WithTheBeginningOfANameTakesTheFirstFound)
{
    expect(card.powerOn());
    expect(card.apdu(select("A000000333"), ok(applicationFci(kAid, tlv("9F38", dolOf(kPdol))))));
    expect(card.apdu(select("A000000333", "02"), ok(applicationFci("A000000333010106"))));
    expect(card.apdu(select("A000000333", "02"), "6A82"));
    expect(card.finalSelect());
    expect(fromProcessing());
    EXPECT_EQ(first(kNumberText, "A000000333"), 0);
    EXPECT_EQ(arqc, text.arqc());
    expectClosed();
}

TEST_F(Arqc, FallsBackToTheDirectoryWhenTheListFindsNothing)
{
    expect(Exchanges{card.powerOn(), card.apdu(select("A0000000031010"), "6A82")} + card.directory());
    expect(card.finalSelect(dolOf(kPdol)));
    expect(fromProcessing());
    EXPECT_EQ(first(kNumberText, "A0000000031010"), 0);
    EXPECT_EQ(arqc, text.arqc());
    expectClosed();
}

TEST_F(Arqc, WithAnEmptyListAsksTheDirectory)
{
    expect(ordinary());
    EXPECT_EQ(first(kNumberText, ""), 0);
    expectClosed();
}

TEST_F(Arqc, UsesTheLowByteOfTheListsLength)
{
    // 256 + 16 characters: the name is the first eight bytes.
    expect(Exchanges{card.powerOn(), card.finalSelect(dolOf(kPdol))} + fromProcessing());
    EXPECT_EQ(first(kNumberText, (kAid + repeated("00", 128)).c_str()), 0);
    expectClosed();
}

TEST_F(Arqc, TakesAListOf255CharactersForANameOf127Bytes)
{
    const std::string name = repeated("A7", 127);
    expect(Exchanges{card.powerOn(), card.apdu(select(name), ok(applicationFci(name, tlv("9F38", dolOf(kPdol)))))} +
           fromProcessing());
    EXPECT_EQ(first(kNumberText, (name + "5").c_str()), 0);
    expectClosed();
}

TEST_F(Arqc, TakesAListOf256OrOfOneCharacterMoreForAnEmptyName)
{
    for (const std::size_t characters : {std::size_t{256}, std::size_t{257}}) {
        SCOPED_TRACE(characters);
        expect(Exchanges{card.powerOn(), card.apdu("00A4040000", ok(applicationFci(kAid, tlv("9F38", dolOf(kPdol))))),
                         card.apdu("00A4040200", "6A82"), card.apdu(select(kAid), "9000")} +
               fromProcessing());
        EXPECT_EQ(first(kNumberText, std::string(characters, 'B').c_str()), 0);
        EXPECT_EQ(arqc, text.arqc());
        EXPECT_TRUE(reader.done()) << reader.next();
    }
}

// ---------------------------------------------------------------- waiting for the card

TEST_F(Arqc, AsksAgainWhileTheReaderReportsNoCard)
{
    for (int i = 0; i < 40; ++i) {
        expect(Exchange{"3222018000", "", static_cast<std::uint8_t>(i % 2 == 0 ? 0x02 : 0x06)});
    }
    expect(ordinary());
    EXPECT_EQ(first(kNumberText, nullptr, 1), 0);
    expectClosed();
}

TEST_F(Arqc, WaitsForTheCardFarBeyondItsTime)
{
    // Ten answers, each after two and a half seconds; three seconds were given.
    ScriptedReader& scripted = reader;
    const auto answers = line.onBytes;
    int attempts = 0;
    line.onBytes = [&](const Bytes& bytes, int speed) {
        if (bytes == frame(fromHex("3222018000")) && attempts < 10) {
            ++attempts;
            line.sendLater(replyFrame(0x02, {}), 2500);
        } else {
            answers(bytes, speed);
        }
    };
    expect(ordinary());
    const std::int64_t begin = Clock::microseconds();
    EXPECT_EQ(first(kNumberText, nullptr, 3), 0);
    EXPECT_EQ(attempts, 10);
    EXPECT_GE(Clock::microseconds() - begin, 25'000'000);
    EXPECT_TRUE(scripted.done());
    line.onBytes = answers;
}

TEST_F(Arqc, GivesUpWhenASecondBeginsBetweenItsTwoLooksAtTheClock)
{
    Clock::onTime([] { Clock::advance(1'000'000); });
    expect(card.powerOn());
    EXPECT_EQ(first(kNumberText, nullptr, 1), -2);
    Clock::onTime({});
    EXPECT_EQ(arqc, "");
    EXPECT_EQ(callLog(), firstEntry(kNumberText, "", 1, 1));
    expectClosed();
}

TEST_F(Arqc, DoesNotMindASecondThatBeginsWhenTwoWereGiven)
{
    Clock::onTime([] { Clock::advance(1'000'000); });
    expect(ordinary());
    EXPECT_EQ(first(kNumberText, nullptr, 2), 0);
    Clock::onTime({});
    expectClosed();
}

// ---------------------------------------------------------------- the card's answers

TEST_F(Arqc, TakesProcessingOptionsInFormat2)
{
    Exchanges exchanges = ordinary();
    exchanges[5] = card.processing(valuesOf(kPdol), "770A8202398094041001 0200");
    text.aip = "82023980";
    expect(exchanges);
    EXPECT_EQ(first(kNumberText), 0);
    EXPECT_EQ(arqc, text.arqc());
    EXPECT_EQ(state, "01" + tlv("8D", kCdol2) + tlv("5A", kPan) + tlv("5F34", "02") + "82023980");
    expectClosed();
}

TEST_F(Arqc, WithoutAnInterchangeProfileHasAnEmptyOne)
{
    Exchanges exchanges = ordinary();
    exchanges[5] = card.processing(valuesOf(kPdol), "7706940410010200");
    text.aip = "82020000";
    expect(exchanges);
    EXPECT_EQ(first(kNumberText), 0);
    EXPECT_EQ(arqc, text.arqc());
    EXPECT_EQ(state.substr(state.size() - 8), "82020000");
    expectClosed();
}

// What a record says of the profile does not count: the card's answer to GET PROCESSING OPTIONS does, in both texts,
// and when that had none as well.
TEST_F(Arqc, TakesNoInterchangeProfileOutOfARecord)
{
    const struct {
        const char* processing;
        std::string aip;
    } table[] = {
        {"80067C0010010200", "82027C00"},
        {"770A8202398094041001 0200", "82023980"},
        {"7706940410010200", "82020000"},
        {"770B82031980FF940410010200", "82020000"}, // three bytes are no profile
    };
    for (const auto& row : table) {
        for (const std::string& profile : {tlv("82", "E1E2"), tlv("82", "E1E2E3E4")}) {
            SCOPED_TRACE(row.processing);
            Exchanges exchanges = ordinary();
            exchanges[5] = card.processing(valuesOf(kPdol), row.processing);
            exchanges[6] = card.record(1, profile + firstRecord());
            exchanges[7] = card.record(2, secondRecord() + profile);
            expect(exchanges);
            EXPECT_EQ(first(kNumberText), 0);
            text.aip = row.aip;
            EXPECT_EQ(arqc, text.arqc());
            EXPECT_EQ(state, "01" + tlv("8D", kCdol2) + tlv("5A", kPan) + tlv("5F34", "02") + row.aip);
            EXPECT_TRUE(reader.done());
        }
    }
}

TEST_F(Arqc, ReadsNoRecordBeyondTheLastObjectItWants)
{
    const std::string all = firstRecord() + secondRecord() + tlv("5F20", hexOf("ZHANG SAN")) + tlv("9F62", "00") +
                            tlv("9F61", hexOf("110101199003070011"));
    Exchanges exchanges = ordinary();
    exchanges[6] = card.record(1, all);
    exchanges.erase(exchanges.begin() + 7);
    expect(exchanges);
    EXPECT_EQ(first(kNumberText), 0);
    EXPECT_EQ(arqc, text.arqc());
    EXPECT_EQ(state, stateOf());
    expectClosed();
}

TEST_F(Arqc, ReadsOnForEveryObjectThatItWants)
{
    // The first record holds all but one of them, and the second that one; the third is not read any more.
    const std::string objects[] = {tlv("8C", dolOf(kCdol1)),
                                   tlv("5A", kPan),
                                   tlv("5F34", "02"),
                                   tlv("8D", kCdol2),
                                   tlv("5F20", hexOf("ZHANG SAN")),
                                   tlv("9F62", "00"),
                                   tlv("9F61", hexOf("110101199003070011")),
                                   tlv("57", "6217003810022334455D2512")};
    for (const std::string& late : objects) {
        SCOPED_TRACE(late);
        std::string early;
        for (const std::string& object : objects) {
            early += object == late ? "" : object;
        }
        Exchanges exchanges = ordinary();
        exchanges[5] = card.processing(valuesOf(kPdol), "80067C0010010300");
        exchanges[6] = card.record(1, early);
        exchanges[7] = card.record(2, late);
        expect(exchanges);
        EXPECT_EQ(first(kNumberText), 0);
        EXPECT_EQ(arqc, text.arqc());
        EXPECT_EQ(state, stateOf());
        EXPECT_TRUE(reader.done()) << reader.next();
    }
}

TEST_F(Arqc, GoesOnBehindAZeroWhereATagIsExpected)
{
    // In the records and in the card's answers: the third byte of that to GENERATE AC tells its kind.
    Exchanges exchanges = ordinary();
    exchanges[6] =
        card.record(1, "0000" + tlv("8C", dolOf(kCdol1)) + "00025A00" + tlv("5A", kPan) + "0000" + tlv("5F34", "02"));
    exchanges[7] = card.record(2, "0001EE" + secondRecord());
    exchanges[8] = card.generate("80", valuesOf(kCdol1), "000180" + text.response());
    exchanges[9] = card.lastOnline("00009F130201229000");
    expect(exchanges);
    EXPECT_EQ(first(kNumberText), 0);
    EXPECT_EQ(arqc, text.arqc());
    EXPECT_EQ(state, stateOf());
    expectClosed();
}

TEST_F(Arqc, SendsUpTo255BytesOfListValues)
{
    for (std::size_t size = 250; size <= 255; ++size) {
        SCOPED_TRACE(size);
        Exchanges exchanges = ordinary();
        exchanges[6] =
            card.record(1, tlv("8C", "9F7F" + hexByte(size - 1) + "9C01") + tlv("5A", kPan) + tlv("5F34", "02"));
        exchanges[8] = card.generate("80", repeated("00", size - 1) + "01", text.response());
        expect(exchanges);
        EXPECT_EQ(first(kNumberText), 0);
        EXPECT_EQ(arqc, text.arqc());
    }
    Exchanges exchanges = ordinary();
    exchanges[6] = card.record(1, tlv("8C", "9F7FFF9C01") + tlv("5A", kPan) + tlv("5F34", "02"));
    exchanges.erase(exchanges.begin() + 8, exchanges.end());
    expect(exchanges);
    EXPECT_EQ(first(kNumberText), -1);
}

TEST_F(Arqc, PassesOverARecordThatCannotBeRead)
{
    Exchanges exchanges = ordinary();
    exchanges[5] = card.processing(valuesOf(kPdol), "80067C0010010300");
    exchanges.insert(exchanges.begin() + 6, card.apdu("00B2011400", "6A83"));
    exchanges[7] = card.record(2, firstRecord());
    exchanges[8] = card.record(3, secondRecord());
    expect(exchanges);
    EXPECT_EQ(first(kNumberText), 0);
    EXPECT_EQ(arqc, text.arqc());
    expectClosed();
}

TEST_F(Arqc, WithoutAnAccountLeavesItsItemsOut)
{
    const struct {
        std::string account, pan, sequence;
    } table[] = {
        {tlv("5A", kPan), tlv("5A", kPan), ""},
        {tlv("5F34", "07"), "", tlv("5F34", "07")},
        {"", "", ""},
    };
    for (const auto& row : table) {
        Exchanges exchanges = ordinary();
        exchanges[6] = card.record(1, tlv("8C", dolOf(kCdol1)) + row.account);
        expect(exchanges);
        EXPECT_EQ(first(kNumberText), 0);
        text.pan = row.pan;
        text.sequence = row.sequence;
        EXPECT_EQ(arqc, text.arqc());
        EXPECT_EQ(state, "01" + tlv("8D", kCdol2) + row.pan + row.sequence + "82027C00");
    }
}

TEST_F(Arqc, KeepsTheAccountsOwnLength)
{
    Exchanges exchanges = ordinary();
    exchanges[6] = card.record(1, tlv("8C", dolOf(kCdol1)) + "5A086212345678901234" + "5F34020304");
    expect(exchanges);
    EXPECT_EQ(first(kNumberText), 0);
    text.pan = "5A086212345678901234";
    text.sequence = "5F34020304";
    EXPECT_EQ(arqc, text.arqc());
    EXPECT_EQ(state, "01" + tlv("8D", kCdol2) + text.pan + text.sequence + "82027C00");
}

TEST_F(Arqc, TakesTheFirstOfTwoAccounts)
{
    Exchanges exchanges = ordinary();
    exchanges[7] = card.record(2, secondRecord() + "5A086212345678901234");
    expect(exchanges);
    EXPECT_EQ(first(kNumberText), 0);
    EXPECT_EQ(arqc, text.arqc());
}

TEST_F(Arqc, ReadsAListInTheLongLengthFormByTheNamesLength)
{
    // The list's own length field says 13; what counts is the length of the application's name, 8 bytes from the
    // directory and 5 from a caller's beginning of a name.
    const std::string list = "9F0206 9C01 9F2103 9F3704 9A03";
    const struct {
        const char* aid;
        std::string values;
    } table[] = {
        {"", "000000000000"
             "01"
             "000000"},
        {"A000000333", "000000000000"
                       "01"},
    };
    for (const auto& row : table) {
        Exchanges exchanges = ordinary();
        if (*row.aid != '\0') {
            exchanges.erase(exchanges.begin() + 1, exchanges.begin() + 4);
            exchanges.insert(exchanges.begin() + 1,
                             {card.apdu(select(row.aid), ok(applicationFci(kAid, tlv("9F38", dolOf(kPdol))))),
                              card.apdu(select(row.aid, "02"), "6A82")});
        }
        const auto record = std::find_if(exchanges.begin(), exchanges.end(), [](const Exchange& exchange) {
            return exchange.command == "32260000B2011400";
        });
        *record = card.record(1, "8C810D" + withoutBlanks(list) + tlv("5A", kPan) + tlv("5F34", "02"));
        *(record + 2) = card.generate("80", row.values, text.response());
        expect(exchanges);
        EXPECT_EQ(first(kNumberText, row.aid), 0);
        EXPECT_EQ(arqc, text.arqc());
        EXPECT_TRUE(reader.done());
    }
}

TEST_F(Arqc, ReadsSuchAListByTheWholeLengthOfALongName)
{
    // Twenty bytes of a name make twenty of the list's 23 bytes count.
    const std::string name = repeated("A7", 20);
    const std::string list = repeated("9F0206", 6) + "9C01" + "9F0306";
    expect({card.powerOn(), card.apdu(select(name), ok(applicationFci(name))), card.processing("", kProcessing),
            card.record(1, "8C8117" + list + tlv("5A", kPan) + tlv("5F34", "02")), card.record(2, secondRecord()),
            card.generate("80", repeated("00", 36) + "01", text.response()), card.lastOnline()});
    EXPECT_EQ(first(kNumberText, name.c_str()), 0);
    EXPECT_EQ(arqc, text.arqc());
    expectClosed();
}

TEST_F(Arqc, WithElevenBytesOfAnswerHasNoIssuerData)
{
    text.issuerData = "";
    expect(ordinary());
    EXPECT_EQ(first(kNumberText), 0);
    EXPECT_EQ(arqc, text.arqc());
    EXPECT_EQ(arqc.find("9F10"), std::string::npos);
    expectClosed();
}

TEST_F(Arqc, WithTwelveBytesOfAnswerHasOneByteOfIssuerData)
{
    text.issuerData = "5C";
    expect(ordinary());
    EXPECT_EQ(first(kNumberText), 0);
    EXPECT_EQ(arqc, text.arqc());
    EXPECT_NE(arqc.find("9F10015C"), std::string::npos);
}

TEST_F(Arqc, FillsAShortAnswerWithZeros)
{
    Exchanges exchanges = ordinary();
    exchanges[8] = card.generate("80", valuesOf(kCdol1), "8005800137AABB");
    text.cryptogram = "AABB000000000000";
    text.issuerData = "";
    expect(exchanges);
    EXPECT_EQ(first(kNumberText), 0);
    EXPECT_EQ(arqc, text.arqc());
}

TEST_F(Arqc, AcceptsAnyLowBitsBesideTheRequestForOnline)
{
    text.information = "B9";
    expect(ordinary());
    EXPECT_EQ(first(kNumberText), 0);
    EXPECT_EQ(arqc, text.arqc());
}

TEST_F(Arqc, TakesTheLastOnlineCounterWithItsLength)
{
    expect(ordinary());
    const struct {
        std::string answer, item;
    } table[] = {
        {"9F13020005", "9F13020005"}, {"9F130155", "9F130155"},         {"9F13050102030405", "9F13050102030405"},
        {"9F1300", "9F1300"},         {"70059F13020007", "9F13020007"}, // inside a template
    };
    first(kNumberText);
    for (const auto& row : table) {
        Exchanges exchanges = ordinary();
        exchanges.back() = card.lastOnline(row.answer + "9000");
        expect(exchanges);
        EXPECT_EQ(first(kNumberText), 0);
        text.lastOnline = row.item;
        EXPECT_EQ(arqc, text.arqc());
    }
}

TEST_F(Arqc, WithoutALastOnlineCounterLeavesItOut)
{
    for (const char* answer : {"6A88", "6D00", "6985", "9001"}) {
        Exchanges exchanges = ordinary();
        exchanges.back() = card.lastOnline(answer);
        expect(exchanges);
        EXPECT_EQ(first(kNumberText), 0);
        text.lastOnline = "";
        EXPECT_EQ(arqc, text.arqc());
        EXPECT_EQ(length, static_cast<int>(text.arqc().size()));
    }
}

TEST_F(Arqc, LeavesAHoleForAnAnswerThatHoldsAnotherObject)
{
    for (const std::string answer : {"9F36020137", "9F1702", "5A"}) {
        Exchanges exchanges = ordinary();
        exchanges.back() = card.lastOnline(answer + "9000");
        expect(exchanges);
        EXPECT_EQ(first(kNumberText), 0);
        text.lastOnline = std::string(answer.size(), '0');
        EXPECT_EQ(arqc, text.arqc());
        EXPECT_EQ(length, static_cast<int>(text.arqc().size()));
    }
}

// ---------------------------------------------------------------- arguments

TEST_F(Arqc, WritesNoOutputThatTheCallerDoesNotWant)
{
    expect(ordinary());
    std::vector<char> stateBuffer(ICC_STATE_CAPACITY, '~');
    EXPECT_EQ(
        IC_GenARQC(port(), "", 9600, 5, &icType, nullptr, kNumberText.c_str(), nullptr, nullptr, stateBuffer.data()),
        0);
    EXPECT_EQ(stateBuffer.data(), stateOf());
    EXPECT_EQ(callLog().substr(callLog().find('\n') + 1), "pnARQCLen:" + std::to_string(text.arqc().size()) +
                                                              "\r\npszARQC:" + text.arqc() +
                                                              "\r\nicc_tempappdata:" + stateOf() + "\r\n");
    expectClosed();
}

TEST_F(Arqc, TakesMissingTextsForEmptyOnes)
{
    // Nothing is given, so the number is drawn: the card is not asked to sign it here.
    const std::string cdol1 = "9F02069C01";
    expect(Exchanges{card.powerOn()} + card.directory() +
           Exchanges{card.finalSelect(), card.processing("", kProcessing),
                     card.record(1, tlv("8C", cdol1) + secondRecord()), card.apdu("00B2021400", "6A83"),
                     card.generate("80", "00000000000001", text.response()), card.lastOnline()});
    std::vector<char> arqcBuffer(ICC_CRYPTOGRAM_CAPACITY), stateBuffer(ICC_STATE_CAPACITY);
    EXPECT_EQ(
        IC_GenARQC(port(), nullptr, 9600, 5, &icType, nullptr, nullptr, &length, arqcBuffer.data(), stateBuffer.data()),
        0);
    const std::string entry = callLog().substr(0, callLog().find('\n') + 1);
    EXPECT_EQ(entry, "IC_GenARQC nPortNo:" + line.port() +
                         ",extendPort:,nBaudRate:9600,nTimeout:5,pnIcType:1,"
                         "pszAIDlist:,pszTxData:\r\n");
    expectClosed();
}

TEST_F(Arqc, AnswersTheLongestListsOfACard)
{
    // 240 bytes of CDOL1 values, a CDOL2 of 126 bytes, and 112 bytes of issuer data.
    DataObjects cdol1;
    for (int i = 0; i < 42; ++i) {
        cdol1.push_back({"9F02", "000000000000"});
    }
    const std::string padding = tlv("9F7F", repeated("EE", 60));
    Exchanges exchanges = ordinary();
    exchanges[6] = card.record(1, tlv("8C", dolOf({cdol1.begin(), cdol1.begin() + 40})));
    exchanges[7] = card.record(2, tlv("8D", dolOf({cdol1.begin(), cdol1.begin() + 42})) + padding);
    text.issuerData = repeated("6D", 112);
    exchanges[8] = card.generate("80", repeated("00", 240), text.response());
    text.pan = text.sequence = "";
    expect(exchanges);
    EXPECT_EQ(first(kNumberText), 0);
    EXPECT_EQ(arqc, text.arqc());
    EXPECT_EQ(state, "01" + tlv("8D", repeated("9F0206", 42)) + "82027C00");
    expectClosed();
}

// ---------------------------------------------------------------- the longest texts

namespace {

// A card whose records hold these bytes, in pieces as long as a record can be.
class LongestTexts : public Arqc {
protected:
    void expectRecords(const std::string& bytes)
    {
        constexpr std::size_t kDigits = std::size_t{2} * VORN_RESPONSE_MAX;
        const std::size_t count = (bytes.size() + kDigits - 1) / kDigits;
        expect(
            Exchanges{card.powerOn(), card.finalSelect(), card.processing("", "80067C001001" + hexByte(count) + "00")});
        for (std::size_t i = 0; i < count; ++i) {
            expect(card.apdu(readRecord(i + 1, 2), bytes.substr(i * kDigits, kDigits) + "9000"));
        }
    }
    int call()
    {
        return IC_GenARQC(port(), "E7", 115200, 5, &icType, kAid.c_str(), kNumberText.c_str(), &length, arqcText.text(),
                          stateText.text());
    }

    Output arqcText{ICC_CRYPTOGRAM_CAPACITY};
    Output stateText{ICC_STATE_CAPACITY};
};

} // namespace

TEST_F(LongestTexts, FillTheArqcsCapacityToTheLastByte)
{
    // Lengths of 255 behind 81 are those of the second byte of the whole answer, and zeros stand in for what the
    // answer does not hold.
    const std::string pan = repeated("11", 255), sequence = repeated("12", 255);
    const std::string lists = tlv("8C", dolOf(kCdol1)) + tlv("8D", kCdol2);
    expectRecords(lists + "5A8200FF" + pan + "5F348200FF" + sequence);
    const std::string issuerData = repeated("6D", 239), counter = repeated("5C", 249);
    expect(card.generate("80", valuesOf(kCdol1),
                         "77FF"
                         "8081FA"
                         "80" +
                             text.counter + text.cryptogram + issuerData));
    expect(card.lastOnline("70FF"
                           "9F1381F9" +
                           counter + "9000"));
    ASSERT_EQ(call(), 0);

    text.information = "80"
                       "9F10F4" +
                       issuerData + repeated("00", 5); // and the item behind it
    text.issuerData = "";
    text.lastOnline = "9F13FF" + counter + repeated("00", 6);
    text.pan = "5AFF" + pan;
    text.sequence = "5F34FF" + sequence;
    EXPECT_EQ(arqcText.value(), text.arqc());
    EXPECT_EQ(arqcText.value().size() + 1, std::size_t{ICC_CRYPTOGRAM_CAPACITY});
    EXPECT_EQ(length, ICC_CRYPTOGRAM_CAPACITY - 1);
    EXPECT_EQ(stateText.value(), "01" + tlv("8D", kCdol2) + text.pan + text.sequence + "82027C00");
    expectClosed();
}

TEST_F(LongestTexts, OfTheRecordsFillTheStatesCapacityToTheLastByte)
{
    // 4096 bytes of records without a list: their text stays, in lower case.
    const std::string all =
        repeated(tlv("70", tlv("9F4B", repeated("EB", 248))), 16) + tlv("70", tlv("9F4B", repeated("DA", 11)));
    ASSERT_EQ(all.size(), std::size_t{2} * VORN_APPDATA_CAPACITY);
    expectRecords(all);
    EXPECT_EQ(call(), -2);
    EXPECT_EQ(stateText.value(), lowerCase(all));
    EXPECT_EQ(stateText.value().size() + 1, std::size_t{ICC_STATE_CAPACITY});
    EXPECT_EQ(arqcText.value(), "");
    EXPECT_EQ(length, -77);
    expectClosed();
}

TEST_F(LongestTexts, OfMoreRecordsAreCutToTheStatesCapacity)
{
    const std::string all = repeated(tlv("70", tlv("9F4B", repeated("EB", 248))), 40); // no list either
    expectRecords(all);
    EXPECT_EQ(call(), -2);
    EXPECT_EQ(stateText.value(), lowerCase(all).substr(0, std::size_t{2} * VORN_APPDATA_CAPACITY));
    expectClosed();
}

TEST_F(LongestTexts, DoNotKeepTheListsBehindThousandsOfBytesFromTheCard)
{
    const std::string filler = repeated(tlv("70", tlv("9F4B", repeated("EB", 248))), 30);
    expectRecords(filler + tlv("70", tlv("8C", dolOf(kCdol1)) + tlv("8D", kCdol2)));
    expect(card.generate("80", valuesOf(kCdol1), text.response()));
    expect(card.lastOnline("6A88"));
    ASSERT_EQ(call(), 0);
    EXPECT_EQ(stateText.value(), "01" + tlv("8D", kCdol2) + "82027C00");
    expectClosed();
}

// ---------------------------------------------------------------- the number that the terminal draws

TEST_F(Arqc, DrawsTheNumberFromTheSecondOfTheClock)
{
    // Seconds whose numbers have a byte 00 as well: it is a number like any other.
    const auto numberAt = [](std::int64_t second) {
        std::srand(static_cast<unsigned>(second));
        Bytes bytes(4);
        for (std::uint8_t& byte : bytes) {
            byte = static_cast<std::uint8_t>(std::rand() & 0xFF);
        }
        return bytes;
    };
    std::int64_t withZero = 1750000000;
    while (toHex(numberAt(withZero)).substr(2, 2) != "00") {
        ++withZero;
    }
    for (const std::int64_t second : {std::int64_t{1700000000}, std::int64_t{1893456000}, withZero}) {
        Clock::freeze(second);
        Clock::onSleep([this] { line.serve(); });
        const std::string number = toHex(numberAt(second));
        const DataObjects pdol = {{"9F37", number}};
        const DataObjects cdol1 = changed(kCdol1, {{"9F37", number}});
        Exchanges exchanges = ordinary();
        exchanges[4] = card.finalSelect(dolOf(pdol));
        exchanges[5] = card.processing(valuesOf(pdol), kProcessing);
        exchanges[8] = card.generate("80", valuesOf(cdol1), text.response());
        expect(exchanges);
        text.number = number;
        EXPECT_EQ(first(""), 0);
        EXPECT_EQ(arqc, text.arqc());
    }
}

TEST_F(Arqc, ReadsACutAnswerAsFarAsItGoes)
{
    const struct {
        const char* answer; // the counter and the cryptogram that it leaves
        const char *counter, *cryptogram;
    } rows[] = {{"800180", "0000", "0000000000000000"},
                {"80FF80", "0000", "0000000000000000"},
                {"8008 80 01", "0100", "0000000000000000"},
                {"801E 80 0137 AABBCC", "0137", "AABBCC0000000000"},
                {"80FF 80 0137 1F2E3D4C5B6A7988", "0137", "1F2E3D4C5B6A7988"}};
    text.issuerData = "";
    for (const auto& row : rows) {
        SCOPED_TRACE(row.answer);
        Exchanges exchanges = ordinary();
        exchanges[8] = card.generate("80", valuesOf(kCdol1), row.answer);
        text.counter = row.counter;
        text.cryptogram = row.cryptogram;
        expect(exchanges);
        EXPECT_EQ(first(kNumberText), 0);
        EXPECT_EQ(arqc, text.arqc());
        EXPECT_EQ(length, static_cast<int>(arqc.size()));
    }
}
