#include "fleet/web/metrics.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>

namespace dtfleet {
namespace {

// Adds metrics to a text, each with what it means.
class Metrics {
public:
    void begin(const char *name, const char *type, const char *help) {
        text_ += fmt::format("# HELP dtfleet_{0} {1}\n# TYPE dtfleet_{0} {2}\n", name, help, type);
    }
    template <typename Number> void sample(std::string_view name_and_labels, Number value) {
        text_ += fmt::format("dtfleet_{} {}\n", name_and_labels, value);
    }
    void counter(const char *name, uint64_t value, const char *help) {
        begin(name, "counter", help);
        sample(name, value);
    }
    template <typename Number> void gauge(const char *name, Number value, const char *help) {
        begin(name, "gauge", help);
        sample(name, value);
    }
    void histogram(const char *name, const Histogram &histogram, const char *help);
    std::string take() { return std::move(text_); }

private:
    std::string text_;
};

// Classes of this format hold all that is below them, too.
void Metrics::histogram(const char *name, const Histogram &histogram, const char *help) {
    begin(name, "histogram", help);
    uint64_t count = 0;
    for (size_t i = 0; i < Histogram::bounds.size(); ++i) {
        count += histogram.counts()[i];
        sample(fmt::format("{}_bucket{{le=\"{}\"}}", name, Histogram::bounds[i]), count);
    }
    count += histogram.counts().back();
    sample(fmt::format("{}_bucket{{le=\"+Inf\"}}", name), count);
    sample(fmt::format("{}_sum", name), histogram.sum());
    sample(fmt::format("{}_count", name), count);
}

std::string label(std::string_view value) {
    std::string escaped;
    for (const char c : value) {
        if (c == '\\' || c == '"') escaped += '\\';
        c == '\n' ? escaped += "\\n" : escaped += c;
    }
    return escaped;
}

double seconds_of(Microseconds time) { return static_cast<double>(time) / 1e6; }

void add_engine(Metrics &out, const Statistics &all) {
    out.begin("runs_total", "counter", "Runs that have ended, by how.");
    for (size_t i = 0; i < outcomes; ++i)
        out.sample(fmt::format("runs_total{{outcome=\"{}\"}}", text_of(static_cast<Outcome>(i))),
                   all.runs[i]);
    out.counter("values_total", all.values, "Values received.");
    out.counter("received_bytes_total", all.bytes, "Bytes received from devices.");
    out.counter("commands_total", all.commands, "Commands sent, resends included.");
    out.counter("resends_total", all.resends, "Commands sent again for want of an answer.");
    out.counter("double_runs_total", all.doubles, "Connections that a repeated command caused.");
    out.counter("strangers_total", all.strangers, "Connections that belonged to no run.");
    out.counter("lacking_descriptors_total", all.no_descriptor,
                "Times that no descriptor was left for a device's connection.");
    out.counter("overlaps_total", all.overlaps,
                "Turns left out because the run before was still going on.");
    out.counter("held_back_total", all.held_back,
                "Passes in which runs were due and the store had no room.");
    out.histogram("lateness_seconds", all.lateness, "From a device's turn to its command.");
    out.histogram("connect_seconds", all.to_connect, "From the command to the connection.");
    out.histogram("run_seconds", all.to_end, "From the connection to the end of a whole run.");
}

void add_state(Metrics &out, const Snapshot &snapshot, Time now) {
    out.gauge("inventory_devices", snapshot.devices, "Devices in the inventory.");
    out.gauge("queued_runs", snapshot.queued, "Runs that are due and have no place yet.");
    out.gauge("waiting_runs", snapshot.waiting, "Devices asked that have not connected yet.");
    out.gauge("connected_runs", snapshot.connected, "Devices that are connected.");
    out.gauge("window_runs", snapshot.window, "Runs that may wait at present.");
    out.counter("stored_runs_total", snapshot.stored, "Runs committed to the database.");
    out.counter("dropped_runs_total", snapshot.dropped,
                "Runs lost because they could not be stored.");
    out.gauge("unstored_runs", snapshot.writing, "Runs on their way to the database.");
    out.gauge("clock_held", snapshot.clock_held ? 1 : 0,
              "Whether nothing is deleted because the clock has moved.");
    out.gauge("database_too_large", snapshot.too_large ? 1 : 0,
              "Whether the database outgrows its size, and nothing is left that may be deleted.");
    out.gauge("ready", snapshot.not_ready.empty() ? 1 : 0, "Whether devices are asked.");
    out.gauge("loop_age_seconds", std::chrono::duration<double>(now - snapshot.turned).count(),
              "Time since the loop's last turn.");
}

// One metric of each collector: how it is called, and how it is found.
struct CollectorMetric {
    const char *name;
    const char *help;
    double (*value)(const CollectorState &collector);
};

constexpr CollectorMetric of_each_collector[] = {
    {"collector_leases", "Devices that the collector alone may ask at present.",
     [](const CollectorState &one) { return static_cast<double>(one.held); }},
    {"collector_runs_per_second", "Runs of the collector that end in a second.",
     [](const CollectorState &one) { return one.rate; }},
    {"collector_lag_seconds", "From a device's turn to the collector's command.",
     [](const CollectorState &one) { return seconds_of(one.lag); }},
    {"collector_lease_age_seconds", "Time since the collector's oldest lease was made or renewed.",
     [](const CollectorState &one) { return seconds_of(one.oldest); }},
};

void add_shared(Metrics &out, const SharedState &shared) {
    out.gauge("collectors", shared.collectors.size(), "Collectors at work on the database.");
    for (const CollectorMetric &metric : of_each_collector) {
        out.begin(metric.name, "gauge", metric.help);
        for (const CollectorState &one : shared.collectors)
            out.sample(fmt::format("{}{{collector=\"{}\"}}", metric.name, label(one.name)),
                       metric.value(one));
    }
    out.gauge("leases", shared.held, "Devices that this collector alone may ask at present.");
    out.gauge("lease_age_seconds", std::chrono::duration<double>(shared.oldest).count(),
              "Time since the oldest of these leases was claimed or renewed.");
    out.counter("leases_claimed_total", shared.claimed, "Leases claimed.");
    out.counter("leases_renewed_total", shared.renewed, "Leases made longer.");
    out.counter("leases_lost_total", shared.lost, "Leases that were another's when renewed.");
    out.counter("leases_returned_total", shared.returned, "Leases given back without a run.");
    out.gauge("database_away", shared.away.empty() ? 0 : 1,
              "Whether the database cannot be reached.");
    out.gauge("spool_runs", shared.spool_runs, "Runs on disk that wait for the database.");
    out.gauge("spool_bytes", shared.spool_bytes, "The bytes of these.");
    out.counter("spooled_runs_total", shared.spooled, "Runs that have waited on disk.");
}

// One metric of a device: how it is called, and how it is found.
struct DeviceMetric {
    const char *name;
    const char *help;
    double (*value)(const DeviceState &device, Seconds run_limit, Microseconds now);
};

constexpr DeviceMetric of_each_device[] = {
    {"device_up", "Whether the device's last run was a good one.",
     [](const DeviceState &device, Seconds, Microseconds) {
         return device.last_ok != 0 && device.failures == 0 ? 1.0 : 0.0;
     }},
    {"device_late", "Whether the device's last good run is too long ago.",
     [](const DeviceState &device, Seconds limit, Microseconds now) {
         return is_late(device, limit, now) ? 1.0 : 0.0;
     }},
    {"device_last_good_run_timestamp_seconds", "When the device's last good run was; 0: never.",
     [](const DeviceState &device, Seconds, Microseconds) { return seconds_of(device.last_ok); }},
    {"device_last_run_duration_seconds", "How long the device's last run took.",
     [](const DeviceState &device, Seconds, Microseconds) {
         return seconds_of(device.last_duration);
     }},
    {"device_failures", "Failed runs since the device's last good one.",
     [](const DeviceState &device, Seconds, Microseconds) {
         return static_cast<double>(device.failures);
     }},
};

bool is_told(const DeviceState &device, const std::vector<std::string> &groups) {
    return device.is_listed &&
           std::find_first_of(device.groups.begin(), device.groups.end(), groups.begin(),
                              groups.end()) != device.groups.end();
}

} // namespace

std::string service_metrics(const Snapshot &snapshot, Time now) {
    Metrics out;
    out.begin("build_info", "gauge", "Always 1; its label says which version runs.");
    out.sample("build_info{version=\"" DTFLEET_VERSION "\"}", 1);
    add_engine(out, snapshot.statistics);
    add_state(out, snapshot, now);
    if (snapshot.shared) add_shared(out, *snapshot.shared);
    return out.take();
}

std::string device_metrics(const FleetList &list, const std::vector<std::string> &groups,
                           Seconds run_limit, Microseconds now) {
    Metrics out;
    std::array<size_t, health_names.size()> counts{};
    std::vector<const DeviceState *> told;
    for (const FleetList::Row &row : list.rows()) {
        ++counts[static_cast<size_t>(row.health)];
        if (is_told(row.device, groups)) told.push_back(&row.device);
    }
    out.begin("devices", "gauge", "Devices by their state.");
    for (size_t i = 0; i < counts.size(); ++i)
        out.sample(fmt::format("devices{{state=\"{}\"}}", health_names[i]), counts[i]);
    const size_t room = std::min(told.size(), most_devices_told);
    out.gauge("devices_left_out", told.size() - room,
              "Devices whose groups have metrics, and that are too many to be told of.");
    told.resize(room);
    for (const DeviceMetric &metric : of_each_device) {
        out.begin(metric.name, "gauge", metric.help);
        for (const DeviceState *device : told)
            out.sample(fmt::format("{}{{device=\"{}\"}}", metric.name, label(device->name)),
                       metric.value(*device, run_limit, now));
    }
    return out.take();
}

} // namespace dtfleet
