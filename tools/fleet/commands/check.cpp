// dtfleet check: what is wrong, before the service finds it.
#include "fleet/commands/commands.h"
#include "fleet/commands/fleet.h"
#include "fleet/commands/help.h"
#include "fleet/service/service.h"
#include "fleet/store/upkeep.h"
#include "host/counted.h"
#include "host/failure.h"
#include "host/output.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <filesystem>

namespace dtfleet {
namespace {

void say(const std::string &text) {
    dtctl::Output out(stdout);
    out.put(text + '\n');
    out.flush();
}

void check_history(const std::string &database) {
    std::vector<std::string> complaints;
    {
        Percent percent("checked");
        complaints = check_database(database, percent.advance());
    }
    // An address may have a password in it.
    const std::string name = is_address(database) ? "the database" : database;
    std::string text;
    for (const std::string &complaint : complaints)
        text += fmt::format("{}{}: {}", text.empty() ? "" : "\n", name, complaint);
    if (!text.empty()) throw dtctl::Failure(dtctl::Exit::broken, text);
    say(name + ": nothing is wrong");
}

void check_all(const std::string &file) {
    const Inventory inventory = checked_inventory(file);
    say(fmt::format("{}: {} in {}", file, dtctl::counted(inventory.devices.size(), "device"),
                    dtctl::counted(inventory.groups.size(), "group")));
    std::error_code trouble;
    if (is_address(inventory.database) ||
        std::filesystem::exists(database_path(inventory, file), trouble) || trouble)
        check_history(existing_database(inventory, file));
}

void accept_clock(const std::string &given) {
    change(given, {{"accept_clock", true}}, [](Store &store) {
        store.accept_clock();
        return nlohmann::json();
    });
}

struct Options {
    std::string config;
    bool accepts_clock = false;
};

void check(const Options &options) {
    if (options.accepts_clock) return accept_clock(options.config);
    check_all(config_file(options.config));
}

} // namespace

void add_check(dtctl::Command &program) {
    dtctl::Command command =
        program.command("check", "Say what is wrong with the configuration or the database");
    Options &options = command.runs(check);
    command.flag("--accept-clock", options.accepts_clock,
                 "The clock is right, though it has moved by more than an hour");
    add_config(command, options.config);
    add_footer(
        command, "dtfleet check\ndtfleet check --config new.toml",
        R"(All mistakes of the configuration and the files that it includes are told, each with file and
line. Where the database is on a server, the inventory in it is checked, too. While the clock has
moved by more than an hour nothing is deleted by its age; --accept-clock ends that.
)");
}

} // namespace dtfleet
