// What it costs to read what dtfleet has stored: a day of one series, from a database that holds
// changes and from one that holds all values; and the longest of all other calls.
//
// usage: fleet_read [MILLIONS OF VALUES]
#include "fleet.h"
#include "fleet_runs.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>

namespace {

using namespace dtfleet;
using namespace fleet;
using Clock = std::chrono::steady_clock;

constexpr uint64_t runs_a_day = 24 * 60;

template <typename Work> double milliseconds(Work work) {
    const auto begin = Clock::now();
    work();
    return std::chrono::duration<double, std::milli>(Clock::now() - begin).count();
}

// Of many, once the pages are at hand and nobody else has the processor.
template <typename Work> double best_milliseconds(Work work) {
    double best = milliseconds(work);
    for (int i = 0; i < 20; ++i) best = std::min(best, milliseconds(work));
    return best;
}

void fill(const std::string &file, const Load &load) {
    const auto store = open_store(file, {});
    for (uint64_t done = 0; done < load.runs;) store->write(make_runs(load, done));
}

// Of the slices of a whole history, too.
double longest_slice(Reader &reader, const ValueQuery &query) {
    double longest = 0;
    Reader::Place place;
    std::vector<FlatValue> rows;
    for (bool more = true; more;)
        longest = std::max(
            longest, milliseconds([&] { more = reader.values(query, place, 100'000, rows); }));
    return longest;
}

double longest_call(Reader &reader) {
    const DeviceState device = reader.devices().front();
    const Series series = reader.series().back();
    std::vector<double> times = {
        milliseconds([&] { reader.series_of(device.id); }),
        milliseconds([&] { reader.latest(device.id, 0); }),
        milliseconds([&] { reader.runs(device.id, INT64_MAX, runs_a_day); }),
        milliseconds([&] { reader.points(device.id, series.id, 0, 0, INT64_MAX, 2000); }),
        milliseconds([&] { reader.points(device.id, series.id, 0, 0, INT64_MAX, 10); }),
        milliseconds([&] { reader.log(device.id, series.id, INT64_MAX, 1000); }),
        longest_slice(reader, {}),
        longest_slice(reader, {device.id, {series.id}}),
        longest_slice(reader, {{}, {series.id}, device.last_ok, INT64_MAX}),
    };
    return *std::max_element(times.begin(), times.end());
}

bool measure(const std::string &name, const Load &load, const std::string &file, double target) {
    fill(file, load);
    const auto reader = open_reader(file);
    const DeviceState device = reader->devices().front();
    const Series series = reader->series().back();
    const auto day = [&] { return reader->points(device.id, series.id, 0, 0, INT64_MAX, 1000); };
    const bool is_fast = fleet::show((name + ": milliseconds for a day of one series").c_str(),
                                     best_milliseconds(day), Bound::at_most, target);
    const bool is_short = fleet::show((name + ": milliseconds of the longest call").c_str(),
                                      longest_call(*reader), Bound::at_most, 1000);
    return is_fast && is_short;
}

} // namespace

int main(int argc, char **argv) {
    const double millions = argc > 1 ? std::atof(argv[1]) : 1;
    Load load;
    load.devices = static_cast<uint64_t>(millions * 1e6 / values_a_run / runs_a_day);
    load.runs = load.devices * runs_a_day;
    const char *parent = std::getenv("TMPDIR");
    std::string directory = std::string(parent ? parent : "/tmp") + "/fleet_read.XXXXXX";
    if (load.runs == 0 || !::mkdtemp(directory.data())) {
        std::fprintf(stderr, "usage: fleet_read [MILLIONS OF VALUES]\n");
        return 2;
    }
    bool is_met = measure("read, changes (one value in ten)", load, directory + "/changes.db", 5);
    load.keeps_all = true;
    is_met = measure("read, all", load, directory + "/all.db", 50) && is_met;
    std::filesystem::remove_all(directory);
    return is_met ? 0 : 1;
}
