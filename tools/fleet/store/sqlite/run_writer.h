// Stores runs, inside a transaction that others begin and end.
#pragma once

#include "fleet/store/arrivals.h"
#include "fleet/store/comparison.h"
#include "fleet/store/series.h"
#include "fleet/store/sqlite/database.h"

#include <span>

namespace dtfleet::sqlite {

class RunWriter {
public:
    RunWriter(Database &database, SeriesTable &series) : database_(database), series_(series) {}

    // At the begin and the end of each transaction: the next ids are in the database, for other
    // processes may import runs.
    void begin();
    void end();

    // Leaves out a run that is there already.
    void write(const RunRecord &run);

private:
    bool is_there(const RunRecord &run);
    bool has_value(int64_t row, std::string_view bytes);
    bool read_state(int64_t device, uint32_t command, State &state);
    void save_state(int64_t device, uint32_t command, const State &state);
    size_t write_values(const RunRecord &run, int64_t device, Arrivals &arrivals, State state);
    size_t write_history(const RunRecord &run, int64_t device, Arrivals &arrivals);
    void insert_rows(std::span<const Row> rows);
    void write_logs(const RunRecord &run, int64_t device, const Arrivals &arrivals);
    void insert_collection(const RunRecord &run, int64_t device, size_t count, bool is_history);

    Database &database_;
    SeriesTable &series_;
    int64_t next_collection_ = 0;
    int64_t next_value_ = 0;
};

} // namespace dtfleet::sqlite
