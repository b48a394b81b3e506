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

    // Calls it as well, or no longer, when there is room to write.
    void watch_room(uint64_t number, int fd, bool wanted);

    // Waits until there is something to read, or that time has come, and calls the handlers, which
    // may add and remove what they like.
    void wait(Time until);

private:
    dtctl::Fd poll_;
    std::unordered_map<uint64_t, Handler> handlers_;
    uint64_t last_ = 0;
};

} // namespace dtfleet
