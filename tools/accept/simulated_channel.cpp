// SPDX-License-Identifier: Apache-2.0
#include "tools/accept/simulated_channel.h"

#include "sim/reader/behaviour.h"
#include "sim/reader/line_decoder.h"

#include <algorithm>

namespace vorn::tool::accept {

bool complete(const Bytes& heard, int frames)
{
    if (heard.size() >= (frames == 0 ? kTextMost : kFramesMost)) {
        return true;
    }
    auto at = heard.begin();
    for (int found = 0; found < frames; ++found) {
        at = std::find(std::find(at, heard.end(), sim::kStx), heard.end(), sim::kEtx);
        if (at == heard.end()) {
            return false;
        }
        ++at;
    }
    return frames > 0;
}

Bytes SimulatedChannel::deviceDescriptor() const { return reader_.behaviour().deviceDescriptor; }
Bytes SimulatedChannel::configurationDescriptor() const { return reader_.behaviour().configurationDescriptor; }

void SimulatedChannel::setSpeed(int speed)
{
    speed_ = speed;
    pieces_.clear();
}

void SimulatedChannel::send(const Bytes& bytes)
{
    pieces_.clear();
    sent_ = now_;
    for (const sim::Reader::Output& output : reader_.receive(bytes, asTty_ ? speed_ : 0)) {
        pieces_.push_back({output.bytes, now_ + std::chrono::duration_cast<Time>(output.delay), output.ifSilent});
    }
    std::stable_sort(pieces_.begin(), pieces_.end(), [](const Piece& a, const Piece& b) { return a.due < b.due; });
}

void SimulatedChannel::hear(const Piece& piece, Heard& heard, Time& last)
{
    now_ = std::max(now_, piece.due);
    const Time passed = now_ - last;
    const bool begun = !heard.bytes.empty();
    (begun ? heard.gap : heard.first) = begun ? std::max(heard.gap, passed) : passed;
    last = now_;
    heard.bytes.insert(heard.bytes.end(), piece.bytes.begin(), piece.bytes.end());
    const auto most = static_cast<std::size_t>(reader_.behaviour().packetSize);
    for (std::size_t left = asTty_ ? 0 : piece.bytes.size(); left > 0; left -= std::min(left, most)) {
        heard.packets.push_back(std::min(left, most));
    }
}

Heard SimulatedChannel::listen(const Until& until)
{
    Heard heard;
    Time last = sent_;
    while (!complete(heard.bytes, until.frames)) {
        const bool text = until.frames == 0 && !heard.bytes.empty();
        const Time patience = text ? kTextSilence : until.patience;
        if (pieces_.empty() || pieces_.front().due > now_ + patience) {
            now_ += patience;
            break;
        }
        hear(pieces_.front(), heard, last);
        pieces_.erase(pieces_.begin());
    }
    return heard;
}

} // namespace vorn::tool::accept
