#include "fleet/store/sqlite/audit.h"

#include "fleet/store/record.h"
#include "fleet/store/state.h"
#include "host/failure.h"
#include "host/text.h"

#include <fmt/format.h>

#include <algorithm>

namespace dtfleet::sqlite {
namespace {

constexpr size_t most_complaints = 100;
constexpr int64_t most_values = 50'000; // of a slice
constexpr int64_t most_rows = 500;

// SQLite looks through a file in one transaction, which is short enough for those below.
constexpr int64_t small_file = 64'000'000; // bytes

} // namespace

std::vector<std::string> Audit::complaints() {
    for (const Slice slice : {&Audit::check_file, &Audit::check_numbers, &Audit::check_collections,
                              &Audit::check_states, &Audit::check_sums, &Audit::check_logs})
        look(slice);
    return std::move(complaints_);
}

// Pages that cannot be read end one look, not the others.
void Audit::look(Slice slice) {
    Place place;
    try {
        for (bool has_more = true; has_more && !is_full();) {
            Transaction transaction(database_, Transaction::Kind::read);
            has_more = (this->*slice)(place);
        }
    } catch (const dtctl::Failure &failure) {
        complain(failure.what());
    }
}

void Audit::complain(std::string text) {
    const bool is_new =
        std::find(complaints_.begin(), complaints_.end(), text) == complaints_.end();
    if (is_new && !is_full()) complaints_.push_back(std::move(text));
}

bool Audit::is_full() const { return complaints_.size() >= most_complaints; }

bool Audit::check_file(Place &) {
    if (database_.number("PRAGMA page_count") * database_.number("PRAGMA page_size") > small_file)
        return false;
    Statement &check = database_.statement("PRAGMA integrity_check");
    while (check.step())
        if (check.bytes(0) != "ok") complain(dtctl::escape(check.bytes(0)));
    return false;
}

bool Audit::check_numbers(Place &) {
    constexpr const char *late = "a number of {} would be given twice";
    if (database_.number("SELECT value FROM meta WHERE key = 'next_collection'") <=
        database_.number("SELECT max(id) FROM collection"))
        complain(fmt::format(late, "runs"));
    const int64_t next = database_.number("SELECT value FROM meta WHERE key = 'next_value'");
    if (next <= database_.number("SELECT max(id) FROM value"))
        complain(fmt::format(late, "values"));
    return false;
}

// ---- runs ---------------------------------------------------------------------------------------

// The runs' values follow each other in the order of the runs: none overlap, and between them are
// none but of runs that have been deleted, which go with their values. `part` is where the values
// of the last run end.
bool Audit::check_collections(Place &place) {
    Statement &find = database_.statement(
        "SELECT c.id, c.first, c.count, d.id, c.outcome FROM collection c "
        "LEFT JOIN device d ON d.id = c.device WHERE c.id > ? ORDER BY c.id LIMIT ?");
    find.with(place.number, most_rows);
    int64_t rows = 0;
    for (int64_t values = 0; values < most_values && find.step(); ++rows) {
        const int64_t id = find.number(0), first = find.number(1), count = find.number(2);
        place.number = id;
        if (find.is_null(3)) complain(fmt::format("run {}: its device is not there", id));
        if (find.number(4) < 0 || find.number(4) >= static_cast<int64_t>(outcomes))
            complain(fmt::format("run {}: it has no outcome", id));
        if (count < 0 || first < 0 || count > INT64_MAX - first) {
            complain(fmt::format("run {}: {} values from {} on cannot be", id, count, first));
            continue;
        }
        check_values(id, first, count, place.part);
        place.part = std::max(place.part, first + count);
        values += count;
    }
    find.reset();
    if (rows == 0 && database_.number("SELECT ifnull(max(id), -1) FROM value") >= place.part)
        complain("behind the last run: values of no run");
    if (advance_)
        advance_(static_cast<uint64_t>(place.number),
                 static_cast<uint64_t>(database_.number("SELECT max(id) FROM collection")));
    return rows != 0;
}

void Audit::check_values(int64_t collection, int64_t first, int64_t count, int64_t end_before) {
    if (first < end_before)
        return complain(fmt::format("run {}: its values are another run's, too", collection));
    Statement &find = database_.statement(
        "SELECT count(*), count(s.id), sum(v.id >= ?2) FROM value v LEFT JOIN series s ON s.id = "
        "v.series WHERE v.id >= ?1 AND v.id < ?2 + ?3");
    find.with(end_before, first, count);
    find.step();
    const int64_t there = find.number(0), known = find.number(1), own = find.number(2);
    find.reset();
    if (there != own) complain(fmt::format("before run {}: values of no run", collection));
    if (own != count)
        complain(fmt::format("run {}: {} of its {} values are there", collection, own, count));
    if (known != there)
        complain(fmt::format("run {}: values of a series that is not there", collection));
}

// ---- what stands beside the runs ----------------------------------------------------------------

bool Audit::check_states(Place &place) {
    Statement &find = database_.statement(
        "SELECT s.id, s.device, s.command, s.time, s.full_day, s.hour, s.entries, d.id FROM state "
        "s "
        "LEFT JOIN device d ON d.id = s.device WHERE s.id > ? ORDER BY s.id LIMIT 100");
    find.with(place.number);
    bool has_rows = false;
    for (; find.step(); has_rows = true) {
        place.number = find.number(0);
        if (find.is_null(7))
            complain(
                fmt::format("device {}: it is not there, and has last values", find.number(1)));
        check_entries(find.number(1), find);
    }
    find.reset();
    return has_rows;
}

void Audit::check_entries(int64_t device, const Statement &row) {
    State state{row.number(3), row.number(4), row.number(5), {}};
    if (!unpack(row.bytes(6), state))
        return complain(fmt::format("device {}: its last values cannot be read", device));
    for (const Entry &entry : state.entries) {
        if (entry.form != Entry::Form::row) continue;
        Statement &find = database_.statement("SELECT series FROM value WHERE id = ?");
        find.with(entry.number);
        if (!find.step() || find.number(0) != entry.series)
            complain(fmt::format("device {}: one of its last values is not there", device));
        find.reset();
    }
}

bool Audit::check_sums(Place &place) {
    Statement &find = database_.statement(
        "SELECT r.device, r.command, r.hour, CASE WHEN json_valid(r.entries) THEN NOT EXISTS("
        "SELECT 1 FROM json_each(r.entries) WHERE CASE type WHEN 'array' THEN "
        "json_array_length(value) END IS NOT 6) ELSE 0 END, d.id FROM rollup r LEFT JOIN device d "
        "ON d.id = r.device WHERE (r.device, r.command, r.hour) > (?, ?, ?) "
        "ORDER BY r.device, r.command, r.hour LIMIT ?");
    find.with(place.device, place.part, place.number, most_rows);
    bool has_rows = false;
    for (; find.step(); has_rows = true) {
        place = {find.number(0), find.number(1), find.number(2)};
        if (find.number(3) == 0 || find.is_null(4))
            complain(fmt::format("device {}: the sums of hour {} cannot be read", place.device,
                                 place.number));
    }
    find.reset();
    return has_rows;
}

bool Audit::check_logs(Place &place) {
    Statement &find = database_.statement(
        "SELECT l.device, l.series, l.seq, length(l.text), d.id, s.id FROM log l "
        "LEFT JOIN device d ON d.id = l.device LEFT JOIN series s ON s.id = l.series "
        "WHERE (l.device, l.series, l.seq) > (?, ?, ?) ORDER BY l.device, l.series, l.seq LIMIT ?");
    find.with(place.device, place.part, place.number, 10 * most_rows);
    bool has_rows = false;
    for (; find.step(); has_rows = true) {
        place = {find.number(0), find.number(1), find.number(2)};
        if (find.is_null(4) || find.is_null(5))
            complain(fmt::format("device {}: lines of a log that is not there", place.device));
    }
    find.reset();
    return has_rows;
}

} // namespace dtfleet::sqlite
