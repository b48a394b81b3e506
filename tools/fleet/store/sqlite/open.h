// The store of one machine: an SQLite database in a file.
#pragma once

#include "fleet/store/store.h"
#include "fleet/store/upkeep.h"

namespace dtfleet::sqlite {

// As the functions of these names in store.h and upkeep.h.
std::unique_ptr<Store> open_store(const std::string &path, const Retention &retention);
std::unique_ptr<Reader> open_reader(const std::string &path);
void back_up(const std::string &path, const std::string &file, const Advance &advance);
std::vector<std::string> check_database(const std::string &path, const Advance &advance);

} // namespace dtfleet::sqlite
