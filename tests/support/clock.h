// The clock as the test wants it: the program's own time functions, which the library uses instead
// of libc's.
#pragma once

#include <stdint.h>
#include <time.h>

struct Clock {
    time_t now = 0;            // 0: the real time
    bool broken_local = false; // localtime fails
    bool ended = false;        // the fine clock fails, as where its seconds do not fit
    static constexpr int64_t real = INT64_MIN;
    int64_t microseconds = real; // of the fine clock, from 1970
    int64_t since_boot = real;   // microseconds of the clock that nobody sets

    int sleep_error = 0; // errno of every sleep, which then fails at once

    // Called in place of a sleep.
    void (*sleeping)(uint32_t microseconds) = nullptr;

    // Local time is UTC from here on, and the clock stands at the given second.
    void stand_at(time_t second);
};

extern Clock fake_clock;

// The 16th of November 2014, 18:44:43.
constexpr time_t a_sunday_evening = 1416163483;
