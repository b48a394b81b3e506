// dtfleet backup: a copy of the database.
#include "fleet/commands/commands.h"
#include "fleet/commands/fleet.h"
#include "fleet/commands/help.h"
#include "fleet/store/upkeep.h"
#include "host/progress.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <unistd.h>

#include <filesystem>

namespace dtfleet {
namespace {

struct Options {
    std::string config;
    std::string file;
};

// The service copies where others write all the time: only it can do so without beginning anew.
void backup(const Options &options) {
    const std::string config = config_file(options.config);
    const std::string database = existing_database(fleet_settings(config), config);
    try {
        Percent percent("copied");
        back_up(database, options.file, percent.advance());
    } catch (const Unavailable &) {
        const std::string file = std::filesystem::absolute(options.file);
        ask_service(config, {{"back_up", file}});
    }
}

} // namespace

void add_backup(dtctl::Command &program) {
    dtctl::Command command = program.command("backup", "Copy the database, also while it is used");
    Options &options = command.runs(backup);
    command.argument("FILE", options.file, "The copy, which is not there yet");
    add_config(command, options.config);
    add_footer(
        command, "dtfleet backup /srv/backup/fleet-$(date +%F).db",
        R"(The copy is the database as it is at one moment. It appears under its name when it is whole.
)");
}

} // namespace dtfleet
