// SPDX-License-Identifier: Apache-2.0
// vorn info: the customer's data of a debit/credit card.
#include "sim/data/profile_error.h"
#include "tools/cli/arguments.h"
#include "tools/cli/output.h"
#include "tools/commands/command.h"
#include "tools/commands/link_options.h"
#include "tools/explain/hex.h"
#include "tools/explain/lettered.h"
#include "tools/explain/present.h"
#include "tools/session/offline_reading.h"
#include "tools/session/selected_application.h"
#include "tools/session/session.h"

#include "ICC_COMM_VORN.h"

#include <nlohmann/json.hpp>

#include <array>
#include <memory>
#include <optional>

namespace vorn::tool {

namespace {

const char* const kAllLetters = "ABCDEFGHIJKL";

struct Options {
    LinkOptions link;
    InterfaceOptions cardInterface;
    std::string aid;
    std::string tags = kAllLetters;
    bool json = false;
    bool raw = false;
    bool verify = false;
    bool cryptogram = false;
    std::string authorities;
};

// The first character remains: enough to see that it was read.
std::string maskName(const std::string& utf8)
{
    std::size_t first = utf8.empty() ? 0 : 1;
    while (first < utf8.size() && (static_cast<unsigned char>(utf8[first]) & 0xC0U) == 0x80U) {
        ++first;
    }
    return utf8.empty() ? "" : utf8.substr(0, first) + "***";
}

enum class Form { Pan, Track2, Amount, Date, Hex, Counter, DocumentType, Document, Name };

struct Row {
    char letter;
    const char* key; // in JSON
    const char* heading;
    Form form;
};

constexpr std::array<Row, 12> kRows = {{{'A', "pan", "Account number", Form::Pan},
                                        {'B', "track2", "Track 2", Form::Track2},
                                        {'C', "ecBalance", "Electronic cash balance", Form::Amount},
                                        {'D', "ecBalanceLimit", "  balance limit", Form::Amount},
                                        {'F', "ecSingleLimit", "  single transaction limit", Form::Amount},
                                        {'E', "expiry", "Expires", Form::Date},
                                        {'G', "panSequence", "Card sequence number", Form::Hex},
                                        {'H', "atc", "Transaction counter", Form::Counter},
                                        {'I', "documentType", "Document type", Form::DocumentType},
                                        {'J', "documentNumber", "Document number", Form::Document},
                                        {'K', "name", "Name", Form::Name},
                                        {'L', "nameExtended", "Name extended", Form::Name}}};

constexpr std::array<const char*, 6> kDocumentTypes = {"identity card", "officer's card",          "passport",
                                                       "entry permit",  "temporary identity card", "other"};

std::string documentType(const std::string& hex)
{
    if (hex.size() == 2 && hex[0] == '0' && hex[1] >= '0' && hex[1] < '0' + static_cast<int>(kDocumentTypes.size())) {
        return std::string(kDocumentTypes[static_cast<std::size_t>(hex[1] - '0')]) + " (" + hex + ")";
    }
    return hex;
}

std::string maskDocument(const std::string& utf8) { return maskMiddle(utf8, 3, 2); }

// What could not be read is masked as a whole: its hex, or a remark about it, is not the text that a mask is made for.
std::string cardText(const std::string& hex, bool show, std::string (*mask)(const std::string&))
{
    const auto bytes = fromHex(hex);
    if (!bytes) {
        return show ? printable(hex) : "***";
    }
    if (show) {
        return textOfGbk(*bytes);
    }
    const GbkText text = gbkText(*bytes);
    return text.problem.empty() ? mask(text.text) : "*** (" + text.problem + ")";
}

std::string counter(const std::string& hex)
{
    const auto bytes = fromHex(hex);
    if (!bytes || bytes->empty() || bytes->size() > 4) {
        return printable(hex);
    }
    return std::to_string(bigEndian(*bytes));
}

std::string present(Form form, const std::string& text, bool show)
{
    switch (form) {
    case Form::Pan:
        return printable(show ? text : maskPan(text));
    case Form::Track2:
        return printable(show ? text : maskTrack2(text));
    case Form::Amount:
        return amountText(text);
    case Form::Date:
        return dateText(text);
    case Form::Hex:
        return printable(text);
    case Form::Counter:
        return counter(text);
    case Form::DocumentType:
        return documentType(text);
    case Form::Document:
        return cardText(text, show, maskDocument);
    case Form::Name:
        return cardText(text, show, maskName);
    }
    return {};
}

std::string textOf(const CardRecord& record, int cardInterface, const SelectedApplication& application,
                   const Options& options)
{
    const bool show = options.link.show;
    Table table;
    table.row({"Read through", interfaceName(cardInterface)});
    table.row({"Application", toHex(application.aid) + (application.label.empty() ? "" : " " + application.label)});
    for (const Row& row : kRows) {
        const auto text = record.field(row.letter);
        const std::string value = !text           ? "(the card answered with something else)"
                                  : text->empty() ? "-"
                                                  : present(row.form, *text, show);
        table.row({row.heading, value});
    }
    return table.text();
}

// null: not on the card, or not asked for; a member that is missing: the card answered with something else.
Json documentOf(const CardRecord& record, int cardInterface, const SelectedApplication& application,
                const Options& options)
{
    const bool show = options.link.show;
    Json document;
    document["interface"] = interfaceName(cardInterface);
    document["aid"] = toHex(application.aid);
    document["application"] = application.label;
    document["aidFound"] = options.aid.empty() ? Json() : Json(application.startsWith(options.aid));
    document["masked"] = !show;
    for (const Row& row : kRows) {
        const auto text = record.field(row.letter);
        if (text && text->empty()) {
            document[row.key] = nullptr;
        } else if (text) {
            document[row.key] = present(row.form, *text, show);
        }
    }
    return document;
}

struct InfoCall {
    CallTarget target;
    int cardInterface = 0;
    char aid[256] = {};
    char letters[64] = {};
    int length = 0;
    char record[ICC_USER_INFO_CAPACITY] = {};
};

int readInfo(InfoCall& call)
{
    return IC_GetInfo(call.target.port, "", 9600, call.target.timeout, &call.cardInterface, call.aid, call.letters,
                      &call.length, call.record);
}

void tellSelection(const SelectedApplication& application, const std::string& aid)
{
    if (!aid.empty() && !application.startsWith(aid)) {
        note("vorn: the card has no application " + aid + "; its directory was used");
    }
}

// What could be read is shown all the same.
std::optional<Failure> incomplete(const CardRecord& record, const Session& session)
{
    if (const auto refused = refusedRecord(session.line().exchanges(), Records::OfApplication, 0)) {
        return Failure(Exit::CardRefused, "the data are not whole: " + *refused, "try again; the card may be worn out");
    }
    if (!record.problem.empty()) {
        return Failure(Exit::DataMissing, "the record could not be read to its end: " + record.problem);
    }
    return std::nullopt;
}

// ---------------------------------------------------------------- is the card what it says

verify::Authorities authoritiesOf(const Options& options)
{
    if (options.authorities.empty()) {
        return verify::testAuthorities();
    }
    try {
        return verify::readAuthorities(options.authorities);
    } catch (const sim::ProfileError& error) {
        throw Failure(Exit::Usage, error.what(), "docs/vorn.md says what stands in such a file");
    }
}

std::string textOf(const verify::OfflineChecks& checks, const Options& options)
{
    Table table;
    for (const verify::Step& step : checks.steps()) {
        table.row({"  " + step.name, step.held ? "held" : "FAILED", printable(step.detail)});
    }
    if (checks.offersCombined() && !options.cryptogram) {
        table.row({"  signed cryptogram (CDA)", "-", "not asked for: that takes a transaction (--cda)"});
    }
    return "Offline data authentication\n" +
           (checks.offersAny() ? table.text() : std::string("  the card offers none\n"));
}

Json documentOf(const verify::OfflineChecks& checks)
{
    Json offered = Json::array();
    const std::pair<bool, const char*> methods[] = {
        {checks.offersStatic(), "sda"}, {checks.offersDynamic(), "dda"}, {checks.offersCombined(), "cda"}};
    for (const auto& [offers, name] : methods) {
        if (offers) {
            offered.push_back(name);
        }
    }
    Json steps = Json::array();
    for (const verify::Step& step : checks.steps()) {
        steps.push_back({{"name", step.name}, {"held", step.held}, {"detail", printable(step.detail)}});
    }
    return {{"offered", offered}, {"held", checks.offersAny() && checks.held()}, {"steps", steps}};
}

std::optional<Failure> failureOf(const verify::OfflineChecks& checks)
{
    if (!checks.offersAny()) {
        return Failure(Exit::DataMissing, "the card offers no offline data authentication");
    }
    for (const verify::Step& step : checks.steps()) {
        if (!step.held) {
            return Failure(Exit::Unverified,
                           "offline data authentication failed: " + step.name + ": " + printable(step.detail),
                           "--ca gives the keys of other authorities than the simulated cards'");
        }
    }
    return std::nullopt;
}

verify::OfflineChecks verified(Session& session, const SelectedApplication& application,
                               const verify::Authorities& authorities, const Options& options)
{
    OfflineReading reading(session, options.cardInterface.mode(), application.aid);
    return reading.check(authorities, options.cryptogram);
}

Exit run(const Options& options)
{
    const verify::Authorities authorities = authoritiesOf(options);
    Session session(options.link);
    session.awaitCard(options.cardInterface.mode());
    InfoCall call{CallTarget(session), options.cardInterface.mode()};
    store(options.aid, call.aid);
    store(options.tags, call.letters);
    session.call("IC_GetInfo", Call::Any, readInfo, call);
    const SelectedApplication application = selectedApplication(session.line().exchanges());
    tellSelection(application, options.aid);
    if (options.raw) {
        printLine(call.record);
        return Exit::Ok;
    }
    const CardRecord record = parseCardRecord(call.record);
    auto failure = incomplete(record, session);
    std::optional<verify::OfflineChecks> checks;
    if (options.verify && !failure) {
        checks = verified(session, application, authorities, options);
        failure = failureOf(*checks);
    }
    if (options.json) {
        Json document = documentOf(record, call.cardInterface, application, options);
        if (checks) {
            document["offlineAuthentication"] = documentOf(*checks);
        }
        printResult(document, failure);
    } else {
        print(textOf(record, call.cardInterface, application, options));
        print(checks ? textOf(*checks, options) : std::string());
    }
    if (failure) {
        throw *failure;
    }
    return Exit::Ok;
}

std::string checkLetters(const std::string& letters)
{
    return letters.find_first_not_of(kAllLetters) == std::string::npos ? ""
                                                                       : "only the letters A to L name data objects";
}

} // namespace

void addInfo(CLI::App& root, Action& action)
{
    const auto options = std::make_shared<Options>();
    CLI::App* const command = root.add_subcommand("info", "Show a debit/credit card's data");
    command->add_option("--aid", options->aid, "Application identifier, or the beginning of one, in hex")
        ->check(hexArgument(127));
    command->add_option("--tags", options->tags, "Letters A to L of the data wanted")
        ->check(CLI::Validator(checkLetters, "LETTERS"))
        ->capture_default_str();
    addInterfaceOptions(*command, options->cardInterface);
    CLI::Option* const json = command->add_flag("--json", options->json, "Print JSON");
    CLI::Option* const raw =
        command->add_flag("--raw", options->raw, "Print the lettered record as it stands, nothing masked");
    raw->excludes(json);
    CLI::Option* const check =
        command->add_flag("--verify", options->verify, "Check the card's offline data authentication")->excludes(raw);
    command->add_option("--ca", options->authorities, "Authorities' keys to check with, instead of the test key")
        ->type_name("FILE")
        ->needs(check);
    command->add_flag("--cda", options->cryptogram, "Have it sign a cryptogram too, which it counts as a transaction")
        ->needs(check);
    command->add_flag("--show", options->link.show, "Do not mask account and document numbers and names");
    addLinkOptions(*command, options->link);
    command->callback([options, &action] { action = [options] { return run(*options); }; });
}

} // namespace vorn::tool
