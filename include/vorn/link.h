/* SPDX-License-Identifier: Apache-2.0 */
/*
 * The link to the reader: a serial tty or USB, the reader's framed commands, its card slots, and the exchange of
 * APDUs with the cards in them.
 *
 * One link at a time, for one thread at a time: the state below is shared by all functions and has no locks.
 *
 * What the library gives back: closing a serial link restores the tty settings read when it was opened. A link
 * left open is released when the next one is opened; a tty that is opened again stays open meanwhile, and gets back the
 * settings that the first opening found. While a tty is open its hardware flow control is off.
 *
 * Signals of the host, with handlers and without SA_RESTART, interrupt nothing: calls are made again and pauses are
 * kept in full. A tty that takes no bytes any more is waited for one second. The link never becomes descriptor 0, 1 or
 * 2. What a tty has received is read ahead: do not read its descriptor with read(2).
 *
 * Over USB the functions write what happens to standard output, for the person who brings up a terminal.
 */
#ifndef VORN_LINK_H
#define VORN_LINK_H

#include "vorn/export.h"
#include "vorn/result.h"

enum vorn_link_value {
    VORN_USB_HANDLE = 168,        /* what OpenDev returns for an open USB link */
    VORN_BYTE_TIMEOUT = -1001,    /* comm_read_adata: no byte in time */
    VORN_READSTR_CAPACITY = 4096, /* room for _VRDK_Readstr; it stops there */
    VORN_ID2_CAPACITY = 65543     /* room for _VRDK_ID2_Readstr: 7 bytes, 65535 more, one more over USB */
};

/* Which interface the user's card was last powered through: the values of m_VrICType. */
enum vorn_card_interface {
    VORN_INTERFACE_NONE = 0, /* a PSAM was powered last */
    VORN_INTERFACE_CONTACT = 1,
    VORN_INTERFACE_CONTACTLESS = 2
};

/* How vr_openicc looks for the user's card. */
enum vorn_open_mode { VORN_OPEN_CONTACT = 1, VORN_OPEN_CONTACTLESS = 2, VORN_OPEN_EITHER = 3 };

/* The slot bytes of the reader's commands (PSAM slots 1 to 4 are 10h to 13h). */
enum vorn_slot { VORN_SLOT_CONTACT = 0x00, VORN_SLOT_PSAM1 = 0x10, VORN_SLOT_CONTACTLESS = 0xFF };

VORN_BEGIN_C

extern VORN_API int m_portmode;            /* 1 while a USB link is open, else 0 */
extern VORN_API int vr_comportmode;        /* what opdev opens: 0 a serial tty, 1 USB */
extern VORN_API char vr_comportparam[128]; /* and its parameter, as OpenDev takes it */
extern VORN_API int vrdk03com_handle;      /* the open link: a tty descriptor or VORN_USB_HANDLE; -1: none */
extern VORN_API unsigned char m_VrICType;  /* a vorn_card_interface; lives as long as the process */

/* ------------------------------------------------------------------ the link's bytes */

/* Opens a link. mode 0: serial, `param` "name:speed,anything" opens /dev/name at 1200, 2400, 4800, 9600, 19200,
 * 38400 or 115200 baud, always 8 data bits, no parity, one stop bit (what follows the comma is not read, but the
 * comma must be there). Any other mode: USB, `param` "VID_xxxx&PID_xxxx" in hex; the text is cut and mended in
 * place, so it must be writable.
 * Returns the tty's descriptor, VORN_USB_HANDLE, or -1: parameter not of that form, open or settings failed, speed
 * not in the list, no such USB device, its first two endpoints not one in and one out, interface not claimed. When the settings cannot be read or the speed is not
 * in the list, the descriptor stays open until the next opening. */
VORN_API int OpenDev(int mode, char* param);

/* Changes the tty's speed (bits per second, one of OpenDev's); what was received and not yet read is dropped. Returns 0, or -1: unknown speed (nothing changed),
 * or the settings were refused (the descriptor is closed then). */
VORN_API int Set_baud(int fd, int speed);

/* Closes the link; a tty gets its settings back first (if that fails, perror("ioctl:")). */
VORN_API void closeDev(int handle);

/* Writes n bytes: USB in one bulk transfer, a tty in pieces of 128, each whole even if the tty takes it in
 * parts. Errors are not reported. Returns n. */
VORN_API int WriteBytes(int handle, const void* buf, int n);

/* Reads one byte, asking every millisecond. Returns 0 to 255, or VORN_BYTE_TIMEOUT after timeoutMs. */
VORN_API int comm_read_adata(int fd, int timeoutMs);

/* Reads from the first `start` to the next `end` byte, both included; what comes before `start` is dropped.
 * buf: max + 1 bytes. timeoutS: seconds, per byte on a tty; over USB for the first packet (each further: 100 ms).
 * Returns the number of bytes. On a tty -1: time-out, or more than max bytes without `end`. Over USB -5: first
 * read failed, -2: a read failed before `start`, -4: a read failed after it, -3: more than max bytes. */
VORN_API int ReadBytes_Ex(int handle, unsigned char* buf, int max, unsigned char start, unsigned char end,
                          int timeoutS);

