// dtfleet compare: what is under one key, device by device.
#include "fleet/commands/commands.h"
#include "fleet/commands/fleet.h"
#include "fleet/commands/help.h"
#include "fleet/commands/listing.h"
#include "host/failure.h"
#include "host/progress.h"

#include <fmt/format.h>

#include <unistd.h>

#include <algorithm>
#include <map>
#include <tuple>

namespace dtfleet {
namespace {

struct Options {
    std::string config;
    std::string key; // a number, or what the configuration calls it
    std::optional<std::string> collector;
    std::optional<uint32_t> section;
    uint32_t command = 0;
    std::vector<std::string> groups;
    Form form = Form::automatic;
};

constexpr size_t most_names = 8; // of devices, in a line of the table

struct Found {
    std::string device;
    LatestValue latest;
};

// A value, and who has it.
struct Camp {
    const Series *series = nullptr;
    uint32_t ordinal = 0;
    StoredValue value;
    std::vector<const Found *> members;
};

bool is_asked_for(const Series &series, const Options &options) {
    return is_called(series, options.key) &&
           (!options.collector || series.collector == *options.collector) &&
           (!options.section || series.section == *options.section) && !series.is_log;
}

std::map<int64_t, Series> wanted_series(Reader &reader, const Options &options) {
    std::map<int64_t, Series> wanted;
    for (Series &series : reader.series())
        if (is_asked_for(series, options)) wanted.emplace(series.id, std::move(series));
    if (wanted.empty())
        throw dtctl::Failure(dtctl::Exit::usage, fmt::format("no device has sent a key '{}'",
                                                             dtctl::escape(options.key)));
    return wanted;
}

std::vector<Found> latest_of(const Fleet &fleet, const std::map<int64_t, Series> &wanted,
                             const Options &options) {
    const std::vector<DeviceState> devices = fleet.devices_in(options.groups);
    std::vector<Found> found;
    size_t done = 0;
    dtctl::ProgressLine progress("dtfleet", ::isatty(STDERR_FILENO) != 0, [&] {
        return fmt::format("{} of {} devices", done, devices.size());
    });
    for (const DeviceState &device : devices) {
        for (LatestValue &value : fleet.reader->latest(device.id, options.command))
            if (wanted.count(value.series) != 0) found.push_back({device.name, std::move(value)});
        ++done;
        progress.update();
    }
    return found;
}

// By series and ordinal, and within these the value that most devices have first.
std::vector<Camp> camps_of(const std::vector<Found> &found,
                           const std::map<int64_t, Series> &wanted) {
    using Key = std::tuple<int64_t, uint32_t, StoredValue::Form, uint64_t, std::string>;
    std::map<Key, Camp> camps;
    for (const Found &one : found) {
        const LatestValue &latest = one.latest;
        Camp &camp = camps[{latest.series, latest.ordinal, latest.value.form, latest.value.number,
                            latest.value.bytes}];
        camp.series = &wanted.at(latest.series);
        camp.ordinal = latest.ordinal;
        camp.value = latest.value;
        camp.members.push_back(&one);
    }
    std::vector<Camp> sorted;
    sorted.reserve(camps.size());
    for (auto &[key, camp] : camps) sorted.push_back(std::move(camp));
    std::stable_sort(sorted.begin(), sorted.end(), [](const Camp &a, const Camp &b) {
        return std::tuple(a.series->id, a.ordinal, b.members.size()) <
               std::tuple(b.series->id, b.ordinal, a.members.size());
    });
    return sorted;
}

bool is_first(const std::vector<Camp> &camps, size_t i) {
    return i == 0 || camps[i - 1].series != camps[i].series ||
           camps[i - 1].ordinal != camps[i].ordinal;
}

std::string names_of(const Camp &camp) {
    std::string names;
    for (size_t i = 0; i < std::min(camp.members.size(), most_names); ++i)
        names += (i == 0 ? "" : ", ") + camp.members[i]->device;
    return camp.members.size() > most_names ? names + ", ..." : names;
}

// Key, section and ordinal as far as they are needed to tell one from the other.
std::string title_of(const Camp &camp) {
    const Series &series = *camp.series;
    std::string title = fmt::format("{} {}", dtctl::escape(series.collector), series.key);
    if (!series.name.empty()) title += fmt::format(" {}", dtctl::escape(series.name));
    if (series.section != 0) title += fmt::format(", section {}", series.section);
    if (camp.ordinal != 0) title += fmt::format(", no. {}", camp.ordinal + 1);
    return title;
}

void put_table(const std::vector<Camp> &camps, dtctl::Output &out) {
    Listing listing(Form::table, {{"", "key"}, {"", "value"}, {"", "devices", true}, {"", ""}},
                    out);
    for (size_t i = 0; i < camps.size(); ++i) {
        Cell value = value_cell(*camps[i].series, camps[i].value);
        if (!camps[i].series->unit.empty())
            value.shown += fmt::format(" {}", dtctl::escape(camps[i].series->unit));
        listing.add({{is_first(camps, i) ? title_of(camps[i]) : ""},
                     value,
                     number_cell(camps[i].members.size()),
                     {dtctl::escape(names_of(camps[i]))}});
    }
    listing.end();
}

void put_rows(const std::vector<Camp> &camps, Form form, dtctl::Output &out) {
    Listing listing(form,
                    {{"device", ""},
                     {"collector", ""},
                     {"section", ""},
                     {"key", ""},
                     {"ordinal", ""},
                     {"time", ""},
                     {"devices", ""},
                     {"differs", ""},
                     {"type", ""},
                     {"encoding,value", ""}},
                    out);
    for (size_t i = 0; i < camps.size(); ++i)
        for (const Found *member : camps[i].members) {
            const Series &series = *camps[i].series;
            listing.add(
                {text_cell(member->device), text_cell(series.collector),
                 number_cell(series.section), number_cell(series.key),
                 number_cell(camps[i].ordinal), time_cell(member->latest.time),
                 number_cell(camps[i].members.size()), flag_cell(!is_first(camps, i), "", ""),
                 type_cell(series.type, camps[i].value.form), value_cell(series, camps[i].value)});
        }
}

void compare(const Options &options) {
    const Fleet fleet(options.config);
    const std::map<int64_t, Series> wanted = wanted_series(*fleet.reader, options);
    const std::vector<Found> found = latest_of(fleet, wanted, options);
    const std::vector<Camp> camps = camps_of(found, wanted);
    dtctl::Output out(stdout);
    if (chosen(options.form) == Form::table)
        put_table(camps, out);
    else
        put_rows(camps, chosen(options.form), out);
    out.flush();
}

constexpr const char *text =
    R"(KEY is a number, or the name that the configuration gives to a key. The values are the last ones
that each device has sent, and the one that most devices have comes first. JSON and CSV have a
row for each device; differs says that it has another value than most, and devices how many
have the same.
)";

} // namespace

void add_compare(dtctl::Command &program) {
    dtctl::Command command =
        program.command("compare", "Show which devices have another value under a key");
    Options &options = command.runs(compare);
    command.argument("KEY", options.key, "Its number or its name");
    command.option("--collector", "NAME", options.collector, "Of this collector alone");
    command.number("--section", "N", options.section, 0, UINT32_MAX, "Of this section alone");
    command
        .number("--command", "N", options.command, 0, 3, "What this command brought; 3: self-tests")
        .shows_default();
    command.option("--group", "NAME", options.groups,
                   "Only devices of this group; may be repeated");
    add_format(command, options.form, {Form::table, Form::json, Form::csv});
    add_config(command, options.config);
    add_footer(command,
               "dtfleet compare speed\ndtfleet compare 17 --collector version --group 'hall 2'",
               text);
}

} // namespace dtfleet
