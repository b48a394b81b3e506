#include "fleet/commands/commands.h"
#include "host/program.h"

int main(int argc, char **argv) {
    CLI::App app("Asks many devices for their data, each in its turns, and prints what they send.");
    app.name("dtfleet");
    app.require_subcommand(1);
    app.set_version_flag("--version", "dtfleet " DTCTL_VERSION, "Print the version and exit");
    dtfleet::add_run(app);
    dtfleet::add_check(app);
    dtfleet::add_ask(app);
    dtfleet::add_reload(app);
    dtfleet::add_simulate(app);
    return dtctl::run_program(app, argc, argv);
}
