// SPDX-License-Identifier: Apache-2.0
// vorn atr: powers a card, shows its answer to reset, powers it off.
#include "tools/cli/output.h"
#include "tools/commands/command.h"
#include "tools/commands/link_options.h"
#include "tools/explain/atr_view.h"
#include "tools/explain/hex.h"
#include "tools/explain/present.h"
#include "tools/session/session.h"

#include "ICC_COMM_VORN.h"

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include <memory>

namespace vorn::tool {

namespace {

struct Options {
    LinkOptions link;
    InterfaceOptions cardInterface;
    int psam = 0;
    bool json = false;
};

struct PsamCall {
    CallTarget target;
    int slot = 0;
    char atr[ICC_ATR_CAPACITY] = {};
};

int powerOnPsam(PsamCall& call)
{
    constexpr int psamCard = 2;
    return IC_PowerOn(call.target.port, "", 9600, call.target.timeout, psamCard, call.slot, call.atr);
}

// A PSAM does not come and go: it is asked for once, through the service call.
Bytes samAtr(Session& session, int slot)
{
    PsamCall call{CallTarget(session), slot};
    session.call("IC_PowerOn", Call::Any, powerOnPsam, call);
    return fromHex(call.atr).value_or(Bytes());
}

void printParts(const std::string& where, const Bytes& atr)
{
    printLine("Card  " + where);
    printLine("ATR   " + toHex(atr));
    Table table;
    for (const AtrPart& part : decodeAtr(atr)) {
        table.row({"  " + part.name, part.hex, std::string(part.meaning)});
    }
    print(table.text());
}

void printDocument(const std::string& where, const Bytes& atr)
{
    Json document;
    document["card"] = where;
    document["atr"] = toHex(atr);
    document["parts"] = Json::array();
    for (const AtrPart& part : decodeAtr(atr)) {
        document["parts"].push_back(
            {{"name", part.name}, {"hex", part.hex}, {"meaning", std::string_view(part.meaning)}});
    }
    printJson(document);
}

Exit run(const Options& options)
{
    Session session(options.link);
    const Bytes atr =
        options.psam > 0 ? samAtr(session, options.psam) : session.powerUserCard(options.cardInterface.mode());
    const std::string where =
        options.psam > 0 ? "psam" + std::to_string(options.psam) : interfaceName(session.cardInterface());
    (options.json ? printDocument : printParts)(where, atr);
    return Exit::Ok;
}

} // namespace

void addAtr(CLI::App& root, Action& action)
{
    const auto options = std::make_shared<Options>();
    CLI::App* const command = root.add_subcommand("atr", "Power a card and show its answer to reset");
    command->add_option("--psam", options->psam, "The PSAM in this slot instead of the user's card")
        ->check(CLI::Range(1, 4));
    addInterfaceOptions(*command, options->cardInterface);
    command->add_flag("--json", options->json, "Print JSON");
    addLinkOptions(*command, options->link);
    command->callback([options, &action] { action = [options] { return run(*options); }; });
}

} // namespace vorn::tool
