// SPDX-License-Identifier: Apache-2.0
#include "tools/session/line_watcher.h"

#include "sim/reader/line_decoder.h"

#include <algorithm>
#include <utility>

namespace vorn::tool {

namespace {

using sim::kEtx;
using sim::kStx;

constexpr std::size_t kApduAt = 3; // behind 32 26 and the slot
constexpr std::size_t kStatusAt = 1;
constexpr std::size_t kExchangesKept = 4096; // of a call that asks for a card without an end

void appendBounded(Bytes& to, const Bytes& bytes, std::size_t most)
{
    const std::size_t room = most - std::min(most, to.size());
    to.insert(to.end(), bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(std::min(room, bytes.size())));
}

Bytes framed(const Bytes& line, Bytes::const_iterator& end)
{
    const auto start = std::find(line.begin(), line.end(), kStx);
    end = std::find(start, line.end(), kEtx);
    return end == line.end() ? Bytes() : Bytes(start + 1, end);
}

bool nibble(std::uint8_t character) { return (character & 0xF0U) == 0x30; }

// The reply of a reader, or what else came in its place.
void judge(const Bytes& line, const Bytes& frameSent, LineExchange& exchange)
{
    using Reply = LineExchange::Reply;
    const auto start = std::find(line.begin(), line.end(), kStx);
    if (line.empty()) {
        exchange.reply = Reply::None;
    } else if (std::search(line.begin(), line.end(), frameSent.begin(), frameSent.end()) != line.end()) {
        exchange.reply = Reply::Echo;
    } else if (start == line.end() || start + 1 == line.end() || !nibble(*(start + 1))) {
        exchange.reply = Reply::Foreign;
    } else {
        Bytes::const_iterator end;
        const LineFrame frame = decodeFrame(framed(line, end));
        exchange.reply = frame.whole && frame.content.size() > kStatusAt ? Reply::Whole : Reply::Damaged;
        if (exchange.reply == Reply::Whole) {
            exchange.status = frame.content[kStatusAt];
            exchange.payload.assign(frame.content.begin() + kStatusAt + 1, frame.content.end());
        }
    }
}

} // namespace

Bytes LineExchange::apdu() const
{
    return of(Operation::Apdu) && command.size() > kApduAt ? Bytes(command.begin() + kApduAt, command.end()) : Bytes();
}

LineFrame decodeFrame(const Bytes& characters)
{
    constexpr std::size_t overhead = 3; // two bytes of length, one of check
    LineFrame frame;
    if (characters.size() % 2 != 0 || !std::all_of(characters.begin(), characters.end(), nibble)) {
        return frame;
    }
    Bytes bytes;
    for (std::size_t i = 0; i < characters.size(); i += 2) {
        bytes.push_back(static_cast<std::uint8_t>((characters[i] & 0x0FU) << 4 | (characters[i + 1] & 0x0FU)));
    }
    if (bytes.size() < overhead || bytes[0] * 256U + bytes[1] != bytes.size() - overhead) {
        return frame;
    }
    frame.content.assign(bytes.begin() + 2, bytes.end() - 1);
    std::uint8_t check = bytes.back();
    for (const std::uint8_t byte : frame.content) {
        check ^= byte;
    }
    frame.whole = check == 0;
    return frame;
}

void LineWatcher::begin()
{
    exchanges_.clear();
    current_ = {};
    for (Bytes* const bytes : {&frameSent_, &reply_, &stray_, &sent_, &abandoned_}) {
        bytes->clear();
    }
    inFrame_ = waiting_ = false;
}

void LineWatcher::add(TapRecord record, const Bytes& bytes)
{
    if (record == TapRecord::Sent) {
        sent(bytes);
    } else if (record == TapRecord::Received) {
        received(bytes);
    }
}

void LineWatcher::end(bool stopped)
{
    if (stopped && waiting_ && (reply_.empty() || std::find(reply_.begin(), reply_.end(), kStx) != reply_.end())) {
        abandoned_ = current_.command; // perhaps just being answered
        waiting_ = false;
    }
    finish();
}

void LineWatcher::sent(const Bytes& bytes)
{
    for (const std::uint8_t byte : bytes) {
        if (byte == kStx) {
            finish();
            inFrame_ = true;
            frameSent_.clear();
        }
        if (!inFrame_) {
            appendBounded(sent_, {byte}, kMost);
            continue;
        }
        frameSent_.push_back(byte);
        if (byte == kEtx) {
            inFrame_ = false;
            waiting_ = true;
            reply_.clear();
            current_ = {};
            current_.command = decodeFrame({frameSent_.begin() + 1, frameSent_.end() - 1}).content;
        }
    }
}

void LineWatcher::received(const Bytes& bytes)
{
    if (!waiting_) {
        appendBounded(stray_, bytes, kMost);
        return;
    }
    appendBounded(reply_, bytes, kMost);
    const auto start = std::find(reply_.begin(), reply_.end(), kStx);
    if (std::find(start, reply_.end(), kEtx) != reply_.end()) {
        finish();
    }
}

void LineWatcher::finish()
{
    if (!std::exchange(waiting_, false)) {
        return;
    }
    judge(reply_, frameSent_, current_);
    if (exchanges_.size() == kExchangesKept) {
        exchanges_.erase(exchanges_.begin() + 1, exchanges_.begin() + kExchangesKept / 2);
    }
    exchanges_.push_back(current_);
    if (receiver_) {
        receiver_(current_);
    }
}

} // namespace vorn::tool
