// SPDX-License-Identifier: Apache-2.0
// What every command works on: a reader at a port, or a simulated one inside the command.
#pragma once

#include "sim/profiles/profile.h"
#include "sim/reader/pty_port.h"
#include "tools/cli/errors.h"
#include "tools/session/log_directory.h"

#include <CLI/CLI.hpp>

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace vorn::sim {
class EmvCard;
}

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
};

void addLinkOptions(CLI::App& command, LinkOptions& options);

// Through which of the reader's interfaces a card is looked for.
struct InterfaceOptions {
    bool contact = false;
    bool contactless = false;
    int mode() const; // a vorn_open_mode
};

void addInterfaceOptions(CLI::App& command, InterfaceOptions& options);
std::string interfaceName(int cardInterface);

// The name of a shipped profile, or the path of a file. Throws Failure.
sim::Profile profileOf(const std::string& nameOrPath);

// A reader with a profile's cards. Throws Failure when the profile or a fault cannot be used.
struct SimulatedReader {
    SimulatedReader(const std::string& nameOrPath, const std::vector<std::string>& faults);

    sim::Profile profile;
    sim::Reader reader;
    std::shared_ptr<sim::EmvCard> card; // the user's card, when it is a debit/credit card
};

class Session {
public:
    explicit Session(const LinkOptions& options);
    ~Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    const char* port() const { return port_.c_str(); } // as the library takes it
    int timeout() const;                               // nTimeout: a card is there already when it is used
    int waitSeconds() const { return wait_; }
    SimulatedReader* simulated() { return simulated_.get(); }
    std::string serviceLog() const { return logs_->serviceLog(); }

    // Throws Failure unless the result is 0.
    void check(int result, Call call = Call::Any) const;

    // Most calls wait for a card without a bound. This waits with one, and leaves the card powered off.
    void awaitCard(int mode) const;
    // The same with the link open and the card left powered: its answer to reset.
    sim::Bytes powerUserCard(int mode) const;

private:
    friend class OpenLink;
    void choosePort() const;

    std::string port_;
    int wait_;
    std::unique_ptr<SimulatedReader> simulated_;
    std::unique_ptr<sim::PtyPort> pty_;
    std::unique_ptr<LogDirectory> logs_;
};

// The link for reader-level functions, closed again whatever happens.
class OpenLink {
public:
    explicit OpenLink(const Session& session);
    ~OpenLink();
    OpenLink(const OpenLink&) = delete;
    OpenLink& operator=(const OpenLink&) = delete;
};

} // namespace vorn::tool
