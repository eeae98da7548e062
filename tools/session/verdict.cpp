// SPDX-License-Identifier: Apache-2.0
#include "tools/session/verdict.h"

#include "tools/explain/apdu_words.h"
#include "tools/explain/hex.h"
#include "tools/explain/status_words.h"

#include <algorithm>
#include <iterator>

namespace vorn::tool {

namespace {

enum class Part { PowersOn, PowersOff, Card, Memory };

struct OperationRow {
    Operation operation;
    Part part;
    const char* name;
};

constexpr OperationRow kOperations[] = {
    {Operation::PowerOn, Part::PowersOn, "power on"},
    {Operation::PowerOff, Part::PowersOff, "power off"},
    {Operation::Activate, Part::PowersOn, "activate the card in the field"},
    {Operation::Deactivate, Part::PowersOff, "switch the field off"},
    {Operation::Apdu, Part::Card, "APDU"},
    {Operation::ActivateMemory, Part::PowersOn, "activate the memory card"},
    {Operation::Authenticate, Part::Memory, "authenticate"},
    {Operation::ReadBlock, Part::Memory, "read block"},
    {Operation::WriteBlock, Part::Memory, "write block"},
};

const OperationRow* rowOf(const LineExchange& exchange)
{
    const auto* const row = std::find_if(std::begin(kOperations), std::end(kOperations),
                                         [&](const OperationRow& r) { return exchange.of(r.operation); });
    return row == std::end(kOperations) ? nullptr : row;
}

bool isPart(const LineExchange& exchange, Part part)
{
    const OperationRow* const row = rowOf(exchange);
    return row != nullptr && row->part == part;
}

struct ReplyRow {
    LineExchange::Reply reply;
    Trouble trouble;
};
constexpr ReplyRow kReplies[] = {
    {LineExchange::Reply::Whole, Trouble::None},          {LineExchange::Reply::Damaged, Trouble::Damaged},
    {LineExchange::Reply::None, Trouble::Silent},         {LineExchange::Reply::Echo, Trouble::WrongDevice},
    {LineExchange::Reply::Foreign, Trouble::WrongDevice},
};

struct TroubleRow {
    Trouble trouble;
    Exit exitCode;
    const char* message;
    const char* hint;
};
const TroubleRow kTroubles[] = {
    {Trouble::NoCard, Exit::NoCard, "no card in time",
     "insert the card chip first, or hold it on the antenna; --wait gives more time"},
    {Trouble::CardGone, Exit::CardGone, "the card was taken away", "leave the card in the reader until all is done"},
    {Trouble::CardMute, Exit::CardMute, "there is a card, but it does not answer",
     "is it the right way round? Clean the chip, or try another card"},
    {Trouble::Silent, Exit::ReaderSilent, "the reader does not answer",
     "check cable and power, and that the right tty is named; 'vorn doctor' looks further"},
    {Trouble::Refused, Exit::ReaderRefused, "the reader refused the command",
     "take the card out, put it back and try again"},
    {Trouble::Damaged, Exit::LineDisturbed, "the reader's reply came damaged",
     "the line is disturbed: check cable and plugs, and that no other program uses the port"},
    {Trouble::WrongDevice, Exit::WrongDevice, "what answers at this port is no reader",
     "name the tty that the reader is attached to; 'vorn ports' shows what answers where"},
};

} // namespace

Trouble troubleOf(const LineExchange& exchange)
{
    for (const ReplyRow& row : kReplies) {
        if (row.reply == exchange.reply && row.trouble != Trouble::None) {
            return row.trouble;
        }
    }
    if (exchange.saysNoCard()) {
        return isPart(exchange, Part::PowersOn) ? Trouble::NoCard : Trouble::CardGone;
    }
    if (exchange.status != 0) {
        // Of a memory card the reader tells a refused key or block like any other refusal: the call's result says it.
        return isPart(exchange, Part::PowersOn) ? Trouble::CardMute
               : isPart(exchange, Part::Memory) ? Trouble::None
                                                : Trouble::Refused;
    }
    constexpr std::size_t kStatusWord = 2;
    constexpr std::size_t kBlock = 16;
    if (exchange.of(Operation::ReadBlock) && exchange.payload.size() < kBlock) {
        return Trouble::Damaged;
    }
    return exchange.of(Operation::Apdu) && exchange.payload.size() < kStatusWord ? Trouble::Refused : Trouble::None;
}

Verdict judge(const std::vector<LineExchange>& exchanges, bool cardSeen)
{
    Verdict absent;
    for (std::size_t i = 0; i < exchanges.size(); ++i) {
        if (isPart(exchanges[i], Part::PowersOff)) {
            continue;
        }
        const Trouble trouble = troubleOf(exchanges[i]);
        if (trouble == Trouble::NoCard) {
            absent = {cardSeen ? Trouble::CardGone : Trouble::NoCard, i};
        } else if (trouble != Trouble::None) {
            return {trouble, i};
        } else if (isPart(exchanges[i], Part::PowersOn)) {
            absent = {};
            cardSeen = true;
        }
    }
    return absent;
}

std::optional<std::string> refusedRecord(const std::vector<LineExchange>& exchanges, Records which, unsigned allowed)
{
    constexpr std::uint8_t readRecord = 0xB2;
    constexpr std::uint8_t processingOptions = 0xA8;
    bool counts = which == Records::All;
    constexpr unsigned done = 0x9000;
    for (const LineExchange& exchange : exchanges) {
        const Bytes apdu = exchange.apdu();
        const unsigned status = statusOf(exchange.payload);
        const bool asksAgain = status >> 8 == 0x61 || status >> 8 == 0x62 || status >> 8 == 0x6C;
        const std::uint8_t instruction = apdu.size() > 1 ? apdu[1] : std::uint8_t{0};
        counts = counts || instruction == processingOptions;
        if (counts && instruction == readRecord && status != done && status != allowed && !asksAgain) {
            return commandInWords(apdu) + " was answered with " + statusText(status);
        }
    }
    return std::nullopt;
}

std::string exchangeName(const LineExchange& exchange)
{
    if (const Bytes apdu = exchange.apdu(); !apdu.empty()) {
        return commandInWords(apdu);
    }
    const OperationRow* const row = rowOf(exchange);
    if (row == nullptr) {
        return "reader command";
    }
    const bool block = row->part == Part::Memory && exchange.command.size() > 2;
    return row->name + (block ? " " + std::to_string(exchange.command[2]) : std::string());
}

Failure failureOf(Trouble trouble, const LineExchange& exchange)
{
    for (const TroubleRow& row : kTroubles) {
        if (row.trouble == trouble) {
            const bool waits = trouble == Trouble::NoCard;
            const std::string status = trouble == Trouble::Refused && exchange.status != 0
                                           ? ", status " + toHex({static_cast<std::uint8_t>(exchange.status)})
                                           : "";
            return {row.exitCode, row.message + (waits ? "" : " (" + exchangeName(exchange) + status + ")"), row.hint};
        }
    }
    return {Exit::Internal, "no trouble", "please report this"};
}

} // namespace vorn::tool
