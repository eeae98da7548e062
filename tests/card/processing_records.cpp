// SPDX-License-Identifier: Apache-2.0
// Reading the records that the AFL names, and what of them counts for offline data authentication.
#include "support/card_text.h"
#include "support/scripted_reader.h"

#include "ICC_COMM_VORN.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

using namespace vorn::test;

namespace {

constexpr std::uint8_t kGuard = 0xA5;
const std::string kPan = tlv("5A", "6200012345678901");
const std::string kTrack2 = tlv("57", "6200012345678901D25120");
const std::string kSequence = tlv("5F34", "01");
const std::string kName = tlv("5F20", "5A48414E47");

class ApplicationData : public ReaderTest {
public:
    ApplicationData& record(std::size_t number, std::size_t shortFileId, const std::string& data)
    {
        reader.apdu(readRecord(number, shortFileId), ok(data));
        return *this;
    }
    ApplicationData& noRecord(std::size_t number, std::size_t shortFileId, const std::string& status = "6A83")
    {
        reader.apdu(readRecord(number, shortFileId), status);
        return *this;
    }

protected:
    void SetUp() override
    {
        m_VrICType = VORN_INTERFACE_CONTACT;
        reader.slot(VORN_SLOT_CONTACT);
        openLink();
    }
    void TearDown() override { closeLink(); }

    void get(const std::string& afl, const std::string& wanted)
    {
        const Bytes aflBytes = fromHex(afl);
        const Bytes wantedBytes = fromHex(wanted);
        EXPECT_EQ(vrdk_GetAppData(aflBytes.data(), static_cast<unsigned char>(aflBytes.size()), wantedBytes.data(),
                                  static_cast<unsigned char>(wantedBytes.size()), records_.data(), &recordsLength,
                                  authData_.data(), &authDataLength),
                  0);
        EXPECT_EQ(toHex(wantedBytes), withoutBlanks(wanted)); // the caller's list stays
        EXPECT_TRUE(guarded(records_) && guarded(authData_));
    }
    static bool guarded(const Bytes& buffer)
    {
        return std::all_of(buffer.begin() + VORN_APPDATA_CAPACITY, buffer.end(),
                           [](std::uint8_t byte) { return byte == kGuard; });
    }
    std::string records() const { return toHex(Bytes(records_.begin(), records_.begin() + recordsLength)); }
    std::string authData() const { return toHex(Bytes(authData_.begin(), authData_.begin() + authDataLength)); }

    int recordsLength = -7;
    int authDataLength = -7;

private:
    Bytes records_ = Bytes(VORN_APPDATA_CAPACITY + 300, kGuard);
    Bytes authData_ = Bytes(VORN_APPDATA_CAPACITY + 300, kGuard);
};

} // namespace

// ---------------------------------------------------------------- which records are read

TEST_F(ApplicationData, NothingWantedReadsNothing)
{
    get("08 01 03 01", "");
    EXPECT_EQ(recordsLength, 0);
    EXPECT_EQ(authDataLength, 0);
}

TEST_F(ApplicationData, EmptyAflReadsNothing)
{
    get("", "5A");
    EXPECT_EQ(recordsLength, 0);
    EXPECT_EQ(authDataLength, 0);
}

TEST_F(ApplicationData, ReadsEveryRecordOfEveryEntryInOrder)
{
    record(1, 1, tlv("70", kPan)).record(2, 1, tlv("70", kTrack2)).record(4, 3, tlv("70", kSequence));
    record(10, 30, tlv("70", kName));
    get("08 01 02 00 18 04 04 00 F0 0A 0A 00", "9F1F");
    EXPECT_EQ(records(), tlv("70", kPan) + tlv("70", kTrack2) + tlv("70", kSequence) + tlv("70", kName));
    EXPECT_EQ(authData(), "");
}

TEST_F(ApplicationData, StopsAtTheRecordThatCompletesTheWantedTags)
{
    record(1, 1, tlv("70", kPan)).record(2, 1, tlv("70", kName + kSequence));
    get("08 01 03 00 10 01 01 00", "5A 5F34 5F20");
    EXPECT_EQ(records(), tlv("70", kPan) + tlv("70", kName + kSequence));
}

TEST_F(ApplicationData, ReadsOnForATagThatNoRecordHolds)
{
    record(1, 1, tlv("70", kPan)).record(2, 1, tlv("70", kPan));
    get("08 01 02 00", "5A 9F61");
    EXPECT_EQ(records(), tlv("70", kPan) + tlv("70", kPan));
}

TEST_F(ApplicationData, PassesOverRecordsThatCannotBeRead)
{
    record(1, 2, tlv("70", kSequence)).noRecord(2, 2).noRecord(3, 2, "6985").record(4, 2, tlv("70", kPan));
    reader.silent("322600" + readRecord(1, 3)).command("322600" + readRecord(2, 3), "", 0x05);
    get("10 01 04 00 18 01 02 00", "57");
    EXPECT_EQ(records(), tlv("70", kSequence) + tlv("70", kPan));
}

