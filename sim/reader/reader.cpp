// SPDX-License-Identifier: Apache-2.0
#include "sim/reader/reader.h"

#include "sim/data/printable.h"
#include "sim/reader/behaviour.h"
#include "sim/reader/fault.h"
#include "sim/reader/line_decoder.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <exception>
#include <utility>

namespace vorn::sim {

using std::chrono::milliseconds;

namespace {

constexpr int kSlowSpeed = 9600;
constexpr int kFastSpeed = 38400;
constexpr std::uint8_t kCommandClass = 0x32;
constexpr std::size_t kKeySize = 6;

const char* const kFast = "$I2";
const char* const kSlow = "$I4";
const char* const kRestore = "$B\x1B%A";
const char* const kVersion = "KTLVN";

std::string hex(const Bytes& bytes)
{
    std::string text;
    for (const std::uint8_t byte : bytes) {
        char digits[3];
        std::snprintf(digits, sizeof digits, "%02X", byte);
        text += digits;
    }
    return text;
}

// What a receiver makes of a byte at another speed: never a character of a frame, STX, ETX or ESC.
std::uint8_t garbled(std::uint8_t byte) { return static_cast<std::uint8_t>((byte * 0x9DU ^ 0x5AU) | 0x80U); }

// Bytes that a disturbed line puts before an answer. ETX and frame characters are among them, STX is not: a host finds
// the frame behind them.
Bytes noise(std::size_t count)
{
    Bytes bytes;
    unsigned state = 0x2F6E2B1U;
    while (bytes.size() < count) {
        state = state * 1103515245U + 12345U;
        const auto byte = static_cast<std::uint8_t>(state >> 16 & 0xFF);
        bytes.push_back(byte == kStx || bytes.size() % 16 == 7 ? kEtx : byte);
    }
    return bytes;
}

std::optional<MemoryCard::Key> keyOfMode(std::uint8_t mode)
{
    switch (mode) {
    case 0x60:
    case 'A':
    case 0x00:
        return MemoryCard::Key::A;
    case 0x61:
    case 'B':
    case 0x01:
        return MemoryCard::Key::B;
    default:
        return std::nullopt;
    }
}

struct Reply {
    ReaderStatus status = ReaderStatus::Ok;
    Bytes payload{};
    const UnitAnswer* answer = nullptr; // this unit's own, in place of status and payload
    milliseconds time{0};
};

Bytes frameOf(std::uint8_t status, const Bytes& payload = {})
{
    Bytes content{kCommandClass, status};
    content.insert(content.end(), payload.begin(), payload.end());
    return encodeFrame(content);
}

// Empty: silence.
Bytes bytesOf(const UnitAnswer& answer)
{
    return answer.kind == UnitAnswer::Kind::Status ? frameOf(answer.status) : answer.raw;
}

// A card of either kind in its place: when it can be seen, and whether it has power.
template <class C>
struct Place {
    std::shared_ptr<C> card;
    milliseconds from{0};
    bool powered = false;

    bool present(milliseconds now) const { return card && now >= from; }
};

void cutPower(Place<Card>& place)
{
    if (std::exchange(place.powered, false)) {
        place.card->powerOff();
    }
}

void cutPower(Place<MemoryCard>& place)
{
    if (std::exchange(place.powered, false)) {
        place.card->deactivate();
    }
}

// The older half goes at once, so that forgetting costs next to nothing.
template <class T>
void remember(std::vector<T>& history, T latest)
{
    if (history.size() == 2 * Reader::kHistory) {
        history.erase(history.begin(), history.begin() + Reader::kHistory);
    }
    history.push_back(std::move(latest));
}

bool matches(const Fault& fault, int number, const Bytes& command)
{
    return (fault.command == 0 || fault.command == number) &&
           (!fault.operation || (command.size() > 1 && command[1] == *fault.operation));
}

} // namespace

struct Reader::State {
    using Handler = Reply (State::*)(const Bytes& arguments);

    // One row per operation: the bytes that always follow it, how many more may, and who carries it out.
    struct Operation {
        std::uint8_t code;
        Bytes fixed;
        std::size_t least;
        std::size_t most;
        Handler handler;
    };
    static const std::vector<Operation>& operations();

