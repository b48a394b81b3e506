// The table of devices.
#pragma once

#include "fleet/store/sqlite/database.h"
#include "fleet/store/store.h"

namespace dtfleet::sqlite {

// By its name; one that is not there yet is made.
int64_t device_id(Database &database, const std::string &name);

// A run of it has ended.
void note_run(Database &database, int64_t device, const RunRecord &run);

void take_devices(Database &database, const std::vector<Device> &devices);

// What operators do, as Store says.
void pause_device(Database &database, const std::string &name, Microseconds until);
void rename_device(Database &database, const std::string &from, const std::string &to);
void forget_device(Database &database, const std::string &name);
void accept_device(Database &database, const std::string &name);

// Deletes some rows of forgotten devices; true: there are more.
bool purge_some(Database &database);

} // namespace dtfleet::sqlite
