#include "fleet/store/postgres/history.h"

#include "fleet/store/postgres/rows.h"

#include <algorithm>

namespace dtfleet::postgres {
namespace {

// What a slice looks at, wanted or not: some hundredths of a second.
constexpr size_t most_looks = 100'000;
constexpr int64_t runs_at_once = 200;

#define DT_RUN "SELECT id, run, device, time, outcome, command, series, ordinals, numbers, texts "

// Partitions hold days, so the time by itself says where to look.
constexpr const char *runs_by_time =
    DT_RUN "FROM collection WHERE device = $1 AND time >= $2 AND time < $3 AND "
           "(time > $4 OR id >= $5) AND id <= $6 ORDER BY time, id LIMIT $7";
constexpr const char *runs_by_id = DT_RUN "FROM collection WHERE id >= $1 ORDER BY id LIMIT $2";

#undef DT_RUN

class Slice {
public:
    Slice(Connection &connection, const ValueQuery &query, Reader::Place &after, size_t limit,
          std::vector<FlatValue> &rows)
        : connection_(connection), query_(query), after_(after), limit_(limit), rows_(rows),
          series_(query.series) {
        std::sort(series_.begin(), series_.end());
        rows_.clear();
    }

    // False when there is nothing behind it. The run at the end of what was read is read again, for
    // some of its values may be left.
    bool read() {
        for (;;) {
            const bool is_by_time = has_time() && after_.last != INT64_MAX;
            const Result runs = is_by_time ? runs_of_device() : runs_by_their_ids();
            const int64_t place = after_.collection;
            for (int row = 0; row < runs.rows(); ++row)
                if (!read_run(runs, row)) return true;
            const bool is_over = runs.rows() < runs_at_once || after_.collection == place;
            if (is_over && !(is_by_time && go_behind())) return false;
        }
    }

private:
    // Then it is read by time, device after device, as partitions and index have it.
    bool has_time() const { return query_.device || query_.from > 0 || query_.to < INT64_MAX; }

    // True: there is another device. Otherwise more may be stored later, which is read by its ids,
    // whatever its time.
    bool go_behind() {
        const int64_t next = query_.device ? 0 : device_behind(after_.device);
        after_ = {next, 0, 0, 0, after_.last};
        if (next == 0) after_ = {0, after_.last + 1, 0, 0, INT64_MAX};
        return next != 0;
    }

    // 0: none.
    int64_t device_behind(int64_t device) {
        return connection_.number("SELECT id FROM device WHERE id > $1 ORDER BY id LIMIT 1", device)
            .value_or(0);
    }

    Result runs_of_device() {
        if (after_.last == 0)
            after_.last =
                connection_.number("SELECT value - 1 FROM meta WHERE key = 'next_collection'")
                    .value_or(0);
        if (after_.device == 0) after_.device = query_.device.value_or(device_behind(0));
        const Microseconds from =
            after_.collection == 0 ? query_.from : std::max(query_.from, after_.time);
        return connection_.query(runs_by_time, after_.device, from, query_.to, after_.time,
                                 after_.collection, after_.last, runs_at_once);
    }

    Result runs_by_their_ids() {
        return connection_.query(runs_by_id, after_.collection, runs_at_once);
    }

    bool is_wanted(const Result &runs, int row) const {
        return runs.number(row, 3) >= query_.from && runs.number(row, 3) < query_.to &&
               (!query_.device || runs.number(row, 2) == *query_.device);
    }

    // False when the slice is full before the run is at its end.
    bool read_run(const Result &runs, int row) {
        const int64_t id = runs.number(row, 0);
        const int64_t begin = id == after_.collection ? after_.value : 0;
        after_ = {after_.device, id, runs.number(row, 3), begin, after_.last};
        if (++looks_ > most_looks) return false;
        if (!is_wanted(runs, row)) return true;
        FlatValue shared{id,
                         run_id(runs.bytes(row, 1)),
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
