// SPDX-License-Identifier: Apache-2.0
// The command line as it was declared, for what is made out of it: completion and manual pages.
#pragma once

#include <CLI/CLI.hpp>
#include <nlohmann/json_fwd.hpp>

#include <string>
#include <vector>

namespace vorn::tool {

// What an option or argument takes, as the help names it: "PORT", "HEX", "{A,B,AB}", "INT in [0 - 3600]". Empty for a
// flag.
std::string valueName(const CLI::Option& option);

// The members of a value that is one of a set; none for other values.
std::vector<std::string> valueSet(const CLI::Option& option);

// Those that the help shows.
std::vector<const CLI::App*> subcommandsOf(const CLI::App& command);
const CLI::App* subcommandOf(const CLI::App& command, const std::string& name); // or nullptr
std::vector<const CLI::Option*> optionsOf(const CLI::App& command);             // without positional arguments
std::vector<const CLI::Option*> argumentsOf(const CLI::App& command);           // the positional ones
std::vector<std::string> namesOf(const CLI::Option& option);                    // "-p", "--port"

// A command with all below it.
nlohmann::ordered_json describe(const CLI::App& command);

} // namespace vorn::tool
