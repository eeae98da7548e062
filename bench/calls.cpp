// SPDX-License-Identifier: Apache-2.0
#include "bench/calls.h"

#include "ICC_COMM_VORN.h"

namespace vorn::bench {
namespace {

constexpr int kWait = 10;
constexpr int kBlock = 16;
constexpr const char* kSale = "P012000000000100T00200S006261121U006123456K00812345678";
constexpr unsigned char kKey[ICC_M1_KEY_SIZE] = {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF};

int powerOn(Desk& desk)
{
    return IC_PowerOn(desk.port.c_str(), "", 9600, kWait, 1, 0, desk.text("atr", ICC_ATR_CAPACITY));
}

int sendApdu(Desk& desk)
{
    return IC_SendAPDU(desk.port.c_str(), "", 9600, kWait, 1, 0, "00A404000E315041592E5359532E4444463031",
                       desk.text("response", ICC_RESPONSE_CAPACITY));
}

int powerOff(Desk& desk) { return IC_PowerOff(desk.port.c_str(), "", 9600, kWait, 1, 0); }

int getInfo(Desk& desk)
{
    int cardType = VORN_OPEN_EITHER;
    int length = 0;
    return IC_GetInfo(desk.port.c_str(), "", 9600, kWait, &cardType, "", "ABCDEFGHIJKL", &length,
                      desk.text("record", ICC_USER_INFO_CAPACITY));
}

int getTransactions(Desk& desk)
{
    int cardType = VORN_OPEN_EITHER;
    int length = 0;
    return IC_GetTranDeta(desk.port.c_str(), "", 9600, kWait, &cardType, "A000000333", &length,
                          desk.text("detail", ICC_TX_DETAIL_CAPACITY));
}

int beginSale(Desk& desk)
{
    int cardType = VORN_OPEN_EITHER;
    int length = 0;
    return IC_GenARQC(desk.port.c_str(), "", 9600, kWait, &cardType, "", kSale, &length,
                      desk.text("arqc", ICC_CRYPTOGRAM_CAPACITY), desk.text("state", ICC_STATE_CAPACITY));
}

int completeSale(Desk& desk)
{
    const std::string answer = desk.issuer->authorise(desk.texts["arqc"].data()).text;
    int cardType = VORN_OPEN_EITHER;
    int length = 0;
    return IC_CtlScriptData(desk.port.c_str(), "", 9600, kWait, &cardType, kSale, answer.c_str(), &length,
                            desk.text("tc", ICC_CRYPTOGRAM_CAPACITY), desk.text("script", ICC_SCRIPT_RESULT_CAPACITY),
                            desk.texts["state"].data());
}

int activateMemoryCard(Desk& desk)
{
    unsigned char flag = 0;
    return IC_M1ActiveCard(desk.port.c_str(), "", 9600, kWait, &flag, desk.text("uid", ICC_ATR_CAPACITY));
}

int checkKey(Desk& desk) { return IC_M1CheckCardPin(desk.port.c_str(), "", 9600, kWait, kBlock, "A", kKey); }

int readBlock(Desk& desk)
{
    return IC_M1ReadCard(desk.port.c_str(), "", 9600, kWait, kBlock, desk.bytes("block", ICC_M1_BLOCK_SIZE));
}

int writeBlock(Desk& desk)
{
    return IC_M1WriteCard(desk.port.c_str(), "", 9600, kWait, kBlock, desk.bytes("block", ICC_M1_BLOCK_SIZE));
}

int leaveMemoryCard(Desk& desk) { return IC_M1PowerOff(desk.port.c_str(), "", 9600, kWait); }

int wallet(Desk& desk)
{
    return IC_GetZzhHardWalletInfo(desk.port.c_str(), "", 9600, kWait, desk.text("context", ICC_CONTEXT_ID_CAPACITY),
                                   desk.text("mode", ICC_WALLET_TEXT_CAPACITY),
                                   desk.text("aid", ICC_WALLET_TEXT_CAPACITY));
}

int device(Desk& desk)
{
    return GetDevInfo(desk.port.c_str(), desk.text("version", ICC_DEVICE_TEXT_CAPACITY), desk.text("date", 1),
                      desk.text("serial", 1));
}

} // namespace

const std::vector<Errand>& errands()
{
    static const std::vector<Errand> all = {
        {"debit", {{"IC_PowerOn", powerOn}, {"IC_SendAPDU", sendApdu}, {"IC_PowerOff", powerOff}}},
        {"debit", {{"IC_GetInfo", getInfo}}},
        {"debit", {{"IC_GetTranDeta", getTransactions}}},
        {"debit", {{"IC_GenARQC", beginSale}, {"IC_CtlScriptData", completeSale}}},
        {"memory",
         {{"IC_M1ActiveCard", activateMemoryCard, Call::Link::Opened},
          {"IC_M1CheckCardPin", checkKey, Call::Link::Opened},
          {"IC_M1ReadCard", readBlock, Call::Link::Opened},
          {"IC_M1WriteCard", writeBlock, Call::Link::Opened},
          {"IC_M1PowerOff", leaveMemoryCard}}},
        {"wallet", {{"IC_GetZzhHardWalletInfo", wallet}}},
        // Over USB its answer is never received.
        {"debit", {{"GetDevInfo", device, Call::Link::AtRest, false}}},
    };
    return all;
}

} // namespace vorn::bench
