// SPDX-License-Identifier: Apache-2.0
// One APDU and what the card asks for behind it: GET RESPONSE, or the same command with another Le.
#include "support/scripted_reader.h"

#include "ICC_COMM_VORN.h"

#include <pthread.h>

#include <algorithm>
#include <functional>
#include <string>

using namespace vorn::test;

namespace {

enum class Road { Contact, Field, Psam };

struct Target {
    const char* name;
    Road road;
    std::uint8_t slot;
};

const Target kTargets[] = {
    {"Contact", Road::Contact, 0x00},
    {"Contactless", Road::Field, 0xFF},
    {"Psam1", Road::Psam, 0x10},
    {"Psam4", Road::Psam, 0x13},
};

constexpr int kLengthBefore = -77;

// Both functions, as the tests below see them: the only differences are the slot and respLen for a status word.
class ApduExchange : public ReaderTest, public ::testing::WithParamInterface<Target> {
protected:
    ApduExchange()
    {
        openLink();
        m_VrICType = GetParam().road == Road::Contact ? 1 : 2;
        reader.slot(GetParam().slot);
    }
    ~ApduExchange() override { closeLink(); }

    bool psam() const { return GetParam().road == Road::Psam; }
    int lengthForStatusWord() const { return psam() ? 2 : kLengthBefore; }

    int exchange(const std::string& apdu, int room = 600)
    {
        command = fromHex(apdu);
        const int length = static_cast<int>(command.size());
        command.resize(static_cast<std::size_t>(room), 0xEE);
        return exchangeBytes(command.data(), length);
    }

    int exchangeBytes(unsigned char* apdu, int length)
    {
        response.assign(VORN_PAYLOAD_MAX + 1, 0xEE);
        responseLength = kLengthBefore;
        const int result = psam() ? SamIcc_EXApdu(GetParam().slot, apdu, length, response.data(), &responseLength)
                                  : Icc_EXApdu(apdu, length, response.data(), &responseLength);
        EXPECT_EQ(response.back(), 0xEE) << "a byte was written behind the documented capacity";
        return result;
    }

    std::string responseHex() const
    {
        return responseLength < 0 ? "length " + std::to_string(responseLength)
                                  : toHex(Bytes(response.begin(), response.begin() + responseLength));
    }
    std::string responseBegin(std::size_t count) const
    {
        return toHex(Bytes(response.begin(), response.begin() + static_cast<std::ptrdiff_t>(count)));
    }
    std::string commandBegin(std::size_t count) const
    {
        return toHex(Bytes(command.begin(), command.begin() + static_cast<std::ptrdiff_t>(count)));
    }

