#include "fleet/commands/commands.h"
#include "fleet/commands/help.h"
#include "host/program.h"

namespace {

constexpr const char *examples = R"(dtfleet run
dtfleet simulate 100 --inventory fleet.toml)";

constexpr const char *text =
    R"(The configuration of all commands is the file given by --config, else the one that
DTFLEET_CONFIG names in the environment, else /etc/dtfleet/fleet.toml.

dtfleet help COMMAND tells more.

On a terminal headings are bold, unless NO_COLOR is set in the environment.
)";

void describe(CLI::App &app) {
    app.description("Collects the data of many devices on a schedule, keeps and shows them.");
    app.require_subcommand(1);
    app.set_version_flag("--version", "dtfleet " DTCTL_VERSION, "Print the version and exit");
    dtfleet::add_footer(app, examples, text);
    dtfleet::add_run(app);
    dtfleet::add_status(app);
    dtfleet::add_devices(app);
    dtfleet::add_history(app);
    dtfleet::add_compare(app);
    dtfleet::add_export(app);
    dtfleet::add_ask(app);
    dtfleet::add_pause(app);
    dtfleet::add_rename(app);
    dtfleet::add_forget(app);
    dtfleet::add_accept(app);
    dtfleet::add_reload(app);
    dtfleet::add_discover(app);
    dtfleet::add_check(app);
    dtfleet::add_backup(app);
    dtfleet::add_import(app);
    dtfleet::add_import_faults(app);
    dtfleet::add_import_capture(app);
    dtfleet::add_simulate(app);
}

} // namespace

int main(int argc, char **argv) { return dtctl::run_program("dtfleet", describe, argc, argv); }
