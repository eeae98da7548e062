// SPDX-License-Identifier: Apache-2.0
#include "tools/accept/reader_line.h"

#include "sim/reader/line_decoder.h"
#include "tools/cli/errors.h"
#include "tools/cli/output.h"
#include "tools/session/line_watcher.h"

#include <algorithm>
#include <iterator>

namespace vorn::tool::accept {

namespace {

constexpr std::size_t kRawMax = 256; // bytes of an answer that is no frame
constexpr std::size_t kRepliesKept = 1000;
constexpr Time kRestPatience{500};

const Bytes kFast{0x1B, 0x24, 0x49, 0x32};
const Bytes kSlow{0x1B, 0x24, 0x49, 0x34};
const Bytes kRestore{0x1B, 0x24, 0x42, 0x1B, 0x25, 0x41};
const Bytes kVersion{0x1B, 0x4B, 0x54, 0x4C, 0x56, 0x4E};
const Bytes kFieldOff{0x32, 0x25, 0x00, 0x00}; // changes nothing when the field is off

Bytes powerCommand(std::uint8_t place)
{
    switch (place) {
    case kField:
        return {0x32, 0x24, 0x01, 0x80};
    case kMemory:
        return {0x32, 0x41, 0x01, 0x00};
    default:
        return {0x32, 0x22, 0x01, 0x80, place};
    }
}

Reply replyOf(Heard heard)
{
    Reply reply;
    const auto stx = std::find(heard.bytes.begin(), heard.bytes.end(), sim::kStx);
    const auto etx = std::find(stx, heard.bytes.end(), sim::kEtx);
    if (etx != heard.bytes.end()) {
        const LineFrame frame = decodeFrame({stx + 1, etx});
        if (frame.whole && frame.content.size() > 1) {
            reply.status = frame.content[1];
            reply.payload.assign(frame.content.begin() + 2, frame.content.end());
        }
    }
    reply.heard = std::move(heard);
    return reply;
}

} // namespace

sim::UnitAnswer Reply::answer() const
{
    if (status) {
        return sim::UnitAnswer::ofStatus(*status);
    }
    if (heard.bytes.empty()) {
        return sim::UnitAnswer::silence();
    }
    const std::size_t size = std::min(heard.bytes.size(), kRawMax);
    return {
        sim::UnitAnswer::Kind::Raw, 0, {heard.bytes.begin(), heard.bytes.begin() + static_cast<std::ptrdiff_t>(size)}};
}

ReaderLine::~ReaderLine()
{
    try {
        putToRest();
    } catch (const Failure& failure) {
        note(std::string("vorn: the reader could not be put to rest: ") + failure.what());
    }
}

// Cards off, and a serial reader back where others look for it; it may be silent, or in the middle of a frame.
void ReaderLine::putToRest()
{
    if (!restless_) {
        return;
    }
    channel_.lastWords();
    bool answered = true;
    for (const std::uint8_t place : powered_) {
        const Bytes off = place == kField ? kFieldOff : Bytes{0x32, 0x23, place};
        if (answered) {
            answered = !raw(sim::encodeFrame(off), 1, kRestPatience).heard.bytes.empty();
        }
    }
    powered_.clear();
    if (isTty()) {
        goSlow();
    }
    restless_ = false;
}

// ---------------------------------------------------------------- sequences

void ReaderLine::listenAt(int speed)
{
    if (isTty()) {
        channel_.setSpeed(speed);
    }
}

void ReaderLine::goFast(Time beforeSpeed, Time afterSpeed)
{
    restless_ = true;
    if (!isTty()) {
        return;
    }
    channel_.setSpeed(9600);
    channel_.send(kFast);
    channel_.wait(beforeSpeed);
    channel_.setSpeed(38400);
    channel_.wait(afterSpeed);
}

void ReaderLine::goSlow(Time beforeSpeed, Time afterRestore)
{
    ready_ = false;
    if (!isTty()) {
        return;
    }
    channel_.setSpeed(38400);
    channel_.send(kSlow);
    channel_.wait(beforeSpeed);
    channel_.setSpeed(9600);
    channel_.send(kRestore);
    channel_.wait(afterRestore);
}

Heard ReaderLine::askVersion(Time patience)
{
    channel_.send(kVersion);
    return channel_.listen({0, patience});
}

// A reader that does not follow the switch may take commands where it is.
void ReaderLine::makeReady()
{
    if (ready_) {
        return;
    }
    goFast();
    ready_ = answers();
    if (!ready_ && isTty()) {
        goSlow();
        ready_ = answers();
    }
    if (!ready_) {
        throw Failure(Exit::ReaderSilent, "the reader does not answer commands",
                      "check cable and power, and that the right port is named");
    }
}

bool ReaderLine::answers(Time patience) { return raw(sim::encodeFrame(kFieldOff), 1, patience).status.has_value(); }

// ---------------------------------------------------------------- exchanges

Reply ReaderLine::raw(const Bytes& bytes, int frames, Time patience)
{
    restless_ = true;
    channel_.send(bytes);
    Reply reply = replyOf(channel_.listen({frames, patience}));
    if (replies_.size() < kRepliesKept) {
        replies_.push_back(reply.heard);
    }
    return reply;
}

Reply ReaderLine::command(const Bytes& command)
{
    Reply reply = raw(sim::encodeFrame(command));
    if (watcher_) {
        watcher_(command, reply);
    }
    return reply;
}

void ReaderLine::noteCard(std::uint8_t place, const Reply& reply)
{
    if (reply.ok()) {
        powered_.insert(place == kMemory ? kField : place);
        seen_.answers[place] = reply.payload;
    } else {
        seen_.answers.erase(place);
    }
}

Reply ReaderLine::powerOn(std::uint8_t place)
{
    makeReady();
    Reply reply = command(powerCommand(place));
    noteCard(place, reply);
    return reply;
}

void ReaderLine::powerOff(std::uint8_t place)
{
    const bool field = place == kField || place == kMemory;
    command(field ? kFieldOff : Bytes{0x32, 0x23, place});
    powered_.erase(field ? kField : place);
}

Reply ReaderLine::apdu(std::uint8_t place, const Bytes& apdu)
{
    makeReady();
    Bytes bytes{0x32, 0x26, place};
    std::copy(apdu.begin(), apdu.end(), std::back_inserter(bytes));
    Reply reply = command(bytes);
    if (reply.ok()) {
        seen_.responses[{place, apdu}] = reply.payload;
    }
    return reply;
}

} // namespace vorn::tool::accept
