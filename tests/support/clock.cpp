#include "support/clock.h"

#include <stdlib.h>

Clock fake_clock;

void Clock::stand_at(time_t second) {
    setenv("TZ", "UTC0", 1);
    tzset();
    now = second;
}

extern "C" {

time_t time(time_t *result) noexcept {
    timespec real;
    clock_gettime(CLOCK_REALTIME, &real);
    const time_t second = fake_clock.now != 0 ? fake_clock.now : real.tv_sec;
    if (result) *result = second;
    return second;
}

tm *localtime(const time_t *second) noexcept {
    static tm result;
    return fake_clock.broken_local ? nullptr : localtime_r(second, &result);
}
}
