// SPDX-License-Identifier: Apache-2.0
// Which tool, from which commit, with which library.
#pragma once

#include <string>

namespace vorn::tool {

std::string toolVersion(); // "1.0.0 (commit 0123456789)"
std::string libraryPath(); // the file that was loaded
std::string versionText(); // all of it, for people

} // namespace vorn::tool
