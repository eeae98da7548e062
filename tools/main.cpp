// SPDX-License-Identifier: Apache-2.0
#include "tools/cli/command_line.h"
#include "tools/cli/interrupt.h"
#include "tools/cli/output.h"
#include "tools/cli/quote.h"
#include "tools/cli/version.h"
#include "tools/commands/command.h"

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <exception>
#include <optional>
#include <string>

namespace {

using namespace vorn::tool;

int report(const Failure& failure, bool json)
{
    const std::string message = withoutNumbers(failure.what());
    if (!message.empty()) {
        note("vorn: " + message);
    }
    if (!failure.hint().empty()) {
        note("      " + failure.hint());
    }
    if (json && !failure.told() && !documentPrinted() && !message.empty()) {
        try {
            auto document = errorDocument(failure);
            document["message"] = message;
            printJson({{"error", document}});
        } catch (const Failure& noOutput) {
            return static_cast<int>(noOutput.exitCode());
        }
    }
    return static_cast<int>(failure.exitCode());
}

// Also when the rest of the command line cannot be read. What stands behind "--" is another program's.
bool asksForJson(int argc, char** argv)
{
    const auto isWord = [](const char* word) {
        return [word](const char* argument) { return std::string(argument) == word; };
    };
    char** const end = std::find_if(argv + 1, argv + argc, isWord("--"));
    return std::any_of(argv + 1, end, isWord("--json"));
}

// The first word that should be the name of a subcommand and is none.
std::optional<Failure> unknownSubcommand(CLI::App& app, int argc, char** argv)
{
    const CLI::App* at = &app;
    for (int i = 1; i < argc && argv[i][0] != '-'; ++i) {
        const std::string word = argv[i];
        const auto below = subcommandsOf(*at);
        std::string known;
        const CLI::App* found = nullptr;
        for (const CLI::App* const sub : below) {
            known += (known.empty() ? "" : ", ") + sub->get_name();
            found = sub->get_name() == word ? sub : found;
        }
        if (below.empty()) {
            return std::nullopt;
        }
        if (found == nullptr) {
            return Failure(Exit::Usage, "no subcommand " + inQuotes(word), "there are " + known);
        }
        at = found;
    }
    return std::nullopt;
}

// Help is a result; anything else is a mistake on the command line.
int answerParser(CLI::App& app, const CLI::ParseError& error, int argc, char** argv)
{
    if (error.get_exit_code() == static_cast<int>(CLI::ExitCodes::Success)) {
        const auto* const called = dynamic_cast<const CLI::CallForHelp*>(&error);
        print(called != nullptr || dynamic_cast<const CLI::CallForAllHelp*>(&error) != nullptr
                  ? app.help("", called != nullptr ? CLI::AppFormatMode::Normal : CLI::AppFormatMode::All)
                  : std::string(error.what()) + "\n");
        return 0;
    }
    if (const auto unknown = unknownSubcommand(app, argc, argv)) {
        throw *unknown;
    }
    throw Failure(Exit::Usage, error.what(), "'vorn --help' and 'vorn SUBCOMMAND --help' show what there is");
}

int run(int argc, char** argv)
{
    CLI::App app("Reads and tries cards in a VORN DK7710 reader, or in a simulated one.", "vorn");
    app.require_subcommand(1);
    app.set_help_all_flag("--help-all", "Help for all subcommands");
    app.set_version_flag(
        "--version", [] { return versionText(); }, "Versions of tool and library");
    app.footer("Exit codes are listed in the manual (docs/vorn.md).");
    Action action;
    for (const auto add :
         {addInfo, addAtr, addApdu, addSale, addLog, addM1, addWallet, addDevice, addDecode, addReplay, addRecord,
          addSim, addIssuer, addPorts, addDoctor, addAccept, addWatch, addHelp, addComplete}) {
        add(app, action);
    }
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return answerParser(app, error, argc, argv);
    }
    return static_cast<int>(action());
}

// A standard stream that is closed would give its number to the first file that is opened, and results would go there.
void fillStandardStreams()
{
    int descriptor = 0;
    do {
        descriptor = ::open("/dev/null", O_RDWR);
    } while (descriptor >= 0 && descriptor <= STDERR_FILENO);
    if (descriptor > STDERR_FILENO) {
        ::close(descriptor);
    }
}

} // namespace

int main(int argc, char** argv)
{
    fillStandardStreams();
    keepStandardOutput();
    catchInterrupts();
    try {
        return run(argc, argv);
    } catch (const Failure& failure) {
        return report(failure, asksForJson(argc, argv));
    } catch (const std::exception& error) {
        return report(Failure(Exit::Internal, error.what()), asksForJson(argc, argv));
    }
}
