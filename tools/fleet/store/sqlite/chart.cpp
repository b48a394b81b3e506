#include "fleet/store/sqlite/chart.h"

#include "decode/wire.h"
#include "fleet/store/sqlite/columns.h"
#include "fleet/store/sqlite/hours.h"
#include "fleet/store/sqlite/rows.h"

#include <algorithm>
#include <optional>

namespace dtfleet::sqlite {
namespace {

using dt::decode::wire::selftest_command;

// What one transaction looks at: rows of values, or as many bytes of sums.
constexpr size_t most_looks = 200'000;
constexpr size_t bytes_a_look = 64;

// How far back a value is looked for that holds at the begin. The first whole run of each day
// stores all values, so it stands there unless the device was out of reach.
constexpr Microseconds longest_hold = 2 * microseconds_a_day;

// A run, and where its values are.
struct Run {
    int64_t id = 0;
    Microseconds time = 0;
    bool is_whole = false;
    int64_t first = 0;
    int64_t count = 0;
    bool is_history = false;
};

Run run_in(const Statement &row) {
    return {row.number(0), row.number(1), is_whole(outcome_of(row.number(2))),
            row.number(3), row.number(4), row.number(5) != 0};
}

constexpr const char *runs_forwards =
    "SELECT id, time, outcome, first, count, history FROM collection WHERE device = ?1 AND "
    "time >= ?2 AND time < ?3 AND (time > ?2 OR id > ?4) AND command = ?5 ORDER BY time, id";
constexpr const char *runs_backwards =
    "SELECT id, time, outcome, first, count, history FROM collection WHERE device = ?1 AND "
    "time >= ?2 AND time < ?3 AND command = ?4 ORDER BY time DESC, id DESC";

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

class Chart {
public:
    Chart(Database &database, const ChartQuery &query) : database_(database), query_(query) {}

    std::vector<Point> read() {
        transaction_.emplace(database_, Transaction::Kind::read);
        if (!find_series()) return {};
        for (CommandState &one : states_of(database_, query_.device))
            if (one.command != selftest_command) add_extent(one);
        if (!trim()) return {};
        columns_.emplace(query_.from, query_.to, query_.columns, type_, is_signed_);
        for (const Extent &extent : extents_) read_extent(extent);
        std::vector<Point> points = columns_->points();
        if (edge_ && (points.empty() || points.front().time > query_.from))
            points.insert(points.begin(), {query_.from, 0, *edge_, *edge_, *edge_});
        return points;
    }

private:
    // ---- what there is --------------------------------------------------------------------------

    // False when it has no numbers.
    bool find_series() {
        bool found = false;
        each_row(
            database_.statement("SELECT type, signed FROM series WHERE id = ?").with(query_.series),
            [&](const Statement &row) {
                type_ = type_of(row.number(0));
                is_signed_ = row.number(1) != 0;
                found = is_number(type_);
            });
        return found;
    }

    void add_extent(CommandState &one) {
        Extent extent{one.command, std::move(one.state), {}, {}, {}, {}};
        extent.first_run = end_of("SELECT time FROM collection WHERE device = ? AND command = ? "
                                  "ORDER BY time LIMIT 1",
                                  one.command);
        extent.last_run = end_of("SELECT time FROM collection WHERE device = ? AND command = ? "
                                 "ORDER BY time DESC LIMIT 1",
                                 one.command);
        extent.first_hour = end_of("SELECT hour FROM rollup WHERE device = ? AND command = ? "
                                   "ORDER BY hour LIMIT 1",
                                   one.command);
        extent.last_hour = end_of("SELECT hour FROM rollup WHERE device = ? AND command = ? "
                                  "ORDER BY hour DESC LIMIT 1",
                                  one.command);
        extents_.push_back(std::move(extent));
    }