TEST_F(ApplicationData, SucceedsWhenNoRecordCanBeRead)
{
    noRecord(1, 1).noRecord(2, 1);
    get("08 01 02 02", "5A");
    EXPECT_EQ(recordsLength, 0);
    EXPECT_EQ(authDataLength, 0);
}

TEST_F(ApplicationData, LeavesAnIncompleteEntryAtTheEndOfTheAfl)
{
    record(1, 1, tlv("70", kPan));
    get("08 01 01 00 10 01 01", "9F61");
    EXPECT_EQ(records(), tlv("70", kPan));
}

TEST_F(ApplicationData, ReadsNothingForAnEntryThatEndsBeforeItBegins)
{
    record(1, 2, tlv("70", kPan));
    get("08 03 02 01 10 01 01 00", "9F61");
    EXPECT_EQ(records(), tlv("70", kPan));
}

TEST_F(ApplicationData, FindsAWantedTagBehindAZeroWhereATagIsExpected)
{
    record(1, 1, tlv("70", "0000" + kPan + "00025A00" + kTrack2));
    get("08010200", "5A57");
}

TEST_F(ApplicationData, EndsBehindRecord255)
{
    record(254, 1, tlv("70", kPan)).record(255, 1, tlv("70", kName));
    get("08 FE FF 00", "9F61");
    EXPECT_EQ(records(), tlv("70", kPan) + tlv("70", kName));
}

TEST_F(ApplicationData, TakesTheFileFromTheUpperFiveBits)
{
    reader.apdu("00 B2 02 1C 00", ok(tlv("70", kPan)));
    get("1F 02 02 00", "5A"); // 18h plus bits that name no file
    EXPECT_EQ(records(), tlv("70", kPan));
}

TEST_F(ApplicationData, LooksForManyTags)
{
    std::string wanted = "5A";
    for (std::size_t i = 0; i < 67; ++i) {
        wanted += "9F" + hexByte(0x01 + i);
    }
    ASSERT_EQ(fromHex(wanted).size(), 135U);
    std::string first, second;
    for (std::size_t i = 0; i < 67; ++i) {
        (i % 2 == 0 ? first : second) += "9F" + hexByte(0x01 + i) + "0100";
    }
    record(1, 1, tlv("70", first)).record(2, 1, tlv("70", second)).record(3, 1, tlv("70", kPan));
    get("08 01 09 00", wanted); // complete with the third
    EXPECT_EQ(records(), tlv("70", first) + tlv("70", second) + tlv("70", kPan));
}

TEST_F(ApplicationData, TakesTheLongestListThatItsLengthCanSay)
{
    record(1, 1, tlv("70", kPan));
    get("08 01 05 00", repeated("5A", 255)); // all of them found at once
    EXPECT_EQ(records(), tlv("70", kPan));
}

// ---------------------------------------------------------------- authentication data

TEST_F(ApplicationData, LeavesOutTheRecordThatCompletesTheTags)
{
    record(1, 1, tlv("70", kPan));
    get("08 01 01 01", "5A");
    EXPECT_EQ(records(), tlv("70", kPan));
    EXPECT_EQ(authData(), "");
}

TEST_F(ApplicationData, KeepsTheAuthenticationDataThatCameBefore)
{
    record(1, 2, tlv("70", kPan)).record(2, 2, tlv("70", kName));
    get("10 01 02 01 18 01 01 00", "5A 5F20");
    EXPECT_EQ(records(), tlv("70", kPan) + tlv("70", kName));
    EXPECT_EQ(authData(), tlv("70", kPan));
}

TEST_F(ApplicationData, TakesOnlyTheTemplatesValueFromFile1)
{
    record(1, 1, tlv("70", kPan + kSequence)).record(1, 2, tlv("70", kName));
    get("08 01 01 01 10 01 01 01", "9F61");
    EXPECT_EQ(authData(), kPan + kSequence + tlv("70", kName));
}

TEST_F(ApplicationData, ComparesTheEntrysRawByteWithTen)
{
    record(1, 1, tlv("70", kPan)).record(2, 1, tlv("70", kName)).record(3, 1, tlv("70", kSequence));
    get("0A 01 01 01 0B 02 02 01 09 03 03 01", "9F61"); // all three name file 1
    EXPECT_EQ(authData(), kPan + tlv("70", kName) + kSequence);
}

TEST_F(ApplicationData, CountsTheFirstRecordsOfEachEntry)
{
    record(1, 2, tlv("70", kPan)).record(2, 2, tlv("70", kName)).record(3, 2, tlv("70", kSequence));
    record(1, 3, tlv("70", kTrack2)).record(2, 3, tlv("70", kPan));
    get("10 01 03 02 18 01 02 01", "9F61");
    EXPECT_EQ(authData(), tlv("70", kPan) + tlv("70", kName) + tlv("70", kTrack2));
}

TEST_F(ApplicationData, DoesNotCountRecordsThatCannotBeRead)
{
    noRecord(1, 2).record(2, 2, tlv("70", kName)).record(3, 2, tlv("70", kSequence));
    get("10 01 03 01", "9F61");
    EXPECT_EQ(authData(), tlv("70", kName));
}

