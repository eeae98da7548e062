// SPDX-License-Identifier: Apache-2.0
#include "sim/reader/line_decoder.h"

#include <algorithm>
#include <functional>
#include <numeric>
#include <utility>

namespace vorn::sim {

namespace {

constexpr std::uint8_t kZeroCharacter = 0x30;
constexpr std::size_t kOverhead = 6; // characters of the length (4) and of the check (2)

void appendCharacters(Bytes& out, unsigned byte)
{
    out.push_back(static_cast<std::uint8_t>(kZeroCharacter + (byte >> 4 & 0x0F)));
    out.push_back(static_cast<std::uint8_t>(kZeroCharacter + (byte & 0x0F)));
}

std::uint8_t checkOf(const Bytes& content)
{
    return std::accumulate(content.begin(), content.end(), std::uint8_t{0}, std::bit_xor<std::uint8_t>());
}

LineItem badFrame(const char* problem) { return {LineItem::Kind::BadFrame, {}, problem}; }

// A frame's characters, without STX and ETX.
LineItem decodeFrame(const Bytes& characters)
{
    if (std::any_of(characters.begin(), characters.end(), [](unsigned c) { return c < 0x30 || c > 0x3F; })) {
        return badFrame("characters");
    }
    if (characters.size() < kOverhead || characters.size() % 2 != 0) {
        return badFrame("length");
    }
    Bytes decoded;
    for (std::size_t i = 0; i < characters.size(); i += 2) {
        decoded.push_back(static_cast<std::uint8_t>((characters[i] & 0x0F) << 4 | (characters[i + 1] & 0x0F)));
    }
    const std::size_t announced = decoded.at(0) * 256U + decoded.at(1);
    if (announced * 2 + kOverhead != characters.size()) {
        return badFrame("length");
    }
    Bytes content(decoded.begin() + 2, decoded.end() - 1);
    if (checkOf(content) != decoded.back()) {
        return badFrame("check");
    }
    return {LineItem::Kind::Command, std::move(content), {}};
}

} // namespace

Bytes encodeFrame(const Bytes& content)
{
    Bytes frame{kStx};
    appendCharacters(frame, static_cast<unsigned>(content.size() >> 8 & 0xFF));
    appendCharacters(frame, static_cast<unsigned>(content.size() & 0xFF));
    for (const std::uint8_t byte : content) {
        appendCharacters(frame, byte);
    }
    appendCharacters(frame, checkOf(content));
    frame.push_back(kEtx);
    return frame;
}

LineDecoder::LineDecoder(std::vector<std::string> sequences) : sequences_(std::move(sequences)) {}

void LineDecoder::decode(std::uint8_t byte, std::vector<LineItem>& items)
{
    switch (state_) {
    case State::Idle:
        idle(byte, items);
        break;
    case State::Frame:
        inFrame(byte, items);
        break;
    case State::Escape:
        inEscape(byte, items);
        break;
    }
}

void LineDecoder::idle(std::uint8_t byte, std::vector<LineItem>& items)
{
    pending_.clear();
    tooLong_ = false;
    if (byte == kStx) {
        state_ = State::Frame;
    } else if (byte == kEsc) {
        state_ = State::Escape;
    } else {
        items.push_back({LineItem::Kind::Noise, {byte}, {}});
    }
}

// STX and ESC never stand inside a frame: a host that gave a command up half way gets through with the next one.
void LineDecoder::inFrame(std::uint8_t byte, std::vector<LineItem>& items)
{
    if ((byte == kStx && beginsAnew_) || byte == kEsc) {
        items.push_back({LineItem::Kind::Unfinished, {}, {}});
        idle(byte, items);
    } else if (byte == kEtx) {
        items.push_back(tooLong_ ? badFrame("too long") : decodeFrame(pending_));
        state_ = State::Idle;
    } else if (pending_.size() >= charactersMax_) {
        tooLong_ = true;
    } else {
        pending_.push_back(byte);
    }
}

void LineDecoder::inEscape(std::uint8_t byte, std::vector<LineItem>& items)
{
    Bytes longer = pending_;
    longer.push_back(byte);
    const std::string text(longer.begin(), longer.end());
    const auto begins = [&text](const std::string& sequence) { return sequence.compare(0, text.size(), text) == 0; };
    const auto found = std::find_if(sequences_.begin(), sequences_.end(), begins);
    if (found == sequences_.end()) {
        const bool restart = byte == kStx || byte == kEsc;
        items.push_back({LineItem::Kind::UnknownEscape, restart ? pending_ : longer, {}});
        state_ = State::Idle;
        if (restart) {
            idle(byte, items);
        }
    } else if (found->size() == text.size()) {
        items.push_back({LineItem::Kind::Escape, std::move(longer), {}});
        state_ = State::Idle;
    } else {
        pending_ = std::move(longer);
    }
}

} // namespace vorn::sim
