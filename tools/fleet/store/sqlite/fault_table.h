// Faults as they are stored, from the files that devices write of them.
#pragma once

#include "fleet/store/sqlite/database.h"
#include "fleet/store/store.h"

namespace dtfleet::sqlite {

// As Store::add_faults, inside a transaction. now: of the wall clock.
size_t store_faults(Database &database, const FaultFile &file, Microseconds now);

} // namespace dtfleet::sqlite
