// SPDX-License-Identifier: Apache-2.0
// The card commands: the APDU that each function sends, and what it makes of the answer.
#include "support/card_text.h"
#include "support/scripted_reader.h"

#include "ICC_COMM_VORN.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

using namespace vorn::test;

namespace {

constexpr std::uint8_t kGuard = 0xA5;
constexpr int kUntouched = 77;

class CardCommands : public ReaderTest {
protected:
    void SetUp() override
    {
        m_VrICType = VORN_INTERFACE_CONTACT;
        reader.slot(VORN_SLOT_CONTACT);
        openLink();
    }
    void TearDown() override { closeLink(); }
};

// What a command function left in its outputs.
struct Outcome {
    std::uint32_t result = 0;
    int length = kUntouched;
    Bytes output = Bytes(1024, kGuard);

    std::string data() const { return toHex(Bytes(output.begin(), output.begin() + length)); }
    bool untouchedFrom(std::size_t at) const
    {
        return std::all_of(output.begin() + static_cast<std::ptrdiff_t>(at), output.end(),
                           [](std::uint8_t byte) { return byte == kGuard; });
    }
};

using Call = void (*)(Outcome&);

// Runs a function whose length output is one byte.
template <typename Function>
void withByteLength(Outcome& outcome, Function function)
{
    unsigned char length = kUntouched;
    outcome.result = function(outcome.output.data(), &length);
    outcome.length = length;
}

const unsigned char kData[] = {0x83, 0x03, 0x12, 0x34, 0x56};

struct Command {
    const char* name;
    Call call;
    const char* apdu;
};

// The commands that hand back what the card returned, with a one-byte length.
const Command kReadingCommands[] = {
    {"SelectFile",
     [](Outcome& o) {
         withByteLength(
             o, [](unsigned char* out, unsigned char* n) { return vrdk_SelectFile(0x04, 0x02, kData, 5, out, n); });
     },
     "00 A4 04 02 05 83 03 12 34 56"},
    {"SelectFileByOtherParameters",
     [](Outcome& o) {
         withByteLength(
             o, [](unsigned char* out, unsigned char* n) { return vrdk_SelectFile(0x02, 0x0C, kData, 2, out, n); });
     },
     "00 A4 02 0C 02 83 03"},
    {"InternalAuth",
     [](Outcome& o) {
         withByteLength(o, [](unsigned char* out, unsigned char* n) { return vrdk_InternalAuth(kData, 4, out, n); });
     },
     "00 88 00 00 04 83 03 12 34"},
    {"GetProcessOptions",
     [](Outcome& o) {
         withByteLength(o,
                        [](unsigned char* out, unsigned char* n) { return vrdk_GetProcessOptions(kData, 5, out, n); });
     },
     "80 A8 00 00 05 83 03 12 34 56"},
    {"GetData",
     [](Outcome& o) {
         withByteLength(o, [](unsigned char* out, unsigned char* n) { return vrdk_GetData(1, out, n); });
     },
     "80 CA 9F 13 00"},
    {"GenerateAC",
     [](Outcome& o) {
         withByteLength(o,
                        [](unsigned char* out, unsigned char* n) { return vrdk_GenerateAC(0x40, kData, 3, out, n); });
     },
     "80 AE 40 00 03 83 03 12"},
    {"ReadRecord",
     [](Outcome& o) {
         withByteLength(o, [](unsigned char* out, unsigned char* n) { return vrdk_ReadRecord(3, 11, out, n); });
     },
     "00 B2 03 5C 00"},
};

const Command kReadBinary = {
    "ReadBinary",
    [](Outcome& o) { o.result = VR_read_binary(0x15, 4, 10, o.output.data(), &o.length); },
    "00 B0 95 04 00",
};

// The commands of which only the result comes back.
const Command kSilentCommands[] = {
    {"ExternalAuth", [](Outcome& o) { o.result = vrdk_ExternalAuth(kData, 5); }, "00 82 00 00 05 83 03 12 34 56"},
    {"VerifyPin", [](Outcome& o) { o.result = vrdk_VerifyPin(0x80, kData, 5); }, "00 20 00 80 05"},
};

const Command kChallenge = {
    "GetRandom",
    [](Outcome& o) { o.result = vrdk_getrandom(8, o.output.data()); },
    "00 84 00 00 08",
};

std::vector<Command> allCommands()
{
    std::vector<Command> all(std::begin(kReadingCommands), std::end(kReadingCommands));
    all.insert(all.end(), std::begin(kSilentCommands), std::end(kSilentCommands));
    all.push_back(kReadBinary);
    all.push_back(kChallenge);
    return all;
}

std::string nameOf(const ::testing::TestParamInfo<Command>& info) { return info.param.name; }

void PrintTo(const Command& command, std::ostream* out) { *out << command.name; }

class EachReadingCommand : public CardCommands, public ::testing::WithParamInterface<Command> {};
class EachCommand : public CardCommands, public ::testing::WithParamInterface<Command> {};

INSTANTIATE_TEST_SUITE_P(Commands, EachReadingCommand, ::testing::ValuesIn(kReadingCommands), nameOf);
INSTANTIATE_TEST_SUITE_P(Commands, EachCommand, ::testing::ValuesIn(allCommands()), nameOf);

} // namespace

