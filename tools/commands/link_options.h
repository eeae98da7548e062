// SPDX-License-Identifier: Apache-2.0
// Options of every command that works on a reader.
#pragma once

#include "tools/session/session.h"

namespace CLI {
class App;
} // namespace CLI

namespace vorn::tool {

void addLinkOptions(CLI::App& command, LinkOptions& options);
void addInterfaceOptions(CLI::App& command, InterfaceOptions& options);

} // namespace vorn::tool
