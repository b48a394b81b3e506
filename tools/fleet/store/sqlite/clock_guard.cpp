#include "fleet/store/sqlite/clock_guard.h"

#include "fleet/store/sqlite/state.h"

#include <ctime>
#include <fstream>
#include <optional>

namespace dtfleet::sqlite {
namespace {

constexpr Microseconds most_apart = microseconds_an_hour;
constexpr Microseconds longest_off = 3 * microseconds_a_day;
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

Microseconds microseconds_of(clockid_t clock) {
    timespec time{};
    ::clock_gettime(clock, &time);
    return time.tv_sec * microseconds_a_second + time.tv_nsec / 1000;
}

std::string read_boot_id() {
    std::string id;
    std::ifstream("/proc/sys/kernel/random/boot_id") >> id;
    return id;
}

// Whether a is later than b by more than so much; both may be anything.
bool is_later(Microseconds a, Microseconds b, Microseconds more_than) {
    Microseconds difference = 0;
    return a > b && (__builtin_sub_overflow(a, b, &difference) || difference > more_than);
}

} // namespace

Clocks read_clocks() {
    static const std::string boot_id = read_boot_id();
    return {microseconds_of(CLOCK_REALTIME), microseconds_of(CLOCK_BOOTTIME), boot_id};
}

bool is_clock_held(Database &database, const Clocks &now) {
    const auto trusted = trusted_clock(database);
    if (!trusted) return false;
    const Microseconds offset = now.wall - now.boot;
    if (trusted->boot_id == now.boot_id)
        return is_later(offset, trusted->offset, most_apart) ||
               is_later(trusted->offset, offset, most_apart);
    return is_later(trusted->wall, now.wall, most_apart) ||
           is_later(now.wall, trusted->wall, longest_off);
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
