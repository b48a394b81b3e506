#include "support/network.h"

#include <algorithm>
#include <base/endpoint.h>
#include <dlfcn.h>
#include <errno.h>
#include <mutex>
#include <net/if.h>
#include <net/route.h>
#include <poll.h>
#include <sched.h>
#include <string.h>
#include <sys/ioctl.h>
#include <unistd.h>

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

bool set_up_loopback(int socket) {
    ifreq request = {};
    strcpy(request.ifr_name, "lo");
    request.ifr_flags = IFF_UP | IFF_RUNNING;
    if (ioctl(socket, SIOCSIFFLAGS, &request) != 0) return false;
    const sockaddr_in own = dt::endpoint(inet_addr("10.1.1.1"), 0);
    strcpy(request.ifr_name, "lo:1");
    memcpy(&request.ifr_addr, &own, sizeof own);
    return ioctl(socket, SIOCSIFADDR, &request) == 0;
}

bool route_broadcasts_to_loopback(int socket) {
    static char device[] = "lo";
    const sockaddr_in everybody = dt::endpoint(INADDR_BROADCAST, 0);
    rtentry route = {};
    memcpy(&route.rt_dst, &everybody, sizeof everybody);
    memcpy(&route.rt_genmask, &everybody, sizeof everybody);
    route.rt_flags = RTF_UP | RTF_HOST;
    route.rt_dev = device;
    return ioctl(socket, SIOCADDRT, &route) == 0;
}

} // namespace

std::string enter_private_network() {
    if (unshare(CLONE_NEWNET) != 0 && unshare(CLONE_NEWUSER | CLONE_NEWNET) != 0)
        return std::string("no network namespace: ") + strerror(errno);
    const int control = socket(AF_INET, SOCK_DGRAM, 0);
    const bool ready = set_up_loopback(control) && route_broadcasts_to_loopback(control);
    const int reason = errno;
    close(control);
    return ready ? "" : std::string("no loopback in a network namespace: ") + strerror(reason);
}

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

ssize_t send(int socket, const void *bytes, size_t count, int flags) {
    return real(send, "send")(socket, bytes, std::min(count, network.longest_send), flags);
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
