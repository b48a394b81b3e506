// The engine where several collectors share the fleet: it asks what it is granted.
#include "fleet/engine/target.h"

namespace dtfleet {

void Engine::grant(const Grants &grants) {
    tenure_.heed(grants);
    for (const Grant &grant : grants.claimed) take_turn_of(grant);
    for (const Grant &grant : grants.renewed)
        if (const size_t slot = find(grant.lease.name); slot != none) tenure_.renew(slot, grant);
}

void Engine::grant_by_hand(const Grant &grant) {
    const size_t slot = find(grant.lease.name);
    if (slot == none) return;
    Target &target = *targets_[slot];
    if (target.run) end(slot, Outcome::stopped, lease_over);
    target.failures = grant.lease.failures;
    target.paused_until = Time(0);
    tenure_.take(slot, target.device, grant);
}

void Engine::take_turn_of(const Grant &grant) {
    grant_by_hand(grant);
    const size_t slot = find(grant.lease.name);
    if (slot == none) return;
    const Target &target = *targets_[slot];
    const Tenure::Turn turn = tenure_.turn(slot, target.device);
    if (turn.time + limits_.run >= grant.until) return give_back(slot);
    turns_.set(place_of(slot, turn.kind), turn.time);
}

void Engine::give_back_unplanned(size_t slot) {
    for (size_t place = 0; place < places; ++place) turns_.clear(places * slot + place);
    tenure_.give_back_unplanned(slot);
}

bool Engine::is_ours(std::string_view device) const {
    const size_t slot = find(device);
    return slot == none || tenure_.holds(slot, now() + limits_.run);
}

void Engine::give_back(size_t slot) {
    if (!tenure_.is_shared()) return;
    for (size_t place = 0; place < places; ++place) turns_.clear(places * slot + place);
    tenure_.give_back(slot);
}

size_t Engine::wanted() const {
    return outlet_.has_room() ? tenure_.wanted(admission_.waiting() + admission_.connected(),
                                               admission_.window().size())
                              : 0;
}

} // namespace dtfleet