// ---------------------------------------------------------------- all commands

TEST_P(EachReadingCommand, HandsBackTheResponseWithoutItsStatusWord)
{
    reader.apdu(GetParam().apdu, "70 05 5A 03 62 00 01 90 00");
    Outcome outcome;
    GetParam().call(outcome);
    EXPECT_EQ(outcome.result, 0U);
    EXPECT_EQ(outcome.length, 7);
    EXPECT_EQ(outcome.data(), "70055A03620001");
    EXPECT_TRUE(outcome.untouchedFrom(7));
}

TEST_P(EachReadingCommand, HandsBackNothingWhenTheCardSentTheStatusWordAlone)
{
    reader.apdu(GetParam().apdu, "9000");
    Outcome outcome;
    GetParam().call(outcome);
    EXPECT_EQ(outcome.result, 0U);
    EXPECT_EQ(outcome.length, 0);
    EXPECT_TRUE(outcome.untouchedFrom(0));
}

TEST_P(EachReadingCommand, CutsAResponseThatIsLongerThanItsLengthCanSay)
{
    reader.apdu(GetParam().apdu, repeated("C1C2C3", 100) + "9000");
    Outcome outcome;
    GetParam().call(outcome);
    EXPECT_EQ(outcome.result, 0U);
    EXPECT_EQ(outcome.length, VORN_RESPONSE_MAX);
    EXPECT_EQ(outcome.data(), repeated("C1C2C3", 85));
    EXPECT_TRUE(outcome.untouchedFrom(VORN_RESPONSE_MAX));
}

TEST_P(EachReadingCommand, TakesAResponseOf254BytesWhole)
{
    reader.apdu(GetParam().apdu, repeated("3A", 253) + "3B9000");
    Outcome outcome;
    GetParam().call(outcome);
    EXPECT_EQ(outcome.length, 254);
    EXPECT_EQ(outcome.data(), repeated("3A", 253) + "3B");
}

TEST_P(EachCommand, ReturnsTheCardsStatusWordAndLeavesTheOutputs)
{
    for (const std::string status : {"6A82", "6985", "63C2", "6283", "9001", "6E00"}) {
        SCOPED_TRACE(status);
        reader.apdu(GetParam().apdu, "01 02 03" + status);
        if (status == "6283") { // answered with GET RESPONSE, which this card does not know
            reader.apdu("00 C0 00 00 00", "6D00");
        }
        Outcome outcome;
        GetParam().call(outcome);
        EXPECT_EQ(outcome.result, status == "6283" ? 0x6D00U : std::stoul(status, nullptr, 16));
        EXPECT_EQ(outcome.length, kUntouched);
        EXPECT_TRUE(outcome.untouchedFrom(0));
    }
}

