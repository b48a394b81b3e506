// Reader on SQLite: a connection of its own that cannot write.
#include "fleet/store/sqlite/chart.h"
#include "fleet/store/sqlite/history.h"
#include "fleet/store/sqlite/open.h"
#include "fleet/store/sqlite/rows.h"
#include "fleet/store/sqlite/schema.h"

#include <algorithm>
#include <set>

namespace dtfleet::sqlite {
namespace {

const std::string all_devices = std::string(select_devices) + "ORDER BY name";
const std::string one_device = std::string(select_devices) + "AND name = ?";
const std::string all_series = std::string(select_series) + "ORDER BY id";
const std::string runs_before = std::string(select_runs) +
                                "WHERE device = ?1 AND time <= ?2 AND (time < ?2 OR id < ?3) "
                                "ORDER BY time DESC, id DESC LIMIT ?4";
const std::string lines_before =
    std::string(select_lines) +
    "WHERE device = ? AND series = ? AND seq < ? ORDER BY seq DESC LIMIT ?";
const std::string faults_before =
    std::string(select_faults) + "WHERE device = ? AND id < ? ORDER BY id DESC LIMIT ?";

class SqliteReader final : public Reader {
public:
    explicit SqliteReader(const std::string &path) : database_(path, Database::Access::read) {
        check_schema(database_);
        database_.execute("PRAGMA cache_size = -16384"); // kB: a day's runs of a device
    }

    int64_t version() override {
        return database_.number("SELECT value FROM meta WHERE key = 'version'");
    }

    std::vector<DeviceState> devices() override {
        return list_of(database_.statement(all_devices.c_str()), device_in<Statement>);
    }

    std::optional<DeviceState> device(std::string_view name) override {
        std::optional<DeviceState> device;
        each_row(database_.statement(one_device.c_str()).with(name),
                 [&](const Statement &row) { device = device_in(row); });
        return device;
    }

    std::vector<Series> series() override {
        return list_of(database_.statement(all_series.c_str()), series_in<Statement>);
    }

    std::vector<Series> series_of(int64_t device) override {
        const Transaction transaction(database_, Transaction::Kind::read);
        std::vector<Series> series;
        for (const int64_t id : ids_of_series(device))
            if (auto found = find_series(database_, id)) series.push_back(std::move(*found));
        return series;
    }

    std::vector<LatestValue> latest(int64_t device, uint32_t command) override {
        const Transaction transaction(database_, Transaction::Kind::read);
        return latest_in(
            states_of(database_, device), device, command,
            [this](uint32_t, const Entry &entry) { return value_in_row(entry.number); });
    }

    bool values(const ValueQuery &query, Place &after, size_t limit,
                std::vector<FlatValue> &rows) override {
        const Transaction transaction(database_, Transaction::Kind::read);
        return read_history(database_, query, after, limit, rows);
    }

    std::vector<RunRow> runs(int64_t device, int64_t before, size_t limit) override {
        const Transaction transaction(database_, Transaction::Kind::read);
        const Microseconds time = time_of(before);
        return list_of(database_.statement(runs_before.c_str()).with(device, time, before, limit),
                       run_in<Statement>);
    }

    std::vector<Point> points(int64_t device, int64_t series, uint32_t ordinal, Microseconds from,
                              Microseconds to, size_t columns) override {
        return read_chart(database_, {device, series, ordinal, from, to, columns});
    }

    std::vector<LogLine> log(int64_t device, int64_t series, int64_t before,
                             size_t limit) override {
        auto lines =
            list_of(database_.statement(lines_before.c_str()).with(device, series, before, limit),
                    line_in<Statement>);
        std::reverse(lines.begin(), lines.end());
        return lines;
    }

    std::vector<FaultRow> faults(int64_t device, int64_t before, size_t limit) override {
        auto faults =
            list_of(database_.statement(faults_before.c_str()).with(device, before, limit),
                    fault_in<Statement>);
        std::reverse(faults.begin(), faults.end());
        return faults;
    }

private:
    // Those that its last runs brought, and its logs.
    std::set<int64_t> ids_of_series(int64_t device) {
        std::set<int64_t> ids;
        for (const CommandState &one : states_of(database_, device))
            for (const Entry &entry : one.state.entries) ids.insert(entry.series);
        each_row(database_.statement("SELECT series FROM log_tail WHERE device = ?").with(device),
                 [&](const Statement &row) { ids.insert(row.number(0)); });
        return ids;
    }

    StoredValue value_in_row(uint64_t id) {
        StoredValue value;
        each_row(database_.statement("SELECT value FROM value WHERE id = ?").with(id),
                 [&](const Statement &row) { value = stored_value(row, 0); });
        return value;
    }

    // Of a run; the end of time for one that is not there.
    Microseconds time_of(int64_t collection) {
        Microseconds time = INT64_MAX;
        each_row(database_.statement("SELECT time FROM collection WHERE id = ?").with(collection),
                 [&](const Statement &row) { time = row.number(0); });
        return time;
    }

    Database database_;
};

} // namespace

std::unique_ptr<Reader> open_reader(const std::string &path) {
    return std::make_unique<SqliteReader>(path);
}

} // namespace dtfleet::sqlite
