// SPDX-License-Identifier: Apache-2.0
// vorn device: the reader's version.
#include "tools/cli/output.h"
#include "tools/commands/command.h"
#include "tools/explain/present.h"
#include "tools/session/session.h"

#include "ICC_COMM_VORN.h"

#include <nlohmann/json.hpp>

#include <array>
#include <memory>

namespace vorn::tool {

namespace {

struct Options {
    LinkOptions link;
    bool json = false;
};

Exit run(const Options& options)
{
    const Session session(options.link);
    std::array<char, ICC_DEVICE_TEXT_CAPACITY> version{};
    std::array<char, ICC_DEVICE_TEXT_CAPACITY> date{};
    std::array<char, ICC_DEVICE_TEXT_CAPACITY> serial{};
    session.check(GetDevInfo(session.port(), version.data(), date.data(), serial.data()), Call::Device);
    const std::string text = printable(version.data());
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
