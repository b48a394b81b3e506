/* IPv4 UDP sockets: send a datagram, receive one, ask and wait for the answer.
 *
 * A socket is a plain descriptor, of any number. An address is a dotted text; DTSOCK_BROADCAST
 * stands for everybody on the local network, and is the only way to reach them: the system refuses
 * a literal 255.255.255.255. Ports are in host order, and their low 16 bits count.
 *
 * Nothing is kept between calls. A socket serves one thread at a time.
 */
#ifndef DT_NET_DTSOCK_H
#define DT_NET_DTSOCK_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#define DTSOCK_BROADCAST "<BROADCAST>" /* as an address: everybody on the local network */
#define DTSOCK_ADDRESS_SIZE 16         /* bytes that any address text needs, with its terminator */

/* Returns a new socket, bound to a local address ("0.0.0.0": all of them) and port; with a null
 * address, or a port of 0 or less, unbound: the system picks a port at the first send. -1 when
 * there is no socket to be had, when it cannot be bound, and for an address that is not one.
 */
int32_t DTSock_UDP_Create(const char *address, int32_t port);

/* Closes a socket; a number below 0 is ignored. */
void DTSock_UDP_Close(int32_t socket);

/* Sends count bytes as one datagram to an address, or to everybody, and a port. The socket may
 * broadcast from then on or not, by what this send asked for.
 *
 * Returns the bytes sent; 0, with nothing sent, for a null address; -1 when the system refuses
 * (errno says why), and with nothing sent for an address that is not one, a port below 0, null
 * bytes, and bytes that begin with a zero byte. The first byte is looked at even with a count of 0.
 */
int32_t DTSock_UDP_SendMessage(int32_t socket, const char *address, int32_t port, const void *bytes,
                               uint32_t count);

/* Waits for a datagram, however long it takes, and receives it.
 *
 * address   out, DTSOCK_ADDRESS_SIZE bytes: who sent it; null when not wanted.
 * port      out: from which port; null when not wanted.
 * buffer    capacity + 1 bytes: the datagram and a zero byte behind it.
 * capacity  what is longer is cut there; the rest of the datagram is lost.
 *
 * Returns the bytes received, 0 for an empty datagram; -1, with nothing written, when the system
 * refuses or a signal interrupts the wait, and for a null buffer.
 */
int32_t DTSock_UDP_RecvMessage(int32_t socket, char *address, uint32_t *port, void *buffer,
                               uint32_t capacity);

/* Sends a request and waits for the answer. The first datagram to come is taken for the answer,
 * whoever sent it: a late answer to an earlier request too.
 *
 * address         in: where the request goes, as for sending; out: who answered. A writable text of
 *                 DTSOCK_ADDRESS_SIZE bytes; null: nothing is sent and the result is 0 at once.
 * port            in and out likewise; null: nothing is sent and the result is -1.
 * buffer          in: request_length bytes of request; out: the answer, as for receiving.
 * capacity        of the answer, so that the buffer has capacity + 1 bytes.
 * time_out        milliseconds; 0: only an answer that is there already; -1: no limit; below -1:
 *                 the request is sent and not waited for.
 *
 * Returns the bytes of the answer; 0 when none came in time or a signal interrupted the wait (the
 * buffer, address and port are then as they were), and for an empty answer; -1 when sending or
 * receiving failed.
 */
int32_t DTSock_UDP_GetMessage(int32_t socket, char *address, uint32_t *port, void *buffer,
                              uint32_t request_length, uint32_t capacity, int32_t time_out);

#ifdef __cplusplus
}
#endif

#endif
