// Asks the devices of the inventory in their turns, takes what they send, and hands each run over.
// One thread, one event loop.
#pragma once

#include "fleet/engine/admission.h"
#include "fleet/engine/commander.h"
#include "fleet/engine/loop.h"
#include "fleet/engine/reception.h"
#include "fleet/engine/schedule.h"
#include "fleet/engine/snapshot.h"
#include "fleet/engine/tenure.h"
#include "fleet/engine/tokens.h"
#include "fleet/store/intake.h"
#include "fleet/store/outlet.h"
#include "fleet/store/store.h"

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

namespace dtfleet {

class Engine {
public:
    // Called when a run that was asked for by hand has ended.
    using Answer = std::function<void(const RunRecord &)>;

    enum class Fleet {
        own,    // each device is asked in its turns
        shared, // with other collectors: those are that have been granted, for as long as they are
    };

    // Loop and outlet must outlive it. Opens the listening port, and throws dtctl::Failure when it
    // is taken.
    Engine(std::shared_ptr<const Inventory> inventory, Loop &loop, Outlet &outlet,
           Fleet fleet = Fleet::own);
    ~Engine();
    Engine(const Engine &) = delete;
    Engine &operator=(const Engine &) = delete;

    // What was known of the devices when the service ended: who failed goes on waiting. Also of
    // those that the inventory does not have now.
    void restore(const std::vector<DeviceState> &states);

    // Takes another inventory, a slice in each pass, so that a large one holds up nobody: devices
    // go on in their turns, those that are gone end with their run. The ports stay as they are.
    void take_inventory(std::shared_ptr<const Inventory> inventory);
    bool is_taking() const { return incoming_.has_value(); }

    // Asks a device out of its turn. False, with a reason, when it is unknown, off or being asked.
    // One that has left the inventory before it could be asked ends with a run that was stopped.
    bool ask(std::string_view device, Kind kind, Answer answer, std::string &reason);

    // A device's turns are left out until then, be it listed now or later. An unknown one is
    // nothing to complain about here.
    void pause(std::string_view device, Time until);

    // Its slot, with all that is known of it, gets another name; nothing when the inventory has
    // that name already.
    void rename(std::string_view from, const std::string &to);

    // How many runs are open on a network; if none is, none begins there until then.
    // broadcast: its broadcast address.
    size_t hold(in_addr_t broadcast, Time until);

    // Of a shared fleet: devices that this engine alone may ask now. Those that it does not know
    // stay granted until that ends: given back, they would come again at once.
    void grant(const Grants &grants);

    // Whether the device may be asked by hand or, in a shared fleet, must be granted first; and
    // then it is, without a turn.
    bool is_ours(std::string_view device) const;
    void grant_by_hand(const Grant &grant);

    // Granted devices that somebody else may ask, and those whose grant should be made longer.
    std::vector<Lease> take_returned() { return tenure_.take_returned(); }
    std::vector<Lease> ending() const { return tenure_.ending(); }

    // How many more devices it could ask soon, and what it has.
    size_t wanted() const;
    const Tenure &tenure() const { return tenure_; }

    // When pass() is wanted at the latest, even though the loop has called nobody.
    Time next_pass();

    // Does what is due. To be called after each wait of the loop.
    // caught_up: the loop has called everybody who was ready.
    void pass(bool caught_up = true);

    // Ends all open runs, and gives back all that was granted.
    void stop();

    const Statistics &statistics() const { return statistics_; }

    // Fills in what the engine knows.
    void describe(Snapshot &snapshot) const;

private:
    struct Target;
    struct Run;
    struct Incoming {
        std::shared_ptr<const Inventory> inventory;
        size_t next = 0;
    };
    struct Hold {
        in_addr_t broadcast;
        Time until;
    };
    static constexpr size_t none = SIZE_MAX;

    size_t find(std::string_view device) const;
    size_t slot_of(const std::string &name);
    void take_slice(size_t most);
    void take_device(const Device &device);
    void drop_unlisted();
    void plan(size_t slot, Kind kind, Time after);
    void take_turn(size_t slot, Kind kind, Time time);
    void take_turn_of(const Grant &grant);
    void give_back(size_t slot);
    void give_back_unplanned(size_t slot);
    bool is_busy(size_t slot) const;
    void make_due(size_t slot, Kind kind, Time due);
    void queue(size_t slot);
    void start_runs();
    bool may_begin(size_t slot);
    Time free_at(const Target &target, Time time) const;
    void begin(size_t slot);
    void send_command(size_t slot);
    void wake(size_t slot, Time time);
    void wake_waiting(size_t slot, Time time);
    void wake_connected(size_t slot, Time time);
    void set_deadline(size_t slot);
    void receive(Connection &connection);
    bool take_bytes(Connection &connection, std::span<const uint8_t> bytes);
    bool claim(Connection &connection);
    void acknowledge(Connection &connection);
    void take_refusals();
    void end(size_t slot, Outcome outcome, std::string reason);
    void close(size_t slot);
    RunRecord record_of(size_t slot, Outcome outcome, std::string reason);
    void count(const RunRecord &record, Time opening);
    void settle(size_t slot, RunRecord &record);

    Limits limits_;
    Loop &loop_;
    Outlet &outlet_;
    Statistics statistics_;
    Tokens tokens_;
    Commander commander_;
    uint64_t commander_number_ = 0; // in the loop
    Reception reception_;
    uint16_t announce_;
    bool caught_up_ = true;
    Admission admission_;
    Tenure tenure_;
    std::optional<Incoming> incoming_;
    uint32_t generation_ = 0;                      // of the inventory
    size_t listed_ = 0;                            // devices
    std::vector<std::unique_ptr<Target>> targets_; // by slot, which a name keeps for good
    std::unordered_map<std::string, size_t> slots_;
    std::unordered_map<uint32_t, size_t> tokens_open_;
    std::map<Endpoint, size_t> endpoints_open_;
    std::vector<Hold> holds_;
    Agenda turns_;     // three places a slot: its next collection, its next self-test, and when a
                       // run that could not begin is tried again
    Agenda deadlines_; // a place a slot: when its run must be looked at
};

} // namespace dtfleet
