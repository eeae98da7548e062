// SPDX-License-Identifier: Apache-2.0
// vorn device: the reader's version.
#include "tools/cli/output.h"
#include "tools/commands/command.h"
#include "tools/commands/link_options.h"
#include "tools/session/reader_version.h"
#include "tools/session/session.h"

#include <nlohmann/json.hpp>

#include <memory>

namespace vorn::tool {

namespace {

struct Options {
    LinkOptions link;
    bool json = false;
};

Exit run(const Options& options)
{
    Session session(options.link);
    const std::string text = readerVersion(session);
    if (options.json) {
        printJson({{"port", session.port()}, {"version", text}});
    } else {
        printLine("Port     " + std::string(session.port()) + "\nVersion  " + text);
    }
    return Exit::Ok;
}

} // namespace

void addDevice(CLI::App& root, Action& action)
{
    const auto options = std::make_shared<Options>();
    CLI::App* const command = root.add_subcommand("device", "Ask the reader for its version");
    command->add_flag("--json", options->json, "Print JSON");
    addLinkOptions(*command, options->link);
    command->callback([options, &action] { action = [options] { return run(*options); }; });
}

} // namespace vorn::tool
