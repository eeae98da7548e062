// SPDX-License-Identifier: Apache-2.0
// Application selection: the directory, the application identifier, the final SELECT and the purse's identifier.
#include "support/allocation.h"
#include "support/card_text.h"
#include "support/scripted_reader.h"

#include "ICC_COMM_VORN.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

using namespace vorn::test;

namespace {

const std::string kDebit = "A000000333010101";
const std::string kCredit = "A000000333010102";
const std::string kQuasiCredit = "A000000333010103";
const std::string kPurse = "D15600000145442F4550000000000000";

// A candidate list with its heap records.
class Directory {
public:
    ~Directory() { release(); }
    int select(const std::string& name)
    {
        release();
        const Bytes bytes = fromHex(name);
        return vrdk_PseAppSelect(bytes.data(), static_cast<int>(bytes.size()), &head);
    }
    int check(const std::string& fci)
    {
        const Bytes bytes = fromHex(fci);
        return vrdk_checkADF(bytes.data(), static_cast<int>(bytes.size()), &head);
    }
    void release()
    {
        for (alist* record = head.next; record != nullptr;) {
            alist* const next = record->next;
            std::free(record);
            record = next;
        }
        head.next = nullptr;
    }
    // The records that hold an AID: "A000000333010101/1".
    std::vector<std::string> entries() const
    {
        std::vector<std::string> all;
        for (const alist* record = &head; record != nullptr; record = record->next) {
            if (record->aidLength > 0) {
                const std::size_t length = record->aidLength;
                all.push_back(toHex(Bytes(record->aid, record->aid + length)) + "/" + std::to_string(record->priority));
            }
        }
        return all;
    }
    std::size_t records() const
    {
        std::size_t count = 0;
        for (const alist* record = &head; record != nullptr; record = record->next) {
            ++count;
        }
        return count;
    }

    alist head{};
};

// A list of applications found by their AID, with its heap records.
class Matches {
public:
    ~Matches()
    {
        std::free(head.fci);
        for (flist* record = head.next; record != nullptr;) {
            flist* const next = record->next;
            std::free(record->fci);
            std::free(record);
            record = next;
        }
    }
    int select(const std::string& aid, int prefixAllowed = 1)
    {
        const Bytes bytes = fromHex(aid);
        return vrdk_AidAppSelect(prefixAllowed, bytes.data(), static_cast<int>(bytes.size()), &head);
    }
    static std::string fciOf(const flist& record) { return toHex(Bytes(record.fci, record.fci + record.fciLength)); }

    flist head{};
};

using Entries = std::vector<std::string>;

class ApplicationSelection : public ReaderTest {
protected:
    void SetUp() override
    {
        m_VrICType = VORN_INTERFACE_CONTACT;
        reader.slot(VORN_SLOT_CONTACT);
        openLink();
    }
    void TearDown() override { closeLink(); }

    // A directory of short file 1 with these records, read to its end.
    void expectRecords(const std::vector<std::string>& records, std::size_t shortFileId = 1)
    {
        for (std::size_t i = 0; i < records.size(); ++i) {
            reader.apdu(readRecord(i + 1, shortFileId), ok(records[i]));
        }
        reader.apdu(readRecord(records.size() + 1, shortFileId), "6A83");
    }
    void expectDirectory(const std::vector<std::string>& records)
    {
        reader.apdu(select(kPseName), ok(directoryFci(kPseName)));
        expectRecords(records);
    }
};

class DirectorySelection : public ApplicationSelection {
protected:
    Directory directory;
};

class SelectionByAid : public ApplicationSelection {
protected:
    Matches matches;
};

} // namespace

// ---------------------------------------------------------------- the directory

TEST_F(DirectorySelection, ReadsOneApplicationFromTheWire)
{
    reader
        .apdu("00 A4 04 00 0E 31 50 41 59 2E 53 59 53 2E 44 44 46 30 31",
              "6F 15 84 0E 31 50 41 59 2E 53 59 53 2E 44 44 46 30 31 A5 03 88 01 02 90 00")
        .apdu("00 B2 01 14 00", "70 13 61 11 4F 08 A0 00 00 03 33 01 01 01 50 02 50 42 87 01 05 90 00")
        .apdu("00 B2 02 14 00", "6A 83");
    EXPECT_EQ(directory.select(kPseName), 1);
    EXPECT_EQ(directory.entries(), (Entries{"A000000333010101/5"}));
    ASSERT_NE(directory.head.next, nullptr); // the record that the next entry would have filled
    EXPECT_EQ(directory.head.next->aidLength, 0);
    EXPECT_EQ(directory.head.next->next, nullptr);
}

TEST_F(DirectorySelection, SelectsTheNameThatItIsGiven)
{
    reader.apdu("00 A4 04 00 05 32 50 41 59 2E", ok(directoryFci("325041592E", "1E")))
        .apdu("00 B2 01 F4 00", ok(tlv("70", directoryEntry(kCredit, "03"))))
        .apdu("00 B2 02 F4 00", "6A 82");
    EXPECT_EQ(directory.select("325041592E"), 1);
    EXPECT_EQ(directory.entries(), (Entries{kCredit + "/3"}));
}

