#include "fleet/engine/schedule.h"

#include "fleet/store/digest.h"

#include <algorithm>

namespace dtfleet {
namespace {

// Mixed so that names which differ at their ends alone spread, too.
uint64_t spread(std::string_view name) {
    uint64_t hash = hash_of(name);
    hash = (hash ^ hash >> 33) * 0xff51afd7ed558ccd;
    return hash ^ hash >> 33;
}

} // namespace

Time phase_of(std::string_view name, Time interval) {
    return Time(static_cast<Time::rep>(spread(name) % static_cast<uint64_t>(interval.count())));
}

Time next_turn(Time after, Time interval, Time phase) {
    const Time turn = after / interval * interval + phase;
    return turn > after ? turn : turn + interval;
}

Time next_turn(const Device &device, Kind kind, Time after) {
    const bool is_test = kind == Kind::selftest;
    const Time interval = is_test ? device.selftest : device.interval;
    if (interval == Time(0)) return Agenda::never;
    return next_turn(after, interval,
                     phase_of(device.name + (is_test ? " selftest" : ""), interval));
}

Time interval_after(uint32_t failures, Time interval) {
    const Time longest = std::max<Time>(10 * interval, std::chrono::minutes(10));
    for (; failures > 0 && interval < longest; --failures) interval *= 2;
    return std::min(interval, longest);
}

void Agenda::set(size_t place, Time due) {
    if (due_[place] == due) return;
    due_[place] = due;
    entries_.push({due, place});
}

Time Agenda::next() {
    while (!entries_.empty() && due_[entries_.top().place] != entries_.top().due) entries_.pop();
    return entries_.empty() ? never : entries_.top().due;
}

bool Agenda::take(Time now, size_t &place) {
    if (next() > now) return false;
    place = entries_.top().place;
    entries_.pop();
    due_[place] = never;
    return true;
}

} // namespace dtfleet
