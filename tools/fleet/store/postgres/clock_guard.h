// Whether the server's clock can be trusted with deleting what is old.
#pragma once

#include "fleet/store/postgres/connection.h"

#include <optional>

namespace dtfleet::postgres {

// The clock is held while it and the time since this machine's boot have moved apart by more than
// an hour since it was trusted. While no collector is at work nothing measures the time: then it is
// held when it stands before the time last seen, or more than three days (a weekend) behind it.
class ClockGuard {
public:
    explicit ClockGuard(Connection &connection) : connection_(connection) {}

    bool is_held();

    // It is not held, and was seen.
    void note();

    // From now on it is trusted, by all collectors.
    void accept();

private:
    struct Trusted {
        Microseconds offset = 0; // of the server's clock from the time since boot
        int64_t accepted = 0;    // how often somebody has said that it is right
    };

    Connection &connection_;
    std::optional<Trusted> trusted_;
    Microseconds noted_ = 0;
};

} // namespace dtfleet::postgres
