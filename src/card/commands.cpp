// SPDX-License-Identifier: Apache-2.0
// The card's command APDUs: built here, carried by Icc_EXApdu.
#include "public/bytes.h"

#include "vorn/card.h"
#include "vorn/link.h"

#include <cstdint>
#include <cstring>

namespace {

using vorn::ByteView;

constexpr int kHeaderSize = 5; // CLA INS P1 P2 and Lc or Le
constexpr int kStatusWordSize = 2;
constexpr int kGetRandomMax = 512;

struct Header {
    std::uint8_t cla, ins, p1, p2;
};

// One command and its response.
class Command {
public:
    // Case 2: no data, Le.
    Command(Header header, std::uint8_t le) { begin(header, le); }

    // Case 3: Lc and data.
    Command(Header header, std::uint8_t lc, const unsigned char* data)
    {
        begin(header, lc);
        size_ += lc;
        if (lc != 0) {
            std::memcpy(apdu_ + kHeaderSize, data, lc);
        }
    }

    // Sends only the first bytes.
    void cutTo(int size) { size_ = size; }

    // The exchange's result for a status word 0000 is 0 too, but only 9000 is success: then there is a response.
    unsigned send()
    {
        const int result = Icc_EXApdu(apdu_, size_, response_, &responseSize_);
        const bool success = result == VORN_OK && responseSize_ >= kStatusWordSize;
        return static_cast<unsigned>(result == VORN_OK && !success ? int{VORN_READER_REFUSED} : result);
    }

    // The whole last response, status word included.
    ByteView response() const { return vorn::viewOf(response_, responseSize_); }

    ByteView data() const { return response().first(response().size() - kStatusWordSize); }

private:
    void begin(Header header, std::uint8_t last)
    {
        const std::uint8_t bytes[kHeaderSize] = {header.cla, header.ins, header.p1, header.p2, last};
        std::memcpy(apdu_, bytes, sizeof bytes);
        size_ = kHeaderSize;
    }

    std::uint8_t apdu_[kHeaderSize + 255] = {};
    int size_ = 0;
    std::uint8_t response_[kGetRandomMax + kStatusWordSize] = {};
    int responseSize_ = 0;
};

static_assert(kGetRandomMax + kStatusWordSize >= VORN_PAYLOAD_MAX, "the receiver takes whatever a reader hands over");

// A response longer than its one-byte length can say is cut.
unsigned sendForByteLength(Command& command, unsigned char* out, unsigned char* outLength)
{
    const unsigned result = command.send();
    if (result == VORN_OK) {
        const ByteView data = command.data().first(VORN_RESPONSE_MAX);
        data.copyTo(out);
        *outLength = static_cast<unsigned char>(data.size());
    }
    return result;
}

// GET DATA: the second byte of the tag by the item's index; all tags begin with 9F.
constexpr std::uint8_t kDataItems[] = {0x36, 0x13, 0x17, 0x4F, 0x79, 0x77, 0x78};

} // namespace

extern "C" {

unsigned int vrdk_getrandom(int count, unsigned char* random)
{
    Command command({0x00, 0x84, 0x00, 0x00}, static_cast<std::uint8_t>(count));
    const unsigned result = command.send();
    if (result == VORN_OK && count > 0) {
        // The status word is not part of the random number of a card that sent too little.
        std::uint8_t bytes[kGetRandomMax] = {};
        command.data().copyTo(bytes);
        std::memcpy(random, bytes, static_cast<std::size_t>(count < kGetRandomMax ? count : kGetRandomMax));
    }
    return result;
}

unsigned int VR_read_binary(int shortFileId, int offset, int length, unsigned char* data, int* dataLength)
{
    static_cast<void>(length); // not transmitted: the card's 6Cxx brings the right Le
    const auto p1 = static_cast<std::uint8_t>(0x80 | (shortFileId & 0x1F));
    Command command({0x00, 0xB0, p1, static_cast<std::uint8_t>(offset)}, 0x00);
    const unsigned result = command.send();
    if (result == VORN_OK) {
        const ByteView received = command.data();
        received.copyTo(data);
        *dataLength = static_cast<int>(received.size());
    }
    return result;
}

unsigned int vrdk_SelectFile(unsigned char p1, unsigned char p2, const unsigned char* data, unsigned char lc,
                             unsigned char* fci, unsigned char* fciLength)
{
    Command command({0x00, 0xA4, p1, p2}, lc, data);
    return sendForByteLength(command, fci, fciLength);
}

unsigned int vrdk_ExternalAuth(const unsigned char* data, unsigned char lc)
{
    return Command({0x00, 0x82, 0x00, 0x00}, lc, data).send();
}

unsigned int vrdk_InternalAuth(const unsigned char* data, unsigned char lc, unsigned char* response,
                               unsigned char* responseLength)
{
    Command command({0x00, 0x88, 0x00, 0x00}, lc, data);
    return sendForByteLength(command, response, responseLength);
}

unsigned int vrdk_VerifyPin(unsigned char p2, const unsigned char* data, unsigned char length)
{
    Command command({0x00, 0x20, 0x00, p2}, length, data);
    command.cutTo(length);
    return command.send();
}

unsigned int vrdk_GetProcessOptions(const unsigned char* data, unsigned char lc, unsigned char* response,
                                    unsigned char* responseLength)
{
    Command command({0x80, 0xA8, 0x00, 0x00}, lc, data);
    return sendForByteLength(command, response, responseLength);
}

unsigned int vrdk_GetData(unsigned char index, unsigned char* object, unsigned char* objectLength)
{
    const std::uint8_t item = index < sizeof kDataItems ? kDataItems[index] : kDataItems[0];
    Command command({0x80, 0xCA, 0x9F, item}, 0x00);
    return sendForByteLength(command, object, objectLength);
}

unsigned int vrdk_GenerateAC(unsigned char referenceControl, const unsigned char* data, unsigned char lc,
                             unsigned char* response, unsigned char* responseLength)
{
    Command command({0x80, 0xAE, referenceControl, 0x00}, lc, data);
    return sendForByteLength(command, response, responseLength);
}

unsigned int vrdk_ReadRecord(unsigned char recordNumber, unsigned char shortFileId, unsigned char* record,
                             unsigned char* recordLength)
{
    const auto p2 = static_cast<std::uint8_t>((shortFileId << 3) | 0x04);
    Command command({0x00, 0xB2, recordNumber, p2}, 0x00);
    return sendForByteLength(command, record, recordLength);
}

int vrdk_getwalletinfo(unsigned char* response, int* responseLength)
{
    *responseLength = 0;
    Command command({0x80, 0x22, 0x00, 0x03}, 0x00);
    const int result = static_cast<int>(command.send());
    if (result == VORN_OK) {
        const ByteView received = command.response();
        received.copyTo(response);
        *responseLength = static_cast<int>(received.size());
    }
    return result;
}

} // extern "C"
