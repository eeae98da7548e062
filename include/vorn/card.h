/* SPDX-License-Identifier: Apache-2.0 */
/*
 * PBOC/EMV card functions on raw bytes: commands, TLV search, data object lists, application selection,
 * processing options and records, issuer scripts. They talk to the user's card that vr_openicc powered.
 */
#ifndef VORN_CARD_H
#define VORN_CARD_H

#include "vorn/export.h"
#include "vorn/result.h"

VORN_BEGIN_C

/* ------------------------------------------------------------------ commands
 *
 * Each returns 0 when the card answered 9000, the card's status word, or a negative code of the reader; then
 * nothing is written. Response data come without the status word. An output whose length is an unsigned char
 * needs VORN_RESPONSE_MAX bytes, one whose length is an int VORN_PAYLOAD_MAX bytes.
 */

/* GET CHALLENGE (ISO/IEC 7816-4, 7.5.3). random: count bytes, at most 512; always count bytes are written, zeros
 * where the card sent fewer. */
VORN_API unsigned int vrdk_getrandom(int count, unsigned char* random);

/* READ BINARY (7.2.3) by short file identifier. Le goes out as 00, so the card's 6Cxx names the length; `length`
 * itself is not sent. */
VORN_API unsigned int VR_read_binary(int shortFileId, int offset, int length, unsigned char* data, int* dataLength);

/* SELECT (7.1.1). p1 04, p2 00 or 02: by name, first or next occurrence. fci: the file control information. */
VORN_API unsigned int vrdk_SelectFile(unsigned char p1, unsigned char p2, const unsigned char* data, unsigned char lc,
                                      unsigned char* fci, unsigned char* fciLength);

/* EXTERNAL AUTHENTICATE, INTERNAL AUTHENTICATE (EMV Book 3, 6.5.4 and 6.5.9). */
VORN_API unsigned int vrdk_ExternalAuth(const unsigned char* data, unsigned char lc);
VORN_API unsigned int vrdk_InternalAuth(const unsigned char* data, unsigned char lc, unsigned char* response,
                                        unsigned char* responseLength);

/* VERIFY (6.5.12). data: length bytes. Of the command 00 20 00 p2 length data only the first `length` bytes go to the
 * card, not 5 + length. */
VORN_API unsigned int vrdk_VerifyPin(unsigned char p2, const unsigned char* data, unsigned char length);

/* GET PROCESSING OPTIONS (6.5.8). data: tag 83 and the PDOL's values. */
VORN_API unsigned int vrdk_GetProcessOptions(const unsigned char* data, unsigned char lc, unsigned char* response,
                                             unsigned char* responseLength);

/* GET DATA (6.5.7). index: 0 9F36, 1 9F13, 2 9F17, 3 9F4F, 4 9F79, 5 9F77, 6 9F78, any other 9F36. */
VORN_API unsigned int vrdk_GetData(unsigned char index, unsigned char* object, unsigned char* objectLength);

/* GENERATE AC (6.5.5). referenceControl: 00 AAC, 40 TC, 80 ARQC. */
VORN_API unsigned int vrdk_GenerateAC(unsigned char referenceControl, const unsigned char* data, unsigned char lc,
                                      unsigned char* response, unsigned char* responseLength);

/* READ RECORD (6.5.11). shortFileId: 1 to 30. record: the record template 70. */
VORN_API unsigned int vrdk_ReadRecord(unsigned char recordNumber, unsigned char shortFileId, unsigned char* record,
                                      unsigned char* recordLength);

/* The hard wallet's information command 80 22 00 03. response: VORN_PAYLOAD_MAX bytes; it and *responseLength
 * include the status word. *responseLength is 0 on failure. */
VORN_API int vrdk_getwalletinfo(unsigned char* response, int* responseLength);

/* ------------------------------------------------------------------ TLV (EMV Book 3, Annex B)
 *
 * A buffer is flat; a search walks it from the start, enters every constructed object (bit 20h of the first tag
 * byte) and takes the first match. A first byte FF, or an FF inside a tag, ends the walk. Lengths: one byte, 81 and
 * one, 82 and two; 80 and 83 to FF stand for themselves.
 * bufferLength 0: no bound; the buffer ends where a byte 00 stands in place of a tag, and tags have at most two
 * bytes. The caller answers for that byte being there. With a bound, nothing outside it is read.
 */

/* The object's first tag byte, or NULL. */
VORN_API unsigned char* vrdk_findtag(const unsigned char* tag, int tagLength, const unsigned char* buffer,
                                     int bufferLength);

/* Copies the value of the object found. Returns 0, or -1 when the tag is absent (nothing written).
 * A length in the 81 form is not the object's own: it is the buffer's second byte (hosts know the 129 bytes that
 * follow in a record 70 81 ..). value: max(255, bufferLength) bytes; 65535 without a bound. A
 * value that runs past the buffer is cut; one of the 81 form is filled up with zeros. */
VORN_API int vrdk_gettagvalue(const unsigned char* tag, int tagLength, const unsigned char* buffer, int bufferLength,
                              unsigned char* value, int* valueLength);

/* Copies the value of an object that was found before. The length is one byte: of an 82 form only its low byte.
 * The object must be whole. value: 255 bytes. Returns 0. */
VORN_API int vrdk_GetTagData(int tagLength, const unsigned char* object, unsigned char* value,
                             unsigned char* valueLength);

/* Removes from a list of one- and two-byte tags, in place, those that the data hold. Returns the list's new
 * length. */
VORN_API int vrdk_findapptag(const unsigned char* data, int dataLength, unsigned char* tagList, int tagListLength);

/* The known tags, each followed by its format letter: b n a c v g t. Ends with 00; its length is strlen. The first
 * entry of a tag counts (9F53 has two). */
