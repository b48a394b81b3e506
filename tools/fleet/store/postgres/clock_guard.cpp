#include "fleet/store/postgres/clock_guard.h"

#include "fleet/store/clocks.h"

namespace dtfleet::postgres {
namespace {

constexpr Microseconds between_notes = 60 * microseconds_a_second;

} // namespace

bool ClockGuard::is_held() {
    const Result row =
        connection_.query("SELECT clock(), (SELECT value FROM meta WHERE key = 'clock_seen'), "
                          "(SELECT value FROM meta WHERE key = 'clock_accepted')");
    const Microseconds now = row.number(0, 0), seen = row.number(0, 1);
    const int64_t accepted = row.number(0, 2);
    const Microseconds offset = now - read_clocks().boot;
    if (trusted_ && trusted_->accepted == accepted) return are_apart(trusted_->offset, offset);
    if (!trusted_ && seen != 0 && has_jumped(seen, now)) return true;
    trusted_ = Trusted{offset, accepted};
    return false;
}

void ClockGuard::note() {
    connection_.query("UPDATE meta SET value = clock() WHERE key = 'clock_seen' AND "
                      "value < clock() - $1",
                      between_notes);
}

void ClockGuard::accept() {
    connection_.query("UPDATE meta SET value = clock() WHERE key = 'clock_seen'");
    connection_.query("UPDATE meta SET value = value + 1 WHERE key = 'clock_accepted'");
}

} // namespace dtfleet::postgres
