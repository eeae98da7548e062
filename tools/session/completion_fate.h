// SPDX-License-Identifier: Apache-2.0
// What is known of a transaction after the call that completes it.
#pragma once

#include "tools/session/line_watcher.h"

#include <string>

namespace vorn::tool {

enum class CompletionFate {
    NotAsked, // the card was not asked for a TC, or was not there any more when it was
    Answered,
    Unknown // it was asked, and nobody has its answer
};

CompletionFate fateOf(const LineWatcher& line);

// Response codes 01 and 02 in the issuer's answer (hex).
bool asksForReferral(const std::string& answer);

} // namespace vorn::tool
