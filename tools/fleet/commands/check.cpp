// dtfleet check: what is wrong, before the service finds it.
#include "fleet/commands/commands.h"
#include "fleet/commands/config.h"
#include "fleet/commands/help.h"
#include "fleet/service/service.h"
#include "host/output.h"

#include <fmt/format.h>

#include <memory>

namespace dtfleet {
namespace {

void check(const std::string &file) {
    const Inventory inventory = checked_inventory(file);
    dtctl::Output out(stdout);
    out.put(fmt::format("{}: {} devices in {} groups\n", file, inventory.devices.size(),
                        inventory.groups.size()));
    out.flush();
}

} // namespace

void add_check(CLI::App &app) {
    CLI::App &command = *app.add_subcommand("check", "Say what is wrong with the configuration");
    auto file = std::make_shared<std::string>();
    add_config(command, *file);
    add_footer(command, "dtfleet check\ndtfleet check --config new.toml");
    command.callback([file] { check(config_file(*file)); });
}

} // namespace dtfleet
