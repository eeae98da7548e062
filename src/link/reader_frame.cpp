// SPDX-License-Identifier: Apache-2.0
#include "link/reader_frame.h"

#include "link/medium.h"
#include "link/pieces.h"
#include "link/waiting.h"

#include "vorn/convert.h"
#include "vorn/link.h"

#include <cstdint>
#include <cstring>

namespace vorn {
namespace {

constexpr int kFrameCapacity = 1024;
constexpr int kReplyMax = 1000; // characters, as ReadBytes_Ex counts
constexpr int kReplyTimeoutS = 3;
constexpr int kLateReplyMs = 1000;
constexpr std::uint8_t kStx = 0x02;
constexpr std::uint8_t kEtx = 0x03;

// Places in a decoded reply, and what its length counts besides the payload: one byte that nobody reads, and the
// status.
constexpr int kStatusAt = 3;
constexpr int kPayloadAt = 4;
constexpr int kLengthOverhead = 2;

static_assert(2 * VORN_COMMAND_MAX + 8 == kFrameCapacity, "the longest command fills the frame buffer");
static_assert(2 * (VORN_PAYLOAD_MAX + 2) + 8 == kReplyMax, "the longest payload fills a reply");

int buildFrame(ByteView command, std::uint8_t* frame)
{
    const auto length = static_cast<unsigned>(command.size());
    int at = 0;
    const auto put = [&](unsigned byte) {
        one2two_30(frame + at, static_cast<unsigned char>(byte));
        at += 2;
    };
    frame[at++] = kStx;
    put(length >> 8);
    put(length & 0xFF);
    unsigned check = 0;
    for (std::size_t i = 0; i < command.size(); ++i) {
        put(command[i]);
        check ^= command[i];
    }
    put(check);
    frame[at++] = kEtx;
    return at;
}

// Over USB each piece is a transfer of its own.
void writeFrame(const std::uint8_t* frame, int size)
{
    forEachPiece(frame, size, [](const std::uint8_t* piece, int n) { WriteBytes(vrdk03com_handle, piece, n); });
}

// A frame does not say which command it answers. So nothing that is there before a command is taken for its answer,
// and after a reply that did not come in time its coming late is waited for, also by the next call.
std::int64_t lateReplyUntil = 0; // monotonic milliseconds

void forgetOtherReplies()
{
    const std::int64_t left = lateReplyUntil - monotonicMilliseconds();
    if (left > 0) {
        pauseFor(left * 1000);
    }
    currentMedium().dropReceived(vrdk03com_handle);
}

int resultOfStatus(std::uint8_t status)
{
    switch (status) {
    case 0x00:
        return VORN_OK;
    case 0x02:
    case 0x06:
        return VORN_READER_NO_CARD;
    default:
        return VORN_READER_REFUSED;
    }
}

// `text` begins with STX and ends with a NUL in place of ETX.
void decodeReply(const char* text, ReaderReply& reply)
{
    std::uint8_t decoded[kFrameCapacity] = {};
    Vr_chartoarray(text + 1, decoded);
    const int announced = decoded[0] * 256 + decoded[1] - kLengthOverhead;
    reply.arrived = true;
    reply.size = announced < 0 ? 0 : (announced > VORN_PAYLOAD_MAX ? int{VORN_PAYLOAD_MAX} : announced);
    reply.result = resultOfStatus(decoded[kStatusAt]);
    std::memcpy(reply.payload, decoded + kPayloadAt, static_cast<std::size_t>(reply.size));
}

} // namespace

void exchangeFrame(ByteView command, ReaderReply& reply)
{
    reply = ReaderReply{};
    if (command.size() > VORN_COMMAND_MAX) {
        reply.result = VORN_BAD_ARGUMENT;
        return;
    }
    std::uint8_t frame[kFrameCapacity + 1] = {};
    const int size = buildFrame(command, frame);
    forgetOtherReplies();
    writeFrame(frame, size);

    std::memset(frame, 0, sizeof frame);
    const int received = ReadBytes_Ex(vrdk03com_handle, frame, kReplyMax, kStx, kEtx, kReplyTimeoutS);
    if (received < 1) {
        lateReplyUntil = monotonicMilliseconds() + kLateReplyMs;
        return;
    }
    frame[received - 1] = '\0';
    decodeReply(reinterpret_cast<const char*>(frame), reply);
}

int deliver(const ReaderReply& reply, unsigned char* out, int* outLen)
{
    if (reply.arrived && outLen != nullptr) {
        *outLen = reply.size;
    }
    if (reply.result == VORN_OK && out != nullptr) {
        viewOf(reply.payload, reply.size).copyTo(out);
    }
    return reply.result;
}

} // namespace vorn

extern "C" int trans_icc_cmd(const unsigned char* cmd, int n, unsigned char* out, int* outLen)
{
    if (n < 0) {
        return VORN_BAD_ARGUMENT;
    }
    vorn::ReaderReply reply;
    vorn::exchangeFrame(vorn::viewOf(cmd, n), reply);
    return vorn::deliver(reply, out, outLen);
}
