// A collection server that records every byte. It listens on loopback and serves one connection on
// a thread of its own, which no signal interrupts.
#pragma once

#include "support/wire.h"

#include <atomic>
#include <functional>
#include <stdint.h>
#include <string>
#include <thread>
#include <vector>

struct Message {
    uint32_t type;
    uint32_t sequence;
    std::string payload;

    bool operator==(const Message &) const = default;
};

std::ostream &operator<<(std::ostream &out, const Message &message);

class CollectionServer {
public:
    // Does with the connection what it likes, after each message or at once; false closes it.
    using Answer = std::function<bool(int fd)>;

    // Answers that many messages, then closes the connection.
    explicit CollectionServer(int answers = 1000000);
    explicit CollectionServer(Answer answer, Answer greeting = {});
    ~CollectionServer();

    uint16_t port() const { return port_; }

    // Wait for the end of the connection; what arrived, message by message.
    const std::vector<Message> &messages();
    std::vector<std::string> payloads();

private:
    void serve(const Answer &answer, const Answer &greeting);
    bool read_message(int fd);

    int listener_;
    std::atomic<int> connection_ = -1;
    std::atomic<bool> ending_ = false;
    uint16_t port_;
    std::vector<Message> messages_;
    std::thread thread_;
};

// An answer: the connection ends with a reset.
bool reset(int fd);

int open_descriptors();

// A socket on loopback, and somebody listening there, at a port that is returned.
int bind_to_loopback(int type, uint16_t *port);
int listen_on_loopback(uint16_t *port, int backlog);

// A socket that sends datagrams to a port on loopback.
int sender_to(uint16_t port);
