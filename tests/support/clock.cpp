#include "support/clock.h"

#include <dlfcn.h>
#include <errno.h>
#include <stdlib.h>
#include <sys/time.h>
#include <unistd.h>

Clock fake_clock;

void Clock::stand_at(time_t second) {
    setenv("TZ", "UTC0", 1);
    tzset();
    now = second;
}

extern "C" {

int clock_gettime(clockid_t clock, timespec *result) noexcept {
    const int64_t now = fake_clock.since_boot;
    if (clock != CLOCK_MONOTONIC || now == Clock::real) {
        static const auto real =
            reinterpret_cast<decltype(&clock_gettime)>(dlsym(RTLD_NEXT, "clock_gettime"));
        return real(clock, result);
    }
    *result = {static_cast<time_t>(now / 1000000), static_cast<long>(now % 1000000) * 1000};
    return 0;
}

time_t time(time_t *result) noexcept {
    timespec real;
    clock_gettime(CLOCK_REALTIME, &real);
    const time_t second = fake_clock.now != 0 ? fake_clock.now : real.tv_sec;
    if (result) *result = second;
    return second;
}

tm *localtime(const time_t *second) noexcept {
    static tm result;
    tzset();
    return fake_clock.broken_local ? nullptr : localtime_r(second, &result);
}

int gettimeofday(timeval *result, void *) noexcept {
    if (fake_clock.ended) return -1;
    timespec real;
    clock_gettime(CLOCK_REALTIME, &real);
    int64_t now = fake_clock.microseconds;
    if (now == Clock::real) now = real.tv_sec * int64_t{1000000} + real.tv_nsec / 1000;
    const int64_t part = (now % 1000000 + 1000000) % 1000000; // never negative, before 1970 either
    result->tv_sec = static_cast<time_t>((now - part) / 1000000);
    result->tv_usec = static_cast<suseconds_t>(part);
    return 0;
}

int usleep(useconds_t microseconds) {
    if (fake_clock.sleep_error != 0) {
        errno = fake_clock.sleep_error;
        return -1;
    }
    if (fake_clock.sleeping) {
        fake_clock.sleeping(microseconds);
        return 0;
    }
    const timespec duration = {static_cast<time_t>(microseconds / 1000000),
                               static_cast<long>(microseconds % 1000000) * 1000};
    return nanosleep(&duration, nullptr);
}
}
