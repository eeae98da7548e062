// SPDX-License-Identifier: Apache-2.0
// The reader below the daemon's functions: when it is asked what, and what is known of a card afterwards.
#include "ifd/card_reader.h"

#include "support/scripted_reader.h"

#include "ifd/daemon_log.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <functional>
#include <string>
#include <vector>

using namespace vorn::test;
using namespace vorn::ifd;

namespace {

std::vector<std::string>& daemonLog()
{
    static std::vector<std::string> lines;
    return lines;
}

[[gnu::format(printf, 1, 0)]] void note(const char* format, std::va_list arguments)
{
    char line[256];
    std::vsnprintf(line, sizeof line, format, arguments);
    daemonLog().emplace_back(line);
}

std::int64_t now() { return Clock::microseconds() / 1000; }

const Place kAll[] = {Place::Contact, Place::Contactless, Place::Psam1, Place::Psam2, Place::Psam3, Place::Psam4};

class CardReaderTest : public ReaderTest {
protected:
    CardReaderTest() { daemonLog().clear(); }
    ~CardReaderTest() override
    {
        cardReader.end();
        EXPECT_TRUE(linkClosed());
    }

    CardReader cardReader{now};

    void begin()
    {
        DeviceName name;
        ASSERT_TRUE(readDeviceName(("/dev/" + line.port()).c_str(), name));
        cardReader.begin(name.port);
    }
    // A reader that has no tty is the daemon's to find and to take away.
    void beginAsOnUsb() { beginAsOnUsb(line); }
    void beginAsOnUsb(const Line& on)
    {
        DeviceName name;
        ASSERT_TRUE(readDeviceName(("/dev/" + on.port()).c_str(), name));
        name.port.tty[0] = '\0';
        cardReader.begin(name.port);
    }
    static void later(std::int64_t milliseconds) { Clock::advance(milliseconds * 1000); }

    // The reader is asked nothing: any command would fail the test.
    void expectUntouched(Place place, bool there)
    {
        ASSERT_TRUE(reader.done());
        EXPECT_EQ(cardReader.present(place), there);
    }

    // A contact card is found, powered, and known as 3B00.
    void powerContactCard()
    {
        begin();
        powerFoundCard();
    }
    void powerFoundCard() { powerFoundCard(reader); }
    void powerFoundCard(ScriptedReader& by)
    {
        by.command("32 23 00", "", 0x02).command("32 22 01 80 00", "3B00");
        Atr atr;
        ASSERT_EQ(cardReader.powerOn(Place::Contact, false, atr), Result::Done);
        ASSERT_TRUE(by.done());
    }

    // What is seen while the line is busy.
    void whileBusy(const std::function<void()>& busy, const std::function<void()>& seen)
    {
        bool looked = false;
        Clock::onSleep([&] {
            if (!looked) {
                looked = true;
                seen();
            }
            line.serve();
        });
        busy();
        EXPECT_TRUE(looked);
        Clock::onSleep([this] { line.serve(); });
    }

    std::string exchange(Place place, const std::string& apdu, Result expected = Result::Done)
    {
        const Bytes bytes = fromHex(apdu);
        Response response;
        EXPECT_EQ(cardReader.exchange(place, vorn::ByteView(bytes.data(), bytes.size()), response), expected);
        return toHex(Bytes(response.bytes, response.bytes + response.size));
    }
};

} // namespace

namespace vorn::ifd {

void logNote(const char* format, ...)
{
    std::va_list arguments;
    va_start(arguments, format);
    note(format, arguments);
    va_end(arguments);
}

void logProblem(const char* format, ...)
{
    std::va_list arguments;
    va_start(arguments, format);
    note(format, arguments);
    va_end(arguments);
}

} // namespace vorn::ifd

// ---------------------------------------------------------------- looks

TEST_F(CardReaderTest, ACardIsFoundByPowerOnAndPoweredOffAgain)
{
    begin();
    reader.command("32 23 00", "", 0x02).command("32 22 01 80 00", "3B00").command("32 23 00");
    EXPECT_TRUE(cardReader.present(Place::Contact));
    EXPECT_FALSE(cardReader.powered(Place::Contact));
}

TEST_F(CardReaderTest, AnEmptyPlaceOfACustomerIsLookedIntoUpToOnceASecond)
{
    begin();
    reader.command("32 23 00", "", 0x02).command("32 22 01 80 00", "", 0x02);
    EXPECT_FALSE(cardReader.present(Place::Contact));
    for (const std::int64_t wait : {400, 800, 1000, 1000, 1000}) {
        later(wait - 1);
        expectUntouched(Place::Contact, false);
        later(1);
        reader.command("32 22 01 80 00", "", 0x02);
        EXPECT_FALSE(cardReader.present(Place::Contact));
    }
}

