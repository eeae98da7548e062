// SPDX-License-Identifier: Apache-2.0
// GET PROCESSING OPTIONS: what goes to the card for its PDOL, and the AIP and AFL that come back.
#include "support/card_text.h"
#include "support/scripted_reader.h"

#include "ICC_COMM_VORN.h"

#include <gtest/gtest.h>

#include <string>

using namespace vorn::test;

namespace {

const std::string kName = "A000000333010101";
const std::string kNoPdol = applicationFci(kName);
const std::string kAnyResponse = "80 02 00 00 90 00";

class ProcessingOptions : public ReaderTest {
protected:
    void SetUp() override
    {
        m_VrICType = VORN_INTERFACE_CONTACT;
        reader.slot(VORN_SLOT_CONTACT);
        openLink();
    }
    void TearDown() override { closeLink(); }

    int get(const std::string& fci, const std::string& terminalData = "")
    {
        const Bytes fciBytes = fromHex(fci);
        const Bytes terminalBytes = fromHex(terminalData);
        return vrdk_GetProcOptions(fciBytes.data(), static_cast<unsigned char>(fciBytes.size()), terminalBytes.data(),
                                   static_cast<int>(terminalBytes.size()), aip, &aipLength, afl, &aflLength);
    }
    int getFor(const std::string& response)
    {
        reader.apdu("80 A8 00 00 02 83 00", ok(response));
        return get(kNoPdol);
    }
    std::string aipText() const { return toHex(Bytes(aip, aip + aipLength)); }
    std::string aflText() const { return toHex(Bytes(afl, afl + aflLength)); }

    unsigned char aip[4] = {0xA5, 0xA5, 0xA5, 0xA5};
    unsigned char aipLength = 99;
    unsigned char afl[VORN_RESPONSE_MAX] = {};
    unsigned char aflLength = 0;
};

std::string withPdol(const std::string& pdol) { return applicationFci(kName, tlv("9F38", pdol)); }

} // namespace

// ---------------------------------------------------------------- the command

TEST_F(ProcessingOptions, SendsAnEmptyTemplateForACardWithoutPdol)
{
    reader.apdu("80 A8 00 00 02 83 00", kAnyResponse);
    EXPECT_EQ(get(kNoPdol, "9F0206000000000012"), 0);
}

TEST_F(ProcessingOptions, SendsAnEmptyTemplateForAnEmptyFci)
{
    reader.apdu("80 A8 00 00 02 83 00", kAnyResponse);
    EXPECT_EQ(get("", "9F0206000000000012"), 0);
}

TEST_F(ProcessingOptions, FillsThePdolFromTheTerminalsData)
{
    reader.apdu("80 A8 00 00 0D 83 0B F4000000 000000000034 56", kAnyResponse);
    EXPECT_EQ(get(withPdol("9F6604 9F0206 5F2A01"), "5F2A020156 9F0206000000000034 9F6604F4000000"), 0);
}

TEST_F(ProcessingOptions, SendsZerosForWhatTheTerminalDoesNotHave)
{
    reader.apdu("80 A8 00 00 09 83 07 000000 01 000000", kAnyResponse);
    EXPECT_EQ(get(withPdol("9F3703 9C01 DF6003"), "9C0101 DF600101"), 0); // DF60 is in no dictionary
}

TEST_F(ProcessingOptions, SendsTheLongestPdolThatTheCommandHolds)
{
    reader.apdu("80 A8 00 00 FF 83 FD" + repeated("00", 252) + "07", kAnyResponse);
    EXPECT_EQ(get(withPdol("9F4EFC 9C01"), "9C0107"), 0);
}

TEST_F(ProcessingOptions, AsksNothingWhenThePdolCannotBeBuilt)
{
    for (const std::string pdol : {"", "9F66", "FF", "9F0206 9F", "9F0282 01", "9F4EFD 9C01"}) {
        aipLength = 99;
        EXPECT_EQ(get(withPdol(pdol), "9F6604F4000000"), -1) << pdol;
        EXPECT_EQ(aipLength, 0) << pdol;
    }
}

