// SPDX-License-Identifier: Apache-2.0
// vorn sale: an online transaction from end to end, each step as it happens.
#include "sim/cards/emv_card.h"
#include "tools/cli/arguments.h"
#include "tools/cli/interrupt.h"
#include "tools/cli/output.h"
#include "tools/commands/command.h"
#include "tools/commands/issuer.h"
#include "tools/commands/link_options.h"
#include "tools/commands/sale_options.h"
#include "tools/explain/apdu_words.h"
#include "tools/explain/hex.h"
#include "tools/explain/present.h"
#include "tools/explain/status_words.h"
#include "tools/explain/tlv_view.h"
#include "tools/session/completion_fate.h"

#include "ICC_COMM_VORN.h"

#include <nlohmann/json.hpp>

#include <memory>
#include <optional>

namespace vorn::tool {

namespace {

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

constexpr std::size_t kTransactionRoom = 8192;
constexpr std::size_t kAnswerRoom = 8192;

struct RequestCall {
    CallTarget target;
    int cardInterface = 0;
    char aid[256] = {};
    char transaction[kTransactionRoom] = {};
    int length = 0;
    char text[ICC_CRYPTOGRAM_CAPACITY] = {};
    char state[ICC_STATE_CAPACITY] = {};
};

int makeRequest(RequestCall& call)
{
    return IC_GenARQC(call.target.port, "", 9600, call.target.timeout, &call.cardInterface, call.aid, call.transaction,
                      &call.length, call.text, call.state);
}

struct CompletionCall {
    CallTarget target;
    int cardInterface = 0;
    char transaction[kTransactionRoom] = {};
    char answer[kAnswerRoom] = {};
    int length = 0;
    char text[ICC_CRYPTOGRAM_CAPACITY] = {};
    char script[ICC_SCRIPT_RESULT_CAPACITY] = {};
    char state[ICC_STATE_CAPACITY] = {};
};

int completeTransaction(CompletionCall& call)
{
    return IC_CtlScriptData(call.target.port, "", 9600, call.target.timeout, &call.cardInterface, call.transaction,
                            call.answer, &call.length, call.text, call.script, call.state);
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
        session_.onExchange([this](const LineExchange& exchange) { showStep(exchange); });
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
            request();
            const std::string answer = askIssuer();
            return finish(complete(answer));
        } catch (Failure& failure) {
            if (failure.exitCode() == Exit::Output) {
                throw;
            }
            tellAccount(true);
            document_["outcome"] = failure.exitCode() == Exit::Unknown ? "unknown" : "failed";
            document_["error"] = errorDocument(failure);
            if (options_.json) {
                printJsonResult();
                failure.tell();
            }
            throw;
        }
    }

private:
    std::optional<sim::Issuer> chooseIssuer();
    bool answerFromInput() const { return options_.answer.empty() && !issuer_; }

    void heading(const std::string& text);
    void say(const std::string& name, const std::string& text);
    void showStep(const LineExchange& exchange);
    void tellAccount(bool always);
    void printJsonResult() const;

    void request();
    std::string askIssuer();
    std::string simulatedAnswer();
    Outcome complete(const std::string& answer);
    Outcome judge(int result, const std::string& tc, const std::string& answer);
    void refuseUnknown(const std::string& why) const;
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
    std::string state_;
    const char* phase_ = "";
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
        giveWrongKey(issuer);
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

void Sale::showStep(const LineExchange& exchange)
{
    const Bytes command = exchange.apdu();
    if (command.empty()) {
        return;
    }
    const bool show = options_.link.show;
    const std::string asked = commandInWords(command);
    const std::string answered = answerInWords(command, exchange.payload);
    const Trouble trouble = troubleOf(exchange);
    const std::string statusWords =
        trouble == Trouble::None ? statusText(statusOf(exchange.payload)) : failureOf(trouble, exchange).what();
    document_["steps"].push_back({{"phase", phase_},
                                  {"asked", asked},
                                  {"answered", answered},
                                  {"status", statusWords},
                                  {"command", commandHex(command, show)},
                                  {"response", responseHex(command, exchange.payload, show)}});
    if (options_.json) {
        return;
    }
    printLine("  asked         " + asked);
    printLine("  answered      " + (answered.empty() ? "" : answered + ", ") + statusWords);
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
    phase_ = "request";
    RequestCall call{CallTarget(session_), options_.cardInterface.mode()};
    store(options_.aid, call.aid);
    store(transaction_, call.transaction);
    session_.call("IC_GenARQC", Call::FirstHalf, makeRequest, call);
    throwIfInterrupted();
    cardInterface_ = call.cardInterface;
    arqc_ = call.text;
    state_ = call.state;
    const CryptogramView view = viewOf(sim::CryptogramText::Arqc, arqc_, options_.link.show);
    document_["interface"] = interfaceName(cardInterface_);
    document_["arqc"] = documentOf(view, options_.link.show);
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
    phase_ = "completion";
    CompletionCall call{CallTarget(session_), cardInterface_};
    store(transaction_, call.transaction);
    store(answer, call.answer);
    store(state_, call.state);
    int result = VORN_OK;
    try {
        result = session_.run("IC_CtlScriptData", completeTransaction, call);
    } catch (const Failure& failure) {
        refuseUnknown(failure.what());
        throw;
    }
    if (session_.verdict().trouble != Trouble::None) {
        refuseUnknown(session_.troubleFailure().what());
    }
    // Before a TC the script has not been run, whatever the text says.
    if (call.text[0] != '\0') {
        const CryptogramView view = viewOf(sim::CryptogramText::Tc, call.text, options_.link.show);
        document_["tc"] = documentOf(view, options_.link.show);
        say("TC text", view.text);
        showScriptResult(call.script);
    }
    return judge(result, call.text, answer);
}

// Asked for a TC, and its answer lost: what the card decided stands in the card alone.
void Sale::refuseUnknown(const std::string& why) const
{
    if (fateOf(session_.line()) == CompletionFate::Unknown) {
        throw Failure(Exit::Unknown,
                      "the outcome is unknown: the card was asked to approve, and its answer was lost (" + why + ")",
                      "the card may have approved: send the host a reversal of this transaction, then begin a new one");
    }
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

// What went wrong on the line before the TC came does not matter any more.
Outcome Sale::judge(int result, const std::string& tc, const std::string& answer)
{
    if (result == VORN_OK && tc.empty()) {
        return {"declined", Exit::Declined, "declined: the issuer's answer asked for no TC, and the card gave none"};
    }
    if (result != VORN_OK && result != VORN_SCRIPT_FAILED) {
        session_.check(result, Call::SecondHalf);
    }
    if (session_.verdict().trouble != Trouble::None) {
        note(std::string("vorn: ") + session_.troubleFailure().what());
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
    if (asksForReferral(answer)) {
        return {"referral", Exit::Referral,
                "not approved: the issuer wants to be called (response code 01 or 02), and decides by telephone"};
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
