// What is made ahead and what is deleted, and when. The writer's thread calls it between its
// transactions; of several collectors one at a time does it.
#pragma once

#include "fleet/inventory/inventory.h"
#include "fleet/store/postgres/clock_guard.h"
#include "fleet/store/postgres/connection.h"

#include <chrono>

namespace dtfleet::postgres {

class Housekeeper {
public:
    // The connection must outlive it.
    Housekeeper(Connection &connection, const Retention &retention)
        : connection_(connection), guard_(connection), retention_(retention) {}

    // Whatever it says now is looked at soon.
    void take(const Retention &retention);

    // Does a slice of well under a second; true: there is more to do. While the clock is held
    // nothing is deleted but what an operator told to forget.
    bool tidy();

    ClockGuard &guard() { return guard_; }

    // The values take more space than they should, and no day is left that may be deleted.
    bool is_too_large() const { return is_too_large_; }

private:
    bool sweep();
    bool delete_some();
    bool drop_old_day();
    bool deletes(const char *sql);
    bool forget_removed();

    Connection &connection_;
    ClockGuard guard_;
    Retention retention_;
    Microseconds now_ = 0;   // of the server, when the slice began
    Microseconds bound_ = 0; // what is older goes, of what is kept for long
    bool is_too_large_ = false;
    std::chrono::steady_clock::time_point next_days_{};
};

} // namespace dtfleet::postgres
