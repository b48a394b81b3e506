#include "fleet/web/fleet_list.h"

#include <algorithm>
#include <tuple>

namespace dtfleet {
namespace {

// What the page shows of a device in its list.
auto shown(const FleetList::Row &row) {
    const DeviceState &d = row.device;
    return std::tie(row.health, d.last_ok, d.last_try, d.failures, d.last_outcome, d.last_duration,
                    d.paused_until, d.groups, d.last_reason, d.interval);
}

} // namespace

void FleetList::take(std::vector<DeviceState> devices, Seconds run_limit, Microseconds now) {
    std::vector<Row> rows;
    rows.reserve(devices.size());
    size_t known = 0;
    auto before = rows_.begin();
    for (DeviceState &device : devices) {
        Row row{std::move(device), Health::never, 0};
        row.health = health_of(row.device, run_limit, now);
        while (before != rows_.end() && before->device.name < row.device.name) ++before;
        const bool is_known = before != rows_.end() && before->device.name == row.device.name;
        known += is_known ? 1 : 0;
        row.change = is_known && shown(*before) == shown(row) ? before->change : ++last_change_;
        rows.push_back(std::move(row));
    }
    if (known != rows_.size()) ++edition_;
    rows_ = std::move(rows);
}

std::vector<const FleetList::Row *> FleetList::after(uint64_t change, size_t limit) const {
    std::vector<const Row *> changed;
    for (const Row &row : rows_)
        if (row.change > change) changed.push_back(&row);
    const auto by_change = [](const Row *a, const Row *b) { return a->change < b->change; };
    if (changed.size() > limit) {
        std::nth_element(changed.begin(), changed.begin() + static_cast<ptrdiff_t>(limit),
                         changed.end(), by_change);
        changed.resize(limit);
    }
    std::sort(changed.begin(), changed.end(), by_change);
    return changed;
}

} // namespace dtfleet
