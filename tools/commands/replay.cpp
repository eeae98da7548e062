// SPDX-License-Identifier: Apache-2.0
// vorn replay: makes from a log a card for the simulator, so that what happened in the field happens at a desk.
#include "sim/reader/line_recording.h"
#include "tools/cli/interrupt.h"
#include "tools/cli/output.h"
#include "tools/commands/command.h"
#include "tools/commands/new_file.h"
#include "tools/explain/transcript.h"

#include <nlohmann/json.hpp>

#include <array>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <memory>

namespace vorn::tool {

namespace {

struct Options {
    std::string log;
    std::string output;
    std::size_t card = 0;
    bool list = false;
    bool force = false;
};

Transcript readLog(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        throw Failure(Exit::Usage, path + ": " + std::strerror(errno));
    }
    Transcript transcript;
    LogReader reader({[&](const LoggedExchange& logged) { transcript.exchange(logged); },
                      [&](const std::string& line, std::size_t) { transcript.text(line); }});
    std::array<char, 65536> piece{};
    while (in.read(piece.data(), piece.size()), in.gcount() > 0) {
        throwIfInterrupted();
        if (sim::looksLikeRecording({piece.data(), static_cast<std::size_t>(in.gcount())})) {
            throw Failure(Exit::Usage, path + " is a recording of the line, and no log",
                          "'vorn sim --replay' answers out of it");
        }
        reader.add(piece.data(), static_cast<std::size_t>(in.gcount()));
    }
    reader.end();
    transcript.end();
    return transcript;
}

void printList(const Transcript& transcript)
{
    std::size_t number = 0;
    for (const PowerCycle& cycle : transcript.cycles()) {
        printLine(std::to_string(++number) + ": " + cycle.slot + ", powered at line " + std::to_string(cycle.line) +
                  ", " + std::to_string(cycle.exchanges.size()) + " commands");
    }
}

Exit run(const Options& options)
{
    const Transcript transcript = readLog(options.log);
    if (transcript.cycles().empty()) {
        throw Failure(Exit::DataMissing,
                      transcript.memoryCards()
                          ? "the calls in this log are memory-card calls, and those write no exchanges to the log"
                          : "the log has no exchange with a card",
                      transcript.memoryCards() ? "what such a card answered cannot be told from the log" : "");
    }
    if (options.list) {
        printList(transcript);
        return Exit::Ok;
    }
    const std::size_t count = transcript.cycles().size();
    const std::size_t card = options.card == 0 ? count : options.card;
    if (card > count) {
        throw Failure(Exit::Usage, "the log has only " + std::to_string(count) + " cards", "--list shows them");
    }
    const Json profile = profileOf(transcript.cycles()[card - 1]);
    if (options.output.empty()) {
        printJson(profile);
    } else {
        NewFile file(options.output, options.force);
        file.write(jsonText(profile) + "\n");
        file.close();
    }
    if (count > 1 && options.card == 0) {
        note("the last of " + std::to_string(count) + " cards in the log; --list shows them, --card takes another");
    }
    if (transcript.leftOut() > 0) {
        note(std::to_string(transcript.leftOut()) + " exchanges that the log does not have as a whole are left out");
    }
    if (transcript.memoryCards()) {
        note("the log has memory-card calls too: those write no exchanges, and are not in the profile");
    }
    return Exit::Ok;
}

} // namespace

void addReplay(CLI::App& root, Action& action)
{
    const auto options = std::make_shared<Options>();
    CLI::App* const command = root.add_subcommand("replay", "Make from a log a card for the simulator");
    command->add_option("log", options->log, "The log file, ICC_COMM_VORN.log")->type_name("FILE")->required();
    command->add_option("--output", options->output, "The profile to write; else it is printed, card data in clear")
        ->type_name("FILE");
    command->add_option("--card", options->card, "Which card of the log, from 1; else the last one");
    command->add_flag("--list", options->list, "Show the cards of the log");
    command->add_flag("--force", options->force, "Replace the file of --output");
    command->callback([options, &action] { action = [options] { return run(*options); }; });
}

} // namespace vorn::tool