    Clock clock;
    LineDecoder decoder{{kFast, kSlow, kRestore, kVersion}};
    std::map<Slot, Place<Card>> cards;
    Place<MemoryCard> memory;
    int speed = kSlowSpeed;
    bool checksSpeed = false;
    std::string version = "DK7710 V1.06";
    Behaviour unit;
    std::vector<Fault> faults;
    int commands = 0;
    std::vector<Exchange> exchanges;
    std::vector<std::string> events;

    void event(std::string text) { remember(events, std::move(text)); }
    void slotEvent(const char* what, Slot slot) { event(what + hex({static_cast<std::uint8_t>(slot)})); }
    Place<Card>* place(std::uint8_t slotByte);
    void pullUserCard();

    std::vector<Output> handle(const LineItem& item);
    std::vector<Output> escape(const std::string& sequence);
    std::vector<Output> badFrame(const std::string& problem);
    std::vector<Output> command(const Bytes& command);
    std::vector<Output> send(Bytes bytes, milliseconds delay) const;
    void answerOneOfTwo(int number, std::vector<Output>& earlier, std::vector<Output>& latest) const;
    Reply carryOut(const Bytes& command);
    Reply asThisUnit(const Bytes& command);
    const UnitAnswer* unitsAnswer(const Bytes& command, ReaderStatus status) const;
    const UnitAnswer* emptyPlace(const Bytes& command) const;
    milliseconds timeOf(const Bytes& command, ReaderStatus status) const;

    Reply powerOnSlot(const Bytes& arguments);
    Reply powerOffSlot(const Bytes& arguments);
    Reply activate(const Bytes& arguments);
    Reply deactivate(const Bytes& arguments);
    Reply apdu(const Bytes& arguments);
    Reply activateMemory(const Bytes& arguments);
    Reply authenticate(const Bytes& arguments);
    Reply readBlock(const Bytes& arguments);
    Reply writeBlock(const Bytes& arguments);

