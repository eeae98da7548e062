// SPDX-License-Identifier: Apache-2.0
#include "sim/reader/line_speeds.h"

#include <algorithm>
#include <iterator>
#include <string>

namespace vorn::sim {

namespace {

struct Switching {
    const char* sequence; // behind its ESC
    int sentAt;
    int afterwards;
};

constexpr Switching kSwitching[] = {
    {"$I2", 9600, 38400}, {"$I4", 38400, 9600}, {"$B\x1B%A", 9600, 9600}, {"KTLVN", 9600, 9600}};

std::vector<std::string> sequences()
{
    std::vector<std::string> all;
    std::transform(std::begin(kSwitching), std::end(kSwitching), std::back_inserter(all),
                   [](const Switching& s) { return s.sequence; });
    return all;
}

} // namespace

LineSpeeds::LineSpeeds() : decoder_(sequences()) {}

// A sequence's own bytes have the speed that it is sent at, what stands behind it the one that it leads to.
std::vector<int> LineSpeeds::speedsOf(const Bytes& bytes, int before, int now)
{
    const auto one = [before, now](int speed) { return speed == before ? before : now; };
    std::vector<int> speeds;
    for (const std::uint8_t byte : bytes) {
        std::vector<LineItem> items;
        decoder_.decode(byte, items);
        begun_ = byte == kEsc && begun_ == 0 ? 1 : begun_ > 0 ? begun_ + 1 : 0;
        speeds.push_back(one(implied_));
        for (const LineItem& item : items) {
            const std::string text(item.bytes.begin(), item.bytes.end());
            const auto* const row = std::find_if(std::begin(kSwitching), std::end(kSwitching),
                                                 [&text](const Switching& s) { return text == s.sequence; });
            if (item.kind == LineItem::Kind::Escape && row != std::end(kSwitching)) {
                const auto own = static_cast<std::ptrdiff_t>(std::min(begun_, speeds.size()));
                std::fill(speeds.end() - own, speeds.end(), one(row->sentAt));
                implied_ = row->afterwards;
            }
            begun_ = item.kind != LineItem::Kind::Escape && byte == kEsc ? 1 : 0;
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
