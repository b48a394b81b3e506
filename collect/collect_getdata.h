/* The collection run: opening message, directory, then every collector's values. */
#ifndef DT_COLLECT_GETDATA_H
#define DT_COLLECT_GETDATA_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Connects to the server's address (dotted text) and port, has every collector with a start
 * callback put its values, and ends the connection. command is handed to the callbacks; sequence
 * numbers the opening message (0: automatic); the identity bytes go into it.
 *
 * Returns 1 when the directory and every collector's messages were sent and answered; the opening
 * and the empty last message are not asked. 0 when the connection cannot be made or a message
 * fails; the collection log says which, the remaining collectors are not called, and the next run
 * connects anew.
 */
int32_t Collect_Start(const char *address, uint32_t port, uint32_t command, int32_t sequence,
                      uint8_t identity0, uint8_t identity1);

#ifdef __cplusplus
}
#endif

#endif
