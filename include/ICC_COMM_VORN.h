/* SPDX-License-Identifier: Apache-2.0 */
/*
 * ICC_COMM_VORN - one card reader and PIN pad on a serial tty or on USB: the card services of a counter terminal.
 *
 * Every call names the port again, opens the link, works, and closes the link before it returns. The calls that
 * leave the link open or the card powered say so. One call at a time in a process; nothing here is thread-safe.
 *
 * Arguments that all calls share
 *   nPortNo     "USB", or the name of a tty below /dev, for example "ttyS1" or "pts/3" (at most 116 characters)
 *   extendPort  written to the log, otherwise not used
 *   nBaudRate   written to the log, otherwise not used; the line runs at 9600 and 38400 baud
 *   nTimeout    seconds to wait for the user's card
 *   A NULL text is taken as an empty one. Outputs that are NULL are not written. A NULL pnIcType is card type 0.
 *
 * Results that all calls share (vorn/result.h): 0 success, -3 link not opened, -9 no card, -10 reader refused,
 * -11 no reply. After -3 the outputs are as they were, unless a call says that it empties them first.
 *
 * Hex text is upper case on output and either case on input, two characters a byte, no separators.
 *
 * Waiting for a card. IC_PowerOn waits nTimeout seconds. The other calls ask without a bound as long as the reader
 * reports no card; nTimeout of 0 or less gives -2 after one attempt, which may have powered the card (and so may an
 * nTimeout of 1, when a second ends just then).
 *
 * What a host must know about its terminal: two log files, one of them with card data in clear, are written to the
 * working directory (vorn/log.h).
 */
#ifndef ICC_COMM_VORN_H
#define ICC_COMM_VORN_H

#include "vorn/card.h"
#include "vorn/convert.h"
#include "vorn/export.h"
#include "vorn/link.h"
#include "vorn/log.h"
#include "vorn/result.h"

/* Capacities of the callers' output buffers, in bytes, NUL included: the worst case that a card or a reader can
 * bring about, which the library never exceeds. */
enum ICC_capacity {
    ICC_ATR_CAPACITY = VORN_PAYLOAD_TEXT_CAPACITY,      /* pszATR of IC_PowerOn, pszUID of IC_M1ActiveCard */
    ICC_RESPONSE_CAPACITY = VORN_PAYLOAD_TEXT_CAPACITY, /* pszResp of IC_SendAPDU */
    ICC_USER_INFO_CAPACITY = 12 * (4 + 510) + 1,        /* pszUsrInfo: twelve fields of a 255-byte value */
    ICC_TX_DETAIL_CAPACITY = 255 * (70 + 64) + 1,       /* pszTxDetail: 255 log records, 20 bytes as 60 of UTF-8 */
    ICC_CRYPTOGRAM_CAPACITY = 2 * 1100 + 1,             /* pszARQC, pszTC */
    ICC_STATE_CAPACITY = 2 * VORN_APPDATA_CAPACITY + 1, /* icc_tempappdata */
    ICC_SCRIPT_RESULT_CAPACITY = 17,                    /* pszScriptResult */
    ICC_M1_BLOCK_SIZE = 16,                             /* pData of IC_M1ReadCard and IC_M1WriteCard */
    ICC_M1_KEY_SIZE = 6,                                /* pKey */
    ICC_CONTEXT_ID_CAPACITY = 17,                       /* pszContextId */
    ICC_WALLET_TEXT_CAPACITY = 2 * 255 + 1,             /* pszTransModeInfo, pszAID */
    ICC_DEVICE_TEXT_CAPACITY = 300,                     /* version; date and serial need one byte */
    ICC_DEVICE_JSON_CAPACITY = 2048                     /* out of DEV_CommCall */
};

VORN_BEGIN_C

/* ------------------------------------------------------------------ raw card access */

/* Return 0 and do nothing: every other call opens and closes the link itself. */
VORN_API int IC_OpenPort(const char* nPortNo, const char* extendPort, int nBaudRate, int nTimeout);
VORN_API int IC_ClosePort(const char* nPortNo, const char* extendPort, int nBaudRate, int nTimeout);

