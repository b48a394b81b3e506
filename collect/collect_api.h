/* The face of data collection: components register as collectors and put their values into a run
 * from inside their callbacks. Collect_Init runs the loop that serves the collection server's
 * commands.
 */
#ifndef DT_COLLECT_API_H
#define DT_COLLECT_API_H

#include "../fault/DTFault.h"
#include "../records/DTLogger.h"

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#define COLLECT_MAX_ITEMS 19 /* collectors at a time */

/* Collects: argument is the server's command, 0, 1 or 2. Tests: argument is 0. It may register
 * collectors. It should release none, though its own may go: those behind it take new numbers at
 * once, while the server knows this run's directory, so that their values arrive under other names,
 * and the one that moves up is left out of this run. Release between runs.
 */
typedef void (*CollectCallback)(uint32_t argument);

/* A collector. */
typedef struct CollectItem {
    int32_t index;               /* slot in the registry, the number sent with its values */
    CollectCallback start_cb;    /* null: left out of collection runs */
    CollectCallback selftest_cb; /* null: left out of self-test runs */
    uint32_t section;            /* sent with each value; 0: none */
    char name[20];               /* always terminated */
} CollectItem;

/* The registry of the process. */
typedef struct CollectParam {
    DTLogger *logger;                          /* the collection log; null until Collect_Init */
    CollectItem *items[COLLECT_MAX_ITEMS + 1]; /* the first count are in use */
    int32_t count;                             /* collectors */
} CollectParam;

extern CollectParam g_collect_param; /* to be read alone */

/* Registers a collector; each callback may be null. A name longer than 19 characters is cut; names
 * need not be unique. Null for no or an empty name, for a 20th collector, and without memory.
 */
CollectItem *Collect_New(const char *name, CollectCallback start_cb, CollectCallback selftest_cb);

/* Takes a collector out of the registry and frees it; those behind it move up and take new numbers,
 * which the next run's directory reports. An address that is not in the registry is ignored and
 * never followed, and so is a collector whose index is not below the registry's count.
 */
void Collect_Release(CollectItem *item);

/* Makes the command socket and the collection log, then serves commands for as long as the process
 * lives: give it a thread of its own, and keep that thread and all others from using the library at
 * the same time. The lowest byte of identity is the first identity byte of the opening message, the
 * next one the second. Returns -1 when the command socket cannot be made, with the reason in errno:
 * EADDRINUSE when another program has the port, as a device that runs already.
 */
int32_t Collect_Init(uint32_t identity);

/* All values that the collector puts from now on carry this section, until it is ended. */
void Collect_BeginSection(CollectItem *item, uint32_t section);
void Collect_EndSection(CollectItem *item);

/* Put a value under a number of the caller's. Outside a run, and for null, nothing happens. A run,
 * for these functions, is from a successful CollectClient_Start to CollectClient_End, to a start
 * that fails, or to the failure that ends Collect_Start or Collect_SelfTest.
 *
 * length  of a text: 0 means up to its terminator. Below 0 nothing is sent; for a struct also 0.
 */
void Collect_PutInt(CollectItem *item, uint32_t key, uint32_t value);
void Collect_PutLong(CollectItem *item, uint32_t key, uint64_t value);
void Collect_PutString(CollectItem *item, uint32_t key, const char *text, int32_t length);
void Collect_PutStruct(CollectItem *item, uint32_t key, const void *bytes, int32_t length);

/* Put each record of a fault's log as a text: for every line its time stamp, then its text. */
void Collect_PutRunLog(CollectItem *item, uint32_t key, const DTFault *fault);
void Collect_PutInitLog(CollectItem *item, uint32_t key, const DTFault *fault);

/* Shows the collection log on the console. */
void Collect_ShowLog(void);

#ifdef __cplusplus
}
#endif

#endif