    Bytes command, response;
    int responseLength = kLengthBefore;
};

INSTANTIATE_TEST_SUITE_P(Roads, ApduExchange, ::testing::ValuesIn(kTargets),
                         [](const auto& row) { return std::string(row.param.name); });

// A host finds the card's last word in its buffer, though nothing counts it.
TEST_P(ApduExchange, AFollowUpThatFailsLeavesTheAnswerBeforeItInTheBuffer)
{
    reader.apdu("00A40000023F00", "6110").silent("32 26" + toHex({GetParam().slot}) + "00C0000010");
    EXPECT_EQ(exchange("00A40000023F00"), -11);
    EXPECT_EQ(responseLength, kLengthBefore);
    EXPECT_EQ(toHex(Bytes(response.begin(), response.begin() + 3)), "6110EE");
}

TEST_P(ApduExchange, AFollowUpThatTheReaderRefusesLeavesTheAnswerBeforeItInTheBuffer)
{
    reader.apdu("00B0000000", "6C05");
    reader.command("32 26" + toHex({GetParam().slot}) + "00B0000005", "AABBCC", 0x04);
    EXPECT_EQ(exchange("00B0000000"), -10);
    EXPECT_EQ(responseLength, kLengthBefore);
    EXPECT_EQ(toHex(Bytes(response.begin(), response.begin() + 3)), "6C05EE");
}

TEST_P(ApduExchange, AReplyWith9000IsReturnedWhole)
{
    for (const char* response9000 : {"9000", "6F0A8408A0000003330101019000", "90009000", "619000"}) {
        reader.apdu("00 A4 04 00 08 A0 00 00 03 33 01 01 01", response9000);
        EXPECT_EQ(exchange("00A4040008A000000333010101"), 0);
        EXPECT_EQ(responseHex(), response9000);
        EXPECT_EQ(commandBegin(14), "00A4040008A000000333010101EE"); // not touched
    }
}

TEST_P(ApduExchange, AnotherStatusWordIsTheResult)
{
    const struct {
        const char* response;
        int result;
    } rows[] = {
        {"6A82", 27266},  {"9001", 36865},  {"90FF", 0x90FF}, {"6300", 0x6300}, {"63C2", 0x63C2},
        {"6400", 0x6400}, {"6700", 26368},  {"6982", 0x6982}, {"6985", 27013},  {"6A81", 0x6A81},
        {"6A86", 0x6A86}, {"6B00", 0x6B00}, {"6D00", 0x6D00}, {"6E00", 0x6E00}, {"6F00", 28416},
        {"6000", 0x6000}, {"9100", 0x9100}, {"0090", 0x0090}, {"FFFF", 65535},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.response);
        reader.apdu("80 CA 9F 79 00", row.response);
        EXPECT_EQ(exchange("80CA9F7900"), row.result);
        EXPECT_EQ(responseLength, lengthForStatusWord());
        EXPECT_EQ(responseBegin(2), row.response);
        EXPECT_EQ(commandBegin(6), "80CA9F7900EE");
    }
}

TEST_P(ApduExchange, DataBeforeAnotherStatusWordIsInTheBuffer)
{
    reader.apdu("00 B2 02 0C 00", "70 03 5A 01 77 63 C1");
    EXPECT_EQ(exchange("00B2020C00"), 0x63C1);
    EXPECT_EQ(responseLength, lengthForStatusWord());
    EXPECT_EQ(responseBegin(7), "70035A017763C1");
}

TEST_P(ApduExchange, StatusWord0000HasTheResultOfSuccessWithoutItsLength)
{
    reader.apdu("00 B2 02 0C 00", "AB 00 00");
    EXPECT_EQ(exchange("00B2020C00"), 0);
    EXPECT_EQ(responseLength, lengthForStatusWord());
}

TEST_P(ApduExchange, The61IsFollowedByGetResponseForThatManyBytes)
{
    for (const char* count : {"10", "01", "FF", "00"}) {
        SCOPED_TRACE(count);
        const std::string getResponse = std::string("00C00000") + count;
        reader.apdu("00 A4 04 00 02 12 34", std::string("61") + count);
        reader.apdu(getResponse, "6F 02 84 00 90 00");
        EXPECT_EQ(exchange("00A40400021234"), 0);
        EXPECT_EQ(responseHex(), "6F0284009000");
        EXPECT_EQ(commandBegin(7), getResponse + "1234");
    }
}

TEST_P(ApduExchange, The62IsFollowedByGetResponseWithoutALengthWhateverItsSecondByte)
{
    for (const char* second : {"83", "00", "81", "82", "F1"}) {
        SCOPED_TRACE(second);
        reader.apdu("00 A4 04 00 02 12 34", std::string("62") + second);
        reader.apdu("00 C0 00 00 00", "84 01 77 90 00");
        EXPECT_EQ(exchange("00A40400021234"), 0);
        EXPECT_EQ(responseHex(), "8401779000");
        EXPECT_EQ(commandBegin(7), "00C00000001234");
    }
}

