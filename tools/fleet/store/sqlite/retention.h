// What is deleted, and when. The writer's thread calls these between its transactions.
#pragma once

#include "fleet/inventory/inventory.h"
#include "fleet/store/sqlite/database.h"

namespace dtfleet::sqlite {

// Does a slice of well under a second; true: there is more to do.
bool tidy(Database &database, const Retention &retention);

// Deletion is held while the wall clock cannot be trusted, until the operator accepts it.
bool is_clock_held(Database &database);
void accept_clock(Database &database);

} // namespace dtfleet::sqlite
