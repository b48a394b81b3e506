// The inventory that all collectors of a database share: it is in the database.
#pragma once

#include "fleet/inventory/shared.h"

#include <cstdint>
#include <string>

namespace dtfleet {

struct SharedInventory {
    int64_t number = 0; // grows with each change; 0: nobody has brought one yet
    std::string text;   // for load_shared_text
};

// Throws dtctl::Failure for a database that is a file, Unavailable.
SharedInventory read_shared(const std::string &database);

// Takes the shared part of the inventory into the database, in one transaction, and says what that
// has changed. Who is gone is no longer asked, and keeps its history. Throws as read_shared.
InventoryChanges write_shared(const std::string &database, const Inventory &inventory);

} // namespace dtfleet
