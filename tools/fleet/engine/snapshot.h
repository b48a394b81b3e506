// How the service is, as other threads may see it.
#pragma once

#include "fleet/engine/statistics.h"
#include "fleet/store/leases.h"

#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace dtfleet {

// Of a collector that shares its database with others.
struct SharedState {
    std::vector<CollectorState> collectors; // at work, this one included
    size_t held = 0;                        // leases
    Time oldest{};                          // of these, the time since it was claimed or renewed
    uint64_t claimed = 0;                   // leases since the start,
    uint64_t renewed = 0;                   // and so on
    uint64_t lost = 0;                      // that were another's when they were to be renewed
    uint64_t returned = 0;                  // without a run
    uint64_t spool_runs = 0;                // that wait on the disk,
    uint64_t spool_bytes = 0;
    uint64_t spooled = 0; // that ever went there
    std::string away;     // why the database cannot be reached; empty: it can
};

struct Snapshot {
    Statistics statistics;
    size_t devices = 0; // in the inventory
    size_t queued = 0;  // due, without a place yet
    size_t waiting = 0; // asked, not connected yet
    size_t connected = 0;
    size_t window = 0;       // runs that may wait at present
    uint64_t stored = 0;     // runs committed
    uint64_t dropped = 0;    // runs lost because they could not be stored
    size_t writing = 0;      // runs on their way to the database
    bool clock_held = false; // nothing is deleted: the clock has moved
    bool too_large = false;  // the database is, and nothing may be deleted
    std::string not_ready;   // why nothing is asked; empty: ready
    std::optional<SharedState> shared;
    Time turned{}; // the loop's last turn
};

// The loop puts one up each second; anyone takes a copy.
class Board {
public:
    void put(Snapshot snapshot) {
        const std::lock_guard lock(mutex_);
        snapshot_ = std::move(snapshot);
    }
    Snapshot get() const {
        const std::lock_guard lock(mutex_);
        return snapshot_;
    }

private:
    mutable std::mutex mutex_;
    Snapshot snapshot_;
};

} // namespace dtfleet
