// SPDX-License-Identifier: Apache-2.0
// vorn ports: where a reader may be, who may use it, and what answers there.
#include "tools/cli/interrupt.h"
#include "tools/cli/output.h"
#include "tools/commands/command.h"
#include "tools/explain/present.h"
#include "tools/session/port_list.h"
#include "tools/session/port_name.h"
#include "tools/session/reader_version.h"
#include "tools/session/session.h"

#include <nlohmann/json.hpp>

#include <memory>

namespace vorn::tool {

namespace {

struct Options {
    std::vector<std::string> names;
    bool dontAsk = false;
    bool json = false;
};

// A version, or why there is none.
std::string answerAt(const PortInfo& port)
{
    if (port.name == "USB") {
        return "a reader (over USB it does not tell its version)";
    }
    LinkOptions link;
    link.port = port.name;
    link.wait = 0;
    try {
        Session session(link);
        return "a reader: " + readerVersion(session);
    } catch (const Failure& failure) {
        return failure.what();
    }
}

std::string accessText(const PortInfo& port)
{
    return !port.there ? "not there" : port.allowed ? "yes" : "no: it belongs to " + port.group;
}

Exit run(const Options& options)
{
    std::vector<PortInfo> ports = listPorts();
    for (const std::string& name : options.names) {
        ports.push_back(portInfo(portName(name)));
    }
    Table table({"Port", "Device", "You may use it", "Used by", "What answers"});
    Json list = Json::array();
    for (const PortInfo& port : ports) {
        throwIfInterrupted();
        const bool ask = !options.dontAsk && port.allowed && port.holder.empty();
        const std::string answer = ask ? answerAt(port) : "not asked";
        table.row({port.name, port.device, accessText(port), port.holder, answer});
        list.push_back({{"port", port.name},
                        {"device", port.device},
                        {"there", port.there},
                        {"allowed", port.allowed},
                        {"group", port.group},
                        {"usedBy", port.holder},
                        {"answer", answer}});
    }
    if (options.json) {
        printJson({{"ports", list}});
    } else if (ports.empty()) {
        printLine("No serial port, and no reader on USB.");
    } else {
        print(table.text());
    }
    return Exit::Ok;
}

} // namespace

void addPorts(CLI::App& root, Action& action)
{
    const auto options = std::make_shared<Options>();
    CLI::App* const command = root.add_subcommand("ports", "Show where a reader may be, and what answers there");
    command->add_option("port", options->names, "Ports to look at besides those found, such as pts/3")
        ->type_name("PORT");
    command->add_flag("--dont-ask", options->dontAsk,
                      "Send nothing: other devices may take the question for a command");
    command->add_flag("--json", options->json, "Print JSON");
    command->callback([options, &action] { action = [options] { return run(*options); }; });
}

} // namespace vorn::tool
