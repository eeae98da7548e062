// SPDX-License-Identifier: Apache-2.0
// What goes over the reader's line: frames, and their content as the log has it (docs/reader-protocol.md).
#pragma once

#include "tools/explain/item.h"
#include "tools/explain/mask.h"

#include <optional>

namespace vorn::tool {

struct Frame {
    Bytes content;
    std::string problem; // of length or check
};

// Nothing when the bytes have not the form of a frame.
std::optional<Frame> parseFrame(ByteSpan bytes);

// The bytes of a command or an answer, without their frame.
bool looksLikeReaderCommand(ByteSpan content);
Item explainReaderCommand(ByteSpan content, bool show);
Explanation explainFrame(ByteSpan bytes, bool show);

// The answer to a command that reads a memory card's block: nothing of it but its length is anybody else's.
bool answersWithBlock(ByteSpan command);

std::string slotName(std::uint8_t slot);

} // namespace vorn::tool
