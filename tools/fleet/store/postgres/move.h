// The history of a file, brought to a server.
#pragma once

#include "fleet/store/postgres/connection.h"
#include "fleet/store/postgres/copy.h"
#include "fleet/store/series.h"
#include "fleet/store/sqlite/database.h"
#include "fleet/store/upkeep.h"

#include <map>
#include <set>

namespace dtfleet::postgres {

class Move {
public:
    // All must outlive it. The connection has its stage.
    Move(sqlite::Database &file, Connection &connection, SeriesRows &series, const Advance &advance)
        : file_(file), connection_(connection), series_rows_(series), advance_(advance) {}

    // Each part leaves what the server has as it is: done twice, it is as if done once.
    Moved all();

private:
    void move_devices();
    void move_series();
    void move_runs();
    int64_t move_some_runs(int64_t after);
    void stage_run(Rows &rows, int64_t place, const sqlite::Statement &run);
    void make_day(int64_t day);
    void move_states();
    void move_state(int64_t device, const sqlite::Statement &row);
    void move_sums();
    void move_logs();
    void move_faults();
    void compare();

    // Of the file's ids; 0: a device that is forgotten, a series that is none.
    int64_t device(int64_t id) const;
    int64_t series(int64_t id) const;

    sqlite::Database &file_;
    Connection &connection_;
    SeriesRows &series_rows_;
    const Advance &advance_;
    std::string name_; // of the file: its first run's
    std::map<int64_t, int64_t> devices_, series_;
    std::set<int64_t> days_; // that are there
    Moved moved_;
};

} // namespace dtfleet::postgres
