// dtfleet run: the service itself.
#include "fleet/commands/commands.h"
#include "fleet/commands/config.h"
#include "fleet/commands/help.h"
#include "fleet/service/service.h"

#include <string>

namespace dtfleet {
namespace {

struct Options {
    std::string config;
};

void run(const Options &options) { Service(config_file(options.config)).run(); }

} // namespace

void add_run(dtctl::Command &program) {
    dtctl::Command command =
        program.command("run", "Ask the devices in their turns and keep what they send");
    add_config(command, command.runs(run).config);
    add_footer(command, "dtfleet run\ndtfleet run --config fleet.toml",
               R"(SIGHUP reads the configuration again; SIGINT and SIGTERM end the service.
)");
}

} // namespace dtfleet