TEST_F(DirectorySelection, GivesNothingWhenTheDirectoryIsRefused)
{
    for (const std::string status : {"6A82", "6A81", "6D00", "6283"}) {
        reader.apdu(select(kPseName), status);
        if (status == "6283") {
            reader.apdu("00C0000000", "6F00");
        }
        EXPECT_EQ(directory.select(kPseName), 0) << status;
    }
    reader.silent("322600" + select(kPseName));
    EXPECT_EQ(directory.select(kPseName), 0);
    EXPECT_TRUE(directory.entries().empty());
}

TEST_F(DirectorySelection, NeedsAShortFileIdentifierOfOneByte)
{
    for (const std::string proprietary : {"88020101", "8800", "880101", "9F380101", ""}) {
        const bool usable = proprietary == "880101";
        reader.apdu(select(kPseName), ok(tlv("6F", tlv("84", kPseName) + tlv("A5", proprietary))));
        if (usable) {
            expectRecords({tlv("70", directoryEntry(kDebit))});
        }
        Directory each;
        EXPECT_EQ(each.select(kPseName), usable ? 1 : 0) << proprietary;
    }
}

TEST_F(DirectorySelection, ReadsTheRecordsUntilOneFails)
{
    reader.apdu(select(kPseName), ok(directoryFci(kPseName)))
        .apdu(readRecord(1, 1), ok(tlv("70", directoryEntry(kDebit, "02"))))
        .apdu(readRecord(2, 1), ok(tlv("70", directoryEntry(kCredit, "01"))))
        .apdu(readRecord(3, 1), "6A83");
    EXPECT_EQ(directory.select(kPseName), 2);
    EXPECT_EQ(directory.entries(), (Entries{kDebit + "/2", kCredit + "/1"})); // the priority orders nothing
    EXPECT_EQ(directory.records(), 3U);
}

TEST_F(DirectorySelection, KeepsWhatItReadWhenTheReaderFalls)
{
    reader.apdu(select(kPseName), ok(directoryFci(kPseName)))
        .apdu(readRecord(1, 1), ok(tlv("70", directoryEntry(kDebit))))
        .silent("322600" + readRecord(2, 1));
    EXPECT_EQ(directory.select(kPseName), 1);
    EXPECT_EQ(directory.entries(), (Entries{kDebit + "/1"}));
}

TEST_F(DirectorySelection, GivesNothingWhenTheFirstRecordFails)
{
    expectDirectory({});
    EXPECT_EQ(directory.select(kPseName), 0);
    EXPECT_TRUE(directory.entries().empty());
    EXPECT_EQ(directory.head.next, nullptr);
}

TEST_F(DirectorySelection, NeverReadsRecord255)
{
    reader.apdu(select(kPseName), ok(directoryFci(kPseName)));
    for (std::size_t record = 1; record <= 254; ++record) {
        reader.apdu(readRecord(record, 1), ok(tlv("70", directoryEntry("A0000003" + hexByte(record)))));
    }
    EXPECT_EQ(directory.select(kPseName), 254);
    EXPECT_EQ(directory.entries().size(), 254U);
    EXPECT_EQ(directory.entries().back(), "A0000003FE/1");
}

TEST_F(DirectorySelection, FindsTheEntriesOfARecordInTheirOrder)
{
    expectDirectory({tlv("70", directoryEntry(kQuasiCredit, "0F") + directoryEntry(kDebit, "01")),
                     tlv("70", directoryEntry(kCredit, "00") + directoryEntry("D156000015EA0203", "84"))});
    EXPECT_EQ(directory.select(kPseName), 4);
    EXPECT_EQ(directory.entries(),
              (Entries{kQuasiCredit + "/15", kDebit + "/1", kCredit + "/0", "D156000015EA0203/132"}));
    EXPECT_EQ(directory.records(), 5U);
}

TEST_F(DirectorySelection, OverwritesAnEntryWithoutPriorityByTheNext)
{
    expectDirectory({tlv("70", directoryEntry(kDebit, "") + directoryEntry(kCredit, "01"))});
    EXPECT_EQ(directory.select(kPseName), 2);
    EXPECT_EQ(directory.entries(), (Entries{kCredit + "/1"}));
    EXPECT_EQ(directory.records(), 2U);
}

TEST_F(DirectorySelection, TakesAnEmptyPriorityForNone)
{
    const std::string empty = tlv("61", tlv("4F", kDebit) + "8700");
    expectDirectory({tlv("70", directoryEntry(kQuasiCredit, "07") + empty + directoryEntry(kCredit, "02"))});
    EXPECT_EQ(directory.select(kPseName), 3);
    EXPECT_EQ(directory.entries(), (Entries{kQuasiCredit + "/7", kCredit + "/2"}));
}

TEST_F(DirectorySelection, LeavesTheLastEntryInTheHeadWhenNoneHasAPriority)
{
    expectDirectory({tlv("70", directoryEntry(kDebit, "")),
                     tlv("70", directoryEntry("A000000003", "") + directoryEntry(kCredit, ""))});
    EXPECT_EQ(directory.select(kPseName), 3);
    EXPECT_EQ(directory.entries(), (Entries{kCredit + "/0"}));
    EXPECT_EQ(directory.head.next, nullptr);
}

