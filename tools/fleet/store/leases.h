// Which devices this collector may ask, where several share a database: for a time, and nobody else
// meanwhile.
#pragma once

#include "fleet/store/record.h"

#include <chrono>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace dtfleet {

// The right to ask one device. It ends at a time of the database's clock; who holds it counts its
// length from before the claim by a clock of its own that no setting moves, and so stops earlier.
struct Lease {
    int64_t device = 0;
    int64_t epoch = 0;    // of this lease: the device's next one has a larger number
    Microseconds due = 0; // when it wants to be asked, by the database's clock; 0: never asked yet
    std::string name;
    uint32_t failures = 0;     // collections that failed since the last good one,
    Microseconds last_try = 0; // and when the last one ended; 0: never
};

// What the others are told of a collector.
struct CollectorState {
    std::string name;
    uint64_t held = 0;       // leases
    double rate = 0;         // runs that end in a second
    Microseconds lag = 0;    // from a device's turn to its command
    Microseconds oldest = 0; // of its leases, the age
};

class Leases {
public:
    virtual ~Leases() = default;

    using Duration = std::chrono::microseconds;

    struct Told {
        Microseconds now = 0;                   // by the database's clock
        int64_t inventory = 0;                  // its number; 0: the database has none yet
        std::vector<CollectorState> collectors; // at work, this one included; each name once
    };

    // Tells the others of us: who does not for 30 seconds counts as gone. Throws Unavailable, as do
    // all of these.
    virtual Told tell(const CollectorState &us) = 0;

    // Takes devices that are due until then and that nobody holds, those first that have waited
    // longest; none while the database has another inventory than that number. Each goes to one of
    // all who claim at a time. When it throws, whatever was taken is free again when the leases
    // end.
    virtual std::vector<Lease> claim(size_t most, Duration ahead, Duration length,
                                     int64_t inventory) = 0;

    // Takes this one, due or not, if nobody holds it.
    virtual std::optional<Lease> claim_one(const std::string &device, Duration length) = 0;

    // Makes leases end that much later than now; answers which of them are still ours.
    virtual std::vector<bool> renew(std::span<const Lease> leases, Duration length) = 0;

    // Gives leases back, to be asked at their `due` by whoever comes. Those that are no longer ours
    // stay as they are.
    virtual void release(std::span<const Lease> leases) = 0;

    // The others need not count us any more.
    virtual void leave() = 0;
};

// name: of this collector, as others are told of it. home: what only one living process can have at
// a time (see Home): leases of the one that had it before are free at once; empty: nothing is
// known. Throws dtctl::Failure for a database that is a file, Unavailable.
std::unique_ptr<Leases> open_leases(const std::string &database, const std::string &name,
                                    const std::string &home = "");

} // namespace dtfleet
