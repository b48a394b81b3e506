#include "fleet/store/postgres/chart.h"

#include "decode/wire.h"
#include "fleet/store/columns.h"
#include "fleet/store/postgres/rows.h"

#include <algorithm>

namespace dtfleet::postgres {
namespace {

using dt::decode::wire::selftest_command;

constexpr int64_t most_rows = 20'000; // of one statement: some hundredths of a second

// How far back a value is looked for that holds at the begin. The first whole run of each day
// stores all values, so it stands there unless the device was out of reach.
constexpr Microseconds longest_hold = 2 * microseconds_a_day;

// Where a run ($5, $6: series and ordinal) has the value. Without ordinals no series is there
// twice.
#define DT_PLACE                                                                                   \
    "LATERAL (SELECT CASE WHEN ordinals IS NULL THEN CASE WHEN $6 = 0 THEN "                       \
    "array_position(series, $5::integer) END ELSE (SELECT n FROM unnest(series, ordinals) WITH "   \
    "ORDINALITY u(s, o, n) WHERE u.s = $5 AND u.o = $6 LIMIT 1) END AS place) p "

constexpr const char *runs_forwards =
    "SELECT id, time, outcome, history, place IS NOT NULL, numbers[place] FROM "
    "collection, " DT_PLACE "WHERE device = $1 AND command = $2 AND time >= $3 AND time < $4 AND "
    "(time > $3 OR id > $7) ORDER BY time, id LIMIT $8";
constexpr const char *run_before =
    "SELECT numbers[place] FROM collection, " DT_PLACE
    "WHERE device = $1 AND command = $2 AND time >= $3 AND time < $4 AND NOT history AND "
    "place IS NOT NULL ORDER BY time DESC, id DESC LIMIT 1";
constexpr const char *hours =
    "SELECT hour, n[place], min[place], max[place], last[place] FROM rollup, LATERAL (SELECT CASE "
    "WHEN ordinals[array_position(series, $5::integer)] = $6 THEN array_position(series, "
    "$5::integer) ELSE (SELECT i FROM unnest(series, ordinals) WITH ORDINALITY u(s, o, i) "
    "WHERE u.s = $5 AND u.o = $6) END AS place) p WHERE device = $1 AND command = $2 AND "
    "hour >= $3 AND hour < $4 AND place IS NOT NULL ORDER BY hour LIMIT $7";

#undef DT_PLACE

// Where a command's values and sums are.
struct Extent {
    uint32_t command = 0;
    State state;
    std::optional<Microseconds> first_run, last_run;
    std::optional<int64_t> first_hour, last_hour;

    Microseconds begin() const {
        const Microseconds runs = first_run.value_or(INT64_MAX);
        return first_hour ? std::min(runs, *first_hour * microseconds_an_hour) : runs;
    }
    Microseconds end() const {
        if (last_run) return *last_run + 1;
        return last_hour ? (*last_hour + 1) * microseconds_an_hour : 0;
    }
};

Sum sum_in(const Result &rows, int row) {
    const auto pattern = [&](int column) {
        return static_cast<uint64_t>(rows.number(row, column));
    };
    return {pattern(1), pattern(2), pattern(3), pattern(4)};
}

class Chart {
public:
    Chart(Connection &connection, const ChartQuery &query)
        : connection_(connection), query_(query) {}

    std::vector<Point> read() {
        if (!find_series()) return {};
        for (CommandState &one : states_of(connection_, query_.device))
            if (one.command != selftest_command) add_extent(one);
        if (!trim()) return {};
        if (!read_extents(false)) read_extents(true);
        std::vector<Point> points = columns_->points();
        if (edge_ && (points.empty() || points.front().time > query_.from))
            points.insert(points.begin(), {query_.from, 0, *edge_, *edge_, *edge_});
        return points;
    }

private:
    // ---- what there is --------------------------------------------------------------------------

    // False when it has no numbers.
    bool find_series() {
        const Result row =
            connection_.query("SELECT type, signed FROM series WHERE id = $1", query_.series);
        if (row.rows() == 0) return false;
        type_ = type_of(row.number(0, 0));
        is_signed_ = row.number(0, 1) != 0;
        return is_number(type_);
    }

    void add_extent(CommandState &one) {
        const Result row = connection_.query(
            "SELECT (SELECT time FROM collection WHERE device = $1 AND command = $2 ORDER BY time "
            "LIMIT 1), (SELECT time FROM collection WHERE device = $1 AND command = $2 ORDER BY "
            "time DESC LIMIT 1), min(hour), max(hour) FROM rollup WHERE device = $1 AND "
            "command = $2",
            query_.device, int64_t{one.command});
        const auto number = [&](int column) -> std::optional<int64_t> {
            if (row.is_null(0, column)) return std::nullopt;
            return row.number(0, column);
        };
        extents_.push_back(
            {one.command, std::move(one.state), number(0), number(1), number(2), number(3)});
    }

