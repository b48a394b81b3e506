// The lines of ./dt bench fleet: what was reached beside what is wanted.
#pragma once

#include <cstdio>

namespace fleet {

enum class Bound { at_most, at_least };

// Without a target: for comparison.
inline void show(const char *work, double reached) { std::printf("%-70s %12.4g\n", work, reached); }

// Whether the target is met.
inline bool show(const char *work, double reached, Bound bound, double target) {
    const bool is_met = bound == Bound::at_most ? reached <= target : reached >= target;
    std::printf("%-70s %12.4g %4s %7.4g  %s\n", work, reached,
                bound == Bound::at_most ? "<=" : ">=", target, is_met ? "" : "missed");
    return is_met;
}

} // namespace fleet
