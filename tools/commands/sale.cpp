// SPDX-License-Identifier: Apache-2.0
// vorn sale: an online transaction from end to end, each step as it happens.
#include "sim/cards/emv_card.h"
#include "sim/issuer/issuer.h"
#include "tools/cli/arguments.h"
#include "tools/cli/interrupt.h"
#include "tools/cli/output.h"
#include "tools/commands/command.h"
#include "tools/commands/sale_options.h"
#include "tools/explain/apdu_words.h"
#include "tools/explain/hex.h"
#include "tools/explain/present.h"
#include "tools/explain/status_words.h"
#include "tools/explain/tlv_view.h"
#include "tools/session/exchange_feed.h"

#include "ICC_COMM_VORN.h"

#include <nlohmann/json.hpp>

#include <array>
#include <memory>
#include <optional>

namespace vorn::tool {

namespace {

constexpr int kUserCard = 1;

// The items of a cryptogram's text, and the text itself with the account number masked.
struct CryptogramView {
    sim::CryptogramItems items;
    std::string text;
};

CryptogramView viewOf(sim::CryptogramText kind, const std::string& text, bool show)
{
    CryptogramView view{sim::readCryptogramText(kind, text), text};
    const auto account = view.items.values.find(0x5A);
    if (!show && account != view.items.values.end()) {
        const std::string digits = toHex(account->second);
        for (auto at = view.text.find(digits); at != std::string::npos; at = view.text.find(digits, at + 1)) {
            view.text.replace(at, digits.size(), maskPanHex(account->second));
        }
    } else if (!show && account == view.items.values.end()) {
        view.text = "(not shown: its account number could not be found to be masked)";
    }
    return view;
}

Json documentOf(const CryptogramView& view, bool show)
{
    Json items = Json::object();
    for (const auto& [tag, value] : view.items.values) {
        items[sim::tlv::toHex(tag)] = tag == 0x5A && !show ? maskPanHex(value) : toHex(value);
    }
    return {{"text", view.text}, {"items", items}};
}

sim::Issuer simulatedIssuer(const sim::Profile& profile)
{
    try {
        if (auto issuer = sim::issuerOf(profile)) {
            return *issuer;
        }
    } catch (const sim::ProfileError& error) {
        throw Failure(Exit::Profile, error.what());
    }
    throw Failure(Exit::Profile, "profile '" + profile.name + "' has no issuer",
                  "give the host's answer with --arpc, or on standard input with --ask");
}

// What an authorised sale ends as.
struct Outcome {
    const char* name; // in JSON
    Exit exitCode;
    std::string message;
};

class Sale {
public:
    explicit Sale(const SaleOptions& options)
        : options_(options), transaction_(transactionText(options)), session_(options.link), issuer_(chooseIssuer())
    {
        if (session_.simulated() != nullptr) {
            card_ = session_.simulated()->card.get();
        }
    }

    Exit run()
    {
        document_["port"] = session_.port();
        document_["transaction"] = transaction_;
        document_["steps"] = Json::array();
        try {
            session_.awaitCard(options_.cardInterface.mode());
            const PowerOffAtEnd powerOff(session_);
            request();
            const std::string answer = askIssuer();
            return finish(complete(answer));
        } catch (const Failure& failure) {
            if (failure.exitCode() == Exit::Output) {
                throw;
            }
            tellAccount(true);
            document_["outcome"] = "failed";
            document_["error"] = failure.what();
            if (options_.json) {
                printJsonResult();
            }
            throw;
        }
    }

private:
    // The transaction leaves the card powered on most of its ways out.
    struct PowerOffAtEnd {
        explicit PowerOffAtEnd(const Session& s) : session(s) {}
        ~PowerOffAtEnd() { IC_PowerOff(session.port(), "", 9600, session.timeout(), kUserCard, 0); }
        PowerOffAtEnd(const PowerOffAtEnd&) = delete;
        PowerOffAtEnd& operator=(const PowerOffAtEnd&) = delete;
        const Session& session;
    };

    std::optional<sim::Issuer> chooseIssuer();
    bool answerFromInput() const { return options_.answer.empty() && !issuer_; }

    void heading(const std::string& text);
    void say(const std::string& name, const std::string& text);
    void showStep(const char* phase, const CardExchange& exchange);
    void tellAccount(bool always);
    void printJsonResult() const;

    void request();
    std::string askIssuer();
    std::string simulatedAnswer();
    Outcome complete(const std::string& answer);
    Outcome judge(int result, const std::string& tc);
    void showScriptResult(const std::string& text);
    Exit finish(const Outcome& outcome);

