// SPDX-License-Identifier: Apache-2.0
// IC_GetInfo and the selection against cards and readers that answer nonsense: the call ends, returns one of its
// codes, writes nothing beyond its buffers, and gives the link back. AddressSanitizer sees the rest.
#include "support/card_text.h"
#include "support/scripted_reader.h"

#include "ICC_COMM_VORN.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <ostream>
#include <random>
#include <set>
#include <string>
#include <vector>

using namespace vorn::test;

namespace {

constexpr char kGuard = '~';
constexpr const char* kAllLetters = "ABCDEFGHIJKL";
const std::string kAid = "A000000333010101";

// A reader with a card in its contact slot that answers whatever the test says, as often as it is asked.
class AnyCard {
public:
    using Answer = std::function<std::string(const std::string& apdu)>; // hex in, hex out

    explicit AnyCard(Line& line) : line_(line)
    {
        line_.onBytes = [this](const Bytes& bytes, int) { receive(bytes); };
    }

    Answer answer;
    // Called with every reply before it is sent.
    std::function<void(Bytes& reply)> damage;
    std::vector<std::string> asked; // the APDUs

    std::size_t timesAsked(const std::string& prefix) const
    {
        const std::string start = withoutBlanks(prefix);
        return static_cast<std::size_t>(std::count_if(asked.begin(), asked.end(), [&](const std::string& apdu) {
            return apdu.compare(0, start.size(), start) == 0;
        }));
    }

private:
    void receive(const Bytes& bytes)
    {
        pending_.insert(pending_.end(), bytes.begin(), bytes.end());
        for (;;) {
            const auto start = std::find(pending_.begin(), pending_.end(), 0x02);
            const auto end = std::find(start, pending_.end(), 0x03);
            if (end == pending_.end()) {
                return;
            }
            Bytes content;
            for (auto at = start + 5; at + 2 < end; at += 2) {
                content.push_back(static_cast<std::uint8_t>(((at[0] & 0x0F) << 4) | (at[1] & 0x0F)));
            }
            pending_.erase(pending_.begin(), end + 1);
            reply(content);
        }
    }
    void reply(const Bytes& command)
    {
        Bytes payload;
        if (command[1] == 0x22) {
            payload = fromHex("3B00");
        } else if (command[1] == 0x26) {
            const std::string apdu = toHex(Bytes(command.begin() + 3, command.end()));
            asked.push_back(apdu);
            payload = fromHex(answer(apdu));
        }
        Bytes bytes = replyFrame(0x00, payload);
        if (damage) {
            damage(bytes);
        }
        line_.send(bytes);
    }

    Line& line_;
    Bytes pending_;
};

bool startsWith(const std::string& text, const std::string& start) { return text.compare(0, start.size(), start) == 0; }

const std::string kSelectPse = select(kPseName);

// The answers of a well-behaved card; each may be replaced.
struct Answers {
    std::string directory = directoryFci(kPseName);
    std::string directoryRecord = tlv("70", directoryEntry(kAid));
    std::string application = applicationFci(kAid, tlv("9F38", "9F6604"
                                                               "9A03"));
    std::string options = tlv("80", "7C00"
                                    "10010200"
                                    "18010100");
    std::string record = tlv("70", tlv("5A", "6200001234567890") + tlv("57", "6200001234567890D2512201000F") +
                                       tlv("5F20", "5A48414E472020") + tlv("5F24", "251231") + tlv("5F34", "01") +
                                       tlv("9F61", "31313031303120") + tlv("9F62", "00") + tlv("9F0B", "D5C520"));
    std::string counter = "9F7906000000012345"
                          "9F770101"
                          "9F780102"
                          "9F360203E9";

    std::string operator()(const std::string& apdu) const
    {
        if (apdu == kSelectPse) {
            return directory + "9000";
        }
        if (startsWith(apdu, "00A40402")) {
            return "6A82";
        }
        if (startsWith(apdu, "00A4")) {
            return application + "9000";
        }
        if (startsWith(apdu, "80A8")) {
            return options + "9000";
        }
        if (apdu == readRecord(1, 1)) {
            return directoryRecord + "9000";
        }
        if (startsWith(apdu, "00B2") && apdu.substr(6, 2) != "0C") {
            return record + "9000";
        }
        return startsWith(apdu, "80CA") ? counter + "9000" : "6A83";
    }
};

class HostileCard : public ReaderTest {
protected:
    AnyCard card{line};
    int icType = 1;
    int length = -5;
    std::vector<char> text = std::vector<char>(ICC_USER_INFO_CAPACITY + 512, kGuard);

