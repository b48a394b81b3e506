#include "fleet/store/sqlite/chart.h"

#include "fleet/store/sqlite/hours.h"
#include "fleet/store/sqlite/rows.h"

namespace dtfleet::sqlite {
namespace {

// What looks are counted by: a row of values is one.
constexpr size_t bytes_a_look = 64;
constexpr size_t looks_a_run = 16;

// A run, and where its values are.
struct Run {
    int64_t first = 0;
    int64_t count = 0;
};

constexpr const char *runs_forwards =
    "SELECT first, count, time, outcome, history FROM collection WHERE device = ?1 AND "
    "time >= ?2 AND time < ?3 AND command = ?4 ORDER BY time, id";
constexpr const char *runs_backwards =
    "SELECT first, count FROM collection WHERE device = ?1 AND time >= ?2 AND time < ?3 AND "
    "command = ?4 AND NOT history ORDER BY time DESC, id DESC";

class FileChart final : public ChartSource {
public:
    FileChart(Database &database, const ChartQuery &query, size_t most_looks)
        : database_(database), query_(query), most_looks_(most_looks) {
        begin_transaction();
    }

    std::optional<Series> series() override { return find_series(database_, query_.series); }
    std::vector<CommandState> states() override { return states_of(database_, query_.device); }

    Extent extent(uint32_t command) override {
        Extent extent;
        Statement &find = database_.statement(
            "SELECT (SELECT time FROM collection WHERE device = ?1 AND command = ?2 AND time <= "
            "(SELECT time FROM state WHERE device = ?1 AND command = ?2) ORDER BY time LIMIT 1), "
            "(SELECT time FROM collection WHERE device = ?1 ORDER BY time DESC LIMIT 1), "
            "(SELECT min(hour) FROM rollup WHERE device = ?1 AND command = ?2), "
            "(SELECT max(hour) FROM rollup WHERE device = ?1 AND command = ?2)");
        each_row(find.with(query_.device, command), [&](const Statement &row) {
            extent = {row.maybe(0), row.maybe(1), row.maybe(2), row.maybe(3)};
        });
        return extent;
    }

    void hours(uint32_t command, int64_t first, int64_t end, const TakeHour &take) override {
        for (bool more = true; more; begin_transaction()) {
            Statement &hours =
                database_.statement("SELECT hour, entries FROM rollup WHERE device = ? AND "
                                    "command = ? AND hour >= ? AND hour < ? ORDER BY hour");
            hours.with(query_.device, command, first, end);
            while (has_looks() && hours.step()) {
                first = hours.number(0) + 1;
                looks_ += 1 + hours.bytes(1).size() / bytes_a_look;
                if (const auto sum = find_sum(hours.bytes(1), query_.series, query_.ordinal))
                    take(hours.number(0), *sum);
            }
            more = !has_looks();
            hours.reset();
        }
    }

    std::optional<uint64_t> held(uint32_t command, Microseconds from, Microseconds to) override {
        begin_transaction();
        Statement &runs = database_.statement(runs_backwards);
        runs.with(query_.device, from, to, command);
        std::optional<StoredValue> stored;
        while (!stored && has_looks() && runs.step())
            stored = find_value({runs.number(0), runs.number(1)});
        runs.reset();
        return stored ? number_of(*stored) : std::nullopt;
    }

    bool runs(uint32_t command, Microseconds from, Microseconds to, const TakeRun &take) override {
        Statement &runs = database_.statement(runs_forwards);
        runs.with(query_.device, from, to, command);
        while (has_looks() && runs.step()) {
            const auto stored = find_value({runs.number(0), runs.number(1)});
            take({runs.number(2), is_whole(outcome_of(runs.number(3))), runs.number(4) != 0,
                  stored.has_value(), stored ? number_of(*stored) : std::nullopt});
        }
        runs.reset();
        return has_looks();
    }

private:
    static std::optional<uint64_t> number_of(const StoredValue &value) {
        if (value.form != StoredValue::Form::number) return std::nullopt;
        return value.number;
    }

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
    bool has_looks() const { return looks_ <= most_looks_; }

    Database &database_;
    const ChartQuery query_;
    const size_t most_looks_;
    std::optional<Transaction> transaction_;
    size_t looks_ = 0;  // since it began
    int64_t place_ = 0; // in a run of place_count_ values
    int64_t place_count_ = 0;
};

} // namespace

std::vector<Point> read_chart(Database &database, const ChartQuery &query, size_t most_looks) {
    FileChart source(database, query, most_looks);
    return dtfleet::read_chart(source, query);
}

} // namespace dtfleet::sqlite
