/* The self-test run: opening message, then every collector's name and results, without a directory.
 */
#ifndef DT_COLLECT_SELFTEST_H
#define DT_COLLECT_SELFTEST_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#define COLLECT_SELFTEST_NAME 65535u /* index of the frame that names whose results follow */

/* As Collect_Start, but calls the self-test callbacks, with 0, each behind a frame with its
 * collector's name.
 */
int32_t Collect_SelfTest(const char *address, uint32_t port, int32_t sequence, uint8_t identity0,
                         uint8_t identity1);

#ifdef __cplusplus
}
#endif

#endif
