// SPDX-License-Identifier: Apache-2.0
// vorn wallet: a hard wallet's identification.
#include "tools/cli/output.h"
#include "tools/commands/command.h"
#include "tools/explain/present.h"
#include "tools/session/session.h"

#include "ICC_COMM_VORN.h"

#include <nlohmann/json.hpp>

#include <array>
#include <memory>

namespace vorn::tool {

namespace {

struct Options {
    LinkOptions link;
    bool json = false;
};

Exit run(const Options& options)
{
    const Session session(options.link);
    session.awaitCard(VORN_OPEN_EITHER);
    std::array<char, ICC_CONTEXT_ID_CAPACITY> context{};
    std::array<char, ICC_WALLET_TEXT_CAPACITY> mode{};
    std::array<char, ICC_WALLET_TEXT_CAPACITY> aid{};
    session.check(
        IC_GetZzhHardWalletInfo(session.port(), "", 9600, session.timeout(), context.data(), mode.data(), aid.data()),
        Call::Wallet);
    if (options.json) {
        printJson({{"contextId", context.data()}, {"transactionMode", mode.data()}, {"aid", aid.data()}});
        return Exit::Ok;
    }
    Table table;
    table.row({"Context identifier", context.data()});
    table.row({"Transaction mode information", mode.data()});
    table.row({"Application", aid.data()});
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
