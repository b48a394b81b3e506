#include "bench/loopback.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <stdexcept>
#include <sys/socket.h>
#include <unistd.h>

namespace {

sockaddr_in loopback(uint16_t port) {
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

template <typename Address> sockaddr *generic(Address *address) {
    return reinterpret_cast<sockaddr *>(address);
}

int sends_at_once(int fd) {
    const int on = 1;
    setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    return fd;
}

} // namespace

bench::Listener::Listener() : fd_(socket(AF_INET, SOCK_STREAM, 0)) {
    sockaddr_in address = loopback(0);
    socklen_t size = sizeof address;
    if (bind(fd_, generic(&address), size) != 0 || listen(fd_, 5) != 0)
        throw std::runtime_error("no socket on loopback");
    getsockname(fd_, generic(&address), &size);
    port_ = ntohs(address.sin_port);
}

bench::Listener::~Listener() { close(fd_); }

int bench::Listener::accept() const { return sends_at_once(::accept(fd_, nullptr, nullptr)); }

int bench::connect_to(uint16_t port) {
    const int fd = socket(AF_INET, SOCK_STREAM, 0);
    const sockaddr_in address = loopback(port);
    if (connect(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0)
        throw std::runtime_error("no connection on loopback");
    return sends_at_once(fd);
}

bench::AnsweringServer::AnsweringServer() : thread_([this] { serve(); }) {}

bench::AnsweringServer::~AnsweringServer() {
    shutdown(fd_, SHUT_RDWR);
    thread_.join();
}

std::string bench::AnsweringServer::payload() const {
    return std::string(message_ + header_size, message_ + size_);
}

void bench::AnsweringServer::serve() {
    const char answer[answer_size] = {};
    for (int fd; (fd = accept()) >= 0; close(fd)) {
        for (ssize_t size; (size = recv(fd, message_, sizeof message_, 0)) > 0;) {
            size_ = static_cast<size_t>(size);
            send(fd, answer, sizeof answer, MSG_NOSIGNAL);
        }
    }
}
