// SPDX-License-Identifier: Apache-2.0
// The scanner for frames AA AA AA 96 69, length (two bytes, high first), body.
#pragma once

#include "vorn/link.h"

#include <cstdint>

namespace vorn {

class IdFrameScanner {
public:
    explicit IdFrameScanner(std::uint8_t* buffer) : buffer_(buffer) {}

    bool inBody() const { return matched_ == kPreambleSize && lengthBytes_ == 2; }
    int count() const { return count_; }
    int bodyLeft() const { return bodyLeft_; }

    // A byte of the preamble or the length; a byte that does not fit the preamble starts it anew.
    void header(std::uint8_t byte)
    {
        static constexpr std::uint8_t kPreamble[kPreambleSize] = {0xAA, 0xAA, 0xAA, 0x96, 0x69};
        if (matched_ == kPreambleSize) {
            store(byte);
            bodyLeft_ = bodyLeft_ * 256 + byte;
            ++lengthBytes_;
        } else if (byte == kPreamble[matched_]) {
            store(byte);
            ++matched_;
        } else {
            matched_ = count_ = 0;
        }
    }

    void body(std::uint8_t byte)
    {
        store(byte);
        --bodyLeft_;
    }

private:
    static constexpr int kPreambleSize = 5;

    // The preamble, the length, the longest body, and the byte more that is taken over USB.
    static_assert(VORN_ID2_CAPACITY >= kPreambleSize + 2 + 0xFFFF + 1, "every byte of the longest frame has room");

    void store(std::uint8_t byte) { buffer_[count_++] = byte; }

    std::uint8_t* buffer_;
    int count_ = 0;
    int matched_ = 0;
    int lengthBytes_ = 0;
    int bodyLeft_ = 0;
};

} // namespace vorn
