// SPDX-License-Identifier: Apache-2.0
#include "tools/cli/command_line.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <sstream>

namespace vorn::tool {

using Json = nlohmann::ordered_json;

// The parser names a type, and behind a colon what checks the value; the check says more.
std::string valueName(const CLI::Option& option)
{
    if (option.get_items_expected_max() == 0) {
        return {};
    }
    const std::string name = option.get_type_name();
    const std::size_t check = name.find(':');
    return check == std::string::npos ? name : name.substr(check + 1);
}

std::vector<std::string> valueSet(const CLI::Option& option)
{
    const std::string name = valueName(option);
    std::vector<std::string> members;
    if (name.size() > 2 && name.front() == '{' && name.back() == '}') {
        std::istringstream list(name.substr(1, name.size() - 2));
        for (std::string member; std::getline(list, member, ',');) {
            members.push_back(member);
        }
    }
    return members;
}

std::vector<const CLI::App*> subcommandsOf(const CLI::App& command)
{
    return command.get_subcommands([](const CLI::App* sub) { return !sub->get_group().empty(); });
}

const CLI::App* subcommandOf(const CLI::App& command, const std::string& name)
{
    for (const CLI::App* const sub : subcommandsOf(command)) {
        if (sub->get_name() == name) {
            return sub;
        }
    }
    return nullptr;
}

std::vector<const CLI::Option*> optionsOf(const CLI::App& command)
{
    return command.get_options(
        [](const CLI::Option* option) { return !option->get_positional() && !option->get_group().empty(); });
}

std::vector<const CLI::Option*> argumentsOf(const CLI::App& command)
{
    return command.get_options([](const CLI::Option* option) { return option->get_positional(); });
}

std::vector<std::string> namesOf(const CLI::Option& option)
{
    std::vector<std::string> names;
    for (const std::string& name : option.get_snames()) {
        names.push_back("-" + name);
    }
    for (const std::string& name : option.get_lnames()) {
        names.push_back("--" + name);
    }
    return names;
}

namespace {

template <class Set>
Json sortedNames(const Set& options)
{
    std::vector<std::string> names;
    for (const CLI::Option* const option : options) {
        names.push_back(option->get_name());
    }
    std::sort(names.begin(), names.end());
    return names;
}

Json describe(const CLI::Option& option)
{
    return {{"names", option.get_positional() ? std::vector{option.get_name(true)} : namesOf(option)},
            {"value", valueName(option)},
            {"default", option.get_default_str()},
            {"required", option.get_required()},
            {"repeatable", option.get_items_expected_max() > 1},
            {"group", option.get_group()},
            {"description", option.get_description()},
            {"excludes", sortedNames(option.get_excludes())},
            {"needs", sortedNames(option.get_needs())}};
}

} // namespace

Json describe(const CLI::App& command)
{
    Json document = {{"name", command.get_name()},
                     {"description", command.get_description()},
                     {"arguments", Json::array()},
                     {"options", Json::array()},
                     {"subcommands", Json::array()}};
    for (const CLI::Option* const argument : argumentsOf(command)) {
        document["arguments"].push_back(describe(*argument));
    }
    for (const CLI::Option* const option : optionsOf(command)) {
        document["options"].push_back(describe(*option));
    }
    for (const CLI::App* const sub : subcommandsOf(command)) {
        document["subcommands"].push_back(describe(*sub));
    }
    return document;
}

} // namespace vorn::tool