TEST_F(ApplicationData, CountsARecordWithoutATemplateThatItDoesNotAdd)
{
    record(1, 2, kName).record(2, 2, tlv("70", kSequence)).record(3, 2, tlv("70", kPan));
    get("10 01 03 02", "9F61");
    EXPECT_EQ(records(), kName + tlv("70", kSequence) + tlv("70", kPan));
    EXPECT_EQ(authData(), tlv("70", kSequence));
}

TEST_F(ApplicationData, AsksForNoMoreThanTheEntryHas)
{
    record(1, 2, tlv("70", kPan));
    get("10 01 01 09", "9F61");
    EXPECT_EQ(authData(), tlv("70", kPan));
}

TEST_F(ApplicationData, FollowsTheTemplatesLengthForms)
{
    const std::string value = tlv("9F4B", repeated("3C", 0x90)); // 70 81 95 9F4B 81 90 ...
    const std::string wide = "70820007" + tlv("5F20", "41424344");
    record(1, 1, tlv("70", value)).record(2, 1, wide).record(1, 2, tlv("70", value)).record(2, 2, wide);
    get("08 01 02 02 10 01 02 02", "9F61");
    EXPECT_EQ(authData(), value + tlv("5F20", "41424344") + tlv("70", value) + wide);
}

TEST_F(ApplicationData, LeavesOutWhatStandsBehindTheTemplate)
{
    record(1, 1, tlv("70", kPan) + "9000").record(1, 2, tlv("70", kName) + kSequence);
    get("08 01 01 01 10 01 01 01", "9F61");
    EXPECT_EQ(records(), tlv("70", kPan) + "9000" + tlv("70", kName) + kSequence);
    EXPECT_EQ(authData(), kPan + tlv("70", kName));
}

TEST_F(ApplicationData, FindsTheTemplateBehindOtherObjects)
{
    record(1, 2, kSequence + tlv("70", kName));
    get("10 01 01 01", "9F61");
    EXPECT_EQ(authData(), tlv("70", kName));
}

TEST_F(ApplicationData, CutsATemplateThatRunsPastItsRecord)
{
    record(1, 1, "70 20" + kPan).record(1, 2, "70 20" + kPan);
    get("08 01 01 01 10 01 01 01", "9F61");
    EXPECT_EQ(authData(), kPan + "7020" + kPan);
}

// ---------------------------------------------------------------- more than the outputs hold

TEST_F(ApplicationData, PassesOverARecordThatDoesNotFitAnyMore)
{
    const std::string big = tlv("70", tlv("9F4B", repeated("77", 245)));
    ASSERT_EQ(fromHex(big).size(), 252U); // sixteen of them leave 64 bytes
    for (std::size_t i = 1; i <= 16; ++i) {
        record(i, 2, big);
    }
    const std::string tooLong = tlv("70", kTrack2 + tlv("9F0B", repeated("41", 47)));
    ASSERT_EQ(fromHex(tooLong).size(), 65U);
    record(17, 2, tooLong).record(18, 2, tlv("70", kPan)).record(19, 2, tlv("70", kName));
    get("10 01 13 FF", "57 5F20"); // 57 stands in the record that was passed over
    EXPECT_EQ(records(), repeated(big, 16) + tlv("70", kPan) + tlv("70", kName));
    EXPECT_EQ(authData(), repeated(big, 16) + tlv("70", kPan) + tlv("70", kName));
}

TEST_F(ApplicationData, FillsTheOutputsToTheLastByte)
{
    const std::string of128 = "707E" + repeated("00", 126);
    for (std::size_t i = 1; i <= 32; ++i) {
        record(i, 2, of128);
    }
    record(33, 2, "7000");
    get("10 01 21 FF", "5A");
    EXPECT_EQ(recordsLength, VORN_APPDATA_CAPACITY);
    EXPECT_EQ(authDataLength, VORN_APPDATA_CAPACITY);
    EXPECT_EQ(records(), repeated(of128, 32));
}

// ---------------------------------------------------------------- file lists that make no sense

TEST_F(ApplicationData, ReadsNothingForLessThanAnEntry)
{
    for (const char* afl : {"08", "08 01", "08 01 01"}) {
        recordsLength = -7;
        get(afl, "5A");
        EXPECT_EQ(recordsLength, 0) << afl;
    }
}

TEST_F(ApplicationData, AsksForFilesAndRecordsThatNoCardHas)
{
    noRecord(0, 0, "6A82").noRecord(0, 31, "6A82").noRecord(255, 31, "6A82");
    get("00 00 00 00 F8 00 00 00 FF FF FF FF", "5A");
    EXPECT_EQ(recordsLength, 0);
}

TEST_F(ApplicationData, ReadsAListOf255BytesToItsLastWholeEntry)
{
    std::string afl;
    for (std::size_t i = 0; i < 63; ++i) {
        afl += "08" + hexByte(63 - i) + hexByte(63 - i) + "00"; // backwards
        noRecord(63 - i, 1);
    }
    get(afl + "08 01 01", "5A");
    EXPECT_EQ(recordsLength, 0);
}
