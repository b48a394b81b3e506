#include "fleet/commands/commands.h"
#include "host/program.h"

namespace {

void describe(CLI::App &app) {
    app.description(
        "Asks many devices for their data, each in its turns, and prints what they send.");
    app.require_subcommand(1);
    app.set_version_flag("--version", "dtfleet " DTCTL_VERSION, "Print the version and exit");
    dtfleet::add_run(app);
    dtfleet::add_check(app);
    dtfleet::add_ask(app);
    dtfleet::add_reload(app);
    dtfleet::add_simulate(app);
}

} // namespace

int main(int argc, char **argv) { return dtctl::run_program("dtfleet", describe, argc, argv); }
