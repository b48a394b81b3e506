// The store of several collectors: a PostgreSQL database, "postgresql://...".
#pragma once

#include "fleet/store/leases.h"
#include "fleet/store/store.h"

namespace dtfleet::postgres {

// As the functions of these names in store.h. The tables must be there: migrate_database().
std::unique_ptr<Store> open_store(const std::string &address, const Retention &retention);
std::unique_ptr<Reader> open_reader(const std::string &address);

// name: of this collector, as others are told of it.
std::unique_ptr<Leases> open_leases(const std::string &address, const std::string &name);

// Makes the tables, or brings older ones up to date. Answers the version that was there; 0: none.
int64_t migrate_database(const std::string &address);

} // namespace dtfleet::postgres
