/* IPv4 UDP sockets: send a datagram, receive one, ask and wait for the answer.
 *
 * A socket is a plain descriptor, of any number; one that is made here is closed in the programs
 * that the process starts, and is never 0, 1 or 2. Ports are in host order, and their low 16 bits
 * count.
 *
 * An address is a dotted text, read as inet_addr does: besides "10.0.0.1" it takes fewer parts, of
 * which the last fills the rest ("127.1" is 127.0.0.1), and parts in octal behind 0 and hexadecimal
 * behind 0x ("0x7f.1", and "010.0.0.1" is 8.0.0.1). Check what people type in before, with
 * inet_pton. DTSOCK_BROADCAST stands for everybody on the local network, and is the only way to
 * reach them: the system refuses a literal 255.255.255.255.
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
 * there is no socket to be had, when it cannot be bound (errno says why: EADDRINUSE for a port that
 * another program has), and for an address that is not one (EINVAL).
 */
int32_t DTSock_UDP_Create(const char *address, int32_t port);

/* Closes a socket; a number below 0 is ignored. */
void DTSock_UDP_Close(int32_t socket);

/* Sends count bytes as one datagram to an address, or to everybody, and a port. The socket may
 * broadcast from then on or not, by what this send asked for.
 *
 * Returns the bytes sent; 0, with nothing sent, for a null address; -1, with nothing sent and the
 * reason in errno, when the system refuses, for an address that is not one (EACCES: it counts as
 * 255.255.255.255), a port below 0, null bytes, and bytes that begin with a zero byte (EINVAL). The
 * first byte is looked at even with a count of 0.
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
