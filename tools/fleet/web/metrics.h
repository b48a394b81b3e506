// What Prometheus reads.
#pragma once

#include "fleet/engine/snapshot.h"
#include "fleet/web/fleet_list.h"

#include <string>
#include <vector>

namespace dtfleet {

constexpr const char *metrics_type = "text/plain; version=0.0.4; charset=utf-8";
constexpr size_t most_devices_told = 2000; // by name

// The service and the fleet as a whole.
std::string service_metrics(const Snapshot &snapshot, Time now);

// How many devices are in which state, and more of each that belongs to one of the groups.
std::string device_metrics(const FleetList &list, const std::vector<std::string> &groups,
                           Seconds run_limit, Microseconds now);

} // namespace dtfleet
