// SPDX-License-Identifier: Apache-2.0
// The simulated reader by the bytes on its line. Frames are written by the test support, not by the reader's own code.
#include "sim/reader/reader.h"

#include "sim/cards/transcript_card.h"
#include "sim/profiles/profile.h"
#include "sim/reader/fault.h"
#include "sim/reader/pty_port.h"
#include "support/line.h"
#include "support/scripted_reader.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <fstream>
#include <system_error>
#include <thread>

namespace vorn::sim {
namespace {

using namespace std::chrono_literals;
using std::chrono::milliseconds;
using test::frame;
using test::fromHex;
using test::replyFrame;
using test::toHex;
using Strings = std::vector<std::string>;

// Answers every command with its own bytes and 9000; notes what is done with it.
struct EchoCard : Card {
    Strings log;
    Bytes atr = fromHex("3B 02 14 50");

    Bytes powerOn() override
    {
        log.emplace_back("on");
        return atr;
    }
    void powerOff() override { log.emplace_back("off"); }
    Bytes transmit(const Bytes& command) override
    {
        log.push_back(toHex(command));
        Bytes response = command;
        response.insert(response.end(), {0x90, 0x00});
        return response;
    }
};

struct OneBlockCard : MemoryCard {
    Strings log;
    Bytes data = Bytes(kBlockSize, 0x5A);
    bool accept = true;

    Bytes activate() override
    {
        log.emplace_back("on");
        return fromHex("01020304");
    }
    void deactivate() override { log.emplace_back("off"); }
    bool authenticate(unsigned block, Key which, const Bytes& key) override
    {
        log.push_back(std::to_string(block) + (which == Key::A ? " A " : " B ") + toHex(key));
        return accept;
    }
    std::optional<Bytes> read(unsigned block) override
    {
        log.push_back("read " + std::to_string(block));
        return accept ? std::optional(data) : std::nullopt;
    }
    bool write(unsigned block, const Bytes& bytes) override
    {
        log.push_back("write " + std::to_string(block) + " " + toHex(bytes));
        return accept;
    }
};

Bytes joined(const std::vector<Reader::Output>& outputs)
{
    Bytes all;
    for (const auto& output : outputs) {
        all.insert(all.end(), output.bytes.begin(), output.bytes.end());
    }
    return all;
}

class SimReader : public ::testing::Test {
protected:
    milliseconds now{1000};
    Reader reader{[this] { return now; }};
    std::shared_ptr<EchoCard> card = std::make_shared<EchoCard>();
    std::shared_ptr<OneBlockCard> memory = std::make_shared<OneBlockCard>();

