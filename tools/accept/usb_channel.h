// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "tools/accept/channel.h"

#include <memory>

namespace vorn::tool::accept {

// The reader on USB. Throws Failure when there is none, or when it is not to be had.
std::unique_ptr<Channel> openUsb();

} // namespace vorn::tool::accept
