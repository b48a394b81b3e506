// When each device is asked next.
#pragma once

#include "fleet/engine/time.h"
#include "fleet/inventory/inventory.h"
#include "fleet/store/record.h"

#include <cstddef>
#include <cstdint>
#include <queue>
#include <string_view>
#include <vector>

namespace dtfleet {

// Where in its interval a device is asked: from its name, so that the fleet spreads evenly and a
// restart changes nothing.
Time phase_of(std::string_view name, Time interval);

// The first time after `after` that is `phase` behind a whole number of intervals.
Time next_turn(Time after, Time interval, Time phase);

// The same of a device; never when it has no such turns. The self-test has a phase of its own, or
// it would always meet a collection.
Time next_turn(const Device &device, Kind kind, Time after);

// The interval of a device whose last runs failed: doubled for each, up to the larger of ten
// intervals and ten minutes.
Time interval_after(uint32_t failures, Time interval);

// Times at which something is due for a place; a place has one time at most.
class Agenda {
public:
    static constexpr Time never = Time::max();

    explicit Agenda(size_t places = 0) : due_(places, never) {}

    void grow(size_t places) { due_.resize(places, never); }
    void set(size_t place, Time due);
    void clear(size_t place) { due_[place] = never; }
    Time due(size_t place) const { return due_[place]; }

    // The earliest time of all; never without any.
    Time next();

    // A place that is due at that time, which it then no longer is; false for none.
    bool take(Time now, size_t &place);

private:
    struct Entry {
        Time due;
        size_t place;
        bool operator>(const Entry &other) const { return due > other.due; }
    };

    std::vector<Time> due_;
    // An entry counts while it agrees with due_.
    std::priority_queue<Entry, std::vector<Entry>, std::greater<>> entries_;
};

} // namespace dtfleet
