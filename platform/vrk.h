/* The five functions that a device's platform layer provides.
 *
 * libdt carries ready defaults for any POSIX system. A program that defines one of the five gets
 * its own used by libdt, as with a replaced malloc; the other defaults stay. VRK_Malloc and
 * VRK_Free are replaced together. Link the definitions as object files: in a library they may stay
 * unused. For a platform layer in a library, build libdt without the defaults (DT_PLATFORM=none).
 */
#ifndef DT_PLATFORM_VRK_H
#define DT_PLATFORM_VRK_H

#include <stddef.h>
#include <stdint.h>

#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ != __ORDER_LITTLE_ENDIAN__
#error "libdt needs a little-endian machine: its records and messages have that order"
#endif

/* Lets the compiler check arguments against a format. */
#if defined(__GNUC__)
#define DT_PRINTF_LIKE(format_at, args_at) __attribute__((format(printf, format_at, args_at)))
#else
#define DT_PRINTF_LIKE(format_at, args_at)
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* Raw memory of size bytes, or null when there is none.
 *
 * libdt keeps a 4-byte prefix in front of what it hands out, so the address that it passes on lies
 * 4 bytes behind the result. It must be 4-byte aligned; on a 64-bit system result + 4 should be
 * aligned for any type. The default does that.
 */
void *VRK_Malloc(size_t size);

/* Gives back what VRK_Malloc returned. Never called with null. */
void VRK_Free(void *address);

/* Prints a formatted text on the console, without a line break of its own. libdt calls it with the
 * format "%s" and one text. It must not print through libdt itself. The default writes to standard
 * output and flushes it.
 */
void VRK_RawPrint(const char *format, ...) DT_PRINTF_LIKE(1, 2);

/* Pauses for the given number of the platform's units. libdt calls it with 1000 after the first
 * record of a log shown and every hundredth behind it, so that a slow console keeps up. The
 * default's unit is the microsecond: one millisecond per hundred records.
 */
void VRK_Delay(uint32_t units);

/* Bounded formatting in the manner of snprintf: at most size - 1 characters and a terminator are
 * written, the result is the length that the whole text has. Records are written
 * without it, besides the keys of info records.
 */
int TMB_snprintf(char *buffer, size_t size, const char *format, ...) DT_PRINTF_LIKE(3, 4);

#ifdef __cplusplus
}
#endif

#endif