TEST_F(CardReaderTest, AnEmptyModuleSlotIsLookedIntoUpToTwiceAMinute)
{
    begin();
    reader.command("32 23 12", "", 0x02).command("32 22 01 80 12", "", 0x02);
    EXPECT_FALSE(cardReader.present(Place::Psam3));
    for (const std::int64_t wait : {400, 800, 1600, 3200, 6400, 12800, 25600, 30000, 30000}) {
        later(wait - 1);
        expectUntouched(Place::Psam3, false);
        later(1);
        reader.command("32 22 01 80 12", "", 0x02);
        EXPECT_FALSE(cardReader.present(Place::Psam3));
    }
}

TEST_F(CardReaderTest, TheFieldIsLookedIntoByActivation)
{
    begin();
    reader.command("32 25 00 00").command("32 24 01 80", "", 0x06);
    EXPECT_FALSE(cardReader.present(Place::Contactless));
    later(400);
    reader.command("32 24 01 80", "05 78 33 88 02").command("32 25 00 00");
    EXPECT_TRUE(cardReader.present(Place::Contactless));
}

TEST_F(CardReaderTest, ACardWithPowerIsLeftAlone)
{
    powerContactCard();
    later(24 * 3600 * 1000);
    expectUntouched(Place::Contact, true);
    reader.command("32 23 00");
}

TEST_F(CardReaderTest, ACardWithoutPowerIsLookedAfter)
{
    begin();
    reader.command("32 23 00", "", 0x02).command("32 22 01 80 00", "3B00").command("32 23 00");
    EXPECT_TRUE(cardReader.present(Place::Contact));
    later(1999);
    expectUntouched(Place::Contact, true);
    later(1);
    reader.command("32 22 01 80 00", "3B00").command("32 23 00");
    EXPECT_TRUE(cardReader.present(Place::Contact));
    later(2000);
    reader.command("32 22 01 80 00", "", 0x02);
    EXPECT_FALSE(cardReader.present(Place::Contact));
}

TEST_F(CardReaderTest, AnotherCardInThePlaceOfOneIsToldAsAbsenceFirst)
{
    begin();
    reader.command("32 23 00", "", 0x02).command("32 22 01 80 00", "3B00").command("32 23 00");
    EXPECT_TRUE(cardReader.present(Place::Contact));
    later(2000);
    reader.command("32 22 01 80 00", "3B01AA").command("32 23 00");
    EXPECT_FALSE(cardReader.present(Place::Contact));
    expectUntouched(Place::Contact, true);
}

TEST_F(CardReaderTest, ACardThatDoesNotAnswerItsResetIsThere)
{
    begin();
    reader.command("32 23 00").command("32 22 01 80 00", "", 0x04);
    EXPECT_TRUE(cardReader.present(Place::Contact));
    reader.command("32 22 01 80 00", "", 0x04);
    Atr atr;
    EXPECT_EQ(cardReader.powerOn(Place::Contact, false, atr), Result::Refused);
    expectUntouched(Place::Contact, true);
    later(2000);
    reader.command("32 22 01 80 00", "", 0x02);
    EXPECT_FALSE(cardReader.present(Place::Contact));
}

TEST_F(CardReaderTest, ALookDoesNotWaitForALineThatIsBusy)
{
    powerContactCard();
    reader.command("32 26 00 00B0000000", "9000");
    whileBusy([&] { EXPECT_EQ(exchange(Place::Contact, "00B0000000"), "9000"); },
              [&] {
                  EXPECT_FALSE(cardReader.present(Place::Psam1)); // would be due
                  EXPECT_TRUE(cardReader.present(Place::Contact));
              });
    reader.command("32 23 00");
}

TEST_F(CardReaderTest, TheNextCardIsThereWhileTheLineIsBusyOnceItsForerunnersAbsenceWasTold)
{
    powerContactCard();
    reader.command("32 26 00 00B0000000", "", 0x02);
    EXPECT_EQ(exchange(Place::Contact, "00B0000000", Result::NoCard), "");
    Atr atr;
    reader.command("32 22 01 80 00", "3B01AA");
    ASSERT_EQ(cardReader.powerOn(Place::Contact, false, atr), Result::Done);
    expectUntouched(Place::Contact, false);
    reader.command("32 26 00 00B0000000", "9000");
    whileBusy([&] { EXPECT_EQ(exchange(Place::Contact, "00B0000000"), "9000"); },
              [&] { EXPECT_TRUE(cardReader.present(Place::Contact)); });
    reader.command("32 23 00");
}