TEST_F(DirectorySelection, OverwritesALongerNameWhole)
{
    expectDirectory({tlv("70", directoryEntry(kPurse, "") + directoryEntry("A000000003", "01"))});
    EXPECT_EQ(directory.select(kPseName), 2);
    EXPECT_EQ(directory.entries(), (Entries{"A000000003/1"}));
}

TEST_F(DirectorySelection, TakesTheFirstByteOfALongPriority)
{
    expectDirectory({tlv("70", directoryEntry(kDebit, "0609"))});
    EXPECT_EQ(directory.select(kPseName), 1);
    EXPECT_EQ(directory.entries(), (Entries{kDebit + "/6"}));
}

TEST_F(DirectorySelection, LooksForThePriorityInsideTheEntryOnly)
{
    // Behind the entry, in the same record, stands a priority that belongs to nobody.
    expectDirectory({tlv("70", directoryEntry(kDebit, "") + "870109")});
    EXPECT_EQ(directory.select(kPseName), 1);
    EXPECT_EQ(directory.entries(), (Entries{kDebit + "/0"}));
    EXPECT_EQ(directory.head.next, nullptr);
}

TEST_F(DirectorySelection, PassesOverEntriesThatNameNoApplication)
{
    const std::string ignored = "6100"                                // empty
                                + tlv("61", "4F00" + tlv("87", "01")) // a name without a byte
                                + tlv("61", tlv("50", "5042") + tlv("4F", kCredit) + tlv("87", "01")) // name not first
                                + tlv("61", "9D00" + tlv("4F", kCredit)); // a directory without a name
    expectDirectory({tlv("70", ignored + directoryEntry(kDebit, "02"))});
    EXPECT_EQ(directory.select(kPseName), 1);
    EXPECT_EQ(directory.entries(), (Entries{kDebit + "/2"}));
}

TEST_F(DirectorySelection, CutsAnIdentifierOfMoreThanSixteenBytes)
{
    expectDirectory({tlv("70", directoryEntry(repeated("A7", 16) + "FF", "01"))});
    EXPECT_EQ(directory.select(kPseName), 1);
    EXPECT_EQ(directory.entries(), (Entries{repeated("A7", 16) + "/1"}));
}

TEST_F(DirectorySelection, TakesAnIdentifierOfSixteenBytes)
{
    expectDirectory({tlv("70", directoryEntry(kPurse, "01"))});
    EXPECT_EQ(directory.select(kPseName), 1);
    EXPECT_EQ(directory.entries(), (Entries{kPurse + "/1"}));
}

// Lengths in a directory are one byte, whatever their form: 81 is 129.

TEST_F(DirectorySelection, TakesTheLength81OfATemplateForItsLength)
{
    // The first inner byte is the length behind 81, and names no application.
    expectDirectory({tlv("70", "61810D" + tlv("4F", kDebit) + tlv("87", "01"))});
    EXPECT_EQ(directory.select(kPseName), 0);
    EXPECT_TRUE(directory.entries().empty());
}

TEST_F(DirectorySelection, TakesTheLength81OfAnIdentifierForItsLength)
{
    expectDirectory({tlv("70", tlv("61", "4F8108" + kDebit + tlv("87", "05")))});
    EXPECT_EQ(directory.select(kPseName), 1);
    EXPECT_EQ(directory.entries(), (Entries{"08" + kDebit + "870105/5"}));
}

TEST_F(DirectorySelection, TakesTheLength81OfAPriorityForItsLength)
{
    expectDirectory({tlv("70", tlv("61", tlv("4F", kDebit) + "87810105"))});
    EXPECT_EQ(directory.select(kPseName), 1);
    EXPECT_EQ(directory.entries(), (Entries{kDebit + "/1"}));
}

TEST_F(DirectorySelection, TakesTheLength81OfAFileIdentifierForItsLength)
{
    reader.apdu(select(kPseName), ok(tlv("6F", tlv("84", kPseName) + tlv("A5", "88810105"))));
    EXPECT_EQ(directory.select(kPseName), 0);
}

TEST_F(DirectorySelection, GoesOnBehindAZeroWhereATagIsExpected)
{
    reader.apdu(select(kPseName), ok(tlv("6F", "0000" + tlv("84", kPseName) +
                                                   tlv("A5", "000211"
                                                             "22880101"))));
    expectRecords({tlv("70", "0000" + tlv("61", tlv("4F", kDebit) + "0001EE" + tlv("87", "07")))});
    EXPECT_EQ(directory.select(kPseName), 1);
    EXPECT_EQ(directory.entries(), (Entries{kDebit + "/7"}));
}

// ---------------------------------------------------------------- the directory, without memory

TEST_F(DirectorySelection, EndsItsRecordsWhenThereIsNoMemoryForOne)
{
    reader.apdu(select(kPseName), ok(directoryFci(kPseName)))
        .apdu(readRecord(1, 1), ok(tlv("70", directoryEntry(kDebit, "01"))));
    const RefusedBlock second(2);
    EXPECT_EQ(directory.select(kPseName), 1);
    EXPECT_TRUE(second.met());
    EXPECT_EQ(directory.entries(), (Entries{kDebit + "/1"}));
}