/* Powers a card on and leaves it powered.
 * nCardType 1: the user's card, contact first, then contactless. 2: the PSAM in slot nPSAMCardNo, 1 to 4.
 * pszATR: the answer to reset as hex text (ISO/IEC 7816-3, 8), ICC_ATR_CAPACITY; emptied first.
 * Returns 0; -1 card type or slot; -2 no card within nTimeout seconds (a card that answered just then included);
 * -3; -11; -25 power-on refused; for a PSAM also -9. */
VORN_API int IC_PowerOn(const char* nPortNo, const char* extendPort, int nBaudRate, int nTimeout, int nCardType,
                        int nPSAMCardNo, char* pszATR);

/* Powers a card off; arguments as IC_PowerOn. Returns 0 whatever the reader answered; -1 card type or slot; -3. */
VORN_API int IC_PowerOff(const char* nPortNo, const char* extendPort, int nBaudRate, int nTimeout, int nCardType,
                         int nPSAMCardNo);

/* Sends one command APDU to a card that IC_PowerOn powered, following 61xx, 62xx and 6Cxx.
 * pszAPDU: hex text, an odd last character is dropped; at most 505 bytes.
 * pszResp: the response with its status word as hex text, ICC_RESPONSE_CAPACITY. For another status word than 9000
 * it is empty with the user's card, and holds the reply's first two bytes with a PSAM. Untouched when below 0.
 * Returns 0 for every status word; -1 card type, slot or command too long; -3; -9, -10, -11. */
VORN_API int IC_SendAPDU(const char* nPortNo, const char* extendPort, int nBaudRate, int nTimeout, int nCardType,
                         int nPSAMCardNo, const char* pszAPDU, char* pszResp);

/* ------------------------------------------------------------------ card data */

/* Reads the customer's data of a PBOC debit/credit card; powers the card off.
 * pnIcType: in 1 contact, 2 contactless, 3 contact first; out the one that answered, 1 or 2.
 * pszAIDlist: an application identifier or the beginning of one, hex text, 127 bytes at most; when it is empty or
 *   finds nothing the card's directory is used.
 * pszTaglist: letters A to L of the data wanted; reading the records ends when all are found.
 * pnUsrInfoLen: characters in pszUsrInfo, the NUL counted.
 * pszUsrInfo: ICC_USER_INFO_CAPACITY. Twelve fields A to L: letter, three decimal digits giving the characters that
 *   follow, those characters:
 *     A 5A PAN  B 57 track 2 ('=' for its first 'D')  C 9F79 electronic cash balance  D 9F77 its limit
 *     E 5F24 expiry  F 9F78 single transaction limit  G 5F34 PAN sequence number  H 9F36 ATC
 *     I 9F62 document type  J 9F61 document number  K 5F20 name  L 9F0B name extended
 *   An object that the card lacks gives 000. C, D, F and H are missing altogether when the card answered GET DATA
 *   with something else. A value is cut to 255 bytes.
 * Returns 0; -1 another card type; -2; -3; -11, -25 activation failed; -26 no application; -27 final SELECT
 * failed; -28 GET PROCESSING OPTIONS failed. pszUsrInfo is then empty and *pnUsrInfoLen as it was; the card is
 * powered off but after -2 and -3. */
VORN_API int IC_GetInfo(const char* nPortNo, const char* extendPort, int nBaudRate, int nTimeout, int* pnIcType,
                        const char* pszAIDlist, const char* pszTaglist, int* pnUsrInfoLen, char* pszUsrInfo);

/* Converts letters A to L into the tags of IC_GetInfo's list; other characters are skipped. E becomes 9F24 and only
 * its first byte counts, so the next letter writes over the second.
 * tags: 2 * count bytes. Returns the number of tag bytes. */
VORN_API int ConvertFlag(const char* letters, int count, unsigned char* tags);

/* Converts lettered text (letter, three decimal digits giving N, N hex characters) into items of letter, length
 * byte, value. An odd N is read behind a '0'; characters that the text lacks read as zero; a negative N as 0.
 * items: strlen(text) + 502 bytes. The length is not returned. */
VORN_API void convertFlagtoTLV(const char* text, unsigned char* items);

