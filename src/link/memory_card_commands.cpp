// SPDX-License-Identifier: Apache-2.0
// The reader's commands for contactless memory cards. They write no log entries: keys and blocks stay out of the files.
#include "link/reader_commands.h"

namespace vorn {
namespace {

int exchange(const ReaderCommand& command, ReaderReply& reply)
{
    exchangeFrame(command.view(), reply);
    return reply.result;
}

int exchange(const ReaderCommand& command)
{
    ReaderReply reply;
    return exchange(command, reply);
}

std::uint8_t lowByte(int block) { return static_cast<std::uint8_t>(block & 0xFF); }

} // namespace

int activateMemoryCard(ReaderReply& reply)
{
    return exchange(ReaderCommand(Operation::ActivateMemoryCard, {0x01, 0x00}), reply);
}

int checkMemoryKey(int block, char keyMode, const unsigned char* key)
{
    return exchange(ReaderCommand(Operation::CheckMemoryKey, {lowByte(block), static_cast<std::uint8_t>(keyMode)})
                        .with(ByteView(key, kMemoryKeySize)));
}

int readMemoryBlock(int block, ReaderReply& reply)
{
    return exchange(ReaderCommand(Operation::ReadMemoryBlock, {lowByte(block)}), reply);
}

int writeMemoryBlock(int block, const unsigned char* data)
{
    return exchange(
        ReaderCommand(Operation::WriteMemoryBlock, {lowByte(block)}).with(ByteView(data, kMemoryBlockSize)));
}

} // namespace vorn
