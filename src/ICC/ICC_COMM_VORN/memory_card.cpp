// SPDX-License-Identifier: Apache-2.0
// Contactless memory cards: one reader command a call. A call that succeeds leaves the link open, as hosts expect
// between activating a card and switching it off.
#include "ICC/ICC_COMM_VORN/call_frame.h"
#include "link/reader_commands.h"
#include "public/local_log.h"

#include "ICC_COMM_VORN.h"

using namespace vorn;

namespace {

static_assert(ICC_M1_KEY_SIZE == kMemoryKeySize && ICC_M1_BLOCK_SIZE == kMemoryBlockSize, "as the reader takes them");

// The caller's buffer is one block, whatever the reader sends.
int readBlock(int nBlockNo, unsigned char* pData)
{
    ReaderReply reply;
    const int result = readMemoryBlock(nBlockNo, reply);
    if (result == VORN_OK && pData != nullptr) {
        viewOf(reply.payload, reply.size).first(ICC_M1_BLOCK_SIZE).copyTo(pData);
    }
    return result;
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
    ReaderReply reply;
    const int result = onOpenLink("IC_M1ActiveCard", nPortNo, true, [&] { return activateMemoryCard(reply); });
    if (result == VORN_OK) {
        char text[VORN_PAYLOAD_TEXT_CAPACITY];
        storeHex(text, viewOf(reply.payload, reply.size));
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
                            [&] { return checkMemoryKey(nBlockNo, *pKeyMode, pKey); }));
}

int IC_M1ReadCard(const char* nPortNo, const char*, int, int, int nBlockNo, unsigned char* pData)
{
    return logOk(onOpenLink("IC_M1ReadCard", nPortNo, true, [&] { return readBlock(nBlockNo, pData); }));
}

int IC_M1WriteCard(const char* nPortNo, const char*, int, int, int nBlockNo, const unsigned char* pData)
{
    return logOk(
        onOpenLink("IC_M1WriteCard", nPortNo, pData != nullptr, [&] { return writeMemoryBlock(nBlockNo, pData); }));
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
