// Hours that are over, as rows of sums.
#pragma once

#include "fleet/store/sqlite/database.h"
#include "fleet/store/state.h"

namespace dtfleet::sqlite {

// Adds the sums of the state to its hour's row, and begins anew: the sums are empty, and what was
// gone is left out.
void close_hour(Database &database, int64_t device, uint32_t command, State &state);

} // namespace dtfleet::sqlite
