// The tables, and which version of them a file has.
#pragma once

#include "fleet/store/sqlite/database.h"

namespace dtfleet::sqlite {

constexpr int64_t application_id = 0x64746c74; // "dtlt", in the file's header
constexpr int64_t schema_version = 1;          // PRAGMA user_version

// How the file is written and read, before anything else is done with a connection that writes.
void set_up(Database &database);

// Makes the tables in an empty file. Throws dtctl::Failure for another program's database and for
// a newer version of ours. Answers the version that it found; 0: it was empty.
int64_t make_schema(Database &database);

} // namespace dtfleet::sqlite
