// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

namespace vorn {

// The reader takes its bytes in pieces of this size.
constexpr int kWritePiece = 128;

// Passes the bytes on in pieces, the last of them as short as it comes. What fits into one piece is one, nothing too.
template <class Send>
void forEachPiece(const std::uint8_t* bytes, int count, Send send)
{
    for (; count > kWritePiece; bytes += kWritePiece, count -= kWritePiece) {
        send(bytes, kWritePiece);
    }
    send(bytes, count);
}

} // namespace vorn