TEST_P(ApduExchange, The6CIsFollowedByTheSameCommandWithThatLe)
{
    reader.apdu("00 B2 01 0C 00", "6C 20").apdu("00 B2 01 0C 20", "70 00 90 00");
    EXPECT_EQ(exchange("00B2010C00"), 0);
    EXPECT_EQ(responseHex(), "70009000");
    EXPECT_EQ(commandBegin(6), "00B2010C20EE");

    // Its last byte is replaced also where that byte is no Le.
    reader.apdu("80 A8 00 00 02 83 00", "6C 0F").apdu("80 A8 00 00 02 83 0F", "77 00 90 00");
    EXPECT_EQ(exchange("80A80000028300"), 0);
    EXPECT_EQ(commandBegin(8), "80A8000002830FEE");

    // And where the command has no other.
    reader.apdu("00", "6C 0F").apdu("0F", "77 00 90 00");
    EXPECT_EQ(exchange("00"), 0);
    EXPECT_EQ(commandBegin(2), "0FEE");
}

TEST_P(ApduExchange, DataBeforeAFollowUpIsDropped)
{
    reader.apdu("80 AE 40 00 01 55", "11 22 33 61 02").apdu("00 C0 00 00 02", "44 62 00");
    reader.apdu("00 C0 00 00 00", "55 66 6C 03").apdu("00 C0 00 00 03", "77 90 00");
    EXPECT_EQ(exchange("80AE40000155"), 0);
    EXPECT_EQ(responseHex(), "779000");
}

TEST_P(ApduExchange, A6CBehindA61CorrectsTheGetResponse)
{
    reader.apdu("00 A4 04 00 00", "61 30").apdu("00 C0 00 00 30", "6C 08");
    reader.apdu("00 C0 00 00 08", "01 02 03 04 05 06 90 00");
    EXPECT_EQ(exchange("00A4040000"), 0);
    EXPECT_EQ(responseHex(), "0102030405069000");
    EXPECT_EQ(commandBegin(5), "00C0000008");
}

TEST_P(ApduExchange, A61BehindA6CAsksForTheResponse)
{
    reader.apdu("80 CA 9F 36 00", "6C 05").apdu("80 CA 9F 36 05", "61 05");
    reader.apdu("00 C0 00 00 05", "9F 36 02 00 4B 90 00");
    EXPECT_EQ(exchange("80CA9F3600"), 0);
    EXPECT_EQ(responseHex(), "9F3602004B9000");
}

TEST_P(ApduExchange, TheStatusWordBehindAFollowUpIsTheResult)
{
    reader.apdu("80 CA 9F 36 00", "6C 05").apdu("80 CA 9F 36 05", "6A 88");
    EXPECT_EQ(exchange("80CA9F3600"), 0x6A88);
    EXPECT_EQ(responseLength, lengthForStatusWord());

    reader.apdu("00 A4 00 00 02 3F 00", "62 83").apdu("00 C0 00 00 00", "6D 00");
    EXPECT_EQ(exchange("00A40000023F00"), 0x6D00);
    EXPECT_EQ(responseLength, lengthForStatusWord());
    EXPECT_EQ(responseBegin(2), "6D00");
}

TEST_P(ApduExchange, AReaderFailureIsReturnedAsItIs)
{
    const std::string toCard = "32 26" + toHex({GetParam().slot}) + "0084000008";
    const struct {
        int status;
        int result;
    } rows[] = {{0x02, -9}, {0x06, -9}, {0x01, -10}, {0xEE, -10}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.status);
        reader.command(toCard, "90 00", static_cast<std::uint8_t>(row.status));
        EXPECT_EQ(exchange("0084000008"), row.result);
        EXPECT_EQ(responseLength, kLengthBefore);
        EXPECT_EQ(response, Bytes(VORN_PAYLOAD_MAX + 1, 0xEE));
    }
    reader.silent(toCard);
    EXPECT_EQ(exchange("0084000008"), -11);
    EXPECT_EQ(responseLength, kLengthBefore);
    EXPECT_EQ(response, Bytes(VORN_PAYLOAD_MAX + 1, 0xEE));
}

