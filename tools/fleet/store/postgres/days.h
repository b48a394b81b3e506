// The days of the history: made before they begin, and dropped when they are too old.
#pragma once

#include "fleet/inventory/inventory.h"
#include "fleet/store/postgres/connection.h"

namespace dtfleet::postgres {

// Makes the days that come next.
void make_next_days(Connection &connection);

// Drops one day that the bounds do not allow; of what it held, only runs stay that are the last of
// their device to have stored all values. True: there may be more such days.
bool drop_old_day(Connection &connection, const Retention &retention);

} // namespace dtfleet::postgres