TEST_F(DirectorySelection, UsesARecordAgainWhenThereIsNoMemoryForTheNext)
{
    expectDirectory({tlv("70", directoryEntry(kDebit, "01") + directoryEntry(kCredit, "02"))});
    const RefusedBlock third(3); // behind the memory for the record, and for the one that is not there
    EXPECT_EQ(directory.select(kPseName), 2);
    EXPECT_TRUE(third.met());
    EXPECT_EQ(directory.entries(), (Entries{kCredit + "/2"}));
}

TEST_F(DirectorySelection, SearchesEveryRecordOverTheLengthOfTheLastOne)
{
    const std::string first = tlv("70", directoryEntry(kDebit, "01") + directoryEntry(kCredit, "02"));
    const std::string last = tlv("70", directoryEntry(kQuasiCredit, "03"));
    expectDirectory({first, last}); // the last record is as long as the first one's first entry
    EXPECT_EQ(directory.select(kPseName), 2);
    EXPECT_EQ(directory.entries(), (Entries{kDebit + "/1", kQuasiCredit + "/3"}));
}

TEST_F(DirectorySelection, ReadsShortRecordsBeforeALongOne)
{
    expectDirectory({tlv("70", directoryEntry(kQuasiCredit, "03")),
                     tlv("70", directoryEntry(kDebit, "01") + directoryEntry(kCredit, "02"))});
    EXPECT_EQ(directory.select(kPseName), 3);
    EXPECT_EQ(directory.entries(), (Entries{kQuasiCredit + "/3", kDebit + "/1", kCredit + "/2"}));
}

TEST_F(DirectorySelection, TakesAnEntryWholeOfWhichTheLastRecordsLengthCoversTheBeginning)
{
    const std::string entry = tlv("70", directoryEntry(kDebit, "05")); // 21 bytes: 4F's value at 6, 87 at 18
    ASSERT_EQ(entry.size(), 42U);
    const struct {
        const char* behind;
        std::size_t lastLength;
    } table[] = {{"87's value", 20},
                 {"87's length", 19},
                 {"87", 18},
                 {"the end of the identifier", 13},
                 {"the identifier", 6},
                 {"the identifier's length", 5},
                 {"4F", 4}};
    for (const auto& row : table) {
        SCOPED_TRACE(row.behind);
        expectDirectory({entry, tlv("70", tlv("50", repeated("41", row.lastLength - 4)))}); // no entry of its own
        Directory each;
        EXPECT_EQ(each.select(kPseName), 1);
        EXPECT_EQ(each.entries(), (Entries{kDebit + "/5"}));
    }
}

TEST_F(DirectorySelection, DoesNotFindAnEntryThatBeginsBehindTheLastRecordsLength)
{
    const std::string front = tlv("50", repeated("42", 10)); // the entry's 61 stands at 14
    for (const std::size_t lastLength : {14U, 16U}) {
        expectDirectory(
            {tlv("70", front + directoryEntry(kDebit, "05")), tlv("70", tlv("50", repeated("41", lastLength - 4)))});
        Directory each;
        EXPECT_EQ(each.select(kPseName), lastLength == 14 ? 0 : 1);
        EXPECT_EQ(each.entries(), lastLength == 14 ? Entries{} : Entries{kDebit + "/5"});
    }
}

TEST_F(DirectorySelection, EntersADirectoryWhoseNameLiesBehindTheLastRecordsLength)
{
    const std::string nested = "4E4553544544";
    expectDirectory({tlv("70", tlv("61", tlv("9D", nested))), tlv("70", tlv("50", "42"))}); // 12 bytes and 5
    reader.apdu(select(nested), ok(directoryFci(nested, "05")));
    expectRecords({tlv("70", directoryEntry(kCredit, "02"))}, 5);
    EXPECT_EQ(directory.select(kPseName), 1);
    EXPECT_EQ(directory.entries(), (Entries{kCredit + "/2"}));
}

TEST_F(DirectorySelection, SearchesEveryRecordUpToAZeroWhenTheLastOneIsEmpty)
{
    const std::string behindAZero = tlv("70", directoryEntry(kDebit, "01") + directoryEntry(kCredit, "02") + "0000" +
                                                  directoryEntry(kQuasiCredit, "03"));
    expectDirectory({behindAZero, tlv("70", directoryEntry("A000000004", "04")), ""});
    EXPECT_EQ(directory.select(kPseName), 3);
    EXPECT_EQ(directory.entries(), (Entries{kDebit + "/1", kCredit + "/2", "A000000004/4"}));

    // With a length to go by, the zeros are an object like any other.
    expectDirectory({behindAZero, tlv("70", tlv("50", repeated("41", 80)))});
    Directory bounded;
    EXPECT_EQ(bounded.select(kPseName), 3);
    EXPECT_EQ(bounded.entries(), (Entries{kDebit + "/1", kCredit + "/2", kQuasiCredit + "/3"}));
}

