// SPDX-License-Identifier: Apache-2.0
// Raw power-on, APDU and power-off for the user's card and the PSAMs.
#include "ICC/ICC_COMM_VORN/call_frame.h"
#include "public/local_log.h"

#include "ICC_COMM_VORN.h"

#include <cstring>

using namespace vorn;

namespace {

enum CardType { kUserCard = 1, kPsam = 2 };

constexpr int kFirstPsam = 1;
constexpr int kLastPsam = 4;

bool isPsam(int nCardType, int nPSAMCardNo)
{
    return nCardType == kPsam && nPSAMCardNo >= kFirstPsam && nPSAMCardNo <= kLastPsam;
}

int psamSlot(int nPSAMCardNo) { return VORN_SLOT_PSAM1 + nPSAMCardNo - kFirstPsam; }

void logCall(const char* function, const char* nPortNo, const char* extendPort, int nBaudRate, int nTimeout,
             int nCardType, int nPSAMCardNo)
{
    logService("%s nPortNo:%s,extendPort:%s,nBaudRate:%d,nTimeout:%d,nCardType:%d,nPSAMCardNo:%d\r\n", function,
               textOf(nPortNo), textOf(extendPort), nBaudRate, nTimeout, nCardType, nPSAMCardNo);
}

int powerOnUserCard(int nTimeout, char* pszATR)
{
    std::uint8_t atr[VORN_PAYLOAD_MAX];
    int atrLength = 0;
    const Activation card = waitForCard(nTimeout, atr, atrLength);
    if (card.timedOut || card.result != VORN_OK) {
        return leaveWithLine(card, "\n");
    }
    storeHex(pszATR, viewOf(atr, atrLength));
    return endCall(CardPower::Stays, VORN_OK);
}

int powerOnPsam(int nPSAMCardNo, char* pszATR)
{
    std::uint8_t atr[VORN_PAYLOAD_MAX];
    int atrLength = 0;
    m_VrICType = VORN_INTERFACE_NONE;
    const int result = icc_poweron(psamSlot(nPSAMCardNo), atr, &atrLength);
    if (result == VORN_OK) {
        storeHex(pszATR, viewOf(atr, atrLength));
    }
    return endCall(CardPower::Stays, result);
}

} // namespace

extern "C" {

int IC_OpenPort(const char*, const char*, int, int) { return VORN_OK; }

int IC_ClosePort(const char*, const char*, int, int) { return VORN_OK; }

int IC_PowerOn(const char* nPortNo, const char* extendPort, int nBaudRate, int nTimeout, int nCardType, int nPSAMCardNo,
               char* pszATR)
{
    storeText(pszATR, "");
    logCall("IC_PowerOn", nPortNo, extendPort, nBaudRate, nTimeout, nCardType, nPSAMCardNo);
    choosePort(nPortNo);
    if (opdev() != VORN_OK) {
        return VORN_OPEN_FAILED;
    }
    if (nCardType == kUserCard) {
        return powerOnUserCard(nTimeout, pszATR);
    }
    if (isPsam(nCardType, nPSAMCardNo)) {
        return powerOnPsam(nPSAMCardNo, pszATR);
    }
    return endCall(CardPower::Stays, VORN_BAD_ARGUMENT);
}

int IC_PowerOff(const char* nPortNo, const char* extendPort, int nBaudRate, int nTimeout, int nCardType,
                int nPSAMCardNo)
{
    logCall("IC_PowerOff", nPortNo, extendPort, nBaudRate, nTimeout, nCardType, nPSAMCardNo);
    choosePort(nPortNo);
    if (opdev() != VORN_OK) {
        return VORN_OPEN_FAILED;
    }
    if (nCardType == kUserCard) {
        return endCall(CardPower::Off, VORN_OK);
    }
    if (isPsam(nCardType, nPSAMCardNo)) {
        icc_poweroff(static_cast<unsigned char>(psamSlot(nPSAMCardNo)));
        return endCall(CardPower::Stays, VORN_OK);
    }
    return endCall(CardPower::Stays, VORN_BAD_ARGUMENT);
}

int IC_SendAPDU(const char* nPortNo, const char*, int, int, int nCardType, int nPSAMCardNo, const char* pszAPDU,
                char* pszResp)
{
    choosePort(nPortNo);
    if (opdev() != VORN_OK) {
        return VORN_OPEN_FAILED;
    }
    const char* text = textOf(pszAPDU);
    logService("APDU:%s!\n", text);
    const bool userCard = nCardType == kUserCard;
    std::uint8_t apdu[VORN_COMMAND_MAX] = {};
    const std::size_t length = std::strlen(text) / 2;
    if ((!userCard && !isPsam(nCardType, nPSAMCardNo)) || length > sizeof apdu) {
        return endCall(CardPower::Stays, VORN_BAD_ARGUMENT);
    }
    const int count = static_cast<int>(length);
    AsciiToHex(text, apdu, 2 * count);

    std::uint8_t response[VORN_PAYLOAD_MAX] = {};
    int responseLength = 0;
    const int result = userCard ? Icc_EXApdu(apdu, count, response, &responseLength)
                                : SamIcc_EXApdu(psamSlot(nPSAMCardNo), apdu, count, response, &responseLength);
    if (result < 0) {
        return endCall(CardPower::Stays, result);
    }
    char responseText[VORN_PAYLOAD_TEXT_CAPACITY];
    storeHex(responseText, viewOf(response, responseLength));
    storeText(pszResp, responseText);
    logService("recv:%s!", responseText);
    return endCall(CardPower::Stays, VORN_OK);
}

} // extern "C"
