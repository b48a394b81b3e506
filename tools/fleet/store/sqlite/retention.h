// What is deleted, and when. The writer's thread calls it between its transactions.
#pragma once

#include "fleet/inventory/inventory.h"
#include "fleet/store/sqlite/clock_guard.h"
#include "fleet/store/sqlite/database.h"
#include "fleet/store/sqlite/sweep.h"

#include <optional>

namespace dtfleet::sqlite {

class Housekeeper {
public:
    // The database must outlive it.
    Housekeeper(Database &database, const Retention &retention)
        : database_(database), retention_(retention) {}

    void take(const Retention &retention);

    // Does a slice of well under a second; true: there is more to do. While the clock is held
    // nothing is deleted but what an operator told to forget.
    bool tidy(const Clocks &now);

    // The database is larger than it should be, and nothing is left that may be deleted.
    bool is_too_large() const { return is_too_large_; }

private:
    bool sweep(const Clocks &now);
    void begin_sweep(const Clocks &now);
    void forget_removed(int64_t day);
    bool is_large();
    bool give_back();

    Database &database_;
    Retention retention_;
    std::optional<Sweep> sweep_;      // that is under way
    Microseconds next_sweep_ = 0;     // since boot
    int64_t oldest_left_ = INT64_MAX; // the day of the oldest, as the last sweep found it
    bool is_too_large_ = false;
};

} // namespace dtfleet::sqlite