TEST_F(DirectorySelection, OfEmptyRecordsOnlyHoldsNothing)
{
    expectDirectory({"", "", ""});
    EXPECT_EQ(directory.select(kPseName), 0);
    EXPECT_TRUE(directory.entries().empty());
}

TEST_F(DirectorySelection, EntersANestedDirectoryWhenAllRecordsAreRead)
{
    const std::string nested = "4E4553544544";
    reader.apdu(select(kPseName), ok(directoryFci(kPseName)))
        .apdu(readRecord(1, 1), ok(tlv("70", tlv("61", tlv("9D", nested)))))
        .apdu(readRecord(2, 1), "6A83")
        .apdu(select(nested), ok(directoryFci(nested, "05")))
        .apdu(readRecord(1, 5), ok(tlv("70", directoryEntry(kCredit, "02") + directoryEntry(kDebit, "01"))))
        .apdu(readRecord(2, 5), "6A83");
    EXPECT_EQ(directory.select(kPseName), 2);
    // The outer directory ends its list behind its own record, which the nested one's first entry has filled.
    EXPECT_EQ(directory.entries(), (Entries{kCredit + "/2"}));
    EXPECT_EQ(directory.head.next, nullptr);
}

TEST_F(DirectorySelection, OverwritesWhatANestedDirectoryGaveByTheEntriesBehindIt)
{
    const std::string nested = "4E4553544544";
    expectDirectory({tlv("70", directoryEntry("A0000001", "01")), tlv("70", tlv("61", tlv("9D", nested))),
                     tlv("70", directoryEntry("A0000004", "04"))});
    reader.apdu(select(nested), ok(directoryFci(nested, "05")));
    expectRecords({tlv("70", directoryEntry("A0000002", "02") + directoryEntry("A0000003", "03"))}, 5);
    EXPECT_EQ(directory.select(kPseName), 4); // all are counted
    EXPECT_EQ(directory.entries(), (Entries{"A0000001/1", "A0000004/4"}));
}

TEST_F(DirectorySelection, TakesThePriorityOfANestedEntryAwayByOneWithout)
{
    const std::string nested = "4E4553544544";
    expectDirectory({tlv("70", tlv("61", tlv("9D", nested)) + directoryEntry(kDebit, ""))});
    reader.apdu(select(nested), ok(directoryFci(nested, "05")));
    expectRecords({tlv("70", directoryEntry(kCredit, "02"))}, 5);
    EXPECT_EQ(directory.select(kPseName), 2);
    EXPECT_EQ(directory.entries(), (Entries{kDebit + "/0"}));
}

TEST_F(DirectorySelection, GoesOnBehindANestedDirectoryThatCannotBeUsed)
{
    const std::string nested = "4E4553544544";
    expectDirectory({tlv("70", tlv("61", tlv("9D", nested))), tlv("70", directoryEntry(kDebit, "01"))});
    reader.apdu(select(nested), "6A82");
    EXPECT_EQ(directory.select(kPseName), 1);
    EXPECT_EQ(directory.entries(), (Entries{kDebit + "/1"}));
}

TEST_F(DirectorySelection, NestsTwice)
{
    const std::string outer = "4F55544552", inner = "494E4E4552";
    expectDirectory({tlv("70", tlv("61", tlv("9D", outer)))});
    reader.apdu(select(outer), ok(directoryFci(outer, "02")));
    expectRecords({tlv("70", tlv("61", tlv("9D", inner)))}, 2);
    reader.apdu(select(inner), ok(directoryFci(inner, "03")));
    expectRecords({tlv("70", directoryEntry(kDebit, "09"))}, 3);
    EXPECT_EQ(directory.select(kPseName), 1);
    EXPECT_EQ(directory.entries(), (Entries{kDebit + "/9"}));
}

TEST_F(DirectorySelection, ReadsTheDirectoryOfAnFciThatTheCallerHas)
{
    expectRecords({tlv("70", directoryEntry(kDebit, "01"))}, 7); // and no SELECT
    EXPECT_EQ(directory.check(directoryFci("414243", "07")), 1);
    EXPECT_EQ(directory.entries(), (Entries{kDebit + "/1"}));
}

TEST_F(DirectorySelection, SelectsTheNestedDirectoriesOfSuchAnFci)
{
    const std::string nested = "4E4553544544";
    expectRecords({tlv("70", tlv("61", tlv("9D", nested)))});
    reader.apdu(select(nested), ok(directoryFci(nested, "05")));
    expectRecords({tlv("70", directoryEntry(kCredit, "02"))}, 5);
    EXPECT_EQ(directory.check(directoryFci("414243")), 1);
    EXPECT_EQ(directory.entries(), (Entries{kCredit + "/2"}));
}

TEST_F(DirectorySelection, AsksNothingForAnFciWithoutADirectory)
{
    EXPECT_EQ(directory.check(applicationFci(kDebit)), 0);
    EXPECT_EQ(directory.check(tlv("6F", "88021122")), 0);
    EXPECT_EQ(directory.check(""), 0);
}

// ---------------------------------------------------------------- by identifier

