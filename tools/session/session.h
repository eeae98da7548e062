// SPDX-License-Identifier: Apache-2.0
// What every command works on: a reader at a port, or a simulated one inside the command.
#pragma once

#include "sim/profiles/profile.h"
#include "sim/reader/pty_port.h"
#include "tools/cli/errors.h"
#include "tools/session/call_runner.h"
#include "tools/session/log_directory.h"
#include "tools/session/port_lock.h"
#include "tools/session/verdict.h"

#include <functional>
#include <memory>
#include <set>
#include <string>
#include <vector>

namespace vorn::sim {
class EmvCard;
struct Behaviour;
struct Fault;
} // namespace vorn::sim

namespace vorn::tool {

struct LinkOptions {
    std::string port;
    std::string profile;
    std::vector<std::string> faults; // of the simulated reader
    bool paced = false;
    int wait = 20; // seconds for a card
    std::string logDirectory;
    bool keepLogs = false;
    bool verbose = false;
    bool show = false; // nothing masked; the commands' own option
};

// Through which of the reader's interfaces a card is looked for.
struct InterfaceOptions {
    bool contact = false;
    bool contactless = false;
    int mode() const; // a vorn_open_mode
};

std::string interfaceName(int cardInterface);

// Throws Failure for what is no fault.
std::vector<sim::Fault> faultsOf(const std::vector<std::string>& texts);

// The name of a shipped profile, or the path of a file. Throws Failure.
sim::Profile profileOf(const std::string& nameOrPath);

// The unit that a report of 'vorn accept' was made of. Throws Failure.
sim::Behaviour unitOf(const std::string& path);

// A reader with a profile's cards. Throws Failure when the profile cannot be used.
struct SimulatedReader {
    explicit SimulatedReader(const std::string& nameOrPath);
    // Faults that count commands count them from now on.
    void addFaults(const std::vector<std::string>& faults);

    sim::Profile profile;
    sim::Reader reader;
    std::shared_ptr<sim::EmvCard> card; // the user's card, when it is a debit/credit card
};

class Session;

// What every service call begins with.
struct CallTarget {
    explicit CallTarget(const Session& session);
    char port[128] = {};
    int timeout = 0;
};

// A text as a call's argument. Throws Failure when it does not fit.
void store(const std::string& text, char* into, std::size_t capacity);
template <std::size_t N>
void store(const std::string& text, char (&into)[N])
{
    store(text, into, N);
}

// The port in the form that the library's link functions take.
struct LinkTarget {
    int mode = 0; // vr_comportmode
    char parameter[128] = {};
};

class Session {
public:
    explicit Session(const LinkOptions& options);
    ~Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    const char* port() const { return port_.c_str(); } // as the library takes it
    int timeout() const;                               // nTimeout: a card is there already when it is used
    SimulatedReader* simulated() { return simulated_.get(); }
    const LinkTarget& target() const { return target_; }
    const LineWatcher& line() const { return runner_->watcher(); }
    int cardInterface() const { return runner_->cardInterface(); }

    // Each exchange of a call, as it comes.
    void onExchange(LineWatcher::Receiver receiver) { receiver_ = std::move(receiver); }

    // One call of the library. It is ended, and the reader put to rest, when it waits for a card longer than --wait
    // says or keeps at work longer than a call may: that throws Failure, as an interrupt does. Returns what the
    // function returned.
    template <class Arguments>
    int run(const char* name, int (*function)(Arguments&), Arguments& arguments)
    {
        armFaults();
        return attempt(name, function, arguments);
    }
    // The same; throws Failure unless all went well.
    template <class Arguments>
    void call(const char* name, Call kind, int (*function)(Arguments&), Arguments& arguments)
    {
        check(run(name, function, arguments), kind);
    }

    // Throws Failure for what went wrong on the line in the last call, and for any result but 0.
    void check(int result, Call call = Call::Any) const;
    Verdict verdict() const { return verdict_; }
    Failure troubleFailure() const; // of the verdict

    // Most calls wait for a card without a bound. This waits politely, and leaves the card powered off.
    void awaitCard(int mode);
    // The same with the link open and the card left powered: its answer to reset.
    sim::Bytes powerUserCard(int mode);
    // Asks every now and then, until a card is there or --wait is over; throws Failure then.
    void awaitCard(const std::function<int()>& ask);

private:
    template <class Arguments>
    int attempt(const char* name, int (*function)(Arguments&), Arguments& arguments)
    {
        const auto stop = begin(name);
        return conclude(name, runner_->run(function, arguments, stop));
    }
    CallRunner::ShallStop begin(const char* name);
    int conclude(const char* name, CallRunner::End end);
    [[noreturn]] void stopped(const char* name);
    void noteExchange(const LineExchange& exchange);
    void armFaults();
    void putToRest();
    int lookForCard(int mode, sim::Bytes& answer);
    void closeLink();

    std::string port_;
    LinkTarget target_;
    int wait_;
    bool verbose_;
    bool show_;
    std::vector<std::string> faults_;
    std::unique_ptr<SimulatedReader> simulated_;
    std::unique_ptr<PortLock> lock_;
    std::unique_ptr<LogDirectory> logs_;
    std::unique_ptr<CallRunner> runner_;
    std::unique_ptr<sim::PtyPort> pty_;
    LineWatcher::Receiver receiver_;
    Verdict verdict_;
    std::set<std::uint8_t> powered_; // slots; FF the field
    bool cardSeen_ = false;
    bool looking_ = false;    // the tool's own look for a card is under way
    bool onlyWaiting_ = true; // for a card, in the call that is running
};

} // namespace vorn::tool
