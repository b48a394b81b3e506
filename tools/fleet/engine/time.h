// The engine's clocks.
#pragma once

#include <algorithm>
#include <chrono>
#include <ctime>

namespace dtfleet {

// Since the machine started, its sleep included: schedules and limits run on it, and a wall clock
// that is set moves neither.
using Time = std::chrono::nanoseconds;

inline Time now() {
    timespec time{};
    (void)::clock_gettime(CLOCK_BOOTTIME, &time);
    return std::chrono::seconds(time.tv_sec) + Time(time.tv_nsec);
}

// Of the wall clock, since 1970.
inline int64_t wall_microseconds() {
    using namespace std::chrono;
    return duration_cast<microseconds>(system_clock::now().time_since_epoch()).count();
}

// When the wall clock showed that, or will, if nobody sets it.
inline Time moment_of(int64_t wall) {
    constexpr int64_t latest = int64_t{1} << 52; // 142 years: no sum with it wraps
    return now() + std::chrono::microseconds(std::clamp<int64_t>(wall, 0, latest) -
                                             std::clamp<int64_t>(wall_microseconds(), 0, latest));
}

inline uint32_t microseconds_between(Time begin, Time end) {
    const auto count = std::chrono::duration_cast<std::chrono::microseconds>(end - begin).count();
    return static_cast<uint32_t>(count < 0 ? 0 : count > UINT32_MAX ? UINT32_MAX : count);
}

} // namespace dtfleet
