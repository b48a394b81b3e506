// The tables, and which version of them a file has.
#pragma once

#include "fleet/store/sqlite/database.h"

namespace dtfleet::sqlite {

constexpr int64_t application_id = 0x64746c74; // "dtlt", in the file's header
constexpr int64_t schema_version = 1;          // PRAGMA user_version

// Makes the tables in an empty file, and sets this connection up for writing. Throws dtctl::Failure
// for another program's database, which is left as it is, and for a newer version of ours. Answers
// the version that was there; 0: the file was empty.
int64_t open_schema(Database &database);

// Throws dtctl::Failure unless the file has the tables of this version.
void check_schema(Database &database);

} // namespace dtfleet::sqlite
