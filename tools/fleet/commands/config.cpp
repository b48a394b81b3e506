#include "fleet/commands/config.h"

#include "fleet/engine/control.h"
#include "fleet/service/service.h"
#include "host/failure.h"

#include <nlohmann/json.hpp>

#include <cstdlib>

namespace dtfleet {

using dtctl::Exit;
using dtctl::Failure;

void add_config(dtctl::Command &command, std::string &file) {
    command.file("--config", file,
                 "The configuration; else $DTFLEET_CONFIG, else /etc/dtfleet/fleet.toml");
}

std::string config_file(const std::string &given) {
    if (!given.empty()) return given;
    const char *named = std::getenv("DTFLEET_CONFIG");
    return named && *named ? named : "/etc/dtfleet/fleet.toml";
}

Inventory fleet_settings(const std::string &file) { return checked(load_settings(file)); }

nlohmann::json ask_service(const std::string &file, const nlohmann::json &what) {
    nlohmann::json answer = request(control_path(fleet_settings(file), file), what);
    if (answer.contains("error")) throw Failure(Exit::broken, answer["error"].get<std::string>());
    return answer;
}

} // namespace dtfleet
