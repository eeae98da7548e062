// SPDX-License-Identifier: Apache-2.0
// vorn help: what a subcommand takes, and what the exit codes mean.
#include "tools/cli/output.h"
#include "tools/cli/quote.h"
#include "tools/commands/command.h"
#include "tools/explain/present.h"

#include <memory>

namespace vorn::tool {

namespace {

struct Options {
    std::vector<std::string> names;
};

Exit showCodes()
{
    Table table;
    table.alignRight(0);
    for (const ExitMeaning& row : exitMeanings()) {
        table.row({std::to_string(static_cast<int>(row.code)), row.meaning});
    }
    print(table.text());
    return Exit::Ok;
}

Exit run(const CLI::App& root, const std::vector<std::string>& names)
{
    if (names.size() == 1 && names[0] == "codes") {
        return showCodes();
    }
    const CLI::App* at = &root;
    std::string path = "vorn";
    for (const std::string& name : names) {
        const auto below = at->get_subcommands([&name](const CLI::App* sub) { return sub->get_name() == name; });
        if (below.empty()) {
            throw Failure(Exit::Usage, "no subcommand " + inQuotes(name), "'vorn --help' shows what there is");
        }
        at = below.front();
        path += " " + name;
    }
    print(at->help(path));
    return Exit::Ok;
}

} // namespace

void addHelp(CLI::App& root, Action& action)
{
    const auto options = std::make_shared<Options>();
    CLI::App* const command =
        root.add_subcommand("help", "Show what a subcommand takes, or the exit codes (help codes)");
    command->add_option("subcommand", options->names, "Such as: info; m1 dump; codes")->type_name("SUBCOMMAND");
    command->callback([options, &root, &action] { action = [options, &root] { return run(root, options->names); }; });
}

} // namespace vorn::tool