    std::string send(const Bytes& bytes, int speed = 0) { return toHex(joined(reader.receive(bytes, speed))); }
    std::string sendHex(const std::string& hex, int speed = 0) { return send(fromHex(hex), speed); }
    std::string command(const std::string& hex) { return send(frame(fromHex(hex))); }
    static std::string reply(int status, const std::string& payload = "")
    {
        return toHex(replyFrame(static_cast<std::uint8_t>(status), fromHex(payload)));
    }
    void fault(const std::string& text) { reader.addFault(parseFault(text).value()); }
};

// ---------------------------------------------------------------- frames

TEST_F(SimReader, AFrameIsTheSameInWhateverPiecesItComes)
{
    reader.insert(Slot::Contact, card);
    const Bytes whole = frame(fromHex("32 22 01 80 00"));
    const std::string answer = reply(0, "3B021450");
    ASSERT_EQ(whole.size(), 18U);
    EXPECT_EQ(send(whole), answer);
    for (std::size_t cut = 1; cut < whole.size(); ++cut) {
        const auto at = whole.begin() + static_cast<std::ptrdiff_t>(cut);
        EXPECT_EQ(send({whole.begin(), at}), "") << cut;
        EXPECT_EQ(send({at, whole.end()}), answer) << cut;
    }
    for (std::size_t i = 0; i + 1 < whole.size(); ++i) {
        EXPECT_EQ(send({whole[i]}), "") << i;
    }
    EXPECT_EQ(send({whole.back()}), answer);
}

TEST_F(SimReader, AnAnswerHasTheFrameOfACommand)
{
    reader.insert(Slot::Contact, card);
    // 0006 32 00 3B 02 14 50, check 32^00^3B^02^14^50 = 4F
    EXPECT_EQ(command("3222018000"), "02"
                                     "30303036"
                                     "3332"
                                     "3030"
                                     "333B"
                                     "3032"
                                     "3134"
                                     "3530"
                                     "343F"
                                     "03");
}

TEST_F(SimReader, TwoFramesInOnePieceGetTwoAnswers)
{
    Bytes two = frame(fromHex("3225 0000"));
    const Bytes second = frame(fromHex("3223 00"));
    two.insert(two.end(), second.begin(), second.end());
    EXPECT_EQ(send(two), reply(0x00) + reply(0x02));
}

TEST_F(SimReader, EveryWayAFrameCanBeWrongIsAnsweredWithF0AndNotCarriedOut)
{
    const Bytes good = frame(fromHex("32 25 00 00"));
    ASSERT_EQ(send(good), reply(0));
    reader.clearHistory();

    struct {
        std::size_t at;
        std::uint8_t byte;
        const char* event;
    } cases[] = {
        {1, 0x31, "bad frame: length"},     {4, 0x35, "bad frame: length"},     {4, 0x33, "bad frame: length"},
        {5, 0x41, "bad frame: characters"}, {6, 0x2F, "bad frame: characters"}, {8, 0x40, "bad frame: characters"},
        {2, 0xB0, "bad frame: characters"}, {13, 0x30, "bad frame: check"},     {14, 0x30, "bad frame: check"},
        {12, 0x31, "bad frame: check"},
    };
    for (const auto& c : cases) {
        Bytes bad = good;
        ASSERT_NE(bad[c.at], c.byte);
        bad[c.at] = c.byte;
        EXPECT_EQ(send(bad), reply(0xF0)) << c.at;
        EXPECT_EQ(reader.events(), Strings{c.event}) << c.at;
        EXPECT_TRUE(reader.exchanges().empty());
        reader.clearHistory();
    }
}

TEST_F(SimReader, AFrameTooShortForItsOwnLengthIsBad)
{
    for (const char* text : {"0203", "023003", "0230303003",
                             "0230303030"
                             "3003",
                             "02303030303003"}) {
        EXPECT_EQ(sendHex(text), reply(0xF0)) << text;
    }
    EXPECT_EQ(sendHex("02 30303030 3030 03"), reply(0xE0)); // a command of no bytes: a frame, but no known command
}

TEST_F(SimReader, AFrameWithoutEndIsNotKeptWithoutBound)
{
    EXPECT_EQ(send(Bytes(1, 0x02)), "");
    EXPECT_EQ(send(Bytes(100000, 0x30)), "");
    EXPECT_EQ(sendHex("03"), reply(0xF0));
    EXPECT_EQ(reader.events(), Strings{"bad frame: too long"});
    EXPECT_EQ(command("32250000"), reply(0));
}

TEST_F(SimReader, AnUnfinishedFrameGivesWayToTheNextOne)
{
    EXPECT_EQ(sendHex("02 30 30 30"), "");
    EXPECT_EQ(command("32250000"), reply(0));
    EXPECT_EQ(reader.events().front(), "bad frame: unfinished");
    EXPECT_EQ(sendHex("02 30 30 1B 24 49 32"), "");
    EXPECT_EQ(reader.listeningSpeed(), 38400);
}

TEST_F(SimReader, BytesOutsideFramesAreIgnored)
{
    Bytes bytes = fromHex("00 03 30 FF");
    const Bytes good = frame(fromHex("32250000"));
    bytes.insert(bytes.end(), good.begin(), good.end());
    EXPECT_EQ(send(bytes), reply(0));
    EXPECT_EQ(reader.events(), (Strings{"power off FF", "ignored 000330FF"}));
}

// ---------------------------------------------------------------- ESC sequences and speed

TEST_F(SimReader, TheSpeedFollowsTheEscapeSequences)
{
    EXPECT_EQ(reader.listeningSpeed(), 9600);
    EXPECT_EQ(sendHex("1B244932"), "");
    EXPECT_EQ(reader.listeningSpeed(), 38400);
    EXPECT_EQ(sendHex("1B244934"), "");
    EXPECT_EQ(reader.listeningSpeed(), 9600);
    EXPECT_EQ(sendHex("1B244932"), "");
    EXPECT_EQ(sendHex("1B24421B2541"), "");
    EXPECT_EQ(reader.listeningSpeed(), 9600);
    EXPECT_EQ(reader.events(), (Strings{"switch 38400", "switch 9600", "switch 38400", "restore"}));
}

TEST_F(SimReader, AnEscapeSequenceIsTheSameInSinglePieces)
{
    for (const std::uint8_t byte : fromHex("1B244932")) {
        EXPECT_EQ(send({byte}), "");
    }
    EXPECT_EQ(reader.listeningSpeed(), 38400);
    for (const std::uint8_t byte : fromHex("1B24421B2541")) {
        EXPECT_EQ(send({byte}), "");
    }
    EXPECT_EQ(reader.listeningSpeed(), 9600);
}

TEST_F(SimReader, UnknownEscapeSequencesAreSkipped)
{
    EXPECT_EQ(sendHex("1B 24 49 33"), "");
    EXPECT_EQ(sendHex("1B 24 1B 24 49 32"), ""); // ESC where none belongs begins a new sequence
    EXPECT_EQ(reader.listeningSpeed(), 38400);
    Bytes broken = fromHex("1B 4B");
    const Bytes good = frame(fromHex("32250000"));
    broken.insert(broken.end(), good.begin(), good.end());
    EXPECT_EQ(send(broken), reply(0));
    EXPECT_EQ(reader.events(), (Strings{"unknown escape 244933", "unknown escape 24", "switch 38400",
                                        "unknown escape 4B", "power off FF"}));
}

TEST_F(SimReader, TheVersionIsToldAt9600Only)
{
    reader.setVersion("V9");
    EXPECT_EQ(sendHex("1B4B544C564E"), "5639");
    sendHex("1B244932");
    EXPECT_EQ(sendHex("1B4B544C564E"), "");
    sendHex("1B244934");
    EXPECT_EQ(sendHex("1B4B544C564E"), "5639");
    reader.setVersion("");
    EXPECT_EQ(sendHex("1B4B544C564E"), "");
    EXPECT_EQ(reader.events(),
              (Strings{"version", "switch 38400", "version ignored at 38400", "switch 9600", "version", "version"}));
}

TEST_F(SimReader, BytesAtAnotherSpeedAreGarbage)
{
    reader.checkLineSpeed(true);
    const Bytes off = frame(fromHex("32250000"));
    EXPECT_EQ(send(off, 38400), "");
    EXPECT_EQ(send(off, 9600), reply(0));
    EXPECT_EQ(sendHex("1B244932", 38400), "");
    EXPECT_EQ(reader.listeningSpeed(), 9600);
    EXPECT_EQ(sendHex("1B244932", 9600), "");
    EXPECT_EQ(reader.listeningSpeed(), 38400);
    EXPECT_EQ(send(off, 9600), "");
    EXPECT_EQ(send(off, 38400), reply(0));
    EXPECT_EQ(send(off, 0), reply(0)); // a link without a speed
    EXPECT_EQ(reader.events(), (Strings{"garbage: 16 bytes at 38400", "power off FF", "garbage: 4 bytes at 38400",
                                        "switch 38400", "garbage: 16 bytes at 9600", "power off FF", "power off FF"}));
}

TEST_F(SimReader, NoByteAtAnotherSpeedIsTakenForTheBeginningOfAnything)
{
    reader.checkLineSpeed(true);
    Bytes all;
    for (unsigned b = 0; b < 256; ++b) {
        all.push_back(static_cast<std::uint8_t>(b));
    }
    EXPECT_EQ(send(all, 38400), "");
    EXPECT_EQ(reader.events(), Strings{"garbage: 256 bytes at 38400"});
}

TEST_F(SimReader, WithoutTheSwitchTheSpeedDoesNotMatter)
{
    EXPECT_EQ(send(frame(fromHex("32250000")), 115200), reply(0));
}

// ---------------------------------------------------------------- commands

TEST_F(SimReader, EmptySlotsSayNoCard)
{
    for (const char* slot : {"00", "10", "11", "12", "13"}) {
        EXPECT_EQ(command(std::string("32220180") + slot), reply(0x02)) << slot;
        EXPECT_EQ(command(std::string("3223") + slot), reply(0x02)) << slot;
        EXPECT_EQ(command(std::string("3226") + slot + "00A4040000"), reply(0x02)) << slot;
    }
    EXPECT_EQ(command("32240180"), reply(0x06));
    EXPECT_EQ(command("3226FF00A4040000"), reply(0x06));
    EXPECT_EQ(command("32410100"), reply(0x06));
    EXPECT_EQ(command("32420460 FFFFFFFFFFFF"), reply(0x06));
    EXPECT_EQ(command("324304"), reply(0x06));
    EXPECT_EQ(command("324404" + std::string(32, '0')), reply(0x06));
    EXPECT_EQ(command("32250000"), reply(0x00)); // switching the field off needs no card
}

TEST_F(SimReader, EverySlotHasItsOwnCard)
{
    struct {
        Slot slot;
        const char* byte;
    } slots[] = {
        {Slot::Contact, "00"}, {Slot::Psam1, "10"}, {Slot::Psam2, "11"}, {Slot::Psam3, "12"}, {Slot::Psam4, "13"}};
    std::vector<std::shared_ptr<EchoCard>> cards;
    for (const auto& s : slots) {
        cards.push_back(std::make_shared<EchoCard>());
        cards.back()->atr = {0x3B, static_cast<std::uint8_t>(s.slot)};
        reader.insert(s.slot, cards.back());
    }
    for (const auto& s : slots) {
        const std::string byte = s.byte;
        EXPECT_FALSE(reader.powered(s.slot));
        EXPECT_EQ(command("32220180" + byte), reply(0, "3B" + byte));
        EXPECT_TRUE(reader.powered(s.slot));
        EXPECT_EQ(command("3226" + byte + "80CA9F36" + byte), reply(0, "80CA9F36" + byte + "9000"));
        EXPECT_EQ(command("3223" + byte), reply(0));
        EXPECT_FALSE(reader.powered(s.slot));
    }
    for (std::size_t i = 0; i < cards.size(); ++i) {
        EXPECT_EQ(cards[i]->log, (Strings{"on", std::string("80CA9F36") + slots[i].byte, "off"})) << i;
    }
}

TEST_F(SimReader, ACardInTheFieldIsActivatedAndSpokenToUnderFF)
{
    reader.insert(Slot::Field, card);
    EXPECT_EQ(command("32240180"), reply(0, "3B021450"));
    EXPECT_EQ(command("3226FF0084000008"), reply(0, "00840000089000"));
    EXPECT_TRUE(reader.powered(Slot::Field));
    EXPECT_EQ(command("32250000"), reply(0));
    EXPECT_FALSE(reader.powered(Slot::Field));
    EXPECT_EQ(reader.events(), (Strings{"power on FF", "power off FF"}));
}

TEST_F(SimReader, PoweringAPoweredCardResetsIt)
{
    reader.insert(Slot::Contact, card);
    command("3222018000");
    EXPECT_EQ(command("3222018000"), reply(0, "3B021450"));
    EXPECT_EQ(card->log, (Strings{"on", "off", "on"}));
}

TEST_F(SimReader, AnUnpoweredCardGetsNoApdu)
{
    reader.insert(Slot::Contact, card);
    reader.insert(Slot::Field, card);
    EXPECT_EQ(command("32260000A4040000"), reply(0x03));
    EXPECT_EQ(command("3226FF00A4040000"), reply(0x03));
    EXPECT_EQ(command("322300"), reply(0));
    EXPECT_TRUE(card->log.empty());
}

TEST_F(SimReader, ACardThatSaysNothingIsMute)
{
    card->atr.clear();
    reader.insert(Slot::Contact, card);
    EXPECT_EQ(command("3222018000"), reply(0x04));
    EXPECT_FALSE(reader.powered(Slot::Contact));

    const auto half = std::make_shared<TranscriptCard>(fromHex("3B00"), std::vector<TranscriptCard::Pair>{},
                                                       TranscriptCard::Order::Any, fromHex("90"));
    reader.insert(Slot::Contact, half);
    command("3222018000");
    EXPECT_EQ(command("32260000A40400"), reply(0x04));
}

TEST_F(SimReader, AnAnswerLongerThanAFrameIsRefused)
{
    reader.insert(Slot::Contact, card);
    command("3222018000");
    const std::string longest(2 * 492, '1');
    EXPECT_EQ(command("322600" + longest), reply(0, longest + "9000"));
    EXPECT_EQ(command("322600" + longest + "11"), reply(0x05));
}

TEST_F(SimReader, ACardModelThatFailsDoesNotTakeTheReaderAlong)
{
    struct Broken : EchoCard {
        Bytes transmit(const Bytes&) override { throw std::runtime_error("out of order"); }
    };
    reader.insert(Slot::Contact, std::make_shared<Broken>());
    command("3222018000");
    EXPECT_EQ(command("32260000A40400"), reply(0x04));
    EXPECT_EQ(reader.events().back(), "card failed: out of order");
}

TEST_F(SimReader, UnknownCommandsSlotsAndParametersAreRefused)
{
    reader.insert(Slot::Contact, card);
    for (const char* text : {"3200", "32270000", "3245", "3122018000", "32"}) {
        EXPECT_EQ(command(text), reply(0xE0)) << text;
    }
    for (const char* text :
         {"3222018001", "322201800F", "3222018014", "32220180FF", "322320", "3223FF", "322614 00A4"}) {
        EXPECT_EQ(command(text), reply(0x0A)) << text;
    }
    for (const char* text : {"32220180",
                             "322201800000",
                             "3222008000",
                             "3222018100",
                             "3223",
                             "32230000",
                             "322401",
                             "32240181",
                             "3224018000",
                             "3225",
                             "322500",
                             "32250100",
                             "3225000000",
                             "322600",
                             "3226",
                             "32410101",
                             "324101",
                             "324204 60 FFFFFFFFFF",
                             "324204 60 FFFFFFFFFFFFFF",
                             "3243",
                             "32430404",
                             "324404",
                             "324404 00"}) {
        EXPECT_EQ(command(text), reply(0xE1)) << text;
    }
    EXPECT_TRUE(card->log.empty());
}

TEST_F(SimReader, AMemoryCardIsSpokenToBlockByBlock)
{
    reader.insert(memory);
    const std::string data = "000102030405060708090A0B0C0D0E0F";
    EXPECT_EQ(command("324304"), reply(0x03)); // not activated
    EXPECT_EQ(command("32410100"), reply(0, "01020304"));
    EXPECT_TRUE(reader.powered(Slot::Field));
    EXPECT_EQ(command("32420460A0A1A2A3A4A5"), reply(0));
    EXPECT_EQ(command("324304"), reply(0, std::string("5A5A5A5A5A5A5A5A5A5A5A5A5A5A5A5A")));
    EXPECT_EQ(command("3244FE" + data), reply(0));
    EXPECT_EQ(command("32250000"), reply(0));
    EXPECT_EQ(memory->log, (Strings{"on", "4 A A0A1A2A3A4A5", "read 4", "write 254 " + data, "off"}));
}

TEST_F(SimReader, WhatAMemoryCardRefusesIsToldApart)
{
    reader.insert(memory);
    command("32410100");
    memory->accept = false;
    EXPECT_EQ(command("32420460A0A1A2A3A4A5"), reply(0x07));
    EXPECT_EQ(command("324304"), reply(0x08));
    EXPECT_EQ(command("324404" + std::string(32, '0')), reply(0x08));
}

TEST_F(SimReader, TheKeyModeNamesTheKey)
{
    reader.insert(memory);
    command("32410100");
    for (const char* a : {"60", "41", "00"}) {
        EXPECT_EQ(command(std::string("324208") + a + "010203040506"), reply(0)) << a;
    }
    for (const char* b : {"61", "42", "01"}) {
        EXPECT_EQ(command(std::string("324208") + b + "010203040506"), reply(0)) << b;
    }
    for (const char* neither : {"02", "30", "62", "FF"}) {
        EXPECT_EQ(command(std::string("324208") + neither + "010203040506"), reply(0xE1)) << neither;
    }
    const std::string a = "8 A 010203040506", b = "8 B 010203040506";
    EXPECT_EQ(memory->log, (Strings{"on", a, a, a, b, b, b}));
}

TEST_F(SimReader, EachKindOfContactlessCardAnswersItsOwnActivationOnly)
{
    reader.insert(Slot::Field, card);
    EXPECT_EQ(command("32410100"), reply(0x06));
    EXPECT_EQ(command("32240180"), reply(0, "3B021450"));
    reader.remove(Slot::Field);
    reader.insert(memory);
    EXPECT_EQ(command("32240180"), reply(0x06));
    EXPECT_EQ(command("32410100"), reply(0, "01020304"));
}

TEST_F(SimReader, TheHistoryTellsEveryExchange)
{
    reader.insert(Slot::Contact, card);
    command("3222018000");
    command("3222018010");
    ASSERT_EQ(reader.exchanges().size(), 2U);
    EXPECT_EQ(toHex(reader.exchanges()[0].command), "3222018000");
    EXPECT_EQ(reader.exchanges()[0].status, 0);
    EXPECT_EQ(toHex(reader.exchanges()[0].payload), "3B021450");
    EXPECT_TRUE(reader.exchanges()[0].answered);
    EXPECT_EQ(reader.exchanges()[1].status, 2);
    reader.clearHistory();
    EXPECT_TRUE(reader.exchanges().empty());
    EXPECT_TRUE(reader.events().empty());
}

// ---------------------------------------------------------------- cards that come and go

TEST_F(SimReader, ALateCardAppearsWhenItsTimeHasCome)
{
    reader.insert(Slot::Contact, card, 2500ms);
    reader.insert(memory, 10ms);
    EXPECT_EQ(command("3222018000"), reply(0x02));
    EXPECT_EQ(command("32410100"), reply(0x06));
    now += 10ms;
    EXPECT_EQ(command("32410100"), reply(0, "01020304"));
    now += 2489ms;
    EXPECT_EQ(command("3222018000"), reply(0x02));
    now += 1ms;
    EXPECT_EQ(command("3222018000"), reply(0, "3B021450"));
}

TEST_F(SimReader, ACardPulledAndPutBackHasNoPower)
{
    reader.insert(Slot::Contact, card);
    command("3222018000");
    reader.remove(Slot::Contact);
    EXPECT_FALSE(reader.powered(Slot::Contact));
    EXPECT_EQ(command("32260000A4040000"), reply(0x02));
    reader.insert(Slot::Contact, card);
    EXPECT_EQ(command("32260000A4040000"), reply(0x03));
    command("3222018000");
    reader.insert(Slot::Contact, card); // without a pull in between
    EXPECT_EQ(command("32260000A4040000"), reply(0x03));
    EXPECT_EQ(card->log, (Strings{"on", "off", "on", "off"}));
}

TEST_F(SimReader, RemovingFromTheFieldTakesBothKinds)
{
    reader.insert(Slot::Field, card);
    reader.insert(memory);
    command("32240180");
    command("32410100");
    reader.remove(Slot::Field);
    EXPECT_FALSE(reader.powered(Slot::Field));
    EXPECT_EQ(command("32240180"), reply(0x06));
    EXPECT_EQ(command("32410100"), reply(0x06));
    EXPECT_EQ(card->log.back(), "off");
    EXPECT_EQ(memory->log.back(), "off");
}

// ---------------------------------------------------------------- faults

TEST_F(SimReader, AStatusFaultAnswersInPlaceOfTheCard)
{
    reader.insert(Slot::Contact, card);
    fault("status=06@2");
    EXPECT_EQ(command("3222018000"), reply(0, "3B021450"));
    EXPECT_EQ(command("3222018000"), reply(0x06));
    EXPECT_EQ(command("3222018000"), reply(0, "3B021450"));
    EXPECT_EQ(card->log, (Strings{"on", "off", "on"}));
}

TEST_F(SimReader, SilenceCarriesTheCommandOutAndSaysNothing)
{
    reader.insert(Slot::Contact, card);
    fault("silence@1");
    EXPECT_EQ(command("3222018000"), "");
    EXPECT_EQ(card->log, Strings{"on"});
    ASSERT_EQ(reader.exchanges().size(), 1U);
    EXPECT_FALSE(reader.exchanges()[0].answered);
    EXPECT_EQ(reader.exchanges()[0].status, 0);
}

TEST_F(SimReader, NoiseComesBeforeTheFrameAndHoldsNoStx)
{
    fault("noise=300");
    const Bytes answer = fromHex(command("32250000"));
    const Bytes expected = replyFrame(0, {});
    ASSERT_EQ(answer.size(), 300 + expected.size());
    EXPECT_EQ(std::find(answer.begin(), answer.end(), 0x02) - answer.begin(), 300);
    EXPECT_EQ(Bytes(answer.begin() + 300, answer.end()), expected);
    EXPECT_NE(std::find(answer.begin(), answer.begin() + 300, 0x03), answer.begin() + 300);
}

TEST_F(SimReader, AWrongCheckByteIsTheOnlyDifference)
{
    fault("check");
    const Bytes answer = fromHex(command("32250000"));
    Bytes expected = replyFrame(0, {});
    ASSERT_EQ(answer.size(), expected.size());
    EXPECT_NE(answer, expected);
    expected[10] = answer[10]; // STX, length 4, content 4, check 2
    EXPECT_EQ(answer, expected);
}

TEST_F(SimReader, FramesCanBeShortLongOrWithoutEnd)
{
    const std::string expected = reply(0);
    fault("short=3@1");
    EXPECT_EQ(command("32250000"), expected.substr(0, 2 * 8) + "03");
    fault("short=1000@2");
    EXPECT_EQ(command("32250000"), "0203"); // STX and ETX always stand
    fault("long=2@3");
    EXPECT_EQ(command("32250000"), expected.substr(0, 2 * 11) + "3F3F03");
    fault("noend@4");
    EXPECT_EQ(command("32250000"), expected.substr(0, 2 * 11));
}

TEST_F(SimReader, ADelayIsTheAnswersOwn)
{
    fault("delay=200@2");
    EXPECT_EQ(reader.receive(frame(fromHex("32250000"))).at(0).delay, 0ms);
    EXPECT_EQ(reader.receive(frame(fromHex("32250000"))).at(0).delay, 200ms);
}

TEST_F(SimReader, APullTakesTheUsersCardBeforeTheCommandAndLeavesThePsams)
{
    const auto psam = std::make_shared<EchoCard>();
    reader.insert(Slot::Contact, card);
    reader.insert(memory);
    reader.insert(Slot::Psam1, psam);
    command("3222018000");
    command("3222018010");
    fault("pull@3");
    EXPECT_EQ(command("32260000A4040000"), reply(0x02));
    EXPECT_EQ(command("32410100"), reply(0x06));
    EXPECT_EQ(command("32261000A4"), reply(0, "00A49000"));
    EXPECT_EQ(card->log, (Strings{"on", "off"}));
}

TEST_F(SimReader, FaultsCanBeBoundToAnOperationAndCombined)
{
    fault("status=55/25");
    fault("noise=1/25");
    fault("status=66@2/23");
    EXPECT_EQ(command("32250000").substr(2), reply(0x55));
    EXPECT_EQ(command("322300"), reply(0x66));
    EXPECT_EQ(command("322300"), reply(0x02));
    reader.clearFaults();
    EXPECT_EQ(command("32250000"), reply(0));
}

TEST(SimFault, TheTextFormsAreRead)
{
    struct {
        const char* text;
        Fault::Kind kind;
        int value;
        int command;
        int operation;
    } cases[] = {
        {"status=06@3", Fault::Kind::Status, 6, 3, -1},     {"status=ff", Fault::Kind::Status, 255, 0, -1},
        {"status=0", Fault::Kind::Status, 0, 0, -1},        {"silence@4", Fault::Kind::Silence, 0, 4, -1},
        {"silence", Fault::Kind::Silence, 0, 0, -1},        {"noise=5", Fault::Kind::Noise, 5, 0, -1},
        {"check/26", Fault::Kind::WrongCheck, 0, 0, 0x26},  {"short=1", Fault::Kind::Short, 1, 0, -1},
        {"long=12@1", Fault::Kind::Long, 12, 1, -1},        {"noend", Fault::Kind::NoEnd, 0, 0, -1},
        {"delay=200/26", Fault::Kind::Delay, 200, 0, 0x26}, {"pull@7", Fault::Kind::Pull, 0, 7, -1},
        {"pull@7/2a", Fault::Kind::Pull, 0, 7, 0x2A},
    };
    for (const auto& c : cases) {
        const auto fault = parseFault(c.text);
        ASSERT_TRUE(fault) << c.text;
        EXPECT_EQ(fault->kind, c.kind) << c.text;
        EXPECT_EQ(fault->value, c.value) << c.text;
        EXPECT_EQ(fault->command, c.command) << c.text;
        EXPECT_EQ(fault->operation ? *fault->operation : -1, c.operation) << c.text;
    }
}

TEST(SimFault, OtherTextsAreRefused)
{
    for (const char* text :
         {"",           "statu=06",  "status",      "status=",   "status=100", "status=-1",
          "status=0x6", "status=g",  "Status=06",   "silence=1", "noise",      "noise=0",
          "noise=x",    "noise=-5",  "noise=5 ",    " noise=5",  "short",      "short=0",
          "long=",      "noend=1",   "check=1",     "delay",     "delay=0",    "delay=99999999999999999999",
          "pull@0",     "pull@",     "pull@x",      "pull@-1",   "pull/",      "pull/100",
          "pull/x",     "pull/26@3", "status@3=06", "pull@1@2",  "pull/1/2",   "@3",
          "/26",        "=06"}) {
        EXPECT_FALSE(parseFault(text)) << text;
    }
}

// ---------------------------------------------------------------- transcripts

TranscriptCard::Pair pair(const std::string& command, const std::string& response)
{
    return {TranscriptCard::parsePattern(command).value(), fromHex(response)};
}

TEST(SimTranscript, TheFirstFittingPairAnswers)
{
    TranscriptCard card(fromHex("3B00"), {pair("00B2 01 ?? 00", "019000"), pair("00B2*", "6A83"), pair("0084", "6700")},
                        TranscriptCard::Order::Any, fromHex("6D00"));
    EXPECT_EQ(toHex(card.powerOn()), "3B00");
    for (int turn = 0; turn < 2; ++turn) {
        EXPECT_EQ(toHex(card.transmit(fromHex("00B2010C00"))), "019000");
        EXPECT_EQ(toHex(card.transmit(fromHex("00B2011400"))), "019000");
        EXPECT_EQ(toHex(card.transmit(fromHex("00B2020C00"))), "6A83");
        EXPECT_EQ(toHex(card.transmit(fromHex("00B2"))), "6A83");
        EXPECT_EQ(toHex(card.transmit(fromHex("008400"))), "6D00");
    }
}

TEST(SimTranscript, ACommandListedAgainGetsItsResponsesInTurn)
{
    TranscriptCard card({}, {pair("0084", "01"), pair("0084", "02")}, TranscriptCard::Order::Any, {});
    const auto next = [&card] { return toHex(card.transmit(fromHex("0084"))); };
    for (const char* response : {"01", "02", "02"}) {
        EXPECT_EQ(next(), response);
    }
    card.powerOn();
    EXPECT_EQ(next(), "01");
}

TEST(SimTranscript, AStrictTranscriptKeepsItsOrder)
{
    TranscriptCard card({}, {pair("01", "A1"), pair("02", "A2")}, TranscriptCard::Order::Strict, fromHex("6F00"));
    const auto ask = [&card](const char* command) { return toHex(card.transmit(fromHex(command))); };
    EXPECT_EQ(ask("02"), "6F00");
    EXPECT_EQ(ask("01"), "A1");
    EXPECT_EQ(ask("01"), "6F00");
    EXPECT_EQ(ask("02"), "A2");
    EXPECT_EQ(ask("02"), "6F00");
    card.powerOn();
    EXPECT_EQ(ask("01"), "A1");
}

TEST(SimTranscript, PatternsThatAreNoneAreRefused)
{
    for (const char* text : {"0", "0G", "?", "0?", "00*01", "**", "00 A"}) {
        EXPECT_FALSE(TranscriptCard::parsePattern(text)) << text;
    }
}

// ---------------------------------------------------------------- profiles

class SimProfile : public ::testing::Test {
protected:
    Reader reader{[] { return milliseconds(0); }};

