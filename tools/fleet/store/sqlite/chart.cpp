#include "fleet/store/sqlite/chart.h"

#include "decode/wire.h"
#include "fleet/store/columns.h"
#include "fleet/store/sqlite/hours.h"
#include "fleet/store/sqlite/rows.h"

#include <algorithm>
#include <optional>

namespace dtfleet::sqlite {
namespace {

using dt::decode::wire::selftest_command;

// What looks are counted by: a row of values is one.
constexpr size_t bytes_a_look = 64;
constexpr size_t looks_a_run = 16;

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
    "time >= ?2 AND time < ?3 AND command = ?4 ORDER BY time, id";
constexpr const char *runs_backwards =
    "SELECT id, time, outcome, first, count, history FROM collection WHERE device = ?1 AND "
    "time >= ?2 AND time < ?3 AND command = ?4 ORDER BY time DESC, id DESC";

class Chart {
public:
    Chart(Database &database, const ChartQuery &query) : database_(database), query_(query) {}

    std::vector<Point> read() {
        begin_transaction();
        if (!find_series()) return {};
        for (CommandState &one : states_of(database_, query_.device))
            if (one.command != selftest_command) states_.push_back(std::move(one));
        first_run_ = end_of_runs("SELECT time FROM collection WHERE device = ? ORDER BY time "
                                 "LIMIT 1");
        if (!trim()) return {};
        if (!read_states(false)) read_states(true);
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

    std::optional<int64_t> end_of_runs(const char *sql) {
        return one_number(database_.statement(sql).with(query_.device));
    }
    std::optional<int64_t> end_of_hours(const char *sql, uint32_t command) {
        return one_number(database_.statement(sql).with(query_.device, command));
    }
    static std::optional<int64_t> one_number(Statement &statement) {
        std::optional<int64_t> found;
        each_row(statement, [&](const Statement &row) { found = row.number(0); });
        return found;
    }

    // The columns are for what there is. False when that is nothing.
    bool trim() {
        Microseconds begin = first_run_.value_or(INT64_MAX);
        Microseconds end = 0;
        if (const auto last = end_of_runs("SELECT time FROM collection WHERE device = ? "
                                          "ORDER BY time DESC LIMIT 1"))
            end = *last + 1;
        for (const CommandState &one : states_) {
            const auto first = end_of_hours("SELECT hour FROM rollup WHERE device = ? AND "
                                            "command = ? ORDER BY hour LIMIT 1",
                                            one.command);
            const auto last = end_of_hours("SELECT hour FROM rollup WHERE device = ? AND "
                                           "command = ? ORDER BY hour DESC LIMIT 1",
                                           one.command);
            if (first) begin = std::min(begin, *first * microseconds_an_hour);
            if (last && !first_run_) end = std::max(end, (*last + 1) * microseconds_an_hour);
        }
        query_.from = std::max(query_.from, begin);
        query_.to = std::min(query_.to, end);
        return query_.from < query_.to;
    }

    // ---- reading --------------------------------------------------------------------------------

    // False when the values are too many: their hours' sums have to do.
    bool read_states(bool by_hours) {
        columns_.emplace(query_.from, query_.to, query_.columns, type_, is_signed_);
        edge_.reset();
        const bool is_coarse = by_hours || columns_->width() >= microseconds_an_hour;
        return std::all_of(states_.begin(), states_.end(),
                           [&](const CommandState &one) { return read_state(one, is_coarse); });
    }

    // Hours where no more is left or wanted, the values themselves behind them. Days are deleted
    // as a whole, so the hours end where the first day with values begins.
    bool read_state(const CommandState &one, bool is_coarse) {
        const Microseconds raw =
            is_coarse ? query_.to
                      : std::clamp(first_run_.value_or(INT64_MAX), query_.from, query_.to);
        const int64_t first_hour = hour_of(query_.from);
        const int64_t end_hour = raw == query_.to ? hour_of(query_.to - 1) + 1 : hour_of(raw);
        if (first_hour < end_hour) read_hours(one, first_hour, end_hour);
        return raw == query_.to || read_runs(one, raw);
    }

    void read_hours(const CommandState &one, int64_t first, int64_t end) {
        for (bool more = true; more; begin_transaction()) {
            Statement &hours =
                database_.statement("SELECT hour, entries FROM rollup WHERE device = ? AND "
                                    "command = ? AND hour >= ? AND hour < ? ORDER BY hour");
            hours.with(query_.device, one.command, first, end);
            while (looks_ <= query_.most_looks && hours.step()) {
                first = hours.number(0) + 1;
                looks_ += 1 + hours.bytes(1).size() / bytes_a_look;
                if (const auto sum = find_sum(hours.bytes(1), query_.series, query_.ordinal))
                    add_hour(hours.number(0), *sum);
            }
            more = looks_ > query_.most_looks;
            hours.reset();
        }
        const int64_t running = one.state.hour;
        if (running < hour_of(query_.from) || running >= end) return;
        for (const Entry &entry : one.state.entries)
            if (is_asked_for(entry) && entry.sum.n != 0) add_hour(running, entry.sum);
    }

    bool is_asked_for(const Entry &entry) const {
        return entry.series == query_.series && entry.ordinal == query_.ordinal;
    }

    void add_hour(int64_t hour, const Sum &sum) {
        columns_->add(std::max(hour * microseconds_an_hour, query_.from), sum);
    }

    // A whole run that stored no value has brought the same as before. False when they are too
    // many.
    bool read_runs(const CommandState &one, Microseconds from) {
        begin_transaction();
        std::optional<uint64_t> held = held_at(one, from);
        if (from == query_.from && held) edge_ = held;
        Statement &runs = database_.statement(runs_forwards);
        runs.with(query_.device, from, query_.to, one.command);
        while (looks_ <= query_.most_looks && runs.step()) take(run_in(runs), held);
        runs.reset();
        return looks_ <= query_.most_looks;
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
    std::optional<uint64_t> held_at(const CommandState &one, Microseconds time) {
        Statement &runs = database_.statement(runs_backwards);
        runs.with(query_.device, time - longest_hold, time, one.command);
        std::optional<StoredValue> stored;
        while (!stored && looks_ <= query_.most_looks && runs.step()) {
            const Run run = run_in(runs);
            if (!run.is_history) stored = find_value(run);
        }
        runs.reset();
        return stored ? number_of(*stored) : std::nullopt;
    }

    // ---- one run --------------------------------------------------------------------------------

    // Runs that store everything have it at the same place, one after the other.
    std::optional<StoredValue> find_value(const Run &run) {
        looks_ += looks_a_run;
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
    void begin_transaction() {
        transaction_.reset();
        transaction_.emplace(database_, Transaction::Kind::read);
        looks_ = 0;
    }

    Database &database_;
    ChartQuery query_;
    std::optional<Transaction> transaction_;
    size_t looks_ = 0; // since it began
    dt::decode::Kind type_ = dt::decode::Kind::int32;
    bool is_signed_ = false;
    std::vector<CommandState> states_;
    std::optional<Microseconds> first_run_;
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
