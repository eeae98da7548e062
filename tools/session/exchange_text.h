// SPDX-License-Identifier: Apache-2.0
// An exchange as -v shows it, with nothing in it that is secret unless all may be shown.
#pragma once

#include "tools/session/line_watcher.h"

#include <string>

namespace vorn::tool {

std::string exchangeText(const LineExchange& exchange, bool show);

} // namespace vorn::tool
