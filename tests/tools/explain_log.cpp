// SPDX-License-Identifier: Apache-2.0
// Log files: taken apart in any pieces, told as a story, copied without what is secret, and made into cards.
#include "tools/explain/log_calls.h"
#include "tools/explain/log_entries.h"
#include "tools/explain/log_reader.h"
#include "tools/explain/log_story.h"
#include "tools/explain/redact.h"
#include "tools/explain/render.h"
#include "tools/explain/transcript.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <future>
#include <sstream>
#include <string>
#include <vector>

namespace {

using vorn::tool::Item;
using vorn::tool::LogCalls;
using vorn::tool::LogStory;
using vorn::tool::Redaction;
using vorn::tool::Transcript;

const std::string kPowerOn = "Indata----------------------icc_poweron\n32 22 01 80 00 \n"
                             "Outdata----------------------icc_poweron\n3B 00 \n";

std::string exchange(const std::string& command, const std::string& answer)
{
    return "Indata----------------------capdu\n32 26 00 " + command + " \nOutdata----------------------capdu\n" +
           answer + " \n";
}

const std::string kSelect = exchange("00 A4 04 00 02 A0 00", "6F 02 84 00 90 00");
const std::string kArguments = "nPortNo:ttyS1,extendPort:,nBaudRate:9600,nTimeout:20,";

std::vector<Item> storyOf(const std::string& log, bool show = false, std::size_t piece = 4096,
                          std::launch how = std::launch::async)
{
    std::vector<Item> items;
    const auto inOrder = [&items](Item item) { return [&items, item = std::move(item)] { items.push_back(item); }; };
    LogStory story(show, inOrder, how);
    for (std::size_t at = 0; at < log.size(); at += piece) {
        const std::string part = log.substr(at, piece);
        story.add(part.data(), part.size());
    }
    story.end();
    return items;
}

std::string told(const std::vector<Item>& items)
{
    std::string text;
    for (const Item& item : items) {
        text += vorn::tool::textOf(item);
    }
    return text;
}

struct EndRow {
    const char* what;
    std::string log;
    bool failed;
    const char* words;    // of the call
    std::size_t exchange; // that is marked; 0: none
};

std::vector<EndRow> endRows()
{
    const std::string info = "begin func IC_GetInfo(" + kArguments + "pnIcType:1,pszAIDlist:,pszTaglist:A\r\n";
    const std::string arqc = "IC_GenARQC " + kArguments + "pnIcType:1,pszAIDlist:,pszTxData:\r\n";
    const std::string completion = "IC_CtlScriptData " + kArguments +
                                   "pnIcType:1,pszTxData:,pszARPC:910A11223344556677883030,icc_tempappdata:01\r\n";
    const std::string aac = "80 0B 00 00 0D 09 D2 F3 39 25 CA 3F A4 90 00";
    return {
        {"a record", info + kPowerOn + kSelect + "pnUsrInfoLen:5\r\npnUsrInfoLen:A000\r\n", false, "done", 0},
        {"no card",
         info + "Indata----------------------icc_poweron\n32 22 01 80 00 \n"
                "Outdata----------------------icc_poweron\n\nvr_openicc outtime!",
         true, "no card in time", 1},
        {"no application",
         info + kPowerOn + exchange("00 A4 04 00 02 A0 00", "6A 82") +
             "vrdk_PseAppSelect fail!return=-26func IC_GetInfo return -26",
         true, "the card does not have this application", 2},
        {"processing options refused",
         arqc + kPowerOn + kSelect + exchange("80 A8 00 00 02 83 00", "69 85") + "[ICC/ICC_COMM_VORN:4054]27013", true,
         "the card refuses this kind of transaction", 3},
        {"no list for the cryptogram",
         arqc + kPowerOn + kSelect + exchange("80 A8 00 00 02 83 00", "80 02 7C 00 90 00") +
             "[ICC/ICC_COMM_VORN:4119]-1(-2)",
         true, "CDOL1", 0},
        {"the issuer's answer is refused",
         completion + exchange("00 82 00 00 02 30 30", "63 00") + exchange("80 AE 40 00 00", aac) +
             "[ICC/ICC_COMM_VORN:5069]0",
         true, "the card did not accept the issuer's answer", 1},
        {"the card refuses on its own", completion + exchange("80 AE 40 00 00", aac) + "[ICC/ICC_COMM_VORN:5069]0",
         true, "AAC", 1},
        {"second cryptogram unanswered", completion + exchange("80 AE 40 00 00", ""), true,
         "Whether the card approved is unknown", 1},
        {"a command without a header, unanswered", completion + exchange("80", ""), true, "no answer", 1},
        {"declined as asked", completion + exchange("80 AE 00 00 00", aac) + "[ICC/ICC_COMM_VORN:5089]0", false, "done",
         0},
        {"a script command fails",
         completion + exchange("80 AE 40 00 00", aac) + "pnTCLen:2,pszTC:9F\r\n" +
             exchange("84 1E 00 00 04 01 02 03 04", "69 88") + "pszScriptResult:DF31051100000000\r\n",
         true, "a command of the issuer's script was refused", 2},
    };
}

TEST(LogStory, SaysHowACallEndedAndMarksTheExchangeThatDecided)
{
    for (const EndRow& row : endRows()) {
        const auto items = storyOf(row.log);
        ASSERT_EQ(items.size(), 1U) << row.what << "\n" << told(items);
        const Item& call = items[0];
        EXPECT_EQ(call.failed, row.failed) << row.what << "\n" << told(items);
        EXPECT_NE(call.words.find(row.words), std::string::npos) << row.what << "\n" << told(items);
        std::size_t marked = 0;
        for (const Item& below : call.below) {
            marked = below.failed && below.number > 0 ? below.number : marked;
        }
        EXPECT_EQ(marked, row.exchange) << row.what << "\n" << told(items);
    }
}

TEST(LogStory, IsTheSameInAnyPieces)
{
    std::string log;
    for (const EndRow& row : endRows()) {
        log += row.log;
    }
    const std::string whole = told(storyOf(log));
    for (const std::size_t piece : {1U, 2U, 7U, 33U}) {
        EXPECT_EQ(told(storyOf(log, false, piece)), whole) << piece;
        EXPECT_EQ(told(storyOf(log, false, piece, std::launch::deferred)), whole) << piece << ", in one thread";
    }
}

TEST(LogStory, ACardsListExplainsTheNextCallUntilPowerComesAgain)
{
    const std::string first = "IC_GenARQC " + kArguments + "pnIcType:1\r\n" + kPowerOn +
                              exchange("00 B2 01 0C 00", "70 08 8C 02 9A 03 8D 02 8A 02 90 00") +
                              exchange("80 AE 80 00 03 26 11 22", "80 00 90 00");
    const std::string second =
        "IC_CtlScriptData " + kArguments + "pnIcType:1\r\n" + exchange("80 AE 40 00 02 30 30", "80 00 90 00");
    const std::string words = "Authorisation response code";
    const auto lastOf = [](const std::string& log) { return vorn::tool::textOf(storyOf(log).back()); };
    EXPECT_EQ(lastOf(second).find(words), std::string::npos);
    EXPECT_NE(lastOf(first + second).find(words), std::string::npos) << lastOf(first + second);
    EXPECT_EQ(lastOf(first + "IC_PowerOn " + kArguments + "\r\n" + kPowerOn + second).find(words), std::string::npos);
}

TEST(LogStory, EveryCutEnds)
{
    std::string log;
    for (const EndRow& row : endRows()) {
        log += row.log;
    }
    for (std::size_t size = 0; size < log.size(); size += 3) {
        told(storyOf(log.substr(0, size)));
        told(storyOf(log.substr(size)));
    }
}

TEST(LogStory, MemoryCardCallsHaveNoExchangesAndTheStorySaysSo)
{
    const std::string text =
        told(storyOf("IC_M1ActiveCard start!recv:6A1F90C2!IC_M1ReadCard start!return OK!IC_M1ReadCard start!"));
    EXPECT_NE(text.find("Memory-card calls write no exchanges"), std::string::npos) << text;
    EXPECT_EQ(text.find("6A1F90C2"), std::string::npos) << text;
    EXPECT_NE(text.find("failed"), std::string::npos) << "the last call did not come to its end\n" << text;
}

TEST(LogStory, AnUnendingCallIsCountedOn)
{
    std::string log = "begin func IC_GetInfo(" + kArguments + "pnIcType:1\r\n";
    for (std::size_t i = 0; i < LogCalls::kMostExchanges + 10; ++i) {
        log += exchange("00 B2 01 0C 00", "6A 83");
    }
    const auto items = storyOf(log);
    ASSERT_EQ(items.size(), 1U);
    EXPECT_LE(items[0].below.size(), LogCalls::kMostExchanges + 3);
    EXPECT_NE(items[0].below.back().words.find("10 more exchanges"), std::string::npos);
}

TEST(LogReader, ALineWithoutEndIsBounded)
{
    std::size_t longest = 0;
    vorn::tool::LogReader reader(
        {[](const vorn::tool::LoggedExchange&) {},
         [&](const std::string& text, std::size_t) { longest = std::max(longest, text.size()); }});
    const std::string piece(65536, 'x');
    for (int i = 0; i < 100; ++i) {
        reader.add(piece.data(), piece.size());
    }
    reader.end();
    EXPECT_EQ(longest, vorn::tool::LogReader::kLongestLine);
}

// ---------------------------------------------------------------- redaction

std::string redacted(const std::string& log, std::size_t* changes = nullptr)
{
    Redaction redaction;
    std::istringstream first(log);
    for (std::string line; std::getline(first, line);) {
        redaction.learn(line + "\n");
    }
    redaction.learnEnd();
    std::string copy;
    const auto write = [&copy](const std::string& text) { copy += text; };
    std::istringstream second(log);
    for (std::string line; std::getline(second, line);) {
        redaction.write(line + "\n", write);
    }
    redaction.writeEnd(write);
    if (changes != nullptr) {
        *changes = redaction.count();
    }
    return copy;
}

TEST(Redaction, KeepsLengthsAndHidesTheSameThingEverywhere)
{
    const std::string record = exchange(
        "00 B2 01 0C 00", "70 22 57 12 62 29 99 00 00 71 02 46 58 9D 30 12 \n22 00 00 07 28 7F 5F 20 0C 43 48 45 "
                          "4E 20 58 49 41 4F 20 20 20 90 00");
    const std::string log = record +
                            "TxDetail:6229990000710246589\r\n"
                            "pnUsrInfoLen:A0196229990000710246589B000K0244348454E205849414F202020\r\n"
                            "note 4348454E205849414F202020\r\n" +
                            exchange("00 84 00 00 08", "41 11 11 11 11 11 11 11 90 00");
    std::size_t changes = 0;
    const std::string copy = redacted(log, &changes);
    ASSERT_EQ(copy.size(), log.size());
    EXPECT_EQ(changes, 4U) << copy;
    for (const char* const secret : {"000071024", "00 00 71 02", "4348454E", "43 48 45", "30122200", "30 12 \n22"}) {
        EXPECT_EQ(copy.find(secret), std::string::npos) << secret << "\n" << copy;
    }
    EXPECT_NE(copy.find("A0196229990000000006589"), std::string::npos) << copy;
    EXPECT_NE(copy.find("62 29 99 00 00 00 00 06 58 9D"), std::string::npos) << copy;
    EXPECT_NE(copy.find("41 11 11 11 11 11 11 11 90 00"), std::string::npos) << "a random number\n" << copy;
    EXPECT_EQ(redacted(copy), copy);
}

// A card's late answer stands behind the reader's own command then: of a name the middle, without its tag.
TEST(Redaction, NothingIsLeftOfALateAnswerBehindPowerOn)
{
    const std::string late = "Indata----------------------icc_poweron\n32 22 01 80 00 \n"
                             "Outdata----------------------icc_poweron\n43 48 45 4E 20 58 49 41 4F 20 90 00 \n";
    const std::string copy = redacted(late);
    EXPECT_EQ(copy.size(), late.size());
    EXPECT_NE(copy.find("00 00 00 00 00 00 00 00 00 00 00 00"), std::string::npos) << copy;
    EXPECT_EQ(told(storyOf(late)).find("4348454E"), std::string::npos) << told(storyOf(late));
}

TEST(Redaction, ALogWithoutSecretsStaysAsItIs)
{
    const std::string log = kPowerOn + kSelect;
    EXPECT_EQ(redacted(log), log);
}

TEST(Redaction, LeavesTheCaseOfADumpAsItIs)
{
    const std::string log = exchange("00 b2 01 0c 00", "70 0a 5a 08 62 29 99 12 34 56 65 89 90 00");
    EXPECT_EQ(redacted(log), exchange("00 b2 01 0c 00", "70 0a 5a 08 62 29 99 00 00 00 65 89 90 00"));
}

// A field that claims more than its line has is hidden with the blanks in it, and ends with its line.
TEST(Redaction, AFieldThatRunsPastItsLineIsHiddenToTheEndOfTheLine)
{
    for (const char* const end : {"\n", "\r\n"}) {
        const std::string log = "K031 1234 5678 9012" + std::string(end) + "next" + end + "B031 D1234" + end;
        EXPECT_EQ(redacted(log), "K031000000000000000" + std::string(end) + "next" + end + "B0310D0000" + end);
    }
}

// ---------------------------------------------------------------- replay

Transcript transcriptOf(const std::string& log)
{
    Transcript transcript;
    vorn::tool::LogReader reader({[&](const vorn::tool::LoggedExchange& logged) { transcript.exchange(logged); },
                                  [&](const std::string& line, std::size_t) { transcript.text(line); }});
    reader.add(log.data(), log.size());
    reader.end();
    transcript.end();
    return transcript;
}

TEST(Transcript, EveryPowerCycleThatWasAskedSomethingIsACard)
{
    const std::string psam = "Indata----------------------icc_poweron\n32 22 01 80 11 \n"
                             "Outdata----------------------icc_poweron\n3B 01 FF \n"
                             "Indata----------------------samicc_capdu\n32 26 11 00 84 00 00 08 \n"
                             "Outdata----------------------samicc_capdu\n01 02 90 00 \n";
    const std::string field = "Indata----------------------picc_Active\n32 24 01 80 \n"
                              "Outdata----------------------picc_Active\n3B 80 80 01 01 \n"
                              "Indata----------------------capdu\n32 26 FF 00 84 00 00 08 \n"
                              "Outdata----------------------capdu\n\n";
    const Transcript transcript = transcriptOf(kPowerOn + kPowerOn + kSelect + psam + field);
    ASSERT_EQ(transcript.cycles().size(), 3U);
    std::string slots;
    for (const auto& cycle : transcript.cycles()) {
        slots += cycle.slot + " ";
        EXPECT_EQ(cycle.exchanges.size(), 1U);
    }
    EXPECT_EQ(slots, "contact psam2 field ");
    const auto profile = vorn::tool::profileOf(transcript.cycles()[2]);
    EXPECT_EQ(profile["cards"][0]["pairs"][0][1], "") << "no answer stays none";
}

TEST(Transcript, WhatATerminalMakesAnewIsLeftOpen)
{
    const Transcript transcript =
        transcriptOf(kPowerOn + exchange("80 AE 80 00 02 11 22", "90 00") + exchange("00 B2 01 0C 00", "6A 83"));
    const auto pairs = vorn::tool::profileOf(transcript.cycles().at(0))["cards"][0]["pairs"];
    EXPECT_EQ(pairs[0][0], "80AE8000*");
    EXPECT_EQ(pairs[1][0], "00B2010C00");
}

TEST(Transcript, APowerOnThatNamesNoSlotIsThatOfTheContactSlot)
{
    for (const char* const command : {"32", "32 22", "32 26", "32 22 01 80"}) {
        const Transcript transcript = transcriptOf("Indata----------------------icc_poweron\n" + std::string(command) +
                                                   " \nOutdata----------------------icc_poweron\n3B 00 \n" + kSelect);
        ASSERT_EQ(transcript.cycles().size(), 1U) << command;
        EXPECT_EQ(transcript.cycles()[0].slot, "contact") << command;
        EXPECT_EQ(transcript.cycles()[0].atr.size(), 2U) << command;
    }
}

// A profile with another answer would not be read again.
TEST(Transcript, AnswersAreThoseThatASimulatedCardCanGive)
{
    std::string longest;
    for (int i = 0; i < 494; ++i) {
        longest += "90 ";
    }
    const std::string ask = "00 84 00 00 08";
    const Transcript transcript =
        transcriptOf(kPowerOn + ::exchange(ask, "83") + ::exchange(ask, longest) + ::exchange(ask, longest + "90"));
    const auto pairs = vorn::tool::profileOf(transcript.cycles().at(0))["cards"][0]["pairs"];
    ASSERT_EQ(pairs.size(), 2U);
    EXPECT_EQ(pairs[0][1], "") << "no status word: the reader's refusal, as for no answer";
    EXPECT_EQ(pairs[1][1].get<std::string>().size(), 2U * 494);
    EXPECT_EQ(transcript.leftOut(), 1U);
}

TEST(Transcript, MemoryCardCallsGiveNoCard)
{
    const Transcript transcript = transcriptOf("IC_M1ActiveCard start!recv:6A1F90C2!\n");
    EXPECT_TRUE(transcript.cycles().empty());
    EXPECT_TRUE(transcript.memoryCards());
}

} // namespace