TEST_F(SelectionByAid, FindsAnApplicationByItsWholeName)
{
    reader.apdu("00 A4 04 00 08 A0 00 00 03 33 01 01 01",
                "6F 10 84 08 A0 00 00 03 33 01 01 01 A5 04 50 02 50 42 90 00");
    EXPECT_EQ(matches.select(kDebit), 1);
    EXPECT_EQ(Matches::fciOf(matches.head), "6F108408A000000333010101A50450025042");
    EXPECT_EQ(matches.head.next, nullptr);
}

TEST_F(SelectionByAid, FindsAWholeNameAlsoWhenPrefixesAreNotAllowed)
{
    reader.apdu(select(kDebit), ok(applicationFci(kDebit)));
    EXPECT_EQ(matches.select(kDebit, 0), 1);
    EXPECT_EQ(Matches::fciOf(matches.head), applicationFci(kDebit));
}

TEST_F(SelectionByAid, FindsNothingWhenSelectIsRefused)
{
    for (const std::string status : {"6A81", "6A82", "6985", "9001"}) {
        reader.apdu(select(kDebit), status);
        EXPECT_EQ(matches.select(kDebit), 0) << status;
    }
    reader.silent("322600" + select(kDebit));
    EXPECT_EQ(matches.select(kDebit), 0);
    EXPECT_EQ(matches.head.next, nullptr);
}

TEST_F(SelectionByAid, FindsNothingWhenTheBlockedApplicationHasNoResponse)
{
    reader.apdu(select(kDebit), "6283").apdu("00C0000000", "6985");
    EXPECT_EQ(matches.select(kDebit), 0);
}

TEST_F(SelectionByAid, NeedsADfNameInTheFci)
{
    for (const std::string fci : {"6F06A50450025042", "6F088400A50450025042", "", "9F3800"}) {
        reader.apdu(select(kDebit), ok(fci));
        EXPECT_EQ(matches.select(kDebit), 0) << fci;
    }
}

TEST_F(SelectionByAid, RefusesANameShorterThanTheIdentifier)
{
    reader.apdu(select(kDebit), ok(applicationFci("A0000003330101")));
    EXPECT_EQ(matches.select(kDebit), 0);
}

TEST_F(SelectionByAid, RefusesAnotherNameOfTheSameLength)
{
    reader.apdu(select(kDebit), ok(applicationFci(kCredit)));
    EXPECT_EQ(matches.select(kDebit), 0);
}

TEST_F(SelectionByAid, RefusesALongerNameWhenPrefixesAreNotAllowed)
{
    for (const int flag : {0, 2, -1}) {
        reader.apdu(select("A000000333"), ok(applicationFci(kDebit)));
        EXPECT_EQ(matches.select("A000000333", flag), 0) << flag;
    }
}

TEST_F(SelectionByAid, CollectsAllApplicationsOfAPrefixAndReselectsTheFirst)
{
    reader.apdu("00 A4 04 00 05 A0 00 00 03 33", ok(applicationFci(kDebit)))
        .apdu("00 A4 04 02 05 A0 00 00 03 33", ok(applicationFci(kCredit)))
        .apdu("00 A4 04 02 05 A0 00 00 03 33", "6A82")
        .apdu("00 A4 04 00 08 A0 00 00 03 33 01 01 01", ok(applicationFci(kDebit)));
    EXPECT_EQ(matches.select("A000000333"), 2);
    EXPECT_EQ(Matches::fciOf(matches.head), applicationFci(kDebit));
    ASSERT_NE(matches.head.next, nullptr);
    EXPECT_EQ(Matches::fciOf(*matches.head.next), applicationFci(kCredit));
    ASSERT_NE(matches.head.next->next, nullptr); // the extra record
    EXPECT_EQ(matches.head.next->next->next, nullptr);
}

TEST_F(SelectionByAid, TakesOneApplicationOfAPrefix)
{
    reader.apdu(select("A0000003"), ok(applicationFci(kQuasiCredit)))
        .apdu(select("A0000003", "02"), "6A82")
        .apdu(select(kQuasiCredit), ok(applicationFci(kQuasiCredit)));
    EXPECT_EQ(matches.select("A0000003"), 1);
    EXPECT_EQ(Matches::fciOf(matches.head), applicationFci(kQuasiCredit));
    ASSERT_NE(matches.head.next, nullptr);
    EXPECT_EQ(matches.head.next->next, nullptr);
}

TEST_F(SelectionByAid, LeavesItToTheCardWhatAPrefixMatches)
{
    reader.apdu(select("A000000333"), ok(applicationFci("D156000015EA")))
        .apdu(select("A000000333", "02"), "6D00")
        .apdu(select("D156000015EA"), "6A82"); // not examined
    EXPECT_EQ(matches.select("A000000333"), 1);
    EXPECT_EQ(Matches::fciOf(matches.head), applicationFci("D156000015EA"));
}

TEST_F(SelectionByAid, KeepsWhatItFoundWhenTheReaderFalls)
{
    reader.apdu(select("A000000333"), ok(applicationFci(kDebit)))
        .silent("322600" + select("A000000333", "02"))
        .silent("322600" + select(kDebit));
    EXPECT_EQ(matches.select("A000000333"), 1);
    EXPECT_EQ(Matches::fciOf(matches.head), applicationFci(kDebit));
}

