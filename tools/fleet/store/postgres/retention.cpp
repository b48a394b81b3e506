#include "fleet/store/postgres/retention.h"

#include "fleet/store/postgres/devices.h"
#include "fleet/store/state.h"

namespace dtfleet::postgres {
namespace {

using Clock = std::chrono::steady_clock;

constexpr int64_t days_ahead = 2;
constexpr std::chrono::minutes between_days(10);
constexpr Microseconds between_sweeps = 600 * microseconds_a_second;

// Those that hold more than the runs that must stay, the oldest first.
constexpr const char *whole_days =
    "SELECT d.day, d.bytes FROM day d LEFT JOIN day_kept k USING (day) LEFT JOIN "
    "(SELECT full_day AS day, count(*) AS needed FROM state s JOIN device v ON v.id = s.device AND "
    "v.name IS NOT NULL GROUP BY full_day) n USING (day) "
    "WHERE k.runs IS NULL OR k.runs > coalesce(n.needed, 0) ORDER BY d.day";

// A slice of what is older than $1.
constexpr const char *old_sums =
    "DELETE FROM rollup WHERE ctid = ANY(ARRAY(SELECT ctid FROM rollup WHERE "
    "hour < $1 / 3600000000 LIMIT 2000))";
// From a log's first line on, and never what the device sends still. One that stands in the future,
// for it came while the clock was wrong, goes with those before it.
constexpr const char *old_lines =
    "DELETE FROM log l USING (SELECT t.device, t.series, (SELECT min(n.seq) FROM log n WHERE "
    "n.device = t.device AND n.series = t.series AND n.time >= $1 AND n.time <= clock()) AS fresh, "
    "min(t.first) AS sent FROM log_tail t GROUP BY t.device, t.series) b WHERE "
    "l.device = b.device AND l.series = b.series AND l.seq < least(b.fresh, b.sent)";
// The next file of a device has the faults of the one before, as a rule: so all or none.
constexpr const char *old_faults =
    "DELETE FROM fault WHERE id = ANY(ARRAY(SELECT id FROM fault f WHERE NOT EXISTS (SELECT 1 FROM "
    "fault_file WHERE device = f.device AND pass_time >= $1) LIMIT 2000))";

// Without a bound: before all that is.
Microseconds time_before(Seconds age, Microseconds now) {
    if (age == Seconds(0)) return INT64_MIN;
    return day_of(now - age.count() * microseconds_a_second) * microseconds_a_day;
}

void make_next_days(Connection &connection) {
    connection.query("SELECT make_day(d) FROM generate_series(clock() / 86400000000, "
                     "clock() / 86400000000 + $1) d WHERE to_regclass(day_name(d)) IS NULL",
                     days_ahead);
}

} // namespace

void Housekeeper::take(const Retention &retention) {
    retention_ = retention;
    connection_.query("UPDATE meta SET value = 0 WHERE key = 'next_sweep'");
}

bool Housekeeper::tidy() {
    if (purge_some(connection_)) return true;
    if (next_days_ <= Clock::now()) {
        make_next_days(connection_);
        next_days_ = Clock::now() + between_days;
    }
    if (guard_.is_held()) return false;
    guard_.note();
    try {
        return sweep();
    } catch (const Unavailable &) { // somebody reads what is to be deleted: another time
        return false;
    }
}

// The row of the next sweep is held while one goes on.
bool Housekeeper::sweep() {
    Transaction transaction(connection_, Transaction::Kind::write);
    const auto now = connection_.number("SELECT clock() FROM meta WHERE key = 'next_sweep' AND "
                                        "value <= clock() FOR UPDATE SKIP LOCKED");
    if (!now) return false;
    now_ = *now;
    const bool has_more = delete_some() || forget_removed();
    if (!has_more) {
        connection_.query("UPDATE meta SET value = clock() + $1 WHERE key = 'next_sweep'",
                          between_sweeps);
    }
    transaction.commit();
    return has_more;
}

bool Housekeeper::delete_some() {
    bound_ = time_before(retention_.long_age, now_);
    return drop_old_day() || (bound_ != INT64_MIN &&
                              (deletes(old_sums) || deletes(old_lines) || deletes(old_faults)));
}

// Never today's. Days that are too many for the size are deleted as those that are too old.
bool Housekeeper::drop_old_day() {
    const Result days = connection_.query(whole_days);
    uint64_t bytes = 0;
    for (int row = 0; row < days.rows(); ++row) bytes += static_cast<uint64_t>(days.number(row, 1));
    const bool is_large = retention_.bytes.value_or(0) != 0 && bytes > *retention_.bytes;
    const int64_t oldest = days.rows() == 0 ? INT64_MAX : days.number(0, 0);
    const bool may_go = oldest < day_of(now_);
    is_too_large_ = is_large && !may_go;
    const Microseconds bound = time_before(retention_.age, now_);
    if (!may_go || (!is_large && (oldest + 1) * microseconds_a_day > bound)) return false;
    connection_.query("SELECT drop_day($1)", oldest);
    return true;
}

bool Housekeeper::deletes(const char *sql) { return connection_.query(sql, bound_).changed() != 0; }

// Devices that are in the inventory no more, when nothing of them is left but what is never
// deleted.
bool Housekeeper::forget_removed() {
    return bound_ != INT64_MIN &&
           deletes("UPDATE device SET name = NULL WHERE NOT listed AND name IS NOT NULL AND "
                   "last_try BETWEEN 1 AND $1 - 1 AND NOT EXISTS (SELECT 1 FROM fault_file f WHERE "
                   "f.device = "
                   "device.id AND f.pass_time >= $1)");
}

} // namespace dtfleet::postgres
