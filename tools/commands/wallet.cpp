// SPDX-License-Identifier: Apache-2.0
// vorn wallet: a hard wallet's identification.
#include "tools/cli/output.h"
#include "tools/commands/command.h"
#include "tools/commands/link_options.h"
#include "tools/explain/present.h"
#include "tools/session/session.h"

#include "ICC_COMM_VORN.h"

#include <nlohmann/json.hpp>

#include <memory>

namespace vorn::tool {

namespace {

struct Options {
    LinkOptions link;
    bool json = false;
};

struct WalletCall {
    CallTarget target;
    char context[ICC_CONTEXT_ID_CAPACITY] = {};
    char mode[ICC_WALLET_TEXT_CAPACITY] = {};
    char aid[ICC_WALLET_TEXT_CAPACITY] = {};
};

int readWallet(WalletCall& call)
{
    return IC_GetZzhHardWalletInfo(call.target.port, "", 9600, call.target.timeout, call.context, call.mode, call.aid);
}

Exit run(const Options& options)
{
    Session session(options.link);
    session.awaitCard(VORN_OPEN_EITHER);
    WalletCall wallet{CallTarget(session)};
    session.call("IC_GetZzhHardWalletInfo", Call::Wallet, readWallet, wallet);
    if (options.json) {
        printJson({{"contextId", wallet.context}, {"transactionMode", wallet.mode}, {"aid", wallet.aid}});
        return Exit::Ok;
    }
    Table table;
    table.row({"Context identifier", wallet.context});
    table.row({"Transaction mode information", wallet.mode});
    table.row({"Application", wallet.aid});
    print(table.text());
    return Exit::Ok;
}

} // namespace

void addWallet(CLI::App& root, Action& action)
{
    const auto options = std::make_shared<Options>();
    CLI::App* const command = root.add_subcommand("wallet", "Show a hard wallet's identification");
    command->add_flag("--json", options->json, "Print JSON");
    addLinkOptions(*command, options->link);
    command->callback([options, &action] { action = [options] { return run(*options); }; });
}

} // namespace vorn::tool
