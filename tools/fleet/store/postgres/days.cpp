#include "fleet/store/postgres/days.h"

namespace dtfleet::postgres {
namespace {

constexpr int64_t days_ahead = 2;

// Days that hold more than what must stay, the oldest first.
constexpr const char *whole_days =
    "SELECT d.day, d.bytes, n.needed FROM day d LEFT JOIN day_kept k USING (day) CROSS JOIN "
    "LATERAL (SELECT count(*) AS needed FROM state s JOIN device v ON v.id = s.device AND v.name "
    "IS NOT NULL WHERE s.full_day = d.day) n WHERE k.runs IS NULL OR k.runs > n.needed "
    "ORDER BY d.day";

} // namespace

void make_next_days(Connection &connection) {
    connection.query("SELECT make_day(d) FROM generate_series("
                     "(extract(epoch FROM now()) / 86400)::bigint, "
                     "(extract(epoch FROM now()) / 86400)::bigint + $1) d "
                     "WHERE to_regclass(day_name(d)) IS NULL",
                     days_ahead);
}

bool drop_old_day(Connection &connection, const Retention &retention) {
    const Result days = connection.query(whole_days);
    if (days.rows() == 0) return false;
    const auto now = connection.number("SELECT extract(epoch FROM now())::bigint").value_or(0);
    uint64_t bytes = 0;
    for (int row = 0; row < days.rows(); ++row) bytes += static_cast<uint64_t>(days.number(row, 1));
    const int64_t oldest = days.number(0, 0);
    const int64_t second = 86400;
    const bool is_old =
        retention.age.count() != 0 && (oldest + 1) * second <= now - retention.age.count();
    const bool is_much =
        retention.bytes != 0 && bytes > retention.bytes && (oldest + 1) * second <= now;
    if (!is_old && !is_much) return false;
    connection.query("SELECT drop_day($1)", oldest);
    return true;
}

} // namespace dtfleet::postgres