TEST_P(ApduExchange, AReaderFailureDuringAFollowUpIsReturnedAsItIs)
{
    const std::string getResponse = "32 26" + toHex({GetParam().slot}) + "00C0000010";
    reader.apdu("00 A4 04 00 00", "61 10").silent(getResponse);
    EXPECT_EQ(exchange("00A4040000"), -11);
    reader.apdu("00 A4 04 00 00", "61 10").command(getResponse, "", 0x06);
    EXPECT_EQ(exchange("00A4040000"), -9);
    reader.apdu("00 A4 04 00 00", "61 10").command(getResponse, "", 0x33);
    EXPECT_EQ(exchange("00A4040000"), -10);
    EXPECT_EQ(responseLength, kLengthBefore);
    EXPECT_EQ(commandBegin(5), "00C0000010");
}

TEST_P(ApduExchange, AReplyWithoutAStatusWordIsAReaderFailure)
{
    for (const char* tooShort : {"", "90", "61"}) {
        SCOPED_TRACE(tooShort);
        reader.apdu("00 84 00 00 08", tooShort);
        EXPECT_EQ(exchange("0084000008"), -10);
        EXPECT_EQ(responseLength, kLengthBefore);
    }
}

TEST_P(ApduExchange, TheLongestCommandAndResponseAreCarried)
{
    const std::string longest = toHex(Bytes(505, 0x11));
    const std::string response494 = toHex(Bytes(492, 0x22)) + "9000";
    reader.apdu(longest, response494);
    EXPECT_EQ(exchange(longest), 0);
    EXPECT_EQ(responseHex(), response494);
}

TEST_P(ApduExchange, ACommandThatDoesNotFitIsABadArgument)
{
    EXPECT_EQ(exchange(toHex(Bytes(506, 0x11))), -1);
    EXPECT_EQ(responseLength, kLengthBefore);
}

TEST_P(ApduExchange, AShortCommandsBufferNeedsFiveBytes)
{
    reader.apdu("80 32", "61 04").apdu("00 C0 00 00 04", "01 02 90 00");
    EXPECT_EQ(exchange("8032", 5), 0); // a heap buffer of exactly five
    EXPECT_EQ(commandBegin(5), "00C0000004");
}

TEST_P(ApduExchange, ACommandOfNoBytesHasNoLeToCorrect)
{
    unsigned char around[] = {0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE};
    reader.apdu("", "6C 08").apdu("", "90 00");
    EXPECT_EQ(exchangeBytes(around + 1, 0), 0);
    EXPECT_EQ(around[0], 0xEE);
}

TEST_P(ApduExchange, EachExchangeOfAChainIsLogged)
{
    const std::string marker = psam() ? "samicc_capdu\n" : "capdu\n";
    const std::string in = "Indata----------------------" + marker;
    const std::string out = "Outdata----------------------" + marker;
    const std::string slot = toHex({GetParam().slot});
    reader.apdu("00 B2 01 0C 00", "6C 20").apdu("00 B2 01 0C 20", "70 00 90 00");
    EXPECT_EQ(exchange("00B2010C00"), 0);
    EXPECT_EQ(serviceLog(), in + "32 26 " + slot + " 00 B2 01 0C 00 \n" + out + "6C 20 \n" + in + "32 26 " + slot +
                                " 00 B2 01 0C 20 \n" + out + "70 00 90 00 \n");
}

// ---------------------------------------------------------------- cards that ask for ever

