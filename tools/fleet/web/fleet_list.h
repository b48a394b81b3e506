// The devices as the page lists them, with the number of each one's last change, so that a page
// that follows a large fleet asks for what has changed alone.
#pragma once

#include "fleet/store/health.h"

#include <cstdint>
#include <string>
#include <vector>

namespace dtfleet {

class FleetList {
public:
    struct Row {
        DeviceState device;
        Health health = Health::never;
        uint64_t change = 0;
    };

    // Takes the devices as they are now, sorted by name.
    void take(std::vector<DeviceState> devices, Seconds run_limit, Microseconds now);

    // The rows that changed after that number, in the order of their changes: at most `limit`.
    std::vector<const Row *> after(uint64_t change, size_t limit) const;

    uint64_t last_change() const { return last_change_; }

    // Another one whenever a device has gone: what is known of the list before is worth nothing.
    uint64_t edition() const { return edition_; }

    const std::vector<Row> &rows() const { return rows_; } // sorted by name

private:
    std::vector<Row> rows_; // sorted by name
    uint64_t last_change_ = 0;
    uint64_t edition_ = 0;
};

} // namespace dtfleet
