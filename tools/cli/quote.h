// SPDX-License-Identifier: Apache-2.0
// What somebody gave, as far as a message may repeat it: enough to find it again, and never an account number.
#pragma once

#include <string>

namespace vorn::tool {

std::string inQuotes(const std::string& text); // 'abc', or its first characters

// A message of somebody else's making: long words are cut, long numbers hidden.
std::string withoutNumbers(const std::string& message);

} // namespace vorn::tool
