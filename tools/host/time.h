// Time for programs that wait, and for texts.
#pragma once

#include <chrono>
#include <ctime>
#include <string>

namespace dtctl {

using Clock = std::chrono::steady_clock;

// Milliseconds from now, rounded up, for poll; 0 when the time has passed.
int milliseconds_until(Clock::time_point when);

// Rounded up.
std::chrono::milliseconds milliseconds_of(double seconds);

// As 2026-01-31T08:15:00Z; what lies before 1970 or behind 9999 as the nearest that does not.
std::string utc_text(std::time_t when);

} // namespace dtctl
