/* SPDX-License-Identifier: Apache-2.0 */
/*
 * Conversions between raw bytes, hex text, the reader's 3x nibble text, BCD and the Chinese character sets.
 *
 * No function here checks the size of an output buffer: each comment gives the room that the caller provides.
 * Pointers must be valid unless a comment allows NULL. A count below zero is taken as zero.
 */
#ifndef VORN_CONVERT_H
#define VORN_CONVERT_H

#include "vorn/export.h"

VORN_BEGIN_C

/* Writes `count` bytes as upper-case hex text.
 * text: 2 * count + 1 characters. Returns the address of the terminating NUL, so that callers can append. */
VORN_API char* ConvAscii(const unsigned char* bytes, char* text, unsigned int count);

/* Reads hex text, either case, two characters a byte.
 * count: characters to take, not bytes; an odd count reads one character more (as a rule the NUL, a low nibble
 * of 0). bytes: (count + 1) / 2 bytes. Characters that are no hex digits are not refused: each gives its low four
 * bits, plus 9 above '9'; the first of a pair is masked to four bits, the second is added unmasked, so "1G" gives
 * 20. Returns count - the number of characters, not of bytes. */
VORN_API int AsciiToHex(const char* text, unsigned char* bytes, int count);

/* Reads NUL-terminated hex text. An odd length writes nothing and sets *count to 0; otherwise length / 2 bytes
 * and one NUL behind them are written and *count is the number of bytes. A character outside 0-9 and A-F counts
 * as its code less 57h, so a-f are read right and nothing is refused. text may be NULL (as an empty text).
 * bytes: length / 2 + 1 bytes. */
VORN_API void halftochar(const char* text, unsigned char* bytes, int* count);

/* Writes the low byte of `value` as two upper-case hex digits and a NUL. text: 3 characters. */
VORN_API void chartohalf(int value, char* text);

/* Writes each nibble v as the character 30h + v, high nibble first, without a NUL.
 * text: 2 * count characters. Returns 2 * count. */
VORN_API int convTo3x(const unsigned char* bytes, int count, unsigned char* text);

/* Reads 3x nibble text; only the low four bits of a character count.
 * count: characters, at most 512 (more is cut to 512); bytes: count / 2 bytes. Returns count / 2. */
VORN_API int _3xToHex(const unsigned char* text, unsigned char* bytes, int count);

/* Writes one byte as two 3x characters without a NUL. text: 2 characters. */
VORN_API void one2two_30(unsigned char* text, unsigned char byte);

/* Reads NUL-terminated 3x nibble text. An odd last character becomes a byte of its own, unshifted ("123" gives
 * 12 03). At most 4096 bytes are read. bytes: (length + 1) / 2 bytes. Returns the number of bytes; 0 for NULL. */
VORN_API int Vr_chartoarray(const char* text, unsigned char* bytes);

/* Packs digits two a byte, first digit in the high nibble, and stores one further byte 50h behind the last.
 * count: digits. With an odd count, leftPad non-zero puts a 0 nibble in front ((count + 1) / 2 bytes); leftPad 0
 * drops the last digit (count / 2 bytes). bytes: that number plus one. */
VORN_API void AscToBcd(unsigned char* bytes, const char* digits, int count, unsigned int leftPad);

/* Writes today's local date as YYMMDD in BCD (tag 9A, EMV Book 3, Annex A). date: 3 bytes. */
VORN_API void GetYYMMDD(unsigned char* date);

/* Packs digit text as a numeric value (EMV Book 3, 4.3, format n): right-aligned in `width` bytes, zeros in front,
 * cut on the left. A character that is no digit counts as 0. width: at most 512 (more is cut to 512).
 * bytes: width bytes. Returns width. */
VORN_API int bcdtocn(const char* digits, int length, int width, unsigned char* bytes);

/* Fills `count` bytes with random values, none of them 0. The generator is seeded with the clock's seconds on
 * every call, so two calls within one second give the same bytes: not for cryptography. Returns count. */
VORN_API int get_random(int count, unsigned char* bytes);

/* Number of significant bits of a magnitude whose most significant byte is the last; 0 for no or only zero bytes. */
VORN_API int RSA_GetBitLen(const unsigned char* magnitude, int length);

/* Convert `inputLength` bytes of text through iconv. The output is filled with zeros over its whole
 * `outputCapacity` first, so it ends with a NUL whenever it is not full. Return 0, or -1 when the code sets are
 * not known to the system, the input is invalid, or the output is too small (what was converted by then stays). */
VORN_API int Utf8ToGbk(const char* input, unsigned long inputLength, char* output, unsigned long outputCapacity);
VORN_API int GbkToUtf8(const char* input, unsigned long inputLength, char* output, unsigned long outputCapacity);
VORN_API int ucs2_utf8(const char* input, unsigned long inputLength, char* output, unsigned long outputCapacity);

VORN_END_C

#ifdef __cplusplus
/* The same conversion over text held as bytes, with nothing returned. A C++ symbol beside the C one. */
VORN_API void AsciiToHex(const unsigned char* text, unsigned char* bytes, int count);
#endif

#endif
