// Brings the tables of an older version to the newest.
#pragma once

#include "fleet/store/sqlite/database.h"

#include <span>

namespace dtfleet::sqlite {

// steps[0] makes version 2 of version 1, and so on. The file is copied first, to its name with
// ".v1" for version 1; a copy that is there already is of an attempt that was cut short, and stays.
// Each step is done whole or not at all.
void migrate(Database &database, std::span<const char *const> steps);

} // namespace dtfleet::sqlite
