// SPDX-License-Identifier: Apache-2.0
// What goes over the line while the library works. The library's results and logs do not tell a silent reader from one
// that refuses, nor either from a device that is no reader: the bytes do.
#pragma once

#include <cstddef>
#include <cstdint>

namespace vorn::tool {

enum class TapRecord : std::uint8_t { Sent = 'S', Received = 'R', Done = 'D' };

// From now on each piece that this process writes to or reads from a tty, or a USB device, is sent to this
// SOCK_SEQPACKET socket as one record: a TapRecord, then the bytes.
void tapLineTo(int socket);
void sendRecord(int socket, TapRecord record, const void* bytes = nullptr, std::size_t size = 0);

constexpr std::size_t kRecordMax = 4096; // bytes in one record, a longer piece goes out as several

} // namespace vorn::tool
