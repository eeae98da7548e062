// SPDX-License-Identifier: Apache-2.0
// vorn accept: how a reader behaves, step by step, beside what the simulated one does.
#include "sim/cards/emv_card.h"
#include "sim/cards/transcript_card.h"
#include "sim/reader/pty_port.h"
#include "tools/accept/report.h"
#include "tools/accept/tty_channel.h"
#include "tools/accept/usb_channel.h"
#include "tools/cli/arguments.h"
#include "tools/cli/interrupt.h"
#include "tools/cli/moment.h"
#include "tools/cli/output.h"
#include "tools/cli/quote.h"
#include "tools/cli/version.h"
#include "tools/commands/command.h"
#include "tools/commands/new_file.h"
#include "tools/session/exchange_text.h"
#include "tools/session/library_version.h"
#include "tools/session/port_name.h"
#include "tools/session/session.h"

#include <unistd.h>

#include <algorithm>
#include <memory>

namespace vorn::tool {

namespace {

using namespace accept;

struct Options {
    std::string port;
    std::string profile;
    std::string like;
    std::vector<std::string> faults;
    bool paced = false;
    std::vector<std::string> only, skip;
    bool list = false;
    bool noQuestions = false;
    std::string report;
    std::string html;
    bool force = false;
    bool json = false;
    bool verbose = false;
};

// ---------------------------------------------------------------- who moves cards

class Counter : public Person {
public:
    bool please(Wish wish) override
    {
        note(std::string(wish == Wish::PutIn ? "Put a card into the contact slot" : "Take the card out") +
             ", then answer y (n: go on without)");
        const std::string answer = readLine();
        return answer[0] != 'n' && answer[0] != 'N';
    }
};

// A simulated reader with a tty, inside the command.
class Simulated : public Person {
public:
    explicit Simulated(const Options& options) : simulated_(options.profile)
    {
        if (!options.like.empty()) {
            simulated_.reader.behave(unitOf(options.like));
        }
        simulated_.reader.checkLineSpeed(true);
        simulated_.addFaults(options.faults);
        sim::PtyPort::Options port;
        port.paced = options.paced;
        pty_ = std::make_unique<sim::PtyPort>(simulated_.reader, port);
    }

    const std::string& port() const { return pty_->name(); }

    bool please(Wish wish) override
    {
        std::shared_ptr<sim::Card> card = simulated_.card;
        if (card == nullptr) {
            card = std::make_shared<sim::TranscriptCard>(Bytes{0x3B, 0x00}, std::vector<sim::TranscriptCard::Pair>{},
                                                         sim::TranscriptCard::Order::Any, Bytes{0x6D, 0x00});
        }
        pty_->locked([&] { simulated_.reader.insert(sim::Slot::Contact, wish == Wish::PutIn ? card : nullptr); });
        return true;
    }

private:
    SimulatedReader simulated_;
    std::unique_ptr<sim::PtyPort> pty_;
};

// ---------------------------------------------------------------- the run

bool names(const std::vector<std::string>& list, const Step& step)
{
    return std::find(list.begin(), list.end(), step.name) != list.end();
}

// Why a step is left out; empty: it is not.
std::string whySkipped(const Options& options, const Step& step, bool tty, const Person* person)
{
    if ((!options.only.empty() && !names(options.only, step)) || names(options.skip, step)) {
        return "not wanted";
    }
    if (step.on == Step::On::Tty && !tty) {
        return "over USB there is no such thing";
    }
    if (step.on == Step::On::Usb && tty) {
        return "on a tty there is no such thing";
    }
    return step.needsPerson && person == nullptr ? "nobody is asked" : "";
}

class Run {
public:
    explicit Run(const Options& options) : options_(options)
    {
        if (!options.profile.empty()) {
            simulated_ = std::make_unique<Simulated>(options);
        }
        port_ = simulated_ ? simulated_->port() : portName(options.port);
        channel_ = port_ == "USB" ? openUsb() : openTty(port_);
        // Before the reader is asked anything: a run takes a while, and what it finds is to have a place.
        open(options.report, report_);
        open(options.html, html_);
        line_ = std::make_unique<ReaderLine>(*channel_);
        if (options.verbose) {
            line_->onExchange([](const Bytes& command, const Reply& reply) { show(command, reply); });
        }
        if (simulated_) {
            person_ = simulated_.get();
        } else if (!options.noQuestions && ::isatty(STDIN_FILENO) == 1 && ::isatty(STDERR_FILENO) == 1) {
            person_ = &counter_;
        }
        acceptance_ = std::make_unique<Acceptance>(*line_, person_);
    }

    Exit run()
    {
        std::optional<Failure> failure;
        try {
            for (const Step& step : steps()) {
                one(step);
            }
            throwIfInterrupted();
        } catch (const Failure& what) {
            failure = what;
        }
        line_.reset(); // at rest, before anything else can go wrong
        leave(failure);
        if (failure) {
            throw *failure;
        }
        return acceptance_->differences() > 0 ? Exit::Differs : Exit::Ok;
    }

private:
    void open(const std::string& path, std::unique_ptr<NewFile>& file) const
    {
        if (!path.empty()) {
            file = std::make_unique<NewFile>(path, options_.force);
        }
    }

    static void show(const Bytes& command, const Reply& reply)
    {
        LineExchange exchange;
        exchange.command = command;
        exchange.reply = reply.status                ? LineExchange::Reply::Whole
                         : reply.heard.bytes.empty() ? LineExchange::Reply::None
                                                     : LineExchange::Reply::Damaged;
        exchange.status = reply.status.value_or(0);
        exchange.payload = reply.payload;
        note(exchangeText(exchange, false));
    }

