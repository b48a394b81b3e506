/* Periodic callbacks, polled every 100 ms by a loop that the application runs on a thread of its
 * own.
 *
 * Times are in milliseconds of a clock that starts again at 0 after 4,294,967. In the first pass
 * after that, or after the system's clock was set back, every running timer runs, whatever its
 * interval.
 *
 * Nothing is locked: timers are registered before the loop starts or by a callback.
 */
#ifndef DT_TIMER_DTTIMER_H
#define DT_TIMER_DTTIMER_H

#include "../containers/DTList.h"

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct DTTimer DTTimer;

/* The periodic work. It sees its timer as the run before left it; answering 0 stops the timer for
 * good.
 */
typedef int32_t (*DTTimerCallback)(DTTimer *timer);

/* A timer, for its callback to look at. */
struct DTTimer {
    DTTimerCallback callback; /* null: never called and never shown */
    uint32_t interval;        /* milliseconds */
    uint32_t last;  /* when it was registered, then the start of the pass in which it last ran */
    int32_t status; /* 1: running, 0: stopped */
    int32_t times;  /* calls so far; behind 2,147,483,647 follows the lowest negative number */
};

/* The timers (DTTimer *) in the order of their registration, null before the first one. They live
 * until the process ends: none may be removed.
 */
extern DTList *g_DTTimer_List;

/* Adds a running timer, which first runs in the first pass one interval (milliseconds) from now or
 * later. An interval of 0 runs it in every pass; what a callback registers is first seen by the
 * next pass. Returns 1, or 0 with nothing registered without memory.
 */
int DTTimer_Regist(DTTimerCallback callback, uint32_t interval);

/* Runs what is due, sleeps for 100 ms, and so on; never returns. A timer is due when at least its
 * interval has passed since the start of the pass in which it last ran. It may be started before
 * the first registration.
 */
void DTTimer_Loop(void);

/* Prints on the console the clock and one line for each timer, stopped ones too. */
void DTTimer_Show(void);

#ifdef __cplusplus
}
#endif

#endif