    const SaleOptions& options_;
    std::string transaction_;
    Session session_;
    std::optional<sim::Issuer> issuer_;
    sim::EmvCard* card_ = nullptr;
    std::size_t told_ = 0; // lines of the card's account
    int cardInterface_ = 0;
    std::string arqc_;
    std::array<char, ICC_STATE_CAPACITY> state_{};
    Json document_;
};

// A made-up answer goes to somebody's real card only when it was asked for in so many words.
std::optional<sim::Issuer> Sale::chooseIssuer()
{
    SimulatedReader* const simulated = session_.simulated();
    if (simulated != nullptr && !options_.issuerProfile.empty()) {
        throw Failure(Exit::Usage, "--simulated-issuer-on-real-card goes with --port");
    }
    if (!options_.answer.empty() || options_.ask) {
        return std::nullopt;
    }
    if (simulated == nullptr && options_.issuerProfile.empty()) {
        if (options_.wrongIssuerKey) {
            throw Failure(Exit::Usage, "--wrong-issuer-key goes with a simulated issuer");
        }
        return std::nullopt;
    }
    const sim::Profile profile = simulated != nullptr ? simulated->profile : profileOf(options_.issuerProfile);
    sim::Issuer issuer = simulatedIssuer(profile);
    if (options_.wrongIssuerKey) {
        sim::crypto::Key wrong = issuer.rules().keys.ac;
        wrong[0] ^= 0xFE;
        issuer.useKey(wrong);
        issuer.trustUnverified(true); // with a wrong key no ARQC is right
    }
    return issuer;
}

// ---------------------------------------------------------------- telling

void Sale::heading(const std::string& text)
{
    if (!options_.json) {
        printLine(text);
    }
}

void Sale::say(const std::string& name, const std::string& text)
{
    if (!options_.json) {
        printLine("  " + name + std::string(name.size() < 14 ? 14 - name.size() : 1, ' ') + text);
    }
}

void Sale::showStep(const char* phase, const CardExchange& exchange)
{
    const unsigned status = statusOf(exchange.response);
    const std::string asked = commandInWords(exchange.command);
    const std::string answered = answerInWords(exchange.command, exchange.response);
    const std::string statusWords = exchange.response.empty() ? "no answer" : statusText(status);
    document_["steps"].push_back({{"phase", phase},
                                  {"asked", asked},
                                  {"answered", answered},
                                  {"status", statusWords},
                                  {"command", commandHex(exchange.command, options_.show)},
                                  {"response", responseHex(exchange.command, exchange.response, options_.show)}});
    if (options_.json) {
        return;
    }
    printLine("  asked         " + asked);
    printLine("  answered      " + (answered.empty() ? "" : answered + ", ") + statusWords);
    if (options_.link.verbose) {
        printLine("                > " + commandHex(exchange.command, options_.show));
        printLine("                < " + responseHex(exchange.command, exchange.response, options_.show));
    }
}

// The calls do not say why a card did what it did; the simulated one does.
void Sale::tellAccount(bool always)
{
    if (card_ == nullptr) {
        return;
    }
    const std::vector<std::string> lines = card_->account();
    document_["cardAccount"] = lines;
    if (options_.json || !(always || options_.link.verbose) || told_ >= lines.size()) {
        return;
    }
    printLine("The simulated card's own account:");
    for (; told_ < lines.size(); ++told_) {
        printLine("  " + lines[told_]);
    }
}

void Sale::printJsonResult() const
{
    // With the answer from standard input the ARQC has gone out before as a line of its own, and so does this.
    (answerFromInput() ? printJsonLine : printJson)(document_);
}

// ---------------------------------------------------------------- the steps

void Sale::request()
{
    heading("1. The card makes its request");
    std::array<char, ICC_CRYPTOGRAM_CAPACITY> text{};
    int length = 0;
    int result = 0;
    cardInterface_ = options_.cardInterface.mode();
    {
        ExchangeFeed feed(session_.serviceLog(), [this](const CardExchange& e) { showStep("request", e); });
        result = IC_GenARQC(session_.port(), "", 9600, session_.timeout(), &cardInterface_, options_.aid.c_str(),
                            transaction_.c_str(), &length, text.data(), state_.data());
        feed.finish();
    }
    session_.check(result, Call::FirstHalf);
    throwIfInterrupted();
    arqc_ = text.data();
    const CryptogramView view = viewOf(sim::CryptogramText::Arqc, arqc_, options_.show);
    document_["interface"] = interfaceName(cardInterface_);
    document_["arqc"] = documentOf(view, options_.show);
    say("through", interfaceName(cardInterface_));
    say("ARQC text", answerFromInput() ? arqc_ : view.text);
}

std::string Sale::askIssuer()
{
    heading("2. The issuer answers");
    if (issuer_) {
        return simulatedAnswer();
    }
    std::string answer = options_.answer;
    if (answer.empty()) {
        if (options_.json) {
            printJsonLine({{"arqc", arqc_}});
        } else {
            note("Send the ARQC text to the host and enter its answer (hex of 91, and 71 or 72):");
        }
        answer = toHex(bytesOfArgument(readLine()));
    }
    say("answer", answer);
    document_["issuer"] = {{"simulated", false}, {"answer", answer}};
    return answer;
}

std::string Sale::simulatedAnswer()
{
    const sim::Authorisation decision = issuer_->authorise(arqc_);
    document_["issuer"] = {{"simulated", true},
                           {"arqcVerified", decision.request.verified},
                           {"verification", decision.request.why},
                           {"decision", sim::nameOf(decision.decision)},
                           {"why", decision.why},
                           {"responseCode", decision.responseCode},
                           {"scripts", decision.scripts},
                           {"answer", decision.text}};
    say("issuer",
        "simulated" + std::string(options_.wrongIssuerKey ? ", with a wrong key, and going on regardless" : ""));
    say("ARQC", decision.request.why);
    say("decision",
        std::string(sim::nameOf(decision.decision)) + " (" + decision.why + "), code " + decision.responseCode);
    for (const std::string& script : decision.scripts) {
        say("script", script);
    }
    say("answer", decision.text);
    if (decision.text.empty()) {
        throw Failure(Exit::Unverified, "the issuer could not read the card's request: " + decision.request.why);
    }
    return decision.text;
}

Outcome Sale::complete(const std::string& answer)
{
    heading("3. The card completes");
    std::array<char, ICC_CRYPTOGRAM_CAPACITY> tc{};
    std::array<char, ICC_SCRIPT_RESULT_CAPACITY> script{};
    int length = 0;
    int result = 0;
    {
        ExchangeFeed feed(session_.serviceLog(), [this](const CardExchange& e) { showStep("completion", e); });
        result = IC_CtlScriptData(session_.port(), "", 9600, session_.timeout(), &cardInterface_, transaction_.c_str(),
                                  answer.c_str(), &length, tc.data(), script.data(), state_.data());
        feed.finish();
    }
    if (tc[0] != '\0') {
        const CryptogramView view = viewOf(sim::CryptogramText::Tc, tc.data(), options_.show);
        document_["tc"] = documentOf(view, options_.show);
        say("TC text", view.text);
    }
    // Before a TC the script has not been run, whatever the text says.
    if (tc[0] != '\0') {
        showScriptResult(script.data());
    }
    return judge(result, tc.data());
}

// DF31 05, and a first byte that tells how it went: 0 not run, 1 failed at a command, 2 done.
void Sale::showScriptResult(const std::string& text)
{
    document_["scriptResult"] = text.empty() ? Json() : Json(text);
    if (text.size() < 8) {
        return;
    }
    const std::string command =
        text[7] == 'F' ? "15 or a later one" : std::to_string(std::stoi(text.substr(7, 1), nullptr, 16));
    say("script", (text[6] == '2'   ? "done"
                   : text[6] == '1' ? "failed at command " + command
                                    : "not run") +
                      " (" + text + ")");
}

Outcome Sale::judge(int result, const std::string& tc)
{
    if (result == VORN_OK && tc.empty()) {
        return {"declined", Exit::Declined, "declined: the issuer's answer asked for no TC, and the card gave none"};
    }
    if (result != VORN_OK && result != VORN_SCRIPT_FAILED) {
        session_.check(result, Call::SecondHalf);
    }
    const std::optional<sim::Verification> verification =
        issuer_ ? std::optional(issuer_->verifyCompletion(tc)) : std::nullopt;
    if (verification) {
        document_["completion"] = {{"tcVerified", verification->verified}, {"verification", verification->why}};
        say("issuer", verification->why);
        if (!verification->verified) {
            return {"unverified", Exit::Unverified, "the card gave a TC that the issuer cannot verify"};
        }
    }
    if (result == VORN_SCRIPT_FAILED) {
        return {"scriptFailed", Exit::ScriptFailed, "approved, but a command of the issuer's script failed"};
    }
    return {"approved", Exit::Ok,
            verification ? "approved, and the TC is right" : "approved; the TC is for the host to verify"};
}

Exit Sale::finish(const Outcome& outcome)
{
    heading("4. " + outcome.message);
    tellAccount(outcome.exitCode != Exit::Ok);
    document_["outcome"] = outcome.name;
    document_["message"] = outcome.message;
    if (options_.json) {
        printJsonResult();
    }
    return outcome.exitCode;
}

} // namespace

void addSale(CLI::App& root, Action& action)
{
    const auto options = std::make_shared<SaleOptions>();
    CLI::App* const command = root.add_subcommand("sale", "Carry out an online transaction, showing each step");
    addSaleOptions(*command, *options);
    addLinkOptions(*command, options->link);
    command->callback([options, &action] { action = [options] { return Sale(*options).run(); }; });
}

} // namespace vorn::tool
