// dtfleet run: the service itself.
#include "fleet/commands/commands.h"
#include "fleet/commands/config.h"
#include "fleet/commands/help.h"
#include "fleet/service/service.h"

#include <memory>

namespace dtfleet {

void add_run(CLI::App &app) {
    CLI::App &command =
        *app.add_subcommand("run", "Ask the devices in their turns and keep what they send");
    auto file = std::make_shared<std::string>();
    add_config(command, *file);
    add_footer(command, "dtfleet run\ndtfleet run --config fleet.toml",
               R"(SIGHUP reads the configuration again; SIGINT and SIGTERM end the service.
)");
    command.callback([file] { Service(config_file(*file)).run(); });
}

} // namespace dtfleet
