// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "tools/accept/channel.h"

#include <memory>
#include <string>

namespace vorn::tool::accept {

// name: as the library takes it, "ttyS1". At 9600 baud; the tty's settings are put back at the end. Throws Failure when
// the port is not there, not allowed, or another program's.
std::unique_ptr<Channel> openTty(const std::string& name);

} // namespace vorn::tool::accept
