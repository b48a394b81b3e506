// TCP on loopback, and a collection server that does nothing but answer.
#pragma once

#include "bench/inputs.h"

#include <stdint.h>
#include <string>
#include <thread>

namespace bench {

class Listener {
public:
    Listener();
    Listener(const Listener &) = delete;
    ~Listener();

    uint16_t port() const { return port_; }
    int accept() const; // sends at once

protected:
    int fd_;

private:
    uint16_t port_;
};

int connect_to(uint16_t port); // sends at once

// Answers every message on a thread of its own, connection after connection. A message is what one
// receive finds: on loopback that is what one send sent.
class AnsweringServer : public Listener {
public:
    AnsweringServer();
    ~AnsweringServer();

    // The payload of the newest message; nobody may be sending.
    std::string payload() const;

private:
    void serve();

    std::thread thread_;
    char message_[message_size];
    size_t size_ = 0;
};

} // namespace bench
