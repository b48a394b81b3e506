// Asks the devices of the inventory in their turns, takes what they send, and hands each run over.
// One thread, one event loop.
#pragma once

#include "fleet/engine/admission.h"
#include "fleet/engine/commander.h"
#include "fleet/engine/loop.h"
#include "fleet/engine/schedule.h"
#include "fleet/engine/statistics.h"
#include "fleet/engine/tokens.h"
#include "fleet/store/intake.h"
#include "fleet/store/outlet.h"

#include <deque>
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

    // Loop and outlet must outlive it. Opens the listening port, and throws dtctl::Failure when it
    // is taken.
    Engine(const Inventory &inventory, Loop &loop, Outlet &outlet);
    ~Engine();
    Engine(const Engine &) = delete;
    Engine &operator=(const Engine &) = delete;

    // Takes another inventory: devices go on in their turns, those that are gone end with their
    // run.
    void take_inventory(const Inventory &inventory);

    // Asks a device out of its turn. False, with a reason, when it is unknown or being asked.
    bool ask(std::string_view device, Kind kind, Answer answer, std::string &reason);

    // When pass() is wanted at the latest, even though the loop has called nobody.
    Time next_pass();

    // Does what is due. To be called after each wait of the loop.
    void pass();

    // Ends all open runs.
    void stop();

    const Statistics &statistics() const { return statistics_; }

private:
    struct Target;
    struct Run;
    struct Connection;

    size_t slot_of(const Device &device);
    void plan(size_t slot, Kind kind, Time after);
    void take_turn(size_t slot, Kind kind, Time time);
    void make_due(size_t slot, Kind kind, Time due);
    void start_runs();
    void begin(size_t slot);
    void send_command(size_t slot);
    void wake(size_t slot);
    void set_deadline(size_t slot);
    void accept_all();
    void turn_away(Connection &connection);
    void receive(Connection &connection);
    bool take_bytes(Connection &connection, std::span<const uint8_t> bytes);
    bool claim(Connection &connection);
    void acknowledge(Connection &connection);
    void close(Connection &connection);
    void take_refusals();
    void end(size_t slot, Outcome outcome, std::string reason);
    RunRecord record_of(size_t slot, Outcome outcome, std::string reason);
    void settle(Target &target, const RunRecord &record);

    Limits limits_;
    uint16_t announce_;
    Loop &loop_;
    Outlet &outlet_;
    Statistics statistics_;
    Tokens tokens_;
    Commander commander_;
    dtctl::Fd listener_;
    Admission admission_;
    std::vector<std::unique_ptr<Target>> targets_; // by slot, which a name keeps for good
    std::unordered_map<std::string, size_t> slots_;
    std::unordered_map<uint32_t, size_t> tokens_open_;
    std::map<Endpoint, size_t> endpoints_open_;
    std::map<uint64_t, std::unique_ptr<Connection>> strangers_; // no opening yet; the oldest first
    Agenda turns_;     // two places a slot: its next collection, its next self-test
    Agenda deadlines_; // a place a slot: when its run must be looked at
};

} // namespace dtfleet