    static Profile profile(const std::string& json) { return {"test", "dir/test.json", json}; }
    std::string complaint(const std::string& json)
    {
        try {
            load(profile(json), reader);
        } catch (const ProfileError& error) {
            return error.what();
        }
        return "no complaint";
    }
    std::string ask(const std::string& hex) { return toHex(joined(reader.receive(frame(fromHex(hex))))); }
    static std::string reply(int status, const std::string& payload = "")
    {
        return toHex(replyFrame(static_cast<std::uint8_t>(status), fromHex(payload)));
    }
};

TEST_F(SimProfile, PutsCardsVersionAndFaultsIntoTheReader)
{
    load(profile(R"({
        "name": "Test", "comment": "any", "version": "V7",
        "cards": [
            {"slot": "psam4", "type": "transcript", "atr": "3B 01 02", "pairs": [["0084*", "61 02"]]},
            {"slot": "field", "type": "memory", "uid": "0A0B0C0D"},
            {"slot": "field", "type": "transcript", "atr": "3B80", "pairs": [], "after_ms": 1}
        ],
        "faults": ["status=99@2"]})"),
         reader);
    EXPECT_EQ(ask("3222018013"), reply(0, "3B0102"));
    EXPECT_EQ(ask("3226130084000008"), reply(0x99));
    EXPECT_EQ(ask("3226130084000008"), reply(0, "6102"));
    EXPECT_EQ(ask("32261300B0"), reply(0, "6D00"));
    EXPECT_EQ(ask("32410100"), reply(0, "0A0B0C0D"));
    EXPECT_EQ(ask("32240180"), reply(6)); // not there yet
    EXPECT_EQ(toHex(joined(reader.receive(fromHex("1B4B544C564E")))), "5637");
}

TEST_F(SimProfile, ComplaintsNameFilePlaceAndWhatIsExpected)
{
    const std::string transcript = R"("type":"transcript","atr":"3B00")";
    const auto withCard = [](const std::string& card) { return R"({"cards":[)" + card + "]}"; };
    struct {
        std::string json;
        const char* text;
    } cases[] = {
        {"[]", "dir/test.json: profile: expected an object, found []"},
        {R"({"card":[]})", "dir/test.json: profile.card: unknown here; known are name, comment, version, cards, "
                           "faults, issuer"},
        {R"({"name":1})", "dir/test.json: profile.name: expected a text, found 1"},
        {R"({"version":["V1"]})", R"(dir/test.json: version: expected a text, found ["V1"])"},
        {R"({"cards":{}})", "dir/test.json: cards: expected a list, found {}"},
        {R"({"cards":[7]})", "dir/test.json: cards[0]: expected an object, found 7"},
        {withCard("{}"), R"(dir/test.json: cards[0]: "slot" is missing)"},
        {withCard(R"({"slot":"psam5"})"),
         R"(dir/test.json: cards[0].slot: expected contact, field, or psam1 to psam4, found "psam5")"},
        {withCard(R"({"slot":"contact"})"), R"(dir/test.json: cards[0]: "type" is missing)"},
        {withCard(R"({"slot":"contact","type":"chip"})"),
         R"(dir/test.json: cards[0].type: expected emv, transcript or memory, found "chip")"},
        {withCard(R"({"slot":"contact","type":"memory","uid":"01020304"})"),
         R"(dir/test.json: cards[0].slot: expected field, the only place for a memory card, found "contact")"},
        {withCard(R"({"slot":"contact","after_ms":-1,)" + transcript + "}"),
         "dir/test.json: cards[0].after_ms: expected a number from 0 to 86400000, found -1"},
        {withCard(R"({"slot":"contact","after_ms":1.5,)" + transcript + "}"),
         "dir/test.json: cards[0].after_ms: expected a number from 0 to 86400000, found 1.5"},
        {withCard(R"({"slot":"contact","type":"transcript","atr":"3B0","pairs":[]})"),
         R"(dir/test.json: cards[0].atr: expected hex text, two digits a byte, found "3B0")"},
        {withCard(R"({"slot":"contact",)" + transcript + "}"), R"(dir/test.json: cards[0]: "pairs" is missing)"},
        {withCard(R"({"slot":"contact","pairs":[["00"]],)" + transcript + "}"),
         R"(dir/test.json: cards[0].pairs[0]: expected a pair [command, response], found ["00"])"},
        {withCard(R"({"slot":"contact","pairs":[["00","9000"],["0?","9000"]],)" + transcript + "}"),
         "dir/test.json: cards[0].pairs[1][0]: expected a command in hex, ?? for any byte, * at the end for any rest, "
         R"(found "0?")"},
        {withCard(R"({"slot":"contact","pairs":[["00","90"]],)" + transcript + "}"),
         "dir/test.json: cards[0].pairs[0][1]: expected a response of 2 to 494 bytes, its status word at the end, or "
         "none, "
         R"(found "90")"},
        {withCard(R"({"slot":"contact","order":"odd","pairs":[],)" + transcript + "}"),
         R"(dir/test.json: cards[0].order: expected any or strict, found "odd")"},
        {withCard(R"({"slot":"contact","pairs":[],"art":"",)" + transcript + "}"),
         "dir/test.json: cards[0].art: unknown here; known are slot, after_ms, type, comment, atr, order, otherwise, "
         "pairs"},
        {withCard(R"({"slot":"psam1","pairs":[],)" + transcript + R"(},{"slot":"psam1","pairs":[],)" + transcript +
                  "}"),
         R"(dir/test.json: cards[1].slot: expected a slot that no card above lies in, found "psam1")"},
        {withCard(R"({"slot":"field","type":"memory"})"), R"(dir/test.json: cards[0]: "uid" is missing)"},
        {withCard(R"({"slot":"field","type":"memory","uid":"0102"})"),
         R"(dir/test.json: cards[0].uid: expected 4 or 7 bytes of hex text, found "0102")"},
        {withCard(R"({"slot":"field","type":"memory","uid":"01020304","size":2048})"),
         "dir/test.json: cards[0].size: expected 1024 or 4096, found 2048"},
        {withCard(R"({"slot":"field","type":"memory","image":"x","uid":"01020304"})"),
         R"(dir/test.json: cards[0]: "uid" and "size" stand in the image already)"},
        {withCard(R"({"slot":"field","type":"memory","image":"no such file"})"),
         "dir/test.json: cards[0].image: dir/no such file: cannot be read"},
        {withCard(R"({"slot":"field","type":"memory","uid":"01020304","blocks":{"64":"00"}})"),
         "dir/test.json: cards[0].blocks.64: expected a block number from 0 to 63"},
        {withCard(R"({"slot":"field","type":"memory","uid":"01020304","blocks":{"4":"00"}})"),
         R"(dir/test.json: cards[0].blocks.4: expected 16 bytes of hex text, found "00")"},
        {withCard(R"({"slot":"field","type":"memory","uid":"01020304","blocks":{"4":{"value":1}}})"),
         R"(dir/test.json: cards[0].blocks.4: "address" is missing)"},
        {withCard(R"({"slot":"field","type":"memory","uid":"01020304","blocks":{"4":5}})"),
         "dir/test.json: cards[0].blocks.4: expected 16 bytes of hex text, or an object with value and address, "
         "found 5"},
        {R"({"faults":["stop"]})",
         "dir/test.json: faults[0]: expected a fault such as status=06@3, silence@4, noise=5, delay=200/26 or pull@7, "
         R"(found "stop")"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(complaint(c.json), c.text) << c.json;
    }
}

TEST_F(SimProfile, TextThatIsNoJsonIsPlaced)
{
    const std::string text = complaint("{\n  \"name\": \"a\",\n  oops\n}");
    EXPECT_EQ(text.rfind("dir/test.json: no JSON: parse error at line 3, column 3", 0), 0U) << text;
}

TEST_F(SimProfile, ANumberBeyondAllTypesIsNamed)
{
    EXPECT_EQ(complaint(R"({"cards":[{"slot":"contact","after_ms":1e999}]})"),
              "dir/test.json: a number that is too large: number overflow parsing '1e999'");
}

TEST_F(SimProfile, AProfileWithAMistakeChangesNothing)
{
    EXPECT_NE(complaint(R"({"version":"V1","cards":[{"slot":"contact","type":"transcript","atr":"3B00","pairs":[]}],
                            "faults":["stop"]})"),
              "no complaint");
    EXPECT_EQ(ask("3222018000"), reply(2));
    EXPECT_NE(toHex(joined(reader.receive(fromHex("1B4B544C564E")))), "5631");
}

TEST_F(SimProfile, ShippedProfilesAreFoundByNameAndLoad)
{
    const Strings names = shippedProfiles();
    for (const char* name : {"memory", "psam", "wallet"}) {
        EXPECT_NE(std::find(names.begin(), names.end(), name), names.end()) << name;
    }
    for (const std::string& name : names) {
        Reader fresh;
        const Profile found = findProfile(name);
        EXPECT_EQ(found.name, name);
        EXPECT_NO_THROW(load(found, fresh)) << name;
    }
}

TEST_F(SimProfile, AnUnknownNameListsTheKnownOnes)
{
    try {
        findProfile("nonesuch");
        FAIL();
    } catch (const ProfileError& error) {
        const std::string text = error.what();
        EXPECT_EQ(text.rfind("nonesuch: no such profile; known are ", 0), 0U) << text;
        EXPECT_NE(text.find("memory"), std::string::npos);
    }
    EXPECT_THROW(findProfile("./nonesuch"), ProfileError);
    EXPECT_THROW(findProfile("nonesuch.json"), ProfileError);
}

TEST_F(SimProfile, TheUsersOwnDirectoryComesFirst)
{
    std::string directory = ::testing::TempDir() + "profilesXXXXXX";
    ASSERT_NE(::mkdtemp(directory.data()), nullptr);
    std::ofstream(directory + "/memory.json") << R"({"name":"mine"})";
    ::setenv("VORN_PROFILES", directory.c_str(), 1);
    const Profile found = findProfile("memory");
    ::unsetenv("VORN_PROFILES");
    EXPECT_EQ(found.path, directory + "/memory.json");
    EXPECT_EQ(found.json, R"({"name":"mine"})");
    EXPECT_EQ(findProfile(directory + "/memory.json").json, found.json);
    ::unlink((directory + "/memory.json").c_str());
    ::rmdir(directory.c_str());
}

TEST_F(SimProfile, TheWalletKnowsItsSecondApplicationHoweverOftenItIsAsked)
{
    load(findProfile("wallet"), reader);
    ask("3222018000");
    for (int turn = 0; turn < 2; ++turn) {
        EXPECT_EQ(ask("322600 00A4040006A00000087250"), reply(0, "6A82"));
        EXPECT_EQ(ask("322600 00A4040006A00000087249"),
                  reply(0, "6F15 8406A00000087249 A50B 5009444947205055525345 9000"));
        EXPECT_EQ(ask("322600 8022000300"), reply(0, "3156201908770042 5F58020102 9000"));
    }
}

// ---------------------------------------------------------------- history

TEST(SimHistory, KeepsTheLatestOfAReaderThatRunsForWeeks)
{
    Reader reader{[] { return milliseconds(0); }};
    const Bytes off = frame(fromHex("32250000"));
    for (std::size_t i = 0; i < 3 * Reader::kHistory; ++i) {
        reader.receive(off);
    }
    reader.receive(frame(fromHex("32FF")));
    reader.receive(fromHex("1B244932"));
    for (const std::size_t size : {reader.exchanges().size(), reader.events().size()}) {
        EXPECT_GE(size, Reader::kHistory);
        EXPECT_LE(size, 2 * Reader::kHistory);
    }
    EXPECT_EQ(toHex(reader.exchanges().back().command), "32FF");
    EXPECT_EQ(reader.events().back(), "switch 38400");
}

// ---------------------------------------------------------------- the pseudo-terminal

constexpr int kPatienceMs = 60000; // for what must come; never a measure

template <class F>
bool inTheEnd(F done)
{
    const auto end = std::chrono::steady_clock::now() + milliseconds(kPatienceMs);
    while (!done()) {
        if (std::chrono::steady_clock::now() > end) {
            return false;
        }
        std::this_thread::sleep_for(1ms);
    }
    return true;
}

// A host at the tty.
class Tty {
public:
    explicit Tty(const std::string& name) : fd_(::open(("/dev/" + name).c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK)) {}
    ~Tty() { ::close(fd_); }
    Tty(const Tty&) = delete;
    Tty& operator=(const Tty&) = delete;

