/* A log of text lines, kept in a record store, with an echo on the console.
 *
 * Each line becomes two records under the key of its level, "w" for level 2, "e" for level 3, "l"
 * for any other: first the time stamp, then the text, of whose length the low 16 bits count (see
 * DTInfo_Write). A text that can never be stored leaves its stamp alone. A null logger is answered
 * with -1, or with nothing.
 */
#ifndef DT_RECORDS_DTLOGGER_H
#define DT_RECORDS_DTLOGGER_H

#include "../containers/DTBuf.h"
#include "DTInfo.h"

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Option bits of a logger. 255, everything, accepts and stores all levels and echoes 0 and 3. */
#define DTLOGGER_LEVEL0 0x01u /* DTLogger_Write accepts level 0 */
#define DTLOGGER_LEVEL1 0x02u
#define DTLOGGER_LEVEL2 0x04u
#define DTLOGGER_LEVEL3 0x08u
#define DTLOGGER_ECHO_ENDS 0x10u /* of the echo only levels 0 and 3, and these even when empty */
#define DTLOGGER_STORE 0x40u     /* lines are stored */
#define DTLOGGER_ECHO 0x80u      /* lines are echoed on the console */

#define DTLOGGER_HEADERS 100 /* texts that the header stack holds */

/* The logger. The library keeps address, port, file name and headers for its user alone. */
typedef struct DTLogger {
    char file_name[500]; /* DTLogger_SetFileName */
    DTInfo *info;        /* null until the first line is stored */
    int32_t fd;          /* closed with the logger unless 0; the library opens none */
    char udp_addr[20];   /* DTLogger_SetUDP */
    uint32_t udp_port;   /* DTLogger_SetUDP */
    uint32_t flags;      /* option bits */
    uint32_t ignore;     /* not 0: lines are dropped */
    uint32_t info_size;  /* maximum of the store when it is made */
    char headers[DTLOGGER_HEADERS][50]; /* DTLogger_Header */
    int32_t header_top;                 /* -1: no header */
} DTLogger;

/* Returns a logger with these option bits, without a store and with a store maximum of 1 MiB, or
 * null without memory. Charged to owner id 0.
 */
DTLogger *DTLogger_New(uint32_t flags);

/* Frees the logger and its store and closes its descriptor; null is ignored. */
void DTLogger_Release(DTLogger *logger);

/* Echoes and stores a line, as the option bits say; ignored lines are dropped before anything else.
 * Level 3 is echoed with a line break, level 0 without one; without DTLOGGER_ECHO_ENDS every level
 * but 0 is echoed with a line break, and empty texts are not. Levels above 3 pass whatever the bits
 * say. The stamp is "YYYY/MM/DD HH:MI:SS".
 *
 * Returns the sum of what DTInfo_Write returned for stamp and text: the bytes stored, -2 when the
 * store cannot be made (the next line tries again). 0 when lines are ignored. -1 for null, a level
 * that is not accepted, and when lines are not stored.
 */
int32_t DTLogger_Write(DTLogger *logger, uint32_t level, const char *text);

/* Stores a line whatever the option bits say; level 0 is echoed with a line break unless empty. The
 * stamp is "MM/DD HH:MI:SS ". The third argument is not used.
 */
void DTLogger_Append(DTLogger *logger, uint32_t level, uint32_t unused, const char *text);

/* Shows every stored record on a line of its own, stamp and text alike, oldest first: appended to
 * the byte buffer target (elements of one byte, otherwise nothing is shown; what it cannot grow for
 * is left out), or, when that is an address of 100 or less (null), on the console. Pauses with
 * VRK_Delay(1000) after the first record and every hundredth behind it.
 */
void DTLogger_ShowToBuf(DTLogger *logger, DTBuf *target);

/* DTLogger_ShowToBuf on the console; the second argument is not used. */
void DTLogger_ShowInfo(DTLogger *logger, uint32_t unused);

/* A stack of 100 texts of up to 49 characters for the logger's user, cut when longer; a full stack
 * replaces its top, and null is an empty text. DTLogger_Tail drops the top. The library reads none.
 */
void DTLogger_Header(DTLogger *logger, const char *text);
void DTLogger_Tail(DTLogger *logger);

/* Replaces the option bits. */
void DTLogger_SetFlag(DTLogger *logger, uint32_t flags);

/* With a value other than 0 lines are dropped from now on; showing goes on. */
void DTLogger_Ignore(DTLogger *logger, uint32_t value);

/* Sets the maximum size of the store in bytes; nothing once there is a store. */
void DTLogger_SetInfoSize(DTLogger *logger, uint32_t size);

/* Drops all lines. */
void DTLogger_ClearInfo(DTLogger *logger);

/* An address (up to 19 characters) and port, and a file name (up to 499), kept for the logger's
 * user; longer texts are cut, a null address clears the field, a null name changes nothing.
 */
void DTLogger_SetUDP(DTLogger *logger, const char *addr, uint32_t port);
void DTLogger_SetFileName(DTLogger *logger, const char *name);

#ifdef __cplusplus
}
#endif

#endif
