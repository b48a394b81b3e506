/* The fault registry: named sources of diagnostic data, each with two logs and typed value records.
 *
 * A fault's init log and run log are loggers of its own. Registers, counters and values go as
 * records into one store of the process, the fault store; nothing is added up or overwritten there.
 * DTFault_Start gathers everything into the fault log file. A null fault is ignored. Layouts:
 * docs/formats.md, "Fault records" and "Fault log file".
 */
#ifndef DT_FAULT_DTFAULT_H
#define DT_FAULT_DTFAULT_H

#include "../containers/DTBuf.h"
#include "../containers/DTList.h"
#include "../records/DTLogger.h"

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#define DTFAULT_MAX 256              /* faults that can be told apart */
#define DTFAULT_MAX_PACKED 292u      /* data bytes of an Ex record */
#define DTFAULT_MAX_VALUE 65527u     /* data bytes of a value record */
#define DTFAULT_STORE_SIZE 10485760u /* maximum of the fault store in bytes */

/* Refreshes a fault's data before they are written to the fault log file. */
typedef void (*DTFaultCallback)(void);

/* A fault; it lives until the process ends. */
typedef struct DTFault {
    DTFaultCallback callback; /* may be null */
    DTLogger *init_logger;    /* null when there was no memory for it */
    DTLogger *run_logger;     /* likewise */
    uint32_t info;            /* the caller's word */
    uint32_t ignore; /* not 0: log lines are dropped; value records are written all the same */
    uint8_t index;   /* faults registered before this one; names it in every record */
    char name[23];   /* always terminated */
} DTFault;

/* The faults in order of registration; null before the first. A fault that the application takes
 * off the list, which a start callback may do too, must live until its callback has returned and
 * the end of it was reported: free it after the pass. The records of those behind it go to others
 * then, and a start callback that moves up into a place that was passed waits for the next pass.
 */
extern DTList *g_DTFault_List;

extern DTInfo *g_DTFault_Info; /* the fault store; null while there are no records */
extern DTLogger *g_fcm_logger; /* the application's; libdt neither sets nor reads it */

/* Registers a fault, for the life of the process; when that fails nothing is left behind. A name
 * longer than 22 characters is cut; names need not be unique. Null without memory for the fault,
 * without a name, and for a 257th fault; a log there is no memory for is left out.
 */
DTFault *DTFault_Regist(const char *name, DTFaultCallback callback);

/* With a flag other than 0 the fault's log lines are dropped from now on. */
void DTFault_Ignore(DTFault *fault, uint32_t flag);

/* Keeps a word with the fault. Returns 0, as do all functions below. */
uint32_t DTFault_SetInfo(DTFault *fault, uint32_t word);

/* Add a line to the fault's init log and run log, as DTLogger_Append: level 2 is a warning, 3 an
 * error, 0 is echoed on the console. The third argument is passed on and not used.
 */
uint32_t DTFault_SetInitLog(DTFault *fault, uint32_t level, uint32_t unused, const char *text);
uint32_t DTFault_SetRunLog(DTFault *fault, uint32_t level, uint32_t unused, const char *text);

/* Show a log as DTLogger_ShowToBuf: into a byte buffer, or on the console with an address of 100 or
 * less, and always on the console.
 */
uint32_t DTFault_ShowInitLogToBuf(DTFault *fault, DTBuf *target);
uint32_t DTFault_ShowRunLogToBuf(DTFault *fault, DTBuf *target);
uint32_t DTFault_ShowInitLog(DTFault *fault);
uint32_t DTFault_ShowRunLog(DTFault *fault);

/* Append a record to the fault store: a register's or counter's number and its value. Without
 * memory nothing is written.
 */
uint32_t DTFault_SetRegist(DTFault *fault, uint32_t id, uint32_t value);
uint32_t DTFault_SetRegist64(DTFault *fault, uint32_t id, uint64_t value);
uint32_t DTFault_SetCounter(DTFault *fault, uint32_t id, uint32_t value);
uint32_t DTFault_SetCounter64(DTFault *fault, uint32_t id, uint64_t value);

/* Append a record of length data bytes: at most 292 for a register and a counter, 65,527 for a
 * value. Longer data are refused, as is null with a length: nothing is written.
 */
uint32_t DTFault_SetRegistEx(DTFault *fault, uint32_t id, const void *data, uint32_t length);
uint32_t DTFault_SetCounterEx(DTFault *fault, uint32_t id, const void *data, uint32_t length);
uint32_t DTFault_SetValue(DTFault *fault, uint32_t id, const void *data, uint32_t length);

/* Runs every start callback, then writes all logs and the fault store into the file "/fcm.log",
 * which holds the last pass alone, and drops the fault store. The logs are kept and written again
 * by the next pass. An entry that would be longer than its 16-bit length loses the end of its data.
 * Its short parts reach fwrite together, up to 512 bytes at a time.
 *
 * Nothing happens without a registered fault and from inside a start callback. When the file cannot
 * be made, the fault store stays for the next pass; write errors are not detected.
 */
void DTFault_Start(void);

#ifdef __cplusplus
}
#endif

#endif