    std::optional<int64_t> end_of(const char *sql, uint32_t command) {
        std::optional<int64_t> found;
        each_row(database_.statement(sql).with(query_.device, command),
                 [&](const Statement &row) { found = row.number(0); });
        return found;
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

    // Hours where no more is left or a column is as wide; what is finer from the values themselves.
    // Days are deleted as a whole, so the hours end where the first day with values begins.
    void read_extent(const Extent &extent) {
        const bool is_coarse = columns_->width() >= microseconds_an_hour;
        const Microseconds raw =
            is_coarse ? query_.to
                      : std::clamp(extent.first_run.value_or(INT64_MAX), query_.from, query_.to);
        const int64_t first_hour = hour_of(query_.from);
        const int64_t end_hour = raw == query_.to ? hour_of(query_.to - 1) + 1 : hour_of(raw);
        if (first_hour < end_hour) read_hours(extent, first_hour, end_hour);
        if (raw < query_.to) read_runs(extent, raw);
    }

    void read_hours(const Extent &extent, int64_t first, int64_t end) {
        for (bool more = true; more; rest()) {
            Statement &hours =
                database_.statement("SELECT hour, entries FROM rollup WHERE device = ? AND "
                                    "command = ? AND hour >= ? AND hour < ? ORDER BY hour");
            hours.with(query_.device, extent.command, first, end);
            while (looks_ <= most_looks && hours.step()) {
                first = hours.number(0) + 1;
                looks_ += 1 + hours.bytes(1).size() / bytes_a_look;
                if (const auto sum = find_sum(hours.bytes(1), query_.series, query_.ordinal))
                    add_hour(hours.number(0), *sum);
            }
            more = looks_ > most_looks;
            hours.reset();
        }
        const int64_t running = extent.state.hour;
        if (running < hour_of(query_.from) || running >= end) return;
        for (const Entry &entry : extent.state.entries)
            if (is_asked_for(entry) && entry.sum.n != 0) add_hour(running, entry.sum);
    }

    bool is_asked_for(const Entry &entry) const {
        return entry.series == query_.series && entry.ordinal == query_.ordinal;
    }

    void add_hour(int64_t hour, const Sum &sum) {
        columns_->add(std::max(hour * microseconds_an_hour, query_.from), sum);
    }

    // A whole run that stored no value has brought the same as before.
    void read_runs(const Extent &extent, Microseconds from) {
        std::optional<uint64_t> held = held_at(extent, from);
        if (from == query_.from && held) edge_ = held;
        int64_t last_id = INT64_MIN;
        for (bool more = true; more; rest()) {
            Statement &runs = database_.statement(runs_forwards);
            runs.with(query_.device, from, query_.to, last_id, extent.command);
            while (looks_ <= most_looks && runs.step()) {
                const Run run = run_in(runs);
                from = run.time;
                last_id = run.id;
                take(run, held);
            }
            more = looks_ > most_looks;
            runs.reset();
        }
    }

    void take(const Run &run, std::optional<uint64_t> &held) {
        const std::optional<StoredValue> stored = find_value(run);
        std::optional<uint64_t> brought = stored ? number_of(*stored) : held;
        if (brought && (stored || run.is_whole))
            columns_->add(run.time, {1, *brought, *brought, *brought});
        if (stored && !run.is_history) held = brought;
    }

    static std::optional<uint64_t> number_of(const StoredValue &value) {
        if (value.form != StoredValue::Form::number) return std::nullopt;
        return value.number;
    }

    // Nothing when the run before did not bring it.
    std::optional<uint64_t> held_at(const Extent &extent, Microseconds time) {
        Statement &runs = database_.statement(runs_backwards);
        runs.with(query_.device, time - longest_hold, time, extent.command);
        std::optional<StoredValue> stored;
        while (!stored && looks_ <= most_looks && runs.step()) {
            const Run run = run_in(runs);
            if (!run.is_history) stored = find_value(run);
        }
        runs.reset();
        rest();
        return stored ? number_of(*stored) : std::nullopt;
    }

    // ---- one run --------------------------------------------------------------------------------

    // Runs that store everything have it at the same place, one after the other.
    std::optional<StoredValue> find_value(const Run &run) {
        ++looks_;
        std::optional<StoredValue> found;
        if (run.count == 0) return found;
        if (run.count == place_count_) found = value_at(run.first + place_);
        return found ? found : search(run);
    }

    std::optional<StoredValue> value_at(int64_t id) {
        std::optional<StoredValue> found;
        each_row(
            database_.statement("SELECT series, ordinal, value FROM value WHERE id = ?").with(id),
            [&](const Statement &row) {
                if (row.number(0) == query_.series && row.number(1) == query_.ordinal)
                    found = stored_value(row, 2);
            });
        return found;
    }

    std::optional<StoredValue> search(const Run &run) {
        std::optional<StoredValue> found;
        looks_ += static_cast<size_t>(run.count);
        Statement &values =
            database_.statement("SELECT id, value FROM value WHERE id >= ? AND id < ? AND "
                                "series = ? AND ordinal = ?");
        values.with(run.first, run.first + run.count, query_.series, query_.ordinal);
        if (values.step()) {
            place_ = values.number(0) - run.first;
            place_count_ = run.count;
            found = stored_value(values, 1);
        }
        values.reset();
        return found;
    }

    // Between two statements: nobody is kept from tidying up for long.
    void rest() {
        if (looks_ <= most_looks) return;
        looks_ = 0;
        transaction_.reset();
        transaction_.emplace(database_, Transaction::Kind::read);
    }

    Database &database_;
    ChartQuery query_;
    std::optional<Transaction> transaction_;
    size_t looks_ = 0; // since it began
    dt::decode::Kind type_ = dt::decode::Kind::int32;
    bool is_signed_ = false;
    std::vector<Extent> extents_;
    std::optional<Columns> columns_;
    std::optional<uint64_t> edge_; // what held at the begin
    int64_t place_ = 0;            // in a run of place_count_ values
    int64_t place_count_ = 0;
};

} // namespace

std::vector<Point> read_chart(Database &database, const ChartQuery &query) {
    return Chart(database, query).read();
}

} // namespace dtfleet::sqlite
