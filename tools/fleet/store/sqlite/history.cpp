#include "fleet/store/sqlite/history.h"

#include "fleet/store/sqlite/rows.h"

#include <algorithm>

namespace dtfleet::sqlite {
namespace {

// What a slice looks at, wanted or not: some hundredths of a second.
constexpr size_t most_looks = 100'000;

constexpr const char *runs_by_time =
    "SELECT id, run, device, time, outcome, command, first, count FROM collection WHERE "
    "device = ?1 AND time >= ?2 AND time < ?3 AND (time > ?4 OR id >= ?5) AND id <= ?6 ORDER BY "
    "time, id";
constexpr const char *runs_by_id =
    "SELECT id, run, device, time, outcome, command, first, count FROM collection WHERE id >= ? "
    "ORDER BY id";

class Slice {
public:
    Slice(Database &database, const ValueQuery &query, Reader::Place &after, size_t limit,
          std::vector<FlatValue> &rows)
        : database_(database), query_(query), after_(after), limit_(limit), rows_(rows),
          series_(query.series) {
        std::sort(series_.begin(), series_.end());
    }

    // False when there is nothing behind it.
    bool read() {
        rows_.clear();
        const bool is_by_time = has_time() && after_.last != INT64_MAX;
        Statement &runs = is_by_time ? runs_of_device() : runs_by_their_ids();
        bool more = false;
        while (!more && runs.step()) more = !read_run(runs);
        runs.reset();
        return more || (is_by_time && go_behind());
    }

private:
    // Then it is read by time, device after device: ids grow with the time only while nobody sets
    // the clock, and to look at all runs could take as long as it likes.
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
        int64_t behind = 0;
        Statement &find =
            database_.statement("SELECT id FROM device WHERE id > ? ORDER BY id LIMIT 1");
        each_row(find.with(device), [&](const Statement &row) { behind = row.number(0); });
        return behind;
    }

    Statement &runs_of_device() {
        if (after_.last == 0) after_.last = database_.number("SELECT max(id) FROM collection");
        if (after_.device == 0) after_.device = query_.device.value_or(device_behind(0));
        const Microseconds from = std::max(query_.from, after_.time);
        return database_.statement(runs_by_time)
            .with(after_.device, after_.collection ? from : query_.from, query_.to, after_.time,
                  after_.collection, after_.last);
    }

    Statement &runs_by_their_ids() {
        return database_.statement(runs_by_id).with(after_.collection);
    }

    // False when the slice is full before the run is at its end.
    bool read_run(const Statement &run) {
        const int64_t id = run.number(0);
        const int64_t first = run.number(6);
        const int64_t end = first + run.number(7);
        const bool is_begun = id == after_.collection && after_.value != 0;
        const int64_t begin = is_begun ? after_.value + 1 : first;
        after_ = {after_.device, id, run.number(3), begin - 1, after_.last};
        if (++looks_ > most_looks) return false;
        const bool is_wanted = run.number(3) >= query_.from && run.number(3) < query_.to &&
                               (!query_.device || run.number(2) == *query_.device);
        if (begin >= end || !is_wanted) return true;
        FlatValue shared{id,
                         run_id(run.bytes(1)),
                         run.number(2),
                         run.number(3),
                         outcome_of(run.number(4)),
                         static_cast<uint32_t>(run.number(5)),
                         0,
                         0,
                         {}};
        return read_values(begin, end, shared);
    }

    bool read_values(int64_t begin, int64_t end, FlatValue &shared) {
        Statement &values = database_.statement(
            "SELECT id, series, ordinal, value FROM value WHERE id >= ? AND id < ?");
        values.with(begin, end);
        bool has_room = true;
        while (has_room && values.step()) {
            has_room = rows_.size() < limit_ && ++looks_ <= most_looks;
            if (has_room) take(values, shared);
        }
        values.reset();
        return has_room;
    }

    void take(const Statement &value, FlatValue &shared) {
        after_.value = value.number(0);
        shared.series = value.number(1);
        if (!series_.empty() && !std::binary_search(series_.begin(), series_.end(), shared.series))
            return;
        shared.ordinal = static_cast<uint32_t>(value.number(2));
        shared.value = stored_value(value, 3);
        rows_.push_back(shared);
    }

    Database &database_;
    const ValueQuery &query_;
    Reader::Place &after_;
    size_t limit_;
    std::vector<FlatValue> &rows_;
    std::vector<int64_t> series_;
    size_t looks_ = 0;
};

} // namespace

bool read_history(Database &database, const ValueQuery &query, Reader::Place &after, size_t limit,
                  std::vector<FlatValue> &rows) {
    return Slice(database, query, after, limit, rows).read();
}

} // namespace dtfleet::sqlite
