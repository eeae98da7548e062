// SPDX-License-Identifier: Apache-2.0
// Exchanges of a host with a reader and its cards, of any length, looked at one by one and as they stand in a log and in a
// recording. Those are well formed here, so that what is tried is what stands in them; tool_log and tool_recording try
// their form.
#include "sim/reader/line_recording.h"
#include "support/logged.h"
#include "support/tool_output.h"
#include "tools/explain/apdu_view.h"
#include "tools/explain/frame_view.h"
#include "tools/explain/log_reader.h"
#include "tools/explain/log_story.h"
#include "tools/explain/recording_story.h"

#include <vector>

using namespace vorn;
using namespace vorn::fuzz;

namespace {

using sim::Bytes;
using sim::RecordedLine;

constexpr std::size_t kMostExchanges = 24;
constexpr std::size_t kApduAt = 3; // in a command to the reader

const char* const kMarkers[] = {"capdu", "icc_poweron", "picc_Active", "samicc_capdu", "icc_poweroff"};
const char* const kCalls[] = {"IC_GetInfo", "IC_GenARQC", "IC_CtlScriptData", "IC_GetTranDeta", "IC_SendAPDU"};

struct Exchange {
    std::string marker;
    Bytes command, answer; // the answer: its payload
    std::uint8_t status;   // of the reader
};

Bytes bytesOf(ByteView bytes) { return {bytes.data(), bytes.data() + bytes.size()}; }

// One is a kind (its marker in the log, whether it goes to a card), a slot, a command and an answer.
std::vector<Exchange> exchangesOf(Input& input)
{
    std::vector<Exchange> exchanges;
    while (!input.atEnd() && exchanges.size() < kMostExchanges) {
        const std::uint8_t kind = input.byte();
        const std::uint8_t slot = input.byte();
        const bool toCard = kind / std::size(kMarkers) % 2 != 0;
        Exchange one{kMarkers[kind % std::size(kMarkers)], {}, {}, kind < 0xF0 ? std::uint8_t{0} : kind};
        one.command = toCard ? Bytes{0x32, 0x26, slot} : Bytes{};
        const Bytes sent = bytesOf(input.counted());
        one.command.insert(one.command.end(), sent.begin(), sent.end());
        one.answer = bytesOf(input.counted());
        exchanges.push_back(std::move(one));
    }
    return exchanges;
}

std::string logOfCall(const std::string& call, const std::vector<Exchange>& exchanges)
{
    std::string log = "begin func " + call + " nPortNo:ttyS1\r\n";
    for (const Exchange& one : exchanges) {
        log += fuzz::logOf(one.marker, one.command, one.answer);
    }
    return log;
}

void tellLog(const std::string& log, bool show)
{
    tool::LogStory story(
        show,
        [](const tool::Item& item) {
            requireShowable(item);
            return [] {};
        },
        std::launch::deferred);
    story.add(log.data(), log.size());
    story.end();
}

void requireCardsPlayable(const std::string& log)
{
    tool::Transcript transcript;
    tool::LogReader reader({[&](const tool::LoggedExchange& logged) { transcript.exchange(logged); },
                            [&](const std::string& text, std::size_t) { transcript.text(text); }});
    reader.add(log.data(), log.size());
    reader.end();
    transcript.end();
    for (const tool::PowerCycle& cycle : transcript.cycles()) {
        requirePlayable(cycle);
    }
}

void tellRecording(const std::vector<Exchange>& exchanges, bool show)
{
    std::string text = sim::recordingHead("fuzz");
    RecordedLine line;
    line.speed = 38400;
    const auto add = [&](RecordedLine::Kind kind, const Bytes& content) {
        line.kind = kind;
        line.bytes = sim::encodeFrame(content);
        text += sim::textOf(line);
    };
    for (const Exchange& one : exchanges) {
        add(RecordedLine::Kind::FromHost, one.command);
        Bytes content{0x32, one.status};
        content.insert(content.end(), one.answer.begin(), one.answer.end());
        add(RecordedLine::Kind::FromReader, content);
    }
    tool::RecordingStory story(show, [](const tool::Item& item) { requireShowable(item); });
    story.add(text.data(), text.size());
    story.end();
    require(story.problem().empty(), "a recording that is well formed is understood");
}

void look(const Exchange& one, bool show)
{
    requireShowable(tool::explainReaderCommand(one.command, show));
    const sim::ByteSpan apdu = sim::ByteSpan(one.command).from(kApduAt);
    tool::ExchangeView view(show);
    requireShowable(view.exchange(apdu, one.answer));
    requireShowable(view.command(apdu));
    requireShowable(view.response(one.answer));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    Input input(data, size);
    const std::uint8_t head = input.byte();
    const bool show = (head & 1U) != 0;
    const std::vector<Exchange> exchanges = exchangesOf(input);
    for (const Exchange& one : exchanges) {
        look(one, show);
    }
    const std::string log = logOfCall(kCalls[(head >> 1) % std::size(kCalls)], exchanges);
    tellLog(log, show);
    requireCardsPlayable(log);
    tellRecording(exchanges, show);
    return 0;
}