    void one(const Step& step)
    {
        const std::string why = whySkipped(options_, step, channel_->isTty(), person_);
        if (!why.empty()) {
            acceptance_->skip(step, why);
            return;
        }
        throwIfInterrupted();
        say(std::string(step.name) + ": " + step.announces);
        for (const sim::ObservationName* const about : acceptance_->run(step).seen) {
            tell(*about);
        }
    }

    void say(const std::string& text) const
    {
        if (!options_.json) {
            printLine(text);
        }
    }

    void tell(const sim::ObservationName& about) const
    {
        const bool differs = acceptance_->differs(about);
        std::string line = (differs ? "  ! " : "    ") + std::string(about.title) + ": " +
                           valueText(about, *acceptance_->unit().find(about.name));
        if (differs) {
            line += "  (simulator: " + valueText(about, *acceptance_->plain(about)) + ")";
        }
        say(line);
    }

    void leave(std::optional<Failure>& failure)
    {
        Circumstances circumstances;
        circumstances.reader = simulated_ ? "simulated reader" : "reader at " + port_;
        circumstances.tool = toolVersion();
        circumstances.library = libraryVersion();
        circumstances.date = utcNow();
        circumstances.problem = failure ? withoutNumbers(failure->what()) : "";
        Json report = reportOf(*acceptance_, circumstances);
        if (report_) {
            report_->write(jsonText(report) + "\n");
            report_->close();
        }
        if (html_) {
            writePage(*acceptance_, circumstances, [this](const std::string& text) { html_->write(text); });
            html_->close();
        }
        if (options_.json) {
            printResult(report, failure);
        } else if (!failure) {
            const std::size_t count = acceptance_->differences();
            printLine(count == 0
                          ? "Nothing differs from what the simulator does."
                          : std::to_string(count) + (count == 1 ? " observation differs" : " observations differ") +
                                " from what the simulator does, see above.");
        }
    }

    const Options& options_;
    std::string port_;
    std::unique_ptr<NewFile> report_, html_;
    std::unique_ptr<Simulated> simulated_;
    Counter counter_;
    Person* person_ = nullptr;
    std::unique_ptr<Channel> channel_;
    std::unique_ptr<ReaderLine> line_;
    std::unique_ptr<Acceptance> acceptance_;
};

Exit listSteps(bool json)
{
    Json list = Json::array();
    for (const Step& step : steps()) {
        list.push_back({{"name", step.name}, {"announces", step.announces}});
        if (!json) {
            printLine(std::string(step.name) + std::string(12 - std::string(step.name).size(), ' ') + step.announces);
        }
    }
    if (json) {
        printJson({{"steps", list}});
    }
    return Exit::Ok;
}

Exit acceptReader(const Options& options)
{
    if (options.list) {
        return listSteps(options.json);
    }
    if (options.port.empty() == options.profile.empty()) {
        throw Failure(Exit::Usage, "no reader named", "--port ttyS1 or --port USB; --sim debit works without a reader");
    }
    return Run(options).run();
}

} // namespace

void addAccept(CLI::App& root, Action& action)
{
    const auto options = std::make_shared<Options>();
    CLI::App* const command =
        root.add_subcommand("accept", "Try a reader step by step, and tell where it differs from the simulated one");
    CLI::Option* const port =
        command->add_option("--port,-p", options->port, "Reader: a tty such as ttyS1 or pts/3, or USB")
            ->type_name("PORT")
            ->group("Reader");
    CLI::Option* const profile =
        command->add_option("--sim", options->profile, "Simulated reader with this profile's cards")
            ->type_name("PROFILE")
            ->group("Reader");
    port->excludes(profile);
    command->add_option("--like", options->like, "The simulated reader behaves as the unit of this report did")
        ->type_name("FILE")
        ->needs(profile)
        ->group("Reader");
    command->add_option("--fault", options->faults, "Fault of the simulated reader, such as silence@4 (repeatable)")
        ->type_name("FAULT")
        ->allow_extra_args(false)
        ->needs(profile)
        ->group("Reader");
    command->add_flag("--paced", options->paced, "The simulated line takes a real line's time")
        ->needs(profile)
        ->group("Reader");
    std::vector<std::string> known;
    for (const Step& step : steps()) {
        known.emplace_back(step.name);
    }
    CLI::Option* const only = command->add_option("--only", options->only, "Only this step (repeatable)")
                                  ->check(CLI::IsMember(known))
                                  ->allow_extra_args(false);
    command->add_option("--skip", options->skip, "Not this step (repeatable)")
        ->check(CLI::IsMember(known))
        ->allow_extra_args(false)
        ->excludes(only);
    command->add_flag("--list", options->list, "Name the steps");
    command->add_flag("--no-questions", options->noQuestions, "Ask nobody to move a card");
    command->add_option("--report", options->report, "Write the report to this file (JSON, secrets masked)")
        ->type_name("FILE");
    command->add_option("--html", options->html, "Write a page of it to this file, which needs nothing else")
        ->type_name("FILE");
    command->add_flag("--force", options->force, "Replace the files of --report and --html");
    command->add_flag("--json", options->json, "Print the report");
    command->add_flag("-v,--verbose", options->verbose, "Show the exchanges with the reader");
    command->callback([options, &action] { action = [options] { return acceptReader(*options); }; });
}

} // namespace vorn::tool
