// Reader on SQLite: a connection of its own that cannot write.
#include "fleet/store/sqlite/chart.h"
#include "fleet/store/sqlite/history.h"
#include "fleet/store/sqlite/open.h"
#include "fleet/store/sqlite/rows.h"
#include "fleet/store/sqlite/schema.h"

#include "decode/wire.h"

#include <algorithm>
#include <set>

namespace dtfleet::sqlite {
namespace {

using dt::decode::wire::selftest_command;

const std::string some_devices =
    "SELECT id, name, address, port, groups, interval, listed, identity_expected, identity_seen, "
    "address_seen, paused_until, last_try, last_ok, failures, last_outcome, last_reason, "
    "last_duration, identity_listed FROM device ";
const std::string all_devices = some_devices + "WHERE name IS NOT NULL ORDER BY name";
const std::string one_device = some_devices + "WHERE name = ?";

std::optional<uint16_t> identity_in(const Statement &row, int column) {
    if (row.is_null(column)) return std::nullopt;
    return static_cast<uint16_t>(row.number(column));
}

DeviceState device_in(const Statement &row) {
    DeviceState device;
    device.id = row.number(0);
    device.name = row.bytes(1);
    device.address = row.bytes(2);
    device.port = static_cast<uint16_t>(row.number(3));
    device.groups = groups_of(row.bytes(4));
    device.interval = Seconds(row.number(5));
    device.is_listed = row.number(6) != 0;
    device.identity_expected = identity_in(row, 7);
    device.identity_seen = identity_in(row, 8);
    device.address_seen = row.bytes(9);
    device.paused_until = row.number(10);
    device.last_try = row.number(11);
    device.last_ok = row.number(12);
    device.failures = static_cast<uint32_t>(row.number(13));
    device.last_outcome = outcome_of(row.number(14));
    device.last_reason = row.bytes(15);
    device.last_duration = static_cast<uint32_t>(row.number(16));
    device.identity_listed = identity_in(row, 17);
    return device;
}

constexpr const char *all_series =
    "SELECT id, collector, section, key, type, name, unit, signed, log FROM series ORDER BY id";

RunRow run_in(const Statement &row) {
    RunRow found;
    found.collection = row.number(0);
    RunRecord &run = found.record;
    run.id = run_id(row.bytes(1));
    run.time = row.number(2);
    run.command = static_cast<uint32_t>(row.number(3));
    run.kind = run.command == selftest_command ? Kind::selftest : Kind::collection;
    run.outcome = outcome_of(row.number(4));
    run.reason = row.bytes(5);
    run.identity = identity_in(row, 6);
    run.address = row.bytes(7);
    run.messages = static_cast<uint32_t>(row.number(8));
    run.bytes = static_cast<uint64_t>(row.number(9));
    run.resends = static_cast<uint32_t>(row.number(10));
    run.to_connect = static_cast<uint32_t>(row.number(11));
    run.to_opening = static_cast<uint32_t>(row.number(12));
    run.to_end = static_cast<uint32_t>(row.number(13));
    return found;
}

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
        std::vector<DeviceState> devices;
        each_row(database_.statement(all_devices.c_str()),
                 [&](const Statement &row) { devices.push_back(device_in(row)); });
        return devices;
    }

    std::optional<DeviceState> device(std::string_view name) override {
        std::optional<DeviceState> device;
        each_row(database_.statement(one_device.c_str()).with(name),
                 [&](const Statement &row) { device = device_in(row); });
        return device;
    }

    std::vector<Series> series() override {
        std::vector<Series> series;
        each_row(database_.statement(all_series),
                 [&](const Statement &row) { series.push_back(series_in(row)); });
        return series;
    }

    std::vector<Series> series_of(int64_t device) override {
        const Transaction transaction(database_, Transaction::Kind::read);
        std::vector<Series> series;
        Statement &find = database_.statement(one_series);
        for (const int64_t id : ids_of_series(device))
            each_row(find.with(id),
                     [&](const Statement &row) { series.push_back(series_in(row)); });
        return series;
    }

    std::vector<LatestValue> latest(int64_t device, uint32_t command) override {
        const Transaction transaction(database_, Transaction::Kind::read);
        std::vector<LatestValue> values;
        const std::vector<CommandState> states = states_of(database_, device);
        const CommandState *found = state_for(states, command);
        if (!found) return values;
        for (const Entry &entry : found->state.entries)
            values.push_back({device, entry.series, entry.ordinal, entry.time, value_of(entry)});
        return values;
    }

    bool values(const ValueQuery &query, Place &after, size_t limit,
                std::vector<FlatValue> &rows) override {
        const Transaction transaction(database_, Transaction::Kind::read);
        return read_history(database_, query, after, limit, rows);
    }

    std::vector<RunRow> runs(int64_t device, int64_t before, size_t limit) override {
        const Transaction transaction(database_, Transaction::Kind::read);
        std::vector<RunRow> runs;
        Statement &find = database_.statement(
            "SELECT id, run, time, command, outcome, reason, identity, address, messages, bytes, "
            "resends, to_connect, to_opening, to_end FROM collection WHERE device = ?1 AND "
            "time <= ?2 AND (time < ?2 OR id < ?3) ORDER BY time DESC, id DESC LIMIT ?4");
        each_row(find.with(device, time_of(before), before, limit),
                 [&](const Statement &row) { runs.push_back(run_in(row)); });
        return runs;
    }

    std::vector<Point> points(int64_t device, int64_t series, uint32_t ordinal, Microseconds from,
                              Microseconds to, size_t columns) override {
        return read_chart(database_, {device, series, ordinal, from, to, columns});
    }

    std::vector<LogLine> log(int64_t device, int64_t series, int64_t before,
                             size_t limit) override {
        std::vector<LogLine> lines;
        Statement &find = database_.statement(
            "SELECT seq, stamp, text, time, gap_before FROM log WHERE device = ? AND series = ? "
            "AND seq < ? ORDER BY seq DESC LIMIT ?");
        each_row(find.with(device, series, before, limit), [&](const Statement &row) {
            lines.push_back({series, row.number(0), std::string(row.bytes(1)),
                             std::string(row.bytes(2)), row.number(3), row.number(4) != 0});
        });
        std::reverse(lines.begin(), lines.end());
        return lines;
    }

    std::vector<FaultRow> faults(int64_t device, int64_t before, size_t limit) override {
        std::vector<FaultRow> faults;
        Statement &find = database_.statement(
            "SELECT id, pass_time, fault, kind, stamp, value_id, value FROM fault WHERE device = ? "
            "AND id < ? ORDER BY id DESC LIMIT ?");
        each_row(find.with(device, before, limit), [&](const Statement &row) {
            faults.push_back({row.number(0), row.number(1), std::string(row.bytes(2)),
                              std::string(row.bytes(3)), std::string(row.bytes(4)),
                              static_cast<uint32_t>(row.number(5)), std::string(row.bytes(6))});
        });
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

    StoredValue value_of(const Entry &entry) {
        switch (entry.form) {
        case Entry::Form::number:
            return {StoredValue::Form::number, entry.number, {}};
        case Entry::Form::bytes:
            return {StoredValue::Form::bytes, 0, entry.bytes};
        case Entry::Form::row:
            return value_in_row(entry.number);
        case Entry::Form::gone:
            break;
        }
        return {};
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
