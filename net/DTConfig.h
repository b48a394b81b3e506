/* Settings from a configuration server on the local network, with a default for when there is none.
 *
 * The first lookup of the process is broadcast to port 8999, from port 8998. Whoever answers is the
 * server from then on: each later lookup goes to the host and port that answered last. When nobody
 * answers the first one, or it cannot be sent, no later one is ever sent: every lookup gives its
 * default at once. Only DTConfig_SetServer changes that.
 *
 * A lookup waits for one second at most, on a clock that nobody sets; a signal does not end the
 * wait. The default is given when no answer comes in that time, when sending or receiving fails,
 * and for an empty answer (whose sender is the server all the same). The first datagram to come
 * within the wait is taken for the answer, whoever sent it and whatever it was meant for. What came
 * before, such as a late answer to an earlier lookup, is thrown away when the next request is sent.
 *
 * A request is one datagram, "=>config GROUP KEY DEFAULT", in which group, key and default have 988
 * characters together at most. A lookup with more, or with a null group or key, gives its default;
 * nothing is sent, and the next lookup finds everything as it was. The three are sent as they are,
 * so leave blanks out of group and key: a server takes the first blank for the end of a group, the
 * second one for that of a key, and would answer with another setting.
 *
 * An answer is one datagram, the value as text. What is beyond its first zero byte or its 999th
 * character does not count.
 */
#ifndef DT_NET_DTCONFIG_H
#define DT_NET_DTCONFIG_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Fixes the server: every lookup from now on, also after one that nobody answered, goes to this
 * host (dotted text of four decimal numbers) and port (1 to 65535), and only datagrams from that
 * host, whatever their port, are answers. Without one the lookup gives its default after a second,
 * and the next one asks again.
 *
 * With a null address, whatever the port, the next lookup is broadcast as if it were the first, and
 * whoever answers is the server.
 *
 * Returns 1; 0 with nothing changed for an address or a port that is none.
 */
int DTConfig_SetServer(const char *address, int32_t port);

/* Looks up a text.
 *
 * fallback  the default; null counts as the empty text. It may lie in the value buffer.
 * value     out: the answer's text or the default; 1000 bytes, and room for the whole default where
 *           that is longer. Null: nothing is looked up.
 *
 * Returns 1, always.
 */
int DTConfig_GetString(const char *group, const char *key, const char *fallback, char *value);

/* Looks up a number: decimal, hexadecimal behind 0x or 0X, octal behind 0; leading blanks and a
 * sign are accepted, and what follows the number is ignored. Returns the low 32 bits of the answer,
 * read as a 64-bit number and held at its limits; 0 for an answer that does not begin with a
 * number.
 *
 * The unsigned form differs in the type alone: its default, too, is sent as a signed number.
 */
int32_t DTConfig_GetInt(const char *group, const char *key, int32_t fallback);
uint32_t DTConfig_GetUInt(const char *group, const char *key, uint32_t fallback);

#ifdef __cplusplus
}
#endif

#endif
