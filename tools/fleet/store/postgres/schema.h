// The tables, and which version of them a database has.
#pragma once

#include "fleet/store/postgres/connection.h"
#include "fleet/store/upkeep.h"

namespace dtfleet::postgres {

constexpr int64_t schema_version = 1;

// Makes the tables in a database that has none, as the one who will own them, and grants what the
// roles dtfleet_collect and dtfleet_read need where the server has these. Throws dtctl::Failure for
// a newer version.
Migrated migrate(Connection &connection);

// Throws dtctl::Failure when the tables are missing or of another version.
void check_schema(Connection &connection);

// Temporary tables through which runs go to store_staged(); for each session once.
void make_stage(Connection &connection);

// Gives free what they held. To be called now and then: emptying them as part of each transaction
// means to cut their files, which takes longer than all the rest.
void sweep_stage(Connection &connection);

} // namespace dtfleet::postgres
