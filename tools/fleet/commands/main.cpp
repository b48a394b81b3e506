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

void add_commands(dtctl::Command &program) {
    dtfleet::add_footer(program, examples, text);
    dtfleet::add_run(program);
    dtfleet::add_status(program);
    dtfleet::add_devices(program);
    dtfleet::add_history(program);
    dtfleet::add_compare(program);
    dtfleet::add_export(program);
    dtfleet::add_ask(program);
    dtfleet::add_pause(program);
    dtfleet::add_rename(program);
    dtfleet::add_forget(program);
    dtfleet::add_accept(program);
    dtfleet::add_reload(program);
    dtfleet::add_discover(program);
    dtfleet::add_check(program);
    dtfleet::add_backup(program);
    dtfleet::add_migrate(program);
    dtfleet::add_move(program);
    dtfleet::add_import(program);
    dtfleet::add_import_faults(program);
    dtfleet::add_import_capture(program);
    dtfleet::add_simulate(program);
}

constexpr dtctl::Program program = {
    "dtfleet", DTCTL_VERSION,
    "Collects the data of many devices on a schedule, keeps and shows them.", add_commands};

} // namespace

int main(int argc, char **argv) { return dtctl::run_program(program, argc, argv); }
