// Reads the inventory again, on a thread of its own: a large one must not stop the loop.
#pragma once

#include "fleet/engine/loop.h"
#include "fleet/inventory/inventory.h"

#include <functional>
#include <string>
#include <thread>

namespace dtfleet {

class Reloader {
public:
    // Called by the loop with what was read.
    using Done = std::function<void(Loaded)>;

    // The loop must outlive it. Throws dtctl::Failure.
    Reloader(std::string file, Loop &loop, Done done);
    ~Reloader();
    Reloader(const Reloader &) = delete;
    Reloader &operator=(const Reloader &) = delete;

    // Reads the file; while it is being read, once more afterwards, as it may have changed behind
    // the reader.
    void start();
    bool is_reading() const { return thread_.joinable(); }

private:
    void begin();
    void finish();

    std::string file_;
    Loop &loop_;
    Done done_;
    dtctl::Fd finished_; // written to by the thread
    uint64_t number_ = 0;
    std::thread thread_;
    Loaded loaded_; // the thread's until it has finished
    bool again_ = false;
};

} // namespace dtfleet
