// Faults as they are stored, from the files that devices write of them.
#pragma once

#include "fleet/store/postgres/connection.h"
#include "fleet/store/store.h"

namespace dtfleet::postgres {

// As Store::add_faults, inside a transaction that no other one goes beside.
size_t store_faults(Connection &connection, const FaultFile &file);

} // namespace dtfleet::postgres
