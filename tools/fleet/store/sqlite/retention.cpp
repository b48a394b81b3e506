#include "fleet/store/sqlite/retention.h"

namespace dtfleet::sqlite {

bool tidy(Database &database, const Retention &) {
    database.execute("PRAGMA incremental_vacuum(100)");
    return false;
}

bool is_clock_held(Database &) { return false; }

void accept_clock(Database &) {}

} // namespace dtfleet::sqlite
