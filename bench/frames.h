// SPDX-License-Identifier: Apache-2.0
// The reader's frames, written down here once more, so that what is measured is not what measures.
#pragma once

#include <cstddef>
#include <vector>

namespace vorn::bench {

using Bytes = std::vector<unsigned char>;

constexpr unsigned char kStx = 0x02;
constexpr unsigned char kEtx = 0x03;

inline Bytes frameOf(const Bytes& content)
{
    Bytes frame{kStx};
    const auto put = [&frame](unsigned byte) {
        frame.push_back(static_cast<unsigned char>(0x30 + (byte >> 4)));
        frame.push_back(static_cast<unsigned char>(0x30 + (byte & 0x0F)));
    };
    put(static_cast<unsigned>(content.size() >> 8));
    put(content.size() & 0xFF);
    unsigned check = 0;
    for (const unsigned char byte : content) {
        put(byte);
        check ^= byte;
    }
    put(check);
    frame.push_back(kEtx);
    return frame;
}

} // namespace vorn::bench
