#include "fleet/engine/commander.h"

#include "decode/wire.h"
#include "host/failure.h"

#include <fmt/format.h>

#include <sys/socket.h>
// Behind the system's own, which it does not include.
#include <linux/errqueue.h>

#include <cerrno>
#include <cstring>

namespace dtfleet {

Commander::Commander() : socket_(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)) {
    const int on = 1;
    if (!socket_ || ::setsockopt(socket_.get(), IPPROTO_IP, IP_RECVERR, &on, sizeof on) != 0)
        throw dtctl::Failure(dtctl::Exit::failed,
                             fmt::format("cannot make a socket: {}", std::strerror(errno)));
}

void Commander::allow_broadcast() {
    const int on = 1;
    (void)::setsockopt(socket_.get(), SOL_SOCKET, SO_BROADCAST, &on, sizeof on);
}

bool Commander::send(const Endpoint &device, uint32_t command, uint32_t token, uint16_t port) {
    namespace wire = dt::decode::wire;
    const uint32_t words[] = {wire::command_size, command, token, port};
    const auto datagram = wire::packed(words);
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_addr.s_addr = device.ip;
    to.sin_port = htons(device.port);
    // An error that an earlier message met is reported by this call first, in place of sending.
    for (int attempt = 0; attempt < 3; ++attempt) {
        if (::sendto(socket_.get(), datagram.data(), datagram.size(), 0,
                     reinterpret_cast<const sockaddr *>(&to), sizeof to) >= 0)
            return true;
        if (errno == EAGAIN || errno == ENOBUFS) return true;
    }
    return false;
}

std::optional<std::pair<Endpoint, int>> Commander::next_refusal() {
    alignas(cmsghdr) char control[256];
    char ignored[64];
    iovec area{ignored, sizeof ignored};
    for (;;) {
        sockaddr_in to{};
        msghdr message{};
        message.msg_name = &to;
        message.msg_namelen = sizeof to;
        message.msg_iov = &area;
        message.msg_iovlen = 1;
        message.msg_control = control;
        message.msg_controllen = sizeof control;
        if (::recvmsg(socket_.get(), &message, MSG_ERRQUEUE) < 0) break;
        for (cmsghdr *part = CMSG_FIRSTHDR(&message); part; part = CMSG_NXTHDR(&message, part)) {
            if (part->cmsg_level != IPPROTO_IP || part->cmsg_type != IP_RECVERR) continue;
            sock_extended_err error{};
            std::memcpy(&error, CMSG_DATA(part), sizeof error);
            return std::pair(Endpoint{to.sin_addr.s_addr, ntohs(to.sin_port)},
                             static_cast<int>(error.ee_errno));
        }
    }
    // What somebody sends to this socket is no answer to anything.
    while (::recv(socket_.get(), ignored, sizeof ignored, 0) >= 0) {
    }
    return std::nullopt;
}

} // namespace dtfleet
