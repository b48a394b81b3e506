// A collection server that records every byte. It listens on loopback and serves one connection on
// a thread of its own.
#pragma once

#include <atomic>
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
    // Answers that many messages, then closes the connection.
    explicit CollectionServer(int answers = 1000000);
    ~CollectionServer();

    uint16_t port() const { return port_; }

    // Waits for the end of the connection; what arrived, message by message.
    const std::vector<Message> &messages();

private:
    void serve(int answers);
    bool read_message(int fd);

    int listener_;
    std::atomic<int> connection_ = -1;
    std::atomic<bool> ending_ = false;
    uint16_t port_;
    std::vector<Message> messages_;
    std::thread thread_;
};

// A descriptor number that is free now: the lowest.
int lowest_free_descriptor();
