// dtfleet move: the history of a file, to a server.
#include "fleet/commands/commands.h"
#include "fleet/commands/fleet.h"
#include "fleet/commands/help.h"
#include "host/counted.h"
#include "host/output.h"

#include <fmt/format.h>

namespace dtfleet {
namespace {

struct Options {
    std::string config;
    std::string file;
};

void move(const Options &options) {
    const Inventory settings = fleet_settings(config_file(options.config));
    Moved moved;
    {
        Percent percent("moved");
        moved = move_database(options.file, settings.database, percent.advance());
    }
    dtctl::Output out(stdout);
    out.put(fmt::format("{} with {}; the server has all of the file, by device and day\n",
                        dtctl::counted(moved.runs, "new run"),
                        dtctl::counted(moved.values, "value")));
    out.flush();
}

} // namespace

void add_move(dtctl::Command &program) {
    dtctl::Command command =
        program.command("move", "Bring the history of a file to a database on a server");
    Options &options = command.runs(move);
    command.argument("FILE", options.file, "The database that the fleet had before");
    add_config(command, options.config);
    add_footer(
        command, "dtfleet move /var/lib/dtfleet/fleet.db",
        R"(To the database of the configuration, whose tables dtfleet migrate has made. Stop the service of
FILE first, and start the new one afterwards, so that it goes on where the old one ended. When it
is broken off, do it again: it goes on, and nothing is there twice. FILE stays as it is.
)");
}

} // namespace dtfleet
