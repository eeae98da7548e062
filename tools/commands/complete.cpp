// SPDX-License-Identifier: Apache-2.0
// vorn complete: what may stand next on a command line, for the completion of shells (tools/completion); and the whole
// command line as a document, for the manual pages. Not shown in the help.
#include "sim/profiles/profile.h"
#include "sim/reader/fault.h"
#include "tools/cli/command_line.h"
#include "tools/cli/output.h"
#include "tools/commands/command.h"
#include "tools/session/port_list.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <functional>
#include <memory>
#include <set>

namespace vorn::tool {

namespace {

struct Options {
    std::vector<std::string> words;
    bool describe = false;
};

bool beginsWith(const std::string& text, const std::string& beginning)
{
    return text.compare(0, beginning.size(), beginning) == 0;
}

// Shells take a word apart at '=': "--sim", "=", "debit".
std::vector<std::string> joined(const std::vector<std::string>& words)
{
    std::vector<std::string> all;
    bool open = false;
    for (const std::string& word : words) {
        if (!all.empty() && (open || word == "=")) {
            all.back() += word;
        } else {
            all.push_back(word);
        }
        open = word == "=";
    }
    return all;
}

const CLI::Option* optionNamed(const CLI::App& command, const std::string& name)
{
    for (const CLI::Option* const option : optionsOf(command)) {
        const std::vector<std::string> names = namesOf(*option);
        if (std::find(names.begin(), names.end(), name) != names.end()) {
            return option;
        }
    }
    return nullptr;
}

class Completion {
public:
    explicit Completion(const CLI::App& root) : root_(root), at_(&root) {}

    // The last word is the one that is being written.
    void complete(const std::vector<std::string>& words)
    {
        for (std::size_t i = 0; i + 1 < words.size(); ++i) {
            pass(words[i]);
        }
        word_ = words.empty() ? "" : words.back();
        const std::size_t sign = word_.find('=');
        if (open_ != nullptr) {
            offerValues(*open_);
        } else if (beginsWith(word_, "--") && sign != std::string::npos) {
            const CLI::Option* const option = optionNamed(*at_, word_.substr(0, sign));
            word_.erase(0, sign + 1);
            if (option != nullptr) {
                offerValues(*option);
            }
        } else if (beginsWith(word_, "-")) {
            offerOptions();
        } else if (!subcommandsOf(*at_).empty()) {
            offerSubcommands(*at_);
        } else {
            offerArguments();
        }
    }

private:
    void pass(const std::string& word)
    {
        if (open_ != nullptr) {
            open_ = nullptr;
        } else if (beginsWith(word, "-")) {
            const CLI::Option* const option = optionNamed(*at_, word.substr(0, word.find('=')));
            if (option != nullptr) {
                given_.insert(option);
            }
            const bool takes = option != nullptr && !valueName(*option).empty();
            open_ = takes && word.find('=') == std::string::npos ? option : nullptr;
        } else if (const CLI::App* const sub = subcommandOf(*at_, word)) {
            at_ = sub;
        } else {
            arguments_.push_back(word);
        }
    }

    // A line for each: the word, and what it means.
    void offer(const std::string& word, const std::string& meaning = {})
    {
        if (beginsWith(word, word_)) {
            printLine(meaning.empty() ? word : word + "\t" + meaning);
        }
    }

    // Not what was given already, nor what cannot stand beside it.
    void offerOptions()
    {
        for (const CLI::Option* const option : optionsOf(*at_)) {
            const bool again = given_.count(option) != 0 && option->get_items_expected_max() <= 1;
            const auto& excluded = option->get_excludes();
            const bool barred = std::any_of(given_.begin(), given_.end(), [&excluded](const CLI::Option* given) {
                return excluded.count(const_cast<CLI::Option*>(given)) != 0;
            });
            if (!again && !barred) {
                for (const std::string& name : namesOf(*option)) {
                    offer(name, option->get_description());
                }
            }
        }
    }

    void offerSubcommands(const CLI::App& command)
    {
        for (const CLI::App* const sub : subcommandsOf(command)) {
            offer(sub->get_name(), sub->get_description());
        }
    }

    void offerArguments()
    {
        const auto arguments = argumentsOf(*at_);
        const std::size_t last = arguments.size() - 1;
        const bool room =
            !arguments.empty() && (arguments_.size() <= last || arguments[last]->get_items_expected_max() > 1);
        if (room) {
            offerValues(*arguments[std::min(arguments_.size(), last)]);
        } else {
            offerOptions();
        }
    }

    void offerValues(const CLI::Option& option)
    {
        for (const std::string& member : valueSet(option)) {
            offer(member);
        }
        const std::string value = valueName(option);
        if (value == "PROFILE") {
            for (const std::string& name : sim::shippedProfiles()) {
                offer(name);
            }
            printLine(":files");
        } else if (value == "PORT") {
            for (const PortInfo& port : listPorts()) {
                offer(port.name, port.device);
            }
        } else if (value == "FAULT") {
            for (const std::string& kind : sim::faultKinds()) {
                offer(kind);
            }
        } else if (value == "SUBCOMMAND") {
            offerHelp();
        } else if (value == "FILE") {
            printLine(":files");
        } else if (value == "DIR") {
            printLine(":directories");
        }
    }

    void offerHelp()
    {
        const CLI::App* command = &root_;
        for (const std::string& name : arguments_) {
            command = command == nullptr ? nullptr : subcommandOf(*command, name);
        }
        if (command != nullptr) {
            offerSubcommands(*command);
        }
        if (arguments_.empty()) {
            offer("codes", "The exit codes");
        }
    }

    const CLI::App& root_;
    const CLI::App* at_;
    const CLI::Option* open_ = nullptr; // waits for its value
    std::set<const CLI::Option*> given_;
    std::vector<std::string> arguments_;
    std::string word_;
};

Exit describeAll(const CLI::App& root)
{
    Json document = describe(root);
    document["exitCodes"] = Json::array();
    for (const ExitMeaning& row : exitMeanings()) {
        document["exitCodes"].push_back({{"code", static_cast<int>(row.code)}, {"meaning", row.meaning}});
    }
    printJson(document);
    return Exit::Ok;
}

} // namespace

void addComplete(CLI::App& root, Action& action)
{
    const auto options = std::make_shared<Options>();
    CLI::App* const command = root.add_subcommand("complete", "Tell what may stand next on a command line");
    command->group(""); // not shown
    command->add_flag("--describe", options->describe, "Print the whole command line as JSON");
    command->add_option("word", options->words, "Behind --: the words so far, the last one being written");
    command->callback([options, &root, &action] {
        action = [options, &root] {
            if (options->describe) {
                return describeAll(root);
            }
            Completion(root).complete(joined(options->words));
            return Exit::Ok;
        };
    });
}

} // namespace vorn::tool
