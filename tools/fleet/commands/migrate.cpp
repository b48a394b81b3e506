// dtfleet migrate: the tables of a database on a server.
#include "fleet/commands/commands.h"
#include "fleet/commands/config.h"
#include "fleet/commands/help.h"
#include "fleet/store/upkeep.h"
#include "host/output.h"

#include <fmt/format.h>

namespace dtfleet {
namespace {

struct Options {
    std::string config;
};

void migrate(const Options &options) {
    const Inventory settings = fleet_settings(config_file(options.config));
    const Migrated migrated = migrate_database(settings.database);
    dtctl::Output out(stdout);
    if (migrated.before == 0)
        out.put(fmt::format("made the tables of version {}\n", migrated.now));
    else if (migrated.before != migrated.now)
        out.put(fmt::format("from version {} to {}\n", migrated.before, migrated.now));
    else
        out.put(fmt::format("the tables are of version {} already\n", migrated.now));
    out.flush();
}

} // namespace

void add_migrate(dtctl::Command &program) {
    dtctl::Command command =
        program.command("migrate", "Make the tables of a database on a server, or renew them");
    Options &options = command.runs(migrate);
    add_config(command, options.config);
    add_footer(
        command, "dtfleet migrate --config admin.toml",
        R"(For a database "postgresql://...", by a user of it who may make a schema; its collectors need not
be allowed to. Where the roles dtfleet_collect and dtfleet_read are there they are granted what
they need. A database that is a file is made and migrated by dtfleet run.
)");
}

} // namespace dtfleet
