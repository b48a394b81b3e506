/* Time-stamped records about the functions of an application, and their display.
 *
 * A table of the application's names each function, the pack format of what is recorded for it (see
 * DTBuffer.h), a number and a describing text. The application appends the records itself, to the
 * log's store: the key is one byte, the function's index in the table, so that records of 256
 * functions can be told apart; the value is packed by "T", the time stamp, and the function's
 * format. This module reads and shows them.
 */
#ifndef DT_RECORDS_DTFUNCLOG_H
#define DT_RECORDS_DTFUNCLOG_H

#include "DTInfo.h"

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#define DTFUNCLOG_ANY (-1)                /* as an index: records of all functions */
#define DTFUNCLOG_NO_FUNCTION 0xFFFFFFFFu /* the id of a record that has no key */

/* One function. A null text counts as empty, and a null name is never found. */
typedef struct DTFunc {
    const char *name; /* what the records are shown and selected by */
    const char *fmt;  /* what is recorded, without the time stamp; up to 97 characters are shown */
    int32_t cnt;      /* the application's number, shown in the table's list */
    const char *detail; /* shown right after the name */
} DTFunc;

/* The log of a table's functions. */
typedef struct DTFuncLog {
    const DTFunc *funcs; /* the caller's, not copied */
    int32_t func_count;  /* entries at funcs */
    DTInfo *info;        /* the records, the log's own */
    uint32_t ignore;     /* for the code that appends records; not read here */
} DTFuncLog;

/* Returns a log over func_count entries at funcs, which must outlive it, with a store of at most
 * max_size bytes (see DTInfo_New), or null without memory. func_count is kept as it is given; of a
 * null table nothing is listed or shown, and its records can be read. Charged to owner id 0.
 */
DTFuncLog *DTFuncLog_New(const DTFunc *funcs, int32_t func_count, uint32_t max_size);

/* Frees the log and its store; null is ignored. */
void DTFuncLog_Release(DTFuncLog *log);

/* Sets the log's ignore field, which those who append records look at. */
void DTFuncLog_Ignore(DTFuncLog *log, uint32_t value);

/* Reads the next record, oldest first, as DTInfo_Get does.
 *
 * index  a function's index; below 0 (DTFUNCLOG_ANY): records of any key. Nothing is found for an
 *        index at or beyond func_count. Of an index above 255 the low byte counts.
 * pos    in/out; DTINFO_FIRST before the first call, left alone between calls.
 * id, value, value_len
 *        out, each may be null: the first byte of the record's key (DTFUNCLOG_NO_FUNCTION for a key
 *        of no bytes), and the packed value. The id may lie beyond the table.
 *
 * Returns 1, or 0 with the outputs untouched at the end of the walk and for null. The address is
 * valid until the store changes.
 */
int DTFuncLog_Get(DTFuncLog *log, int32_t index, uint32_t *pos, uint32_t *id, const uint8_t **value,
                  uint32_t *value_len);

/* Lists the table on the console: an empty line, then two lines an entry. */
void DTFuncLog_ShowFunc(const DTFuncLog *log);

/* Shows records on the console, oldest first, each with its number, its function and its fields.
 *
 * name         of the function whose records are selected, the first entry of exactly that name; an
 *              unknown name shows nothing. Null or empty: records of all functions.
 * from, count  numbers of the records shown: from up to, not including, from + count. The records
 *              selected are numbered from 0.
 *
 * The display ends at a record, numbered from or above, whose key names no entry of the table. A
 * format is shown up to its 97th character, and a record that is shorter than its format as far as
 * it has whole fields.
 */
void DTFuncLog_Show(DTFuncLog *log, const char *name, int32_t from, int32_t count);

#ifdef __cplusplus
}
#endif

#endif
