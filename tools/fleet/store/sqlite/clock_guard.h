// Whether the wall clock can be trusted with deleting what is old.
#pragma once

#include "fleet/store/clocks.h"
#include "fleet/store/sqlite/database.h"

namespace dtfleet::sqlite {

using dtfleet::Clocks;

// The clock is held while it and the time since boot have moved apart by more than an hour since
// it was trusted. Over a restart of the machine nothing measures the time: then it is held when it
// stands before the time last seen, or more than three days (a weekend) behind it.
bool is_clock_held(Database &database, const Clocks &now);

// It is not held, and was seen.
void note_clock(Database &database, const Clocks &now);

// From now on it is trusted.
void accept_clock(Database &database, const Clocks &now);

} // namespace dtfleet::sqlite
