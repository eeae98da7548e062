// SPDX-License-Identifier: Apache-2.0
#include "tools/explain/frame_view.h"

#include "tools/explain/apdu_view.h"
#include "tools/explain/atr_view.h"
#include "tools/explain/hex.h"

#include <algorithm>
#include <numeric>

namespace vorn::tool {

namespace {

constexpr std::uint8_t kStart = 0x02;
constexpr std::uint8_t kEnd = 0x03;
constexpr std::uint8_t kClass = 0x32;
constexpr std::uint8_t kPowerOn = 0x22;
constexpr std::uint8_t kActivate = 0x24;
constexpr std::uint8_t kApdu = 0x26;
constexpr std::uint8_t kActivateMemory = 0x41;
constexpr std::uint8_t kAuthenticate = 0x42;
constexpr std::uint8_t kReadBlock = 0x43;
constexpr std::uint8_t kWrite = 0x44;
constexpr std::size_t kApduAt = 3;

constexpr std::size_t kLongestNumber = 10; // bytes: of a memory card

struct Command {
    std::uint8_t operation;
    std::size_t shortest;
    const char* name;
};

const Command kCommands[] = {{kPowerOn, 5, "power on"},
                             {0x23, 3, "power off"},
                             {kActivate, 4, "activate the card in the field"},
                             {0x25, 4, "switch the field off"},
                             {kApdu, 7, "APDU"},
                             {kActivateMemory, 4, "activate a memory card"},
                             {kAuthenticate, 10, "authenticate block"},
                             {kReadBlock, 3, "read block"},
                             {kWrite, 19, "write block"}};

struct Status {
    std::uint8_t code;
    const char* words;
};

const Status kStatuses[] = {{0x00, "done"},
                            {0x02, "no card in the slot"},
                            {0x03, "the card has no power or is not activated"},
                            {0x04, "the card answered nothing that is an answer"},
                            {0x05, "the card's answer is too long"},
                            {0x06, "no card in the field"},
                            {0x07, "authentication refused"},
                            {0x08, "read or write refused"},
                            {0x0A, "no such slot"},
                            {0xE0, "unknown command"},
                            {0xE1, "wrong bytes in the command"},
                            {0xF0, "wrong frame"}};

const Command* commandOf(ByteSpan content)
{
    if (content.size() < 2 || content[0] != kClass) {
        return nullptr;
    }
    const auto* const row = std::find_if(std::begin(kCommands), std::end(kCommands),
                                         [&](const Command& c) { return c.operation == content[1]; });
    return row != std::end(kCommands) && content.size() >= row->shortest ? row : nullptr;
}

std::uint8_t byteOf(std::uint8_t high, std::uint8_t low)
{
    return static_cast<std::uint8_t>((high & 0x0FU) << 4 | (low & 0x0FU));
}

// Blocks and keys of memory cards are their holder's, whatever they are.
std::string memoryHex(ByteSpan content, std::size_t secretAt, bool show)
{
    const std::string hex = toHex(content);
    return show ? hex : hex.substr(0, 2 * secretAt) + std::string(hex.size() - std::min(hex.size(), 2 * secretAt), '*');
}

std::string hexWhen(bool shown, ByteSpan bytes) { return shown ? toHex(bytes) : std::string(2 * bytes.size(), '*'); }

// An answer to reset (ISO/IEC 7816-3) or to select (ISO/IEC 14443-4, whose first byte is its length).
bool answerToReset(ByteSpan bytes)
{
    return !bytes.empty() && (bytes[0] == 0x3B || bytes[0] == 0x3F || bytes[0] == bytes.size());
}

Item explainAnswer(ByteSpan content, bool show)
{
    const std::uint8_t status = content.size() < 2 ? 0xFF : content[1];
    const auto* const row = std::find_if(std::begin(kStatuses), std::end(kStatuses),
                                         [status](const Status& s) { return s.code == status; });
    const ByteSpan payload = content.from(2);
    Item item = object("", "Answer of the reader", toHex(content.first(2)) + hexText(payload, show),
                       row == std::end(kStatuses) ? "status not known" : row->words);
    item.failed = status != 0;
    if (payload.size() >= 2 && looksLikeStatus(payload.last(2))) {
        item.below.push_back(ExchangeView(show).response(payload));
    }
    return item;
}

} // namespace

std::string slotName(std::uint8_t slot)
{
    return slot == 0x00                   ? "contact slot"
           : slot == 0xFF                 ? "card in the field"
           : slot >= 0x10 && slot <= 0x13 ? "PSAM " + std::to_string(slot - 0x0F)
                                          : "slot " + toHex({slot});
}

std::string payloadHex(ByteSpan command, ByteSpan payload, bool show)
{
    const std::uint8_t operation = command.size() < 2 ? 0 : command[1];
    if (operation == kApdu) {
        return responseHex(command.from(kApduAt), payload, show);
    }
    if (operation == kPowerOn || operation == kActivate) {
        return resetHex(payload, show);
    }
    const bool number = operation == kActivateMemory && payload.size() <= kLongestNumber;
    return hexWhen(show || number, payload);
}

std::string resetHex(ByteSpan answer, bool show) { return hexWhen(show || answerToReset(answer), answer); }

bool looksLikeReaderCommand(ByteSpan content) { return commandOf(content) != nullptr; }

Item explainReset(ByteSpan answer, bool show)
{
    Item item = object("", "Answer to reset", resetHex(answer, show));
    if (!show && !answerToReset(answer)) {
        return item;
    }
    std::vector<AtrPart> parts = decodeAtr(answer.copy());
    item.below.reserve(parts.size());
    for (AtrPart& part : parts) {
        item.below.push_back(object(std::move(part.name), std::move(part.meaning), std::move(part.hex)));
    }
    return item;
}

std::optional<Frame> parseFrame(ByteSpan bytes)
{
    constexpr std::size_t shortest = 8; // start, four of length, two of check, end
    const auto half = [](std::uint8_t byte) { return byte >= 0x30 && byte <= 0x3F; };
    if (bytes.size() < shortest || bytes.front() != kStart || bytes.back() != kEnd ||
        !std::all_of(bytes.begin() + 1, bytes.end() - 1, half)) {
        return std::nullopt;
    }
    const std::size_t length = byteOf(bytes[1], bytes[2]) * 256U + byteOf(bytes[3], bytes[4]);
    Frame frame;
    for (std::size_t at = 5; at + 4 < bytes.size(); at += 2) {
        frame.content.push_back(byteOf(bytes[at], bytes[at + 1]));
    }
    const std::uint8_t check = byteOf(bytes[bytes.size() - 3], bytes[bytes.size() - 2]);
    const unsigned sum = std::accumulate(frame.content.begin(), frame.content.end(), 0U,
                                         [](unsigned a, std::uint8_t b) { return a ^ b; });
    frame.problem = length != frame.content.size() || bytes.size() % 2 != 0
                        ? "the frame's length is wrong: it says " + std::to_string(length)
                    : sum != check ? "the frame's check is wrong"
                                   : "";
    return frame;
}

Item explainReaderCommand(ByteSpan content, bool show)
{
    const Command* const row = commandOf(content);
    if (row == nullptr) {
        return object("", "Command to the reader", hexText(content, show), "not known");
    }
    Item item = object("", "Command to the reader", hexText(content, show), row->name);
    switch (row->operation) {
    case kPowerOn:
        item.words += ": " + slotName(content[4]);
        break;
    case 0x23:
        item.words += ": " + slotName(content[2]);
        break;
    case kApdu: {
        const ByteSpan apdu = content.from(kApduAt);
        item.hex = toHex(content.first(kApduAt)) + commandHex(apdu, show);
        item.words += " to the " + slotName(content[2]);
        item.below.push_back(ExchangeView(show).command(apdu));
        break;
    }
    case kAuthenticate:
        item.hex = memoryHex(content, 4, show);
        item.words += " " + std::to_string(content[2]);
        break;
    case kReadBlock:
    case kWrite:
        item.hex = memoryHex(content, 3, show);
        item.words += " " + std::to_string(content[2]);
        break;
    default:
        break;
    }
    return item;
}

Explanation explainFrame(ByteSpan bytes, bool show)
{
    const auto frame = parseFrame(bytes);
    if (!frame) {
        return {"reader frame", {}, "no frame"};
    }
    Explanation result{"reader frame", {}, frame->problem};
    if (!frame->content.empty()) {
        result.items.push_back(looksLikeReaderCommand(frame->content) ? explainReaderCommand(frame->content, show)
                                                                      : explainAnswer(frame->content, show));
    }
    return result;
}

} // namespace vorn::tool
