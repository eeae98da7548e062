// SPDX-License-Identifier: Apache-2.0
// The reader's version, and whether it is a reader that told it.
#pragma once

#include <string>

namespace vorn::tool {

class Session;

// Throws Failure when nothing answers, or something that is no reader.
std::string readerVersion(Session& session);

} // namespace vorn::tool
