// dtfleet run: the service itself.
#include "fleet/commands/commands.h"
#include "fleet/commands/config.h"
#include "fleet/commands/help.h"
#include "fleet/commands/run_printer.h"
#include "fleet/service/service.h"
#include "host/failure.h"

#include <memory>

namespace dtfleet {
namespace {

void run(const std::string &file) {
    RunPrinter printer;
    Service(file, printer).run();
    if (printer.failed()) throw dtctl::Failure(dtctl::Exit::failed, "cannot write the output");
}

} // namespace

void add_run(CLI::App &app) {
    CLI::App &command =
        *app.add_subcommand("run", "Ask the devices in their turns; each run is a line of JSON");
    auto file = std::make_shared<std::string>();
    add_config(command, *file);
    add_footer(command, "dtfleet run\ndtfleet run --config fleet.toml",
               R"(SIGHUP reads the configuration again; SIGINT and SIGTERM end the service.
)");
    command.callback([file] { run(config_file(*file)); });
}

} // namespace dtfleet
