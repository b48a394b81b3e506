// What keeps a database for years: copies of it, and looking for what is wrong in it. Both work
// beside a running service, and hold nobody up.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace dtfleet {

// How far long work has come, of `all`; told several times a second.
using Advance = std::function<void(uint64_t done, uint64_t all)>;

struct Migrated {
    int64_t before = 0; // the version of the tables; 0: there were none
    int64_t now = 0;
};

// Makes the tables of a database on a server, or brings older ones up to date. Throws
// dtctl::Failure, also for a file, and Unavailable.
Migrated migrate_database(const std::string &address);

struct Moved { // what was not there yet
    uint64_t runs = 0;
    uint64_t values = 0;
};

// Brings the history of a file to a server whose tables are there, and compares both by device and
// day. Done again it goes on where it ended, and what is there already is left as it is. Throws
// dtctl::Failure, and Unavailable.
Moved move_database(const std::string &file, const std::string &address,
                    const Advance &advance = {});

// Copies the database, as it is at one moment, to a file that is not there yet. The file appears
// under its name when it is whole. Throws dtctl::Failure, and Unavailable when others write faster
// than this can copy: then the running service copies it (see Store::back_up).
void back_up(const std::string &database, const std::string &file, const Advance &advance = {});

// What is wrong with a database, a sentence each, the first hundred; empty: nothing. Throws
// dtctl::Failure for what is no database of this program and version.
std::vector<std::string> check_database(const std::string &database, const Advance &advance = {});

} // namespace dtfleet
