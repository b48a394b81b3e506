#include "support/network.h"

#include <base/endpoint.h>
#include <dlfcn.h>
#include <errno.h>
#include <mutex>
#include <poll.h>
#include <string.h>

Network network;

namespace {

template <typename Call> Call real(Call, const char *name) {
    return reinterpret_cast<Call>(dlsym(RTLD_NEXT, name));
}

bool fails(const char *name) {
    const auto entry = network.failing.find(name);
    if (entry == network.failing.end()) return false;
    errno = entry->second;
    return true;
}

Datagram datagram(const sockaddr *address, const void *bytes, size_t count) {
    sockaddr_in other;
    memcpy(&other, address, sizeof other);
    return {inet_ntoa(other.sin_addr), ntohs(other.sin_port),
            std::string(static_cast<const char *>(bytes), count)};
}

// Both sides of a test may call at once.
template <typename List, typename Make> void record(List &list, Make make) {
    static std::mutex mutex;
    const std::lock_guard<std::mutex> lock(mutex);
    list.push_back(make());
}

ssize_t deliver(void *bytes, size_t capacity, sockaddr *from) {
    if (network.replies.empty()) return -1;
    const Datagram reply = network.replies.front();
    network.replies.pop_front();
    const sockaddr_in sender = dt::endpoint(inet_addr(reply.address.c_str()), reply.port);
    memcpy(from, &sender, sizeof sender);
    const size_t count = reply.bytes.copy(static_cast<char *>(bytes), capacity);
    return static_cast<ssize_t>(count);
}

} // namespace

extern "C" {

int socket(int domain, int type, int protocol) noexcept {
    return fails("socket") ? -1 : real(socket, "socket")(domain, type, protocol);
}

int bind(int socket, const sockaddr *address, socklen_t length) noexcept {
    if (fails("bind")) return -1;
    record(network.bound, [&] { return datagram(address, "", 0); });
    return network.simulated ? 0 : real(bind, "bind")(socket, address, length);
}

int connect(int socket, const sockaddr *address, socklen_t length) {
    network.connected = socket;
    const int result = real(connect, "connect")(socket, address, length);
    return fails("connect") ? -1 : result; // an interrupted one goes on
}

int getsockopt(int socket, int level, int option, void *value, socklen_t *length) noexcept {
    const int result = real(getsockopt, "getsockopt")(socket, level, option, value, length);
    if (option == SO_ERROR && fails("SO_ERROR")) memcpy(value, &errno, sizeof errno);
    return result;
}

ssize_t sendto(int socket, const void *bytes, size_t count, int flags, const sockaddr *address,
               socklen_t length) {
    int broadcast = 0;
    socklen_t size = sizeof broadcast;
    getsockopt(socket, SOL_SOCKET, SO_BROADCAST, &broadcast, &size);
    record(network.sent, [&] {
        Datagram sent = datagram(address, bytes, count);
        sent.broadcast = broadcast != 0;
        return sent;
    });
    if (fails("sendto")) return -1;
    if (network.simulated) return static_cast<ssize_t>(count);
    return real(sendto, "sendto")(socket, bytes, count, flags, address, length);
}

ssize_t recvfrom(int socket, void *bytes, size_t capacity, int flags, sockaddr *from,
                 socklen_t *length) {
    if (fails("recvfrom")) return -1;
    if (network.simulated) return deliver(bytes, capacity, from);
    return real(recvfrom, "recvfrom")(socket, bytes, capacity, flags, from, length);
}

int poll(pollfd *entries, nfds_t count, int time_out) {
    record(network.waits, [=] { return time_out; });
    network.peer();
    if (fails("poll")) return -1;
    if (!network.simulated) return real(poll, "poll")(entries, count, time_out);
    return network.replies.empty() ? 0 : 1;
}
}