    int call(const char* aidList = "", const char* tagList = kAllLetters)
    {
        std::fill(text.begin(), text.end(), kGuard);
        icType = 1;
        length = -5;
        card.asked.clear();
        forgetLogs();
        return IC_GetInfo(port(), "", 0, 5, &icType, aidList, tagList, &length, text.data());
    }

    // What holds for every call, whatever the card does.
    void expectSound(int result)
    {
        static const std::set<int> kCodes = {0, -26, -27, -28, -11};
        EXPECT_EQ(kCodes.count(result), 1U) << result;
        EXPECT_TRUE(linkClosed());
        const std::string info(text.data(), strnlen(text.data(), text.size()));
        ASSERT_LT(info.size(), static_cast<std::size_t>(ICC_USER_INFO_CAPACITY));
        EXPECT_TRUE(std::all_of(text.begin() + static_cast<std::ptrdiff_t>(info.size()) + 1, text.end(),
                                [](char c) { return c == kGuard; }));
        if (result == 0) {
            EXPECT_EQ(length, static_cast<int>(info.size()) + 1);
            expectRecordForm(info);
        } else {
            EXPECT_EQ(info, "");
            EXPECT_EQ(length, -5);
        }
    }
    // Letters in order, three digits each, as many hex digits as they say; only C, D, F and H may be missing.
    static void expectRecordForm(const std::string& info)
    {
        std::size_t at = 0;
        for (char letter = 'A'; letter <= 'L'; ++letter) {
            if (at >= info.size() || info[at] != letter) {
                EXPECT_NE(std::string("CDFH").find(letter), std::string::npos) << letter << " is missing: " << info;
                continue;
            }
            ASSERT_LE(at + 4, info.size());
            const std::size_t size = std::stoul(info.substr(at + 1, 3));
            const std::string value = info.substr(at + 4, size);
            EXPECT_EQ(value.size(), size);
            EXPECT_EQ(value.find_first_not_of(letter == 'B' ? "0123456789ABCDEF=" : "0123456789ABCDEF"),
                      std::string::npos)
                << value;
            at += 4 + size;
        }
        EXPECT_EQ(at, info.size()) << info;
    }
};

} // namespace

// ---------------------------------------------------------------- the yardstick

TEST_F(HostileCard, ThatBehavesIsRead)
{
    card.answer = Answers();
    const int result = call();
    EXPECT_EQ(result, 0);
    EXPECT_STREQ(text.data(), "A0166200001234567890"
                              "B0276200001234567890=2512201000" // an F ends it
                              "C012000000012345D00201"
                              "E006251231F00202G00201H00403E9"
                              "I00200J012313130313031K0105A48414E47L004D5C5");
    expectSound(result);
}

// ---------------------------------------------------------------- answers that are too long or make no sense

namespace {

struct Filling {
    const char* name;
    std::string hex; // repeated until the reply is full
};

void PrintTo(const Filling& row, std::ostream* out) { *out << row.name; }

class HostileFilling : public HostileCard, public ::testing::WithParamInterface<Filling> {};

INSTANTIATE_TEST_SUITE_P(
    Bytes, HostileFilling,
    ::testing::Values(Filling{"Zeros", "00"}, Filling{"Ones", "FF"}, Filling{"Templates", "70"},
                      Filling{"TemplatesOf255Bytes", "70FF"}, Filling{"Entries", "61"}, Filling{"LongTags", "9F"},
                      Filling{"LongLengths", "9F0282FFFF"}, Filling{"ObjectsOf81", "5A81"}, Filling{"Length81", "81"},
                      Filling{"Length82", "82"}, Filling{"SmallObjects", "5A0162"}, Filling{"EmptyObjects", "5700"},
                      Filling{"Format1", "80FF"}, Filling{"Afl", "94FF"}, Filling{"Nested", "6F81F084FF"},
                      Filling{"FileIdentifiers", "880101"}, Filling{"DirectoryNames", "61039D0141"},
                      Filling{"Pdol", "9F38FF"}, Filling{"PdolOf82", "9F38820100"}, Filling{"TagsWithFF", "5FFF"},
                      Filling{"Names", "5F20FF20"}, Filling{"Indefinite", "70800000"},
                      Filling{"Length83", "5A83FFFFFF"}, Filling{"Length84", "6F84FFFFFFFF"},
                      Filling{"EndlessTag", "DF81818181"}),
    [](const auto& row) { return row.param.name; });

// One step of the call at a time is answered by the filling.
const char* const kSteps[] = {"00A404000E", "00B2010C", "00A4040008", "80A8", "00B20114", "80CA"};

} // namespace

