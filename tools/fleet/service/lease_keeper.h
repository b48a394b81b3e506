// Brings leases from the database to the engine and back, on a thread of its own: neither waits for
// the other. A collector joins by claiming, and leaves by giving back or by dying.
#pragma once

#include "fleet/engine/tenure.h"
#include "host/fd.h"

#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace dtfleet {

// How long leases are, by the longest run. Its holder stops earlier than the database forgets, so
// that what is still on its way arrives, and clocks may differ a little in their pace.
struct LeaseTimes {
    Time ahead;  // before they are due, devices are claimed
    Time margin; // from the holder's end to the database's
    Time length; // from the claim to the database's end: resends and the whole run are inside

    // grace: how long the database may be away before asking ends.
    static LeaseTimes of(Seconds run, Seconds grace);
};

class LeaseKeeper {
public:
    // Called by the thread, until it succeeds: may throw Unavailable or dtctl::Failure.
    using Open = std::function<std::unique_ptr<Leases>()>;

    struct Counts {
        uint64_t claims = 0;  // visits that brought leases,
        uint64_t claimed = 0; // and how many
        uint64_t renewed = 0;
        uint64_t lost = 0; // that were to be renewed, and were another's
        uint64_t returned = 0;
        std::vector<CollectorState> collectors; // at work, as they were seen last
        std::optional<int64_t> inventory;       // the number of the one in the database
        std::string trouble;                    // why the last visit failed; empty: it did not
    };

    // What the engine would like.
    struct Wishes {
        size_t wanted = 0; // more devices
        std::vector<Lease> returned{};
        std::vector<Lease> renewing{};
        std::vector<std::string> fetching{};   // devices that are to be asked by hand
        size_t listed = 0;                     // devices in all,
        int64_t inventory = 0;                 // in the inventory of this number; 0: it has none
        std::optional<CollectorState> state{}; // what others are told of us
    };

    // grace: 0 unless leases are kept from turn to turn.
    LeaseKeeper(Open open, Seconds run, Seconds grace);

    // Gives back what has been returned, unless the database is away.
    ~LeaseKeeper();
    LeaseKeeper(const LeaseKeeper &) = delete;
    LeaseKeeper &operator=(const LeaseKeeper &) = delete;

    // From one other thread. The descriptor becomes readable when there is something to take.
    int fd() const { return news_.get(); }
    Grants take();
    void put(Wishes wishes); // after each take
    void set_times(Seconds run, Seconds grace);
    Counts counts() const;

private:
    void run();
    bool wait(const std::string &trouble);
    void visit(bool is_last);
    void leave();
    void tell(const CollectorState &us);
    void fetch(const LeaseTimes &times);
    void answer_fetches(const std::string &reason);
    void give_back();
    void renew(const std::vector<Lease> &leases, const LeaseTimes &times);
    void claim(size_t most, int64_t inventory, const LeaseTimes &times);

    const Open open_;
    dtctl::Fd news_;
    std::unique_ptr<Leases> leases_; // the thread's, as what follows
    std::vector<Lease> returned_;    // not told to the database yet
    std::vector<std::string> fetching_;
    Time told_ = Time::min(); // the others, of us

    mutable std::mutex mutex_; // of what follows
    std::condition_variable wake_;
    LeaseTimes times_;
    bool keeps_;
    Wishes wishes_;
    CollectorState state_;
    Grants grants_;
    Counts counts_;
    bool hurries_ = false; // there is more to be claimed
    bool is_ending_ = false;

    std::thread thread_; // the last: it uses all of the above
};

} // namespace dtfleet
