// SPDX-License-Identifier: Apache-2.0
// What a card's status word means (ISO/IEC 7816-4, 5.6).
#pragma once

#include <string>

namespace vorn::tool {

std::string statusMeaning(unsigned statusWord);
std::string statusText(unsigned statusWord); // "6A82 (file or application not found)"

} // namespace vorn::tool
