// SPDX-License-Identifier: Apache-2.0
// Contactless memory cards: one reader command a call. A call that succeeds leaves the link open, as hosts expect
// between activating a card and switching it off.
#include "ICC/ICC_COMM_VORN/call_frame.h"
#include "public/local_log.h"

#include "ICC_COMM_VORN.h"

#include <cstring>

using namespace vorn;

namespace {

constexpr std::uint8_t kCardClass = 0x32;

enum Operation : std::uint8_t { kActivateMemoryCard = 0x41, kCheckPin = 0x42, kReadBlock = 0x43, kWriteBlock = 0x44 };

struct Payload {
    std::uint8_t bytes[VORN_PAYLOAD_MAX] = {};
    int size = 0;

    ByteView view() const { return viewOf(bytes, size); }
};

using Command = ByteBuffer<32>;

Command command(Operation operation)
{
    Command bytes;
    bytes.append(kCardClass);
    bytes.append(operation);
    return bytes;
}

Command blockCommand(Operation operation, int nBlockNo)
{
    Command bytes = command(operation);
    bytes.append(static_cast<std::uint8_t>(nBlockNo & 0xFF));
    return bytes;
}

int icc_M1ActiveCard(Payload& identification)
{
    Command bytes = command(kActivateMemoryCard);
    bytes.append(0x01);
    bytes.append(0x00);
    return trans_icc_cmd(bytes.data(), static_cast<int>(bytes.size()), identification.bytes, &identification.size);
}

int icc_M1CheckCardPin(int nBlockNo, const char* pKeyMode, const unsigned char* pKey)
{
    Command bytes = blockCommand(kCheckPin, nBlockNo);
    bytes.append(static_cast<std::uint8_t>(*pKeyMode));
    bytes.append(ByteView(pKey, ICC_M1_KEY_SIZE));
    return trans_icc_cmd(bytes.data(), static_cast<int>(bytes.size()), nullptr, nullptr);
}

// The caller's buffer is one block, whatever the reader sends.
int icc_M1ReadCard(int nBlockNo, unsigned char* pData)
{
    const Command bytes = blockCommand(kReadBlock, nBlockNo);
    Payload block;
    const int result = trans_icc_cmd(bytes.data(), static_cast<int>(bytes.size()), block.bytes, &block.size);
    const ByteView data = block.view().first(ICC_M1_BLOCK_SIZE);
    if (result == VORN_OK && pData != nullptr && !data.empty()) {
        std::memcpy(pData, data.data(), data.size());
    }
    return result;
}

int icc_M1WriteCard(int nBlockNo, const unsigned char* pData)
{
    Command bytes = blockCommand(kWriteBlock, nBlockNo);
    bytes.append(ByteView(pData, ICC_M1_BLOCK_SIZE));
    return trans_icc_cmd(bytes.data(), static_cast<int>(bytes.size()), nullptr, nullptr);
}

// Logs the start, opens the link and runs the exchange; only a failure closes the link.
template <class Exchange>
int onOpenLink(const char* function, const char* nPortNo, bool inputsGiven, Exchange exchange)
{
    logService("%s start!", function);
    if (!inputsGiven) {
        return VORN_BAD_ARGUMENT;
    }
    choosePort(nPortNo);
    if (opdev() != VORN_OK) {
        return VORN_OPEN_FAILED;
    }
    const int result = exchange();
    return result == VORN_OK ? result : endCall(CardPower::Stays, result);
}

int logOk(int result)
{
    if (result == VORN_OK) {
        logService("return OK!");
    }
    return result;
}

} // namespace

extern "C" {

int IC_M1ActiveCard(const char* nPortNo, const char*, int, int, unsigned char* pFlag, char* pszUID)
{
    Payload identification;
    const int result = onOpenLink("IC_M1ActiveCard", nPortNo, true, [&] { return icc_M1ActiveCard(identification); });
    if (result == VORN_OK) {
        char text[VORN_PAYLOAD_TEXT_CAPACITY];
        storeHex(text, identification.view());
        store(pFlag, static_cast<unsigned char>(1));
        storeText(pszUID, text);
        logService("recv:%s!", text);
    }
    return result;
}

int IC_M1CheckCardPin(const char* nPortNo, const char*, int, int, int nBlockNo, const char* pKeyMode,
                      const unsigned char* pKey)
{
    return logOk(onOpenLink("IC_M1CheckCardPin", nPortNo, pKeyMode != nullptr && pKey != nullptr,
                            [&] { return icc_M1CheckCardPin(nBlockNo, pKeyMode, pKey); }));
}

int IC_M1ReadCard(const char* nPortNo, const char*, int, int, int nBlockNo, unsigned char* pData)
{
    return logOk(onOpenLink("IC_M1ReadCard", nPortNo, true, [&] { return icc_M1ReadCard(nBlockNo, pData); }));
}

int IC_M1WriteCard(const char* nPortNo, const char*, int, int, int nBlockNo, const unsigned char* pData)
{
    return logOk(
        onOpenLink("IC_M1WriteCard", nPortNo, pData != nullptr, [&] { return icc_M1WriteCard(nBlockNo, pData); }));
}

int IC_M1PowerOff(const char* nPortNo, const char*, int, int)
{
    choosePort(nPortNo);
    if (opdev() != VORN_OK) {
        return VORN_OPEN_FAILED;
    }
    picc_Deactive();
    return endCall(CardPower::Stays, VORN_OK);
}

} // extern "C"