// ---------------------------------------------------------------- power

TEST_F(CardReaderTest, PowerIsGivenOnceAndTheAnswerToResetToldAgain)
{
    powerContactCard();
    Atr atr;
    EXPECT_EQ(cardReader.powerOn(Place::Contact, false, atr), Result::Done);
    EXPECT_EQ(toHex(Bytes(atr.data(), atr.data() + atr.size())), "3B00");
    reader.command("32 23 00");
}

TEST_F(CardReaderTest, AResetTakesThePowerAndGivesIt)
{
    powerContactCard();
    reader.command("32 23 00").command("32 22 01 80 00", "3B01AA");
    Atr atr;
    EXPECT_EQ(cardReader.powerOn(Place::Contact, true, atr), Result::Done);
    EXPECT_EQ(toHex(Bytes(atr.data(), atr.data() + atr.size())), "3B01AA");
    reader.command("32 23 00");
}

TEST_F(CardReaderTest, ThePowerOfACardThatIsGoneTellsSo)
{
    powerContactCard();
    reader.command("32 23 00", "", 0x02);
    EXPECT_EQ(cardReader.powerOff(Place::Contact), Result::NoCard);
    expectUntouched(Place::Contact, false);
}

TEST_F(CardReaderTest, AnAnswerThatIsLongerThanAnAtrIsNone)
{
    begin();
    reader.command("32 23 10").command("32 22 01 80 10", toHex(Bytes(34, 0x3B))).command("32 23 10");
    Atr atr;
    EXPECT_EQ(cardReader.powerOn(Place::Psam1, false, atr), Result::Refused);
    reader.command("32 22 01 80 10", "").command("32 23 10");
    EXPECT_EQ(cardReader.powerOn(Place::Psam1, false, atr), Result::Refused);
}

TEST_F(CardReaderTest, AtTheEndCardsAreOffAndTheLineIsAtRest)
{
    powerContactCard();
    reader.command("32 25 00 00").command("32 24 01 80", "3B80800101");
    Atr atr;
    ASSERT_EQ(cardReader.powerOn(Place::Contactless, false, atr), Result::Done);
    reader.command("32 23 00").command("32 25 00 00");
    cardReader.end();
    EXPECT_TRUE(reader.done());
    EXPECT_TRUE(linkClosed());
    EXPECT_EQ(reader.lineEvents(),
              (std::vector<std::string>{"ESC $ I 2 at 9600", "ESC $ I 4 at 38400", "ESC $ B ESC % A at 9600"}));
}

TEST_F(CardReaderTest, BehindTheEndNothingOpensTheLine)
{
    begin();
    cardReader.end();
    later(3600 * 1000);
    Atr atr;
    for (const Place place : kAll) {
        EXPECT_FALSE(cardReader.present(place));
        EXPECT_EQ(cardReader.powerOn(place, false, atr), Result::NoLine);
        EXPECT_EQ(cardReader.powerOff(place), Result::Done);
    }
    EXPECT_TRUE(linkClosed());
}

// ---------------------------------------------------------------- commands

TEST_F(CardReaderTest, CommandsGoToTheirPlaceAndNothingIsFollowed)
{
    begin();
    struct {
        Place place;
        const char *off, *on, *apdu;
    } const rows[] = {
        {Place::Contact, "32 23 00", "32 22 01 80 00", "32 26 00"},
        {Place::Contactless, "32 25 00 00", "32 24 01 80", "32 26 FF"},
        {Place::Psam1, "32 23 10", "32 22 01 80 10", "32 26 10"},
        {Place::Psam2, "32 23 11", "32 22 01 80 11", "32 26 11"},
        {Place::Psam3, "32 23 12", "32 22 01 80 12", "32 26 12"},
        {Place::Psam4, "32 23 13", "32 22 01 80 13", "32 26 13"},
    };
    for (const auto& row : rows) {
        Atr atr;
        reader.command(row.off, "", 0x02).command(row.on, "3B80800101");
        ASSERT_EQ(cardReader.powerOn(row.place, false, atr), Result::Done);
    }
    for (const auto& row : rows) {
        for (const char* answer : {"6110", "6C20", "6283", "0102039000"}) {
            reader.command(std::string(row.apdu) + "00A40000023F00", answer);
            EXPECT_EQ(exchange(row.place, "00A40000023F00"), answer);
        }
    }
    for (const auto& row : rows) {
        reader.command(row.off);
        EXPECT_EQ(cardReader.powerOff(row.place), Result::Done);
    }
}

