// SPDX-License-Identifier: Apache-2.0
// vorn watch: cards as they come and go.
#include "tools/cli/interrupt.h"
#include "tools/cli/output.h"
#include "tools/commands/command.h"
#include "tools/commands/link_options.h"
#include "tools/explain/frame_view.h"
#include "tools/session/session.h"
#include "tools/session/slots.h"

#include <nlohmann/json.hpp>

#include <array>
#include <chrono>
#include <ctime>
#include <map>
#include <memory>

namespace vorn::tool {

namespace {

constexpr int kPause = 300; // milliseconds between two looks

struct Options {
    LinkOptions link;
    int seconds = 0;
    bool json = false;
};

std::string now()
{
    const std::time_t seconds = std::time(nullptr);
    std::tm local{};
    localtime_r(&seconds, &local);
    std::array<char, 32> text{};
    std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M:%S", &local);
    return text.data();
}

std::string what(const SlotState& state)
{
    return state.mute           ? "a card that does not answer"
           : state.kind.empty() ? ""
                                : state.kind + " " + resetHex(state.answer, false);
}

void tell(const SlotState& state, const std::string& before, bool json)
{
    const std::string here = what(state);
    const char* const event = here.empty() ? "gone" : before.empty() ? "came" : "changed";
    if (json) {
        printJsonLine(
            {{"time", now()}, {"place", state.name}, {"event", event}, {"card", here.empty() ? before : here}});
    } else {
        printLine(now() + "  " + state.name + "  " + event + "  " + (here.empty() ? before : here));
    }
}

Exit run(const Options& options)
{
    using Clock = std::chrono::steady_clock;
    const auto end = Clock::now() + std::chrono::seconds(options.seconds);
    Session session(options.link);
    std::map<std::string, std::string> known;
    note("Cards as they come and go; Ctrl-C ends it.");
    while (!interrupted() && (options.seconds == 0 || Clock::now() < end)) {
        for (const SlotState& state : lookIntoSlots(session, Slots::User)) {
            std::string& before = known[state.name];
            if (what(state) != before) {
                tell(state, before, options.json);
                before = what(state);
            }
        }
        pause(kPause);
    }
    return Exit::Ok;
}

} // namespace

void addWatch(CLI::App& root, Action& action)
{
    const auto options = std::make_shared<Options>();
    CLI::App* const command = root.add_subcommand("watch", "Tell when cards come and go");
    command->add_option("--for", options->seconds, "Seconds to watch (until Ctrl-C)")->check(CLI::Range(1, 86400));
    command->add_flag("--json", options->json, "Print JSON, a line for each event");
    addLinkOptions(*command, options->link);
    command->callback([options, &action] { action = [options] { return run(*options); }; });
}

} // namespace vorn::tool
