// The store of several collectors: a PostgreSQL database, "postgresql://...".
#pragma once

#include "fleet/store/leases.h"
#include "fleet/store/shared_inventory.h"
#include "fleet/store/store.h"
#include "fleet/store/upkeep.h"

namespace dtfleet::postgres {

// As the functions of these names in store.h, leases.h, shared_inventory.h and upkeep.h. The tables
// must be there.
std::unique_ptr<Store> open_store(const std::string &address, const Retention &retention);
std::unique_ptr<Reader> open_reader(const std::string &address);

std::unique_ptr<Leases> open_leases(const std::string &address, const std::string &name,
                                    const std::string &home);

SharedInventory read_shared(const std::string &address);
InventoryChanges write_shared(const std::string &address, const Inventory &inventory);

Migrated migrate_database(const std::string &address);
Moved move_database(const std::string &file, const std::string &address, const Advance &advance);
std::vector<std::string> check_database(const std::string &address, const Advance &advance);

} // namespace dtfleet::postgres