TEST_F(CardReaderTest, ACardWithoutPowerGetsNoCommand)
{
    begin();
    EXPECT_EQ(exchange(Place::Contact, "00A40000023F00", Result::NoCard), "");
}

TEST_F(CardReaderTest, AnExchangeTellsThatTheCardIsGone)
{
    powerContactCard();
    reader.command("32 26 00 00B0000000", "", 0x02);
    EXPECT_EQ(exchange(Place::Contact, "00B0000000", Result::NoCard), "");
    // The next card is there at once: the absence is told all the same.
    expectUntouched(Place::Contact, false);
    reader.command("32 22 01 80 00", "3B00").command("32 23 00");
    EXPECT_TRUE(cardReader.present(Place::Contact));
}

TEST_F(CardReaderTest, ARefusedCommandEndsWhatIsKnownOfTheCard)
{
    powerContactCard();
    reader.command("32 26 00 00B0000000", "", 0x03).command("32 23 00");
    EXPECT_EQ(exchange(Place::Contact, "00B0000000", Result::Refused), "");
    EXPECT_EQ(exchange(Place::Contact, "00B0000000", Result::NoCard), "");
    expectUntouched(Place::Contact, false);
}

TEST_F(CardReaderTest, AnAnswerWithoutAStatusWordIsARefusal)
{
    powerContactCard();
    reader.command("32 26 00 00B0000000", "90").command("32 23 00");
    EXPECT_EQ(exchange(Place::Contact, "00B0000000", Result::Refused), "");
}

TEST_F(CardReaderTest, ACommandThatNoFrameCarriesIsNotSent)
{
    powerContactCard();
    EXPECT_EQ(exchange(Place::Contact, toHex(Bytes(506, 0x00)), Result::BadLength), "");
    expectUntouched(Place::Contact, true);
    reader.command("32 23 00");
}

// ---------------------------------------------------------------- a line that fails

TEST_F(CardReaderTest, AReaderThatFallsSilentIsBegunAnewWithAllCardsReset)
{
    powerContactCard();
    Atr atr;
    reader.command("32 23 10").command("32 22 01 80 10", "3B00");
    ASSERT_EQ(cardReader.powerOn(Place::Psam1, false, atr), Result::Done);
    reader.silent("32 26 00 00B0000000");
    EXPECT_EQ(exchange(Place::Contact, "00B0000000", Result::NoLine), "");
    EXPECT_TRUE(linkClosed());
    EXPECT_EQ(exchange(Place::Psam1, "00B0000000", Result::NoCard), "");
    expectUntouched(Place::Contact, false);
    expectUntouched(Place::Psam1, false);
    later(999);
    expectUntouched(Place::Contact, false);
    later(1);
    reader.command("32 23 00").command("32 22 01 80 00", "3B00").command("32 23 00");
    EXPECT_TRUE(cardReader.present(Place::Contact));
    reader.command("32 23 10").command("32 22 01 80 10", "3B00").command("32 23 10");
    EXPECT_TRUE(cardReader.present(Place::Psam1));
    EXPECT_EQ(daemonLog(), (std::vector<std::string>{"the reader does not answer", "the reader answers again"}));
}

TEST_F(CardReaderTest, APulledUsbReadersCardsAreNotToldAsGone)
{
    Line device;
    ScriptedReader pulled(device);
    Clock::onSleep([&] { device.serve(); });
    beginAsOnUsb(device);
    powerFoundCard(pulled);
    pulled.command("32 23 10").command("32 22 01 80 10", "3B00").command("32 23 10");
    EXPECT_TRUE(cardReader.present(Place::Psam1));
    device.hangUp();
    EXPECT_EQ(exchange(Place::Contact, "00B0000000", Result::NoLine), "");
    Atr atr;
    for (const std::int64_t wait : {0, 999, 1, 2000, 4000, 8000, 16000, 30000}) {
        later(wait);
        EXPECT_TRUE(cardReader.present(Place::Contact));
        EXPECT_TRUE(cardReader.present(Place::Psam1));
        EXPECT_FALSE(cardReader.present(Place::Psam2));
        EXPECT_FALSE(cardReader.powered(Place::Contact));
        EXPECT_EQ(exchange(Place::Contact, "00B0000000", Result::NoCard), "");
        EXPECT_EQ(cardReader.powerOn(Place::Contact, false, atr), Result::NoLine);
    }
    Clock::onSleep([this] { line.serve(); });
}

