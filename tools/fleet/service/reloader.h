// Reads an inventory, on a thread of its own: a large one must not stop the loop.
#pragma once

#include "fleet/engine/loop.h"
#include "fleet/inventory/inventory.h"

#include <functional>
#include <thread>

namespace dtfleet {

class Reloader {
public:
    // Called by the thread; what it throws becomes a complaint of something unread.
    using Read = std::function<Loaded()>;

    // Called by the loop with what was read.
    using Done = std::function<void(Loaded)>;

    // The loop must outlive it. Throws dtctl::Failure.
    Reloader(Loop &loop, Done done);
    ~Reloader();
    Reloader(const Reloader &) = delete;
    Reloader &operator=(const Reloader &) = delete;

    // While something is being read, this is afterwards, and that is for nothing: it may have
    // changed behind the reader.
    void start(Read read);
    bool is_reading() const { return thread_.joinable(); }

private:
    void begin();
    void finish();

    Loop &loop_;
    Done done_;
    dtctl::Fd finished_; // written to by the thread
    uint64_t number_ = 0;
    std::thread thread_;
    Loaded loaded_; // the thread's until it has finished
    Read next_;     // when it has finished; empty: nothing
};

} // namespace dtfleet
