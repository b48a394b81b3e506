#include "fleet/engine/identities.h"

#include <fmt/format.h>

#include <utility>

namespace dtfleet {

std::string identity_text(uint16_t identity) { return fmt::format("{:04x}", identity); }

void Identities::restore(const std::vector<DeviceState> &states) {
    for (const DeviceState &state : states) {
        Known &known = devices_[state.name];
        known.listed = state.identity_listed;
        known.expected = state.identity_expected;
        known.seen = state.identity_seen;
        known.address = state.address_seen;
        if (!state.is_listed || !state.identity_seen) continue;
        if (!owners_.emplace(*state.identity_seen, state.name).second)
            twins_.set(*state.identity_seen);
    }
}

void Identities::take_inventory(const Inventory &inventory) {
    for (const Device &device : inventory.devices) {
        Known &known = devices_[device.name];
        if (std::exchange(known.listed, device.identity) == device.identity) continue;
        known.expected = device.identity;
        known.seen.reset(); // so that its next run is held against it
    }
}

std::vector<std::string> Identities::note(const RunRecord &run, Time time) {
    std::vector<std::string> reports;
    if (run.address.empty() || !run.identity) return reports;
    Known &known = devices_[run.device];
    const bool is_new = known.seen != run.identity;
    std::string report = change(run, known);
    if (!report.empty() && known.quiet_until <= time) {
        known.quiet_until = time + std::chrono::hours(1);
        reports.push_back(std::move(report));
    }
    if (is_new) note_twin(run.device, *run.identity, reports);
    return reports;
}

// What is new about the device; empty for nothing.
std::string Identities::change(const RunRecord &run, Known &known) {
    const auto seen = std::exchange(known.seen, run.identity);
    const std::string from = std::exchange(known.address, run.address);
    if (!known.expected) known.expected = run.identity;
    if (seen != run.identity && run.identity != known.expected)
        return fmt::format("{0}: has identity {1}, not {2}; if its hardware was replaced: "
                           "dtfleet accept {0}",
                           run.device, identity_text(*run.identity),
                           identity_text(*known.expected));
    if (from.empty() || from == run.address) return "";
    return fmt::format("{}: connects from {} now, no longer from {}", run.device, run.address,
                       from);
}

void Identities::note_twin(const std::string &device, uint16_t identity,
                           std::vector<std::string> &reports) {
    std::string &owner = owners_.try_emplace(identity, device).first->second;
    const auto known = devices_.find(owner);
    if (known == devices_.end() || known->second.seen != identity) owner = device; // it has another
    if (owner == device || twins_[identity]) return;
    twins_.set(identity);
    reports.push_back(fmt::format("{} and {} (and perhaps more) have one identity, {}", owner,
                                  device, identity_text(identity)));
}

void Identities::accept(const std::string &device) {
    const auto known = devices_.find(device);
    if (known != devices_.end() && known->second.seen) known->second.expected = known->second.seen;
}

void Identities::rename(const std::string &from, const std::string &to) {
    auto node = devices_.extract(from);
    if (node.empty()) return;
    devices_.erase(to);
    node.key() = to;
    if (const auto seen = node.mapped().seen; seen && owners_[*seen] == from) owners_[*seen] = to;
    devices_.insert(std::move(node));
}

} // namespace dtfleet
