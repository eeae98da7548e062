// SPDX-License-Identifier: Apache-2.0
#include "tools/commands/link_options.h"

#include <CLI/CLI.hpp>

namespace vorn::tool {

void addLinkOptions(CLI::App& command, LinkOptions& options)
{
    CLI::Option* const port =
        command.add_option("--port,-p", options.port, "Reader: a tty such as ttyS1 or pts/3, or USB")
            ->type_name("PORT")
            ->group("Reader");
    CLI::Option* const profile =
        command.add_option("--sim", options.profile, "Simulated reader with this profile's cards")
            ->type_name("PROFILE")
            ->group("Reader");
    port->excludes(profile);
    command.add_option("--fault", options.faults, "Fault of the simulated reader, such as silence@4 (repeatable)")
        ->type_name("FAULT")
        ->allow_extra_args(false)
        ->needs(profile)
        ->group("Reader");
    command.add_flag("--paced", options.paced, "The simulated line takes a real line's time")
        ->needs(profile)
        ->group("Reader");
    command.add_option("--wait", options.wait, "Seconds to wait for a card; a call may take 10 more")
        ->check(CLI::Range(0, 3600))
        ->capture_default_str()
        ->group("Reader");
    command.add_option("--log-dir", options.logDirectory, "Directory for the library's log files (card data in clear)")
        ->type_name("DIR")
        ->group("Logs");
    command.add_flag("--keep-logs", options.keepLogs, "Do not remove the log files")->group("Logs");
    command.add_flag("-v,--verbose", options.verbose, "Show the exchanges with reader and card");
}

void addInterfaceOptions(CLI::App& command, InterfaceOptions& options)
{
    CLI::Option* const contact = command.add_flag("--contact", options.contact, "Only the contact slot");
    command.add_flag("--contactless", options.contactless, "Only the contactless field")->excludes(contact);
}

} // namespace vorn::tool
