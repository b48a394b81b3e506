#include "fleet/store/postgres/chart.h"

#include "fleet/store/postgres/rows.h"

#include <algorithm>

namespace dtfleet::postgres {
namespace {

constexpr int64_t most_rows = 20'000; // of one statement: some hundredths of a second
constexpr int64_t few_rows = 40;

// Where a run ($5, $6: series and ordinal) has the value; looked at first is the place that another
// run had it at. Without ordinals no series is there twice.
std::string with_place(const std::string &likely) {
    return "FROM collection, LATERAL (SELECT CASE WHEN series[" + likely +
           "::integer] = $5 AND coalesce(ordinals[" + likely + "::integer], 0) = $6 THEN " +
           likely +
           " WHEN ordinals IS NULL THEN CASE WHEN $6 = 0 THEN array_position(series, $5::integer) "
           "END ELSE (SELECT n FROM unnest(series, ordinals) WITH ORDINALITY u(s, o, n) WHERE "
           "u.s = $5 AND u.o = $6 LIMIT 1) END AS place) p WHERE device = $1 AND command = $2 AND "
           "time >= $3 AND time < $4 ";
}

// What is left of the rows is sorted, not they themselves.
const std::string runs_forwards =
    "SELECT * FROM (SELECT id, time, outcome, history, place, numbers[place] " + with_place("$9") +
    "AND (time > $3 OR id > $7) ORDER BY time OFFSET 0) r ORDER BY time, id LIMIT $8";
const std::string run_before = "SELECT numbers[place] " + with_place("0") +
                               "AND NOT history AND place IS NOT NULL ORDER BY time DESC, id DESC "
                               "LIMIT 1";
constexpr const char *hours_of_command =
    "SELECT hour, n[place], min[place], max[place], last[place] FROM rollup, LATERAL (SELECT CASE "
    "WHEN ordinals[array_position(series, $5::integer)] = $6 THEN array_position(series, "
    "$5::integer) ELSE (SELECT i FROM unnest(series, ordinals) WITH ORDINALITY u(s, o, i) "
    "WHERE u.s = $5 AND u.o = $6) END AS place) p WHERE device = $1 AND command = $2 AND "
    "hour >= $3 AND hour < $4 AND place IS NOT NULL ORDER BY hour LIMIT $7";

class ServerChart final : public ChartSource {
public:
    ServerChart(Connection &connection, const ChartQuery &query, int64_t most_runs)
        : connection_(connection), query_(query), most_runs_(most_runs),
          transaction_(connection, Transaction::Kind::read) {}

    std::optional<Series> series() override { return find_series(connection_, query_.series); }
    std::vector<CommandState> states() override { return states_of(connection_, query_.device); }

    Extent extent(uint32_t command) override {
        const Result row = connection_.query(
            "SELECT (SELECT time FROM collection WHERE device = $1 AND command = $2 AND time <= "
            "(SELECT time FROM state WHERE device = $1 AND command = $2) ORDER BY time LIMIT 1), "
            "(SELECT time FROM collection WHERE device = $1 ORDER BY time DESC LIMIT 1), "
            "min(hour), max(hour) FROM rollup WHERE device = $1 AND command = $2",
            query_.device, int64_t{command});
        return {row.maybe(0, 0), row.maybe(0, 1), row.maybe(0, 2), row.maybe(0, 3)};
    }

    void hours(uint32_t command, int64_t first, int64_t end, const TakeHour &take) override {
        for (bool more = true; more;) {
            const Result rows =
                connection_.query(hours_of_command, query_.device, int64_t{command}, first, end,
                                  query_.series, int64_t{query_.ordinal}, most_rows);
            for (int row = 0; row < rows.rows(); ++row) {
                first = rows.number(row, 0) + 1;
                take(rows.number(row, 0), sum_in(rows, row));
            }
            more = rows.rows() == most_rows;
        }
    }

    std::optional<uint64_t> held(uint32_t command, Microseconds from, Microseconds to) override {
        const Result rows = connection_.query(run_before.c_str(), query_.device, int64_t{command},
                                              from, to, query_.series, int64_t{query_.ordinal});
        return rows.rows() == 0 ? std::nullopt : number_in(rows, 0, 0);
    }

    bool runs(uint32_t command, Microseconds from, Microseconds to, const TakeRun &take) override {
        int64_t last_id = INT64_MIN;
        int64_t place = 0; // a few runs tell where the others have the value
        for (int64_t left = most_runs_, some = few_rows; left > 0; some = most_rows) {
            const int64_t most = std::min(left, some);
            const Result rows =
                connection_.query(runs_forwards.c_str(), query_.device, int64_t{command}, from, to,
                                  query_.series, int64_t{query_.ordinal}, last_id, most, place);
            for (int row = 0; row < rows.rows(); ++row) {
                take(brought_in(rows, row));
                place = rows.maybe(row, 4).value_or(place);
            }
            if (rows.rows() < most) return true;
            last_id = rows.number(rows.rows() - 1, 0);
            from = rows.number(rows.rows() - 1, 1);
            left -= most;
        }
        return false;
    }

private:
    static std::optional<uint64_t> number_in(const Result &rows, int row, int column) {
        if (rows.is_null(row, column)) return std::nullopt;
        return static_cast<uint64_t>(rows.number(row, column));
    }

    static Brought brought_in(const Result &rows, int row) {
        return {rows.number(row, 1), is_whole(outcome_of(rows.number(row, 2))),
                rows.number(row, 3) != 0, !rows.is_null(row, 4), number_in(rows, row, 5)};
    }

    static Sum sum_in(const Result &rows, int row) {
        const auto pattern = [&](int column) {
            return static_cast<uint64_t>(rows.number(row, column));
        };
        return {pattern(1), pattern(2), pattern(3), pattern(4)};
    }

    Connection &connection_;
    const ChartQuery query_;
    const int64_t most_runs_;
    const Transaction transaction_; // so that no hour is seen both running and over
};

} // namespace

std::vector<Point> read_chart(Connection &connection, const ChartQuery &query, int64_t most_runs) {
    ServerChart source(connection, query, most_runs);
    return dtfleet::read_chart(source, query);
}

} // namespace dtfleet::postgres