TEST_P(HostileFilling, InPlaceOfOneAnswer)
{
    for (const std::string step : kSteps) {
        for (const std::size_t size : {1U, 2U, 3U, 4U, 5U, 127U, 253U, 254U, 255U, 256U, 257U, 492U}) {
            SCOPED_TRACE(step + " " + std::to_string(size));
            const std::string answer = repeated(GetParam().hex, 492).substr(0, 2 * size) + "9000";
            int nested = 0;
            card.answer = [&](const std::string& apdu) {
                if (startsWith(apdu, step)) {
                    // Directories of directories have their own test; here they end.
                    return step == "00B2010C" && ++nested > 3 ? std::string("6A83") : answer;
                }
                if (apdu == select("41")) {
                    return std::string("6A82");
                }
                return Answers()(apdu);
            };
            expectSound(call());
        }
    }
}

TEST_P(HostileFilling, InPlaceOfAllAnswers)
{
    const std::string answer = repeated(GetParam().hex, 492).substr(0, 2 * 492) + "9000";
    int left = 0;
    card.answer = [&](const std::string&) { return left-- > 0 ? answer : std::string("6A82"); };
    for (const int answers : {1, 2, 3, 5, 9, 300}) {
        left = answers;
        expectSound(call());
        left = answers;
        expectSound(call("A000000333"));
    }
}

TEST_F(HostileCard, WithEmptyFci)
{
    Answers answers;
    answers.application = "";
    card.answer = answers;
    EXPECT_EQ(call(), 0); // no PDOL: an empty template
    EXPECT_EQ(card.timesAsked("80 A8 00 00 02 83 00"), 1U);
    answers.directory = "";
    card.answer = answers;
    EXPECT_EQ(call(), -26);
    EXPECT_EQ(call(kAid.c_str()), -26); // neither has the list's application a name
    EXPECT_EQ(card.timesAsked(kSelectPse), 1U);
    expectSound(-26);
}

TEST_F(HostileCard, WithAPdolThatTheCommandCannotHold)
{
    Answers answers;
    for (const std::string pdol : {"9F4EFE", "9F4E81FE", "9F4E82FFFF", "9F02069F4EF8"}) {
        answers.application = applicationFci(kAid, tlv("9F38", pdol));
        card.answer = answers;
        EXPECT_EQ(call(), -28) << pdol;
        EXPECT_EQ(card.timesAsked("80 A8"), 0U);
        expectSound(-28);
    }
}

TEST_F(HostileCard, WithAnIdentifierThatRunsPastItsRecord)
{
    Answers answers;
    for (const std::string record : {"7006614F4FFFA000", "61FF4FFF", "61044F20A0000000", "61024F08", "614F", "61"}) {
        answers.directoryRecord = record;
        card.answer = answers;
        expectSound(call());
        for (const std::string& apdu : card.asked) {
            if (startsWith(apdu, "00A404") && apdu != kSelectPse) {
                EXPECT_LE(std::stoul(apdu.substr(8, 2), nullptr, 16), 16U) << apdu;
            }
        }
    }
}

// ---------------------------------------------------------------- truncation

TEST_F(HostileCard, WithEachAnswerCutAtEachByte)
{
    const Answers whole;
    for (std::string Answers::*answer : {&Answers::directory, &Answers::directoryRecord, &Answers::application,
                                         &Answers::options, &Answers::record, &Answers::counter}) {
        for (std::size_t size = 0; size < (whole.*answer).size(); size += 2) {
            Answers cut = whole;
            (cut.*answer).resize(size);
            card.answer = cut;
            SCOPED_TRACE(cut.*answer);
            expectSound(call());
            expectSound(call(kAid.c_str()));
        }
    }
}

// ---------------------------------------------------------------- more than there is room for

TEST_F(HostileCard, WithMoreThan4096BytesOfRecords)
{
    Answers answers;
    answers.options = tlv("80", "7C00"
                                "1001FFFF"
                                "1801FFFF");
    const std::string filler = tlv("70", tlv("9F4B", repeated("77", 245)));
    card.answer = [&](const std::string& apdu) {
        if (startsWith(apdu, "00B2") && apdu.substr(6, 2) == "14") {
            return filler + "9000"; // 255 times 252 bytes
        }
        if (startsWith(apdu, "00B2") && apdu.substr(6, 2) == "1C") {
            return tlv("70", tlv("5F34", apdu.substr(4, 2))) + "9000"; // small ones
        }
        return answers(apdu);
    };
    const int result = call();
    EXPECT_EQ(result, 0);
    EXPECT_EQ(card.timesAsked("00B2"), 1U + 1U + 255U + 255U);             // every record is asked for
    EXPECT_NE(std::string(text.data()).find("G00201"), std::string::npos); // behind 64,260 bytes
    expectSound(result);
}

