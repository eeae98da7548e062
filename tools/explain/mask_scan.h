// SPDX-License-Identifier: Apache-2.0
// Finds secrets in texts whose form is not known.
#pragma once

#include <string>
#include <string_view>

namespace vorn::tool {

// The text is hex, of any cut: the values of secret objects wherever their tag and length stand, runs of digits that
// could be an account number, track data, and digits as characters.
void hideInHex(std::string& hex);

bool passesLuhn(std::string_view digits);

} // namespace vorn::tool
