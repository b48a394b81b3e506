#include "fleet/store/sqlite/sweep.h"

#include "fleet/store/sqlite/rows.h"

#include <algorithm>
#include <chrono>

namespace dtfleet::sqlite {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds slice(100);
constexpr int64_t most_rows = 200; // at a time

} // namespace

bool Sweep::step() {
    const auto end = Clock::now() + slice;
    Transaction transaction(database_, Transaction::Kind::write);
    bool has_more = true;
    while (has_more && Clock::now() < end) has_more = step_device();
    transaction.commit();
    return has_more;
}

bool Sweep::step_device() {
    if (device_ != 0) {
        if (delete_runs() || delete_sums() || delete_lines() || delete_faults()) return true;
        note_oldest();
    }
    Statement &next = database_.statement("SELECT id FROM device WHERE id > ? ORDER BY id LIMIT 1");
    next.with(device_);
    const bool has_more = next.step();
    if (has_more) go_to_device(next.number(0));
    next.reset();
    return has_more;
}

void Sweep::go_to_device(int64_t device) {
    device_ = device;
    after_time_ = INT64_MIN;
    after_id_ = 0;
    has_guards_ = false;
}

void Sweep::note_oldest() {
    const auto note = [this](const char *sql, int64_t bound, int64_t a_day) {
        each_row(database_.statement(sql).with(device_, bound * a_day), [&](const Statement &row) {
            if (!row.is_null(0)) oldest_left_ = std::min(oldest_left_, row.number(0) / a_day);
        });
    };
    note("SELECT min(time) FROM collection WHERE device = ? AND time >= ?", bounds_.runs,
         microseconds_a_day);
    note("SELECT min((SELECT min(hour) FROM rollup r WHERE r.device = s.device AND r.command = "
         "s.command AND r.hour >= ?2)) FROM state s WHERE s.device = ?1",
         bounds_.others, 24);
}

// ---- runs ---------------------------------------------------------------------------------------

// True: it has not come to their end.
bool Sweep::delete_runs() {
    Statement &find = database_.statement(
        "SELECT id, time, command, first, count FROM collection WHERE device = ?1 AND time >= ?2 "
        "AND (time > ?2 OR id > ?3) AND time < ?4 ORDER BY time, id LIMIT ?5");
    std::vector<Run> runs;
    find.with(device_, after_time_, after_id_, bounds_.runs * microseconds_a_day, most_rows);
    each_row(find, [&](const Statement &row) {
        runs.push_back({row.number(0), row.number(1), row.number(2), row.number(3), row.number(4)});
    });
    for (const Run &run : runs) {
        after_time_ = run.time;
        after_id_ = run.id;
        if (is_kept(run)) continue;
        database_.statement("DELETE FROM value WHERE id >= ?1 AND id < ?1 + ?2")
            .run(run.first, run.count);
        database_.statement("DELETE FROM collection WHERE id = ?").run(run.id);
    }
    return !runs.empty();
}

bool Sweep::is_kept(const Run &run) {
    if (run.count == 0) return false;
    read_guards();
    for (const Guard &guard : guards_) {
        if (guard.command != run.command) continue;
        const auto row = std::lower_bound(guard.rows.begin(), guard.rows.end(), run.first);
        return (guard.full_day != 0 && day_of(run.time) >= guard.full_day) ||
               (row != guard.rows.end() && *row - run.first < run.count);
    }
    return false;
}

void Sweep::read_guards() {
    if (has_guards_) return;
    has_guards_ = true;
    guards_.clear();
    for (const auto &[command, state] : states_of(database_, device_)) {
        Guard &guard = guards_.emplace_back(Guard{command, state.full_day, {}});
        for (const Entry &entry : state.entries)
            if (entry.form == Entry::Form::row)
                guard.rows.push_back(static_cast<int64_t>(entry.number));
        std::sort(guard.rows.begin(), guard.rows.end());
    }
}

// ---- what is kept for longer --------------------------------------------------------------------

bool Sweep::delete_sums() {
    std::vector<std::pair<int64_t, int64_t>> firsts; // of each command
    Statement &find = database_.statement(
        "SELECT s.command, (SELECT min(hour) FROM rollup r WHERE r.device = s.device AND "
        "r.command = s.command) FROM state s WHERE s.device = ?");
    each_row(find.with(device_), [&](const Statement &row) {
        if (!row.is_null(1) && row.number(1) < bounds_.others * 24)
            firsts.emplace_back(row.number(0), row.number(1));
    });
    for (const auto &[command, first] : firsts)
        database_
            .statement("DELETE FROM rollup WHERE device = ? AND command = ? AND hour < min(?, ?)")
            .run(device_, command, first + most_rows, bounds_.others * 24);
    return !firsts.empty();
}

bool Sweep::delete_lines() {
    std::vector<std::pair<int64_t, int64_t>> tails; // series, and its first line that is sent still
    Statement &find = database_.statement(
        "SELECT series, min(first) FROM log_tail WHERE device = ? GROUP BY series");
    each_row(find.with(device_),
             [&](const Statement &row) { tails.emplace_back(row.number(0), row.number(1)); });
    bool has_more = false;
    for (const auto &[series, tail] : tails) has_more |= delete_lines_of(series, tail);
    return has_more;
}

// From the first line on. One that stands in the future, for it came while the clock was wrong,
// goes with those before it.
bool Sweep::delete_lines_of(int64_t series, int64_t tail) {
    int64_t end = 0;
    int64_t rows = 0;
    Statement &find = database_.statement("SELECT seq, time FROM log WHERE device = ? AND series = "
                                          "? AND seq < ? ORDER BY seq LIMIT ?");
    find.with(device_, series, tail, most_rows);
    while (find.step()) {
        const Microseconds time = find.number(1);
        if (time >= bounds_.others * microseconds_a_day && time <= now_) break;
        end = find.number(0) + 1;
        ++rows;
    }
    find.reset();
    database_.statement("DELETE FROM log WHERE device = ? AND series = ? AND seq < ?")
        .run(device_, series, end);
    return rows == most_rows;
}

// The next file of a device has the faults of the one before, as a rule: so all or none.
bool Sweep::delete_faults() {
    database_
        .statement("DELETE FROM fault WHERE id IN (SELECT id FROM fault WHERE device = ?1 AND NOT "
                   "EXISTS(SELECT 1 FROM fault_file WHERE device = ?1 AND pass_time >= ?2) "
                   "ORDER BY id LIMIT ?3)")
        .run(device_, bounds_.others * microseconds_a_day, most_rows);
    return database_.changes() != 0;
}

} // namespace dtfleet::sqlite
