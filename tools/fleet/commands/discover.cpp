// dtfleet discover: which devices a network has.
#include "fleet/engine/discover.h"

#include "fleet/commands/commands.h"
#include "fleet/commands/config.h"
#include "fleet/commands/help.h"
#include "fleet/engine/control.h"
#include "fleet/engine/identities.h"
#include "fleet/service/service.h"
#include "host/descriptors.h"
#include "host/failure.h"
#include "host/output.h"
#include "host/program.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace dtfleet {
namespace {

using dtctl::Exit;
using dtctl::Failure;

struct Options {
    std::string config, broadcast, inventory;
    uint16_t port = 9099;
    unsigned seconds = 3;
};

// The service, if there is one, asks nobody there meanwhile; whom it asks already hears only one of
// us.
void borrow_network(const Options &options) {
    const std::string file = config_file(options.config);
    if (options.config.empty() && ::access(file.c_str(), F_OK) != 0) return; // not set up yet
    const auto answer =
        request_if_running(control_path(fleet_settings(file), file),
                           {{"discover", options.broadcast}, {"seconds", options.seconds + 1}});
    if (!answer) return;
    if (answer->contains("error")) throw Failure(Exit::broken, answer->value("error", ""));
    if (const auto open = answer->value("open", uint64_t{0}))
        throw Failure(Exit::broken,
                      fmt::format("the service has {} runs open there: try again in a moment, or "
                                  "pause these devices",
                                  open));
}

// What stands there already is never written over.
dtctl::Stream new_file(const std::string &path) {
    dtctl::Fd fd(::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666));
    dtctl::Stream stream(fd ? ::fdopen(fd.get(), "w") : nullptr, &std::fclose);
    if (!stream)
        throw Failure(Exit::failed, fmt::format("cannot write {}: {}", path, std::strerror(errno)));
    (void)fd.release();
    return stream;
}

void explore(const Options &options) {
    const dtctl::Stream file(options.inventory.empty() ? dtctl::Stream(nullptr, &std::fclose)
                                                       : new_file(options.inventory));
    borrow_network(options);
    (void)dtctl::allow_descriptors();
    const std::vector<Found> found =
        discover(options.broadcast, options.port, Seconds(options.seconds));
    dtctl::Output out(stdout);
    for (const Found &device : found)
        out.put(fmt::format("{:15} {}\n", device.address, identity_text(device.identity)));
    out.flush();
    if (found.empty()) dtctl::complain("dtfleet", "no device answers");
    if (!file) return;
    dtctl::Output list(file.get());
    list.put(inventory_of(found, options.port));
    list.flush();
}

} // namespace

void add_discover(dtctl::Command &program) {
    dtctl::Command command =
        program.command("discover", "Ask all devices of a network who they are");
    Options &options = command.runs(explore);
    command.argument("BROADCAST", options.broadcast, "The network's broadcast address");
    command.number("--port", "PORT", options.port, 1, 65'535, "Their UDP port").shows_default();
    command.number("--seconds", "S", options.seconds, 1, 59, "How long to listen").shows_default();
    command.file("--inventory", options.inventory, "Write them to a new file, to include");
    add_config(command, options.config);
    add_footer(
        command,
        "dtfleet discover 192.168.1.255\n"
        "dtfleet discover 192.168.1.255 --inventory devices.d/hall.toml",
        R"(Prints the address and the identity of each. A running service asks nobody of that network
meanwhile; while it has runs open there, nothing is sent.
)");
}

} // namespace dtfleet