    // The columns are for what there is. False when that is nothing.
    bool trim() {
        Microseconds begin = INT64_MAX, end = 0;
        for (const Extent &extent : extents_) {
            begin = std::min(begin, extent.begin());
            end = std::max(end, extent.end());
        }
        query_.from = std::max(query_.from, begin);
        query_.to = std::min(query_.to, end);
        return query_.from < query_.to;
    }

    // ---- reading --------------------------------------------------------------------------------

    // False when the values are too many: their hours' sums have to do.
    bool read_extents(bool by_hours) {
        columns_.emplace(query_.from, query_.to, query_.columns, type_, is_signed_);
        edge_.reset();
        const bool is_coarse = by_hours || columns_->width() >= microseconds_an_hour;
        return std::all_of(extents_.begin(), extents_.end(),
                           [&](const Extent &extent) { return read_extent(extent, is_coarse); });
    }

    // Hours where no more is left or wanted, the values themselves behind them. Days are dropped as
    // a whole, so the hours end where the first day with values begins.
    bool read_extent(const Extent &extent, bool is_coarse) {
        const Microseconds raw =
            is_coarse ? query_.to
                      : std::clamp(extent.first_run.value_or(INT64_MAX), query_.from, query_.to);
        const int64_t first_hour = hour_of(query_.from);
        const int64_t end_hour = raw == query_.to ? hour_of(query_.to - 1) + 1 : hour_of(raw);
        if (first_hour < end_hour) read_hours(extent, first_hour, end_hour);
        return raw == query_.to || read_runs(extent, raw);
    }

    void read_hours(const Extent &extent, int64_t first, int64_t end) {
        for (bool more = true; more;) {
            const Result rows =
                connection_.query(hours, query_.device, int64_t{extent.command}, first, end,
                                  query_.series, int64_t{query_.ordinal}, most_rows);
            for (int row = 0; row < rows.rows(); ++row) {
                first = rows.number(row, 0) + 1;
                add_hour(rows.number(row, 0), sum_in(rows, row));
            }
            more = rows.rows() == most_rows;
        }
        const int64_t running = extent.state.hour;
        if (running < hour_of(query_.from) || running >= end) return;
        for (const Entry &entry : extent.state.entries)
            if (entry.series == query_.series && entry.ordinal == query_.ordinal &&
                entry.sum.n != 0)
                add_hour(running, entry.sum);
    }

    void add_hour(int64_t hour, const Sum &sum) {
        columns_->add(std::max(hour * microseconds_an_hour, query_.from), sum);
    }

    bool read_runs(const Extent &extent, Microseconds from) {
        std::optional<uint64_t> held = held_at(extent, from);
        if (from == query_.from && held) edge_ = held;
        int64_t last_id = INT64_MIN;
        for (int64_t left = query_.most_runs; left > 0;) {
            const int64_t most = std::min(left, most_rows);
            const Result rows =
                connection_.query(runs_forwards, query_.device, int64_t{extent.command}, from,
                                  query_.to, query_.series, int64_t{query_.ordinal}, last_id, most);
            for (int row = 0; row < rows.rows(); ++row) {
                last_id = rows.number(row, 0);
                from = rows.number(row, 1);
                take(rows, row, held);
            }
            if (rows.rows() < most) return true;
            left -= most;
        }
        return false;
    }

    // A whole run that stored no value has brought the same as before.
    void take(const Result &rows, int row, std::optional<uint64_t> &held) {
        const bool is_stored = rows.number(row, 4) != 0;
        std::optional<uint64_t> brought = held;
        if (is_stored) brought = number_in(rows, row, 5);
        if (brought && (is_stored || is_whole(outcome_of(rows.number(row, 2)))))
            columns_->add(rows.number(row, 1), {1, *brought, *brought, *brought});
        const bool is_history = rows.number(row, 3) != 0;
        if (is_stored && !is_history) held = brought;
    }

    static std::optional<uint64_t> number_in(const Result &rows, int row, int column) {
        if (rows.rows() == 0 || rows.is_null(row, column)) return std::nullopt;
        return static_cast<uint64_t>(rows.number(row, column));
    }

    // Nothing when the run before did not bring it.
    std::optional<uint64_t> held_at(const Extent &extent, Microseconds time) {
        return number_in(connection_.query(run_before, query_.device, int64_t{extent.command},
                                           time - longest_hold, time, query_.series,
                                           int64_t{query_.ordinal}),
                         0, 0);
    }

    Connection &connection_;
    ChartQuery query_;
    dt::decode::Kind type_ = dt::decode::Kind::int32;
    bool is_signed_ = false;
    std::vector<Extent> extents_;
    std::optional<Columns> columns_;
    std::optional<uint64_t> edge_; // what held at the begin
};

} // namespace

std::vector<Point> read_chart(Connection &connection, const ChartQuery &query) {
    return Chart(connection, query).read();
}

} // namespace dtfleet::postgres
