// SPDX-License-Identifier: Apache-2.0
#include "ifd/card_reader.h"

#include "ifd/daemon_log.h"
#include "vorn/link.h"

#include <cstring>

namespace vorn::ifd {
namespace {

constexpr std::int64_t kFirstLookMs = 400; // as often as the daemon asks
constexpr std::int64_t kFirstReopenMs = 1000;
constexpr std::int64_t kMostReopenMs = 30000;

// The next wait of a row of attempts: twice the last one, within bounds.
std::int64_t longer(std::int64_t last, std::int64_t first, std::int64_t most)
{
    const std::int64_t next = last <= 0 ? first : 2 * last;
    return next < most ? next : most;
}

constexpr Place kAllPlaces[kPlaces] = {Place::Contact, Place::Contactless, Place::Psam1,
                                       Place::Psam2,   Place::Psam3,       Place::Psam4};

} // namespace

// ---------------------------------------------------------------- the line

void CardReader::begin(const Port& port)
{
    const Held held(line_);
    port_ = port;
    used_ = true;
    troubled_ = false;
    reopenAt_ = reopenWait_ = 0;
    for (Slot& slot : slots_) {
        slot.card = Card::None;
        slot.powerUnknown = true;
        slot.absenceUntold = false;
        slot.wait = slot.nextLook = 0;
        slot.shown = false;
    }
    openLine();
}

void CardReader::end()
{
    const Held held(line_);
    for (const Place place : kAllPlaces) {
        if (open_ && slotOf(place).card == Card::Powered) {
            settle(place, switchOff(place), Card::Resting);
        }
    }
    closeLine();
    used_ = false;
}

bool CardReader::openLine()
{
    if (open_ || !used_ || now_() < reopenAt_) {
        return open_;
    }
    vr_comportmode = port_.mode;
    std::memcpy(vr_comportparam, port_.parameter, sizeof vr_comportparam);
    open_ = (port_.tty[0] == '\0' || tty_.take(port_.tty, !troubled_)) && opdev() == VORN_OK;
    if (!open_) {
        tty_.release();
        reopenWait_ = longer(reopenWait_, kFirstReopenMs, kMostReopenMs);
        reopenAt_ = now_() + reopenWait_;
        if (!troubled_) {
            logProblem("the line to the reader cannot be opened; it is tried again");
        }
        troubled_ = true;
    }
    return open_;
}

void CardReader::closeLine()
{
    if (open_) {
        cldev();
        open_ = false;
    }
    tty_.release();
}

// A reader that was switched off and on listens at another speed, and a late answer could be taken for that to another
// card's command: the line is closed, and begun anew with all cards reset.
void CardReader::lineLost()
{
    if (!troubled_) {
        logProblem("the reader does not answer");
    }
    troubled_ = true;
    closeLine();
    reopenWait_ = longer(reopenWait_, kFirstReopenMs, kMostReopenMs);
    reopenAt_ = now_() + reopenWait_;
    for (const Place place : kAllPlaces) {
        cardLost(place);
        slotOf(place).powerUnknown = true;
    }
}

Result CardReader::resultOf(int linkResult)
{
    if (linkResult == VORN_BAD_ARGUMENT) {
        return Result::BadLength;
    }
    if (linkResult == VORN_NO_REPLY) {
        return Result::NoLine;
    }
    if (troubled_) {
        logNote("the reader answers again");
    }
    troubled_ = false;
    reopenWait_ = 0;
    return linkResult == VORN_OK ? Result::Done
                                 : (linkResult == VORN_READER_NO_CARD ? Result::NoCard : Result::Refused);
}

Result CardReader::switchOff(Place place)
{
    return resultOf(place == Place::Contactless ? picc_Deactive() : icc_poweroff(rowOf(place).slot));
}

Result CardReader::switchOn(Place place, Atr& atr)
{
    Slot& slot = slotOf(place);
    if (slot.powerUnknown && switchOff(place) == Result::NoLine) {
        return Result::NoLine;
    }
    slot.powerUnknown = false;
    Response answer;
    const int result = place == Place::Contactless ? picc_Active(answer.bytes, &answer.size)
                                                   : icc_poweron(rowOf(place).slot, answer.bytes, &answer.size);
    const Result on = resultOf(result);
    if (on != Result::Done) {
        return on;
    }
    atr = Atr();
    if (place == Place::Contactless) {
        atr = contactlessAtr(answer.view());
    } else if (answer.size == 0 || !atr.append(answer.view())) {
        // What it answered is no answer to reset.
        return switchOff(place) == Result::NoLine ? Result::NoLine : Result::Refused;
    }
    return Result::Done;
}

// ---------------------------------------------------------------- what is known of a place

void CardReader::lookLater(Place place)
{
    Slot& slot = slotOf(place);
    const Pace pace = rowOf(place).pace;
    slot.wait = slot.card == Card::None ? longer(slot.wait, kFirstLookMs, pace.empty) : pace.resting;
    slot.nextLook = now_() + slot.wait;
}

// A pulled reader is the daemon's to take away, slot by slot. pcscd 1.9.9 waits for ever for a slot's thread that learns
// in the same moment that its card is gone: the order to end is overwritten by the removal. So absence is told when the
// device is there.
bool CardReader::mayBePulled() const { return !open_ && port_.tty[0] == '\0'; }

void CardReader::cardLost(Place place)
{
    Slot& slot = slotOf(place);
    slot.absenceUntold = slot.absenceUntold || slot.card != Card::None;
    slot.card = Card::None;
    slot.shown = slot.shown && mayBePulled();
    slot.wait = 0;
    slot.nextLook = now_();
}

// What an exchange has shown of a card: `card` when all went well or the reader refused.
Result CardReader::settle(Place place, Result result, Card card)
{
    Slot& slot = slotOf(place);
    switch (result) {
    case Result::NoCard:
        cardLost(place);
        break;
    case Result::NoLine:
        lineLost();
        break;
    case Result::Done:
    case Result::Refused:
        slot.card = card;
        slot.shown = true;
        lookLater(place);
        break;
    case Result::BadLength:
        break;
    }
    return result;
}

void CardReader::lookInto(Place place)
{
    Slot& slot = slotOf(place);
    const Card before = slot.card;
    const Atr known = slot.atr;
    Atr found;
    Result result = switchOn(place, found);
    const Card card = result == Result::Refused ? Card::Mute : Card::Resting;
    if (result == Result::NoCard && before == Card::None) {
        lookLater(place);
        return;
    }
    if (result == Result::Done) {
        slot.atr = found;
        result = switchOff(place);
    }
    settle(place, result, card);
    if (before == Card::Resting && slot.card != Card::None && !(known.view() == found.view())) {
        slot.shown = false; // another card: the one before it was taken out unseen
    }
}

bool CardReader::present(Place place)
{
    Slot& slot = slotOf(place);
    if (!line_.tryLock()) {
        return slot.shown;
    }
    bool there = false;
    if (slot.absenceUntold) {
        there = slot.shown && mayBePulled() && !openLine();
        slot.absenceUntold = there;
        slot.shown = there || slot.card != Card::None;
    } else {
        slot.shown = slot.card != Card::None;
        if (slot.card != Card::Powered && now_() >= slot.nextLook && openLine()) {
            lookInto(place);
        }
        there = slot.shown;
        slot.absenceUntold = slot.absenceUntold && there;
    }
    line_.unlock();
    return there;
}

// ---------------------------------------------------------------- a card's power, and commands to it

Result CardReader::powerOn(Place place, bool reset, Atr& atr)
{
    const Held held(line_);
    Slot& slot = slotOf(place);
    if (slot.card == Card::Powered && !reset) {
        atr = slot.atr;
        return Result::Done;
    }
    if (!openLine()) {
        return Result::NoLine;
    }
    slot.powerUnknown = slot.powerUnknown || slot.card == Card::Powered;
    const Result result = switchOn(place, atr);
    if (result == Result::Done) {
        slot.atr = atr;
    }
    return settle(place, result, result == Result::Refused ? Card::Mute : Card::Powered);
}

Result CardReader::powerOff(Place place)
{
    const Held held(line_);
    if (slotOf(place).card != Card::Powered) {
        return Result::Done;
    }
    return settle(place, switchOff(place), Card::Resting);
}

bool CardReader::powered(Place place)
{
    const Held held(line_);
    return slotOf(place).card == Card::Powered;
}

bool CardReader::answerToReset(Place place, Atr& atr)
{
    const Held held(line_);
    atr = slotOf(place).atr;
    return slotOf(place).card == Card::Powered;
}

Result CardReader::exchange(Place place, ByteView command, Response& response)
{
    const Held held(line_);
    response.size = 0;
    if (slotOf(place).card != Card::Powered) {
        return Result::NoCard;
    }
    Result result = resultOf(samicc_sendcommand(rowOf(place).slot, command.data(), static_cast<int>(command.size()),
                                                response.bytes, &response.size));
    if (result == Result::Done && response.size < 2) {
        result = Result::Refused; // no status word
    }
    if (result != Result::Done) {
        response.size = 0;
    }
    if (result == Result::Refused) {
        // A card that was changed for another in the meantime has no power, one that hangs answers nothing: either way
        // it is not the card that its user knows any more.
        settle(place, switchOff(place) == Result::NoLine ? Result::NoLine : Result::NoCard, Card::None);
        return result;
    }
    return result == Result::Done ? result : settle(place, result, Card::Powered);
}

} // namespace vorn::ifd
