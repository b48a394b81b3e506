// Which configuration a command is about, and what it says of the fleet as a whole.
#pragma once

#include "fleet/inventory/inventory.h"
#include "host/command.h"

#include <nlohmann/json_fwd.hpp>

#include <string>

namespace dtfleet {

// Adds --config, by one rule for all commands: the option, else DTFLEET_CONFIG in the environment,
// else /etc/dtfleet/fleet.toml. file must outlive the command's callback.
void add_config(dtctl::Command &command, std::string &file);

// The file that this rule finds.
std::string config_file(const std::string &given);

// What that file says of the fleet as a whole, whatever its devices are. Throws dtctl::Failure with
// its mistakes, a line each.
Inventory fleet_settings(const std::string &file);

// What the running service answers to a request. Throws dtctl::Failure when none runs, and with the
// service's own words when it refuses.
nlohmann::json ask_service(const std::string &file, const nlohmann::json &what);

} // namespace dtfleet
