// SPDX-License-Identifier: Apache-2.0
// Answers to reset (ISO/IEC 7816-3, 8).
#pragma once

#include "public/bytes.h"

#include <cstddef>

namespace vorn::ifd {

constexpr std::size_t kAtrMax = 33;
using Atr = ByteBuffer<kAtrMax>;

struct AtrFacts {
    bool wellFormed = false; // interface bytes, historical bytes and check byte are just what is announced
    int protocol = 0;        // T after the reset: the one that TA2 fixes, else the first one offered
};

AtrFacts readAtr(ByteView atr);

// What a client is shown as the answer to reset of a card in the field, as PC/SC has it for contactless cards: an answer
// to reset as it is, the historical bytes of an answer to select (ISO/IEC 14443-4, 5.2) in one, and one without
// historical bytes for an answer that is neither.
Atr contactlessAtr(ByteView answer);

} // namespace vorn::ifd