TEST_P(EachCommand, TakesTheStatusWord0000ForNoSuccess)
{
    for (const std::string response : {"0000", "01 02 03 0000"}) {
        reader.apdu(GetParam().apdu, response);
        Outcome outcome;
        GetParam().call(outcome);
        EXPECT_EQ(static_cast<int>(outcome.result), VORN_READER_REFUSED) << response;
        EXPECT_EQ(outcome.length, kUntouched);
        EXPECT_TRUE(outcome.untouchedFrom(0));
    }
}

TEST_P(EachReadingCommand, TakesTheStatusWord0000BehindAFollowUpForNoSuccess)
{
    reader.apdu(GetParam().apdu, "6104").apdu("00 C0 00 00 04", "DF 01 01 7E 00 00");
    Outcome outcome;
    GetParam().call(outcome);
    EXPECT_EQ(static_cast<int>(outcome.result), VORN_READER_REFUSED);
    EXPECT_EQ(outcome.length, kUntouched);
    EXPECT_TRUE(outcome.untouchedFrom(0));
}

TEST_P(EachCommand, ReturnsTheLinksFailureAndLeavesTheOutputs)
{
    const std::string command = std::string("32 26 00") + GetParam().apdu;
    reader.command(command, "", 0x02).command(command, "", 0x06).command(command, "", 0x05).silent(command);
    for (const int expected : {VORN_READER_NO_CARD, VORN_READER_NO_CARD, VORN_READER_REFUSED, VORN_NO_REPLY}) {
        Outcome outcome;
        GetParam().call(outcome);
        EXPECT_EQ(static_cast<int>(outcome.result), expected);
        EXPECT_EQ(outcome.length, kUntouched);
        EXPECT_TRUE(outcome.untouchedFrom(0));
    }
}

TEST_P(EachCommand, TakesAReplyOfNoneOrOneByteForARefusalAndLeavesTheOutputs)
{
    for (const char* reply : {"", "90", "61", "6C"}) {
        reader.apdu(GetParam().apdu, reply);
        Outcome outcome;
        GetParam().call(outcome);
        EXPECT_EQ(static_cast<int>(outcome.result), VORN_READER_REFUSED) << reply;
        EXPECT_EQ(outcome.length, kUntouched);
        EXPECT_TRUE(outcome.untouchedFrom(0));
    }
}

TEST_P(EachCommand, GoesToTheFieldWhenTheCardWasActivatedThere)
{
    m_VrICType = VORN_INTERFACE_CONTACTLESS;
    reader.slot(VORN_SLOT_CONTACTLESS).apdu(GetParam().apdu, "6700");
    Outcome outcome;
    GetParam().call(outcome);
    EXPECT_EQ(outcome.result, 0x6700U);
}

TEST_P(EachReadingCommand, FetchesTheResponseThatTheCardAnnounces)
{
    reader.apdu(GetParam().apdu, "6104").apdu("00 C0 00 00 04", "DF 01 01 7E 90 00");
    Outcome outcome;
    GetParam().call(outcome);
    EXPECT_EQ(outcome.result, 0U);
    EXPECT_EQ(outcome.data(), "DF01017E");
}

// ---------------------------------------------------------------- GET CHALLENGE

TEST_F(CardCommands, GetRandomAsksForTheCountAndCopiesIt)
{
    reader.apdu("00 84 00 00 08", "F1 E2 D3 C4 B5 A6 97 88 90 00");
    Outcome outcome;
    EXPECT_EQ(vrdk_getrandom(8, outcome.output.data()), 0U);
    EXPECT_EQ(toHex(Bytes(outcome.output.begin(), outcome.output.begin() + 8)), "F1E2D3C4B5A69788");
    EXPECT_TRUE(outcome.untouchedFrom(8));
}