// As many records as a list in one answer can name, and none of them there.
TEST_F(HostileCard, WithTheLongestFileList)
{
    Answers answers;
    answers.options = "80FD7C00" + repeated("1800FF0F", 62) + "1800FF"; // the last entry is cut
    card.answer = [&](const std::string& apdu) {
        return startsWith(apdu, "00B2") && apdu.substr(6, 2) == "1C" ? std::string("6A83") : answers(apdu);
    };
    const int result = call();
    EXPECT_EQ(result, 0);
    EXPECT_EQ(card.timesAsked("00B2001C"), 62U);
    EXPECT_EQ(card.timesAsked("00B2FF1C"), 62U);
    EXPECT_EQ(std::count_if(card.asked.begin(), card.asked.end(),
                            [](const std::string& apdu) { return apdu.substr(6, 2) == "1C"; }),
              62 * 256);
    expectSound(result);
}

TEST_F(HostileCard, WithAValueThatRunsThroughAllRecords)
{
    Answers answers;
    answers.options = tlv("80", "7C00"
                                "10011000");
    for (const std::string head : {"5A82FFFF", "5F2082FFFF", "5782FFFF", "9F0BFF", "9F6181FF"}) {
        answers.record = "70FF" + head + repeated("20", 240);
        card.answer = answers;
        const int result = call();
        EXPECT_EQ(result, 0);
        expectSound(result);
    }
}

// ---------------------------------------------------------------- walks without an end

TEST_F(HostileCard, WithADirectoryThatNamesItself)
{
    Answers answers;
    answers.directoryRecord = tlv("70", tlv("61", tlv("9D", kPseName)));
    card.answer = answers;
    const int result = call();
    EXPECT_EQ(result, -26);
    EXPECT_EQ(card.timesAsked(kSelectPse), static_cast<std::size_t>(VORN_DIRECTORY_DEPTH_MAX));
    expectSound(result);
}

TEST_F(HostileCard, WithADirectoryThatNamesItselfManyTimes)
{
    Answers answers;
    std::string entries;
    for (int i = 0; i < 8; ++i) {
        entries += tlv("61", tlv("9D", kPseName));
    }
    answers.directoryRecord = tlv("70", entries);
    card.answer = answers;
    const int result = call();
    EXPECT_EQ(result, -26);
    EXPECT_EQ(card.timesAsked(kSelectPse), 1U + VORN_DIRECTORY_REPEATS_MAX);
    expectSound(result);
}

TEST_F(HostileCard, WithDirectoriesOfNewNamesForEver)
{
    std::size_t next = 0;
    card.answer = [&next](const std::string& apdu) {
        if (startsWith(apdu, "00A4")) { // three of thirty can be used, and leads on
            const bool leadsOn = apdu == kSelectPse || apdu.substr(14, 2) == "00";
            return leadsOn ? directoryFci(kPseName) + "9000" : "6A82";
        }
        if (apdu != readRecord(1, 1)) {
            return std::string("6A83");
        }
        std::string entries;
        ++next;
        for (std::size_t i = 0; i < 30; ++i) {
            entries += tlv("61", tlv("9D", hexByte(next >> 8) + hexByte(next & 0xFF) + hexByte(i / 3)));
        }
        return tlv("70", entries) + "9000";
    };
    const int result = call();
    EXPECT_EQ(result, -26);
    EXPECT_EQ(card.timesAsked("00A4"), 1U + VORN_DIRECTORIES_MAX);
    expectSound(result);
}

TEST_F(HostileCard, WithADirectoryThatNamesItselfBehindAnEntry)
{
    Answers answers;
    answers.directoryRecord = tlv("70", directoryEntry(kAid) + tlv("61", tlv("9D", kPseName)) + directoryEntry("A0"));
    card.answer = answers;
    const int result = call();
    EXPECT_EQ(result, 0);
    // Once for each directory as deep as they are read, and then the head's application: the first entry of the first
    // directory, which nothing behind it writes over.
    EXPECT_EQ(card.timesAsked(kSelectPse), static_cast<std::size_t>(VORN_DIRECTORY_DEPTH_MAX));
    EXPECT_EQ(card.timesAsked(select(kAid)), 1U);
    EXPECT_EQ(card.timesAsked("00A4"), VORN_DIRECTORY_DEPTH_MAX + 1U);
    const auto before = std::find(card.asked.begin(), card.asked.end(), select(kAid)) - card.asked.begin();
    EXPECT_EQ(before, VORN_DIRECTORY_DEPTH_MAX * 3); // each: SELECT, a record, and the one that is not there
    expectSound(result);
}

