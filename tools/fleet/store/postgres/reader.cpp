// Reader on PostgreSQL: a connection of its own that does not write.
#include "fleet/store/postgres/chart.h"
#include "fleet/store/postgres/history.h"
#include "fleet/store/postgres/open.h"
#include "fleet/store/postgres/rows.h"
#include "fleet/store/postgres/schema.h"

#include "decode/wire.h"

#include <algorithm>

namespace dtfleet::postgres {
namespace {

using dt::decode::wire::selftest_command;

constexpr const char *all_devices =
    "SELECT id, name, address, port, groups, interval, listed, identity_expected, identity_seen, "
    "address_seen, paused_until, last_try, last_ok, failures, last_outcome, last_reason, "
    "last_duration, identity_listed FROM device WHERE name IS NOT NULL AND ($1::text IS NULL OR "
    "name = $1) "
    "ORDER BY name COLLATE \"C\"";

std::optional<uint16_t> identity_in(const Result &rows, int row, int column) {
    if (rows.is_null(row, column)) return std::nullopt;
    return static_cast<uint16_t>(rows.number(row, column));
}

DeviceState device_in(const Result &rows, int row) {
    DeviceState device;
    device.id = rows.number(row, 0);
    device.name = rows.bytes(row, 1);
    device.address = rows.bytes(row, 2);
    device.port = static_cast<uint16_t>(rows.number(row, 3));
    device.groups = groups_of(rows.bytes(row, 4));
    device.interval = Seconds(rows.number(row, 5));
    device.is_listed = rows.number(row, 6) != 0;
    device.identity_expected = identity_in(rows, row, 7);
    device.identity_seen = identity_in(rows, row, 8);
    device.address_seen = rows.bytes(row, 9);
    device.paused_until = rows.number(row, 10);
    device.last_try = rows.number(row, 11);
    device.last_ok = rows.number(row, 12);
    device.failures = static_cast<uint32_t>(rows.number(row, 13));
    device.last_outcome = outcome_of(rows.number(row, 14));
    device.last_reason = rows.bytes(row, 15);
    device.last_duration = static_cast<uint32_t>(rows.number(row, 16));
    device.identity_listed = identity_in(rows, row, 17);
    return device;
}

RunRow run_in(const Result &rows, int row) {
    RunRow found;
    found.collection = rows.number(row, 0);
    RunRecord &run = found.record;
    run.id = run_id(rows.bytes(row, 1));
    run.time = rows.number(row, 2);
    run.command = static_cast<uint32_t>(rows.number(row, 3));
    run.kind = run.command == selftest_command ? Kind::selftest : Kind::collection;
    run.outcome = outcome_of(rows.number(row, 4));
    run.reason = rows.bytes(row, 5);
    run.identity = identity_in(rows, row, 6);
    run.address = rows.bytes(row, 7);
    run.messages = static_cast<uint32_t>(rows.number(row, 8));
    run.bytes = static_cast<uint64_t>(rows.number(row, 9));
    run.resends = static_cast<uint32_t>(rows.number(row, 10));
    run.to_connect = static_cast<uint32_t>(rows.number(row, 11));
    run.to_opening = static_cast<uint32_t>(rows.number(row, 12));
    run.to_end = static_cast<uint32_t>(rows.number(row, 13));
    return found;
}

LogLine line_in(const Result &rows, int row, int64_t series) {
    return {series,
            rows.number(row, 0),
            std::string(rows.bytes(row, 1)),
            std::string(rows.bytes(row, 2)),
            rows.number(row, 3),
            rows.number(row, 4) != 0};
}

FaultRow fault_in(const Result &rows, int row) {
    return {rows.number(row, 0),
            rows.number(row, 1),
            std::string(rows.bytes(row, 2)),
            std::string(rows.bytes(row, 3)),
            std::string(rows.bytes(row, 4)),
            static_cast<uint32_t>(rows.number(row, 5)),
            std::string(rows.bytes(row, 6))};
}

// All rows of an answer.
template <typename Take> auto list_of(const Result &rows, Take take) {
    std::vector<decltype(take(rows, 0))> list;
    list.reserve(static_cast<size_t>(rows.rows()));
    for (int row = 0; row < rows.rows(); ++row) list.push_back(take(rows, row));
    return list;
}

class PostgresReader final : public Reader {
public:
    explicit PostgresReader(const std::string &address)
        : connection_(address, Connection::Access::read) {
        check_schema(connection_);
    }

    int64_t version() override {
        return connection_
            .number("SELECT sum(value)::bigint FROM meta WHERE key IN ('next_collection', "
                    "'changes')")
            .value_or(0);
    }

