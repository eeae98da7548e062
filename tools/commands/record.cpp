// SPDX-License-Identifier: Apache-2.0
// vorn record: between a host program and the reader, writing down every byte and when it went.
#include "tools/cli/moment.h"
#include "tools/cli/output.h"
#include "tools/cli/quote.h"
#include "tools/commands/command.h"
#include "tools/commands/recording_file.h"
#include "tools/session/host_process.h"
#include "tools/session/line_relay.h"
#include "tools/session/port_lock.h"
#include "tools/session/port_name.h"

#include <nlohmann/json.hpp>

#include <cstdio>
#include <memory>
#include <system_error>
#include <utility>

namespace vorn::tool {

namespace {

constexpr int kRest = 9600; // the speed that a reader is left at

struct Options {
    std::string port;
    std::string to;
    bool force = false;
    std::string link;
    std::vector<std::string> host;
};

std::string portOf(const Options& options)
{
    std::string name = portName(options.port);
    if (name == "USB") {
        throw Failure(Exit::Usage, "nothing can stand between a host and a reader on USB",
                      "the library's log has the exchanges: 'vorn decode ICC_COMM_VORN.log'");
    }
    return name;
}

std::vector<std::string> wordsFor(std::vector<std::string> words, const std::string& port)
{
    const std::string mark = "{port}";
    for (std::string& word : words) {
        for (std::size_t at = word.find(mark); at != std::string::npos; at = word.find(mark, at + port.size())) {
            word.replace(at, mark.size(), port);
        }
    }
    return words;
}

// What a recording is made with. The file comes last: a port that cannot be used leaves none behind.
struct Desk {
    explicit Desk(const Options& options, const std::string& port) : lock("/dev/" + port)
    {
        try {
            relay = std::make_unique<LineRelay>("/dev/" + port, options.link,
                                                [this](const sim::RecordedLine& line) { file->add(line); });
        } catch (const std::system_error& error) {
            throw Failure(Exit::Port, error.what(), options.link.empty() ? "" : "--link wants a name that is free");
        }
        file = std::make_unique<RecordingFile>(options.to, options.force, "begun " + utcNow() + " at " + port);
    }
    void startHost(const Options& options)
    {
        try {
            host.start(wordsFor(options.host, relay->name()), "VORN_PORT=" + relay->name());
        } catch (const Failure&) {
            std::remove(options.to.c_str());
            throw;
        }
    }

    HostProcess host;
    PortLock lock;
    std::unique_ptr<RecordingFile> file;
    std::unique_ptr<LineRelay> relay;
};

void tellEnd(Desk& desk)
{
    sim::RecordedLine end;
    end.at = desk.relay->now();
    end.kind = sim::RecordedLine::Kind::End;
    end.number = static_cast<unsigned long>(desk.host.exitCode());
    desk.file->add(end);
    if (desk.host.signal() != 0) {
        note("the host was ended by signal " + std::to_string(desk.host.signal()));
    }
    const int speed = desk.relay->hostSpeed();
    if (!desk.relay->portGone() && speed > 0 && speed != kRest) {
        note("the host left the line at " + std::to_string(speed) +
             " baud, and perhaps the reader too; 'vorn doctor' tells");
    }
}

// The host's own exit code, so that whoever runs it finds what would have been without the tool; but for a host that
// ended well and a recording that did not.
Exit outcome(const Desk& desk, bool withHost, const std::string& problem)
{
    if (withHost && desk.host.exitCode() != 0) {
        return static_cast<Exit>(desk.host.exitCode());
    }
    if (!problem.empty()) {
        return Exit::Output;
    }
    return desk.relay->portGone() ? Exit::Port : Exit::Ok;
}

void passOn(Desk& desk, bool withHost)
{
    bool told = false;
    while (!desk.host.ended() && (withHost || !(desk.host.interrupted() || desk.relay->portGone()))) {
        desk.relay->work(desk.host.descriptor());
        desk.host.takeSignals();
        if (desk.relay->portGone() && !std::exchange(told, true)) {
            note("vorn: the reader's port went away" +
                 std::string(withHost ? "; the host hears nothing any more" : ""));
        }
    }
    desk.relay->finish();
}

Exit run(const Options& options)
{
    const std::string port = portOf(options);
    const bool withHost = !options.host.empty();
    Desk desk(options, port);
    if (withHost) {
        desk.startHost(options);
    } else {
        printLine(desk.relay->name());
        note("What a host on /dev/" + desk.relay->name() + " and the reader on /dev/" + port + " say goes to " +
             inQuotes(options.to) + ". Ctrl-C ends it.");
    }
    passOn(desk, withHost);
    tellEnd(desk);
    const std::string problem = desk.file->close();
    if (!problem.empty()) {
        note("vorn: the recording is not whole: " + withoutNumbers(problem));
    }
    return outcome(desk, withHost, problem);
}

} // namespace

void addRecord(CLI::App& root, Action& action)
{
    const auto options = std::make_shared<Options>();
    CLI::App* const command =
        root.add_subcommand("record", "Record what a host program and the reader say to each other");
    command->add_option("--port", options->port, "The tty of the reader: ttyS1")->type_name("PORT")->required();
    command->add_option("--to", options->to, "The file to write; it holds card data in clear")
        ->type_name("FILE")
        ->required();
    command->add_flag("--force", options->force, "Replace the file of --to");
    command->add_option("--link", options->link, "Also make this symbolic link to the host's tty")->type_name("FILE");
    command
        ->add_option("host", options->host,
                     "Behind --: the host program and its arguments; {port} in them becomes its port")
        ->type_name("TEXT");
    command->footer(
        "Without a host program the port for one is printed, and Ctrl-C ends the recording. The exit code is\n"
        "the host's.");
    command->callback([options, &action] { action = [options] { return run(*options); }; });
}

} // namespace vorn::tool
