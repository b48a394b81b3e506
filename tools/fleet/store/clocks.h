// Time as it is told, and as it goes by.
#pragma once

#include "fleet/store/state.h"

#include <string>

namespace dtfleet {

struct Clocks {
    Microseconds wall = 0;
    Microseconds boot = 0; // since the machine was started, its sleep included
    std::string boot_id;   // another one after each start
};
Clocks read_clocks();

// Whether a is later than b by more than so much; both may be anything.
bool is_later(Microseconds a, Microseconds b, Microseconds more_than);

// Whether a clock's difference from the time that goes by has changed by more than an hour.
bool are_apart(Microseconds a, Microseconds b);

// Whether a clock that was last seen at one time, with nobody to measure what went by since, cannot
// be right: it stands before that time by more than an hour, or more than three days (a weekend)
// behind it.
bool has_jumped(Microseconds seen, Microseconds now);

} // namespace dtfleet
