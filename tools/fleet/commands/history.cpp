// dtfleet history: what one device has brought.
#include "fleet/commands/commands.h"
#include "fleet/commands/fleet.h"
#include "fleet/commands/help.h"
#include "fleet/commands/listing.h"
#include "fleet/commands/moment.h"
#include "fleet/engine/time.h"
#include "host/failure.h"

#include <fmt/format.h>

#include <algorithm>
#include <deque>

namespace dtfleet {
namespace {

struct Options {
    std::string config;
    std::string device;
    std::optional<std::string> collector;
    std::optional<std::string> key; // a number, or what the configuration calls it
    std::optional<uint32_t> section;
    Microseconds from = 0; // 0: not given
    Microseconds to = INT64_MAX;
    size_t limit = 20;
    Form form = Form::automatic;
};

constexpr size_t slice = 1000;

// ---- runs ---------------------------------------------------------------------------------------

// The newest runs within the time, the newest first.
std::vector<RunRow> runs_of(Reader &reader, int64_t device, const Options &options) {
    std::vector<RunRow> found;
    int64_t before = INT64_MAX;
    for (;;) {
        const std::vector<RunRow> rows = reader.runs(device, before, slice);
        for (const RunRow &row : rows) {
            if (row.record.time >= options.to) continue;
            if (row.record.time < options.from || found.size() == options.limit) return found;
            found.push_back(row);
        }
        if (rows.empty()) return found;
        before = rows.back().collection;
    }
}

void put_runs(Reader &reader, int64_t device, const Options &options, dtctl::Output &out) {
    std::vector<RunRow> runs = runs_of(reader, device, options);
    std::reverse(runs.begin(), runs.end());
    Listing listing(chosen(options.form),
                    {{"run", "run"},
                     {"time", "time (UTC)"},
                     {"command", "command", true},
                     {"status", "status"},
                     {"duration", "duration", true},
                     {"messages", "messages", true},
                     {"bytes", "bytes", true},
                     {"address", "from"},
                     {"reason", "reason"}},
                    out);
    for (const RunRow &row : runs) {
        const RunRecord &run = row.record;
        listing.add({text_cell(id_text(run.id)), time_cell(run.time), number_cell(run.command),
                     text_cell(text_of(run.outcome)),
                     seconds_cell(Microseconds{run.to_connect} + run.to_opening + run.to_end),
                     number_cell(run.messages), number_cell(run.bytes), text_cell(run.address),
                     text_cell(run.reason)});
    }
    listing.end();
}

// ---- values -------------------------------------------------------------------------------------

bool matches(const Series &series, const Options &options) {
    return series.collector == *options.collector &&
           (!options.key || is_called(series, *options.key)) &&
           (!options.section || series.section == *options.section);
}

std::vector<Series> series_of(Reader &reader, int64_t device, const Options &options) {
    std::vector<Series> all = reader.series_of(device);
    std::erase_if(all, [&](const Series &series) { return !matches(series, options); });
    if (all.empty())
        throw dtctl::Failure(dtctl::Exit::usage,
                             fmt::format("the device has sent nothing of that kind by '{}'",
                                         dtctl::escape(*options.collector)));
    return all;
}

const Series &series_with(const std::vector<Series> &all, int64_t id) {
    return *std::find_if(all.begin(), all.end(), [id](const Series &one) { return one.id == id; });
}

std::string key_text(const Series &series) {
    const std::string number = std::to_string(series.key);
    return series.name.empty() ? number : number + " " + series.name;
}

Cell key_cell(const Series &series) {
    Cell cell = number_cell(series.key);
    cell.shown = dtctl::escape(key_text(series));
    return cell;
}

Cell shown_value(const Series &series, const StoredValue &value) {
    Cell cell = value_cell(series, value);
    if (value.form == StoredValue::Form::number && !series.unit.empty())
        cell.shown += fmt::format(" {}", dtctl::escape(series.unit));
    return cell;
}

// The last `limit` values within the time, in the order of the history.
void put_values(Reader &reader, int64_t device, const std::vector<Series> &series,
                const Options &options, dtctl::Output &out) {
    ValueQuery query{device, {}, options.from, options.to};
    for (const Series &one : series) query.series.push_back(one.id);
    std::deque<FlatValue> found;
    std::vector<FlatValue> rows;
    Reader::Place place;
    for (bool more = true; more;) {
        more = reader.values(query, place, slice, rows);
        for (FlatValue &row : rows) found.push_back(std::move(row));
        while (found.size() > options.limit) found.pop_front();
    }
    Listing listing(chosen(options.form),
                    {{"time", "time (UTC)"},
                     {"status", "status"},
                     {"section", "section", true},
                     {"key", "key"},
                     {"ordinal", "ordinal", true},
                     {"type", "type"},
                     {"encoding,value", "value"}},
                    out);
    for (const FlatValue &row : found) {
        const Series &one = series_with(series, row.series);
        listing.add({time_cell(row.time), text_cell(text_of(row.outcome)), number_cell(one.section),
                     key_cell(one), number_cell(row.ordinal), type_cell(one.type, row.value.form),
                     shown_value(one, row.value)});
    }
    listing.end();
}

// ---- logs ---------------------------------------------------------------------------------------

// The newest lines within the time, the newest first. A clock that was set may have brought later
// ones an earlier time, so that only the beginning of the log ends the search.
std::vector<LogLine> lines_of(Reader &reader, int64_t device, const Series &series,
                              const Options &options) {
    std::vector<LogLine> found;
    int64_t before = INT64_MAX;
    for (;;) {
        std::vector<LogLine> lines = reader.log(device, series.id, before, slice);
        if (lines.empty()) return found;
        before = lines.front().seq;
        for (auto line = lines.rbegin(); line != lines.rend(); ++line) {
            if (line->time < options.from || line->time >= options.to) continue;
            found.push_back(std::move(*line));
            if (found.size() == options.limit) return found;
        }
    }
}

void put_log(Reader &reader, int64_t device, const Series &series, const Options &options,
             dtctl::Output &out) {
    std::vector<LogLine> lines = lines_of(reader, device, series, options);
    std::reverse(lines.begin(), lines.end());
    Listing listing(
        chosen(options.form),
        {{"time", "arrived (UTC)"}, {"gap_before", "gap"}, {"stamp", "stamp"}, {"text", "text"}},
        out);
    for (const LogLine &line : lines)
        listing.add({time_cell(line.time), flag_cell(line.gap_before, "gap", ""),
                     text_cell(line.stamp), text_cell(line.text)});
    listing.end();
}

void put_series(Reader &reader, int64_t device, const Options &options, dtctl::Output &out) {
    std::vector<Series> all = series_of(reader, device, options);
    const bool is_one_log = all.size() == 1 && all.front().is_log;
    if (is_one_log) return put_log(reader, device, all.front(), options, out);
    put_values(reader, device, all, options, out);
}

void history(const Options &options) {
    const Fleet fleet(options.config);
    const int64_t device = fleet.device(options.device).id;
    dtctl::Output out(stdout);
    if (options.collector)
        put_series(*fleet.reader, device, options, out);
    else
        put_runs(*fleet.reader, device, options, out);
    out.flush();
}

constexpr const char *text =
    R"(Without a COLLECTOR these are the device's runs, with one the values that it sent, with a KEY
those under that key: as they are stored, so with keep = "changes" those that changed. A log
that is named by COLLECTOR and KEY comes as lines; gap says that lines before are missing.

TIME is 2026-01-31, 2026-01-31T08:15 or 2026-01-31T08:15:00, in UTC, or a length of time before
now such as 2h. JSON and CSV have times in microseconds since 1970.
)";

} // namespace

void add_history(dtctl::Command &program) {
    dtctl::Command command =
        program.command("history", "Show a device's runs, or the values of a collector");
    Options &options = command.runs(history);
    command.argument("DEVICE", options.device, "Its name");
    command.option("COLLECTOR", "", options.collector, "The name of a collector");
    command.option("KEY", "", options.key, "A key of that collector, its number or its name");
    command.number("--section", "N", options.section, 0, UINT32_MAX,
                   "Of this section of the collector alone");
    add_moment(command, "--from", options.from, Way::back, "Not what is older");
    add_moment(command, "--to", options.to, Way::back, "Not what is as new or newer");
    command.number("--limit", "N", options.limit, 1, 1'000'000, "How many at most, the newest")
        .shows_default();
    add_format(command, options.form, {Form::table, Form::json, Form::csv});
    add_config(command, options.config);
    add_footer(command,
               "dtfleet history pump7\ndtfleet history pump7 pump 1 --from 2h\n"
               "dtfleet history pump7 pump --from 2026-01-31 --limit 100000 --format csv",
               text);
}

} // namespace dtfleet
