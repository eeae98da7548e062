// SPDX-License-Identifier: Apache-2.0
// A log file: the same exchanges and the same story whatever pieces it comes in, and a card made from it that the
// simulator takes.
#include "support/logged.h"
#include "support/tool_output.h"
#include "tools/explain/log_entries.h"
#include "tools/explain/log_reader.h"
#include "tools/explain/log_story.h"

#include <vector>

using namespace vorn;
using namespace vorn::fuzz;

namespace {

template <class Reader>
void feed(Reader& reader, const std::string& log, std::size_t piece)
{
    for (std::size_t at = 0; at < log.size(); at += piece) {
        const std::string part = log.substr(at, piece); // a block of its own
        reader.add(part.data(), part.size());
    }
    reader.end();
}

void requireEntriesInside(const std::string& line)
{
    std::size_t length = 0;
    for (const tool::LogEntry& entry : tool::entriesOf(line)) {
        require(line.find(entry.text) != std::string::npos, "an entry's text stands in its line");
        length += entry.text.size();
        for (const auto& [name, value] : tool::argumentsOf(entry.text)) {
            require(entry.text.find(name + ":" + value) != std::string::npos, "an argument stands in its entry");
        }
    }
    require(length <= line.size(), "no byte belongs to two entries");
}

struct Read {
    std::vector<std::string> events;
    tool::Transcript transcript;
};

void read(const std::string& log, std::size_t piece, Read& into)
{
    tool::LogReader reader({[&into](const tool::LoggedExchange& logged) {
                                require(logged.command.size() <= tool::LogReader::kLongestDump &&
                                            logged.answer.size() <= tool::LogReader::kLongestDump,
                                        "a dump has its bound");
                                into.events.push_back(std::to_string(logged.line) + logged.marker + " " +
                                                      sim::toHex(logged.command) + " " + sim::toHex(logged.answer) +
                                                      (logged.cut ? " cut" : ""));
                                into.transcript.exchange(logged);
                            },
                            [&into](const std::string& text, std::size_t line) {
                                requireEntriesInside(text);
                                into.events.push_back(std::to_string(line) + ":" + text);
                                into.transcript.text(text);
                            }});
    feed(reader, log, piece);
    into.transcript.end();
}

template <class Show>
std::string told(const std::string& log, std::size_t piece, bool show, Show textOf)
{
    std::string text;
    tool::LogStory story(
        show, [&](tool::Item item) { return [&text, told = textOf(item)] { text += told; }; }, std::launch::deferred);
    feed(story, log, piece);
    return text;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    Input input(data, size);
    const std::size_t piece = 1U + input.byte();
    const bool show = (input.byte() & 1U) != 0;
    const std::string log = stringOf(input.rest());

    Read whole;
    Read pieces;
    read(log, log.size() + 1, whole);
    read(log, piece, pieces);
    require(whole.events == pieces.events, "a cut changes nothing");
    const auto asText = [](const tool::Item& item) { return tool::textOf(item); };
    require(told(log, log.size() + 1, show, requireShowable) == told(log, piece, show, asText),
            "a cut changes no story");
    if (!whole.transcript.cycles().empty()) {
        requirePlayable(whole.transcript.cycles().back());
    }
    tool::looksLikeServiceLog(log);
    for (const tool::Item& item : tool::explainTraceFile(log, show)) {
        requireShowable(item);
    }
    return 0;
}
