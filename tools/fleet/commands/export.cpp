// dtfleet export: the history for other programs.
#include "fleet/commands/commands.h"
#include "fleet/commands/fleet.h"
#include "fleet/commands/help.h"
#include "fleet/commands/influx.h"
#include "fleet/commands/listing.h"
#include "fleet/commands/moment.h"
#include "host/progress.h"

#include <fmt/format.h>

#include <unistd.h>

#include <csignal>
#include <map>
#include <set>

namespace dtfleet {
namespace {

struct Options {
    std::string config;
    std::vector<std::string> devices;
    std::vector<std::string> groups;
    Microseconds from = 0;
    Microseconds to = INT64_MAX;
    Form form = Form::automatic;
    dtctl::Cells cells = dtctl::Cells::guarded;
    std::string output;
    bool follow = false;
};

constexpr size_t slice = 5000; // rows
constexpr timespec look_again{0, 250'000'000};

// The signals that end it wait until a row is whole.
class Ending {
public:
    Ending() {
        sigemptyset(&set_);
        for (const int signal : {SIGINT, SIGTERM}) sigaddset(&set_, signal);
        (void)::sigprocmask(SIG_BLOCK, &set_, nullptr);
    }

    bool has_come(const timespec &within) const {
        return ::sigtimedwait(&set_, nullptr, &within) > 0;
    }

private:
    sigset_t set_{};
};

class Exporter {
public:
    Exporter(const Options &options, std::FILE *out)
        : options_(options), fleet_(options.config), out_(out),
          listing_(options.form == Form::influx ? Form::table : chosen_form(options), columns(),
                   out_),
          progress_("dtfleet", ::isatty(STDERR_FILENO) != 0 && ::isatty(STDOUT_FILENO) == 0,
                    [this] { return fmt::format("{} values", rows_); }) {
        for (const std::string &name : options.devices) chosen_.insert(fleet_.device(name).id);
        query_.from = options.from;
        query_.to = options.to;
        if (chosen_.size() == 1 && options.groups.empty()) query_.device = *chosen_.begin();
        learn_names();
    }

    void run() {
        const Ending ending;
        constexpr timespec at_once{};
        int64_t version = fleet_.reader->version();
        for (;;) {
            const bool more = put_slice();
            if (ending.has_come(at_once)) return;
            if (more) continue;
            if (!options_.follow) return;
            for (const int64_t seen = version; seen == version; version = fleet_.reader->version())
                if (ending.has_come(look_again)) return;
        }
    }

private:
    static Form chosen_form(const Options &options) {
        return options.form == Form::automatic ? Form::json : options.form;
    }

    static std::vector<Column> columns() {
        return {{"run", ""},     {"device", ""},    {"time", ""},          {"status", ""},
                {"command", ""}, {"collector", ""}, {"section", ""},       {"key", ""},
                {"ordinal", ""}, {"type", ""},      {"encoding,value", ""}};
    }

    void learn_names() {
        for (DeviceState &device : fleet_.reader->devices())
            devices_[device.id] = std::move(device);
        for (Series &series : fleet_.reader->series()) {
            series.is_signed = series.is_signed && options_.form == Form::influx;
            series_[series.id] = std::move(series);
        }
        for (const DeviceState &device : fleet_.devices_in(options_.groups))
            if (!options_.groups.empty()) chosen_.insert(device.id);
    }

    // What came after the names were learned: a new device, or a key that none had sent before.
    bool knows(const FlatValue &row) const {
        return devices_.count(row.device) != 0 && series_.count(row.series) != 0;
    }

    bool is_wanted(const FlatValue &row) const {
        const bool all = options_.devices.empty() && options_.groups.empty();
        return (all || chosen_.count(row.device) != 0) && knows(row);
    }

