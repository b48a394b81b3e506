/* Periodic callbacks, polled every 100 ms by a loop that the application runs on a thread of its
 * own.
 *
 * Times are in milliseconds of a clock that starts again at 0 after 4,294,967. In the first pass
 * after that every running timer runs, whatever its interval.
 *
 * The clock follows the system's (DTTime_GetUTime). When that is set, by seconds or by years, a
 * timer runs once, in the next pass or at the latest one interval after it: nothing is made up for,
 * and no timer stops. So it is in January 2038 on a device with 32-bit times.
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
 * until the process ends, unless the application takes one off the list, which a callback may do
 * too. A pass goes by position, up to the length at its start: a timer that moves up into a place
 * that was passed waits for the next pass. The timer itself must live until its callback has
 * returned and the pass has written to it: free it after the pass.
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
