// In the place of all else here where libpq is not there.
#include "fleet/store/postgres/open.h"
#include "host/failure.h"

namespace dtfleet::postgres {
namespace {

[[noreturn]] void refuse() {
    throw dtctl::Failure(dtctl::Exit::failed, "this program was built without libpq, which speaks "
                                              "with databases on servers");
}

} // namespace

std::unique_ptr<Store> open_store(const std::string &, const Retention &) { refuse(); }
std::unique_ptr<Reader> open_reader(const std::string &) { refuse(); }
std::unique_ptr<Leases> open_leases(const std::string &, const std::string &, const std::string &) {
    refuse();
}
SharedInventory read_shared(const std::string &) { refuse(); }
InventoryChanges write_shared(const std::string &, const Inventory &) { refuse(); }
Migrated migrate_database(const std::string &) { refuse(); }
Moved move_database(const std::string &, const std::string &, const Advance &) { refuse(); }
std::vector<std::string> check_database(const std::string &, const Advance &) { refuse(); }

} // namespace dtfleet::postgres
