#include "fleet/store/sqlite/clock_guard.h"

#include <optional>

namespace dtfleet::sqlite {
namespace {

constexpr Microseconds between_notes = 60 * microseconds_a_second;

struct Trusted {
    std::string boot_id;
    Microseconds offset = 0; // of the wall clock from the time since boot
    Microseconds wall = 0;   // last seen
};

std::optional<Trusted> trusted_clock(Database &database) {
    std::optional<Trusted> trusted;
    Statement &find = database.statement(
        "SELECT a.value, b.value, c.value FROM meta a, meta b, meta c WHERE a.key = 'clock_boot' "
        "AND b.key = 'clock_offset' AND c.key = 'clock_wall'");
    if (find.step()) trusted = {std::string(find.bytes(0)), find.number(1), find.number(2)};
    find.reset();
    return trusted;
}

} // namespace

bool is_clock_held(Database &database, const Clocks &now) {
    const auto trusted = trusted_clock(database);
    if (!trusted) return false;
    const Microseconds offset = now.wall - now.boot;
    if (trusted->boot_id == now.boot_id) return are_apart(offset, trusted->offset);
    return has_jumped(trusted->wall, now.wall);
}

void note_clock(Database &database, const Clocks &now) {
    const auto trusted = trusted_clock(database);
    if (!trusted || trusted->boot_id != now.boot_id) return accept_clock(database, now);
    if (is_later(now.wall, trusted->wall, between_notes))
        database.statement("UPDATE meta SET value = ? WHERE key = 'clock_wall'").run(now.wall);
}

void accept_clock(Database &database, const Clocks &now) {
    database
        .statement("INSERT OR REPLACE INTO meta VALUES ('clock_boot', ?), ('clock_offset', ?), "
                   "('clock_wall', ?)")
        .run(std::string_view(now.boot_id), now.wall - now.boot, now.wall);
}

} // namespace dtfleet::sqlite
