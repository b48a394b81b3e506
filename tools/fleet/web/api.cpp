#include "fleet/web/api.h"

#include "fleet/web/json.h"
#include "fleet/web/metrics.h"
#include "host/counted.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <map>
#include <tuple>
#include <utility>

namespace dtfleet {
namespace {

constexpr const char *json_type = "application/json";
constexpr size_t rows_a_page = 2000;   // of the fleet
constexpr size_t values_a_page = 500;  // of a device
constexpr size_t lines_a_page = 200;   // of its runs, logs and faults
constexpr size_t charts_at_once = 30;  // small ones
constexpr int64_t most_columns = 2000; // of a chart
constexpr Time charts_time = std::chrono::milliseconds(500);
constexpr Time list_pause = std::chrono::seconds(1);    // between two looks at all devices
constexpr Time list_patience = std::chrono::seconds(5); // a device may get late without any run
constexpr uint32_t selftest_command = 3;

// The answer to what cannot be answered.
struct Refused {
    unsigned status;
    std::string reason;
};

Answer json_answer(const Json &json, std::string tag = "") {
    return {200, text_of(json), json_type, std::move(tag)};
}

Answer error(unsigned status, const std::string &reason) {
    return {status, text_of(Json{{"error", reason}}), json_type};
}

std::optional<int64_t> number_in(std::string_view text) {
    int64_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    const bool is_number = error == std::errc() && end == text.data() + text.size();
    return is_number ? std::optional(number) : std::nullopt;
}

} // namespace

struct Api::Call {
    const Request &request;
    const WebRules &rules;
    const Snapshot &snapshot;
    Microseconds now;

