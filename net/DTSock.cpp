#include "net/DTSock.h"

#include "base/descriptor.h"
#include "base/endpoint.h"

#include <errno.h>
#include <poll.h>
#include <string.h>
#include <unistd.h>

namespace {

static_assert(DTSOCK_ADDRESS_SIZE == INET_ADDRSTRLEN);

int refuse() {
    errno = EINVAL;
    return -1;
}

// A text that is no address is refused: inet_addr would answer 255.255.255.255 for it, to which a
// socket can even be bound.
int bind_to(int socket, const char *address, int32_t port) {
    sockaddr_in local = dt::endpoint(0, port);
    if (!inet_aton(address, &local.sin_addr)) return refuse();
    return bind(socket, dt::generic(&local), sizeof local);
}

// An interrupted wait is no answer. Unlike select, poll serves any descriptor; but it takes every
// negative time-out for none, and reports a closed descriptor as an event.
bool readable_within(int socket, int32_t time_out) {
    pollfd entry = {socket, POLLIN, 0};
    return time_out >= -1 && poll(&entry, 1, time_out) == 1 && !(entry.revents & POLLNVAL);
}

} // namespace

int32_t DTSock_UDP_Create(const char *address, int32_t port) {
    const int created = dt::kept_apart(socket(AF_INET, SOCK_DGRAM, 0));
    if (created < 0 || !address || port <= 0 || bind_to(created, address, port) == 0)
        return created;
    close(created);
    return -1;
}

void DTSock_UDP_Close(int32_t socket) {
    if (socket >= 0) close(socket);
}

int32_t DTSock_UDP_SendMessage(int32_t socket, const char *address, int32_t port, const void *bytes,
                               uint32_t count) {
    if (!address) return 0;
    if (!bytes || *static_cast<const char *>(bytes) == '\0' || port < 0) return refuse();
    const int broadcast = strcmp(address, DTSOCK_BROADCAST) == 0;
    setsockopt(socket, SOL_SOCKET, SO_BROADCAST, &broadcast, sizeof broadcast);
    // No address at all is 255.255.255.255 as well, which the system refuses to whoever may not
    // broadcast.
    const sockaddr_in to = dt::endpoint(broadcast ? INADDR_BROADCAST : inet_addr(address), port);
    return static_cast<int32_t>(sendto(socket, bytes, count, 0, dt::generic(&to), sizeof to));
}

int32_t DTSock_UDP_RecvMessage(int32_t socket, char *address, uint32_t *port, void *buffer,
                               uint32_t capacity) {
    if (!buffer) return refuse();
    sockaddr_in from = {};
    socklen_t length = sizeof from;
    const ssize_t received =
        recvfrom(socket, buffer, capacity, 0, reinterpret_cast<sockaddr *>(&from), &length);
    if (received < 0) return -1;
    if (address) inet_ntop(AF_INET, &from.sin_addr, address, DTSOCK_ADDRESS_SIZE);
    if (port) *port = ntohs(from.sin_port);
    static_cast<char *>(buffer)[received] = '\0';
    return static_cast<int32_t>(received);
}

int32_t DTSock_UDP_GetMessage(int32_t socket, char *address, uint32_t *port, void *buffer,
                              uint32_t request_length, uint32_t capacity, int32_t time_out) {
    if (!address) return 0;
    if (!port) return refuse();
    const int32_t sent = DTSock_UDP_SendMessage(socket, address, static_cast<int32_t>(*port),
                                                buffer, request_length);
    if (sent < 0) return sent;
    if (!readable_within(socket, time_out)) return 0;
    return DTSock_UDP_RecvMessage(socket, address, port, buffer, capacity);
}
