// SPDX-License-Identifier: Apache-2.0
// What the parts of the world share.
#pragma once

#include "seam/world.h"

#include <cstddef>
#include <deque>
#include <vector>

namespace vorn::fuzz {

constexpr std::int64_t kStartUs = 1780000000LL * 1000000;

struct Saying {
    std::int64_t dueUs;
    std::vector<std::uint8_t> bytes;
};

struct World {
    Peer* peer = nullptr;
    std::int64_t nowUs = kStartUs;
    std::int64_t lastDueUs = kStartUs;
    std::deque<Saying> line;
    std::vector<std::uint8_t> filler;
    std::size_t fillerAt = 0;
    unsigned quietReads = 0;
    unsigned counted[static_cast<int>(Operation::Count)] = {};
    unsigned refused[static_cast<int>(Operation::Count)] = {};
    bool interrupted[static_cast<int>(Operation::Count)] = {};
    unsigned open = 0;

    std::vector<UsbDevice> devices;
    unsigned transfers = 0;
    unsigned brokenTransfer = 0;
    int transferError = 0;
    int transferred = 0;
};

World& world();

// True: this call fails, errno is set.
bool refuses(Operation operation);

// Lets time pass. Where nothing can be read before, more of it than asked for, as on a busy machine: a time-out of
// seconds takes a few calls then.
void pass(std::int64_t us);

bool readable();
// As many bytes as are there by now, of one saying.
std::size_t hear(std::uint8_t* buffer, std::size_t capacity);
// Over USB the rest of a packet that was not asked for is lost.
void dropHeard();

} // namespace vorn::fuzz
