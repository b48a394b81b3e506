/* What the device's program needs of its platform layer beside libdt's five functions. */
#ifndef EXAMPLES_PLATFORM_H
#define EXAMPLES_PLATFORM_H

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

enum { PLATFORM_BUDGET = 4 * 1024 * 1024 }; /* bytes that libdt and its callers may hold */

/* Sends the console to a serial line, as "/dev/ttyS1". Returns 1, or 0 with the console as it was:
 * standard output, at the beginning.
 */
int platform_open_console(const char *path);

/* Bytes that are held now. */
size_t platform_memory_used(void);

#ifdef __cplusplus
}
#endif

#endif
