// SPDX-License-Identifier: Apache-2.0
// vorn log: the transactions that the card remembers.
#include "tools/cli/arguments.h"
#include "tools/cli/output.h"
#include "tools/commands/command.h"
#include "tools/commands/link_options.h"
#include "tools/explain/hex.h"
#include "tools/explain/lettered.h"
#include "tools/explain/present.h"
#include "tools/session/session.h"

#include "ICC_COMM_VORN.h"

#include <nlohmann/json.hpp>

#include <memory>
#include <optional>

namespace vorn::tool {

namespace {

struct Options {
    LinkOptions link;
    InterfaceOptions cardInterface;
    std::string aid;
    bool json = false;
    bool raw = false;
};

// Said with every list: who reads it must not take it for more than it is.
const char* const kLimits[] = {
    "The amounts that were authorised are not in the library's text; \"other amount\" is the cash part.",
    "The list ends at the first record that the card does not give, without saying so.",
    "The log's layout is taken to be the usual one; the card is not asked for it.",
};

std::string counterText(const std::string& hex)
{
    const auto bytes = fromHex(hex);
    return bytes ? std::to_string(bigEndian(*bytes)) : hex;
}

std::string merchantText(const std::string& utf8)
{
    const std::string text = printable(utf8);
    return text.substr(0, text.find_last_not_of(' ') + 1);
}

// The library hands out an empty name where it cannot convert the card's, which is then not an empty one.
bool nameLost(const LoggedTransaction& one) { return one.merchant.empty() && one.merchantBytes > 0 && !gbkConverts(); }

void printTable(const TransactionList& list)
{
    Table table({"Date", "Time", "Type", "Amount", "Other amount", "Currency", "Country", "Merchant", "ATC"});
    table.alignRight(4);
    table.alignRight(8);
    for (const LoggedTransaction& one : list.transactions) {
        table.row({dateText(one.date), timeText(one.time), transactionTypeText(one.type), "not told",
                   amountText(one.otherAmount, one.currency), currencyText(one.currency), one.country,
                   nameLost(one) ? std::string("(") + kNoGbk + ")" : merchantText(one.merchant),
                   counterText(one.counter)});
    }
    if (list.transactions.empty()) {
        printLine("The log is empty.");
    } else {
        print(table.text());
    }
    printLine();
    for (const char* const limit : kLimits) {
        printLine(limit);
    }
}

Json documentOf(const TransactionList& list)
{
    Json document;
    document["transactions"] = Json::array();
    for (const LoggedTransaction& one : list.transactions) {
        document["transactions"].push_back({{"date", dateText(one.date)},
                                            {"time", timeText(one.time)},
                                            {"type", one.type},
                                            {"amount", nullptr},
                                            {"otherAmount", amountText(one.otherAmount, one.currency)},
                                            {"currency", one.currency},
                                            {"country", one.country},
                                            {"merchant", nameLost(one) ? Json() : Json(merchantText(one.merchant))},
                                            {"merchantBytesOnCard", one.merchantBytes},
                                            {"atc", counterText(one.counter)}});
    }
    document["notTold"] = Json::array();
    for (const char* const limit : kLimits) {
        document["notTold"].push_back(limit);
    }
    return document;
}

struct LogCall {
    CallTarget target;
    int cardInterface = 0;
    char aid[256] = {};
    int length = 0;
    char text[ICC_TX_DETAIL_CAPACITY] = {};
};

int readLog(LogCall& call)
{
    return IC_GetTranDeta(call.target.port, "", 9600, call.target.timeout, &call.cardInterface, call.aid, &call.length,
                          call.text);
}

// What could be read is shown all the same.
std::optional<Failure> incomplete(const TransactionList& list, const Session& session)
{
    constexpr unsigned kNoSuchRecord = 0x6A83; // the log's end
    if (const auto refused = refusedRecord(session.line().exchanges(), Records::All, kNoSuchRecord)) {
        return Failure(Exit::CardRefused, "the list is not whole: " + *refused, "try again; the card may be worn out");
    }
    if (!list.problem.empty()) {
        return Failure(Exit::DataMissing, "the list could not be read to its end: " + list.problem);
    }
    return std::nullopt;
}

Exit run(const Options& options)
{
    Session session(options.link);
    session.awaitCard(options.cardInterface.mode());
    LogCall call{CallTarget(session), options.cardInterface.mode()};
    store(options.aid, call.aid);
    session.call("IC_GetTranDeta", Call::Any, readLog, call);
    if (options.raw) {
        printLine(call.text);
        return Exit::Ok;
    }
    const TransactionList list = parseTransactions(call.text);
    auto failure = incomplete(list, session);
    if (options.json) {
        Json document = documentOf(list);
        printResult(document, failure);
    } else {
        printTable(list);
    }
    if (failure) {
        throw *failure;
    }
    return Exit::Ok;
}

} // namespace

void addLog(CLI::App& root, Action& action)
{
    const auto options = std::make_shared<Options>();
    CLI::App* const command = root.add_subcommand("log", "Show the transactions that a card remembers");
    command->add_option("--aid", options->aid, "Application identifier, or the beginning of one, in hex")
        ->check(hexArgument(127));
    addInterfaceOptions(*command, options->cardInterface);
    CLI::Option* const json = command->add_flag("--json", options->json, "Print JSON");
    command->add_flag("--raw", options->raw, "Print the library's text as it stands")->excludes(json);
    addLinkOptions(*command, options->link);
    command->callback([options, &action] { action = [options] { return run(*options); }; });
}

} // namespace vorn::tool
