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

// Copies the database, as it is at one moment, to a file that is not there yet. The file appears
// under its name when it is whole. Throws dtctl::Failure, and Unavailable when others write faster
// than this can copy: then the running service copies it (see Store::back_up).
void back_up(const std::string &database, const std::string &file, const Advance &advance = {});

// What is wrong with a database, a sentence each, the first hundred; empty: nothing. Throws
// dtctl::Failure for what is no database of this program and version.
std::vector<std::string> check_database(const std::string &database, const Advance &advance = {});

} // namespace dtfleet