TEST_F(HostileCard, WithNextOccurrencesForEver)
{
    card.answer = [](const std::string& apdu) {
        return startsWith(apdu, "00A404") ? applicationFci(kAid) + "9000" : Answers()(apdu);
    };
    const int result = call("A000000333");
    EXPECT_EQ(result, 0);
    EXPECT_EQ(card.timesAsked("00 A4 04 02"), VORN_AID_CANDIDATES_MAX - 1U); // the first one came without asking
    EXPECT_EQ(card.timesAsked(select(kAid)), 1U);
    expectSound(result);
}

TEST_F(HostileCard, WithRecordsForEver)
{
    card.answer = [](const std::string& apdu) {
        return startsWith(apdu, "00B2") ? tlv("70", directoryEntry(kAid)) + "9000" : Answers()(apdu);
    };
    const int result = call();
    EXPECT_EQ(result, 0);
    EXPECT_EQ(card.timesAsked("00B2FE0C"), 1U);
    EXPECT_EQ(card.timesAsked("00B2FF0C"), 0U);
    expectSound(result);
}

TEST_F(HostileCard, WithManyAnnouncedResponses)
{
    for (const std::string status : {"6110", "6200", "6C10"}) {
        int left = 2000;
        card.answer = [&](const std::string& apdu) { return left-- > 0 ? status : Answers()(apdu); };
        expectSound(call());
        EXPECT_GT(card.asked.size(), 2000U);
    }
}

// ---------------------------------------------------------------- a reader that makes no sense

TEST_F(HostileCard, BehindAReaderWhoseLengthIsWrong)
{
    card.answer = Answers();
    for (const char* length4 : {"????", "0000", "0001", "0002", "0003", "01?0", "0200", "8000"}) {
        int exchanges = 0;
        for (const int damaged : {1, 2, 3, 5, 8}) {
            SCOPED_TRACE(std::string(length4) + " in reply " + std::to_string(damaged));
            exchanges = 0;
            card.damage = [&](Bytes& reply) {
                if (++exchanges == damaged) {
                    std::copy(length4, length4 + 4, reply.begin() + 1);
                }
            };
            const int result = call();
            if (result != -10 && result != -25) {
                expectSound(result);
            }
            EXPECT_TRUE(linkClosed());
        }
    }
}

TEST_F(HostileCard, BehindAReaderWhoseFramesAreCut)
{
    card.answer = Answers();
    for (std::size_t size = 1; size < 20; ++size) {
        for (const int damaged : {1, 2, 4, 6, 9}) {
            SCOPED_TRACE(std::to_string(size) + " in reply " + std::to_string(damaged));
            int exchanges = 0;
            card.damage = [&](Bytes& reply) {
                if (++exchanges == damaged && size < reply.size()) {
                    reply.resize(size);
                    reply.push_back(0x03);
                }
            };
            const int result = call();
            EXPECT_TRUE(linkClosed());
            EXPECT_TRUE(result <= 0 && result >= -28) << result;
        }
    }
}

// ---------------------------------------------------------------- chance

TEST_F(HostileCard, WithAnswersDamagedByChance)
{
    std::mt19937 chance(20240611);
    const auto below = [&chance](std::size_t n) {
        return std::uniform_int_distribution<std::size_t>(0, n - 1)(chance);
    };
    const Answers answers;
    int readable = 0;
    for (int round = 0; round < 700; ++round) {
        card.answer = [&](const std::string& apdu) {
            Bytes bytes = fromHex(answers(apdu));
            if (card.asked.size() > 300) {
                return std::string("6A82");
            }
            if (below(4) == 0 && bytes.size() > 2) {
                for (std::size_t i = below(3) + 1; i > 0; --i) {
                    static const std::uint8_t kBytes[] = {0x00, 0xFF, 0x80, 0x81, 0x82, 0x70, 0x61, 0x9D, 0x9F, 0x5A};
                    bytes[below(bytes.size() - 2)] =
                        below(2) == 0 ? kBytes[below(sizeof kBytes)] : static_cast<std::uint8_t>(below(256));
                }
            }
            return toHex(bytes);
        };
        const int result = call(round % 2 == 0 ? "" : "A000000333");
        readable += result == 0 ? 1 : 0;
        expectSound(result);
        if (HasFailure()) {
            FAIL() << "in round " << round;
        }
    }
    EXPECT_GT(readable, 50); // chance reaches the fields
}
