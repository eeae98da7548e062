// SPDX-License-Identifier: Apache-2.0
// The reader's commands: the card class, an operation, and its parameters.
#pragma once

#include "link/reader_frame.h"
#include "public/bytes.h"

#include "vorn/result.h"

#include <cstdint>
#include <initializer_list>

namespace vorn {

enum class Operation : std::uint8_t {
    PowerOn = 0x22,
    PowerOff = 0x23,
    Activate = 0x24, // of a card in the contactless field
    Deactivate = 0x25,
    Apdu = 0x26,
    ActivateMemoryCard = 0x41,
    CheckMemoryKey = 0x42,
    ReadMemoryBlock = 0x43,
    WriteMemoryBlock = 0x44
};

class ReaderCommand {
public:
    explicit ReaderCommand(Operation operation, std::initializer_list<std::uint8_t> parameters = {})
    {
        static constexpr std::uint8_t kCardClass = 0x32;
        const std::uint8_t head[] = {kCardClass, static_cast<std::uint8_t>(operation)};
        static_assert(sizeof head <= VORN_COMMAND_MAX, "there is room for the class and the operation");
        proven(bytes_.append(ByteView(head, sizeof head)));
        complete_ = bytes_.append(ByteView(parameters.begin(), parameters.size()));
    }

    // Further parameters. A command that has more than a frame can carry is not complete, and is not sent.
    ReaderCommand& with(ByteView parameters)
    {
        complete_ = complete_ && bytes_.append(parameters);
        return *this;
    }

    bool complete() const { return complete_; }
    ByteView view() const { return bytes_.view(); }

private:
    ByteBuffer<VORN_COMMAND_MAX> bytes_;
    bool complete_;
};

// ---------------------------------------------------------------- contactless memory cards

constexpr int kMemoryKeySize = 6;
constexpr int kMemoryBlockSize = 16;

// Each is one exchange and returns its result; of a block number the low byte counts. The reply of the first holds the
// card's identification, that of reading the block. `key`: kMemoryKeySize bytes, `data`: kMemoryBlockSize.
int activateMemoryCard(ReaderReply& reply);
int checkMemoryKey(int block, char keyMode, const unsigned char* key);
int readMemoryBlock(int block, ReaderReply& reply);
int writeMemoryBlock(int block, const unsigned char* data);

} // namespace vorn
