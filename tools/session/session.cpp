// SPDX-License-Identifier: Apache-2.0
#include "tools/session/session.h"

#include "sim/cards/emv_card.h"
#include "sim/data/json_text.h"
#include "sim/data/printable.h"
#include "sim/reader/fault.h"
#include "sim/reader/observations.h"
#include "tools/cli/interrupt.h"
#include "tools/cli/output.h"
#include "tools/cli/quote.h"
#include "tools/session/exchange_text.h"
#include "tools/session/port_name.h"

#include "vorn/link.h"

#include <nlohmann/json.hpp>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <optional>
#include <system_error>

namespace vorn::tool {

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kPollPause = 100;                // milliseconds between two looks for a card
constexpr std::size_t kExchangesOfOneLook = 2; // the slot, then the field
constexpr int kLeastCallSeconds = 10;          // for a call that has its card, besides --wait
constexpr std::chrono::seconds kRest(8);
constexpr std::chrono::seconds kShortRest(2);
const char* const kUsbPort = "USB";

template <class Value>
Value memberOf(const nlohmann::json& object, const char* name, Value otherwise)
{
    return object.contains(name) ? object.at(name).get<Value>() : otherwise;
}

// The profile's own card, made here so that the tool can ask it for its account; the reader gets this one.
std::shared_ptr<sim::EmvCard> replaceCard(const sim::Profile& profile, sim::Reader& reader)
{
    const nlohmann::json json = nlohmann::json::parse(profile.json);
    const nlohmann::json cards = json.value("cards", nlohmann::json::array());
    for (std::size_t i = 0; i < cards.size(); ++i) {
        const nlohmann::json& card = cards[i];
        const auto slot = memberOf<std::string>(card, "slot", "");
        if (memberOf<std::string>(card, "type", "") != "emv" || (slot != "contact" && slot != "field")) {
            continue;
        }
        auto emv = std::dynamic_pointer_cast<sim::EmvCard>(
            sim::makeEmvCard(card, profile.path + ": cards[" + std::to_string(i) + "]"));
        if (emv == nullptr) {
            continue;
        }
        reader.insert(slot == "contact" ? sim::Slot::Contact : sim::Slot::Field, emv,
                      std::chrono::milliseconds(memberOf(card, "after_ms", 0)));
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

sim::Behaviour unitOf(const std::string& path)
{
    std::error_code ignored;
    std::ifstream file(path, std::ios::binary);
    if (!std::filesystem::is_regular_file(path, ignored) || !file) {
        throw Failure(Exit::Profile, inQuotes(path) + " cannot be read",
                      "a file that 'vorn accept --report' wrote is expected");
    }
    std::string text(sim::kJsonSizeMax + 1, '\0'); // what is longer is refused as it is read
    file.read(text.data(), static_cast<std::streamsize>(text.size()));
    text.resize(static_cast<std::size_t>(file.gcount()));
    try {
        return sim::behaviourOf(text, sim::printable(path));
    } catch (const sim::ProfileError& error) {
        throw Failure(Exit::Profile, error.what());
    }
}

int InterfaceOptions::mode() const
{
    return contact ? VORN_OPEN_CONTACT : contactless ? VORN_OPEN_CONTACTLESS : VORN_OPEN_EITHER;
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

std::vector<sim::Fault> faultsOf(const std::vector<std::string>& texts)
{
    std::vector<sim::Fault> faults;
    for (const std::string& text : texts) {
        const auto fault = sim::parseFault(text);
        if (!fault) {
            throw Failure(Exit::Usage, "no fault: " + inQuotes(text),
                          "KIND[=VALUE][@N][/OP], for example status=06@3 or silence@4");
        }
        faults.push_back(*fault);
    }
    return faults;
}

SimulatedReader::SimulatedReader(const std::string& nameOrPath) : profile(profileOf(nameOrPath))
{
    try {
        sim::load(profile, reader);
        card = replaceCard(profile, reader);
    } catch (const sim::ProfileError& error) {
        throw Failure(Exit::Profile, error.what());
    }
}

void SimulatedReader::addFaults(const std::vector<std::string>& faults)
{
    const int before = static_cast<int>(reader.exchanges().size());
    for (sim::Fault fault : faultsOf(faults)) {
        fault.command += fault.command > 0 ? before : 0;
        reader.addFault(fault);
    }
}

void store(const std::string& text, char* into, std::size_t capacity)
{
    if (text.size() >= capacity) {
        throw Failure(Exit::Usage, "a text of at most " + std::to_string(capacity - 1) + " characters is expected");
    }
    std::memcpy(into, text.c_str(), text.size() + 1);
}

CallTarget::CallTarget(const Session& session) : timeout(session.timeout()) { store(session.port(), port); }

// ---------------------------------------------------------------- beginning and end

Session::Session(const LinkOptions& options)
    : wait_(options.wait), verbose_(options.verbose), show_(options.show), faults_(options.faults)
{
    if (options.port.empty() == options.profile.empty()) {
        throw Failure(Exit::Usage, "no reader named", "--port ttyS1 or --port USB; --sim debit works without a reader");
    }
    faultsOf(faults_);
    if (options.port.empty()) {
        simulated_ = std::make_unique<SimulatedReader>(options.profile);
    } else {
        port_ = portName(options.port);
        if (port_ != kUsbPort) {
            lock_ = std::make_unique<PortLock>("/dev/" + port_);
        }
    }
    logs_ = std::make_unique<LogDirectory>(options.logDirectory, options.keepLogs);
    runner_ = std::make_unique<CallRunner>(logs_->path());
    runner_->watcher().onExchange([this](const LineExchange& exchange) { noteExchange(exchange); });
    runner_->start();
    if (simulated_) {
        sim::PtyPort::Options ptyOptions;
        ptyOptions.paced = options.paced;
        pty_ = std::make_unique<sim::PtyPort>(simulated_->reader, ptyOptions);
        port_ = pty_->name();
    }
    // As the library's own calls do.
    target_.mode = port_ == kUsbPort ? 1 : 0;
    const std::string parameter = target_.mode == 1 ? "VID_3A5C&PID_7E21" : port_ + ":9600,N,8,1";
    std::snprintf(target_.parameter, sizeof target_.parameter, "%s", parameter.c_str());
}

Session::~Session()
{
    try {
        putToRest();
    } catch (const Failure& failure) {
        note(std::string("vorn: the reader could not be put to rest: ") + failure.what());
    }
}

int Session::timeout() const { return wait_ < kLeastCallSeconds ? kLeastCallSeconds : wait_; }

void Session::armFaults()
{
    if (pty_ != nullptr && !faults_.empty()) {
        pty_->locked([this] { simulated_->addFaults(faults_); });
        faults_.clear();
    }
}

namespace {

struct RestCall {
    LinkTarget target;
    std::uint8_t slots[8] = {};
    int count = 0;
};

// Powers off what was left powered, and switches a serial reader back to the speed at which others look for it. A
// reader that does not answer is asked once.
int rest(RestCall& call)
{
    if (vrdk03com_handle == -1) {
        vr_comportmode = call.target.mode;
        std::memcpy(vr_comportparam, call.target.parameter, sizeof vr_comportparam);
        if (opdev() != VORN_OK) {
            return VORN_OPEN_FAILED;
        }
    }
    int result = VORN_OK;
    for (int i = 0; i < call.count && result != VORN_NO_REPLY; ++i) {
        result = call.slots[i] == VORN_SLOT_CONTACTLESS ? picc_Deactive() : icc_poweroff(call.slots[i]);
    }
    cldev();
    return result == VORN_READER_NO_CARD ? int{VORN_OK} : result;
}

} // namespace

void Session::putToRest()
{
    if (runner_ == nullptr || (powered_.empty() && !runner_->linkOpen())) {
        return;
    }
    RestCall call;
    call.target = target_;
    for (const std::uint8_t slot : powered_) {
        call.slots[call.count++] = slot;
    }
    powered_.clear();
    const auto end = Clock::now() + (interruptedTwice() ? kShortRest : kRest);
    const CallRunner::End how = runner_->run(rest, call, [end] { return Clock::now() > end; });
    if (how != CallRunner::End::Returned || runner_->result() != VORN_OK) {
        note("vorn: the reader did not confirm that the card is off");
    }
    if (lock_) {
        lock_->restoreSettings();
    }
}

// ---------------------------------------------------------------- calls

void Session::noteExchange(const LineExchange& exchange)
{
    constexpr std::size_t kSlotOfPowerOn = 4;
    constexpr std::size_t kSlotOfPowerOff = 2;
    const auto byteOf = [&exchange](std::size_t at) {
        return exchange.command.size() > at ? exchange.command[at] : std::uint8_t{0};
    };
    if (exchange.of(Operation::PowerOff)) {
        powered_.erase(byteOf(kSlotOfPowerOff));
    } else if (exchange.of(Operation::Deactivate)) {
        powered_.erase(VORN_SLOT_CONTACTLESS);
    } else if (exchange.of(Operation::PowerOn) && !exchange.saysNoCard()) {
        powered_.insert(byteOf(kSlotOfPowerOn));
    } else if ((exchange.of(Operation::Activate) || exchange.of(Operation::ActivateMemory)) && !exchange.saysNoCard()) {
        powered_.insert(VORN_SLOT_CONTACTLESS);
    }
    onlyWaiting_ = onlyWaiting_ && troubleOf(exchange) == Trouble::NoCard;
    if (looking_) {
        return;
    }
    if (verbose_) {
        note(exchangeText(exchange, show_));
    }
    if (receiver_) {
        receiver_(exchange);
    }
}

// What ends a call from outside. Ctrl-C leaves it some time: a reader in the middle of a command is best left to it.
CallRunner::ShallStop Session::begin(const char* name)
{
    onlyWaiting_ = true;
    const auto start = Clock::now();
    const auto cardBy = start + std::chrono::seconds(wait_);
    const auto doneBy = start + std::chrono::seconds(wait_ + kLeastCallSeconds);
    auto graceEnds = std::make_shared<std::optional<Clock::time_point>>();
    return [this, name, cardBy, doneBy, graceEnds] {
        const auto now = Clock::now();
        const bool waitsForCard = onlyWaiting_ && line().exchanges().size() > kExchangesOfOneLook;
        if (interrupted() && !*graceEnds) {
            *graceEnds = now + std::chrono::seconds(waitsForCard ? 0 : kGraceSeconds);
            if (!waitsForCard) {
                note(std::string("vorn: interrupted; waiting for ") + name + " to come to its end, at most " +
                     std::to_string(kGraceSeconds) + " s (Ctrl-C again ends it at once)");
            }
        }
        return interruptedTwice() || (*graceEnds && now >= **graceEnds) || (waitsForCard && now >= cardBy) ||
               now >= doneBy;
    };
}

int Session::conclude(const char* name, CallRunner::End end)
{
    verdict_ = judge(line().exchanges(), cardSeen_);
    if (verdict_.trouble == Trouble::None && !line().exchanges().empty()) {
        cardSeen_ = true;
    }
    if (end == CallRunner::End::Stopped) {
        stopped(name);
    }
    if (end == CallRunner::End::Died) {
        const int signal = runner_->signal();
        putToRest();
        throw Failure(Exit::Internal,
                      std::string("the library's process ended in ") + name + ", by signal " + std::to_string(signal),
                      "please report this");
    }
    return runner_->result();
}

void Session::stopped(const char* name)
{
    Failure failure(Exit::TooLong,
                    std::string(name) + " did not come to its end within " + std::to_string(wait_ + kLeastCallSeconds) +
                        " s and was ended",
                    "the card or the reader kept it busy; -v shows with what, --wait gives more time");
    if (verdict_.trouble != Trouble::None) {
        failure = troubleFailure();
    }
    if (interrupted()) {
        failure = Failure(Exit::Interrupted, "interrupted");
    }
    putToRest();
    throw failure;
}

Failure Session::troubleFailure() const { return failureOf(verdict_.trouble, line().exchanges()[verdict_.at]); }

void Session::check(int result, Call call) const
{
    if (verdict_.trouble != Trouble::None) {
        throw troubleFailure().fromLibrary(result);
    }
    if (result != VORN_OK) {
        throwIfInterrupted();
        throw failureOf(result, call, port_);
    }
}

// ---------------------------------------------------------------- finding a card

namespace {

struct LookCall {
    LinkTarget target;
    int mode = 0;
    std::uint8_t answer[VORN_PAYLOAD_MAX] = {};
    int length = 0;
};

int look(LookCall& call)
{
    if (vrdk03com_handle == -1) {
        vr_comportmode = call.target.mode;
        std::memcpy(vr_comportparam, call.target.parameter, sizeof vr_comportparam);
        if (opdev() != VORN_OK) {
            return VORN_OPEN_FAILED;
        }
    }
    return vr_openicc(call.mode, call.answer, &call.length);
}

} // namespace

void Session::awaitCard(const std::function<int()>& ask)
{
    const auto end = Clock::now() + std::chrono::seconds(wait_);
    int result = ask();
    if (verdict_.trouble == Trouble::NoCard && wait_ > 0) {
        note("waiting for a card (" + std::to_string(wait_) + " s)");
    }
    while (verdict_.trouble == Trouble::NoCard && Clock::now() < end && !interrupted()) {
        pause(kPollPause);
        result = ask();
    }
    throwIfInterrupted();
    check(result);
}

int Session::lookForCard(int mode, sim::Bytes& answer)
{
    LookCall call;
    call.target = target_;
    call.mode = mode;
    const int result = attempt("the look for a card", look, call);
    answer.assign(call.answer, call.answer + (result == VORN_OK ? call.length : 0));
    return result;
}

sim::Bytes Session::powerUserCard(int mode)
{
    armFaults();
    sim::Bytes answer;
    awaitCard([&] { return lookForCard(mode, answer); });
    return answer;
}

void Session::awaitCard(int mode)
{
    looking_ = true;
    sim::Bytes answer;
    awaitCard([&] { return lookForCard(mode, answer); });
    putToRest();
    looking_ = false;
    throwIfInterrupted();
}

} // namespace vorn::tool