TEST_F(SelectionByAid, ReselectsANameThatBeginsWithZeroByA0)
{
    reader.apdu(select("000000"), ok(applicationFci("0000000333")))
        .apdu(select("000000", "02"), "6A82")
        .apdu("00 A4 04 00 05 A0 00 00 03 33", "9000");
    EXPECT_EQ(matches.select("000000"), 1);
    EXPECT_EQ(Matches::fciOf(matches.head), applicationFci("0000000333"));
}

TEST_F(SelectionByAid, FindsADfNameBehindAZeroWhereATagIsExpected)
{
    const std::string fci = tlv("6F", "0000" + tlv("84", kDebit));
    reader.apdu(select(kDebit), ok(fci));
    EXPECT_EQ(matches.select(kDebit), 1);
    EXPECT_EQ(Matches::fciOf(matches.head), fci);
}

TEST_F(SelectionByAid, FindsNothingWhenThereIsNoMemoryForAMatch)
{
    // What the card answers last is selected by the name in the first match, of which there is none.
    reader.apdu(select("A000000333"), ok(applicationFci(kDebit))).apdu("00A4040000", "6A82");
    const RefusedBlock first(1);
    EXPECT_EQ(matches.select("A000000333"), 0);
    EXPECT_TRUE(first.met());
}

TEST_F(SelectionByAid, AddsAnOccurrenceWhateverItsFciHolds)
{
    reader.apdu(select("A000000333"), ok(applicationFci(kDebit)))
        .apdu(select("A000000333", "02"), ok("6F00"))
        .apdu(select("A000000333", "02"), "9000")
        .apdu(select("A000000333", "02"), "6A83")
        .apdu(select(kDebit), "9000");
    EXPECT_EQ(matches.select("A000000333"), 3);
    EXPECT_EQ(Matches::fciOf(*matches.head.next), "6F00");
    EXPECT_EQ(matches.head.next->next->fciLength, 0);
}

// ---------------------------------------------------------------- the final SELECT

TEST_F(ApplicationSelection, FinalSelectReturnsTheFci)
{
    const Bytes aid = fromHex(kCredit);
    reader.apdu("00 A4 04 00 08 A0 00 00 03 33 01 01 02", ok(applicationFci(kCredit, "9F38039F3704")));
    Bytes fci(VORN_RESPONSE_MAX + 8, 0xA5);
    unsigned char length = 0;
    EXPECT_EQ(vrdk_FinalAppSelect(aid.data(), 8, fci.data(), &length), 0);
    EXPECT_EQ(toHex(Bytes(fci.begin(), fci.begin() + length)), applicationFci(kCredit, "9F38039F3704"));
    EXPECT_EQ(fci[length], 0xA5);
}

TEST_F(ApplicationSelection, FinalSelectReturnsItsFailureAndLeavesTheFci)
{
    const Bytes aid = fromHex(kCredit);
    reader.apdu(select(kCredit), "6A82").apdu(select(kCredit), "6283").apdu("00C0000000", "6F01");
    reader.silent("322600" + select(kCredit)).command("322600" + select(kCredit), "", 0x07);
    for (const int expected : {0x6A82, 0x6F01, -11, -10}) {
        Bytes fci(4, 0xA5);
        unsigned char length = 3;
        EXPECT_EQ(vrdk_FinalAppSelect(aid.data(), 8, fci.data(), &length), expected);
        EXPECT_EQ(toHex(fci), "A5A5A5A5");
        EXPECT_EQ(length, 3);
    }
}

// ---------------------------------------------------------------- the purse

TEST_F(ApplicationSelection, PurseIdentifierLosesItsLastDigit)
{
    reader.apdu("00 A4 04 00 0E 31 50 41 59 2E 53 59 53 2E 44 44 46 30 31", "6F 00 90 00")
        .apdu("00 A4 04 00 10 D1 56 00 00 01 45 44 2F 45 50 00 00 00 00 00 00", "9000")
        .apdu("00 B0 95 00 00", "01 23 45 67 89 AB CD EF 01 23 90 00");
    char text[24];
    std::fill(std::begin(text), std::end(text), '#');
    EXPECT_EQ(VR_selectapp(text), 0);
    EXPECT_STREQ(text, "0123456789ABCDEF012");
    EXPECT_EQ(std::string(text + 20, 4), "####");
}

TEST_F(ApplicationSelection, PurseIdentifierIsTheFirstTenBytesOfTheFile)
{
    reader.apdu(select(kPseName), "9000")
        .apdu(select(kPurse), "9000")
        .apdu("00 B0 95 00 00", "6C 0C")
        .apdu("00 B0 95 00 0C", "FE DC BA 98 76 54 32 10 AB CD EE FF 90 00");
    char text[24];
    std::fill(std::begin(text), std::end(text), '#');
    EXPECT_EQ(VR_selectapp(text), 0);
    EXPECT_STREQ(text, "FEDCBA9876543210ABC");
    EXPECT_EQ(std::string(text + 20, 4), "####");
}

