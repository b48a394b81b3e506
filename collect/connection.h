// The one connection of the process to its collection server.
#ifndef DT_COLLECT_CONNECTION_H
#define DT_COLLECT_CONNECTION_H

#include <stddef.h>
#include <stdint.h>

namespace dt {

// Milliseconds for each step; 0 or below: no limit. With one, a step that fails or comes to it ends
// the connection.
struct ConnectionLimits {
    int32_t connect;
    int32_t send;
    int32_t acknowledgement;
};

// Whether a run holds the connection, so that collectors may put values into it.
extern bool values_open;

// For every step that begins from now on.
void connection_limit(const ConnectionLimits &limits);

// Closes an earlier connection first.
bool connection_open(const char *address, int32_t port);
void connection_close();

bool connection_send(const void *message, size_t size);

// True also when the server closed the connection.
bool connection_receive_acknowledgement();

} // namespace dt

#endif
