// SPDX-License-Identifier: Apache-2.0
// Bytes that are lost, doubled and damaged: every call ends as its header says, a success that is not the truth comes
// of what nobody looks at and of nothing else, and the next customer is served. docs/bad-lines.md counts at length.
#include "support/bad_line.h"

#include "vorn/result.h"

#include <gtest/gtest.h>

#include <stdlib.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <stdexcept>

using namespace vorn::test;

namespace {

class BadLineTest : public ::testing::Test {
protected:
    static void SetUpTestSuite()
    {
        directory = (std::filesystem::temp_directory_path() / "vorn-test-XXXXXX").string();
        if (mkdtemp(directory.data()) == nullptr) {
            throw std::runtime_error("no working directory for the test");
        }
        std::filesystem::current_path(directory);
        line = new BadLine;
    }
    static void TearDownTestSuite()
    {
        delete line;
        std::error_code ignored;
        std::filesystem::current_path("/", ignored);
        std::filesystem::remove_all(directory, ignored);
    }

    static CallPlace placeOf(const std::string& call)
    {
        return *std::find_if(line->places().begin(), line->places().end(),
                             [&](const CallPlace& place) { return line->truth(place).call == call; });
    }

    // What any error may lead to.
    static void expectHonest(const Outcome& outcome, const std::string& where)
    {
        EXPECT_TRUE(outcome.documented) << where << ": " << toText(outcome.record);
        EXPECT_TRUE(outcome.recovered) << where << ": " << toText(outcome.record) << "\nthen\n" << outcome.next;
        EXPECT_NE(outcome.cause, Cause::Unknown) << where << ": " << toText(outcome.record);
        EXPECT_NE(outcome.cause, Cause::ReplyToAnother) << where << ": " << toText(outcome.record);
        EXPECT_FALSE(outcome.ending == Ending::Wrong && outcome.cause == Cause::NotAnswered)
            << where << ": " << toText(outcome.record);
    }

    static std::string directory;
    static BadLine* line;
};
std::string BadLineTest::directory;
BadLine* BadLineTest::line = nullptr;

std::string toText(const OneError& error)
{
    static const char* const kinds[] = {"none", "lost", "doubled", "damaged"};
    return std::string(kinds[static_cast<int>(error.kind)]) + " byte " + std::to_string(error.byte) + " bit " +
           std::to_string(error.bit);
}

// Kinds of single errors, one of them in each half of a character.
std::vector<OneError> errorsAt(std::size_t byte)
{
    return {{OneError::Kind::Lost, byte, 0},
            {OneError::Kind::Doubled, byte, 0},
            {OneError::Kind::Damaged, byte, 0},
            {OneError::Kind::Damaged, byte, 5}};
}

} // namespace

TEST_F(BadLineTest, WithoutErrorsEveryCallIsRight)
{
    for (const CallPlace& place : line->places()) {
        const Outcome outcome = line->run(place, {});
        EXPECT_EQ(outcome.errors, 0U);
        EXPECT_EQ(outcome.ending, Ending::Right) << toText(outcome.record);
        EXPECT_TRUE(outcome.recovered) << outcome.next;
    }
}

TEST_F(BadLineTest, OneErrorInWhatIsSentIsNeverASuccessThatIsNotTheTruth)
{
    for (const char* call : {"IC_SendAPDU", "IC_M1ReadCard", "IC_M1WriteCard"}) {
        const CallPlace place = placeOf(call);
        const std::size_t bytes = line->run(place, {}).bytesToReader;
        ASSERT_GT(bytes, 0U);
        for (std::size_t byte = 0; byte < bytes; ++byte) {
            for (const OneError& error : errorsAt(byte)) {
                BadStretch bad;
                bad.oneToReader = error;
                const Outcome outcome = line->run(place, bad);
                EXPECT_EQ(outcome.errors, 1U);
                EXPECT_TRUE(outcome.ending == Ending::Right || outcome.ending == Ending::Failed)
                    << call << ", " << toText(error) << ": " << vorn::test::toText(outcome.record);
                expectHonest(outcome, std::string(call) + ", " + toText(error));
            }
        }
    }
}

