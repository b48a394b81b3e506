// Stored values in slices.
#pragma once

#include "fleet/store/sqlite/database.h"
#include "fleet/store/store.h"

#include <vector>

namespace dtfleet::sqlite {

// Reader::values, inside a transaction.
bool read_history(Database &database, const ValueQuery &query, Reader::Place &after, size_t limit,
                  std::vector<FlatValue> &rows);

} // namespace dtfleet::sqlite
