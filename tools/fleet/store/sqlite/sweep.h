// Deletes what is old, device by device.
#pragma once

#include "fleet/store/sqlite/database.h"
#include "fleet/store/state.h"

#include <cstdint>
#include <vector>

namespace dtfleet::sqlite {

class Sweep {
public:
    // Days since 1970; what is before them is deleted.
    struct Bounds {
        int64_t runs = 0;   // runs and their values
        int64_t others = 0; // the hours' sums, lines of logs, imported faults
    };

    // Deleted are whole days, but never: values since a device's last whole run of a day was stored
    // with all its values, for those that follow lean on it; values that a device brought last; the
    // lines that a device sends still; the faults of a file that is not old itself.
    Sweep(Database &database, const Bounds &bounds, Microseconds now)
        : database_(database), bounds_(bounds), now_(now) {}

    // Goes on for well under a second, in one transaction; true: there is more to do. Not to be
    // called again when it has thrown.
    bool step();

    // When it is over: the day of the oldest run or sum that is not before the bounds, be it one of
    // those that are never deleted; INT64_MAX: there is none.
    int64_t oldest_left() const { return oldest_left_; }

private:
    // Of the runs of one command of the device.
    struct Guard {
        int64_t command = 0;
        int64_t full_day = 0;
        std::vector<int64_t> rows; // values that the state points to
    };
    struct Run {
        int64_t id, time, command, first, count;
    };

    bool step_device();
    void go_to_device(int64_t device);
    bool delete_runs();
    bool is_kept(const Run &run);
    void read_guards();
    bool delete_sums();
    bool delete_lines();
    bool delete_lines_of(int64_t series, int64_t tail);
    bool delete_faults();
    void note_oldest();

    Database &database_;
    Bounds bounds_;
    Microseconds now_;
    int64_t device_ = 0;
    Microseconds after_time_ = INT64_MIN; // the last run that was looked at
    int64_t after_id_ = 0;
    bool has_guards_ = false;
    std::vector<Guard> guards_;
    int64_t oldest_left_ = INT64_MAX;
};

} // namespace dtfleet::sqlite