TEST_F(CardCommands, GetRandomWritesTheCountAlsoWhenTheCardReturnedFewer)
{
    reader.apdu("00 84 00 00 08", "F1 E2 D3 90 00");
    Outcome outcome;
    EXPECT_EQ(vrdk_getrandom(8, outcome.output.data()), 0U);
    EXPECT_EQ(toHex(Bytes(outcome.output.begin(), outcome.output.begin() + 8)), "F1E2D30000000000");
    EXPECT_TRUE(outcome.untouchedFrom(8));
}

TEST_F(CardCommands, GetRandomCopiesNoMoreThanTheCount)
{
    reader.apdu("00 84 00 00 04", "11 22 33 44 55 66 77 88 90 00");
    Outcome outcome;
    EXPECT_EQ(vrdk_getrandom(4, outcome.output.data()), 0U);
    EXPECT_EQ(toHex(Bytes(outcome.output.begin(), outcome.output.begin() + 4)), "11223344");
    EXPECT_TRUE(outcome.untouchedFrom(4));
}

TEST_F(CardCommands, GetRandomOfNoCountAsksAndCopiesNothing)
{
    for (const int count : {0, -1}) {
        SCOPED_TRACE(count);
        reader.apdu(count == 0 ? "00 84 00 00 00" : "00 84 00 00 FF", "11 22 33 44 90 00");
        Outcome outcome;
        EXPECT_EQ(vrdk_getrandom(count, outcome.output.data()), 0U);
        EXPECT_TRUE(outcome.untouchedFrom(0));
    }
}

TEST_F(CardCommands, GetRandomOfMoreThanALeCanSaySendsItsLowByteAndFillsUpWithZeros)
{
    reader.apdu("00 84 00 00 00", repeated("5C", 256) + "9000"); // 512 is 0200
    Outcome outcome;
    EXPECT_EQ(vrdk_getrandom(512, outcome.output.data()), 0U);
    EXPECT_EQ(toHex(Bytes(outcome.output.begin(), outcome.output.begin() + 256)), repeated("5C", 256));
    EXPECT_EQ(std::count(outcome.output.begin() + 256, outcome.output.begin() + 512, 0), 256);
    EXPECT_TRUE(outcome.untouchedFrom(512));
}

// ---------------------------------------------------------------- READ BINARY

struct BinaryAddress {
    int shortFileId, offset;
    const char* apdu;
};

class ReadBinaryAddress : public CardCommands, public ::testing::WithParamInterface<BinaryAddress> {};

INSTANTIATE_TEST_SUITE_P(Addresses, ReadBinaryAddress,
                         ::testing::Values(BinaryAddress{0x15, 0, "00 B0 95 00 00"},
                                           BinaryAddress{0x01, 0x7F, "00 B0 81 7F 00"},
                                           BinaryAddress{0x1F, 0xFF, "00 B0 9F FF 00"},
                                           BinaryAddress{0x20, 1, "00 B0 80 01 00"},        // five bits of identifier
                                           BinaryAddress{0xF6, 1, "00 B0 96 01 00"},        //
                                           BinaryAddress{0x02, 0x0134, "00 B0 82 34 00"})); // the offset's low byte

TEST_P(ReadBinaryAddress, StandsInP1AndP2)
{
    reader.apdu(GetParam().apdu, "0A 0B 0C 90 00");
    Outcome outcome;
    EXPECT_EQ(VR_read_binary(GetParam().shortFileId, GetParam().offset, 3, outcome.output.data(), &outcome.length), 0U);
    EXPECT_EQ(outcome.data(), "0A0B0C");
    EXPECT_TRUE(outcome.untouchedFrom(3));
}

