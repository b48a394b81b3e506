// dtfleet status and dtfleet devices: how the fleet is, and who belongs to it.
#include "fleet/commands/commands.h"
#include "fleet/commands/fleet.h"
#include "fleet/commands/help.h"
#include "fleet/commands/listing.h"
#include "fleet/engine/time.h"
#include "fleet/store/health.h"
#include "host/counted.h"
#include "host/time.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>

namespace dtfleet {
namespace {

struct Options {
    std::string config;
    std::vector<std::string> groups;
    Form form = Form::automatic;
    bool all = false;
    bool names = false;
};

constexpr size_t most_rows = 30; // of the table, without --all
constexpr size_t slowest = 5;

struct Judged {
    DeviceState device;
    Health health;
};

std::vector<Judged> judged(const Fleet &fleet, const Options &options, Microseconds time) {
    std::vector<Judged> list;
    for (DeviceState &device : fleet.devices_in(options.groups)) {
        const Health health = health_of(device, fleet.settings.limits.run, time);
        list.push_back({std::move(device), health});
    }
    return list;
}

bool is_trouble(Health health) {
    return health == Health::failing || health == Health::late || health == Health::never;
}

std::string reason_of(const DeviceState &device) {
    if (device.last_try == 0) return "not asked yet";
    if (device.failures == 0) return "";
    const std::string outcome = text_of(device.last_outcome);
    return device.last_reason.empty() ? outcome : outcome + ": " + device.last_reason;
}

std::string why(const Judged &judged) {
    if (judged.health == Health::paused)
        return "until " + dtctl::utc_text(judged.device.paused_until / 1'000'000);
    return reason_of(judged.device);
}

std::string summary(const std::vector<Judged> &list) {
    std::array<size_t, health_names.size()> counts{};
    for (const Judged &one : list) ++counts[static_cast<size_t>(one.health)];
    std::string text = dtctl::counted(list.size(), "device");
    for (size_t i = 0; i < counts.size(); ++i)
        if (counts[i] != 0)
            text += fmt::format("{} {} {}", text.find(':') == text.npos ? ":" : ",", counts[i],
                                health_names[i]);
    return text;
}

// The worst first, and among them those that have waited longest.
void put_troubled(std::vector<Judged> list, bool all, Microseconds time, dtctl::Output &out) {
    if (!all) std::erase_if(list, [](const Judged &one) { return !is_trouble(one.health); });
    const auto rank = [](const Judged &one) {
        return std::pair(is_trouble(one.health) ? -static_cast<int>(one.health) : 1,
                         one.device.last_ok);
    };
    std::stable_sort(list.begin(), list.end(),
                     [&](const Judged &a, const Judged &b) { return rank(a) < rank(b); });
    const size_t shown = all ? list.size() : std::min(list.size(), most_rows);
    Listing listing(
        Form::table,
        {{"", "device"}, {"", "state"}, {"", "last good run"}, {"", "failed", true}, {"", "why"}},
        out);
    for (size_t i = 0; i < shown; ++i) {
        const DeviceState &device = list[i].device;
        listing.add({text_cell(device.name),
                     {text_of(list[i].health)},
                     {ago(device.last_ok, time)},
                     number_cell(device.failures),
                     text_cell(why(list[i]))});
    }
    if (shown != 0) out.put("\n");
    listing.end();
    if (shown < list.size())
        out.put(fmt::format("and {} more: --all shows them\n", list.size() - shown));
}

void put_slowest(std::vector<Judged> list, dtctl::Output &out) {
    std::erase_if(list, [](const Judged &one) { return one.health != Health::ok; });
    const size_t count = std::min(list.size(), slowest);
    std::partial_sort(list.begin(), list.begin() + static_cast<ptrdiff_t>(count), list.end(),
                      [](const Judged &a, const Judged &b) {
                          return a.device.last_duration > b.device.last_duration;
                      });
    Listing listing(Form::table, {{"", "slowest"}, {"", "last run", true}}, out);
    for (size_t i = 0; i < count; ++i)
        listing.add({text_cell(list[i].device.name), seconds_cell(list[i].device.last_duration)});
    if (count != 0) out.put("\n");
    listing.end();
}

void put_rows(const std::vector<Judged> &list, Form form, dtctl::Output &out) {
    Listing listing(form,
                    {{"device", ""},
                     {"state", ""},
                     {"last_ok", ""},
                     {"last_try", ""},
                     {"failures", ""},
                     {"outcome", ""},
                     {"reason", ""},
                     {"duration", ""},
                     {"paused_until", ""}},
                    out);
    for (const auto &[device, health] : list)
        listing.add({text_cell(device.name), text_cell(text_of(health)), time_cell(device.last_ok),
                     time_cell(device.last_try), number_cell(device.failures),
                     device.last_try == 0 ? Cell() : text_cell(text_of(device.last_outcome)),
                     text_cell(device.last_reason), number_cell(device.last_duration),
                     time_cell(device.paused_until)});
}

void status(const Options &options) {
    const Fleet fleet(options.config);
    const Microseconds time = wall_microseconds();
    const std::vector<Judged> list = judged(fleet, options, time);
    dtctl::Output out(stdout);
    if (chosen(options.form) != Form::table) {
        put_rows(list, chosen(options.form), out);
    } else {
        out.put(summary(list) + "\n");
        put_troubled(list, options.all, time, out);
        put_slowest(list, out);
    }
    out.flush();
}

std::string joined(const std::vector<std::string> &texts) {
    std::string all;
    for (const std::string &text : texts) all += (all.empty() ? "" : ", ") + text;
    return all;
}

Cell groups_cell(const std::vector<std::string> &groups) {
    Cell cell = text_cell(joined(groups));
    cell.json = groups;
    return cell;
}

void devices(const Options &options) {
    const Fleet fleet(options.config);
    dtctl::Output out(stdout);
    Listing listing(options.names ? Form::table : chosen(options.form),
                    {{"device", "device"},
                     {"address", "address"},
                     {"port", "port", true},
                     {"interval", "interval", true},
                     {"groups", "groups"},
                     {"identity", "identity"},
                     {"expected", "expected"},
                     {"seen_at", "seen at"},
                     {"listed", "listed"}},
                    out);
    for (const DeviceState &device : fleet.devices_in(options.groups)) {
        if (options.names) {
            out.put(device.name + "\n");
            continue;
        }
        Cell interval = number_cell(static_cast<uint64_t>(device.interval.count()));
        interval.shown += " s";
        listing.add({text_cell(device.name), text_cell(device.address), number_cell(device.port),
                     interval, groups_cell(device.groups), identity_cell(device.identity_seen),
                     identity_cell(device.identity_expected), text_cell(device.address_seen),
                     flag_cell(device.is_listed, "yes", "no")});
    }
    listing.end();
    out.flush();
}

Options &add_listing(dtctl::Command &command, void (*act)(const Options &)) {
    Options &options = command.runs(act);
    command.option("--group", "NAME", options.groups,
                   "Only devices of this group; may be repeated");
    add_format(command, options.form, {Form::table, Form::json, Form::csv});
    add_config(command, options.config);
    return options;
}

constexpr const char *status_help =
    R"(A device is late when its last good run is more than two of its intervals and the limit of a
run ago, and failing when its last three runs failed. The table has the devices with a
trouble, the worst first, and the slowest of the others; JSON and CSV have all devices, with
times in microseconds since 1970, and durations in microseconds.
)";

constexpr const char *devices_help =
    R"(identity is what the device says of itself, expected what the configuration says or what was
accepted. seen_at is the address from which it connected. A device that is not listed has
left the configuration, or is disabled; its history stays until it is forgotten.
)";

} // namespace

void add_status(dtctl::Command &program) {
    dtctl::Command command =
        program.command("status", "Show which devices are late or failing, and why");
    Options &options = add_listing(command, status);
    command.flag("--all", options.all, "Have all devices in the table");
    add_footer(command, "dtfleet status\ndtfleet status --group 'hall 2' --all", status_help);
}

void add_devices(dtctl::Command &program) {
    dtctl::Command command = program.command("devices", "List the devices");
    Options &options = add_listing(command, devices);
    command.flag("--names", options.names, "Their names alone");
    add_footer(command, "dtfleet devices\ndtfleet devices --format csv > devices.csv",
               devices_help);
}

} // namespace dtfleet
