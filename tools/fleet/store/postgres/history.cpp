#include "fleet/store/postgres/history.h"

#include "fleet/store/postgres/rows.h"

#include <algorithm>

namespace dtfleet::postgres {
namespace {

// What a slice looks at, wanted or not: some hundredths of a second.
constexpr size_t most_looks = 100'000;
constexpr int64_t runs_at_once = 200;

// Partitions hold days, so the time by itself says where to look.
constexpr const char *runs_by_time =
    "SELECT id, run, device, time, outcome, command, series, ordinals, numbers, texts "
    "FROM collection WHERE device = $1 AND time >= $2 AND time < $3 AND (time > $4 OR id >= $5) "
    "ORDER BY time, id LIMIT $6";
constexpr const char *runs_by_id =
    "SELECT id, run, device, time, outcome, command, series, ordinals, numbers, texts "
    "FROM collection WHERE id >= $1 AND time >= $2 AND time < $3 ORDER BY id LIMIT $4";

class Slice {
public:
    Slice(Connection &connection, const ValueQuery &query, Reader::Place &after, size_t limit,
          std::vector<FlatValue> &rows)
        : connection_(connection), query_(query), after_(after), limit_(limit), rows_(rows),
          series_(query.series) {
        std::sort(series_.begin(), series_.end());
        rows_.clear();
    }

    // False when there is nothing behind it. Runs that stand at its end are read again, for some of
    // their values may be left.
    bool read() {
        for (;;) {
            const Result runs = query_.device ? runs_of_device() : runs_of_all();
            const int64_t place = after_.collection;
            for (int row = 0; row < runs.rows(); ++row)
                if (!read_run(runs, row)) return true;
            if (runs.rows() < runs_at_once || after_.collection == place) return false;
        }
    }

private:
    Result runs_of_device() {
        const Microseconds from =
            after_.collection == 0 ? query_.from : std::max(query_.from, after_.time);
        return connection_.query(runs_by_time, *query_.device, from, query_.to, after_.time,
                                 after_.collection, runs_at_once);
    }
    Result runs_of_all() {
        return connection_.query(runs_by_id, after_.collection, query_.from, query_.to,
                                 runs_at_once);
    }

    // False when the slice is full before the run is at its end.
    bool read_run(const Result &runs, int row) {
        const int64_t id = runs.number(row, 0);
        const int64_t begin = id == after_.collection ? after_.value : 0;
        after_ = {id, runs.number(row, 3), begin, 0};
        if (++looks_ > most_looks) return false;
        FlatValue shared{id,
                         sqlite::run_id(runs.bytes(row, 1)),
                         runs.number(row, 2),
                         runs.number(row, 3),
                         outcome_of(runs.number(row, 4)),
                         static_cast<uint32_t>(runs.number(row, 5)),
                         0,
                         0,
                         {}};
        const auto series = runs.numbers(row, 6), ordinals = runs.numbers(row, 7);
        const auto numbers = runs.numbers(row, 8);
        const auto texts = runs.texts(row, 9);
        for (auto i = static_cast<size_t>(begin); i < series.size(); ++i) {
            if (rows_.size() >= limit_ || ++looks_ > most_looks) return false;
            after_.value = static_cast<int64_t>(i) + 1;
            shared.series = series[i].value_or(0);
            shared.ordinal =
                i < ordinals.size() ? static_cast<uint32_t>(ordinals[i].value_or(0)) : 0;
            shared.value = {};
            if (i < numbers.size() && numbers[i])
                shared.value = {StoredValue::Form::number, static_cast<uint64_t>(*numbers[i]), {}};
            else if (i < texts.size() && texts[i])
                shared.value = {StoredValue::Form::bytes, 0, std::string(*texts[i])};
            take(shared);
        }
        return true;
    }

    void take(const FlatValue &value) {
        if (series_.empty() || std::binary_search(series_.begin(), series_.end(), value.series))
            rows_.push_back(value);
    }

    Connection &connection_;
    const ValueQuery &query_;
    Reader::Place &after_;
    size_t limit_;
    std::vector<FlatValue> &rows_;
    std::vector<int64_t> series_;
    size_t looks_ = 0;
};

} // namespace

bool read_history(Connection &connection, const ValueQuery &query, Reader::Place &after,
                  size_t limit, std::vector<FlatValue> &rows) {
    return Slice(connection, query, after, limit, rows).read();
}

} // namespace dtfleet::postgres
