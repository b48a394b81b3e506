#include "fleet/store/chart.h"

#include "decode/wire.h"
#include "fleet/store/columns.h"
#include "fleet/store/number.h"

#include <algorithm>

namespace dtfleet {
namespace {

using dt::decode::wire::selftest_command;

// How far back a value is looked for that holds at the begin. The first whole run of each day
// stores all values, so it stands there unless the device was out of reach.
constexpr Microseconds longest_hold = 2 * microseconds_a_day;

// What a command has brought, and when.
struct Part : CommandState, ChartSource::Extent {
    Microseconds begin() const {
        const Microseconds runs = first_run.value_or(INT64_MAX);
        return first_hour ? std::min(runs, *first_hour * microseconds_an_hour) : runs;
    }
    Microseconds end() const {
        if (last_run) return *last_run + 1;
        return last_hour ? (*last_hour + 1) * microseconds_an_hour : 0;
    }
};

class Chart {
public:
    Chart(ChartSource &source, const ChartQuery &query) : source_(source), query_(query) {}

    std::vector<Point> read() {
        const std::optional<Series> series = source_.series();
        if (!series || !is_number(series->type) || !find_parts()) return {};
        if (!read_parts(*series, false)) read_parts(*series, true);
        std::vector<Point> points = columns_->points();
        if (edge_ && (points.empty() || points.front().time > query_.from))
            points.insert(points.begin(), {query_.from, 0, *edge_, *edge_, *edge_});
        return points;
    }

private:
    // The columns are for what there is. False when that is nothing.
    bool find_parts() {
        Microseconds begin = INT64_MAX, end = 0;
        for (CommandState &one : source_.states()) {
            if (one.command == selftest_command) continue;
            const ChartSource::Extent extent = source_.extent(one.command);
            const Part &part = parts_.emplace_back(Part{std::move(one), extent});
            begin = std::min(begin, part.begin());
            end = std::max(end, part.end());
        }
        query_.from = std::max(query_.from, begin);
        query_.to = std::min(query_.to, end);
        return query_.from < query_.to;
    }

    // False when the values are too many: their hours' sums have to do.
    bool read_parts(const Series &series, bool by_hours) {
        columns_.emplace(query_.from, query_.to, query_.columns, series.type, series.is_signed);
        edge_.reset();
        const bool is_coarse = by_hours || columns_->width() >= microseconds_an_hour;
        return std::all_of(parts_.begin(), parts_.end(),
                           [&](const Part &part) { return read_part(part, is_coarse); });
    }

    // Hours where no more is left or wanted, the values themselves behind them. Days are deleted as
    // a whole, so the hours end where the first day with values begins.
    bool read_part(const Part &part, bool is_coarse) {
        const Microseconds raw =
            is_coarse ? query_.to
                      : std::clamp(part.first_run.value_or(INT64_MAX), query_.from, query_.to);
        const int64_t first_hour = hour_of(query_.from);
        const int64_t end_hour = raw == query_.to ? hour_of(query_.to - 1) + 1 : hour_of(raw);
        if (first_hour < end_hour) read_hours(part, first_hour, end_hour);
        return raw == query_.to || read_runs(part, raw);
    }

    void read_hours(const Part &part, int64_t first, int64_t end) {
        source_.hours(part.command, first, end,
                      [this](int64_t hour, const Sum &sum) { add_hour(hour, sum); });
        const int64_t running = part.state.hour;
        if (running < first || running >= end) return;
        for (const Entry &entry : part.state.entries)
            if (entry.series == query_.series && entry.ordinal == query_.ordinal &&
                entry.sum.n != 0)
                add_hour(running, entry.sum);
    }

    void add_hour(int64_t hour, const Sum &sum) {
        columns_->add(std::max(hour * microseconds_an_hour, query_.from), sum);
    }

    bool read_runs(const Part &part, Microseconds from) {
        std::optional<uint64_t> held = source_.held(part.command, from - longest_hold, from);
        if (from == query_.from && held) edge_ = held;
        return source_.runs(part.command, from, query_.to,
                            [&](const ChartSource::Brought &run) { take(run, held); });
    }

    // A whole run that stored no value has brought the same as before.
    void take(const ChartSource::Brought &run, std::optional<uint64_t> &held) {
        const std::optional<uint64_t> brought = run.is_stored ? run.number : held;
        if (brought && (run.is_stored || run.is_whole))
            columns_->add(run.time, {1, *brought, *brought, *brought});
        if (run.is_stored && !run.is_history) held = brought;
    }

    ChartSource &source_;
    ChartQuery query_;
    std::vector<Part> parts_;
    std::optional<Columns> columns_;
    std::optional<uint64_t> edge_; // what held at the begin
};

} // namespace

std::vector<Point> read_chart(ChartSource &source, const ChartQuery &query) {
    return Chart(source, query).read();
}

} // namespace dtfleet
