// SPDX-License-Identifier: Apache-2.0
#include "sim/reader/replaying_reader.h"

#include <algorithm>
#include <utility>

namespace vorn::sim {

namespace {

using Kind = RecordedLine::Kind;
using std::chrono::microseconds;

enum Operation : std::uint8_t { kApdu = 0x26, kAuthenticate = 0x42, kWriteBlock = 0x44 };
constexpr std::size_t kApduAt = 3; // behind 32 26 and the slot
constexpr std::size_t kHeader = 4;
constexpr std::uint8_t kSecureMessaging = 0x04; // in the class byte: what follows ends in a MAC

// Commands that a host makes anew each time, or that a redacted recording has with zeros: how many of the reader's
// command bytes have to be the same.
struct Loose {
    std::uint8_t operation;
    int instruction; // of the APDU; -1: any
    std::size_t same;
    bool inRedacted; // only there, and with the same length
};

constexpr Loose kLoose[] = {
    {kApdu, 0xA8, kApduAt + kHeader, false},    // GET PROCESSING OPTIONS: amount, date, random number
    {kApdu, 0xAE, kApduAt + kHeader, false},    // GENERATE AC
    {kApdu, 0x82, kApduAt + kHeader, false},    // EXTERNAL AUTHENTICATE: the issuer's answer
    {kApdu, 0x88, kApduAt + kHeader, false},    // INTERNAL AUTHENTICATE
    {kApdu, 0x20, kApduAt + kHeader + 1, true}, // VERIFY
    {kApdu, 0x24, kApduAt + kHeader + 1, true}, // PIN CHANGE
    {kAuthenticate, -1, 4, true},               // block and kind of key
    {kWriteBlock, -1, 3, true},                 // block
};

bool rowFits(const Loose& row, const Bytes& command)
{
    return command.size() > row.same && command[1] == row.operation &&
           (row.instruction < 0 || command[kApduAt + 1] == row.instruction);
}

bool sameBeginning(const Bytes& a, const Bytes& b, std::size_t count)
{
    return a.size() >= count && b.size() >= count &&
           std::equal(a.begin(), a.begin() + static_cast<std::ptrdiff_t>(count), b.begin());
}

bool hasMac(const Bytes& command)
{
    return command.size() > kApduAt + kHeader && command[1] == kApdu && (command[kApduAt] & kSecureMessaging) != 0;
}

} // namespace

ReplayingReader::ReplayingReader(const Recording& recording, double timeFactor) { learn(recording, timeFactor); }

void ReplayingReader::learn(const Recording& recording, double timeFactor)
{
    LineUnits cutter(true);
    for (const RecordedLine& line : recording.lines) {
        redacted_ = redacted_ || line.kind == Kind::Redacted;
        if (line.kind == Kind::FromReader) {
            learnAnswer(line, timeFactor);
        }
        std::vector<LineUnit> units;
        for (std::size_t i = 0; line.kind == Kind::FromHost && i < line.bytes.size(); ++i) {
            cutter.add(line.bytes[i], units);
        }
        for (LineUnit& unit : units) {
            commands_ += unit.kind == LineUnit::Kind::Frame ? 1 : 0;
            if (unit.kind != LineUnit::Kind::Other) {
                asks_.push_back({std::move(unit), line.at, {}});
            }
        }
    }
}

// Whatever the reader sends belongs to what it was sent last.
void ReplayingReader::learnAnswer(const RecordedLine& line, double timeFactor)
{
    if (asks_.empty()) {
        return;
    }
    const auto passed = static_cast<double>((line.at - asks_.back().at).count());
    const microseconds delay(static_cast<microseconds::rep>(passed * timeFactor));
    std::vector<Output>& answer = asks_.back().answer;
    if (answer.empty() || answer.back().delay != delay) {
        answer.push_back({{}, delay});
    }
    Bytes& bytes = answer.back().bytes;
    bytes.insert(bytes.end(), line.bytes.begin(), line.bytes.end());
}

bool ReplayingReader::alike(const LineUnit& sent, const LineUnit& recorded) const
{
    const Bytes& a = sent.content;
    const Bytes& b = recorded.content;
    if (hasMac(a) && hasMac(b) && sameBeginning(a, b, kApduAt + kHeader)) {
        return true;
    }
    return std::any_of(std::begin(kLoose), std::end(kLoose), [&](const Loose& row) {
        return rowFits(row, a) && (!row.inRedacted || (redacted_ && a.size() == b.size())) &&
               sameBeginning(a, b, row.same);
    });
}

template <class Fits>
std::optional<std::size_t> ReplayingReader::find(Fits fits, bool fromHere) const
{
    const auto begin = asks_.begin() + static_cast<std::ptrdiff_t>(fromHere ? next_ : 0);
    const auto found = std::find_if(begin, asks_.end(), [&fits](const Ask& ask) { return fits(ask.sent); });
    return found == asks_.end() ? std::nullopt : std::optional(static_cast<std::size_t>(found - asks_.begin()));
}

// The next one behind the last that was found; a host that begins anew finds the beginning.
std::optional<std::size_t> ReplayingReader::find(const LineUnit& sent, Event::Kind& kind) const
{
    const auto same = [&sent](const LineUnit& recorded) { return recorded.raw == sent.raw; };
    const auto similar = [this, &sent](const LineUnit& recorded) { return alike(sent, recorded); };
    for (const bool fromHere : {true, false}) {
        kind = Event::Kind::Same;
        if (const auto found = find(same, fromHere)) {
            return found;
        }
        kind = Event::Kind::Alike;
        if (const auto found = find(similar, fromHere)) {
            return found;
        }
    }
    kind = Event::Kind::Missing;
    return std::nullopt;
}

void ReplayingReader::answer(LineUnit&& sent, std::vector<Output>& outputs)
{
    if (sent.isSequence(kSwitchFast)) {
        speed_ = 38400;
    } else if (sent.isSequence(kSwitchSlow) || sent.isSequence(kRestore)) {
        speed_ = 9600;
    }
    Event event;
    if (const auto found = find(sent, event.kind)) {
        next_ = *found + 1;
        for (const Output& output : asks_[*found].answer) {
            outputs.push_back(output);
            event.answer.insert(event.answer.end(), output.bytes.begin(), output.bytes.end());
        }
    }
    if (events_.size() == kEventsMax) {
        events_.erase(events_.begin(), events_.begin() + kEventsMax / 2);
    }
    event.sent = std::move(sent);
    events_.push_back(std::move(event));
}

std::vector<LinePeer::Output> ReplayingReader::receive(const Bytes& bytes, int)
{
    std::vector<Output> outputs;
    std::vector<LineUnit> units;
    for (const std::uint8_t byte : bytes) {
        units_.add(byte, units);
    }
    for (LineUnit& unit : units) {
        if (unit.kind != LineUnit::Kind::Other) {
            answer(std::move(unit), outputs);
        }
    }
    return outputs;
}

std::vector<ReplayingReader::Event> ReplayingReader::takeEvents() { return std::exchange(events_, {}); }

} // namespace vorn::sim
