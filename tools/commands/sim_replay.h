// SPDX-License-Identifier: Apache-2.0
// A simulated reader that answers out of a recording.
#pragma once

#include "tools/cli/errors.h"

#include <string>

namespace vorn::tool {

struct ReplayOptions {
    std::string recording;   // empty: none was named
    double timeFactor = 1.0; // of the recorded pauses
    std::string link;
    bool json = false;
    bool verbose = false;
};

// Serves until a signal. Throws Failure.
Exit serveReplay(const ReplayOptions& options);

} // namespace vorn::tool