TEST_F(ProcessingOptions, ReturnsWhatTheCommandReturns)
{
    reader.apdu("80 A8 00 00 02 83 00", "6985");
    EXPECT_EQ(get(kNoPdol), 0x6985);
    EXPECT_EQ(aipLength, 0);
    reader.apdu("80 A8 00 00 02 83 00", "6A81");
    EXPECT_EQ(get(kNoPdol), 0x6A81);
    reader.silent("32 26 00 80 A8 00 00 02 83 00");
    EXPECT_EQ(get(kNoPdol), -11);
    reader.command("32 26 00 80 A8 00 00 02 83 00", "", 0x01);
    EXPECT_EQ(get(kNoPdol), -10);
}

// ---------------------------------------------------------------- the response

TEST_F(ProcessingOptions, ReadsFormat1)
{
    EXPECT_EQ(getFor("80 0A 7C 00 08 01 01 00 10 01 03 01"), 0);
    EXPECT_EQ(aipText(), "7C00");
    EXPECT_EQ(aflText(), "0801010010010301");
    EXPECT_EQ(aip[2], 0xA5);
}

TEST_F(ProcessingOptions, ReadsFormat1WithoutAnAfl)
{
    EXPECT_EQ(getFor("80 02 59 80"), 0);
    EXPECT_EQ(aipText(), "5980");
    EXPECT_EQ(aflText(), "");
}

TEST_F(ProcessingOptions, RefusesAnEmptyFormat1)
{
    EXPECT_EQ(getFor("80 00"), -1);
    EXPECT_EQ(aipLength, 0);
    EXPECT_EQ(getFor("80 00 82 02 7C 00 94 04 08 01 01 00"), -1); // format 1 was answered
}

TEST_F(ProcessingOptions, TakesATag80InsideATemplateForFormat1)
{
    EXPECT_EQ(getFor("77 14 82 02 19 80 80 06 7C 00 08 01 01 00 94 04 10 01 02 00"), 0);
    EXPECT_EQ(aipText(), "7C00");
    EXPECT_EQ(aflText(), "08010100");
}

TEST_F(ProcessingOptions, GoesOnBehindAZeroWhereATagIsExpected)
{
    EXPECT_EQ(getFor("00 00 80 06 7C 00 08 01 01 00"), 0);
    EXPECT_EQ(aipText() + aflText(), "7C0008010100");
    EXPECT_EQ(getFor("77 10 00 01 EE 82 02 59 00 00 00 94 04 10 01 01 00"), 0);
    EXPECT_EQ(aipText() + aflText(), "590010010100");

    reader.apdu("80 A8 00 00 03 83 01 21", kAnyResponse);
    EXPECT_EQ(get(tlv("6F", "0000" + tlv("84", kName) + tlv("A5", "0001EE" + tlv("9F38", "9C01"))), "9C0121"), 0);
}

TEST_F(ProcessingOptions, ReadsFormat2)
{
    EXPECT_EQ(getFor("77 12 82 02 7C 00 94 0C 08 01 01 00 10 01 02 01 18 01 01 00"), 0);
    EXPECT_EQ(aipText(), "7C00");
    EXPECT_EQ(aflText(), "080101001001020118010100");
}

TEST_F(ProcessingOptions, ReadsFormat2InAnyOrderAndDepth)
{
    EXPECT_EQ(getFor("77 13 9F36 02 00 1B 70 08 94 04 20 02 05 01 E1 00 82 02 39 00"), 0);
    EXPECT_EQ(aipText(), "3900");
    EXPECT_EQ(aflText(), "20020501");
}

TEST_F(ProcessingOptions, ReadsFormat2WithoutItsTemplate)
{
    EXPECT_EQ(getFor("82 02 39 01 94 04 20 02 05 01"), 0);
    EXPECT_EQ(aipText(), "3901");
    EXPECT_EQ(aflText(), "20020501");
}

TEST_F(ProcessingOptions, NeedsAnAflInFormat2)
{
    EXPECT_EQ(getFor("77 04 82 02 7C 00"), -1);
    EXPECT_EQ(getFor("77 00"), -1);
    EXPECT_EQ(getFor(""), -1);
    EXPECT_EQ(getFor("9F26 08 11 22 33 44 55 66 77 88"), -1);
}

TEST_F(ProcessingOptions, DoesWithoutAnAipInFormat2)
{
    EXPECT_EQ(getFor("77 06 94 04 08 01 02 00"), 0);
    EXPECT_EQ(aipLength, 0);
    EXPECT_EQ(aflText(), "08010200");
}

