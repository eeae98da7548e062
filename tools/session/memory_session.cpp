// SPDX-License-Identifier: Apache-2.0
#include "tools/session/memory_session.h"

#include "tools/cli/interrupt.h"
#include "tools/cli/output.h"

#include "ICC_COMM_VORN.h"

#include <array>
#include <chrono>

namespace vorn::tool {

namespace {

constexpr unsigned kSmallSectors = 32;
constexpr unsigned kSmallBlocks = 4;
constexpr unsigned kLargeBlocks = 16;
constexpr unsigned kFirstLarge = kSmallSectors * kSmallBlocks;
constexpr int kPollPause = 100; // milliseconds

} // namespace

unsigned sectorOf(unsigned block)
{
    return block < kFirstLarge ? block / kSmallBlocks : kSmallSectors + (block - kFirstLarge) / kLargeBlocks;
}

unsigned firstBlock(unsigned sector)
{
    return sector < kSmallSectors ? sector * kSmallBlocks : kFirstLarge + (sector - kSmallSectors) * kLargeBlocks;
}

unsigned blockCount(unsigned sector) { return sector < kSmallSectors ? kSmallBlocks : kLargeBlocks; }

bool isTrailer(unsigned block)
{
    const unsigned sector = sectorOf(block);
    return block == firstBlock(sector) + blockCount(sector) - 1;
}

bool accessBitsConsistent(const sim::Bytes& trailer)
{
    const unsigned c1 = trailer[7] >> 4, c2 = trailer[8] & 0x0FU, c3 = trailer[8] >> 4;
    const unsigned not1 = trailer[6] & 0x0FU, not2 = trailer[6] >> 4, not3 = trailer[7] & 0x0FU;
    return (c1 ^ not1) == 0x0F && (c2 ^ not2) == 0x0F && (c3 ^ not3) == 0x0F;
}

MemorySession::MemorySession(const Session& session) : session_(session)
{
    using Clock = std::chrono::steady_clock;
    const auto end = Clock::now() + std::chrono::seconds(session.waitSeconds());
    int result = activate();
    if (result == VORN_READER_NO_CARD && session.waitSeconds() > 0) {
        note("waiting for a card (" + std::to_string(session.waitSeconds()) + " s)");
    }
    while (result == VORN_READER_NO_CARD && Clock::now() < end && !interrupted()) {
        pause(kPollPause);
        result = activate();
    }
    session.check(result, Call::Memory);
}

MemorySession::~MemorySession() { IC_M1PowerOff(session_.port(), "", 9600, session_.timeout()); }

int MemorySession::activate()
{
    unsigned char flag = 0;
    std::array<char, ICC_ATR_CAPACITY> text{};
    const int result = IC_M1ActiveCard(session_.port(), "", 9600, session_.timeout(), &flag, text.data());
    if (result == VORN_OK) {
        identification_ = text.data();
    }
    return result;
}

// The reader reports a refused key or access like other refusals; a reader that is gone is another matter.
bool MemorySession::accepted(int result) const
{
    if (result == VORN_READER_REFUSED || result == VORN_READER_NO_CARD) {
        return false;
    }
    session_.check(result, Call::Memory);
    return true;
}

std::optional<MemoryKey> MemorySession::authenticate(unsigned block, const std::vector<MemoryKey>& keys)
{
    for (const MemoryKey& key : keys) {
        throwIfInterrupted();
        if (accepted(IC_M1CheckCardPin(session_.port(), "", 9600, session_.timeout(), static_cast<int>(block),
                                       &key.mode, key.value.data()))) {
            return key;
        }
        // A card that was given a wrong key answers nothing more until it is activated again.
        session_.check(activate(), Call::Memory);
    }
    return std::nullopt;
}

std::optional<sim::Bytes> MemorySession::read(unsigned block)
{
    sim::Bytes data(ICC_M1_BLOCK_SIZE);
    if (!accepted(IC_M1ReadCard(session_.port(), "", 9600, session_.timeout(), static_cast<int>(block), data.data()))) {
        return std::nullopt;
    }
    return data;
}

bool MemorySession::write(unsigned block, const sim::Bytes& data)
{
    return accepted(
        IC_M1WriteCard(session_.port(), "", 9600, session_.timeout(), static_cast<int>(block), data.data()));
}

} // namespace vorn::tool
