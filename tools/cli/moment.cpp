// SPDX-License-Identifier: Apache-2.0
#include "tools/cli/moment.h"

#include <array>
#include <ctime>

namespace vorn::tool {

std::string utcNow()
{
    const std::time_t seconds = std::time(nullptr);
    std::tm parts{};
    ::gmtime_r(&seconds, &parts);
    std::array<char, 40> text{};
    std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%SZ", &parts);
    return text.data();
}

} // namespace vorn::tool
