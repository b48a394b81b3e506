// Which devices this engine may ask, and until when: all of them at any time or, where several
// collectors share a fleet, those that it holds a lease of. There, turns are on the database's
// clock, so that a device keeps its phase whoever asks it.
#pragma once

#include "fleet/engine/schedule.h"
#include "fleet/store/leases.h"

#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace dtfleet {

// A lease as its holder counts it.
struct Grant {
    Lease lease;
    Time until{}; // by our clock; from then on nothing is sent. 0: somebody else has it now
};

// A device that is to be asked by hand.
struct Fetched {
    std::string device;
    std::optional<Grant> grant;
    std::string reason; // without one
};

// What a visit to the database has brought.
struct Grants {
    Time ahead{};     // that its clock is of ours
    Time length{};    // of a lease
    size_t share = 0; // leases that may be kept from one turn to the next; 0: none
    std::vector<Grant> claimed;
    std::vector<Grant> renewed;
    std::vector<Fetched> fetched{};
};

class Tenure {
public:
    struct Turn {
        Time time{}; // by our clock
        Kind kind = Kind::collection;
    };

    explicit Tenure(bool is_shared) : is_shared_(is_shared) {}
    bool is_shared() const { return is_shared_; }

    // Whether the device may be asked until that time. Slots are the engine's.
    bool holds(size_t slot, Time until) const;

    void heed(const Grants &grants); // its clock and share
    void take(size_t slot, const Device &device, const Grant &grant);
    void renew(size_t slot, const Grant &grant); // unless the lease is over already

    // Of a device with a lease: when it is to be asked.
    bool has(size_t slot) const { return slot < held_.size() && held_[slot]; }
    Turn turn(size_t slot, const Device &device) const;

    // Its run has ended. What the record says of the lease; has() tells whether it goes on.
    LeaseMark end_run(size_t slot, const Device &device, uint32_t failures, const RunRecord &run);

    // Somebody else may ask it when it is due.
    void give_back(size_t slot);

    // The same when its turns are other ones by now: whoever claims it finds out.
    void give_back_unplanned(size_t slot);
    std::vector<Lease> take_returned() { return std::exchange(returned_, {}); }

    // How many more leases are wanted, by who has begun so many runs until now, has so many open,
    // and may wait for so many devices at a time.
    void begun(Time time);
    size_t wanted(size_t open, size_t window) const;

    // Those that are kept and have less than half of their length left.
    std::vector<Lease> ending() const;

    size_t held() const { return count_; }
    Time oldest(Time time) const; // the age of the oldest lease

private:
    struct Held {
        Lease lease;
        Time since{};
        Time until{};
    };

    Time due_after(const Held &held, const Device &device, Kind done) const;
    void drop(size_t slot);

    bool is_shared_;
    Time ahead_{};
    Time length_{};
    size_t share_ = 0;
    size_t count_ = 0;
    size_t failing_ = 0;                    // of these, whose last run failed
    std::vector<std::optional<Held>> held_; // by slot
    std::vector<Lease> returned_;
    int64_t second_ = 0;
    size_t begun_ = 0; // in that second,
    size_t rate_ = 0;  // and in the one before
};

} // namespace dtfleet
