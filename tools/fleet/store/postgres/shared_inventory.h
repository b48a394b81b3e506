// The table with the shared inventory, and what follows from it for the devices.
#pragma once

#include "fleet/store/postgres/connection.h"
#include "fleet/store/shared_inventory.h"

#include <map>
#include <utility>

namespace dtfleet::postgres {

SharedInventory stored_inventory(Connection &connection);

// These within a transaction that holds the row of the next id.
InventoryChanges take_shared(Connection &connection, const Inventory &inventory);
void rename_shared(Connection &connection, const std::string &from, const std::string &to);

// The next turns of these are found out anew by whoever claims them.
void replan(Connection &connection, const std::vector<std::string> &devices);

// When a collector asks which device: its runs say when the next one is due, also those that it
// had begun before it knew of another interval.
class Turns {
public:
    // Those that have other turns than before.
    std::vector<std::string> changed(const std::vector<Device> &devices) const;
    void take(const std::vector<Device> &devices);

private:
    std::map<std::string, std::pair<Seconds, Seconds>, std::less<>> known_;
};

} // namespace dtfleet::postgres
