#include "fleet/store/clocks.h"

#include <ctime>
#include <fstream>

namespace dtfleet {
namespace {

constexpr Microseconds most_apart = microseconds_an_hour;
constexpr Microseconds longest_off = 3 * microseconds_a_day;

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

} // namespace

Clocks read_clocks() {
    static const std::string boot_id = read_boot_id();
    return {microseconds_of(CLOCK_REALTIME), microseconds_of(CLOCK_BOOTTIME), boot_id};
}

bool is_later(Microseconds a, Microseconds b, Microseconds more_than) {
    Microseconds difference = 0;
    return a > b && (__builtin_sub_overflow(a, b, &difference) || difference > more_than);
}

bool are_apart(Microseconds a, Microseconds b) {
    return is_later(a, b, most_apart) || is_later(b, a, most_apart);
}

bool has_jumped(Microseconds seen, Microseconds now) {
    return is_later(seen, now, most_apart) || is_later(now, seen, longest_off);
}

} // namespace dtfleet
