/* The device's side of a collection: the command socket, and the one connection of the process on
 * which numbered messages of value frames go to the collection server, each acknowledged by it.
 * Layouts: docs/formats.md, "Command datagram", "Collection messages" and "Value frames".
 *
 * Connect, send and the wait for an acknowledgement block without time-out unless
 * CollectClient_SetTimeout gives them one. A peer that has gone is an error result, never a signal.
 * A signal ends none of the three: they go on. Only a message that a signal cuts short while it is
 * being sent counts as sent whole; with a limit on sending its rest follows.
 *
 * Each message goes out at once (TCP_NODELAY), also before the one ahead of it has arrived.
 *
 * The command socket and the connection are closed in the programs that the process starts, and
 * are never descriptor 0, 1 or 2.
 *
 * An acknowledgement is whatever one receive of at most 16 bytes finds. What a server sends beyond
 * that, or later, acknowledges the messages that follow: the device runs ahead of a server that
 * answers byte by byte. If it ends before it has read all of it, the server finds the connection
 * reset, behind the last message.
 */
#ifndef DT_COLLECT_CLIENT_H
#define DT_COLLECT_CLIENT_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#define COLLECT_COMMAND_PORT 9099 /* UDP, on the device */
#define COLLECT_OWNER_ID 100      /* of the message buffer and of collectors, see DTMem.h */
#define COLLECT_MAX_ALLOWED 16    /* senders, see CollectClient_Allow */

/* Message types. */
#define COLLECT_MESSAGE_OPENING 0u
#define COLLECT_MESSAGE_DIRECTORY 1u
#define COLLECT_MESSAGE_DATA 2u

/* Returns a UDP socket bound to the command port on every local address, or -1 with the reason in
 * errno: EADDRINUSE when another program has the port, as a device that runs already.
 */
int32_t CollectClient_Init(void);

/* Waits for one command datagram and prints "size=" and the bytes received on standard output,
 * unless CollectClient_SetTrace turns that off.
 *
 * command  out, 0 to 3.
 * address  out, the sender in dotted text; room for 16 bytes.
 * port     out, the TCP port to connect to in its low 16 bits.
 *
 * The two identity bytes play no part. Returns the datagram's sequence number, or -1 with nothing
 * stored for an invalid datagram, one that is too old (see CollectClient_SetMaxAge), a failed
 * receive, which a signal causes too, a socket below 0 or a null argument. After a
 * failed receive it rests for 100 ms, so that a loop on a broken socket does not run free.
 */
int32_t CollectClient_WaitFor(int32_t socket, uint8_t identity0, uint8_t identity1,
                              uint32_t *command, char *address, uint32_t *port);

/* Accepts command datagrams from this sender, a dotted text of four decimal numbers, and from those
 * given before; once one is given, datagrams of all others are invalid. Null forgets them all:
 * everybody is accepted again, as at the beginning. The sender's address can be forged by whoever
 * shares the network; connections go to that address alone, though. To be called before the loop:
 * CollectClient_WaitFor reads the list while it waits, outside any lock of the caller's.
 *
 * Returns 1, also for one that was given before; 0 with nothing changed for another text and for
 * the 17th address.
 */
int32_t CollectClient_Allow(const char *address);

/* Drops commands that waited for longer than so many milliseconds before they were read, such as
 * those that came in during a long run; 0 or below: none, as at the beginning. A dropped one is an
 * invalid datagram. It is dropped only when its time of arrival says that it is too old and the
 * socket has not been empty for as long either, so that a clock that is set drops none that came
 * in since. To be called before CollectClient_Init: arrivals are noted from then on.
 */
void CollectClient_SetMaxAge(int32_t milliseconds);

/* Whether CollectClient_WaitFor prints its "size=" lines: 0 turns them off; they are on at the
 * beginning. What fails is reported in any case.
 */
void CollectClient_SetTrace(int on);

/* Limits each connect, the sending of each message and the wait for each acknowledgement that begin
 * from now on, in milliseconds; 0 or below: no limit, as at the beginning. Signals do not prolong
 * them.
 *
 * A connect that comes to its limit has failed, and so has a message: with a limit on the step that
 * fails, the connection is closed besides, so that all that follows fails at once up to the next
 * start. A silent server thus delays a run once, not with every message.
 */
void CollectClient_SetTimeout(int32_t connect_ms, int32_t send_ms, int32_t acknowledgement_ms);

/* Connects to an address in dotted text and the low 16 bits of port; what is left of an earlier
 * connection is closed first. The message buffer of a connection that was not ended is kept with
 * its contents. Returns 1, or 0 when the connection cannot be made ("connect error." on standard
 * output) or there is no memory for the buffer.
 */
int32_t CollectClient_Start(const char *address, int32_t port);

/* Sends what the buffer holds, also when that is nothing, closes the connection and frees the
 * buffer. Nothing without a buffer.
 */
void CollectClient_End(void);

/* Sets the type of this and all further messages. */
void CollectClient_SetType(uint32_t type);

/* Append to the payload, which holds 1024 bytes: raw bytes, 4 bytes, a text with its length in 2
 * bytes before it. What does not fit is refused whole; so is everything without a connection.
 */
void CollectClient_AppendBuffer(const void *bytes, uint32_t count);
void CollectClient_AppendInt(uint32_t value);
void CollectClient_AppendString(const char *text);

/* Sends the message under the given number, or under the next automatic one for 0, and waits for
 * the acknowledgement. The payload counts as consumed in any case. Returns 1, also when the server
 * closed the connection instead of answering, and 0 on a failure ("send error." or "recv error." on
 * standard output) or without a buffer.
 */
int32_t CollectClient_Flush(int32_t sequence);

/* Add a number's frame to the payload, sending the payload first when there is too little room.
 * CollectClient_CollectInt returns 17, the frame's size, and 0 without a buffer.
 *
 * index, section, key  the collector's number, its open section (0: none), the caller's number.
 */
int32_t CollectClient_CollectInt(uint32_t index, uint32_t section, uint32_t key, uint32_t value);
void CollectClient_CollectLong(uint32_t index, uint32_t section, uint32_t key, uint64_t value);

/* Add a frame, likewise, with as much of a text or of bytes as the message holds, and return the
 * number of bytes taken; call again with the rest, which goes into the next message. A length of 0
 * means the text's length, and no frame at all for a buffer; below 0, for null and without a buffer
 * nothing is taken.
 */
int32_t CollectClient_CollectString(uint32_t index, uint32_t section, uint32_t key,
                                    const char *text, int32_t length);
int32_t CollectClient_CollectBuffer(uint32_t index, uint32_t section, uint32_t key,
                                    const void *bytes, int32_t length);

#ifdef __cplusplus
}
#endif

#endif
