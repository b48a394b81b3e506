// Which devices this collector may ask, where several share a database: for a time, and nobody else
// meanwhile.
#pragma once

#include "fleet/store/record.h"

#include <chrono>
#include <memory>
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

class Leases {
public:
    virtual ~Leases() = default;

    using Duration = std::chrono::microseconds;

    struct Claimed {
        Microseconds now = 0;    // by the database's clock
        uint32_t collectors = 0; // at work, this one included
        std::vector<Lease> leases;
    };

    // Takes devices that are due until then and that nobody holds, those first that have waited
    // longest. Each goes to one of all who claim at a time. Throws Unavailable: whatever was taken
    // is free again when the leases end.
    virtual Claimed claim(size_t most, Duration ahead, Duration length) = 0;

    // Takes this one, due or not, if nobody holds it.
    virtual Claimed claim_one(const std::string &device, Duration length) = 0;

    // Makes leases end that much later than now; answers which of them are still ours.
    virtual std::vector<bool> renew(std::span<const Lease> leases, Duration length) = 0;

    // Gives leases back, to be asked at their `due` by whoever comes. Those that are no longer ours
    // stay as they are.
    virtual void release(std::span<const Lease> leases) = 0;
};

// name: of this collector, as others are told of it. Throws dtctl::Failure for a database that is a
// file, Unavailable.
std::unique_ptr<Leases> open_leases(const std::string &database, const std::string &name);

} // namespace dtfleet
