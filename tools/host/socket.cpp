#include "host/socket.h"

#include "host/failure.h"
#include "host/text.h"

#include <fmt/format.h>

#include <arpa/inet.h>
#include <fcntl.h>
#include <netdb.h>
#include <poll.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>
#include <memory>

namespace dtctl {
namespace {

Fd make_socket(int type) {
    Fd fd(::socket(AF_INET, type | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!fd)
        throw Failure(Exit::failed, fmt::format("cannot make a socket: {}", std::strerror(errno)));
    return fd;
}

template <typename Call> int with_address(sockaddr_in &address, Call call) {
    socklen_t length = sizeof(address);
    return call(reinterpret_cast<sockaddr *>(&address), &length);
}

[[noreturn]] void report_unknown(const std::string &host, const char *reason) {
    throw Failure(Exit::unreachable,
                  fmt::format("no IPv4 address for '{}': {}", escape(host), reason));
}

sockaddr_in look_up(const std::string &name) {
    addrinfo hints{};
    hints.ai_family = AF_INET;
    hints.ai_socktype = SOCK_DGRAM;
    addrinfo *found = nullptr;
    const int error = ::getaddrinfo(name.c_str(), nullptr, &hints, &found);
    if (error != 0) report_unknown(name, ::gai_strerror(error));
    const std::unique_ptr<addrinfo, void (*)(addrinfo *)> owner(found, ::freeaddrinfo);
    sockaddr_in address{};
    std::memcpy(&address, found->ai_addr, sizeof(address));
    return address;
}

} // namespace

sockaddr_in resolve(const std::string &host, uint16_t port) {
    sockaddr_in address{};
    in_addr loose{};
    if (::inet_pton(AF_INET, host.c_str(), &address.sin_addr) == 1) {
        address.sin_family = AF_INET;
    } else if (::inet_aton(host.c_str(), &loose) != 0) {
        report_unknown(host, "an address has four decimal numbers");
    } else {
        address = look_up(host);
    }
    address.sin_port = htons(port);
    return address;
}

std::string address_text(const sockaddr_in &address) {
    char text[INET_ADDRSTRLEN];
    return ::inet_ntop(AF_INET, &address.sin_addr, text, sizeof(text));
}

Fd listen_on(uint16_t port, int backlog) {
    Fd fd = make_socket(SOCK_STREAM);
    const int on = 1;
    (void)::setsockopt(fd.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on));
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_ANY);
    address.sin_port = htons(port);
    if (::bind(fd.get(), reinterpret_cast<sockaddr *>(&address), sizeof(address)) != 0 ||
        ::listen(fd.get(), backlog) != 0) {
        throw Failure(Exit::unreachable,
                      fmt::format("cannot listen on TCP port {}: {}", port, std::strerror(errno)));
    }
    return fd;
}

uint16_t local_port(const Fd &fd) {
    sockaddr_in address{};
    const int result = with_address(address, [&](sockaddr *out, socklen_t *length) {
        return ::getsockname(fd.get(), out, length);
    });
    if (result != 0) throw Failure(Exit::failed, std::strerror(errno));
    return ntohs(address.sin_port);
}

Fd connect_udp(const sockaddr_in &peer) {
    Fd fd = make_socket(SOCK_DGRAM);
    if (::connect(fd.get(), reinterpret_cast<const sockaddr *>(&peer), sizeof(peer)) != 0) {
        throw Failure(Exit::unreachable,
                      fmt::format("cannot reach {}: {}", address_text(peer), std::strerror(errno)));
    }
    return fd;
}

Fd bind_udp(const std::string &host, uint16_t port) {
    const sockaddr_in address = resolve(host, port);
    Fd fd = make_socket(SOCK_DGRAM);
    if (::bind(fd.get(), reinterpret_cast<const sockaddr *>(&address), sizeof(address)) != 0) {
        throw Failure(Exit::unreachable,
                      fmt::format("cannot listen on {} UDP port {}: {}", address_text(address),
                                  port, std::strerror(errno)));
    }
    return fd;
}

bool would_block(int error) { return error == EAGAIN || error == EWOULDBLOCK; }

Fd accept_from(const Fd &listener, sockaddr_in &peer) {
    return Fd(with_address(peer, [&](sockaddr *out, socklen_t *length) {
        return ::accept4(listener.get(), out, length, SOCK_CLOEXEC | SOCK_NONBLOCK);
    }));
}

bool wait_for(const Fd &fd, short events, Clock::time_point until) {
    for (;;) {
        pollfd entry{fd.get(), events, 0};
        const int ready = ::poll(&entry, 1, milliseconds_until(until));
        if (ready > 0) return true;
        if (ready == 0) return false;
        if (errno != EINTR)
            throw Failure(Exit::failed, fmt::format("poll: {}", std::strerror(errno)));
    }
}

} // namespace dtctl
