// SPDX-License-Identifier: Apache-2.0
#include "sim/reader/line_speeds.h"

#include <algorithm>
#include <iterator>
#include <string>

namespace vorn::sim {

namespace {

constexpr int kSlow = 9600; // baud, as all speeds here
constexpr int kFast = 38400;

struct Switching {
    const char* sequence; // behind its ESC
    int sentAt;
    int afterwards;
    bool isSwitch; // the question for the version changes nothing, and may be asked at either speed
};

constexpr Switching kSwitching[] = {{"$I2", kSlow, kFast, true},
                                    {"$I4", kFast, kSlow, true},
                                    {"$B\x1B%A", kSlow, kSlow, true},
                                    {"KTLVN", kSlow, kSlow, false}};

const Switching* switchingOf(const LineItem& item)
{
    const std::string text(item.bytes.begin(), item.bytes.end());
    const auto* const row = std::find_if(std::begin(kSwitching), std::end(kSwitching),
                                         [&text](const Switching& s) { return text == s.sequence; });
    return item.kind == LineItem::Kind::Escape && row != std::end(kSwitching) ? row : nullptr;
}

std::vector<std::string> sequences()
{
    std::vector<std::string> all;
    std::transform(std::begin(kSwitching), std::end(kSwitching), std::back_inserter(all),
                   [](const Switching& s) { return s.sequence; });
    return all;
}

} // namespace

LineSpeeds::LineSpeeds() : decoder_(sequences()) {}

// The sequences that end in these bytes.
std::vector<LineSpeeds::Sign> LineSpeeds::signsOf(const Bytes& bytes)
{
    std::vector<Sign> signs;
    for (std::size_t at = 0; at < bytes.size(); ++at) {
        std::vector<LineItem> items;
        decoder_.decode(bytes[at], items);
        begun_ = bytes[at] == kEsc && begun_ == 0 ? 1 : begun_ > 0 ? begun_ + 1 : 0;
        for (const LineItem& item : items) {
            if (const Switching* const row = switchingOf(item); row != nullptr) {
                const std::size_t own = std::min(begun_, at + 1);
                signs.push_back({at + 1 - own, at + 1, row->sentAt, row->afterwards, row->isSwitch});
            }
            begun_ = item.kind != LineItem::Kind::Escape && bytes[at] == kEsc ? 1 : 0;
        }
    }
    return signs;
}

// A sequence's own bytes have the speed that it is sent at, what stands behind it the one that it leads to. A host that
// switched to and fro while nobody looked has the speed again that it had before: only the sequences tell.
std::vector<int> LineSpeeds::speedsOf(const Bytes& bytes, int before, int now)
{
    const std::vector<Sign> signs = signsOf(bytes);
    const auto last = std::find_if(signs.rbegin(), signs.rend(), [](const Sign& s) { return s.isSwitch; });
    const bool switched = last != signs.rend();
    const bool toAndFro =
        switched && last->afterwards == now &&
        std::any_of(signs.begin(), signs.end(), [now](const Sign& s) { return s.isSwitch && s.afterwards != now; });
    const auto one = [&](int speed) { return toAndFro || speed == before ? speed : now; };
    const bool isCommand = !bytes.empty() && bytes.front() == kStx; // which goes at the fast speed
    std::vector<int> speeds(bytes.size(), switched ? before : isCommand ? one(kFast) : now);
    const auto fill = [&speeds](std::size_t begin, std::size_t end, int speed) {
        std::fill(speeds.begin() + static_cast<std::ptrdiff_t>(begin),
                  speeds.begin() + static_cast<std::ptrdiff_t>(end), speed);
    };
    bool seen = false; // a switch, among these bytes
    for (const Sign& sign : signs) {
        if (sign.isSwitch || !seen) {
            fill(sign.begin, sign.end, one(sign.sentAt));
        }
        if (sign.isSwitch) {
            fill(sign.end, speeds.size(), one(sign.afterwards));
            seen = true;
        }
    }
    return speeds;
}

std::vector<LineSpeeds::Piece> LineSpeeds::split(const Bytes& bytes, int before, int now)
{
    const std::vector<int> speeds = speedsOf(bytes, before, now);
    std::vector<Piece> pieces;
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        if (pieces.empty() || pieces.back().speed != speeds[i]) {
            pieces.push_back({{}, speeds[i]});
        }
        pieces.back().bytes.push_back(bytes[i]);
    }
    return pieces;
}

} // namespace vorn::sim
