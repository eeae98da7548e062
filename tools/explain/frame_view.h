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

// The payload of the reader's answer to that command: what a card answered to an APDU, an answer to reset, a memory
// card's number. Blocks of memory cards are their holder's, and what the command does not bring may be the late answer of
// a card: of both nothing is shown but the length.
std::string payloadHex(ByteSpan command, ByteSpan payload, bool show);

// What a card said when it got power; what has not that form is treated as above.
std::string resetHex(ByteSpan answer, bool show);
Item explainReset(ByteSpan answer, bool show);

std::string slotName(std::uint8_t slot);

} // namespace vorn::tool
