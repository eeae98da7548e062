// SPDX-License-Identifier: Apache-2.0
// vorn sim: a reader with a profile's cards, on a pseudo-terminal, for any host.
#include "sim/profiles/check.h"
#include "sim/reader/behaviour.h"
#include "tools/cli/interrupt.h"
#include "tools/cli/output.h"
#include "tools/cli/quote.h"
#include "tools/commands/command.h"
#include "tools/commands/sim_replay.h"
#include "tools/explain/hex.h"
#include "tools/session/session.h"

#ifdef VORN_USB_REDIRECTION
#include "sim/reader/usb_redir_port.h"
#endif

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include <memory>

namespace vorn::tool {

namespace {

constexpr int kLookAgain = 50; // milliseconds

struct Options {
    std::string profile;
    std::string like;
    bool list = false;
    bool paced = false;
    bool checkSpeed = false;
    std::vector<std::string> faults;
    std::string link;
    std::string usbSocket;
    std::string check;
    bool json = false;
    bool verbose = false;
    ReplayOptions replay;
};

std::string exchangeText(const sim::Reader::Exchange& exchange)
{
    return "> " + toHex(exchange.command) + "\n< " +
           (exchange.answered ? toHex({exchange.status}) + " " + toHex(exchange.payload) : std::string("(silence)"));
}

// History is taken away as it is shown: a reader may run for weeks.
void showHistory(SimulatedReader& simulated, sim::PtyPort& port, bool show)
{
    std::vector<std::string> lines;
    port.locked([&] {
        if (show) {
            lines = simulated.reader.events();
            for (const auto& exchange : simulated.reader.exchanges()) {
                lines.push_back(exchangeText(exchange));
            }
        }
        simulated.reader.clearHistory();
    });
    for (const std::string& line : lines) {
        note(line);
    }
}

Exit listProfiles(bool json)
{
    if (json) {
        printJson(Json(sim::shippedProfiles()));
        return Exit::Ok;
    }
    for (const std::string& name : sim::shippedProfiles()) {
        printLine(name);
    }
    return Exit::Ok;
}

// A unit's own answers at a wrong speed are told from a host's by the speed.
void beLike(const Options& options, SimulatedReader& simulated)
{
    if (!options.like.empty()) {
        simulated.reader.behave(unitOf(options.like));
    }
    simulated.reader.checkLineSpeed(options.checkSpeed || !options.like.empty());
}

// The same cards once more, in a reader that is plugged into a virtual machine. It has cards of its own: the two
// readers may work at the same time.
class UsbReader {
public:
    explicit UsbReader([[maybe_unused]] const Options& options)
    {
        if (options.usbSocket.empty()) {
            return;
        }
#ifdef VORN_USB_REDIRECTION
        reader_ = std::make_unique<SimulatedReader>(options.profile);
        beLike(options, *reader_);
        reader_->addFaults(options.faults);
        port_ = std::make_unique<sim::UsbRedirPort>(reader_->reader, options.usbSocket);
        note("A second reader is a USB device for a virtual machine, on the socket " + options.usbSocket + ".");
#else
        throw Failure(Exit::Usage, "this vorn was built without USB redirection",
                      "install libusbredirparser-dev and build it again");
#endif
    }

private:
#ifdef VORN_USB_REDIRECTION
    std::unique_ptr<SimulatedReader> reader_;
    std::unique_ptr<sim::UsbRedirPort> port_;
#endif
};

Exit checkProfile(const Options& options)
{
    const std::vector<std::string> mistakes = sim::mistakesIn(profileOf(options.check));
    if (options.json) {
        Json lines = Json::array();
        for (const std::string& mistake : mistakes) {
            lines.push_back(withoutNumbers(mistake));
        }
        printJson({{"mistakes", lines}});
    } else {
        for (const std::string& mistake : mistakes) {
            printLine(withoutNumbers(mistake));
        }
        printLine(mistakes.empty() ? "No mistake found." : std::to_string(mistakes.size()) + " to mend.");
    }
    return mistakes.empty() ? Exit::Ok : Exit::Findings;
}

Exit run(const Options& options)
{
    if (!options.check.empty()) {
        return checkProfile(options);
    }
    if (options.list) {
        return listProfiles(options.json);
    }
    if (!options.replay.recording.empty()) {
        ReplayOptions replay = options.replay;
        replay.link = options.link;
        replay.json = options.json;
        replay.verbose = options.verbose;
        return serveReplay(replay);
    }
    if (options.profile.empty()) {
        throw Failure(Exit::Usage, "no profile named", "'vorn sim --list' names those that come with the tool");
    }
    SimulatedReader simulated(options.profile);
    beLike(options, simulated);
    simulated.addFaults(options.faults);
    sim::PtyPort::Options portOptions;
    portOptions.paced = options.paced;
    portOptions.link = options.link;
    sim::PtyPort port(simulated.reader, portOptions);
    const UsbReader usb(options);

    if (options.json) {
        printJsonLine({{"port", port.name()}, {"profile", simulated.profile.name}});
    } else {
        printLine(port.name());
    }
    note("A reader with the cards of '" + simulated.profile.name + "' answers on /dev/" + port.name() + ". Try:");
    note("  vorn info --port " + port.name());
    note("Ctrl-C ends it.");
    while (!interrupted()) {
        showHistory(simulated, port, options.verbose);
        pause(kLookAgain);
    }
    showHistory(simulated, port, options.verbose);
    return Exit::Ok;
}

void addReplayOptions(CLI::App& command, ReplayOptions& replay)
{
    CLI::Option* const recording =
        command.add_option("--replay", replay.recording, "Answer a host as the reader of this recording did")
            ->type_name("FILE");
    command
        .add_option("--time-factor", replay.timeFactor,
                    "With --replay: the recorded pauses so many times as long, 0 for none (1)")
        ->check(CLI::Range(0.0, 100.0))
        ->needs(recording);
    for (const char* const other :
         {"profile", "--list", "--paced", "--check-speed", "--fault", "--check", "--usb-socket"}) {
        recording->excludes(command.get_option(other));
    }
}

} // namespace

void addSim(CLI::App& root, Action& action)
{
    const auto options = std::make_shared<Options>();
    CLI::App* const command = root.add_subcommand("sim", "Serve a simulated reader until Ctrl-C");
    command->add_option("profile", options->profile, "Name of a profile, or the path of a file")->type_name("PROFILE");
    command->add_option("--like", options->like, "Behave as the unit did that this report of 'vorn accept' was made of")
        ->type_name("FILE");
    command->add_flag("--list", options->list, "Name the profiles that there are");
    command->add_flag("--paced", options->paced, "Take the time that a real line takes");
    command->add_flag("--check-speed", options->checkSpeed, "What comes at another speed than the reader's is garbage");
    command->add_option("--fault", options->faults, "Something that goes wrong, such as status=06@3 (repeatable)")
        ->type_name("FAULT")
        ->allow_extra_args(false);
    command->add_option("--check", options->check, "Only tell all that is wrong with this profile")
        ->type_name("PROFILE");
    command->add_option("--link", options->link, "Also make this symbolic link to the terminal")->type_name("FILE");
    command
        ->add_option("--usb-socket", options->usbSocket,
                     "Also be a USB device for a virtual machine, by USB redirection on this unix socket")
        ->type_name("FILE");
    command->add_flag("--json", options->json, "Name the port in JSON");
    command->add_flag("-v,--verbose", options->verbose,
                      "Show what the reader is asked and answers (card data in clear)");
    addReplayOptions(*command, options->replay);
    command->get_option("--like")->excludes(command->get_option("--replay"));
    command->callback([options, &action] { action = [options] { return run(*options); }; });
}

} // namespace vorn::tool
