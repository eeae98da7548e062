// SPDX-License-Identifier: Apache-2.0
#include "vorn/about.h"

#include "vorn/result.h"

#include <cstring>

#ifndef VORN_VERSION
#define VORN_VERSION "unknown" // sources built without their project
#endif

namespace {

struct Meaning {
    int result;
    const char* text;
};

// What a code means where no call says otherwise.
constexpr Meaning kGeneral[] = {
    {VORN_OK, "success"},
    {VORN_BAD_ARGUMENT, "an argument, card type, slot or mode that cannot be used, or no memory"},
    {VORN_NO_CARD_IN_TIME, "no card within the time to wait"},
    {VORN_OPEN_FAILED, "the link to the reader could not be opened"},
    {VORN_NO_ISSUER_AUTH, "issuer authentication data (91) missing or shorter than 10 bytes"},
    {VORN_READER_NO_CARD, "the reader reports no card"},
    {VORN_READER_REFUSED, "the reader refused the command"},
    {VORN_NO_REPLY, "no complete reply came from the reader"},
    {VORN_STATE_MISSING, "the buffer for the transaction's state is missing"},
    {VORN_POWER_ON_REFUSED, "the reader refused to power or activate the card"},
    {VORN_NO_APPLICATION, "no application was found on the card"},
    {VORN_SELECT_FAILED, "the card refused the final SELECT"},
    {VORN_GPO_FAILED, "GET PROCESSING OPTIONS failed"},
    {VORN_FIRST_AC_FAILED, "the first GENERATE AC failed"},
    {VORN_SECOND_AC_FAILED, "the second GENERATE AC failed or the card refused the TC"},
    {VORN_SCRIPT_FAILED, "a command of the issuer script failed"},
    {VORN_OBJECT_MISSING, "a data object that the call needs is missing or too short"},
};

struct CallMeaning {
    const char* call;
    Meaning meaning;
};

constexpr CallMeaning kByCall[] = {
    {"IC_PowerOn", {VORN_BAD_ARGUMENT, "unknown card type, or no such PSAM slot"}},
    {"IC_PowerOn", {VORN_READER_NO_CARD, "no card in the PSAM slot"}},
    {"IC_PowerOff", {VORN_BAD_ARGUMENT, "unknown card type, or no such PSAM slot"}},
    {"IC_SendAPDU", {VORN_BAD_ARGUMENT, "unknown card type, no such PSAM slot, or a command that is too long"}},
    {"IC_GetInfo", {VORN_BAD_ARGUMENT, "unknown card type, or no memory for the card's records"}},
    {"IC_GetTranDeta", {VORN_BAD_ARGUMENT, "unknown card type"}},
    {"IC_GetTranDeta", {VORN_OBJECT_MISSING, "the card names no transaction log (9F4D)"}},
    {"IC_GenARQC",
     {VORN_BAD_ARGUMENT, "unknown card type, CDOL1 that cannot be built, or no memory for the texts or records"}},
    {"IC_GenARQC",
     {VORN_NO_CARD_IN_TIME, "no card within the time to wait, no CDOL1 or CDOL2 on the card, or no ARQC given"}},
    {"IC_GenARQC", {VORN_OPEN_FAILED, "the link could not be opened, or the card's answer is not of format 1"}},
    {"IC_CtlScriptData",
     {VORN_OK, "done, or declined: without a TC the card's decision may be unknown when the reader was lost"}},
    {"IC_CtlScriptData", {VORN_BAD_ARGUMENT, "no CDOL2 in the state, CDOL2 that cannot be built, or no memory"}},
    {"IC_CtlScriptData", {VORN_NO_CARD_IN_TIME, "no issuer's answer, or the card gave no TC"}},
    {"IC_CtlScriptData", {VORN_OPEN_FAILED, "the link could not be opened, or the card's answer is not of format 1"}},
    {"IC_CtlScriptData",
     {VORN_SECOND_AC_FAILED, "the card refused the TC, or its answer was lost: take it as unknown"}},
    {"IC_M1CheckCardPin", {VORN_BAD_ARGUMENT, "key or key mode missing"}},
    {"IC_M1WriteCard", {VORN_BAD_ARGUMENT, "data missing"}},
    {"IC_GetZzhHardWalletInfo", {VORN_NO_APPLICATION, "no wallet application on the card"}},
    {"IC_GetZzhHardWalletInfo", {VORN_SELECT_FAILED, "the wallet's information command failed"}},
    {"IC_GetZzhHardWalletInfo", {VORN_OBJECT_MISSING, "name (84) or mode information (5F58) missing or too short"}},
    {"VR_selectapp", {VORN_PURSE_FAILED, "the purse's identifier could not be read"}},
};

} // namespace

extern "C" {

const char* vorn_version() { return VORN_VERSION; }

const char* vorn_result_text(const char* call, int result)
{
    for (const CallMeaning& row : kByCall) {
        if (call != nullptr && row.meaning.result == result && std::strcmp(row.call, call) == 0) {
            return row.meaning.text;
        }
    }
    for (const Meaning& row : kGeneral) {
        if (row.result == result) {
            return row.text;
        }
    }
    return result > 0 ? "the card's status word, SW1 * 256 + SW2" : "unknown result";
}

} // extern "C"
