// SPDX-License-Identifier: Apache-2.0
#include "seam/world_state.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

namespace vorn::fuzz {

namespace {

constexpr std::int64_t kLeapUs = 250000;
constexpr unsigned kQuietReadsBeforeFiller = 16;

World theWorld;

} // namespace

World& world() { return theWorld; }

void beginWorld(Peer* peer)
{
    theWorld = World{};
    theWorld.peer = peer;
}

void say(ByteView bytes, unsigned afterMs)
{
    World& w = theWorld;
    w.lastDueUs = std::max(w.lastDueUs, w.nowUs) + std::int64_t{afterMs} * 1000;
    w.line.push_back({w.lastDueUs, std::vector<std::uint8_t>(bytes.data(), bytes.data() + bytes.size())});
}

void fillSilence(ByteView bytes) { theWorld.filler.assign(bytes.data(), bytes.data() + bytes.size()); }

void refuse(Operation operation, unsigned nth, bool interrupted)
{
    theWorld.refused[static_cast<int>(operation)] = nth;
    theWorld.interrupted[static_cast<int>(operation)] = interrupted;
}

unsigned openDescriptors() { return theWorld.open; }

bool refuses(Operation operation)
{
    const auto kind = static_cast<int>(operation);
    if (++theWorld.counted[kind] != theWorld.refused[kind]) {
        return false;
    }
    errno = theWorld.interrupted[kind] ? EINTR : EIO;
    return true;
}

void pass(std::int64_t us)
{
    World& w = theWorld;
    w.nowUs += us;
    if (w.line.empty()) {
        w.nowUs += kLeapUs;
    } else if (w.line.front().dueUs > w.nowUs) {
        w.nowUs = std::min(w.line.front().dueUs, w.nowUs + kLeapUs);
    }
}

bool readable()
{
    World& w = theWorld;
    while (!w.line.empty() && w.line.front().bytes.empty()) {
        w.line.pop_front();
    }
    if (!w.line.empty()) {
        return w.line.front().dueUs <= w.nowUs;
    }
    return !w.filler.empty() && ++w.quietReads > kQuietReadsBeforeFiller;
}

std::size_t hear(std::uint8_t* buffer, std::size_t capacity)
{
    World& w = theWorld;
    if (capacity == 0 || !readable()) {
        return 0;
    }
    if (w.line.empty()) {
        buffer[0] = w.filler[w.fillerAt++ % w.filler.size()];
        return 1;
    }
    std::vector<std::uint8_t>& bytes = w.line.front().bytes;
    const std::size_t count = std::min(capacity, bytes.size());
    std::memcpy(buffer, bytes.data(), count);
    bytes.erase(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(count));
    return count;
}

void dropHeard()
{
    if (!theWorld.line.empty() && theWorld.line.front().dueUs <= theWorld.nowUs) {
        theWorld.line.pop_front();
    }
}

} // namespace vorn::fuzz
