// How fast and how late a collector asks, over the last seconds.
#pragma once

#include "fleet/engine/statistics.h"

#include <deque>

namespace dtfleet {

class Pace {
public:
    // To be called with what has been counted since the start, about once a second.
    void note(const Statistics &all, Time time);

    double rate() const;      // runs that end in a second
    Microseconds lag() const; // from a turn to its command, on an average

private:
    struct Sample {
        Time time;
        uint64_t runs;
        uint64_t begun;
        double late; // seconds, of all that have begun
    };
    std::deque<Sample> samples_;
};

} // namespace dtfleet
