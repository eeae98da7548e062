// SPDX-License-Identifier: Apache-2.0
#include "tools/cli/interrupt.h"
#include "tools/cli/output.h"
#include "tools/commands/command.h"

#include <CLI/CLI.hpp>

#include <fcntl.h>
#include <unistd.h>

#include <exception>

namespace {

using namespace vorn::tool;

int report(const Failure& failure)
{
    const std::string message = failure.what();
    if (!message.empty()) {
        note("vorn: " + message);
    }
    if (!failure.hint().empty()) {
        note("      " + failure.hint());
    }
    return static_cast<int>(failure.exitCode());
}

// Help is a result; anything else is a mistake on the command line.
int answerParser(const CLI::App& app, const CLI::ParseError& error)
{
    if (error.get_exit_code() == static_cast<int>(CLI::ExitCodes::Success)) {
        const auto* const called = dynamic_cast<const CLI::CallForHelp*>(&error);
        print(called != nullptr || dynamic_cast<const CLI::CallForAllHelp*>(&error) != nullptr
                  ? app.help("", called != nullptr ? CLI::AppFormatMode::Normal : CLI::AppFormatMode::All)
                  : std::string(error.what()) + "\n");
        return 0;
    }
    throw Failure(Exit::Usage, error.what(), "'vorn --help' and 'vorn SUBCOMMAND --help' show what there is");
}

int run(int argc, char** argv)
{
    CLI::App app("Reads and tries cards in a VORN DK7710 reader, or in a simulated one.", "vorn");
    app.require_subcommand(1);
    app.set_help_all_flag("--help-all", "Help for all subcommands");
    app.footer("Exit codes are listed in the manual (docs/vorn.md).");
    Action action;
    for (const auto add :
         {addInfo, addAtr, addApdu, addSale, addLog, addM1, addWallet, addDevice, addDecode, addReplay, addSim}) {
        add(app, action);
    }
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return answerParser(app, error);
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
        return report(failure);
    } catch (const std::exception& error) {
        return report(Failure(Exit::Internal, error.what()));
    }
}
