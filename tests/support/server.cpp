#include "support/server.h"

#include "support/network.h"

#include <base/endpoint.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <iostream>
#include <signal.h>
#include <string.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

bool read_all(int fd, void *bytes, size_t count) {
    return count == 0 || recv(fd, bytes, count, MSG_WAITALL) == static_cast<ssize_t>(count);
}

// Each test has the ports to itself: in a network of its own or, where none is allowed, one test
// after the other.
struct OwnNetwork : testing::Environment {
    void SetUp() override {
        const std::string reason = enter_private_network();
        if (reason.empty()) return;
        std::cerr << reason << "; UDP ports 8998, 8999 and 9099 must be free on this machine\n";
        flock(open("/tmp", O_RDONLY), LOCK_EX);
    }
};

const testing::Environment *const own_network = testing::AddGlobalTestEnvironment(new OwnNetwork);

} // namespace

std::ostream &operator<<(std::ostream &out, const Message &message) {
    return out << "type " << message.type << " #" << message.sequence << " "
               << testing::PrintToString(message.payload);
}

CollectionServer::CollectionServer(int answers)
    : CollectionServer([answers](int fd) mutable {
          return send(fd, "ok", 2, MSG_NOSIGNAL) == 2 && --answers > 0;
      }) {}

CollectionServer::CollectionServer(Answer answer, Answer greeting) {
    listener_ = listen_on_loopback(&port_, 1);
    thread_ = std::thread(&CollectionServer::serve, this, std::move(answer), std::move(greeting));
}

CollectionServer::~CollectionServer() {
    // Ends a wait for a connection that never came, or for a device that keeps one open.
    ending_ = true;
    shutdown(listener_, SHUT_RDWR);
    shutdown(connection_, SHUT_RDWR);
    messages();
    close(listener_);
}

const std::vector<Message> &CollectionServer::messages() {
    if (thread_.joinable()) thread_.join();
    return messages_;
}

std::vector<std::string> CollectionServer::payloads() {
    std::vector<std::string> all;
    for (const Message &message : messages()) all.push_back(message.payload);
    return all;
}

void CollectionServer::serve(const Answer &answer, const Answer &greeting) {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_BLOCK, &all, nullptr);
    const int fd = connection_ = accept(listener_, nullptr, nullptr);
    if (fd < 0 || !greeting || greeting(fd))
        while (fd >= 0 && !ending_ && read_message(fd) && answer(fd)) {
        }
    connection_ = -1;
    close(fd);
}

bool CollectionServer::read_message(int fd) {
    uint32_t header[3];
    if (!read_all(fd, header, sizeof header)) return false;
    EXPECT_GE(header[0], 12u);
    EXPECT_LE(header[0], 1036u);
    std::string payload(header[0] - 12, '\0');
    if (!read_all(fd, payload.data(), payload.size())) return false;
    messages_.push_back({header[1], header[2], payload});
    return true;
}

int bind_to_loopback(int type, uint16_t *port) {
    const int bound = socket(AF_INET, type, 0);
    sockaddr_in any = dt::endpoint(htonl(INADDR_LOOPBACK), 0);
    socklen_t size = sizeof any;
    EXPECT_EQ(bind(bound, dt::generic(&any), size), 0);
    getsockname(bound, reinterpret_cast<sockaddr *>(&any), &size);
    *port = ntohs(any.sin_port);
    return bound;
}

int listen_on_loopback(uint16_t *port, int backlog) {
    const int listener = bind_to_loopback(SOCK_STREAM, port);
    EXPECT_EQ(listen(listener, backlog), 0);
    return listener;
}

int sender_to(uint16_t port) {
    const int sender = socket(AF_INET, SOCK_DGRAM, 0);
    const sockaddr_in to = dt::endpoint(htonl(INADDR_LOOPBACK), port);
    connect(sender, dt::generic(&to), sizeof to);
    return sender;
}

bool reset(int fd) {
    const linger at_once = {1, 0};
    setsockopt(fd, SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
    return false;
}

int open_descriptors() {
    int count = 0;
    for (int fd = 0; fd < 1024; ++fd) count += fcntl(fd, F_GETFD) >= 0;
    return count;
}
