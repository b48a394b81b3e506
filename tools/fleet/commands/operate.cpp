// Commands that change what the fleet's history says of a device: pause, rename, forget, accept.
#include "fleet/commands/commands.h"
#include "fleet/commands/fleet.h"
#include "fleet/commands/help.h"
#include "fleet/commands/moment.h"
#include "fleet/service/service.h"
#include "host/counted.h"
#include "host/failure.h"
#include "host/output.h"
#include "host/text.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace dtfleet {
namespace {

using dtctl::Exit;
using dtctl::Failure;

struct Options {
    std::string config;
    std::string device;
    std::string to;
    Microseconds until = 0;
};

void pause(const Options &options) {
    const auto here = [&](Store &store) {
        std::vector<std::string> names;
        const Fleet fleet(options.config);
        if (fleet.reader->device(options.device))
            names.push_back(options.device);
        else
            for (const DeviceState &device : fleet.devices_in({options.device}))
                names.push_back(device.name);
        if (names.empty())
            throw Failure(Exit::usage, fmt::format("there is no device and no group '{}'",
                                                   dtctl::escape(options.device)));
        for (const std::string &name : names) store.pause(name, options.until);
        return nlohmann::json{{"paused", names.size()}};
    };
    const nlohmann::json answer =
        change(options.config, {{"pause", options.device}, {"until", options.until}}, here);
    dtctl::Output out(stdout);
    out.put(dtctl::counted(answer.at("paused").get<uint64_t>(), "device") + "\n");
    out.flush();
}

void rename(const Options &options) {
    if (!is_name(options.to))
        throw Failure(Exit::usage,
                      fmt::format("'{}' is no name for a device", dtctl::escape(options.to)));
    change(options.config, {{"rename", options.device}, {"to", options.to}}, [&](Store &store) {
        store.rename(options.device, options.to);
        return nlohmann::json();
    });
}

void forget(const Options &options) {
    change(options.config, {{"forget", options.device}}, [&](Store &store) {
        if (checked_inventory(config_file(options.config)).find(options.device))
            throw Failure(Exit::usage, dtctl::escape(options.device) +
                                           " is in the configuration: take it out first");
        store.forget(options.device);
        return nlohmann::json();
    });
}

void accept(const Options &options) {
    change(options.config, {{"accept", options.device}}, [&](Store &store) {
        store.accept(options.device);
        return nlohmann::json();
    });
}

Options &add_operation(dtctl::Command &command, void (*act)(const Options &)) {
    Options &options = command.runs(act);
    command.argument("DEVICE", options.device, "Its name");
    return options;
}

constexpr const char *pause_help =
    R"(DEVICE may be a group: then all devices that are in it now. TIME is 2026-01-31T08:15 (UTC), a
length of time from now such as 2h, or now, which ends a pause. It holds over restarts.
)";

constexpr const char *rename_help =
    R"(First change the name in the configuration, then give the history to the new name, then have
the service reload. In between it asks the device under its old name. If it was reloaded first,
the new name has a history of its own: take it out of the configuration, reload, forget it, and
begin anew. On a server, where `dtfleet import` stands for the reload, the inventory in the
database has the new name at once.
)";

constexpr const char *forget_help =
    R"(The device must have left the configuration. Nothing brings the history back.
)";

constexpr const char *accept_help =
    R"(The identity that the device had last is the one that is expected from now on. One that stands
in the configuration counts more: change it there.
)";

} // namespace

void add_pause(dtctl::Command &program) {
    dtctl::Command command = program.command("pause", "Leave a device or a group alone for a time");
    Options &options = add_operation(command, pause);
    add_moment(command, "--until", options.until, Way::ahead, "When it is asked again").required();
    add_config(command, options.config);
    add_footer(command,
               "dtfleet pause pump7 --until 2h\ndtfleet pause 'hall 2' --until 2026-01-31T08:15\n"
               "dtfleet pause pump7 --until now",
               pause_help);
}

void add_rename(dtctl::Command &program) {
    dtctl::Command command = program.command("rename", "Give a device's history to another name");
    Options &options = add_operation(command, rename);
    command.argument("TO", options.to, "Its new name");
    add_config(command, options.config);
    add_footer(command, "dtfleet rename pump7 'pump 7' && dtfleet reload", rename_help);
}

void add_forget(dtctl::Command &program) {
    dtctl::Command command = program.command("forget", "Delete the history of a device");
    Options &options = add_operation(command, forget);
    add_config(command, options.config);
    add_footer(command, "dtfleet forget pump7", forget_help);
}

void add_accept(dtctl::Command &program) {
    dtctl::Command command = program.command("accept", "Take a device's new identity for right");
    Options &options = add_operation(command, accept);
    add_config(command, options.config);
    add_footer(command, "dtfleet accept pump7", accept_help);
}

} // namespace dtfleet