/* Reads the transaction log of a PBOC debit/credit card; powers the card off.
 * pnIcType, pszAIDlist: as IC_GetInfo. pnTxDetailLen: characters in pszTxDetail, the NUL not counted.
 * pszTxDetail: ICC_TX_DETAIL_CAPACITY. Nine fields a record: P012 with nothing behind it, Q012 other amount, R004
 *   currency, S006 date YYMMDD, T002 type, U006 time HHMMSS, V004 country, W with the count of the card's bytes from
 *   the name on up to the first zero (which may lie behind the name) and the name in UTF-8 (so W's count does not lead
 *   to X), X004 ATC.
 * Returns 0, also when a record could not be read and the text ends there; -1 another card type; -2; -3; -11, -25
 * activation failed (card not powered off); -26; -27; -32 no log entry (9F4D) of two bytes on the card, pszTxDetail
 * empty. On the other failures the outputs are as they were. */
VORN_API int IC_GetTranDeta(const char* nPortNo, const char* extendPort, int nBaudRate, int nTimeout, int* pnIcType,
                            const char* pszAIDlist, int* pnTxDetailLen, char* pszTxDetail);

/* ------------------------------------------------------------------ online transaction */

/* Begins an online transaction: selects, reads, and has the card make an ARQC (EMV Book 3, 10.8). Leaves the card powered for
 * IC_CtlScriptData; no other card call may come between.
 * pnIcType, pszAIDlist: as IC_GetInfo.
 * pszTxData: lettered text (see convertFlagtoTLV) with the transaction's data; widths in bytes and defaults:
 *     P 9F02 6 amount 0   Q 9F03 6 other amount 0   J 9F1A 2 country 0156   L 95 5 TVR 0000000800
 *     R 5F2A 2 currency 0156   T 9C 1 type 01   S 9A 3 date (YYMMDD or YYYYMMDD)   U 9F21 3 time
 *     K 9F37 4 unpredictable number (random)   M 9F66 4 TTQ F4000000   N 9F7A 1 EC indicator 01
 *     O 9F7B 6 EC limit 000001000000   V 9F4E 20 merchant name (a fixed bank name in an encoding of its own: give V)
 *   Values are right-aligned. Of a longer S the last three bytes count, of the other letters' the first bytes. Keep
 *   P, Q, J, L and R within their widths: longer ones are not cut but write over what stands before them in the data
 *   that the card is asked to sign. Without S or U there is no date or time.
 * pnARQCLen, pszARQC: characters, and the text for the issuer as hex of TLV items, ICC_CRYPTOGRAM_CAPACITY.
 * icc_tempappdata: the state for IC_CtlScriptData, ICC_STATE_CAPACITY.
 * Returns 0; -24 icc_tempappdata is NULL (link not touched); -3 link not opened, or tag 80 missing in the answer;
 * -2 no card in time (see above), no CDOL1 or CDOL2 on the card, or no ARQC given; -1 another card type, CDOL1 cannot
 * be built, or no memory for pszTxData (link not touched); -11, -25 activation failed; -26; -27; -28; -29 GENERATE AC
 * failed. Powered off on: activation failed, -26, -27, -28, -29. Both texts are emptied first and keep what was written
 * before a failure. */
VORN_API int IC_GenARQC(const char* nPortNo, const char* extendPort, int nBaudRate, int nTimeout, int* pnIcType,
                        const char* pszAIDlist, const char* pszTxData, int* pnARQCLen, char* pszARQC,
                        char* icc_tempappdata);

/* Completes an online transaction: EXTERNAL AUTHENTICATE, second GENERATE AC, issuer script (EMV Book 3, 10.9 to
 * 10.11), on the card as IC_GenARQC left it. The card is powered off only after a script; otherwise it stays powered.
 * pnIcType: out, the card type of the state. pszTxData: as given to IC_GenARQC (here every value is cut to its
 *   width; a given L is read as an empty 95, and what follows it may be lost to the card's list; a given N goes into a
 *   second 9F66, and 9F7A is sent as zero).
 * pszARPC: hex of TLV items: 91 (ARPC and two ARC characters), optionally a script 72 or 71 with 9F18.
 * pnTCLen, pszTC: characters, and the TC's text, ICC_CRYPTOGRAM_CAPACITY; the tags 9F02, 5F2A, 9F1A and 9F03 stand
 *   in it with their first byte only.
 * pszScriptResult: ICC_SCRIPT_RESULT_CAPACITY; empty without a script, else DF3105 and the result: first digit 2
 *   done, 1 failed at the command given by the second digit (15 and above F). With 9F18 the text ends after ten
 *   characters, the last two of them the identifier's fourth byte.
 * Returns 0 done - or declined: the issuer's ARC asked for an AAC, the card gave it or refused the command, and pszTC
 * is empty; -1 no CDOL2 in the state, CDOL2 cannot be built, or no memory for the texts (link not touched); -2 pszARPC
 * empty or of odd length, or the card gave no TC (the link stays open then, until the next call);
 * -3 link not opened, or tag 80 missing; -4 no 91 or less than 10 bytes of it; -30 TC refused or GENERATE AC
 * failed; -31 script failed. */
