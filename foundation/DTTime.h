/* The clock, and times as text.
 *
 * A time is in seconds since 1970-01-01 00:00:00 UTC (time_t; 32 bits on the device).
 */
#ifndef DT_FOUNDATION_DTTIME_H
#define DT_FOUNDATION_DTTIME_H

#include <stdint.h>
#include <time.h>

/* Where the C library offers times of 32 and of 64 bits, a program with the other choice than
 * libdt's would link and get garbage. pkg-config and CMake hand over DT_TIME64 where libdt has 64
 * bits.
 */
#if defined(__TIMESIZE) && __TIMESIZE == 32
#if defined(_TIME_BITS) && _TIME_BITS == 64
#if !defined(DT_TIME64)
#error "libdt has 32-bit times: drop -D_TIME_BITS=64, or build libdt with it (docs/porting.md)"
#endif
#elif defined(DT_TIME64)
#error "libdt has 64-bit times: build with -D_TIME_BITS=64 -D_FILE_OFFSET_BITS=64"
#endif
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* The current time plus offset seconds; wraps where a time has 32 bits. */
time_t DTTime_GetTime(int32_t offset);

/* The current time. A 32-bit clock ends in January 2038: glibc then answers -1 every time, which
 * shows as the second before 1970 (in UTC).
 */
time_t DTTime_Now(void);

/* Writes a time as local time into out, by a pattern of tokens, and returns out.
 *
 * out     room for the pattern's length and a terminator, and for 7 characters more per YYYY where
 *         years of other than four digits can occur (the clock has 64 bits).
 * format  YYYY year, YY and yy its last two digits, MM mm month, DD dd day, HH hh hour (0 to 23),
 *         MI mi minute, SS ss second: upper case with leading zeros, lower case without. Everything
 *         else is copied. Null: the empty text. A null out is returned as it is.
 * time    0: now. A time that cannot be broken down shows as 1900/01/00 00:00:00.
 *
 * Uses localtime, whose result is shared. A text is kept and given again within the second in which
 * it was made, for the same time, format and TZ: a TZ that changes shows at once. Without TZ the
 * system's zone counts, /etc/localtime, and UTC where there is none; when that file is replaced, it
 * shows in the next second. One that TZ names is read again when TZ changes, not before (glibc).
 */
char *DTTime_Format(char *out, const char *format, time_t time);

/* A microsecond counter that wraps every 4,294.967296 seconds: subtract two readings as unsigned
 * 32-bit numbers. It follows the system's clock, so a clock that is set makes it jump; where the
 * system cannot tell the time (a 32-bit clock from January 2038 on) it counts from the start of the
 * system.
 */
uint32_t DTTime_GetUTime(void);

/* Sleeps; milliseconds up to 4,294,967. Returns 0, or -1 on an error: at once when a signal ends
 * the sleep early, otherwise after the same time, so that no loop runs free.
 */
int DTTime_Sleep(uint32_t milliseconds);

#ifdef __cplusplus
}
#endif

#endif
