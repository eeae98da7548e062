// SPDX-License-Identifier: Apache-2.0
// The subcommands. Each adds itself to the command line; when it is the one that was given it leaves what to do.
#pragma once

#include "tools/cli/errors.h"

#include <CLI/CLI.hpp>

#include <functional>

namespace vorn::tool {

using Action = std::function<Exit()>;

void addInfo(CLI::App& root, Action& action);
void addAtr(CLI::App& root, Action& action);
void addApdu(CLI::App& root, Action& action);
void addSale(CLI::App& root, Action& action);
void addLog(CLI::App& root, Action& action);
void addM1(CLI::App& root, Action& action);
void addWallet(CLI::App& root, Action& action);
void addDevice(CLI::App& root, Action& action);
void addDecode(CLI::App& root, Action& action);
void addReplay(CLI::App& root, Action& action);
void addRecord(CLI::App& root, Action& action);
void addIssuer(CLI::App& root, Action& action);
void addSim(CLI::App& root, Action& action);
void addPorts(CLI::App& root, Action& action);
void addDoctor(CLI::App& root, Action& action);
void addAccept(CLI::App& root, Action& action);
void addWatch(CLI::App& root, Action& action);
void addHelp(CLI::App& root, Action& action);
void addComplete(CLI::App& root, Action& action);

} // namespace vorn::tool
