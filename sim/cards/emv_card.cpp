// SPDX-License-Identifier: Apache-2.0
#include "sim/cards/emv_card.h"

#include <nlohmann/json.hpp>
#include <openssl/rand.h>

#include <algorithm>
#include <stdexcept>

namespace vorn::sim {
namespace {

// ISO/IEC 7816-4, the four cases of short commands.
std::optional<Command> parseCommand(const Bytes& bytes)
{
    constexpr std::size_t kHeader = 4;
    if (bytes.size() < kHeader) {
        return std::nullopt;
    }
    Command command{bytes[0], bytes[1], bytes[2], bytes[3], {}, {}};
    if (bytes.size() == kHeader) {
        return command;
    }
    const std::size_t lc = bytes[kHeader];
    const std::size_t more = bytes.size() - kHeader - 1;
    if (more == 0) {
        command.le = bytes[kHeader];
        return command;
    }
    if (lc == 0 || more < lc || more > lc + 1) {
        return std::nullopt;
    }
    const auto data = bytes.begin() + kHeader + 1;
    command.data.assign(data, data + static_cast<std::ptrdiff_t>(lc));
    if (more == lc + 1) {
        command.le = bytes.back();
    }
    return command;
}

Bytes withStatus(Bytes data, unsigned status)
{
    data.push_back(static_cast<std::uint8_t>(status >> 8));
    data.push_back(static_cast<std::uint8_t>(status & 0xFF));
    return data;
}

bool beginsWith(const Bytes& bytes, const Bytes& start)
{
    return bytes.size() >= start.size() && std::equal(start.begin(), start.end(), bytes.begin());
}

std::uint8_t lengthByte(std::size_t size)
{
    return static_cast<std::uint8_t>(size & 0xFF); // 256 is 00
}

// The commands of an application, and the class byte each comes with.
using Handler = Answer (*)(EmvApplication&, const Command&, bool& cardBlocked);
struct CommandRow {
    std::uint8_t cla;
    std::uint8_t ins;
    Handler handler;
};
const CommandRow kApplicationCommands[] = {
    {0x80, 0xA8, [](EmvApplication& a, const Command& c, bool&) { return a.getProcessingOptions(c); }},
    {0x80, 0xAE, [](EmvApplication& a, const Command& c, bool&) { return a.generateCryptogram(c); }},
    {0x80, 0xCA, [](EmvApplication& a, const Command& c, bool&) { return a.getData(c); }},
    {0x00, 0x82, [](EmvApplication& a, const Command& c, bool&) { return a.externalAuthenticate(c); }},
    {0x00, 0x88, [](EmvApplication& a, const Command& c, bool&) { return a.internalAuthenticate(c); }},
    {0x00, 0x20, [](EmvApplication& a, const Command& c, bool&) { return a.verify(c); }},
    {0x84, 0xDA, [](EmvApplication& a, const Command& c, bool&) { return a.putData(c); }},
    {0x84, 0x1E, [](EmvApplication& a, const Command& c, bool&) { return a.block(c); }},
    {0x84, 0x18, [](EmvApplication& a, const Command& c, bool&) { return a.unblock(c); }},
    {0x84, 0x16, [](EmvApplication& a, const Command& c, bool& blocked) { return a.blockCard(c, blocked); }},
    {0x84, 0x24, [](EmvApplication& a, const Command& c, bool&) { return a.changePin(c); }},
};

constexpr std::uint8_t kSelect = 0xA4, kReadRecord = 0xB2, kReadBinary = 0xB0, kGetChallenge = 0x84;
constexpr std::uint8_t kGetResponse = 0xC0;

} // namespace

EmvCard::EmvCard(EmvProfile profile) : profile_(std::move(profile)), blocked_(profile_.blocked)
{
    for (const Application& application : profile_.applications) {
        applications_.emplace_back(application, account_);
    }
}

Bytes EmvCard::powerOn()
{
    powerOff();
    account_.add("power on");
    return profile_.answerToReset;
}

void EmvCard::powerOff()
{
    selected_ = kNone;
    held_.clear();
    for (EmvApplication& each : applications_) {
        each.reset();
    }
}

const ApplicationState& EmvCard::state(const Bytes& aid) const
{
    for (const EmvApplication& each : applications_) {
        if (aid.empty() || each.file().name == aid) {
            return each.state();
        }
    }
    throw std::out_of_range("no such application on the card");
}

EmvApplication* EmvCard::application()
{
    const std::size_t directories = profile_.directories.size();
    return selected_ == kNone || selected_ < directories ? nullptr : &applications_[selected_ - directories];
}

const Bytes* EmvCard::statedAnswer(const Answers& answers, const Bytes& command)
{
    const std::vector<Bytes>* best = nullptr;
    std::size_t length = 0;
    for (const auto& [start, list] : answers) {
        if (start.size() > length && beginsWith(command, start)) {
            best = &list;
            length = start.size();
        }
    }
    if (best == nullptr) {
        return nullptr;
    }
    const std::size_t turn = given_[best]++;
    return &(*best)[std::min(turn, best->size() - 1)];
}

Bytes EmvCard::transmit(const Bytes& bytes)
{
    const Bytes* stated = statedAnswer(profile_.answers, bytes);
    if (stated == nullptr && application() != nullptr) {
        stated = statedAnswer(application()->answers(), bytes);
    }
    if (stated != nullptr) {
        return *stated;
    }
    const auto command = parseCommand(bytes);
    if (!command) {
        return withStatus({}, 0x6700);
    }
    if (command->ins != kGetResponse) {
        held_.clear();
    }
    Answer answer = perform(*command);
    if (application() != nullptr && command->ins != kGetChallenge) {
        application()->keepChallenge({});
    }
    return deliver(*command, std::move(answer));
}

Answer EmvCard::perform(const Command& command)
{
    const bool plain = command.cla == 0x00;
    if (blocked_ && !(plain && command.ins == kSelect)) {
        return refusal(0x6985);
    }
    switch (plain ? command.ins : 0) {
    case kSelect:
        return select(command);
    case kReadRecord:
        return readRecord(command);
    case kReadBinary:
        return readBinary(command);
    case kGetChallenge:
        return getChallenge(command);
    case kGetResponse:
        return getResponse(command);
    default:
        break;
    }
    const auto row = std::find_if(std::begin(kApplicationCommands), std::end(kApplicationCommands),
                                  [&command](const CommandRow& r) { return r.ins == command.ins; });
    if (row == std::end(kApplicationCommands)) {
        return refusal(0x6D00);
    }
    if (row->cla != command.cla) {
        return refusal(0x6E00);
    }
    EmvApplication* const current = application();
    return current == nullptr ? refusal(0x6985) : row->handler(*current, command, blocked_);
}

const DedicatedFile& EmvCard::fileAt(std::size_t position) const
{
    const std::size_t directories = profile_.directories.size();
    return position < directories ? profile_.directories[position] : applications_[position - directories].file();
}

std::size_t EmvCard::find(const Bytes& name, std::size_t from) const
{
    const std::size_t count = profile_.directories.size() + applications_.size();
    for (std::size_t position = from; position < count; ++position) {
        if (beginsWith(fileAt(position).name, name)) {
            return position;
        }
    }
    return kNone;
}

// By name, whole or its beginning; P2 02 goes on behind the file that is selected when that one has the name too.
Answer EmvCard::select(const Command& command)
{
    if (blocked_) {
        account_.add("SELECT refused: the card is blocked");
        return refusal(0x6A81);
    }
    if (command.p1 != 0x04 || (command.p2 != 0x00 && command.p2 != 0x02) || command.data.empty()) {
        return refusal(0x6A86);
    }
    const bool next = command.p2 == 0x02 && selected_ != kNone && beginsWith(fileAt(selected_).name, command.data);
    const std::size_t found = find(command.data, next ? selected_ + 1 : 0);
    if (found == kNone) {
        return refusal(0x6A82);
    }
    selected_ = found;
    EmvApplication* const current = application();
    if (current != nullptr) {
        current->reset();
        account_.add("selected " + toHex(current->file().name) +
                     (current->state().blocked ? ", which is blocked" : ""));
    }
    const bool blocked = current != nullptr && current->state().blocked;
    return {fileAt(selected_).fci, blocked ? 0x6283U : 0x9000U};
}

Answer EmvCard::readRecord(const Command& command)
{
    if ((command.p2 & 0x07) != 0x04 || command.p1 == 0) {
        return refusal(0x6A86);
    }
    if (selected_ == kNone) {
        return refusal(0x6A82);
    }
    const Records& records = fileAt(selected_).records;
    const auto file = records.find(command.p2 >> 3U);
    if (file == records.end()) {
        return refusal(0x6A82);
    }
    if (command.p1 > file->second.size()) {
        return refusal(0x6A83);
    }
    Answer answer{file->second[command.p1 - 1U]};
    if (application() != nullptr) {
        application()->recordRead(file->first, command.p1); // may write the log
    }
    return answer;
}

Answer EmvCard::readBinary(const Command& command) const
{
    const std::size_t directories = profile_.directories.size();
    if ((command.p1 & 0x80) == 0 || selected_ == kNone || selected_ < directories) {
        return refusal(0x6A86);
    }
    const auto& binaries = applications_[selected_ - directories].binaries();
    const auto file = binaries.find(command.p1 & 0x1FU);
    if (file == binaries.end()) {
        return refusal(0x6A82);
    }
    if (command.p2 >= file->second.size()) {
        return refusal(0x6B00);
    }
    return {Bytes(file->second.begin() + command.p2, file->second.end())};
}

Answer EmvCard::getChallenge(const Command& command)
{
    constexpr std::size_t kUsual = 8;
    if (command.p12() != 0 || !command.le) {
        return refusal(command.p12() != 0 ? 0x6A86 : 0x6700);
    }
    Bytes random(*command.le == 0 ? kUsual : *command.le);
    if (RAND_bytes(random.data(), static_cast<int>(random.size())) != 1) {
        throw std::runtime_error("libcrypto gives no random bytes");
    }
    if (application() != nullptr) {
        application()->keepChallenge(random);
    }
    return {random};
}

Answer EmvCard::getResponse(const Command& command)
{
    return held_.empty() || command.p12() != 0 ? refusal(0x6985) : Answer{held_};
}

// As a card with T=0 it says first how much there is; otherwise the answer comes at once.
Bytes EmvCard::deliver(const Command& command, Answer answer)
{
    if (answer.data.empty()) {
        return withStatus({}, answer.status);
    }
    if (!profile_.t0) {
        const bool shorter = command.le && *command.le != 0 && *command.le < answer.data.size();
        answer.data.resize(shorter ? *command.le : answer.data.size());
        return withStatus(answer.data, answer.status);
    }
    const std::uint8_t size = lengthByte(answer.data.size());
    if (!command.data.empty()) {
        held_ = answer.data;
        return withStatus({}, answer.status == 0x9000 ? 0x6100U + size : answer.status);
    }
    if (!command.le || *command.le != size) {
        return withStatus({}, 0x6C00U + size);
    }
    held_.clear();
    return withStatus(answer.data, answer.status);
}

std::shared_ptr<Card> makeEmvCard(const nlohmann::json& card, const std::string& where)
{
    return std::make_shared<EmvCard>(readEmvProfile(JsonNode(card, where)));
}

} // namespace vorn::sim