TEST_F(CardCommands, ReadBinaryDoesNotSendItsLengthAndReturnsWhatComes)
{
    reader.apdu("00 B0 95 00 00", "01 02 03 04 05 06 90 00");
    Outcome outcome;
    EXPECT_EQ(VR_read_binary(0x15, 0, 2, outcome.output.data(), &outcome.length), 0U);
    EXPECT_EQ(outcome.data(), "010203040506");
}

TEST_F(CardCommands, ReadBinaryTakesTheLengthThatTheCardNames)
{
    reader.apdu("00 B0 95 00 00", "6C 0C").apdu("00 B0 95 00 0C", repeated("E7", 12) + "9000");
    Outcome outcome;
    EXPECT_EQ(VR_read_binary(0x15, 0, 10, outcome.output.data(), &outcome.length), 0U);
    EXPECT_EQ(outcome.data(), repeated("E7", 12));
}

TEST_F(CardCommands, ReadBinaryReturnsAllThatAReplyCarries)
{
    reader.apdu("00 B0 95 00 00", repeated("0F", VORN_PAYLOAD_MAX - 2) + "9000");
    Outcome outcome;
    EXPECT_EQ(VR_read_binary(0x15, 0, 10, outcome.output.data(), &outcome.length), 0U);
    EXPECT_EQ(outcome.length, VORN_PAYLOAD_MAX - 2);
    EXPECT_EQ(outcome.data(), repeated("0F", VORN_PAYLOAD_MAX - 2));
    EXPECT_TRUE(outcome.untouchedFrom(VORN_PAYLOAD_MAX));
}

// ---------------------------------------------------------------- VERIFY

struct VerifyLength {
    std::uint8_t length;
    const char* sent;
};

class VerifyPinLength : public CardCommands, public ::testing::WithParamInterface<VerifyLength> {};

INSTANTIATE_TEST_SUITE_P(Lengths, VerifyPinLength,
                         ::testing::Values(VerifyLength{1, "00"}, VerifyLength{2, "00 20"},
                                           VerifyLength{5, "00 20 00 81 05"}, VerifyLength{6, "00 20 00 81 06 24"},
                                           VerifyLength{8, "00 20 00 81 08 24 12 34"},
                                           VerifyLength{13, "00 20 00 81 0D 24 12 34 FF FF FF FF FF"}));

TEST_P(VerifyPinLength, SendsOnlyAsManyBytesOfTheCommandAsTheDataHave)
{
    const Bytes pin = fromHex("24 12 34 FF FF FF FF FF 11 22 33 44 55");
    reader.apdu(GetParam().sent, "9000");
    EXPECT_EQ(vrdk_VerifyPin(0x81, pin.data(), GetParam().length), 0U);
}

TEST_F(CardCommands, VerifyPinOf255BytesSends255)
{
    const Bytes pin(255, 0x31);
    reader.apdu("00 20 00 00 FF" + repeated("31", 250), "9000");
    EXPECT_EQ(vrdk_VerifyPin(0x00, pin.data(), 255), 0U);
}

// ---------------------------------------------------------------- GET DATA

struct DataItem {
    std::uint8_t index;
    const char* tag;
};

class GetDataItem : public CardCommands, public ::testing::WithParamInterface<DataItem> {};

INSTANTIATE_TEST_SUITE_P(Items, GetDataItem,
                         ::testing::Values(DataItem{0, "9F36"}, DataItem{1, "9F13"}, DataItem{2, "9F17"},
                                           DataItem{3, "9F4F"}, DataItem{4, "9F79"}, DataItem{5, "9F77"},
                                           DataItem{6, "9F78"}, DataItem{7, "9F36"}, DataItem{9, "9F36"},
                                           DataItem{128, "9F36"}, DataItem{255, "9F36"}));

