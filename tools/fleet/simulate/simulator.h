// Many devices in one process, each with a loopback address of its own: what a fleet of that size
// asks of a machine, and how the service that asks it behaves.
#pragma once

#include "fleet/engine/loop.h"
#include "fleet/engine/schedule.h"
#include "fleet/simulate/script.h"

#include <netinet/in.h>

#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

namespace dtfleet {

struct SimulatorOptions {
    uint32_t devices = 100;
    uint32_t values = 100;
    uint16_t port = 9099;                        // UDP, of all devices
    uint32_t rate = 0;                           // runs that begin in a second, at most; 0: any
    std::vector<Manner> manners;                 // of the devices in turns; empty: all good
    Time pause = std::chrono::milliseconds(100); // of trickling devices before each byte, of slow
                                                 // ones ten times that before each message
    // Told of each command: its device, the port that this is to connect to, and that of the run
    // which another command has begun there and that is still open, or 0.
    std::function<void(uint32_t device, uint16_t by, uint16_t open)> on_command;
};

struct SimulatorCounts {
    uint64_t commands = 0; // received, without those to dead devices
    uint64_t runs = 0;     // served to the end
    uint64_t failed = 0;   // begun and cut off by the other side
    uint64_t doubles = 0;  // a token that the device had had before
    uint64_t overlaps = 0; // another token while a run was open
};

class Simulator {
public:
    // The loop must outlive it. Throws dtctl::Failure when the port is taken.
    Simulator(const SimulatorOptions &options, Loop &loop);
    ~Simulator();
    Simulator(const Simulator &) = delete;
    Simulator &operator=(const Simulator &) = delete;

    // The address of a device, 127.1.0.1 for the first.
    static std::string address_of(uint32_t device);

    uint16_t port() const { return options_.port; }

    // The devices as an inventory that dtfleet reads.
    std::string inventory() const;

    Time next_pass() { return turns_.next(); }
    void pass();

    const SimulatorCounts &counts() const { return counts_; }

private:
    struct Command {
        sockaddr_in server;
        uint32_t token;
        bool selftest;
    };
    struct Device;

    Manner manner_of(uint32_t device) const;
    void receive_commands(const dtctl::Fd &socket);
    void take_command(uint32_t device, const Command &command);
    void schedule(uint32_t number);
    void begin(uint32_t number);
    void go_on(uint32_t number);
    void hear(uint32_t number);
    void send_some(uint32_t number);
    void finish(uint32_t number, bool whole);

    SimulatorOptions options_;
    Loop &loop_;
    std::vector<dtctl::Fd> commands_;
    std::vector<uint64_t> numbers_;                                 // of these, in the loop
    std::unordered_map<uint32_t, std::unique_ptr<Device>> devices_; // that have been asked
    Agenda turns_;                                                  // when each goes on by itself
    Time free_{};                                                   // when the next run may begin
    SimulatorCounts counts_;
};

} // namespace dtfleet
