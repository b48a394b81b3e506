/* Periodic callbacks. */
#ifndef DT_TIMER_H
#define DT_TIMER_H

#include "timer/DTTimer.h"

#endif
