#include "fleet/store/spooling.h"

#include "host/failure.h"

namespace dtfleet {

using dtctl::Exit;
using dtctl::Failure;

SpoolingStore::SpoolingStore(std::unique_ptr<Store> store, Spool spool,
                             std::shared_ptr<SpoolReport> report)
    : store_(std::move(store)), spool_(std::move(spool)), report_(std::move(report)) {
    tell();
}

// False when the store is away.
template <typename Work> bool SpoolingStore::attempt(Work work) {
    try {
        work();
        state_.away.clear();
    } catch (const Unavailable &trouble) {
        state_.away = trouble.what();
    }
    return state_.away.empty();
}

void SpoolingStore::write(std::span<const RunRecord> runs) {
    const bool goes_directly = spool_.is_empty() && state_.away.empty();
    if (!goes_directly || !attempt([&] { store_->write(runs); })) {
        spool_.append(runs);
        state_.spooled += runs.size();
    }
    tell();
}

void SpoolingStore::take_inventory(const Inventory &inventory) {
    inventory_ = inventory;
    if (state_.away.empty() && attempt([&] { store_->follow(inventory); })) inventory_.reset();
    tell();
}

// Of what waits, a segment in each call.
bool SpoolingStore::tidy() {
    bool has_more = false;
    attempt([&] {
        if (inventory_) store_->follow(*inventory_);
        inventory_.reset();
        if (!spool_.is_empty()) {
            deliver();
            has_more = true;
            return;
        }
        no_room_ = store_->no_room();
        is_clock_held_ = store_->is_clock_held();
        is_too_large_ = store_->is_too_large();
        has_more = store_->tidy();
    });
    tell();
    return has_more;
}

void SpoolingStore::deliver() {
    const std::vector<RunRecord> runs = spool_.front();
    try {
        store_->write(runs);
    } catch (const Failure &failure) {
        if (failure.code() == Exit::broken) throw; // the database is, for every run
        deliver_singly(runs);
    }
    spool_.pop_front();
}

void SpoolingStore::deliver_singly(std::span<const RunRecord> runs) {
    for (size_t i = 0; i < runs.size(); ++i) {
        try {
            store_->write(runs.subspan(i, 1));
        } catch (const Failure &failure) {
            if (failure.code() == Exit::broken) throw;
            ++state_.dropped;
        }
    }
}

std::string SpoolingStore::no_room() {
    if (!spool_.is_full()) return state_.away.empty() ? no_room_ : "";
    return state_.away.empty() ? "the spool is full" : "the spool is full: " + state_.away;
}

void SpoolingStore::take_meanings(const std::vector<SeriesMeaning> &meanings) {
    store_->take_meanings(meanings);
}

void SpoolingStore::pause(const std::string &device, Microseconds until) {
    store_->pause(device, until);
}

void SpoolingStore::rename(const std::string &from, const std::string &to) {
    check_delivered();
    store_->rename(from, to);
}

void SpoolingStore::forget(const std::string &device) {
    check_delivered();
    store_->forget(device);
}

void SpoolingStore::check_delivered() const {
    if (!spool_.is_empty()) throw Unavailable("runs wait in the spool until the database is back");
}

void SpoolingStore::tell() {
    state_.runs = spool_.runs();
    state_.bytes = spool_.bytes();
    report_->put(state_);
}

} // namespace dtfleet