VORN_API int IC_CtlScriptData(const char* nPortNo, const char* extendPort, int nBaudRate, int nTimeout, int* pnIcType,
                              const char* pszTxData, const char* pszARPC, int* pnTCLen, char* pszTC,
                              char* pszScriptResult, const char* icc_tempappdata);

/* ------------------------------------------------------------------ contactless memory cards
 *
 * Order: IC_M1ActiveCard, IC_M1CheckCardPin, any number of reads and writes, IC_M1PowerOff. On success the first
 * four leave the link open; the next call releases it, IC_M1PowerOff closes it. A failure closes it.
 * Return 0; -1 a needed input is NULL; -3; -9, -10, -11.
 */

/* Activates the card in the field.
 * pFlag: set to 1. pszUID: the card's identification as hex text, ICC_ATR_CAPACITY. Untouched on failure. */
VORN_API int IC_M1ActiveCard(const char* nPortNo, const char* extendPort, int nBaudRate, int nTimeout,
                             unsigned char* pFlag, char* pszUID);

/* Authenticates a block (only the low byte of nBlockNo counts). pKeyMode: its first byte goes to the reader, which
 * knows which key it means. pKey: ICC_M1_KEY_SIZE raw bytes. */
VORN_API int IC_M1CheckCardPin(const char* nPortNo, const char* extendPort, int nBaudRate, int nTimeout, int nBlockNo,
                               const char* pKeyMode, const unsigned char* pKey);

/* Reads a block. pData: ICC_M1_BLOCK_SIZE raw bytes; what a reader sends beyond is dropped. */
VORN_API int IC_M1ReadCard(const char* nPortNo, const char* extendPort, int nBaudRate, int nTimeout, int nBlockNo,
                           unsigned char* pData);

/* Writes a block. pData: ICC_M1_BLOCK_SIZE raw bytes. */
VORN_API int IC_M1WriteCard(const char* nPortNo, const char* extendPort, int nBaudRate, int nTimeout, int nBlockNo,
                            const unsigned char* pData);

/* Switches the card off and closes the link. Returns 0 whatever the reader answered; -3. */
VORN_API int IC_M1PowerOff(const char* nPortNo, const char* extendPort, int nBaudRate, int nTimeout);

/* ------------------------------------------------------------------ hard wallet */

/* Reads a hard wallet's identification; powers the card off.
 * pszContextId: ICC_CONTEXT_ID_CAPACITY, 16 characters. pszTransModeInfo: the value of 5F58, pszAID: the
 *   application's name (84), ICC_WALLET_TEXT_CAPACITY each. All hex text.
 * Returns 0; -2; -3; -11, -25 activation failed (card not powered off): outputs as they were. -26 no wallet
 * application; -27 the information command failed; -32 84 or 5F58 missing or shorter than two bytes: outputs empty.
 */
VORN_API int IC_GetZzhHardWalletInfo(const char* nPortNo, const char* extendPort, int nBaudRate, int nTimeout,
                                     char* pszContextId, char* pszTransModeInfo, char* pszAID);

/* ------------------------------------------------------------------ the reader itself */

/* Asks the reader for its version at 9600 baud. port: as nPortNo. version: ICC_DEVICE_TEXT_CAPACITY. date and
 * serial become empty texts. Returns 0; -3; -11 no answer, over USB always. */
VORN_API int GetDevInfo(const char* port, char* version, char* date, char* serial);

/* Describes the reader in JSON. request: {"RequestPort": "3"} for the tty /dev/COM3; "0", a text that is no number, no
 * such text member, or no JSON at all: USB. reserved: not used. out: ICC_DEVICE_JSON_CAPACITY. *outLen: characters,
 * the NUL not counted.
 * The reply says "success" also when no reader answered: its "DeviceVersion" is empty then. Returns 0 always. */
VORN_API int DEV_CommCall(const char* request, void* reserved, char* out, int* outLen);

VORN_END_C

#endif
