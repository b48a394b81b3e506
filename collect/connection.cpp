#include "collect/connection.h"

#include "base/deadline.h"
#include "base/descriptor.h"
#include "base/endpoint.h"

#include <errno.h>
#include <netinet/tcp.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace dt {

namespace {

constexpr size_t acknowledgement_size = 16;

int32_t l_fd = -1;
ConnectionLimits _limits;

bool set_blocking(bool blocking) {
    int at_once = !blocking;
    return ioctl(l_fd, FIONBIO, &at_once) == 0;
}

bool has_connected() {
    int error = 0;
    socklen_t size = sizeof error;
    return getsockopt(l_fd, SOL_SOCKET, SO_ERROR, &error, &size) == 0 && error == 0;
}

// A connect that does not block, or that a signal interrupts, goes on by itself: wait for its end.
bool connect_to(const sockaddr_in &server, const Deadline &deadline) {
    if (connect(l_fd, generic(&server), sizeof server) == 0) return true;
    if (errno != EINTR && errno != EINPROGRESS) return false;
    return deadline.wait(l_fd, POLLOUT) && has_connected();
}

bool connect_within(const sockaddr_in &server, const Deadline &deadline) {
    if (!deadline.is_set()) return connect_to(server, deadline);
    return set_blocking(false) && connect_to(server, deadline) && set_blocking(true);
}

// The system must hold no message back until the one before has arrived: what it still holds when
// the connection closes is lost if the server has sent more than was read.
void send_at_once() {
    const int on = 1;
    setsockopt(l_fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
}

// Tries again what a signal interrupted and, until the deadline, what would have to wait.
template <typename Call> ssize_t attempt(const Deadline &deadline, short ready, Call call) {
    const int flags = deadline.is_set() ? MSG_DONTWAIT : 0;
    ssize_t done;
    do {
        done = call(flags);
    } while (done < 0 && (errno == EINTR || (errno == EAGAIN && deadline.wait(l_fd, ready))));
    return done;
}

// The rest of a message given up, and its late acknowledgement, must not meet the next one.
bool fail(const Deadline &deadline) {
    if (deadline.is_set()) connection_close();
    return false;
}

} // namespace

bool values_open;

void connection_limit(const ConnectionLimits &limits) { _limits = limits; }

bool connection_open(const char *address, int32_t port) {
    connection_close();
    if (!address) return false;
    const sockaddr_in server = endpoint(inet_addr(address), port);
    l_fd = kept_apart(socket(AF_INET, SOCK_STREAM, 0));
    if (l_fd >= 0 && connect_within(server, Deadline(_limits.connect))) {
        send_at_once();
        return true;
    }
    connection_close();
    return false;
}

void connection_close() {
    if (l_fd >= 0) close(l_fd);
    l_fd = -1;
}

bool connection_send(const void *message, size_t size) {
    const char *rest = static_cast<const char *>(message);
    const Deadline deadline(_limits.send);
    do {
        const ssize_t sent = attempt(deadline, POLLOUT, [=](int flags) {
            return send(l_fd, rest, size, flags | MSG_NOSIGNAL);
        });
        if (sent < 0) return fail(deadline);
        rest += sent;
        size -= static_cast<size_t>(sent);
    } while (size > 0 && deadline.is_set()); // a call that blocks takes the whole message
    return true;
}

bool connection_receive_acknowledgement() {
    const Deadline deadline(_limits.acknowledgement);
    const ssize_t received = attempt(deadline, POLLIN, [](int flags) {
        char bytes[acknowledgement_size];
        return recv(l_fd, bytes, sizeof bytes, flags);
    });
    return received >= 0 || fail(deadline);
}

} // namespace dt
