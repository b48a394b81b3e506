// The table of devices, as the inventory and operators change it.
#pragma once

#include "fleet/store/postgres/connection.h"
#include "fleet/store/store.h"

namespace dtfleet::postgres {

// All of these within a transaction.
int64_t device_id(Connection &connection, const std::string &name); // made when it is new
void take_devices(Connection &connection, const std::vector<Device> &devices);
void pause_device(Connection &connection, const std::string &name, Microseconds until);
void rename_device(Connection &connection, const std::string &from, const std::string &to);
void forget_device(Connection &connection, const std::string &name);
void accept_device(Connection &connection, const std::string &name);

// Deletes some rows of forgotten devices, in a transaction of its own; true: there are more.
bool purge_some(Connection &connection);

} // namespace dtfleet::postgres
