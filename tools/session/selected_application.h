// SPDX-License-Identifier: Apache-2.0
// Which of a card's applications a call worked with: the calls do not tell, their exchanges do.
#pragma once

#include "tools/session/line_watcher.h"

#include <string>
#include <vector>

namespace vorn::tool {

struct SelectedApplication {
    Bytes aid;         // empty: none was selected
    std::string label; // may be empty

    bool startsWith(const std::string& hex) const;
};

// The last one that was selected before GET PROCESSING OPTIONS.
SelectedApplication selectedApplication(const std::vector<LineExchange>& exchanges);

} // namespace vorn::tool