extern VORN_API const unsigned char gcTagName[432];

/* The tag's format letter in such a dictionary, or 0. */
VORN_API unsigned char vrdk_GetTagType(const unsigned char* tag, int tagLength, const unsigned char* dictionary,
                                       int dictionaryLength);

/* ------------------------------------------------------------------ data object lists (EMV Book 3, 5.4) */

/* Reads the entry at `dol`. tag: 257 bytes, with a NUL behind the tag. length: what the list asks for.
 * Returns the bytes that the entry took; 0: first byte FF, unfinished tag, or an 82 length that is not all there;
 * -1: a shorter length field that is not there. */
VORN_API int vrdk_GetTaginDOL(const unsigned char* dol, int remaining, unsigned char* tag, int* length);

/* 0 when the list asks for the tag, else 1. */
VORN_API int vrdk_findtaginDOL(const unsigned char* tag, int tagLength, const unsigned char* dol, int dolLength);

/* Builds the list's values from a TLV buffer (bounds as above), each padded or cut by its tag's format letter; a
 * tag that is absent, or not in the dictionary, gives zeros. output: VORN_DOL_DATA_CAPACITY bytes.
 * Returns 0, or -1: the list is NULL, empty, not readable to its end, or asks for more than the output holds; the
 * values before that place are written then. */
VORN_API int vrdk_BuildDOL(const unsigned char* source, int sourceLength, const unsigned char* dol, int dolLength,
                           unsigned char* output, int* outputLength);

/* ------------------------------------------------------------------ application selection (EMV Book 1, 12) */

/* A candidate from the directory. The first record is the caller's; further ones are heap blocks (free()), the
 * caller's to release. The last one is the one being filled and may be empty. An AID of more than 16 bytes is cut. */
typedef struct alist {
    unsigned char aid[16];
    unsigned char aidLength;
    unsigned char priority; /* tag 87, 0 when absent */
    struct alist* next;
} alist;

/* A candidate found by its AID. The first record is the caller's; its fci and every further record with its fci
 * are heap blocks (free()), the caller's to release. */
typedef struct flist {
    unsigned char* fci;
    unsigned char fciLength;
    struct flist* next;
} flist;

enum vorn_selection_limit {
    VORN_AID_CANDIDATES_MAX = 255, /* a card that finds a next occurrence for ever is left at this count */
    /* Directories nested deeper are ignored; */
    VORN_DIRECTORY_DEPTH_MAX = 8,
    /* so are, in one selection, further ones that name themselves or one that they are named by, */
    VORN_DIRECTORY_REPEATS_MAX = 64,
    /* and further ones of whatever name: a single directory has no room for so many. */
    VORN_DIRECTORIES_MAX = 16384
};

/* Selects a directory (as a rule "1PAY.SYS.DDF01") and reads its entries, nested directories included. head->next is
 * set anew, what hung on it is not released.
 * Returns the number of entries; 0 when the directory cannot be used. An entry without a priority (87) is counted
 * but overwritten by the next one, so the list holds fewer records than the count then. */
VORN_API int vrdk_PseAppSelect(const unsigned char* name, int nameLength, alist* head);

/* The same from the directory's FCI that the caller has; a length of 0 is an empty one. */
VORN_API int vrdk_checkADF(const unsigned char* fci, int fciLength, alist* head);

/* Selects by AID, whole or (prefixAllowed 1) as the beginning of the card's application names. *head is set anew, what
 * hung on it is not released. Returns the number of records filled, 0 for none; the first one's application is selected. With a partial name the list ends with
 * one extra, empty record. */
VORN_API int vrdk_AidAppSelect(int prefixAllowed, const unsigned char* aid, int aidLength, flist* head);

/* Selects an application. Returns 0 or SELECT's failure. fci: VORN_RESPONSE_MAX bytes. */
VORN_API int vrdk_FinalAppSelect(const unsigned char* aid, int aidLength, unsigned char* fci, unsigned char* fciLength);

/* Reads the identifier of the electronic deposit/purse application. text: 20 characters, 19 hex digits and a NUL
 * (the last digit of the ten bytes is dropped). Returns 0, or 15 on any failure. */
VORN_API int VR_selectapp(char* text);

/* ------------------------------------------------------------------ transaction (EMV Book 3, 10.1 and 10.2) */

/* GET PROCESSING OPTIONS with the PDOL (9F38) of the FCI filled from the terminal data. An FCI of length 0 is
 * an empty one.
 * aip: 2 bytes; afl: VORN_RESPONSE_MAX bytes. Returns 0; -1: PDOL cannot be built, or the response is of neither
 * format; otherwise the command's failure. */
VORN_API int vrdk_GetProcOptions(const unsigned char* fci, unsigned char fciLength, const unsigned char* terminalData,
                                 int terminalDataLength, unsigned char* aip, unsigned char* aipLength,
                                 unsigned char* afl, unsigned char* aflLength);

/* Reads the records that the AFL names until the wanted tags (one or two bytes each) are all there; records that
 * cannot be read are passed over. records, authData: VORN_APPDATA_CAPACITY bytes each. authData: what the AFL
 * marks for offline data authentication. Returns 0 always. */
VORN_API int vrdk_GetAppData(const unsigned char* afl, unsigned char aflLength, const unsigned char* wantedTags,
                             unsigned char wantedTagsLength, unsigned char* records, int* recordsLength,
                             unsigned char* authData, int* authDataLength);

/* Sends the commands (tag 86) of an issuer script (EMV Book 3, 10.10) in order. Returns 0, or the failure of the
 * first one that did not end with 9000. *count: the commands taken up, that one included. A length of 0 is an empty
 * script. */
VORN_API int vrdk_exeicscript(const unsigned char* script, int scriptLength, int* count);

VORN_END_C

#endif
