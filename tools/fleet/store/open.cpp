// Which engine a database is for.
#include "fleet/store/postgres/open.h"
#include "fleet/store/leases.h"
#include "fleet/store/shared_inventory.h"
#include "fleet/store/sqlite/open.h"
#include "fleet/store/store.h"
#include "fleet/store/upkeep.h"
#include "host/failure.h"

namespace dtfleet {

using dtctl::Exit;
using dtctl::Failure;

std::unique_ptr<Store> open_store(const std::string &database, const Retention &retention) {
    return is_address(database) ? postgres::open_store(database, retention)
                                : sqlite::open_store(database, retention);
}

std::unique_ptr<Reader> open_reader(const std::string &database) {
    return is_address(database) ? postgres::open_reader(database) : sqlite::open_reader(database);
}

std::unique_ptr<Leases> open_leases(const std::string &database, const std::string &name,
                                    const std::string &home) {
    if (is_address(database)) return postgres::open_leases(database, name, home);
    throw Failure(Exit::usage, "a database that is a file is not shared");
}

SharedInventory read_shared(const std::string &database) {
    if (is_address(database)) return postgres::read_shared(database);
    throw Failure(Exit::usage, "the database is a file: its devices stand in the configuration");
}

InventoryChanges write_shared(const std::string &database, const Inventory &inventory) {
    if (is_address(database)) return postgres::write_shared(database, inventory);
    throw Failure(Exit::usage, "the database is a file: its devices stand in the configuration");
}

Migrated migrate_database(const std::string &address) {
    if (is_address(address)) return postgres::migrate_database(address);
    throw Failure(Exit::usage, "a database that is a file is made and migrated by dtfleet run");
}

Moved move_database(const std::string &file, const std::string &address, const Advance &advance) {
    if (is_address(file) || !is_address(address))
        throw Failure(Exit::usage, "histories are moved from a file to a server");
    return postgres::move_database(file, address, advance);
}

void back_up(const std::string &database, const std::string &file, const Advance &advance) {
    if (is_address(database))
        throw Failure(Exit::usage, "a database on a server is copied with its own pg_dump");
    sqlite::back_up(database, file, advance);
}

std::vector<std::string> check_database(const std::string &database, const Advance &advance) {
    return is_address(database) ? postgres::check_database(database, advance)
                                : sqlite::check_database(database, advance);
}

} // namespace dtfleet
