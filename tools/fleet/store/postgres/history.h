// The values of many runs, slice by slice.
#pragma once

#include "fleet/store/postgres/connection.h"

namespace dtfleet::postgres {

// Reader::values.
bool read_history(Connection &connection, const ValueQuery &query, Reader::Place &after,
                  size_t limit, std::vector<FlatValue> &rows);

} // namespace dtfleet::postgres
