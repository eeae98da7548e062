// SPDX-License-Identifier: Apache-2.0
// IC_GetZzhHardWalletInfo: the identification of a hard wallet card.
#include "ICC/ICC_COMM_VORN/call_frame.h"
#include "card/tags.h"
#include "public/local_log.h"

#include "ICC_COMM_VORN.h"

#include <cstring>

using namespace vorn;

namespace {

constexpr std::uint8_t kWalletAids[][6] = {
    {0xA0, 0x00, 0x00, 0x08, 0x72, 0x50},
    {0xA0, 0x00, 0x00, 0x08, 0x72, 0x49},
    {0xA0, 0x00, 0x00, 0x08, 0x72, 0x53},
};

constexpr int kFileNotFound = 0x6A82;
constexpr std::size_t kContextIdSize = 8;
constexpr std::size_t kValueMin = 2;

struct WalletTexts {
    char* contextId;
    char* transModeInfo;
    char* aid;

    void clear() const
    {
        storeText(contextId, "");
        storeText(transModeInfo, "");
        storeText(aid, "");
    }
};

struct Wallet {
    std::uint8_t fci[VORN_RESPONSE_MAX] = {};
    std::uint8_t fciSize = 0;
    std::uint8_t answer[VORN_PAYLOAD_MAX] = {};
    int answerSize = 0;
};

int selectWallet(Wallet& wallet)
{
    int result = kFileNotFound;
    for (const auto& aid : kWalletAids) {
        result = vrdk_FinalAppSelect(aid, sizeof aid, wallet.fci, &wallet.fciSize);
        if (result != kFileNotFound) {
            break;
        }
    }
    return result;
}

int failed(const WalletTexts& texts, int code)
{
    texts.clear();
    return endCall(CardPower::Off, code);
}

int readWallet(const WalletTexts& texts)
{
    Wallet wallet;
    if (selectWallet(wallet) != VORN_OK) {
        return failed(texts, VORN_NO_APPLICATION);
    }
    const TagValue name = readTag(tag::kDfName, ByteView(wallet.fci, wallet.fciSize));
    if (name.size < kValueMin) {
        return failed(texts, VORN_OBJECT_MISSING);
    }
    if (vrdk_getwalletinfo(wallet.answer, &wallet.answerSize) != VORN_OK) {
        return failed(texts, VORN_SELECT_FAILED);
    }
    const ByteView answer = viewOf(wallet.answer, wallet.answerSize);
    const TagValue modeInfo = readTag(tag::kTransactionModeInfo, answer.from(kContextIdSize));
    if (modeInfo.size < kValueMin) {
        return failed(texts, VORN_OBJECT_MISSING);
    }
    char contextIdText[ICC_CONTEXT_ID_CAPACITY];
    char modeInfoText[ICC_WALLET_TEXT_CAPACITY];
    char aidText[ICC_WALLET_TEXT_CAPACITY];
    storeHex(contextIdText, ByteView(wallet.answer, kContextIdSize));
    storeHex(modeInfoText, modeInfo.view());
    storeHex(aidText, name.view());
    storeText(texts.contextId, contextIdText);
    storeText(texts.transModeInfo, modeInfoText);
    storeText(texts.aid, aidText);
    logService("pszAID:%s, pszContextId=%s,pszTransModeInfo=%s", aidText, contextIdText, modeInfoText);
    return endCall(CardPower::Off, VORN_OK);
}

} // namespace

extern "C" int IC_GetZzhHardWalletInfo(const char* nPortNo, const char* extendPort, int nBaudRate, int nTimeout,
                                       char* pszContextId, char* pszTransModeInfo, char* pszAID)
{
    // The port is logged as a number (compatibility: "The wallet's log line prints an address").
    logService("IC_GetZzhHardWalletInfo nPortNo:%d,extendPort:%s,nBaudRate:%d,nTimeout:%d\r\n",
               static_cast<int>(reinterpret_cast<std::intptr_t>(nPortNo)), textOf(extendPort), nBaudRate, nTimeout);
    choosePort(nPortNo);
    int cardType = VORN_OPEN_EITHER;
    const int found = openAndAwaitCard(&cardType, nTimeout, leaveWithoutCard);
    return found != VORN_OK ? found : readWallet({pszContextId, pszTransModeInfo, pszAID});
}
