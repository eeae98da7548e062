// SPDX-License-Identifier: Apache-2.0
#include "ICC/ICC_COMM_VORN/call_frame.h"

#include "public/local_log.h"

#include "vorn/convert.h"
#include "vorn/log.h"

#include <cstdio>
#include <cstring>
#include <ctime>

namespace vorn {

void choosePort(const char* nPortNo)
{
    const char* port = textOf(nPortNo);
    vr_comportmode = std::strcmp(port, "USB") == 0 ? 1 : 0;
    if (vr_comportmode == 1) {
        std::snprintf(vr_comportparam, sizeof vr_comportparam, "VID_3A5C&PID_7E21");
    } else {
        std::snprintf(vr_comportparam, sizeof vr_comportparam, "%s:9600,N,8,1", port);
    }
}

void beginTracedCall(const char* function, const char* nPortNo, const char* extendPort, int nBaudRate, int nTimeout)
{
    log_write("----------------------------------------------");
    log_write(function);
    logTrace("nPortNo=%s extendPort=%s nBaudRate=%d nTimeout=%d", textOf(nPortNo), textOf(extendPort), nBaudRate,
             nTimeout);
    choosePort(nPortNo);
    log_write("Actual input is:");
    log_write(vr_comportparam);
}

Activation waitForCard(int nTimeout, std::uint8_t* atr, int& atrLength)
{
    int result = vr_openicc(VORN_OPEN_EITHER, atr, &atrLength);
    const std::time_t start = std::time(nullptr);
    std::time_t now = std::time(nullptr);
    while (now - start < nTimeout && result == VORN_READER_NO_CARD) {
        result = vr_openicc(VORN_OPEN_EITHER, atr, &atrLength);
        now = std::time(nullptr);
    }
    return {result, now - start >= nTimeout};
}

Activation waitForCardUnbounded(int mode, int nTimeout)
{
    std::uint8_t answer[VORN_PAYLOAD_MAX];
    int answerLength = 0;
    int result = vr_openicc(mode, answer, &answerLength);
    const std::time_t start = std::time(nullptr);
    const std::time_t elapsed = std::time(nullptr) - start;
    while (elapsed < nTimeout && result == VORN_READER_NO_CARD) {
        result = vr_openicc(mode, answer, &answerLength);
    }
    return {result, elapsed >= nTimeout};
}

int openAndAwaitCard(int* pnIcType, int nTimeout, WithoutCard withoutCard)
{
    if (opdev() != VORN_OK) {
        return VORN_OPEN_FAILED;
    }
    const Activation card = waitForCardUnbounded(pnIcType == nullptr ? 0 : *pnIcType, nTimeout);
    if (card.timedOut || card.result != VORN_OK) {
        return withoutCard(card);
    }
    store(pnIcType, int{m_VrICType});
    return VORN_OK;
}

int leaveWithoutCard(const Activation& card)
{
    return endCall(CardPower::Stays, card.timedOut ? int{VORN_NO_CARD_IN_TIME} : card.result);
}

int leaveWithLine(const Activation& card, const char* lineEnd)
{
    if (card.timedOut) {
        logService("vr_openicc outtime!%s", lineEnd);
    } else {
        vr_closeicc();
        logService("vr_openicc fail!return=%d%s", card.result, lineEnd);
    }
    return leaveWithoutCard(card);
}

int endCall(CardPower power, int code)
{
    if (power == CardPower::Off) {
        vr_closeicc();
    }
    cldev();
    return code;
}

void storeText(char* out, const char* text)
{
    if (out != nullptr) {
        std::memcpy(out, text, std::strlen(text) + 1);
    }
}

void storeHex(char* out, ByteView bytes)
{
    if (out != nullptr) {
        ConvAscii(bytes.data(), out, static_cast<unsigned>(bytes.size()));
    }
}

} // namespace vorn