    // False when there is nothing behind it.
    bool put_slice() {
        std::vector<FlatValue> rows;
        const bool more = fleet_.reader->values(query_, place_, slice, rows);
        for (const FlatValue &row : rows) {
            if (!knows(row)) learn_names();
            if (is_wanted(row)) put(row);
        }
        out_.flush();
        if (!rows.empty()) progress_.update();
        return more;
    }

    void put(const FlatValue &row) {
        const Series &series = series_.at(row.series);
        const std::string &device = devices_.at(row.device).name;
        ++rows_;
        if (options_.form == Form::influx) return out_.put(influx_line(row, device, series));
        const std::string run = id_text(row.run);
        Cell time = time_cell(row.time);
        listing_.add({{run, run, run},
                      text_cell(device, options_.cells),
                      time,
                      text_cell(text_of(row.outcome)),
                      number_cell(row.command),
                      text_cell(series.collector, options_.cells),
                      number_cell(series.section),
                      number_cell(series.key),
                      number_cell(row.ordinal),
                      type_cell(series.type, row.value.form),
                      value_cell(series, row.value, options_.cells)});
    }

    const Options &options_;
    Fleet fleet_;
    dtctl::Output out_;
    Listing listing_;
    dtctl::ProgressLine progress_;
    std::set<int64_t> chosen_; // devices, by --device and --group
    std::map<int64_t, DeviceState> devices_;
    std::map<int64_t, Series> series_;
    ValueQuery query_;
    Reader::Place place_;
    uint64_t rows_ = 0;
};

void run_export(const Options &options) {
    const dtctl::Stream out = dtctl::open_output(options.output);
    Exporter(options, out.get()).run();
}

constexpr const char *text =
    R"(A row is a value as it is stored: with keep = "changes" the first good run of a day has all
values, other runs have those that changed, and a key that went missing has the type "gone". Logs
are no part of it. Rows come in the order in which they were stored or, with --from, --to or one
device, device after device in the order of time.

run is unique for each run; time is the run's, in microseconds since 1970; ordinal counts what
came under the same collector, section and key.

  json    one object a line; "value" of an int (number) and of a long (decimal text, so that no
          reader rounds it), without a sign, as they travel; "text" of a string in UTF-8, "hex"
          of any other string and of a buffer
  csv     a heading and one record a value; encoding is decimal, text or hex. A text that a
          spreadsheet would execute gets a ' in front, and so does one that begins with a ';
          --csv-raw leaves them alone
  influx  InfluxDB's line protocol, for databases of measurements. It loses something: they keep
          53 bits of a number, texts are escaped, and keys that are gone are left out. Numbers of
          a key that the configuration calls signed have their sign

--follow goes on with new runs as they are stored, until SIGINT or SIGTERM. TIME is
2026-01-31, 2026-01-31T08:15 or 2026-01-31T08:15:00, in UTC, or a length of time before now
such as 2h.
)";

} // namespace

void add_export(dtctl::Command &program) {
    dtctl::Command command = program.command("export", "Print values for other programs");
    Options &options = command.runs(run_export);
    command.option("--device", "DEVICE", options.devices, "Of this device alone; may be repeated");
    command.option("--group", "NAME", options.groups,
                   "Of the devices of this group; may be repeated");
    add_moment(command, "--from", options.from, Way::back, "Not what is older");
    add_moment(command, "--to", options.to, Way::back, "Not what is as new or newer");
    command.flag("--follow", options.follow, "Go on with what is stored from now on");
    add_format(command, options.form, {Form::json, Form::csv, Form::influx});
    command.flag(
        "--csv-raw", [&options] { options.cells = dtctl::Cells::raw; },
        "With csv: leave cells that a spreadsheet would execute as they are");
    command.file("--output", options.output, "The file to write, instead of standard output");
    add_config(command, options.config);
    add_footer(command,
               "dtfleet export --from 2026-01-31 --to 2026-02-01 > day.jsonl\n"
               "dtfleet export --device pump7 --format csv --output pump7.csv\n"
               "dtfleet export --follow --format influx",
               text);
}

} // namespace dtfleet