TEST_F(BadLineTest, OneErrorInAReplyIsAWrongSuccessOnlyWhereItsCheckWouldHaveTold)
{
    for (const char* call : {"IC_SendAPDU", "IC_M1ReadCard"}) {
        const CallPlace place = placeOf(call);
        const std::size_t bytes = line->run(place, {}).bytesToHost;
        ASSERT_GT(bytes, 0U);
        std::map<Ending, int> endings;
        for (std::size_t byte = 0; byte < bytes; ++byte) {
            for (const OneError& error : errorsAt(byte)) {
                BadStretch bad;
                bad.oneToHost = error;
                const Outcome outcome = line->run(place, bad);
                const bool asTold = outcome.ending == Ending::Right || outcome.ending == Ending::Failed;
                EXPECT_TRUE(asTold || outcome.cause == Cause::ReplyUnlikeItsCheck)
                    << call << ", " << toText(error) << ": " << vorn::test::toText(outcome.record);
                expectHonest(outcome, std::string(call) + ", " + toText(error));
                ++endings[outcome.ending];
            }
        }
        EXPECT_GT(endings[Ending::Failed], 0) << call;
        EXPECT_GT(endings[Ending::Wrong], 0) << call << ": hosts know that nobody looks at the check byte";
    }
}

TEST_F(BadLineTest, ManyErrorsEndAsDocumentedAndTheNextCustomerIsServed)
{
    constexpr std::uint64_t kTimes = 20;
    int failed = 0;
    for (const CallPlace& place : line->places()) {
        for (std::uint64_t seed = 1; seed <= kTimes; ++seed) {
            BadStretch bad;
            const double rate = seed % 2 == 0 ? 0.002 : 0.02;
            bad.toReader = bad.toHost = {rate / 3, rate / 3, rate / 3};
            bad.seed = seed + 1000 * place.errand + 100 * place.call;
            const Outcome outcome = line->run(place, bad);
            expectHonest(outcome, "seed " + std::to_string(bad.seed));
            failed += outcome.ending == Ending::Failed ? 1 : 0;
        }
    }
    EXPECT_GT(failed, 20) << "the failing calls are to be among them";
}

// The calls with the memory card leave the link open between them.
TEST_F(BadLineTest, ASequenceThatIsBadFromBeginningToEndLeavesNothingToTheNext)
{
    constexpr std::uint64_t kTimes = 10;
    for (std::size_t errand = 0; errand < errands().size(); ++errand) {
        for (std::uint64_t seed = 1; seed <= kTimes; ++seed) {
            BadStretch bad;
            bad.toReader = bad.toHost = {0.005, 0.005, 0.005};
            bad.seed = 100 * seed;
            const SequenceOutcome outcome = line->runAll(errand, bad);
            EXPECT_TRUE(outcome.documented) << errands()[errand].name << ", seed " << seed;
            EXPECT_TRUE(outcome.recovered) << errands()[errand].name << ", seed " << seed;
        }
    }
}

TEST_F(BadLineTest, TheVersionIsNotToldBehindAClosingThatTheReaderDidNotHear)
{
    const CallPlace powerOff = placeOf("IC_PowerOff");
    const std::size_t bytes = line->run(powerOff, {}).bytesToReader;
    constexpr std::size_t kSequences = 4 + 6; // ESC $ I 4, ESC $ B ESC % A
    BadStretch bad;
    EXPECT_EQ(line->versionBehind(powerOff, bad), VORN_OK);
    bad.oneToReader = {OneError::Kind::Lost, bytes - kSequences, 0};
    EXPECT_EQ(line->versionBehind(powerOff, bad), VORN_NO_REPLY);
    bad.oneToReader = {OneError::Kind::Lost, bytes - 1, 0};
    EXPECT_EQ(line->versionBehind(powerOff, bad), VORN_OK);
}
