#include "fleet/store/upkeep.h"

#include "fleet/store/sqlite/audit.h"
#include "fleet/store/sqlite/backup.h"
#include "fleet/store/sqlite/schema.h"
#include "fleet/store/store.h"

#include <algorithm>

namespace dtfleet {
namespace {

constexpr uint64_t most_restarts = 20;

} // namespace

void back_up(const std::string &database, const std::string &file, const Advance &advance) {
    sqlite::Database from(database, sqlite::Database::Access::read);
    sqlite::check_schema(from);
    sqlite::Backup backup(from, file);
    while (backup.step()) {
        if (advance) advance(backup.done(), backup.all());
        if (backup.restarts() > most_restarts)
            throw Unavailable(database + ": others write to it all the time");
    }
}

std::vector<std::string> check_database(const std::string &database, const Advance &advance) {
    sqlite::Database opened(database, sqlite::Database::Access::read);
    sqlite::check_schema(opened);
    return sqlite::Audit(opened, advance).complaints();
}

} // namespace dtfleet
