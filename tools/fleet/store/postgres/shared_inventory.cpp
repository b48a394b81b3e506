#include "fleet/store/postgres/shared_inventory.h"

#include "fleet/store/postgres/devices.h"
#include "host/failure.h"

#include <algorithm>

namespace dtfleet::postgres {
namespace {

void put(Connection &connection, const Inventory &inventory) {
    const std::string text = shared_text(inventory);
    connection.query("UPDATE inventory SET text = $1", Bytes{text});
    connection.query("UPDATE meta SET value = value + 1 WHERE key = 'inventory'");
}

// In the order in which leases are renewed and given back: nobody waits in a circle.
void lock_devices(Connection &connection) {
    connection.query("SELECT count(*) FROM (SELECT 1 FROM device ORDER BY id FOR NO KEY UPDATE) d");
}

} // namespace

SharedInventory stored_inventory(Connection &connection) {
    const Result row =
        connection.query("SELECT value, text FROM meta, inventory WHERE key = 'inventory'");
    return {row.number(0, 0), std::string(row.bytes(0, 1))};
}

InventoryChanges take_shared(Connection &connection, const Inventory &inventory) {
    const SharedInventory stored = stored_inventory(connection);
    InventoryChanges changes = changes_between(load_shared_text(stored.text).inventory, inventory);
    lock_devices(connection);
    take_devices(connection, inventory.devices);
    replan(connection, changes.replanned);
    if (changes.any() || stored.number == 0) put(connection, inventory);
    return changes;
}

void rename_shared(Connection &connection, const std::string &from, const std::string &to) {
    Inventory inventory = load_shared_text(stored_inventory(connection).text).inventory;
    const Device *known = inventory.find(from);
    if (!known) return;
    if (inventory.find(to))
        throw dtctl::Failure(dtctl::Exit::usage,
                             to + ": the inventory has both names; import it without the old one");
    inventory.devices[static_cast<size_t>(known - inventory.devices.data())].name = to;
    std::sort(inventory.devices.begin(), inventory.devices.end(),
              [](const Device &a, const Device &b) { return a.name < b.name; });
    put(connection, inventory);
}

void replan(Connection &connection, const std::vector<std::string> &devices) {
    if (devices.empty()) return;
    connection.query("WITH l AS (SELECT id FROM device WHERE name = ANY($1) ORDER BY id "
                     "FOR NO KEY UPDATE) UPDATE device d SET due = 0, "
                     "free_at = greatest(lease_until, paused_until) FROM l WHERE d.id = l.id",
                     devices);
}

std::vector<std::string> Turns::changed(const std::vector<Device> &devices) const {
    std::vector<std::string> changed;
    for (const Device &device : devices) {
        const auto known = known_.find(device.name);
        if (known != known_.end() && known->second != std::pair(device.interval, device.selftest))
            changed.push_back(device.name);
    }
    return changed;
}

void Turns::take(const std::vector<Device> &devices) {
    known_.clear();
    for (const Device &device : devices)
        known_.emplace_hint(known_.end(), device.name, std::pair(device.interval, device.selftest));
}

} // namespace dtfleet::postgres
