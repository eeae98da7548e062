// SPDX-License-Identifier: Apache-2.0
#include "tools/session/sysfs.h"

#include <fstream>

namespace vorn::tool {

std::string attribute(const std::filesystem::path& file)
{
    std::string line;
    std::ifstream in(file);
    std::getline(in, line);
    return line;
}

std::string driverOf(const std::filesystem::path& device)
{
    std::error_code error;
    return std::filesystem::read_symlink(device / "driver", error).filename().string();
}

} // namespace vorn::tool