TEST_F(ApplicationSelection, PurseFailsWith15AtEachStep)
{
    char text[20];
    reader.apdu(select(kPseName), "6A82");
    EXPECT_EQ(VR_selectapp(text), 15);
    reader.apdu(select(kPseName), "9000").apdu(select(kPurse), "6A82");
    EXPECT_EQ(VR_selectapp(text), 15);
    reader.apdu(select(kPseName), "9000").apdu(select(kPurse), "9000").apdu("00B0950000", "6A82");
    EXPECT_EQ(VR_selectapp(text), 15);
    reader.silent("322600" + select(kPseName));
    EXPECT_EQ(VR_selectapp(text), 15);
}

TEST_F(ApplicationSelection, PurseIdentifierOfAShorterFileEndsInZeros)
{
    reader.apdu(select(kPseName), "9000").apdu(select(kPurse), "9000").apdu("00B0950000", "1234ABCD9000");
    char text[20];
    EXPECT_EQ(VR_selectapp(text), 0);
    EXPECT_STREQ(text, "1234ABCD00000000000");
}

// ---------------------------------------------------------------- where the next entry is sought

TEST_F(DirectorySelection, FindsTheEntryBehindAPaddedTemplate)
{
    for (const std::string padding : {"00", "0000", "00000000", "FF", "FFFF", "FFFFFFFFFF"}) {
        expectDirectory({tlv("70", tlv("61", tlv("4F", kCredit) + tlv("87", "02") + padding) +
                                       tlv("61", padding + tlv("4F", kPurse)) + directoryEntry(kDebit, "01"))});
        EXPECT_EQ(directory.select(kPseName), 2) << padding;
        EXPECT_EQ(directory.entries(), (Entries{kCredit + "/2", kDebit + "/1"})) << padding;
    }
}

TEST_F(DirectorySelection, TakesATemplateInsideAnEntryForNoEntryOfItsOwn)
{
    const std::string inside = tlv("4F", kCredit) + tlv("87", "02") + directoryEntry(kPurse, "07");
    expectDirectory({tlv("70", tlv("61", inside) + directoryEntry(kDebit, "01"))});
    EXPECT_EQ(directory.select(kPseName), 2);
    EXPECT_EQ(directory.entries(), (Entries{kCredit + "/2", kDebit + "/1"}));
    expectDirectory({tlv("70", tlv("61", tlv("73", directoryEntry(kPurse, "07"))) + directoryEntry(kDebit, "01"))});
    EXPECT_EQ(directory.select(kPseName), 1);
    EXPECT_EQ(directory.entries(), (Entries{kDebit + "/1"}));
}

TEST_F(DirectorySelection, GoesOnBehindAnEmptyTemplate)
{
    expectDirectory({tlv("70", tlv("61", "") + directoryEntry(kCredit, "02") + tlv("61", "") + tlv("61", "") +
                                   directoryEntry(kDebit, "01"))});
    EXPECT_EQ(directory.select(kPseName), 2);
    EXPECT_EQ(directory.entries(), (Entries{kCredit + "/2", kDebit + "/1"}));
}

TEST_F(DirectorySelection, EndsAtATemplateThatRunsPastItsRecord)
{
    expectDirectory({"70" + hexByte(40) + "61" + hexByte(200) + tlv("4F", kDebit) + tlv("87", "01") +
                     directoryEntry(kPurse, "07")});
    EXPECT_EQ(directory.select(kPseName), 1);
    EXPECT_EQ(directory.entries(), (Entries{kDebit + "/1"}));
}

TEST_F(DirectorySelection, FollowsAFlatDirectoryOfManyNamesToItsEnd)
{
    constexpr std::size_t kNames = 70;
    const auto name = [](std::size_t number) { return "4E" + hexByte(number); };
    std::vector<std::string> records;
    for (std::size_t i = 0; i < kNames; i += 10) {
        std::string entries;
        for (std::size_t j = i; j < i + 10; ++j) {
            entries += tlv("61", tlv("9D", name(j)));
        }
        records.push_back(tlv("70", entries));
    }
    expectDirectory(records);
    for (std::size_t i = 0; i < kNames; ++i) {
        reader.apdu(select(name(i)), ok(directoryFci(name(i), "02")));
        expectRecords({tlv("70", directoryEntry("A00000" + hexByte(i), "01"))}, 2);
    }
    EXPECT_EQ(directory.select(kPseName), static_cast<int>(kNames));
    EXPECT_EQ(directory.entries(), (Entries{"A00000" + hexByte(kNames - 1) + "/1"})); // each wrote over the one before
}

TEST_F(DirectorySelection, FollowsOneNameAsOftenAsItStandsInADirectory)
{
    const std::string nested = "4E4553544544";
    std::string entries;
    for (int i = 0; i < 20; ++i) {
        entries += tlv("61", tlv("9D", nested));
    }
    expectDirectory({tlv("70", entries), tlv("70", entries), tlv("70", entries), tlv("70", entries)});
    for (int i = 0; i < 80; ++i) {
        reader.apdu(select(nested), ok(directoryFci(nested, "02")));
        expectRecords({tlv("70", directoryEntry(kDebit, "01"))}, 2);
    }
    EXPECT_EQ(directory.select(kPseName), 80);
}
