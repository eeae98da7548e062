// SPDX-License-Identifier: Apache-2.0
#include "sim/reader/line_units.h"

#include <utility>

namespace vorn::sim {

const char* const kSwitchFast = "$I2";
const char* const kSwitchSlow = "$I4";
const char* const kRestore = "$B\x1B%A";
const char* const kAskVersion = "KTLVN";

namespace {

LineDecoder decoderFor(bool sequences)
{
    return LineDecoder(sequences ? std::vector<std::string>{kSwitchFast, kSwitchSlow, kRestore, kAskVersion}
                                 : std::vector<std::string>());
}

} // namespace

bool LineUnit::isSequence(const char* sequence) const
{
    return kind == Kind::Sequence && std::string(raw.begin() + 1, raw.end()) == sequence;
}

LineUnits::LineUnits(bool sequences) : sequences_(sequences), decoder_(decoderFor(sequences)) {}

void LineUnits::deliver(LineUnit::Kind kind, std::vector<LineUnit>& units, std::string problem)
{
    if (!raw_.empty()) {
        units.push_back({kind, std::exchange(raw_, {}), {}, std::move(problem)});
    }
}

void LineUnits::add(std::uint8_t byte, std::vector<LineUnit>& units)
{
    std::vector<LineItem> items;
    decoder_.decode(byte, items);
    bool kept = false; // as the end of a unit
    for (LineItem& item : items) {
        const bool brokenOff = item.kind == LineItem::Kind::Unfinished;
        const bool begins = byte == kStx || byte == kEsc; // what follows what was broken off
        if (!brokenOff && !(item.kind == LineItem::Kind::UnknownEscape && begins)) {
            raw_.push_back(byte);
            kept = true;
        }
        switch (item.kind) {
        case LineItem::Kind::Command:
            deliver(LineUnit::Kind::Frame, units);
            units.back().content = std::move(item.bytes);
            break;
        case LineItem::Kind::Escape:
            deliver(LineUnit::Kind::Sequence, units);
            break;
        case LineItem::Kind::BadFrame:
        case LineItem::Kind::Unfinished:
            deliver(LineUnit::Kind::BadFrame, units, brokenOff ? "unfinished" : std::move(item.problem));
            break;
        case LineItem::Kind::UnknownEscape:
        case LineItem::Kind::Noise:
            deliver(LineUnit::Kind::Other, units);
            break;
        }
    }
    if (!kept) {
        raw_.push_back(byte);
    }
    if (raw_.size() >= kRawMax) {
        deliver(LineUnit::Kind::BadFrame, units, "too long");
    }
}

void LineUnits::end(std::vector<LineUnit>& units)
{
    deliver(raw_.empty() || raw_[0] != kStx ? LineUnit::Kind::Other : LineUnit::Kind::BadFrame, units, "unfinished");
    decoder_ = decoderFor(sequences_);
}

} // namespace vorn::sim