    Reply powerOn(Slot slot);
    std::optional<ReaderStatus> memoryProblem() const;
};

const std::vector<Reader::State::Operation>& Reader::State::operations()
{
    constexpr std::size_t any = SIZE_MAX;
    static const std::vector<Operation> table = {
        {0x22, {0x01, 0x80}, 1, 1, &State::powerOnSlot},
        {0x23, {}, 1, 1, &State::powerOffSlot},
        {0x24, {0x01, 0x80}, 0, 0, &State::activate},
        {0x25, {0x00, 0x00}, 0, 0, &State::deactivate},
        {0x26, {}, 2, any, &State::apdu},
        {0x41, {0x01, 0x00}, 0, 0, &State::activateMemory},
        {0x42, {}, 2 + kKeySize, 2 + kKeySize, &State::authenticate},
        {0x43, {}, 1, 1, &State::readBlock},
        {0x44, {}, 1 + MemoryCard::kBlockSize, 1 + MemoryCard::kBlockSize, &State::writeBlock},
    };
    return table;
}

Place<Card>* Reader::State::place(std::uint8_t slotByte)
{
    constexpr std::array<Slot, 6> slots = {Slot::Contact, Slot::Psam1, Slot::Psam2,
                                           Slot::Psam3,   Slot::Psam4, Slot::Field};
    const auto* const found = std::find(slots.begin(), slots.end(), static_cast<Slot>(slotByte));
    return found == slots.end() ? nullptr : &cards[*found];
}

void Reader::State::pullUserCard()
{
    event("pull");
    for (const Slot slot : {Slot::Contact, Slot::Field}) {
        cutPower(cards[slot]);
        cards[slot] = {};
    }
    cutPower(memory);
    memory = {};
}

// ---------------------------------------------------------------- the line

std::vector<Reader::Output> Reader::State::handle(const LineItem& item)
{
    switch (item.kind) {
    case LineItem::Kind::Command:
        return command(item.bytes);
    case LineItem::Kind::Escape:
        return escape({item.bytes.begin(), item.bytes.end()});
    case LineItem::Kind::BadFrame:
        return badFrame(item.problem);
    case LineItem::Kind::Unfinished:
        event("bad frame: unfinished");
        break;
    case LineItem::Kind::UnknownEscape:
        event("unknown escape " + hex(item.bytes));
        break;
    case LineItem::Kind::Noise:
        break;
    }
    return {};
}

std::vector<Reader::Output> Reader::State::escape(const std::string& sequence)
{
    if (sequence == kFast) {
        speed = unit.followsSwitch ? kFastSpeed : speed;
        event("switch 38400");
    } else if (sequence == kSlow) {
        speed = unit.returns ? kSlowSpeed : speed;
        event("switch 9600");
    } else if (sequence == kRestore) {
        speed = unit.returns ? kSlowSpeed : speed;
        event("restore");
    } else if (speed != kSlowSpeed && !unit.versionWhenFast) {
        event("version ignored at 38400");
    } else {
        event("version");
        return send({version.begin(), version.end()}, unit.versionTime);
    }
    return {};
}

std::vector<Reader::Output> Reader::State::badFrame(const std::string& problem)
{
    event("bad frame: " + problem);
    const UnitAnswer& answer = problem == "check"        ? unit.wrongCheck
                               : problem == "characters" ? unit.wrongCharacter
                               : problem == "length"     ? unit.wrongLength
                                                         : unit.tooLong;
    return send(bytesOf(answer), unit.replyTime);
}

// Answers go out whole, or with a pause in their middle.
std::vector<Reader::Output> Reader::State::send(Bytes bytes, milliseconds delay) const
{
    if (bytes.empty()) {
        return {};
    }
    if (unit.gap == milliseconds(0) || bytes.size() < 2) {
        return {{std::move(bytes), delay}};
    }
    const auto middle = bytes.begin() + static_cast<std::ptrdiff_t>(bytes.size() / 2);
    return {{Bytes(bytes.begin(), middle), delay}, {Bytes(middle, bytes.end()), delay + unit.gap}};
}

// Commands that come in one piece are all carried out; a unit may leave answers to some of them out.
void Reader::State::answerOneOfTwo(int number, std::vector<Output>& earlier, std::vector<Output>& latest) const
{
    using TwoFrames = Behaviour::TwoFrames;
    if (number < 2 || unit.twoFrames == TwoFrames::Both) {
        return;
    }
    if (unit.twoFrames != TwoFrames::First) {
        earlier.clear();
    }
    if (unit.twoFrames != TwoFrames::Second) {
        latest.clear();
    }
}

std::vector<Reader::Output> Reader::State::command(const Bytes& command)
{
    if (speed == kSlowSpeed && !unit.commandsWhenSlow) {
        event("command ignored at 9600");
        return {};
    }
    ++commands;
    std::vector<Fault> now;
    std::copy_if(faults.begin(), faults.end(), std::back_inserter(now),
                 [&](const Fault& fault) { return matches(fault, commands, command); });
    const auto find = [&now](Fault::Kind kind) -> const Fault* {
        const auto at = std::find_if(now.begin(), now.end(), [kind](const Fault& f) { return f.kind == kind; });
        return at == now.end() ? nullptr : &*at;
    };
    const auto count = [&find](Fault::Kind kind) {
        const Fault* fault = find(kind);
        return fault != nullptr ? static_cast<std::size_t>(std::max(fault->value, 0)) : 0;
    };

    if (find(Fault::Kind::Pull) != nullptr) {
        pullUserCard();
    }
    const Fault* const forced = find(Fault::Kind::Status);
    const Reply reply = forced != nullptr ? Reply{static_cast<ReaderStatus>(forced->value)} : asThisUnit(command);
    const bool answered = find(Fault::Kind::Silence) == nullptr;
    remember(exchanges, {command, static_cast<std::uint8_t>(reply.status), reply.payload, answered});
    if (!answered) {
        return {};
    }

    if (reply.answer != nullptr && reply.answer->kind != UnitAnswer::Kind::Status) {
        return send(bytesOf(*reply.answer), reply.time);
    }
    Bytes frame = frameOf(static_cast<std::uint8_t>(reply.status), reply.payload);
    frame.pop_back(); // ETX comes back at the end
    if (find(Fault::Kind::WrongCheck) != nullptr) {
        frame.back() ^= 0x01;
    }
    frame.resize(frame.size() - std::min(count(Fault::Kind::Short), frame.size() - 1));
    frame.insert(frame.end(), count(Fault::Kind::Long), 0x3F);
    if (find(Fault::Kind::NoEnd) == nullptr) {
        frame.push_back(kEtx);
    }
    const Bytes before = noise(count(Fault::Kind::Noise));
    frame.insert(frame.begin(), before.begin(), before.end());
    return send(std::move(frame), reply.time + milliseconds(count(Fault::Kind::Delay)));
}

// ---------------------------------------------------------------- what differs from unit to unit

Reply Reader::State::asThisUnit(const Bytes& command)
{
    Reply reply = carryOut(command);
    reply.time = timeOf(command, reply.status);
    reply.answer = unitsAnswer(command, reply.status);
    if (reply.answer != nullptr && reply.answer->kind == UnitAnswer::Kind::Status) {
        reply.status = static_cast<ReaderStatus>(reply.answer->status);
    }
    return reply;
}

const UnitAnswer* Reader::State::unitsAnswer(const Bytes& command, ReaderStatus status) const
{
    switch (status) {
    case ReaderStatus::NoCard:
    case ReaderStatus::NoCardInField:
        return emptyPlace(command);
    case ReaderStatus::NotPowered:
        return &unit.notPowered;
    case ReaderStatus::NoSuchSlot:
        return &unit.noSuchSlot;
    case ReaderStatus::UnknownCommand:
        return command.empty() ? &unit.emptyFrame : command.size() == 1 ? &unit.shortFrame : &unit.unknownCommand;
    case ReaderStatus::BadParameter:
        return &unit.badParameter;
    case ReaderStatus::Ok:
        return command[1] == 0x25 ? &unit.fieldOff : nullptr;
    default:
        return nullptr;
    }
}

const UnitAnswer* Reader::State::emptyPlace(const Bytes& command) const
{
    constexpr std::size_t slotOfPowerOn = 4;
    const std::uint8_t operation = command[1];
    if (operation >= 0x41) {
        return &unit.noMemoryCard;
    }
    if (operation == 0x24) {
        return &unit.emptyField;
    }
    switch (static_cast<Slot>(command[operation == 0x22 ? slotOfPowerOn : 2])) {
    case Slot::Contact:
        return &unit.emptyContact;
    case Slot::Psam1:
        return &unit.emptyPsam1;
    case Slot::Psam2:
        return &unit.emptyPsam2;
    case Slot::Psam3:
        return &unit.emptyPsam3;
    case Slot::Psam4:
        return &unit.emptyPsam4;
    case Slot::Field:
        return &unit.emptyField;
    }
    return nullptr;
}

milliseconds Reader::State::timeOf(const Bytes& command, ReaderStatus status) const
{
    const std::uint8_t operation = status == ReaderStatus::Ok ? command[1] : 0;
    if (operation == 0x24) {
        return unit.fieldTime;
    }
    if (operation == 0x26) {
        return unit.apduTime;
    }
    if (operation == 0x41) {
        return unit.memoryTime;
    }
    switch (operation == 0x22 ? static_cast<Slot>(command[4]) : Slot::Field) {
    case Slot::Contact:
        return unit.contactTime;
    case Slot::Psam1:
        return unit.psam1Time;
    case Slot::Psam2:
        return unit.psam2Time;
    case Slot::Psam3:
        return unit.psam3Time;
    case Slot::Psam4:
        return unit.psam4Time;
    case Slot::Field:
        break;
    }
    return unit.replyTime;
}

Reply Reader::State::carryOut(const Bytes& command)
{
    if (command.size() < 2 || command[0] != kCommandClass) {
        return {ReaderStatus::UnknownCommand};
    }
    const auto& table = operations();
    const auto row = std::find_if(table.begin(), table.end(), [&](const Operation& o) { return o.code == command[1]; });
    if (row == table.end()) {
        return {ReaderStatus::UnknownCommand};
    }
    const std::size_t header = 2 + row->fixed.size();
    if (command.size() < header || !std::equal(row->fixed.begin(), row->fixed.end(), command.begin() + 2)) {
        return {ReaderStatus::BadParameter};
    }
    const Bytes arguments(command.begin() + static_cast<std::ptrdiff_t>(header), command.end());
    if (arguments.size() < row->least || arguments.size() > row->most) {
        return {ReaderStatus::BadParameter};
    }
    try {
        Reply reply = (this->*row->handler)(arguments);
        if (reply.payload.size() > kPayloadMax) {
            return {ReaderStatus::AnswerTooLong};
        }
        return reply;
    } catch (const std::exception& error) { // a card model in trouble must not take the reader with it
        event("card failed: " + printable(error.what()));
        return {ReaderStatus::CardMute};
    }
}

// ---------------------------------------------------------------- cards with APDUs

Reply Reader::State::powerOn(Slot slot)
{
    Place<Card>& at = cards[slot];
    if (!at.present(clock())) {
        return {slot == Slot::Field ? ReaderStatus::NoCardInField : ReaderStatus::NoCard};
    }
    cutPower(at);
    slotEvent("power on ", slot);
    Bytes atr = at.card->powerOn();
    if (atr.empty()) {
        return {ReaderStatus::CardMute};
    }
    at.powered = true;
    return {ReaderStatus::Ok, std::move(atr)};
}

Reply Reader::State::powerOnSlot(const Bytes& arguments)
{
    const auto slot = static_cast<Slot>(arguments[0]);
    if (place(arguments[0]) == nullptr || slot == Slot::Field) {
        return {ReaderStatus::NoSuchSlot};
    }
    return powerOn(slot);
}

Reply Reader::State::powerOffSlot(const Bytes& arguments)
{
    Place<Card>* const at = place(arguments[0]);
    if (at == nullptr || static_cast<Slot>(arguments[0]) == Slot::Field) {
        return {ReaderStatus::NoSuchSlot};
    }
    if (!at->present(clock())) {
        return {ReaderStatus::NoCard};
    }
    slotEvent("power off ", static_cast<Slot>(arguments[0]));
    cutPower(*at);
    return {};
}

Reply Reader::State::activate(const Bytes&) { return powerOn(Slot::Field); }

// Switching the field off needs no card in it.
Reply Reader::State::deactivate(const Bytes&)
{
    slotEvent("power off ", Slot::Field);
    cutPower(cards[Slot::Field]);
    cutPower(memory);
    return {};
}

Reply Reader::State::apdu(const Bytes& arguments)
{
    Place<Card>* const at = place(arguments[0]);
    if (at == nullptr) {
        return {ReaderStatus::NoSuchSlot};
    }
    if (!at->present(clock())) {
        return {static_cast<Slot>(arguments[0]) == Slot::Field ? ReaderStatus::NoCardInField : ReaderStatus::NoCard};
    }
    if (!at->powered) {
        return {ReaderStatus::NotPowered};
    }
    Bytes response = at->card->transmit({arguments.begin() + 1, arguments.end()});
    if (response.size() < 2) {
        return {ReaderStatus::CardMute};
    }
    return {ReaderStatus::Ok, std::move(response)};
}

// ---------------------------------------------------------------- memory cards

Reply Reader::State::activateMemory(const Bytes&)
{
    if (!memory.present(clock())) {
        return {ReaderStatus::NoCardInField};
    }
    cutPower(memory);
    event("activate memory card");
    Bytes identification = memory.card->activate();
    memory.powered = true;
    return {ReaderStatus::Ok, std::move(identification)};
}

std::optional<ReaderStatus> Reader::State::memoryProblem() const
{
    if (!memory.present(clock())) {
        return ReaderStatus::NoCardInField;
    }
    if (!memory.powered) {
        return ReaderStatus::NotPowered;
    }
    return std::nullopt;
}

Reply Reader::State::authenticate(const Bytes& arguments)
{
    const auto which = keyOfMode(arguments[1]);
    if (!which) {
        return {ReaderStatus::BadParameter};
    }
    if (const auto problem = memoryProblem()) {
        return {*problem};
    }
    const Bytes key(arguments.begin() + 2, arguments.end());
    return {memory.card->authenticate(arguments[0], *which, key) ? ReaderStatus::Ok : ReaderStatus::KeyRefused};
}

Reply Reader::State::readBlock(const Bytes& arguments)
{
    if (const auto problem = memoryProblem()) {
        return {*problem};
    }
    auto block = memory.card->read(arguments[0]);
    if (!block) {
        return {ReaderStatus::AccessRefused};
    }
    return {ReaderStatus::Ok, std::move(*block)};
}

Reply Reader::State::writeBlock(const Bytes& arguments)
{
    if (const auto problem = memoryProblem()) {
        return {*problem};
    }
    const bool written = memory.card->write(arguments[0], {arguments.begin() + 1, arguments.end()});
    return {written ? ReaderStatus::Ok : ReaderStatus::AccessRefused};
}

// ---------------------------------------------------------------- interface

Reader::Reader(Clock clock) : state_(std::make_unique<State>())
{
    state_->clock = clock ? std::move(clock) : Clock([] {
        return std::chrono::duration_cast<milliseconds>(std::chrono::steady_clock::now().time_since_epoch());
    });
}

Reader::~Reader() = default;

// A card that comes into a slot has no power, also when it is the one that was there before.
void Reader::insert(Slot slot, std::shared_ptr<Card> card, milliseconds after)
{
    Place<Card>& at = state_->cards[slot];
    cutPower(at);
    at = {std::move(card), state_->clock() + after, false};
}

void Reader::insert(std::shared_ptr<MemoryCard> card, milliseconds after)
{
    cutPower(state_->memory);
    state_->memory = {std::move(card), state_->clock() + after, false};
}

void Reader::remove(Slot slot)
{
    insert(slot, nullptr);
    if (slot == Slot::Field) {
        insert(nullptr);
    }
}

bool Reader::powered(Slot slot) const
{
    const auto at = state_->cards.find(slot);
    return (at != state_->cards.end() && at->second.powered) || (slot == Slot::Field && state_->memory.powered);
}

void Reader::checkLineSpeed(bool on) { state_->checksSpeed = on; }
int Reader::listeningSpeed() const { return state_->speed; }
void Reader::setVersion(std::string text) { state_->version = std::move(text); }
const Behaviour& Reader::behaviour() const { return state_->unit; }

void Reader::behave(const Behaviour& behaviour)
{
    constexpr std::size_t ends = 2; // STX and ETX
    State& state = *state_;
    state.unit = behaviour;
    state.version = behaviour.version.value_or(state.version);
    state.speed = behaviour.leftFast ? kFastSpeed : kSlowSpeed;
    state.decoder.setCharactersMax(static_cast<std::size_t>(behaviour.longestFrame) - ends);
    state.decoder.setBeginsAnew(behaviour.beginsAnew);
}

void Reader::addFault(const Fault& fault) { state_->faults.push_back(fault); }
void Reader::clearFaults() { state_->faults.clear(); }
const std::vector<Reader::Exchange>& Reader::exchanges() const { return state_->exchanges; }
const std::vector<std::string>& Reader::events() const { return state_->events; }

void Reader::clearHistory()
{
    state_->exchanges.clear();
    state_->events.clear();
}

std::vector<Reader::Output> Reader::receive(const Bytes& bytes, int lineSpeed)
{
    std::vector<Output> outputs;
    std::size_t garbage = 0;
    int frames = 0;
    Bytes ignored;
    for (const std::uint8_t byte : bytes) {
        const bool wrongSpeed = state_->checksSpeed && lineSpeed != 0 && lineSpeed != state_->speed;
        std::vector<LineItem> items;
        state_->decoder.decode(wrongSpeed ? garbled(byte) : byte, items);
        for (const LineItem& item : items) {
            if (item.kind == LineItem::Kind::Noise && !wrongSpeed) {
                ignored.insert(ignored.end(), item.bytes.begin(), item.bytes.end());
            }
            std::vector<Output> latest = state_->handle(item);
            frames += item.kind == LineItem::Kind::Command || item.kind == LineItem::Kind::BadFrame ? 1 : 0;
            state_->answerOneOfTwo(frames, outputs, latest);
            std::move(latest.begin(), latest.end(), std::back_inserter(outputs));
        }
        garbage += wrongSpeed ? 1 : 0;
    }
    if (garbage > 0) {
        state_->event("garbage: " + std::to_string(garbage) + " bytes at " + std::to_string(lineSpeed));
    }
    if (!ignored.empty()) {
        state_->event("ignored " + hex(ignored));
    }
    const Bytes toCutFrame = bytesOf(state_->unit.cutFrame);
    if (state_->decoder.inFrame() && !toCutFrame.empty()) {
        outputs.push_back({toCutFrame, state_->unit.cutTime, true});
    }
    return outputs;
}

} // namespace vorn::sim
