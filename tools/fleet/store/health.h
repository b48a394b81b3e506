// What to think of a device: one rule for the page, the commands and the metrics.
#pragma once

#include "fleet/store/store.h"

#include <array>

namespace dtfleet {

// The worse, the later, but for the last two: of those nothing is expected.
enum class Health : uint8_t {
    ok,
    never,   // no good run yet, and too few failed ones to say more
    late,    // its last good run is too long ago
    failing, // its last runs failed
    paused,
    off, // disabled, or no longer in the inventory
};

constexpr std::array health_names{"ok", "never", "late", "failing", "paused", "off"};

constexpr const char *text_of(Health health) { return health_names[static_cast<size_t>(health)]; }

// So many failed runs in a row make a device a failing one.
constexpr uint32_t failures_of_failing = 3;

// When a device becomes late unless a good run comes before: two turns and a whole run after the
// last one. Never overflows: times that the database holds are as wrong as the clock was.
inline Microseconds late_from(const DeviceState &device, Seconds run_limit) {
    const Microseconds patience =
        std::chrono::microseconds(2 * device.interval + run_limit).count();
    return device.last_ok > INT64_MAX - patience ? INT64_MAX : device.last_ok + patience;
}

inline bool is_late(const DeviceState &device, Seconds run_limit, Microseconds now) {
    return device.last_ok != 0 && now > late_from(device, run_limit);
}

inline Health health_of(const DeviceState &device, Seconds run_limit, Microseconds now) {
    if (!device.is_listed) return Health::off;
    if (device.paused_until > now) return Health::paused;
    if (device.failures >= failures_of_failing) return Health::failing;
    if (is_late(device, run_limit, now)) return Health::late;
    return device.last_ok == 0 ? Health::never : Health::ok;
}

} // namespace dtfleet
