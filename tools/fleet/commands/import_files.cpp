// Commands that add to the history what was brought in files: import-faults, import-capture.
#include "fleet/commands/commands.h"
#include "fleet/commands/fleet.h"
#include "fleet/commands/help.h"
#include "fleet/service/service.h"
#include "fleet/store/import.h"
#include "host/failure.h"
#include "host/file.h"
#include "host/output.h"
#include "host/text.h"

#include <fmt/format.h>

#include <arpa/inet.h>
#include <sys/stat.h>

#include <memory>

namespace dtfleet {
namespace {

using dtctl::Exit;
using dtctl::Failure;

struct Options {
    std::string config;
    std::string device;
    std::string file;
    std::vector<std::string> maps; // ADDRESS=DEVICE
};

void say(const std::string &line) {
    dtctl::Output out(stdout);
    out.put(line + "\n");
    out.flush();
}

// The time of the file's last change; a device writes the whole of it each time.
Microseconds written_at(const std::string &file) {
    struct stat about {};
    if (::stat(file.c_str(), &about) != 0) dtctl::report_unreadable(file);
    return Microseconds{about.st_mtim.tv_sec} * 1'000'000 + about.st_mtim.tv_nsec / 1000;
}

// Beside a running service, too: the file need not be one that the service may read.
std::unique_ptr<Store> store_of(const Fleet &fleet) {
    return open_store(existing_database(fleet.settings, fleet.file), fleet.settings.retention);
}

void import_faults(const Options &options) {
    const Fleet fleet(options.config);
    const std::string device = fleet.device(options.device).name;
    const std::string bytes = dtctl::read_whole_file(options.file);
    try {
        const size_t added =
            import_faults(*store_of(fleet), device, bytes, written_at(options.file));
        say(fmt::format("{} new lines and values", added));
    } catch (const Failure &failure) {
        if (failure.code() != Exit::broken) throw;
        throw Failure(Exit::broken, dtctl::escape(options.file) + ": " + failure.what());
    }
}

Sender sender_of(const Fleet &fleet, const Inventory &inventory, const std::string &name) {
    const DeviceState state = fleet.device(name);
    Sender sender{state.name, state.id};
    if (const Device *device = inventory.find(name)) {
        sender.command = device->command;
        sender.keeps_all = device->keep == Keep::all;
    }
    return sender;
}

std::map<std::string, Sender> senders_of(const Options &options, const Fleet &fleet,
                                         const Inventory &inventory) {
    std::map<std::string, Sender> senders;
    for (const std::string &map : options.maps) {
        const size_t equals = map.find('=');
        const std::string address = map.substr(0, equals);
        in_addr parsed{};
        if (equals == map.npos || ::inet_pton(AF_INET, address.c_str(), &parsed) != 1)
            throw Failure(Exit::usage, fmt::format("'{}' is not ADDRESS=DEVICE, such as "
                                                   "192.168.1.20=pump7",
                                                   dtctl::escape(map)));
        const Sender sender = sender_of(fleet, inventory, map.substr(equals + 1));
        if (!senders.emplace(address, sender).second)
            throw Failure(Exit::usage, address + " is two devices");
    }
    return senders;
}

std::string strangers_text(const CapturedRuns &runs) {
    constexpr size_t most = 5;
    size_t all = 0, shown = 0;
    std::string text;
    for (const auto &[address, count] : runs.strangers) {
        all += count;
        if (++shown <= most) text += fmt::format(" {} ({})", address, count);
    }
    if (shown > most) text += " and others";
    return shown == 0 ? ""
                      : fmt::format("; {} left out, from addresses without --map:{}", all, text);
}

void import_capture(const Options &options) {
    const Fleet fleet(options.config);
    const Inventory inventory = checked_inventory(fleet.file);
    const auto senders = senders_of(options, fleet, inventory);
    const auto store = store_of(fleet);
    store->take_meanings(inventory.series);
    const CapturedRuns runs = import_capture(*store, options.file, senders, inventory.limits);
    say(fmt::format("{} whole runs, {} broken{}", runs.whole, runs.broken, strangers_text(runs)));
    if (!runs.trouble.empty()) throw Failure(Exit::broken, runs.trouble);
    if (runs.whole + runs.broken + runs.strangers.size() == 0)
        throw Failure(Exit::broken, dtctl::escape(options.file) + ": no run in this capture");
}

constexpr const char *faults_help =
    R"(The time of the faults is that of the file's last change: copy it with its time (cp -p). What is
there already is not added again. Of a damaged file nothing is added; dtctl fcm shows what can
be read of it.
)";

constexpr const char *capture_help =
    R"(Runs of devices that this fleet has not asked itself; those that it has would be there twice. The
same capture may be imported again: what is there already is not added again. Runs that are older
than what is known of a device do not change how it stands now.
)";

} // namespace

void add_import_faults(dtctl::Command &program) {
    dtctl::Command command =
        program.command("import-faults", "Add a device's fault log file to its history");
    Options &options = command.runs(import_faults);
    command.argument("DEVICE", options.device, "Its name");
    command.argument("FILE", options.file, "Its fault log, fcm.log");
    add_config(command, options.config);
    add_footer(command, "dtfleet import-faults pump7 fcm.log", faults_help);
}

void add_import_capture(dtctl::Command &program) {
    dtctl::Command command =
        program.command("import-capture", "Add the runs in a network capture to the history");
    Options &options = command.runs(import_capture);
    command.argument("FILE", options.file, "A pcap or pcapng file; - is standard input");
    command
        .option("--map", "ADDRESS=DEVICE", options.maps,
                "Which device has sent from this address; once for each")
        .required();
    add_config(command, options.config);
    add_footer(command, "dtfleet import-capture visit.pcap --map 192.168.1.20=pump7", capture_help);
}

} // namespace dtfleet
