// Who is asked now: the devices that are due wait here for a place.
#pragma once

#include "fleet/engine/time.h"
#include "fleet/inventory/inventory.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <unordered_map>
#include <vector>

namespace dtfleet {

// How many runs may wait for their devices. More than the machine or the network can bear makes
// devices answer late, and then every command is sent twice: so fewer, as soon as answers take
// twice as long as in the best recent minute, and more again while runs go well.
class Window {
public:
    explicit Window(size_t most) : most_(most), size_(std::min(most, first)) {}

    size_t size() const { return size_; }
    void set_most(size_t most) { size_ = std::min(size_, most_ = most); }

    // The delay that half of the last answers took.
    Time typical() const { return typical_; }

    void answered(Time now, Time delay); // a device took so long from the command to its opening
    void went_well();                    // a run was whole

private:
    static constexpr size_t first = 64;  // until it is known what the network bears
    static constexpr size_t sample = 32; // delays whose median counts
    static constexpr size_t minute = 60;

    void judge(Time now, Time median);

    size_t most_;
    size_t size_;
    Time typical_{};
    unsigned good_ = 0; // runs
    std::vector<Time> delays_;
    std::array<Time, minute> best_of_second_{}; // the smallest median of each; 0: none
    int64_t second_ = 0;
};

class Admission {
public:
    explicit Admission(const Limits &limits) : limits_(limits), window_(limits.waiting) {}

    void set_limits(const Limits &limits);

    // Who is due: in their order, those that failed the last time behind the others, and somebody
    // who is waited for before all of its subnet.
    enum class Rank : uint8_t { first, usual, backed_off };
    void add(size_t device, in_addr_t ip, Rank rank);

    // A device that may be asked now; its run then counts as waiting for it. False for none.
    bool take(size_t &device);

    // The run's device has connected, or the run has ended.
    void connect(size_t device);
    void end(size_t device);

    bool holds(size_t device) const { return places_.count(device) != 0; }
    size_t waiting() const { return waiting_; }
    size_t connected() const { return connected_; }
    size_t queued() const { return queued_; }
    Window &window() { return window_; }
    const Window &window() const { return window_; }

private:
    enum class State : uint8_t { queued, waiting, connected };
    struct Place {
        uint32_t subnet;
        bool backed_off;
        State state;
    };
    struct Subnet {
        size_t connected = 0;
        size_t waiting = 0;
        size_t waiting_backed_off = 0;            // of these
        std::array<std::deque<size_t>, 2> queues; // in order of arrival; [1]: backed off
        std::array<bool, 2> in_ring{};
    };

    void offer(uint32_t subnet, size_t kind);
    bool has_room(const Subnet &subnet, size_t kind) const;
    void stop_waiting(const Place &place);
    bool take_from(size_t kind, size_t &device);

    Limits limits_;
    Window window_;
    std::unordered_map<size_t, Place> places_;
    std::unordered_map<uint32_t, Subnet> subnets_;
    std::array<std::deque<uint32_t>, 2> rings_; // subnets that have both a queue and room
    size_t queued_ = 0;
    size_t waiting_ = 0;
    size_t waiting_backed_off_ = 0;
    size_t connected_ = 0;
};

} // namespace dtfleet