TEST_F(ProcessingOptions, PassesOverAnAipOfMoreThanTwoBytes)
{
    EXPECT_EQ(getFor("77 0B 82 03 7C 00 01 94 04 08 01 02 00"), 0);
    EXPECT_EQ(aipLength, 0);
    EXPECT_EQ(aip[0], 0xA5);
    EXPECT_EQ(aflText(), "08010200");
}

TEST_F(ProcessingOptions, TakesTwoBytesForAShorterAip)
{
    EXPECT_EQ(getFor("77 09 82 01 7C 94 04 08 01 02 00"), 0);
    EXPECT_EQ(aipText(), "7C94");
    EXPECT_EQ(aflText(), "08010200");
}

TEST_F(ProcessingOptions, TakesAnEmptyAfl)
{
    EXPECT_EQ(getFor("77 06 82 02 7C 00 94 00"), 0);
    EXPECT_EQ(aipText(), "7C00");
    EXPECT_EQ(aflText(), "");
}

TEST_F(ProcessingOptions, ReadsTheLengthFieldsAsOneByte)
{
    const std::string afl32 = repeated("08010100", 32); // 128 bytes
    EXPECT_EQ(getFor("80 81 82 7C 00" + afl32), 0);     // 81 is taken for a length of 129
    EXPECT_EQ(aipText(), "827C");
    EXPECT_EQ(aflText(), "00" + afl32.substr(0, 2 * 126));
    EXPECT_EQ(getFor("77 81 87 82 02 7C 00 94 81 80" + afl32), 0);
    EXPECT_EQ(aflText(), "80" + afl32);
}

TEST_F(ProcessingOptions, ReadsAFormat1OfOneByte)
{
    EXPECT_EQ(getFor("80 01 5C"), 0);
    EXPECT_EQ(aipText(), "5C00");
    EXPECT_EQ(aflText(), "");
    EXPECT_EQ(getFor("77 03 80 01 7C 94 04 08 01 01 00"), 0); // nothing behind the one byte counts
    EXPECT_EQ(aipText(), "7C00");
    EXPECT_EQ(aflText(), "");
}

TEST_F(ProcessingOptions, ReadsWhatIsThereOfAFormat1ThatIsCut)
{
    EXPECT_EQ(getFor("80 0A 7C"), 0);
    EXPECT_EQ(aipText(), "7C00");
    EXPECT_EQ(aflText(), "");
    EXPECT_EQ(getFor("80 0A"), 0);
    EXPECT_EQ(aipText(), "0000");
    EXPECT_EQ(aflText(), "");
    EXPECT_EQ(getFor("80 0A 7C 00 08 01"), 0);
    EXPECT_EQ(aflText(), "0801");
}

TEST_F(ProcessingOptions, LeavesTheFileListWhenItFails)
{
    const auto expectAflLeft = [this] {
        EXPECT_EQ(aflLength, 77);
        EXPECT_EQ(toHex(Bytes(afl, afl + sizeof afl)), repeated("EE", sizeof afl));
    };
    std::fill(std::begin(afl), std::end(afl), static_cast<unsigned char>(0xEE));
    aflLength = 77;
    EXPECT_EQ(get(withPdol("9F66")), -1);
    expectAflLeft();
    reader.apdu("80 A8 00 00 02 83 00", "80 06 7C 00 08 01 01 00 69 85"); // data in front of a refusal
    EXPECT_EQ(get(kNoPdol), 0x6985);
    expectAflLeft();
    reader.silent("32 26 00 80 A8 00 00 02 83 00");
    EXPECT_EQ(get(kNoPdol), -11);
    expectAflLeft();
    for (const char* response : {"", "80", "80 00", "77", "77 00", "77 04 82 02 7C 00"}) {
        EXPECT_EQ(getFor(response), -1) << response;
        expectAflLeft();
    }
}

TEST_F(ProcessingOptions, ReadsAFileListOfAnyLength)
{
    const std::string afl253 = repeated("08010100", 62) + "080101";
    EXPECT_EQ(getFor("80 03 7C 00 08"), 0);
    EXPECT_EQ(aflText(), "08");
    EXPECT_EQ(getFor("77 05 94 03 08 01 01"), 0);
    EXPECT_EQ(aflText(), "080101");
    EXPECT_EQ(getFor("80 FD 7C 00" + afl253), 0);
    EXPECT_EQ(aflText(), afl253);
}
