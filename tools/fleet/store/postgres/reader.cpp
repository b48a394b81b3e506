// Reader on PostgreSQL: a connection of its own that does not write.
#include "fleet/store/postgres/chart.h"
#include "fleet/store/postgres/history.h"
#include "fleet/store/postgres/open.h"
#include "fleet/store/postgres/rows.h"
#include "fleet/store/postgres/schema.h"

#include <algorithm>

namespace dtfleet::postgres {
namespace {

const std::string some_devices =
    std::string(select_devices) + "AND ($1::text IS NULL OR name = $1) ORDER BY name COLLATE \"C\"";
const std::string runs_before = std::string(select_runs) +
                                "WHERE device = $1 AND time <= $2 AND (time < $2 OR id < $3) "
                                "ORDER BY time DESC, id DESC LIMIT $4";
const std::string lines_before =
    std::string(select_lines) +
    "WHERE device = $1 AND series = $2 AND seq < $3 ORDER BY seq DESC LIMIT $4";
const std::string faults_before =
    std::string(select_faults) + "WHERE device = $1 AND id < $2 ORDER BY id DESC LIMIT $3";

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
        return list_of(connection_.query(some_devices.c_str(), std::nullopt), device_in<ResultRow>);
    }

    std::optional<DeviceState> device(std::string_view name) override {
        const Result rows = connection_.query(some_devices.c_str(), name);
        if (rows.rows() == 0) return std::nullopt;
        return device_in(ResultRow(rows, 0));
    }

    std::vector<Series> series() override { return find_series(connection_, std::nullopt); }

    // Those that its last runs brought, and its logs.
    std::vector<Series> series_of(int64_t device) override {
        std::vector<int64_t> ids;
        for (const CommandState &one : states_of(connection_, device))
            for (const Entry &entry : one.state.entries) ids.push_back(entry.series);
        const Result logs =
            connection_.query("SELECT series FROM log_tail WHERE device = $1", device);
        for (int row = 0; row < logs.rows(); ++row) ids.push_back(logs.number(row, 0));
        return find_series(connection_, ids);
    }

    std::vector<LatestValue> latest(int64_t device, uint32_t command) override {
        const Transaction transaction(connection_, Transaction::Kind::read);
        return latest_in(
            states_of(connection_, device), device, command,
            [&](uint32_t found, const Entry &entry) { return long_value(device, found, entry); });
    }

    bool values(const ValueQuery &query, Place &after, size_t limit,
                std::vector<FlatValue> &rows) override {
        return read_history(connection_, query, after, limit, rows);
    }

    std::vector<RunRow> runs(int64_t device, int64_t before, size_t limit) override {
        const Microseconds time =
            connection_.number("SELECT time FROM collection WHERE id = $1", before)
                .value_or(INT64_MAX);
        return list_of(connection_.query(runs_before.c_str(), device, time, before,
                                         static_cast<int64_t>(limit)),
                       run_in<ResultRow>);
    }

    std::vector<Point> points(int64_t device, int64_t series, uint32_t ordinal, Microseconds from,
                              Microseconds to, size_t columns) override {
        return read_chart(connection_, {device, series, ordinal, from, to, columns});
    }

    std::vector<LogLine> log(int64_t device, int64_t series, int64_t before,
                             size_t limit) override {
        auto lines = list_of(connection_.query(lines_before.c_str(), device, series, before,
                                               static_cast<int64_t>(limit)),
                             line_in<ResultRow>);
        std::reverse(lines.begin(), lines.end());
        return lines;
    }

    std::vector<FaultRow> faults(int64_t device, int64_t before, size_t limit) override {
        auto faults = list_of(
            connection_.query(faults_before.c_str(), device, before, static_cast<int64_t>(limit)),
            fault_in<ResultRow>);
        std::reverse(faults.begin(), faults.end());
        return faults;
    }

private:
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
