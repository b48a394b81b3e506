#include "fleet/engine/tenure.h"

#include <algorithm>

namespace dtfleet {
namespace {

using std::chrono::microseconds;

// A self-test whose turn came while something else was done is made up for, but not one of long
// ago: after an outage all devices would make theirs at once.
constexpr Time made_up_for = std::chrono::minutes(10);

// Of leases, in seconds of work at the present rate: what is claimed waits here for its turn, and
// what another collector could ask meanwhile must not wait long.
constexpr size_t ahead_of_work = 3;

Microseconds count_of(Time time) { return std::chrono::duration_cast<microseconds>(time).count(); }

// Times in the database are cut to microseconds.
Kind kind_at(const Device &device, Microseconds due) {
    const Time time = microseconds(due);
    const Time test = next_turn(device, Kind::selftest, time - Time(1));
    return test != Agenda::never && test - time < microseconds(1) ? Kind::selftest
                                                                  : Kind::collection;
}

} // namespace

bool Tenure::holds(size_t slot, Time until) const {
    return !is_shared_ || (has(slot) && until < held_[slot]->until);
}

void Tenure::heed(const Grants &grants) {
    ahead_ = grants.ahead;
    length_ = grants.length;
    share_ = grants.share;
}

void Tenure::take(size_t slot, const Device &device, const Grant &grant) {
    if (held_.size() <= slot) held_.resize(slot + 1);
    if (has(slot)) drop(slot);
    ++count_;
    failing_ += grant.lease.failures != 0;
    held_[slot] = {grant.lease, now(), grant.until};
    Lease &lease = held_[slot]->lease;
    if (lease.due == 0) lease.due = count_of(due_after(*held_[slot], device, Kind::selftest));
}

void Tenure::renew(size_t slot, const Grant &grant) {
    if (!has(slot) || held_[slot]->lease.epoch != grant.lease.epoch) return;
    held_[slot]->since = now();
    held_[slot]->until = grant.until;
}

Tenure::Turn Tenure::turn(size_t slot, const Device &device) const {
    const Microseconds due = held_[slot]->lease.due;
    return {microseconds(due) - ahead_, kind_at(device, due)};
}

// The earlier of the two turns that follow, for which the one that is done is `lease.due`.
Time Tenure::due_after(const Held &held, const Device &device, Kind done) const {
    const Time time = now() + ahead_;
    const Time tried = std::min<Time>(microseconds(held.lease.last_try), time);
    const Time wait = interval_after(held.lease.failures, device.interval) - device.interval;
    const Time missed = std::max<Time>(microseconds(held.lease.due), time - made_up_for);
    return std::min(
        next_turn(device, Kind::collection, std::max(time, tried + wait)),
        next_turn(device, Kind::selftest, done == Kind::selftest ? time : std::min(missed, time)));
}

// A run that was cut off is made again by whoever comes. Where the lease is over, the device may be
// another collector's: nothing is said of it.
LeaseMark Tenure::end_run(size_t slot, const Device &device, uint32_t failures,
                          const RunRecord &run) {
    if (!has(slot)) return {};
    Held &held = *held_[slot];
    LeaseMark mark{held.lease.epoch, held.lease.due, false};
    if (!holds(slot, now())) {
        mark.due = 0;
    } else if (run.outcome != Outcome::stopped) {
        if (run.kind == Kind::collection) held.lease.last_try = count_of(now() + ahead_);
        failing_ = failing_ + (failures != 0) - (held.lease.failures != 0);
        held.lease.failures = failures;
        held.lease.due = mark.due = count_of(due_after(held, device, run.kind));
        mark.keeps = count_ <= share_;
    }
    if (!mark.keeps) drop(slot);
    return mark;
}

void Tenure::give_back(size_t slot) {
    if (!has(slot)) return;
    returned_.push_back(held_[slot]->lease);
    drop(slot);
}

void Tenure::give_back_unplanned(size_t slot) {
    held_[slot]->lease.due = 0;
    give_back(slot);
}

void Tenure::drop(size_t slot) {
    --count_;
    failing_ -= held_[slot]->lease.failures != 0;
    held_[slot].reset();
}

void Tenure::begun(Time time) {
    const int64_t second = std::chrono::duration_cast<Seconds>(time).count();
    if (second != second_) {
        rate_ = second == second_ + 1 ? begun_ : 0;
        begun_ = 0;
        second_ = second;
    }
    ++begun_;
}

// Besides those that it keeps. Those that fail wait long for the few places that they may take: the
// others do not wait for them.
size_t Tenure::wanted(size_t open, size_t window) const {
    const size_t most =
        share_ + open + std::max(window, ahead_of_work * rate_) + std::min(failing_, 10 * window);
    return most > count_ ? most - count_ : 0;
}

std::vector<Lease> Tenure::ending() const {
    const Time least = now() + length_ / 2;
    std::vector<Lease> ending;
    for (const auto &held : held_)
        if (share_ != 0 && held && held->until < least) ending.push_back(held->lease);
    return ending;
}

Time Tenure::oldest(Time time) const {
    Time oldest{};
    for (const auto &held : held_)
        if (held) oldest = std::max(oldest, time - held->since);
    return oldest;
}

} // namespace dtfleet