    bool open() const { return fd_ >= 0; }
    termios settings() const
    {
        termios t{};
        EXPECT_EQ(::tcgetattr(fd_, &t), 0);
        return t;
    }
    void speed(speed_t code) const
    {
        termios t = settings();
        ::cfsetspeed(&t, code);
        EXPECT_EQ(::tcsetattr(fd_, TCSAFLUSH, &t), 0);
    }
    void send(const Bytes& bytes) const
    {
        EXPECT_EQ(::write(fd_, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
    }
    std::string read(std::size_t count) const // so many bytes, or what came until nothing did
    {
        Bytes all;
        while (all.size() < count) {
            pollfd p{fd_, POLLIN, 0};
            if (::poll(&p, 1, kPatienceMs) != 1) {
                break;
            }
            std::array<std::uint8_t, 256> buffer{};
            const ssize_t n = ::read(fd_, buffer.data(), std::min(buffer.size(), count - all.size()));
            if (n <= 0) {
                break;
            }
            all.insert(all.end(), buffer.begin(), buffer.begin() + n);
        }
        return toHex(all);
    }

private:
    int fd_;
};

class SimPty : public ::testing::Test {
protected:
    Reader reader;
    const Bytes off = frame(fromHex("32250000"));
    const Bytes answer = replyFrame(0, {});

    static bool has(const Strings& events, const std::string& text)
    {
        return std::find(events.begin(), events.end(), text) != events.end();
    }
    static Strings eventsOf(PtyPort& port, const Reader& r)
    {
        Strings events;
        port.locked([&] { events = r.events(); });
        return events;
    }
    // The reader to its fast speed; the host's end stays as it is.
    void switchReader(PtyPort& port, const Tty& tty)
    {
        tty.send(fromHex("1B244932"));
        ASSERT_TRUE(inTheEnd([&] { return has(eventsOf(port, reader), "switch 38400"); }));
    }
};

TEST_F(SimPty, TheReaderAnswersOnARawTtyAt9600)
{
    PtyPort port(reader);
    EXPECT_EQ(port.name().rfind("pts/", 0), 0U);
    const Tty tty(port.name());
    ASSERT_TRUE(tty.open());
    EXPECT_EQ(::cfgetospeed(std::array{tty.settings()}.data()), static_cast<speed_t>(B9600));
    EXPECT_EQ(tty.settings().c_lflag & static_cast<tcflag_t>(ICANON | ECHO | ISIG), 0U);
    tty.send(off);
    EXPECT_EQ(tty.read(answer.size()), toHex(answer));
    EXPECT_EQ(port.traffic().toReader, off.size());
    EXPECT_EQ(port.traffic().fromReader, answer.size());
}

TEST_F(SimPty, TheTtyCanBeClosedAndOpenedAgain)
{
    PtyPort port(reader);
    for (int turn = 0; turn < 20; ++turn) {
        const Tty tty(port.name());
        tty.send(off);
        ASSERT_EQ(tty.read(answer.size()), toHex(answer)) << turn;
    }
}

TEST_F(SimPty, AnAnswerToAHostThatLeftDoesNoHarm)
{
    PtyPort port(reader);
    {
        const Tty tty(port.name());
        tty.send(off);
    }
    ASSERT_TRUE(inTheEnd([&] { return port.traffic().fromReader == answer.size(); }));
    const Tty tty(port.name());
    tty.speed(B9600); // with a flush, as hosts open a line
    tty.send(off);
    EXPECT_EQ(tty.read(answer.size()), toHex(answer));
}

TEST_F(SimPty, TheHostsSpeedIsTheOneItSet)
{
    reader.checkLineSpeed(true);
    PtyPort port(reader);
    const Tty tty(port.name());
    switchReader(port, tty);

    // Still at 9600: garbage.
    tty.send(off);
    ASSERT_TRUE(inTheEnd([&] { return has(eventsOf(port, reader), "garbage: 16 bytes at 9600"); }));
    tty.speed(B38400);
    tty.send(off);
    EXPECT_EQ(tty.read(answer.size()), toHex(answer));

    // A speed that the reader never has. What is sent just behind the change may be counted on either side of it, so
    // the first byte makes sure that the change has been seen.
    tty.speed(B19200);
    tty.send({0x30});
    ASSERT_TRUE(inTheEnd([&] { return port.traffic().toReader == 4 + 2 * off.size() + 1; }));
    tty.send(off);
    EXPECT_TRUE(inTheEnd([&] { return has(eventsOf(port, reader), "garbage: 16 bytes at 19200"); }));
}

TEST_F(SimPty, BytesSentBeforeAChangeOfSpeedAreNotGarbage)
{
    reader.checkLineSpeed(true);
    PtyPort port(reader);
    const Tty tty(port.name());
    port.locked([&] { // while the port's thread cannot take them
        tty.send(off);
        std::this_thread::sleep_for(20ms);
        tty.send(fromHex("1B244932"));
        tty.speed(B38400);
    });
    tty.send(off);
    EXPECT_TRUE(inTheEnd([&] { return eventsOf(port, reader).size() >= 3; }));
    EXPECT_EQ(eventsOf(port, reader), (Strings{"power off FF", "switch 38400", "power off FF"}));
}

TEST_F(SimPty, AHostThatSwitchesToAndFroWhileTheReaderIsBusyIsFollowed)
{
    reader.checkLineSpeed(true);
    PtyPort port(reader);
    const Tty tty(port.name());
    switchReader(port, tty);
    tty.speed(B38400);
    tty.send(off);
    EXPECT_EQ(tty.read(answer.size()), toHex(answer));
    port.locked([&] { // while the port's thread cannot take them
        tty.send(off);
        std::this_thread::sleep_for(20ms);
        tty.send(fromHex("1B244934"));
        tty.speed(B9600);
        tty.send(fromHex("1B24421B2541"));
        tty.send(fromHex("1B244932"));
        tty.speed(B38400);
    });
    tty.send(off);
    EXPECT_TRUE(inTheEnd([&] { return eventsOf(port, reader).size() >= 7; }));
    EXPECT_EQ(eventsOf(port, reader), (Strings{"switch 38400", "power off FF", "power off FF", "switch 9600", "restore",
                                               "switch 38400", "power off FF"}));
}

TEST_F(SimPty, TheReaderCanBeChangedWhileItIsServed)
{
    PtyPort port(reader);
    const Tty tty(port.name());
    const Bytes powerOn = frame(fromHex("3222018000"));
    const Bytes none = replyFrame(2, {}), some = replyFrame(0, fromHex("3B021450"));
    tty.send(powerOn);
    EXPECT_EQ(tty.read(none.size()), toHex(none));
    port.locked([&] { reader.insert(Slot::Contact, std::make_shared<EchoCard>()); });
    tty.send(powerOn);
    EXPECT_EQ(tty.read(some.size()), toHex(some));
}

TEST_F(SimPty, ADelayedAnswerComes)
{
    reader.addFault(parseFault("delay=30").value());
    PtyPort port(reader);
    const Tty tty(port.name());
    const auto before = std::chrono::steady_clock::now();
    tty.send(off);
    EXPECT_EQ(tty.read(answer.size()), toHex(answer));
    EXPECT_GE(std::chrono::steady_clock::now() - before, 30ms);
}

// A host that asks without end for answers that are an hour away, or faster than a paced line takes it.
TEST_F(SimPty, AHostThatOnlyWritesIsNotTakenInWithoutEnd)
{
    const auto takesNoMore = [this](const PtyPort& port) {
        const int fd = ::open(("/dev/" + port.name()).c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK);
        constexpr int kFar = 1000000;
        int sent = 0;
        pollfd writable{fd, POLLOUT, 0};
        while (sent < kFar && ::poll(&writable, 1, 1000) == 1) {
            sent += ::write(fd, off.data(), off.size()) > 0 ? 1 : 0;
        }
        ::close(fd);
        return sent < kFar;
    };
    {
        PtyPort paced(reader, {true, ""});
        EXPECT_TRUE(takesNoMore(paced));
    }
    reader.addFault(parseFault("delay=3600000").value());
    PtyPort port(reader);
    EXPECT_TRUE(takesNoMore(port));
}

TEST_F(SimPty, APacedLineIsNoFasterThanItsSpeedAndLosesNothing)
{
    const auto card = std::make_shared<EchoCard>();
    reader.insert(Slot::Contact, card);
    PtyPort port(reader, {true, ""});
    const Tty tty(port.name());
    switchReader(port, tty);
    tty.speed(B38400);

    const Bytes powerOn = frame(fromHex("3222018000"));
    const Bytes atr = replyFrame(0, card->atr);
    Bytes apdu(203, 0x11);
    apdu[0] = 0x32, apdu[1] = 0x26, apdu[2] = 0x00;
    const Bytes command = frame(apdu);
    Bytes echoed(apdu.begin() + 3, apdu.end());
    echoed.insert(echoed.end(), {0x90, 0x00});
    const Bytes response = replyFrame(0, echoed);

    const auto before = std::chrono::steady_clock::now();
    tty.send(powerOn);
    EXPECT_EQ(tty.read(atr.size()), toHex(atr));
    // In two pieces: the second comes while the first is still on the line, and waits for it.
    const unsigned long sofar = port.traffic().toReader;
    tty.send({command.begin(), command.begin() + 128});
    ASSERT_TRUE(inTheEnd([&] { return port.traffic().toReader == sofar + 128; }));
    tty.send({command.begin() + 128, command.end()});
    EXPECT_EQ(tty.read(response.size()), toHex(response));
    const auto bytes = powerOn.size() + atr.size() + command.size() + response.size();
    EXPECT_GE(std::chrono::steady_clock::now() - before, std::chrono::microseconds(bytes * 10'000'000 / 38400));
}

TEST_F(SimPty, AFixedNameLeadsToTheTtyWhileItIsServed)
{
    std::string directory = ::testing::TempDir() + "linkXXXXXX";
    ASSERT_NE(::mkdtemp(directory.data()), nullptr);
    const std::string link = directory + "/reader";
    ASSERT_EQ(::symlink("/nonexistent", link.c_str()), 0); // left behind by an earlier run
    {
        PtyPort port(reader, {false, link});
        std::array<char, 256> target{};
        ASSERT_GT(::readlink(link.c_str(), target.data(), target.size() - 1), 0);
        EXPECT_EQ(std::string(target.data()), "/dev/" + port.name());
    }
    struct stat status {};
    EXPECT_NE(::lstat(link.c_str(), &status), 0);

    std::ofstream(link) << "a file of somebody's";
    EXPECT_THROW(PtyPort(reader, {false, link}), std::system_error);
    EXPECT_EQ(::lstat(link.c_str(), &status), 0);
    ::unlink(link.c_str());
    ::rmdir(directory.c_str());
    try {
        const PtyPort port(reader, {false, directory + "/reader"});
        FAIL();
    } catch (const std::system_error& error) {
        EXPECT_EQ(error.code().value(), ENOENT);
        EXPECT_NE(std::string(error.what()).find(directory + "/reader"), std::string::npos);
    }
}

} // namespace
} // namespace vorn::sim
