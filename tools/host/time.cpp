#include "host/time.h"

#include <fmt/chrono.h>

#include <algorithm>
#include <climits>
#include <cstdint>

namespace dtctl {

int milliseconds_until(Clock::time_point when) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(when - Clock::now()).count();
    return static_cast<int>(std::clamp<decltype(left)>(left, 0, INT_MAX));
}

std::chrono::milliseconds milliseconds_of(double seconds) {
    return std::chrono::ceil<std::chrono::milliseconds>(std::chrono::duration<double>(seconds));
}

std::string utc_text(std::time_t when) {
    constexpr int64_t last = 253402300799; // of the year 9999
    const auto shown = static_cast<std::time_t>(std::clamp<int64_t>(when, 0, last));
    return fmt::format("{:%FT%TZ}", fmt::gmtime(shown));
}

} // namespace dtctl
