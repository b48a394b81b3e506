#include "fleet/store/sqlite/open.h"

#include "fleet/store/sqlite/audit.h"
#include "fleet/store/sqlite/backup.h"
#include "fleet/store/sqlite/schema.h"

#include <algorithm>

namespace dtfleet::sqlite {
namespace {

constexpr uint64_t most_restarts = 20;

} // namespace

void back_up(const std::string &database, const std::string &file, const Advance &advance) {
    Database from(database, Database::Access::read);
    check_schema(from);
    Backup backup(from, file);
    while (backup.step()) {
        if (advance) advance(backup.done(), backup.all());
        if (backup.restarts() > most_restarts)
            throw Unavailable(database + ": others write to it all the time");
    }
}

std::vector<std::string> check_database(const std::string &database, const Advance &advance) {
    Database opened(database, Database::Access::read);
    check_schema(opened);
    return Audit(opened, advance).complaints();
}

} // namespace dtfleet::sqlite
