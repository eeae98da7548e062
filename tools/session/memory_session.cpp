// SPDX-License-Identifier: Apache-2.0
#include "tools/session/memory_session.h"

#include "tools/cli/interrupt.h"

#include "ICC_COMM_VORN.h"

#include <algorithm>
#include <array>

namespace vorn::tool {

namespace {

// What the four calls take and give.
struct MemoryCall {
    CallTarget target;
    int block = 0;
    char keyMode = 0;
    std::array<unsigned char, ICC_M1_KEY_SIZE> key{};
    std::array<unsigned char, ICC_M1_BLOCK_SIZE> data{};
    std::array<char, ICC_ATR_CAPACITY> identification{};
};

int activateCard(MemoryCall& call)
{
    unsigned char flag = 0;
    return IC_M1ActiveCard(call.target.port, "", 9600, call.target.timeout, &flag, call.identification.data());
}

int checkKey(MemoryCall& call)
{
    return IC_M1CheckCardPin(call.target.port, "", 9600, call.target.timeout, call.block, &call.keyMode,
                             call.key.data());
}

int readBlock(MemoryCall& call)
{
    return IC_M1ReadCard(call.target.port, "", 9600, call.target.timeout, call.block, call.data.data());
}

int writeBlock(MemoryCall& call)
{
    return IC_M1WriteCard(call.target.port, "", 9600, call.target.timeout, call.block, call.data.data());
}

MemoryCall callOn(const Session& session, unsigned block = 0)
{
    MemoryCall call{CallTarget(session)};
    call.block = static_cast<int>(block);
    return call;
}

} // namespace

MemorySession::MemorySession(Session& session) : session_(session)
{
    session.awaitCard([this] { return activate(); });
}

int MemorySession::activate()
{
    MemoryCall call = callOn(session_);
    const int result = session_.run("IC_M1ActiveCard", activateCard, call);
    if (result == VORN_OK) {
        identification_ = call.identification.data();
    }
    return result;
}

// The reader reports a refused key or access like other refusals; a reader or a card that is gone is another matter.
bool MemorySession::accepted(int result) const
{
    if (result == VORN_READER_REFUSED && session_.verdict().trouble == Trouble::None) {
        return false;
    }
    session_.check(result, Call::Memory);
    return true;
}

std::optional<MemoryKey> MemorySession::authenticate(unsigned block, const std::vector<MemoryKey>& keys)
{
    for (const MemoryKey& key : keys) {
        throwIfInterrupted();
        MemoryCall call = callOn(session_, block);
        call.keyMode = key.mode;
        std::copy_n(key.value.begin(), std::min(key.value.size(), call.key.size()), call.key.begin());
        if (accepted(session_.run("IC_M1CheckCardPin", checkKey, call))) {
            return key;
        }
        renew();
    }
    return std::nullopt;
}

void MemorySession::renew() { session_.check(activate(), Call::Memory); }

std::optional<sim::Bytes> MemorySession::read(unsigned block)
{
    MemoryCall call = callOn(session_, block);
    if (!accepted(session_.run("IC_M1ReadCard", readBlock, call))) {
        return std::nullopt;
    }
    return sim::Bytes(call.data.begin(), call.data.end());
}

bool MemorySession::write(unsigned block, const sim::Bytes& data)
{
    MemoryCall call = callOn(session_, block);
    std::copy_n(data.begin(), std::min(data.size(), call.data.size()), call.data.begin());
    return accepted(session_.run("IC_M1WriteCard", writeBlock, call));
}

} // namespace vorn::tool
