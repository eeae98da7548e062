// SPDX-License-Identifier: Apache-2.0
// Commands and answers of a card, in words.
#pragma once

#include "sim/data/bytes.h"
#include "tools/explain/mask.h"

#include <string>

namespace vorn::tool {

using sim::Bytes;

// The status word at the end of a response; 0 when it has none.
unsigned statusOf(const Bytes& response);
Bytes dataOf(const Bytes& response);

bool knownInstruction(std::uint8_t instruction);
std::string commandInWords(const Bytes& apdu);
// What the response says to that command, without its status; may be empty. Account numbers are not shown.
std::string answerInWords(const Bytes& apdu, const Bytes& response);

} // namespace vorn::tool
