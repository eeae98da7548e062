// SPDX-License-Identifier: Apache-2.0
// Commands and answers of a card, in words.
#pragma once

#include "sim/data/bytes.h"
#include "tools/explain/mask.h"

#include <string>

namespace vorn::tool {

using sim::ByteSpan;

// The status word at the end of a response; 0 when it has none.
unsigned statusOf(ByteSpan response);
ByteSpan dataOf(ByteSpan response);

bool knownInstruction(std::uint8_t instruction);
std::string commandInWords(ByteSpan apdu);
// What the response says to that command, without its status; may be empty. Account numbers are not shown.
std::string answerInWords(ByteSpan apdu, ByteSpan response);

} // namespace vorn::tool
