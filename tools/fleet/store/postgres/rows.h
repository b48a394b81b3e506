// Rows as the rest of the service knows them.
#pragma once

#include "fleet/store/fields.h"
#include "fleet/store/postgres/connection.h"

namespace dtfleet::postgres {

// Of the ids in an array, or all for NULL.
constexpr const char *some_series =
    "SELECT id, collector, section, key, type, name, unit, signed, log FROM series "
    "WHERE $1::bigint[] IS NULL OR id = ANY($1) ORDER BY id";
Series series_in(const Result &rows, int row);

std::optional<Series> find_series(Connection &connection, int64_t id);

// The states of a device's commands. Entries that cannot be read are left out; the next run writes
// them anew.
std::vector<CommandState> states_of(Connection &connection, int64_t device);

} // namespace dtfleet::postgres
