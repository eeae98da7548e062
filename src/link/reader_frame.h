// SPDX-License-Identifier: Apache-2.0
// The reader's frame: STX, length, content and check in 3x nibble text, ETX.
#pragma once

#include "public/bytes.h"

#include "vorn/result.h"

namespace vorn {

// A reply as it came: its payload of `size` bytes, zero where the reader announced more than it sent.
struct ReaderReply {
    int result = VORN_NO_REPLY;
    bool arrived = false; // false: size and payload say nothing
    int size = 0;
    std::uint8_t payload[VORN_PAYLOAD_MAX] = {};
};

// Sends one command over the open link and reads its reply.
void exchangeFrame(ByteView command, ReaderReply& reply);

// Hands a reply to a caller: the length as soon as one came, the payload only on success. Returns the result.
int deliver(const ReaderReply& reply, unsigned char* out, int* outLen);

} // namespace vorn