    int64_t number(const char *name, int64_t otherwise, int64_t least = 0,
                   int64_t most = INT64_MAX) const;
    std::string text(const char *name) const;
    DeviceState device(Reader &reader) const;
};

int64_t Api::Call::number(const char *name, int64_t otherwise, int64_t least, int64_t most) const {
    const auto text = request.parameter(name);
    if (!text) return otherwise;
    const auto number = number_in(*text);
    if (!number || *number < least || *number > most)
        throw Refused{400, fmt::format("{} must be a number from {} to {}", name, least, most)};
    return *number;
}

std::string Api::Call::text(const char *name) const {
    if (auto text = request.parameter(name)) return *text;
    throw Refused{400, fmt::format("{} is missing", name)};
}

DeviceState Api::Call::device(Reader &reader) const {
    if (auto device = reader.device(text("device"))) return *device;
    throw Refused{404, "there is no such device"};
}

Api::Route Api::route_of(const std::string &path) {
    static constexpr std::pair<std::string_view, Route> routes[] = {
        {"/metrics", &Api::metrics},   {"/api/fleet", &Api::fleet},   {"/api/device", &Api::device},
        {"/api/values", &Api::values}, {"/api/points", &Api::points}, {"/api/runs", &Api::runs},
        {"/api/logs", &Api::logs},     {"/api/log", &Api::log},       {"/api/faults", &Api::faults},
    };
    for (const auto &[known, route] : routes)
        if (known == path) return route;
    throw Refused{404, "there is nothing here"};
}

Answer Api::answer(const Request &request, const WebRules &rules, const Snapshot &snapshot) {
    try {
        const Route route = route_of(request.path);
        return (this->*route)({request, rules, snapshot, wall_microseconds()});
    } catch (const Refused &refused) {
        return error(refused.status, refused.reason);
    } catch (const Unavailable &reason) {
        return error(503, reason.what());
    } catch (const std::exception &reason) {
        reader_.reset(); // the next request opens the database again
        const std::string &known = snapshot.not_ready;
        return known.empty() ? error(500, reason.what()) : error(503, known);
    }
}

Reader &Api::reader() {
    if (!reader_) reader_ = open_();
    return *reader_;
}

template <typename Make> Answer Api::unless_known(const Call &call, Make make) {
    std::string tag = fmt::format("{}-{}", edition_, reader().version());
    const DeviceState device = call.device(reader());
    if (is_known(call.request, tag)) return {304, "", json_type, std::move(tag)};
    return json_answer(make(device.id), std::move(tag));
}

// ---- the fleet ----------------------------------------------------------------------------------

// One look at all devices serves all pages that are open.
void Api::renew_list(const Call &call) {
    const Time time = now();
    if (list_time_ != Time() && time - list_time_ < list_pause) return;
    const int64_t version = reader().version();
    if (version == list_version_ && time - list_time_ < list_patience) return;
    list_.take(reader().devices(), call.rules.run_limit, call.now);
    list_version_ = version;
    list_time_ = time;
}

// Without the database, the service's own metrics are still told.
Answer Api::metrics(const Call &call) {
    std::string text = service_metrics(call.snapshot, now());
    try {
        renew_list(call);
        text += device_metrics(list_, call.rules.metric_groups, call.rules.run_limit, call.now);
    } catch (const std::exception &) {
        reader_.reset(); // a broken database may have been replaced by the next time
        text += "# The database cannot be read now: nothing of devices.\n";
    }
    return {200, std::move(text), metrics_type};
}

namespace {

// Beside why nobody is asked.
std::string notice_of(const Snapshot &snapshot) {
    if (!snapshot.shared || snapshot.shared->away.empty()) return "";
    return fmt::format("The database is away, and {} wait on this collector's disk: {}",
                       dtctl::counted(snapshot.shared->spool_runs, "run"), snapshot.shared->away);
}

Json json_of_share(const Snapshot &snapshot) {
    if (!snapshot.shared) return nullptr;
    Json collectors = Json::array();
    for (const CollectorState &one : snapshot.shared->collectors)
        collectors.push_back({{"name", one.name},
                              {"held", one.held},
                              {"rate", one.rate},
                              {"lag", one.lag},
                              {"oldest", one.oldest}});
    return {{"collectors", collectors}, {"held", snapshot.shared->held}};
}

} // namespace

// While the database is away, the fleet is shown as it was.
Answer Api::fleet(const Call &call) {
    try {
        renew_list(call);
    } catch (const Unavailable &) {
        if (list_time_ == Time()) throw;
    }
    const std::string notice = notice_of(call.snapshot);
    const Json shared = json_of_share(call.snapshot);
    const std::string edition = fmt::format("{}-{}", edition_, list_.edition());
    const std::string tag =
        fmt::format("{}-{}-{:x}", edition, list_.last_change(),
                    std::hash<std::string>()(call.snapshot.not_ready + notice + text_of(shared)));
    if (is_known(call.request, tag)) return {304, "", json_type, tag};
    const bool is_same = call.request.parameter("edition") == edition;
    const auto after = static_cast<uint64_t>(is_same ? call.number("after", 0) : 0);
    const auto rows = list_.after(after, rows_a_page);
    Json json{{"edition", edition},
              {"change", rows.empty() ? after : rows.back()->change},
              {"more", rows.size() == rows_a_page},
              {"devices", list_.rows().size()},
              {"now", call.now},
              {"notReady", call.snapshot.not_ready},
              {"notice", notice},
              {"shared", shared},
              {"rows", Json::array()}};
    for (const FleetList::Row *row : rows)
        json["rows"].push_back(json_of_row(row->device, row->health));
    return json_answer(json, tag);
}

// ---- a device -----------------------------------------------------------------------------------

Answer Api::device(const Call &call) {
    const DeviceState device = call.device(reader());
    Json json = json_of_device(device, health_of(device, call.rules.run_limit, call.now));
    std::string tag = fmt::format("{}-{:x}", edition_, std::hash<std::string>()(text_of(json)));
    if (is_known(call.request, tag)) return {304, "", json_type, std::move(tag)};
    json["now"] = call.now;
    return json_answer(json, std::move(tag));
}

namespace {

using SeriesById = std::map<int64_t, Series>;

SeriesById series_by_id(Reader &reader, int64_t device) {
    SeriesById all;
    for (Series &one : reader.series_of(device)) all.emplace(one.id, std::move(one));
    return all;
}

struct Named {
    LatestValue value;
    const Series *series;
};

auto place_of(const Named &one) {
    return std::tuple(std::string_view(one.series->collector), one.series->section, one.series->key,
                      one.series->type, one.value.ordinal);
}

std::vector<Named> named_values(std::vector<LatestValue> values, const SeriesById &series) {
    std::vector<Named> named;
    for (LatestValue &value : values)
        if (const auto found = series.find(value.series); found != series.end())
            named.push_back({std::move(value), &found->second});
    std::sort(named.begin(), named.end(),
              [](const Named &a, const Named &b) { return place_of(a) < place_of(b); });
    return named;
}

// "12.0,13.4": a series and an ordinal each.
std::vector<std::pair<int64_t, uint32_t>> charts_in(std::string_view text) {
    std::vector<std::pair<int64_t, uint32_t>> charts;
    while (!text.empty() && charts.size() <= charts_at_once) {
        const std::string_view one = text.substr(0, text.find(','));
        text.remove_prefix(std::min(text.size(), one.size() + 1));
        const size_t dot = std::min(one.find('.'), one.size());
        const auto series = number_in(one.substr(0, dot));
        const auto ordinal = number_in(one.substr(std::min(dot + 1, one.size())));
        if (!series || !ordinal || *ordinal < 0 || *ordinal > UINT32_MAX)
            throw Refused{400, "series must be like 12.0,13.0"};
        charts.emplace_back(*series, static_cast<uint32_t>(*ordinal));
    }
    if (charts.size() > charts_at_once)
        throw Refused{400, fmt::format("at most {} series at once", charts_at_once)};
    return charts;
}

template <typename Rows, typename ToJson>
Json page_of(const char *name, const Rows &rows, bool more, ToJson to_json) {
    Json json{{"more", more}, {name, Json::array()}};
    for (const auto &row : rows) json[name].push_back(to_json(row));
    return json;
}

} // namespace

Answer Api::values(const Call &call) {
    return unless_known(call, [&](int64_t device) {
        const bool selftest = call.number("selftest", 0, 0, 1) == 1;
        const SeriesById series = series_by_id(reader(), device);
        const std::vector<Named> all =
            named_values(reader().latest(device, selftest ? selftest_command : 0), series);
        const auto first = static_cast<size_t>(call.number("from", 0));
        const size_t begin = std::min(first, all.size());
        const size_t count = std::min(values_a_page, all.size() - begin);
        Json json =
            page_of("values", std::span(all).subspan(begin, count), begin + count < all.size(),
                    [](const Named &one) { return json_of_value(one.value, *one.series); });
        json["all"] = all.size();
        return json;
    });
}

// What there is no time for any more the page asks for again.
Answer Api::points(const Call &call) {
    return unless_known(call, [&](int64_t device) {
        const SeriesById series = series_by_id(reader(), device);
        const Microseconds to = call.number("to", call.now);
        const Microseconds from = call.number("from", 0, 0, to);
        const auto columns = static_cast<size_t>(call.number("columns", 200, 1, most_columns));
        const Time late = now() + charts_time;
        Json json{{"charts", Json::array()}};
        for (const auto &[id, ordinal] : charts_in(call.text("series"))) {
            const auto found = series.find(id);
            if (found == series.end()) throw Refused{404, "there is no such series"};
            if (!json["charts"].empty() && now() > late) break;
            const auto points = reader().points(device, id, ordinal, from, to, columns);
            json["charts"].push_back(json_of_points(points, found->second));
            json["charts"].back()["ordinal"] = ordinal;
        }
        return json;
    });
}

Answer Api::runs(const Call &call) {
    return unless_known(call, [&](int64_t device) {
        const auto rows = reader().runs(device, call.number("before", INT64_MAX), lines_a_page);
        return page_of("runs", rows, rows.size() == lines_a_page, json_of_run);
    });
}

// Which logs there are.
Answer Api::logs(const Call &call) {
    return unless_known(call, [&](int64_t device) {
        std::vector<Series> all = reader().series_of(device);
        std::erase_if(all, [](const Series &series) { return !series.is_log; });
        return page_of("logs", all, false, json_of_series);
    });
}

Answer Api::log(const Call &call) {
    return unless_known(call, [&](int64_t device) {
        const auto lines = reader().log(device, call.number("series", 0),
                                        call.number("before", INT64_MAX), lines_a_page);
        return page_of("lines", lines, lines.size() == lines_a_page, json_of_line);
    });
}

Answer Api::faults(const Call &call) {
    return unless_known(call, [&](int64_t device) {
        const auto rows = reader().faults(device, call.number("before", INT64_MAX), lines_a_page);
        return page_of("faults", rows, rows.size() == lines_a_page, json_of_fault);
    });
}

} // namespace dtfleet
