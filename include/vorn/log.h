/* SPDX-License-Identifier: Apache-2.0 */
/*
 * The library's two log files and the bridge to the host platform's log library.
 *
 * Both files lie in the process's working directory and are opened, appended to and closed again for every entry.
 * An entry whose file cannot be opened is dropped: logging never makes a call fail.
 *
 *   vr_log.txt           trace of the card data and transaction calls: name, port arguments
 *   ICC_COMM_VORN.log    arguments and results of the exported calls, hex dumps of the reader's slot commands
 *
 * The second holds account numbers, track 2 data and names in clear: keep the working directory private (mode 0700).
 * A file that is not there is created for its user alone (mode 0600) whatever the umask; one that is there keeps its
 * mode, and a link is followed. The files are not inherited by the host's children. Texts hold whatever bytes a host or
 * a card sent: what reads the files must not trust them.
 *
 * What the library writes and prints raises no SIGPIPE and no SIGXFSZ in the host.
 *
 * Hex dump: "%02X " a byte, a line feed after every 16th byte and one at the end; a dump of more than 16 bytes
 * also begins with a line feed.
 */
#ifndef VORN_LOG_H
#define VORN_LOG_H

#include "vorn/export.h"

#define VORN_TRACE_FILE       "vr_log.txt"
#define VORN_SERVICE_FILE     "ICC_COMM_VORN.log"
#define VORN_HOST_LOG_LIBRARY "/home/zlb/applications/KTP/Localconfig/so/libzlblog.so"

VORN_BEGIN_C

/* The line that the card services format before they trace it; of no use between calls. */
extern VORN_API char DbgString[512];

/* To vr_log.txt: the text (NULL as an empty text) and "\r\n"; a number without a line end; a hex dump. */
VORN_API void log_write(const char* text);
VORN_API void log_num(int n);
VORN_API void log_write_bcd(const unsigned char* data, int n);

/* To ICC_COMM_VORN.log: a hex dump of n bytes. */
VORN_API void messLog_write_bcd(const unsigned char* data, int n);

/* Loads VORN_HOST_LOG_LIBRARY and looks up its LogInfo, LogWarn and LogError. Called again it looks them up again; the
 * library stays loaded in between and counts once.
 * Returns 1 when all three are there.
 * Returns 0 and prints "error open so" when the library cannot be loaded, or "error open so 1" when a function is
 * missing (the library stays loaded then, but none of its functions is called). */
VORN_API int log_init(void);

/* Unloads the host's log library, if log_init loaded it. */
VORN_API void log_close(void);

/* Hands five arguments on to the host's log library: level 1 to LogInfo, 2 to LogWarn, 3 to LogError, with
 * (a1, a2, a3, a4, a6). Any other level, or a library that is not loaded whole: nothing is called. Returns 0
 * always. */
VORN_API int messLog(void* a1, void* a2, void* a3, int a4, int level, void* a6);

VORN_END_C

#ifdef __cplusplus
/* To ICC_COMM_VORN.log: the text exactly as given (NULL as an empty text). A C++ symbol beside the C one. */
VORN_API void messLog(char* text);
#endif

#endif
