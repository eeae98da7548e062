// SPDX-License-Identifier: Apache-2.0
// What the kernel tells of devices, below /sys.
#pragma once

#include <filesystem>
#include <string>

namespace vorn::tool {

// An attribute, which is one line; empty when it is not there.
std::string attribute(const std::filesystem::path& file);
// The name of the driver of a device; empty when it has none.
std::string driverOf(const std::filesystem::path& device);

} // namespace vorn::tool