TEST_P(ApduExchange, ACardIsAskedAsOftenAsItAsks)
{
    for (const char* status : {"6104", "6281", "6C04"}) {
        SCOPED_TRACE(status);
        const bool corrects = std::string(status) == "6C04";
        const std::string again = corrects ? "00B2030C04" : std::string(status) == "6104" ? "00C0000004" : "00C0000000";
        reader.apdu("00 B2 03 0C 00", status);
        for (int i = 1; i < 300; ++i) {
            reader.apdu(again, status);
        }
        reader.apdu(again, "01 02 90 00");
        EXPECT_EQ(exchange("00B2030C00"), 0);
        EXPECT_EQ(responseHex(), "01029000");
        EXPECT_TRUE(reader.done());
    }
}

TEST_P(ApduExchange, ACardMayMixItsWishes)
{
    std::string next = "80CA9F7F00";
    for (int i = 0; i < 300; ++i) {
        const std::string second = toHex({static_cast<std::uint8_t>(i + 1)});
        switch (i % 3) {
        case 0:
            reader.apdu(next, "61" + second);
            next = "00C00000" + second;
            break;
        case 1:
            reader.apdu(next, "6C" + second);
            next = "00C00000" + second;
            break;
        default:
            reader.apdu(next, "62" + second);
            next = "00C0000000";
            break;
        }
    }
    reader.apdu(next, "6A 82");
    EXPECT_EQ(exchange("80CA9F7F00"), 0x6A82);
    EXPECT_TRUE(reader.done());
}

// A small stack, which a call per repetition would use up.
TEST_P(ApduExchange, AskingForEverNeedsNoStack)
{
    constexpr int kRepetitions = 4000;
    reader.apdu("00 A4 04 00 00", "61 01");
    for (int i = 0; i < kRepetitions; ++i) {
        reader.apdu("00 C0 00 00 01", "61 01");
    }
    reader.apdu("00 C0 00 00 01", "90 00");

    std::function<void()> work = [this] { EXPECT_EQ(exchange("00A4040000"), 0); };
    pthread_attr_t attributes;
    ASSERT_EQ(pthread_attr_init(&attributes), 0);
    ASSERT_EQ(pthread_attr_setstacksize(&attributes, 256 * 1024), 0);
    pthread_t thread{};
    const auto run = [](void* argument) -> void* {
        (*static_cast<std::function<void()>*>(argument))();
        return nullptr;
    };
    ASSERT_EQ(pthread_create(&thread, &attributes, run, &work), 0);
    ASSERT_EQ(pthread_join(thread, nullptr), 0);
    pthread_attr_destroy(&attributes);
    EXPECT_TRUE(reader.done());
}

// ---------------------------------------------------------------- which card

class ApduRoad : public ReaderTest {
protected:
    ApduRoad() { openLink(); }
    ~ApduRoad() override { closeLink(); }
};

TEST_F(ApduRoad, TheUsersCardIsWhereItWasPoweredLast)
{
    unsigned char apdu[5] = {0x00, 0x84, 0x00, 0x00, 0x04};
    unsigned char response[VORN_PAYLOAD_MAX];
    int length = 0;
    for (const int interface : {1, 2, 0}) {
        m_VrICType = static_cast<unsigned char>(interface);
        reader.command(std::string("32 26") + (interface == 1 ? "00" : "FF") + "0084000004", "9000");
        EXPECT_EQ(Icc_EXApdu(apdu, 5, response, &length), 0);
    }
}

TEST_F(ApduRoad, APsamIsNamedByItsSlotWhateverTheUsersCard)
{
    unsigned char apdu[5] = {0x00, 0x84, 0x00, 0x00, 0x04};
    unsigned char response[VORN_PAYLOAD_MAX];
    int length = 0;
    for (const int interface : {0, 1, 2}) {
        m_VrICType = static_cast<unsigned char>(interface);
        reader.command("32 26 12 0084000004", "61 02").command("32 26 12 00C0000002", "9000");
        unsigned char command[5];
        std::copy(apdu, apdu + 5, command);
        EXPECT_EQ(SamIcc_EXApdu(0x12, command, 5, response, &length), 0);
        EXPECT_EQ(m_VrICType, interface);
    }
}

} // namespace
