/* SPDX-License-Identifier: Apache-2.0 */
/*
 * Result codes and limits shared by all headers of the library.
 *
 * 0 is success. Negative values are raised by the library or by the reader.
 * A positive value is the status word of a card command that did not end with
 * 9000, as SW1 * 256 + SW2 (ISO/IEC 7816-4, 5.6); for example 0x6A82.
 */
#ifndef VORN_RESULT_H
#define VORN_RESULT_H

enum vorn_result {
    VORN_OK = 0,
    VORN_BAD_ARGUMENT = -1,      /* bad argument, card type, slot or mode; a list or object that cannot be used */
    VORN_NO_CARD_IN_TIME = -2,   /* no card within the wait; in the transaction calls also some card data faults */
    VORN_OPEN_FAILED = -3,       /* the link could not be opened; in the transaction calls also: tag 80 missing */
    VORN_NO_ISSUER_AUTH = -4,    /* issuer authentication data (91) missing or shorter than 10 bytes */
    VORN_READER_NO_CARD = -9,    /* the reader answered with status 02 or 06 */
    VORN_READER_REFUSED = -10,   /* the reader answered with another status that is not 00 */
    VORN_NO_REPLY = -11,         /* no complete reply frame came from the reader */
    VORN_STATE_MISSING = -24,    /* the buffer for the transaction's state text is missing */
    VORN_POWER_ON_REFUSED = -25, /* the reader refused to power or activate the card */
    VORN_NO_APPLICATION = -26,   /* no application could be found on the card */
    VORN_SELECT_FAILED = -27,    /* the final SELECT failed; for the wallet: its information command failed */
    VORN_GPO_FAILED = -28,       /* GET PROCESSING OPTIONS failed */
    VORN_FIRST_AC_FAILED = -29,  /* the first GENERATE AC failed */
    VORN_SECOND_AC_FAILED = -30, /* the second GENERATE AC failed, or a TC was asked for and refused */
    VORN_SCRIPT_FAILED = -31,    /* a command of the issuer script failed */
    VORN_OBJECT_MISSING = -32    /* a data object that the call needs is missing or too short */
};

enum vorn_limit {
    /* Longest command, in bytes, that fits one reader frame (2 * 508 + 8 = 1024 characters). */
    VORN_COMMAND_MAX = 508,
    /* Longest payload, in bytes, that one reply frame can carry (1000 characters: 496 reply bytes). A larger
     * length announced by a reader is cut to this; announced bytes that did not come read as zero. */
    VORN_PAYLOAD_MAX = 494,
    /* Room for a payload as hex text with its NUL. */
    VORN_PAYLOAD_TEXT_CAPACITY = 2 * VORN_PAYLOAD_MAX + 1,
    /* Longest response data, in bytes, of a card function whose length is one byte; more is cut off. */
    VORN_RESPONSE_MAX = 255,
    /* Room for the concatenated records of an application, in bytes. A record that does not fit any more is
     * passed over like one that cannot be read. */
    VORN_APPDATA_CAPACITY = 4096,
    /* Most bytes that vrdk_BuildDOL writes; a list that asks for more cannot be built. */
    VORN_DOL_DATA_CAPACITY = 4096
};

#endif
