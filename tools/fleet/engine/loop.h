// Calls whoever has something to read.
#pragma once

#include "fleet/engine/time.h"
#include "host/fd.h"

#include <cstdint>
#include <functional>
#include <unordered_map>

namespace dtfleet {

class Loop {
public:
    using Handler = std::function<void()>;

    // Throws dtctl::Failure when the system has no epoll to give.
    Loop();

    // Calls the handler whenever there is something to read, until it is removed. The descriptor
    // must stay open until then. Returns the entry's number, never 0; throws dtctl::Failure.
    uint64_t add(int fd, Handler handler);
    void remove(uint64_t number, int fd);

    // What the handler is called for: something to read, room to write, or neither for a while.
    void watch(uint64_t number, int fd, bool input, bool room);

    // Waits until there is something to read, or that time has come, and calls the handlers, which
    // may add and remove what they like. False when there was more to do than one turn may take.
    bool wait(Time until);

private:
    int call_ready(int timeout);

    dtctl::Fd poll_;
    std::unordered_map<uint64_t, Handler> handlers_;
    uint64_t last_ = 0;
};

} // namespace dtfleet
