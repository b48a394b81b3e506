// A store on a machine of its own, which may be away: runs then go to the disk here, and from there
// to the store in their order.
#pragma once

#include "fleet/store/spool.h"
#include "fleet/store/store.h"

#include <memory>
#include <mutex>
#include <optional>
#include <string>

namespace dtfleet {

// How it stands, for other threads.
class SpoolReport {
public:
    struct State {
        uint64_t runs = 0; // that wait on the disk,
        uint64_t bytes = 0;
        uint64_t spooled = 0; // that ever went there
        uint64_t dropped = 0; // that can never be stored
        std::string away;     // why the database cannot be reached; empty: it can
    };
    State get() const {
        const std::lock_guard lock(mutex_);
        return state_;
    }
    void put(const State &state) {
        const std::lock_guard lock(mutex_);
        state_ = state;
    }

private:
    mutable std::mutex mutex_;
    State state_;
};

class SpoolingStore final : public Store {
public:
    SpoolingStore(std::unique_ptr<Store> store, Spool spool, std::shared_ptr<SpoolReport> report);

    // Never throws Unavailable while the disk has room: what the store does not take is on disk.
    void write(std::span<const RunRecord> runs) override;
    size_t runs_at_once() const override { return store_->runs_at_once(); }
    void take_inventory(const Inventory &inventory) override;
    bool tidy() override;
    std::string no_room() override;
    bool is_clock_held() override { return is_clock_held_; }
    bool is_too_large() override { return is_too_large_; }

    // These need the store itself. While runs of a device wait here, its name stays as it is.
    bool back_up(const std::string &file) override { return store_->back_up(file); }
    void take_meanings(const std::vector<SeriesMeaning> &meanings) override;
    size_t add_faults(const FaultFile &file) override { return store_->add_faults(file); }
    void pause(const std::string &device, Microseconds until) override;
    void rename(const std::string &from, const std::string &to) override;
    void forget(const std::string &device) override;
    void accept(const std::string &device) override { store_->accept(device); }
    void accept_clock() override { store_->accept_clock(); }

private:
    template <typename Work> bool attempt(Work work);
    void deliver();
    void deliver_singly(std::span<const RunRecord> runs);
    void check_delivered() const;
    void tell();

    std::unique_ptr<Store> store_;
    Spool spool_;
    std::shared_ptr<SpoolReport> report_;
    std::optional<Inventory> inventory_; // that the store does not have yet
    SpoolReport::State state_;
    std::string no_room_;
    bool is_clock_held_ = false;
    bool is_too_large_ = false;
};

} // namespace dtfleet
