// What the engine counts, over the whole fleet.
#pragma once

#include "fleet/engine/time.h"
#include "fleet/store/record.h"

#include <array>
#include <cstddef>
#include <cstdint>

namespace dtfleet {

// Times, counted in classes.
class Histogram {
public:
    // Upper bounds in seconds; the last class has none.
    static constexpr std::array<double, 12> bounds{0.001, 0.0025, 0.005, 0.01, 0.025, 0.05,
                                                   0.1,   0.25,   0.5,   1,    5,     30};

    void add(Time time) {
        const double seconds = std::chrono::duration<double>(time).count();
        size_t i = 0;
        while (i < bounds.size() && seconds > bounds[i]) ++i;
        ++counts_[i];
        sum_ += seconds;
    }

    const std::array<uint64_t, bounds.size() + 1> &counts() const { return counts_; }
    double sum() const { return sum_; }

private:
    std::array<uint64_t, bounds.size() + 1> counts_{};
    double sum_ = 0;
};

struct Statistics {
    std::array<uint64_t, outcomes> runs{}; // ended, by their outcome
    uint64_t values = 0;
    uint64_t bytes = 0;
    uint64_t commands = 0; // sent, resends included
    uint64_t resends = 0;
    uint64_t doubles = 0;   // openings whose run was open or over: the answer to a repeated command
    uint64_t strangers = 0; // connections closed without the opening of any run
    uint64_t overlaps = 0;  // turns left out because the run before was still going on
    uint64_t no_descriptor = 0; // times that a connection could not be accepted for want of one
    uint64_t held_back = 0;     // passes in which runs were due and the outlet had no room
    Histogram lateness;         // from a turn to its command
    Histogram to_connect;       // from the command to the connection
    Histogram to_end;           // from there to the end of a whole run
};

} // namespace dtfleet