/* Reads until the line is silent for 50 ms, the first byte within timeoutS seconds.
 * buf: VORN_READSTR_CAPACITY bytes; reading ends when it is full. Returns the count, or -1: no byte came.
 * Over USB it returns -1 always (compatibility: "Text over USB is never received"). */
VORN_API int _VRDK_Readstr(int handle, unsigned char* buf, int timeoutS);

/* Reads one frame AA AA AA 96 69, a two-byte length (high byte first) and that many bytes (over USB one more; on a
 * tty a length of 0 takes one byte). A tty is waited for without an end once its first byte came within timeoutS
 * seconds, and 200 ms of silence in place of a length byte count as a byte 17h; over USB the first packet has
 * timeoutS seconds and each further one second. buf: VORN_ID2_CAPACITY bytes.
 * Returns the count, or -1: no first byte, or a USB read failed. */
VORN_API int _VRDK_ID2_Readstr(int handle, unsigned char* buf, int timeoutS);

/* ------------------------------------------------------------------ the reader */

/* Opens the link that vr_comportmode and vr_comportparam name; a serial reader is switched to 38400 baud.
 * Returns 0 or VORN_OPEN_FAILED. */
VORN_API int opdev(void);

/* Switches a serial reader back to 9600 baud and closes the link. Returns 0 always. */
VORN_API int cldev(void);

/* One reader command and its reply. cmd: n bytes, at most VORN_COMMAND_MAX. out: VORN_PAYLOAD_MAX bytes.
 * *outLen is set as soon as a reply came, also when its status is an error; out only on success.
 * Returns 0, VORN_READER_NO_CARD (status 02, 06), VORN_READER_REFUSED (any other status), VORN_NO_REPLY, or
 * VORN_BAD_ARGUMENT when n is negative or too large (nothing is sent).
 * The reply's check byte and its real length are not compared: an announced payload that did not come in full
 * reads as zero in the rest; an announced length below 2 is an empty payload.
 * A reply does not say which command it answers. What came before the command is dropped, and after a command without
 * a reply the next one goes out a second later, so that a reply that is late is dropped, too. After VORN_NO_REPLY a
 * host does best to power the card off and to begin anew. */
VORN_API int trans_icc_cmd(const unsigned char* cmd, int n, unsigned char* out, int* outLen);

/* Power on the card in a slot; activate a card in the contactless field. atr: VORN_PAYLOAD_MAX bytes, the answer
 * to reset (ISO/IEC 7816-3, 8) or what the contactless card answered. Return as trans_icc_cmd, but
 * VORN_POWER_ON_REFUSED in place of VORN_READER_REFUSED. */
VORN_API int icc_poweron(int slot, unsigned char* atr, int* atrLen);
VORN_API int picc_Active(unsigned char* atr, int* atrLen);

/* Power off the card in a slot; deactivate the contactless card. Return as trans_icc_cmd. */
VORN_API int icc_poweroff(unsigned char slot);
VORN_API int picc_Deactive(void);

/* Pass one APDU to the user's card (contact when m_VrICType is 1, else contactless) or to a PSAM slot (10h to
 * 13h). n: at most VORN_COMMAND_MAX - 3. resp: VORN_PAYLOAD_MAX bytes, the response with its status word.
 * Return as trans_icc_cmd; the status word is not looked at. */
VORN_API int icc_sendcommand(const unsigned char* apdu, int n, unsigned char* resp, int* respLen);
VORN_API int samicc_sendcommand(int slot, const unsigned char* apdu, int n, unsigned char* resp, int* respLen);

/* Power on the user's card: mode is a vorn_open_mode. Sets m_VrICType to 1 or 2 in modes 1 and 2 before it tries;
 * in mode 3 to 1 when the contact card answers, to 2 when the slot is empty (-9) and the field is tried, else not.
 * Returns as icc_poweron and picc_Active; VORN_BAD_ARGUMENT for another mode. */
VORN_API int vr_openicc(int mode, unsigned char* atr, int* atrLen);

/* Power off the user's card: contact when m_VrICType is 1, else contactless. Returns as icc_poweroff. */
VORN_API int vr_closeicc(void);

/* ------------------------------------------------------------------ APDU exchange */

/* Sends one APDU and follows the status word (ISO/IEC 7816-4, 5.3.4): 61xx and 62xx with GET RESPONSE, 6Cxx with
 * the same command and the Le that the card named, as long as the card asks for it.
 * apdu: room for max(len, 5) bytes; it is overwritten by the follow-up. resp: VORN_PAYLOAD_MAX bytes.
 * Returns 0 when the last reply ended with 9000: *respLen counts it with its status word. (A status word 0000, which
 * cards do not give, is 0 too, with *respLen as for another status word.) Above 0: another status
 * word SW1 * 256 + SW2; the reply is in resp, *respLen untouched (SamIcc_EXApdu sets it to 2). Below 0: as
 * icc_sendcommand, and VORN_READER_REFUSED for a reply without a status word. */
VORN_API int Icc_EXApdu(unsigned char* apdu, int len, unsigned char* resp, int* respLen);
VORN_API int SamIcc_EXApdu(int slot, unsigned char* apdu, int len, unsigned char* resp, int* respLen);

VORN_END_C

#endif