TEST_P(GetDataItem, IsAskedForByItsTag)
{
    reader.apdu(std::string("80 CA") + GetParam().tag + "00", std::string(GetParam().tag) + "02 03 E9 90 00");
    Outcome outcome;
    withByteLength(outcome,
                   [](unsigned char* out, unsigned char* n) { return vrdk_GetData(GetParam().index, out, n); });
    EXPECT_EQ(outcome.result, 0U);
    EXPECT_EQ(outcome.data(), std::string(GetParam().tag) + "0203E9");
}

// ---------------------------------------------------------------- READ RECORD

struct RecordAddress {
    std::uint8_t record, shortFileId;
    const char* apdu;
};

class ReadRecordAddress : public CardCommands, public ::testing::WithParamInterface<RecordAddress> {};

INSTANTIATE_TEST_SUITE_P(Addresses, ReadRecordAddress,
                         ::testing::Values(RecordAddress{1, 1, "00 B2 01 0C 00"},
                                           RecordAddress{2, 10, "00 B2 02 54 00"},
                                           RecordAddress{255, 30, "00 B2 FF F4 00"},
                                           RecordAddress{0, 0, "00 B2 00 04 00"},
                                           RecordAddress{9, 0x21, "00 B2 09 0C 00"})); // the shift drops bits

TEST_P(ReadRecordAddress, StandsInP1AndP2)
{
    reader.apdu(GetParam().apdu, "70 00 90 00");
    Outcome outcome;
    withByteLength(outcome, [](unsigned char* out, unsigned char* n) {
        return vrdk_ReadRecord(GetParam().record, GetParam().shortFileId, out, n);
    });
    EXPECT_EQ(outcome.result, 0U);
    EXPECT_EQ(outcome.data(), "7000");
}

TEST_F(CardCommands, ReadRecordRepeatsWithTheLengthThatTheCardNames)
{
    reader.apdu("00 B2 01 0C 00", "6C 03").apdu("00 B2 01 0C 03", "70 01 00 90 00");
    Outcome outcome;
    withByteLength(outcome, [](unsigned char* out, unsigned char* n) { return vrdk_ReadRecord(1, 1, out, n); });
    EXPECT_EQ(outcome.data(), "700100");
}

// ---------------------------------------------------------------- the longest commands

TEST_F(CardCommands, CommandsTake255BytesOfData)
{
    const Bytes data(255, 0x6B);
    const std::string text = repeated("6B", 255);
    reader.apdu("00 A4 04 00 FF" + text, "9000")
        .apdu("00 82 00 00 FF" + text, "9000")
        .apdu("00 88 00 00 FF" + text, "9000")
        .apdu("80 A8 00 00 FF" + text, "9000")
        .apdu("80 AE 80 00 FF" + text, "9000");
    Outcome outcome;
    unsigned char length = kUntouched;
    EXPECT_EQ(vrdk_SelectFile(0x04, 0x00, data.data(), 255, outcome.output.data(), &length), 0U);
    EXPECT_EQ(vrdk_ExternalAuth(data.data(), 255), 0U);
    EXPECT_EQ(vrdk_InternalAuth(data.data(), 255, outcome.output.data(), &length), 0U);
    EXPECT_EQ(vrdk_GetProcessOptions(data.data(), 255, outcome.output.data(), &length), 0U);
    EXPECT_EQ(vrdk_GenerateAC(0x80, data.data(), 255, outcome.output.data(), &length), 0U);
    EXPECT_EQ(length, 0);
}

TEST_F(CardCommands, CommandsWithoutDataSendALengthOfZero)
{
    reader.apdu("00 A4 04 00 00", "9000").apdu("00 82 00 00 00", "9000").apdu("80 AE C0 00 00", "9000");
    Outcome outcome;
    unsigned char length = kUntouched;
    EXPECT_EQ(vrdk_SelectFile(0x04, 0x00, kData, 0, outcome.output.data(), &length), 0U);
    EXPECT_EQ(vrdk_ExternalAuth(kData, 0), 0U);
    EXPECT_EQ(vrdk_GenerateAC(0xC0, kData, 0, outcome.output.data(), &length), 0U);
}
