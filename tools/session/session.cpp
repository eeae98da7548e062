// SPDX-License-Identifier: Apache-2.0
#include "tools/session/session.h"

#include "sim/cards/emv_card.h"
#include "sim/reader/fault.h"
#include "tools/cli/interrupt.h"
#include "tools/cli/output.h"
#include "tools/session/port_name.h"

#include "vorn/link.h"

#include <nlohmann/json.hpp>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <system_error>

namespace vorn::tool {

namespace {

constexpr int kPollPause = 100; // milliseconds between two looks for a card

// The profile's own card, made here so that the tool can ask it for its account; the reader gets this one.
std::shared_ptr<sim::EmvCard> replaceCard(const sim::Profile& profile, sim::Reader& reader)
{
    const nlohmann::json json = nlohmann::json::parse(profile.json);
    const nlohmann::json cards = json.value("cards", nlohmann::json::array());
    for (std::size_t i = 0; i < cards.size(); ++i) {
        const nlohmann::json& card = cards[i];
        const std::string slot = card.value("slot", "");
        if (card.value("type", "") != "emv" || (slot != "contact" && slot != "field")) {
            continue;
        }
        auto emv = std::dynamic_pointer_cast<sim::EmvCard>(
            sim::makeEmvCard(card, profile.path + ": cards[" + std::to_string(i) + "]"));
        if (emv == nullptr) {
            continue;
        }
        reader.insert(slot == "contact" ? sim::Slot::Contact : sim::Slot::Field, emv,
                      std::chrono::milliseconds(card.value("after_ms", 0)));
        return emv;
    }
    return nullptr;
}

} // namespace

sim::Profile profileOf(const std::string& nameOrPath)
{
    try {
        // The working directory changes later, and profiles name files beside themselves.
        const std::filesystem::path path(nameOrPath);
        const bool isPath = path.has_parent_path() || path.extension() == ".json";
        return sim::findProfile(isPath ? std::filesystem::absolute(path).string() : nameOrPath);
    } catch (const sim::ProfileError& error) {
        throw Failure(Exit::Profile, error.what());
    }
}

void addLinkOptions(CLI::App& command, LinkOptions& options)
{
    CLI::Option* const port =
        command.add_option("--port,-p", options.port, "Reader: a tty such as ttyS1 or pts/3, or USB")->group("Reader");
    CLI::Option* const profile =
        command.add_option("--sim", options.profile, "Simulated reader with this profile's cards")->group("Reader");
    port->excludes(profile);
    command.add_option("--fault", options.faults, "Fault of the simulated reader, such as silence@4 (repeatable)")
        ->needs(profile)
        ->group("Reader");
    command.add_flag("--paced", options.paced, "The simulated line takes a real line's time")
        ->needs(profile)
        ->group("Reader");
    command.add_option("--wait", options.wait, "Seconds to wait for a card")
        ->check(CLI::Range(0, 3600))
        ->capture_default_str()
        ->group("Reader");
    command.add_option("--log-dir", options.logDirectory, "Directory for the library's log files (card data in clear)")
        ->group("Logs");
    command.add_flag("--keep-logs", options.keepLogs, "Do not remove the log files")->group("Logs");
    command.add_flag("-v,--verbose", options.verbose, "Show more");
}

int InterfaceOptions::mode() const
{
    return contact ? VORN_OPEN_CONTACT : contactless ? VORN_OPEN_CONTACTLESS : VORN_OPEN_EITHER;
}

void addInterfaceOptions(CLI::App& command, InterfaceOptions& options)
{
    CLI::Option* const contact = command.add_flag("--contact", options.contact, "Only the contact slot");
    command.add_flag("--contactless", options.contactless, "Only the contactless field")->excludes(contact);
}

std::string interfaceName(int cardInterface)
{
    switch (cardInterface) {
    case VORN_INTERFACE_CONTACT:
        return "contact";
    case VORN_INTERFACE_CONTACTLESS:
        return "contactless";
    default:
        return "none";
    }
}

SimulatedReader::SimulatedReader(const std::string& nameOrPath, const std::vector<std::string>& faults)
    : profile(profileOf(nameOrPath))
{
    try {
        sim::load(profile, reader);
        card = replaceCard(profile, reader);
    } catch (const sim::ProfileError& error) {
        throw Failure(Exit::Profile, error.what());
    }
    for (const std::string& text : faults) {
        const auto fault = sim::parseFault(text);
        if (!fault) {
            throw Failure(Exit::Usage, "no fault: " + text,
                          "KIND[=VALUE][@N][/OP], for example status=06@3 or silence@4");
        }
        reader.addFault(*fault);
    }
}

Session::Session(const LinkOptions& options) : wait_(options.wait)
{
    if (options.port.empty() == options.profile.empty()) {
        throw Failure(Exit::Usage, "no reader named", "--port ttyS1 or --port USB; --sim debit works without a reader");
    }
    if (options.port.empty()) {
        simulated_ = std::make_unique<SimulatedReader>(options.profile, options.faults);
        sim::PtyPort::Options ptyOptions;
        ptyOptions.paced = options.paced;
        pty_ = std::make_unique<sim::PtyPort>(simulated_->reader, ptyOptions);
        port_ = pty_->name();
    } else {
        port_ = portName(options.port);
    }
    logs_ = std::make_unique<LogDirectory>(options.logDirectory, options.keepLogs);
    if (options.verbose) {
        divertChatter(2);
    }
}

Session::~Session() = default;

int Session::timeout() const { return wait_ < 10 ? 10 : wait_; }

void Session::check(int result, Call call) const
{
    if (result == VORN_OK) {
        return;
    }
    throwIfInterrupted();
    throw failureOf(result, call, port_);
}

// As the library's own calls do.
void Session::choosePort() const
{
    vr_comportmode = port_ == "USB" ? 1 : 0;
    const std::string parameter = vr_comportmode == 1 ? "VID_3A5C&PID_7E21" : port_ + ":9600,N,8,1";
    std::snprintf(vr_comportparam, sizeof vr_comportparam, "%s", parameter.c_str());
}

sim::Bytes Session::powerUserCard(int mode) const
{
    using Clock = std::chrono::steady_clock;
    const auto end = Clock::now() + std::chrono::seconds(wait_);
    sim::Bytes answer(VORN_PAYLOAD_MAX);
    int length = 0;
    int result = vr_openicc(mode, answer.data(), &length);
    if (result == VORN_READER_NO_CARD && wait_ > 0) {
        note("waiting for a card (" + std::to_string(wait_) + " s)");
    }
    while (result == VORN_READER_NO_CARD && Clock::now() < end && !interrupted()) {
        pause(kPollPause);
        result = vr_openicc(mode, answer.data(), &length);
    }
    check(result == VORN_READER_NO_CARD ? VORN_NO_CARD_IN_TIME : result);
    answer.resize(static_cast<std::size_t>(length));
    return answer;
}

void Session::awaitCard(int mode) const
{
    {
        const OpenLink link(*this);
        powerUserCard(mode);
        vr_closeicc();
    }
    throwIfInterrupted();
}

OpenLink::OpenLink(const Session& session)
{
    session.choosePort();
    session.check(opdev());
}

OpenLink::~OpenLink() { cldev(); }

} // namespace vorn::tool