TEST_F(CardReaderTest, OnUsbAbsenceIsToldOnceTheDeviceCanBeOpened)
{
    beginAsOnUsb();
    powerFoundCard();
    reader.silent("32 26 00 00B0000000");
    EXPECT_EQ(exchange(Place::Contact, "00B0000000", Result::NoLine), "");
    later(999);
    expectUntouched(Place::Contact, true);
    EXPECT_TRUE(linkClosed());
    later(1);
    expectUntouched(Place::Contact, false);
    EXPECT_FALSE(linkClosed());
    reader.command("32 23 10").command("32 22 01 80 10", "", 0x02);
    whileBusy([&] { EXPECT_FALSE(cardReader.present(Place::Psam1)); },
              [&] { EXPECT_FALSE(cardReader.present(Place::Contact)); }); // not looked into yet
    reader.command("32 23 00").command("32 22 01 80 00", "3B00").command("32 23 00");
    EXPECT_TRUE(cardReader.present(Place::Contact));
}

TEST_F(CardReaderTest, OnUsbACardThatIsTakenOutIsToldAtOnce)
{
    beginAsOnUsb();
    powerFoundCard();
    reader.command("32 26 00 00B0000000", "", 0x02);
    EXPECT_EQ(exchange(Place::Contact, "00B0000000", Result::NoCard), "");
    reader.command("32 23 10").command("32 22 01 80 10", "", 0x02);
    whileBusy([&] { EXPECT_FALSE(cardReader.present(Place::Psam1)); },
              [&] { EXPECT_FALSE(cardReader.present(Place::Contact)); });
    expectUntouched(Place::Contact, false);
}

TEST_F(CardReaderTest, ASilentReaderIsAskedMoreAndMoreRarely)
{
    begin();
    reader.silent("32 23 00");
    EXPECT_FALSE(cardReader.present(Place::Contact));
    for (const std::int64_t wait : {1000, 2000, 4000, 8000, 16000, 30000, 30000}) {
        later(wait - 1);
        for (const Place place : kAll) {
            expectUntouched(place, false);
        }
        later(1);
        reader.silent("32 23 00");
        EXPECT_FALSE(cardReader.present(Place::Contact));
    }
    later(30000);
    reader.command("32 23 00", "", 0x02).command("32 22 01 80 00", "", 0x02);
    EXPECT_FALSE(cardReader.present(Place::Contact));
    EXPECT_EQ(daemonLog().size(), 2U);
}

TEST_F(CardReaderTest, AtTheEndASilentReaderIsAskedOnce)
{
    powerContactCard();
    Atr atr;
    reader.command("32 23 10").command("32 22 01 80 10", "3B00");
    ASSERT_EQ(cardReader.powerOn(Place::Psam1, false, atr), Result::Done);
    reader.silent("32 23 00");
    cardReader.end();
    EXPECT_TRUE(reader.done());
    EXPECT_TRUE(linkClosed());
}

TEST_F(CardReaderTest, ATtyThatAnotherProgramHasIsWaitedFor)
{
    const int other = open(("/dev/" + line.port()).c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK);
    ASSERT_GE(other, 0);
    ASSERT_EQ(flock(other, LOCK_EX | LOCK_NB), 0);
    begin();
    EXPECT_FALSE(cardReader.present(Place::Contact));
    EXPECT_TRUE(line.sent().empty());
    ASSERT_FALSE(daemonLog().empty());
    EXPECT_EQ(daemonLog()[0], "/dev/" + line.port() + ": used by another program");
    for (const std::int64_t wait : {1000, 2000, 4000, 8000, 16000, 30000}) {
        later(wait);
        EXPECT_FALSE(cardReader.present(Place::Contact));
    }
    EXPECT_TRUE(line.sent().empty());
    EXPECT_EQ(daemonLog().size(), 2U); // that, and that it is tried again
    close(other);
    later(30000);
    reader.command("32 23 00", "", 0x02).command("32 22 01 80 00", "", 0x02);
    EXPECT_FALSE(cardReader.present(Place::Contact));
    EXPECT_TRUE(reader.done());
}

TEST_F(CardReaderTest, AnotherProgramFindsTheTtyTaken)
{
    begin();
    const int other = open(("/dev/" + line.port()).c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK);
    ASSERT_GE(other, 0);
    EXPECT_EQ(flock(other, LOCK_EX | LOCK_NB), -1);
    cardReader.end();
    EXPECT_EQ(flock(other, LOCK_EX | LOCK_NB), 0);
    close(other);
}

TEST_F(CardReaderTest, WhatIsNoTtyIsNotSpokenTo)
{
    DeviceName name;
    ASSERT_TRUE(readDeviceName("/dev/null", name));
    cardReader.begin(name.port);
    EXPECT_FALSE(cardReader.present(Place::Contact));
    ASSERT_FALSE(daemonLog().empty());
    EXPECT_EQ(daemonLog()[0], "/dev/null: not a tty");
}
