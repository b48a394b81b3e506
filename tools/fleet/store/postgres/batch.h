// Some runs on their way into the database, in one transaction.
#pragma once

#include "fleet/store/postgres/working.h"

#include <span>
#include <unordered_map>

namespace dtfleet::postgres {

// The four columns of a run's values.
std::string columns_of(const std::vector<Row> &rows);

// Which runs are stored, by their times and ids.
std::vector<bool> known_runs(Connection &connection, const std::vector<int64_t> &times,
                             const std::vector<std::string> &ids);

class Batch {
public:
    // The runs must outlive it.
    // looks_for_runs: some may be stored already. Otherwise that is a conflict.
    Batch(Connection &connection, SeriesTable &series, std::span<const RunRecord *const> runs,
          bool looks_for_runs)
        : connection_(connection), series_(series), runs_(runs), looks_for_runs_(looks_for_runs),
          rollups_(connection, series), logs_(connection) {}

    // Stores those that are not there yet. Throws Conflict when somebody else was faster; then it
    // can be done again, by another batch.
    void store();

    size_t staged_bytes() const { return staged_bytes_; }

private:
    // A device, and what the batch tells of it.
    struct Known {
        int64_t id = 0;
        int64_t epoch = 0;               // of the lease that holds
        int64_t last_try = 0;            // as all that follows, those that are stored included
        const RunRecord *last = nullptr; // that tells of it
        std::optional<Microseconds> last_ok;
        int64_t failures = 0; // since
        std::optional<uint16_t> identity;
        std::string address;
        LeaseMark lease;
    };
    // A run with what else is known of it.
    struct Item {
        const RunRecord *run;
        Known *device;
        int64_t place; // in the batch
        Arrivals arrivals;

        States::Of of() const { return {device->id, run->command}; }
    };

    void leave_out_known();
    void make_days();
    void find_devices();
    void take_ids(const Result &devices);
    void begin_items();
    void read();
    void compute();
    void compute(Item &item, States::One &one);
    bool is_history(const Item &item, const States::One &one) const;
    std::string compare(Item &item, States::One &one);
    std::string list_history(const Item &item);
    static void note(const RunRecord &run, Known &device);
    void put_run(const Item &item, bool is_history, const std::string &values);
    void stage_devices(Rows &rows) const;
    void copy(const char *sql, const Rows &rows);
    void commit();

    Connection &connection_;
    SeriesTable &series_;
    std::span<const RunRecord *const> runs_;
    bool looks_for_runs_;
    std::vector<const RunRecord *> new_runs_;
    std::unordered_map<std::string, Known> devices_; // by name
    std::vector<Item> items_;
    States states_;
    Rollups rollups_;
    LogBook logs_;
    size_t staged_bytes_ = 0;
    Rows rows_{20};
};

} // namespace dtfleet::postgres