    std::vector<DeviceState> devices() override {
        return list_of(connection_.query(all_devices, std::optional<std::string>()), device_in);
    }

    std::optional<DeviceState> device(std::string_view name) override {
        const Result rows = connection_.query(all_devices, name);
        if (rows.rows() == 0) return std::nullopt;
        return device_in(rows, 0);
    }

    std::vector<Series> series() override {
        return list_of(connection_.query(some_series, std::nullopt), series_in);
    }

    // Those that its last runs brought, and its logs.
    std::vector<Series> series_of(int64_t device) override {
        std::vector<int64_t> ids;
        for (const CommandState &one : states_of(connection_, device))
            for (const Entry &entry : one.state.entries) ids.push_back(entry.series);
        const Result logs =
            connection_.query("SELECT series FROM log_tail WHERE device = $1", device);
        for (int row = 0; row < logs.rows(); ++row) ids.push_back(logs.number(row, 0));
        return list_of(connection_.query(some_series, ids), series_in);
    }

    std::vector<LatestValue> latest(int64_t device, uint32_t command) override {
        const Transaction transaction(connection_, Transaction::Kind::read);
        std::vector<LatestValue> values;
        const std::vector<CommandState> states = states_of(connection_, device);
        const CommandState *found = state_for(states, command);
        if (!found) return values;
        for (const Entry &entry : found->state.entries)
            values.push_back({device, entry.series, entry.ordinal, entry.time,
                              value_of(device, found->command, entry)});
        return values;
    }

    bool values(const ValueQuery &query, Place &after, size_t limit,
                std::vector<FlatValue> &rows) override {
        return read_history(connection_, query, after, limit, rows);
    }

    std::vector<RunRow> runs(int64_t device, int64_t before, size_t limit) override {
        const Microseconds time =
            connection_.number("SELECT time FROM collection WHERE id = $1", before)
                .value_or(INT64_MAX);
        return list_of(
            connection_.query(
                "SELECT id, run, time, command, outcome, reason, identity, address, messages, "
                "bytes, resends, to_connect, to_opening, to_end FROM collection WHERE device = $1 "
                "AND time <= $2 AND (time < $2 OR id < $3) ORDER BY time DESC, id DESC LIMIT $4",
                device, time, before, static_cast<int64_t>(limit)),
            run_in);
    }

    std::vector<Point> points(int64_t device, int64_t series, uint32_t ordinal, Microseconds from,
                              Microseconds to, size_t columns) override {
        return read_chart(connection_, {device, series, ordinal, from, to, columns});
    }

    std::vector<LogLine> log(int64_t device, int64_t series, int64_t before,
                             size_t limit) override {
        auto lines = list_of(
            connection_.query("SELECT seq, stamp, text, time, gap_before FROM log WHERE "
                              "device = $1 AND series = $2 AND seq < $3 ORDER BY seq DESC LIMIT $4",
                              device, series, before, static_cast<int64_t>(limit)),
            [&](const Result &rows, int row) { return line_in(rows, row, series); });
        std::reverse(lines.begin(), lines.end());
        return lines;
    }

    std::vector<FaultRow> faults(int64_t device, int64_t before, size_t limit) override {
        auto faults = list_of(
            connection_.query("SELECT id, pass_time, fault, kind, stamp, value_id, value FROM "
                              "fault WHERE device = $1 AND id < $2 ORDER BY id DESC LIMIT $3",
                              device, before, static_cast<int64_t>(limit)),
            fault_in);
        std::reverse(faults.begin(), faults.end());
        return faults;
    }

private:
    StoredValue value_of(int64_t device, uint32_t command, const Entry &entry) {
        switch (entry.form) {
        case Entry::Form::number:
            return {StoredValue::Form::number, entry.number, {}};
        case Entry::Form::bytes:
            return {StoredValue::Form::bytes, 0, entry.bytes};
        case Entry::Form::row:
            return long_value(device, command, entry);
        case Entry::Form::gone:
            break;
        }
        return {};
    }

    StoredValue long_value(int64_t device, uint32_t command, const Entry &entry) {
        const Result rows =
            connection_.query("SELECT bytes FROM long_value WHERE device = $1 AND "
                              "command = $2 AND series = $3 AND ordinal = $4",
                              device, int64_t{command}, entry.series, int64_t{entry.ordinal});
        if (rows.rows() == 0) return {};
        return {StoredValue::Form::bytes, 0, std::string(rows.bytes(0, 0))};
    }

    Connection connection_;
};

} // namespace

std::unique_ptr<Reader> open_reader(const std::string &address) {
    return std::make_unique<PostgresReader>(address);
}

} // namespace dtfleet::postgres
