// The store's write side, held against a model that knows no packing, no cache and no SQL.
#include "../engine.h"
#include "../samples.h"
#include "fleet/store/number.h"
#include "host/failure.h"

#include <fmt/format.h>
#include <gmock/gmock.h>

#include <map>
#include <random>
#include <set>

namespace dtfleet {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// ---- values -------------------------------------------------------------------------------------

struct Hour {
    uint64_t n = 0;
    int64_t min = 0, max = 0, last = 0;
};

struct Model {
    struct Source {
        std::map<std::string, std::string> last; // by series and ordinal
        int64_t full_day = -1;
    };
    std::map<std::string, Source> sources; // by device and command
    std::multiset<std::string> rows;       // that value_flat has
    std::map<std::string, Hour> hours;
    std::set<RunId> known;

    // Key 1 has a sign, the others do not.
    void sum(const std::string &place, const Sample &sample) {
        Hour &h = hours[place];
        const auto pattern = static_cast<int64_t>(sample.number);
        const auto less = [&](int64_t a, int64_t b) {
            return is_less(static_cast<uint64_t>(a), static_cast<uint64_t>(b), sample.kind,
                           sample.key == 1);
        };
        h.min = h.n == 0 ? pattern : std::min(h.min, pattern, less);
        h.max = h.n == 0 ? pattern : std::max(h.max, pattern, less);
        h.last = pattern;
        ++h.n;
    }

    void take(const RunRecord &run) {
        if (!known.insert(run.id).second) return;
        const std::string source = fmt::format("{}|{}", run.device, run.command);
        Source &s = sources[source];
        const bool whole = is_whole(run.outcome);
        const bool full = whole && s.full_day != run.time / day;
        if (full) s.full_day = run.time / day;
        const auto row = [&](const std::string &place, const char *type, const std::string &value) {
            rows.insert(fmt::format("{}|{}|{}|{}|{}", id_text(run.id), source, place, type, value));
        };
        std::set<std::string> seen; // series, and places
        std::map<std::string, uint32_t> arrivals;
        for (const Sample &sample : run.samples.list) {
            const std::string key =
                fmt::format("{}|{}|{}", name_in_view(run.samples.collectors[sample.collector]),
                            sample.section, sample.key);
            const bool number = is_number(sample.kind);
            const char *type = types[static_cast<size_t>(sample.kind)];
            const std::string place = fmt::format("{}|{}", key, arrivals[key]++);
            const std::string series = place + "|" + type;
            const std::string value = number ? std::to_string(static_cast<int64_t>(sample.number))
                                             : std::string(run.samples.bytes_of(sample));
            seen.insert({series, place});
            if (number) sum(fmt::format("{}|{}|{}", source, run.time / hour, series), sample);
            const auto before = s.last.find(series);
            if (full || run.keeps_all || before == s.last.end() || before->second != value)
                row(place, type, value);
            s.last[series] = value;
        }
        for (auto at = s.last.begin(); whole && at != s.last.end();) {
            const bool gone = !seen.count(at->first);
            const std::string place = at->first.substr(0, at->first.rfind('|'));
            if (gone && !seen.count(place)) row(place, "gone", "");
            at = gone ? s.last.erase(at) : std::next(at);
        }
    }

    static constexpr const char *types[] = {"", "int", "long", "string", "buffer"};
};

const std::string flat = std::string("SELECT run, device, command, collector, section, key, "
                                     "ordinal, type, ") +
                         value_bytes + " FROM value_flat";
const std::string sums =
    std::string("SELECT d.name, r.command, r.hour, ") + series_name +
    ", s.section, s.key, r.ordinal, "
    "CASE s.type WHEN 1 THEN 'int' ELSE 'long' END, r.n, r.min, r.max, r.last "
    "FROM rollup_hour r JOIN device d ON d.id = r.device JOIN series s ON s.id = r.series";

std::multiset<std::string> set_of(const std::string &file, const std::string &sql) {
    const auto rows = rows_of(file, sql);
    return {rows.begin(), rows.end()};
}

class Random {
public:
    uint64_t below(uint64_t bound) { return source_() % bound; }
    bool once_in(uint64_t n) { return below(n) == 0; }

    RunRecord run(uint64_t number, Microseconds time) {
        RunRecord run = make_run(number, once_in(2) ? "pump" : "fan", time);
        if (once_in(5)) {
            run.kind = Kind::selftest;
            run.command = 3;
        }
        run.keeps_all = once_in(10);
        if (once_in(4)) run.outcome = Outcome::reset;
        const size_t count = once_in(10) ? 0 : 1 + below(once_in(20) ? 80 : 12);
        for (size_t i = 0; i < count; ++i) add_value(run, i);
        if (once_in(3)) std::reverse(run.samples.list.begin(), run.samples.list.end());
        return run;
    }

private:
    void add_value(RunRecord &run, size_t i) {
        const std::string collector = i < 6 ? "plain" : std::string("\0\xff", 2);
        const auto key = static_cast<uint32_t>(once_in(8) ? below(4) : i % 4);
        constexpr uint64_t numbers[] = {0,          1,          0x7fffffff, 0x80000000,
                                        0xffffffff, 1ULL << 63, ~0ULL};
        if (i % 3 == 2)
            add_text(run, collector, key,
                     std::string(once_in(2) ? below(3) : 250 + below(10), 'x'));
        else
            add_number(run, collector, key, once_in(2) ? 7 : numbers[below(7)]);
        run.samples.list.back().section = static_cast<uint32_t>(i / 4);
    }

    std::mt19937_64 source_{20260131};
};

// Every row of value_flat and rollup_hour as the model has it, over runs that are whole or not, by
// two commands, over days and hours, with a clock that is set back at times, each reported twice.
TEST(Store, KeepsWhatTheModelKeeps) {
    const Fresh fresh;
    const std::string &file = fresh.name();
    Inventory inventory;
    for (const auto &collector : {std::string("plain"), std::string("\0\xff", 2)})
        inventory.series.push_back({collector, {}, 1, "speed", "1/min", true, {}});
    auto store = open_store(file, {});
    store->take_inventory(inventory);
    Model model;
    Random random;
    Microseconds time = 20'000 * day;
    for (uint64_t i = 0; i < 1500;) {
        std::vector<RunRecord> batch;
        for (uint64_t n = 1 + random.below(5); n != 0; --n) {
            time +=
                random.once_in(50) ? -2 * hour : static_cast<int64_t>(random.below(1200)) * second;
            batch.push_back(random.run(++i, time));
            if (random.once_in(10)) batch.push_back(batch[random.below(batch.size())]);
        }
        for (const RunRecord &run : batch) model.take(run);
        store->write(batch);
        if (random.once_in(10)) store->write(batch);
        if (random.once_in(100)) store = open_store(file, {}), store->take_inventory(inventory);
    }
    for (const char *device : {"pump", "fan"})
        for (const uint32_t command : {0U, 3U}) { // closes the last hours
            RunRecord run = make_run(1'000'000 + model.known.size(), device, time + day);
            run.command = command;
            model.take(run);
            store->write({&run, 1});
        }
    std::multiset<std::string> hours;
    for (const auto &[place, h] : model.hours)
        hours.insert(fmt::format("{}|{}|{}|{}|{}", place, h.n, h.min, h.max, h.last));
    EXPECT_GT(model.rows.size(), 3000U);
    EXPECT_EQ(set_of(file, flat), model.rows);
    EXPECT_EQ(set_of(file, sums), hours);
}

// ---- logs ---------------------------------------------------------------------------------------

// A device sends its last lines in each run; what scrolled away unseen is a gap. A run that broke
// in the middle of a log must not be taken for one.
TEST(Logs, LinesAreStoredOnceAndGapsAreMarked) {
    const Fresh fresh;
    const std::string &file = fresh.name();
    Inventory inventory;
    inventory.series.push_back({"boot", {}, 2, "", "", false, false});
    inventory.series.push_back({"boot", {}, 3, "", "", false, true});
    const auto store = open_store(file, {});
    store->take_inventory(inventory);
    uint64_t number = 0;
    const auto send = [&](std::vector<std::string> lines, Outcome outcome, bool goes_on) {
        ++number;
        RunRecord run = make_run(number, "pump", static_cast<Microseconds>(number) * second);
        run.outcome = outcome;
        add_log(run, "log", 1, lines);
        if (goes_on) add_number(run, "plain", 1, 5);
        store->write({&run, 1});
    };
    send({"a", "b"}, Outcome::whole, true);
    send({"a", "b", "c"}, Outcome::whole, false);
    send({"a", "b", "c"}, Outcome::whole, true);
    send({"b"}, Outcome::reset, false); // cut, maybe
    send({"c", "d"}, Outcome::reset, true);
    send({"x", "x"}, Outcome::whole, true);
    send({"x", "x", "x"}, Outcome::whole, true);
    const char *lines = "SELECT seq, text, gap_before FROM log WHERE series = "
                        "(SELECT id FROM series WHERE collector = 'log') ORDER BY seq";
    EXPECT_THAT(rows_of(file, lines),
                ElementsAre("1|a|0", "2|b|0", "3|c|0", "4|d|0", "5|x|1", "6|x|0", "7|x|0"));
    EXPECT_THAT(rows_of(file, "SELECT 1 FROM value_flat WHERE collector = 'log'"), IsEmpty());

    RunRecord run = make_run(++number, "pump", day); // what the inventory says goes before the form
    add_log(run, "boot", 2, {"no log"});
    add_text(run, "boot", 3, "no stamp");
    add_text(run, "boot", 3, "a log");
    add_log(run, "boot", 4, {"a log"});
    add_text(run, "boot", 4, "whose last text is missing");
    store->write({&run, 1});
    EXPECT_THAT(rows_of(file, "SELECT key, log FROM series WHERE collector = 'boot' ORDER BY key"),
                ElementsAre("2|0", "3|1", "4|0"));
}

// ---- devices ------------------------------------------------------------------------------------

TEST(Store, DevicesKeepTheirHistoryThroughWhatOperatorsDo) {
    const Fresh fresh;
    const std::string &file = fresh.name();
    Inventory inventory;
    inventory.retention = endless;
    const auto store = open_store(file, endless);
    inventory.devices.resize(2);
    inventory.devices[0].name = "fan";
    inventory.devices[1].name = "pump";
    inventory.devices[1].identity = 0x0102;
    store->take_inventory(inventory);
    const auto run = [&](const char *device, uint64_t number, Outcome outcome, Kind kind) {
        RunRecord record = make_run(number, device, static_cast<Microseconds>(number));
        record.outcome = outcome;
        record.kind = kind;
        record.identity = 0x0103;
        add_number(record, "c", 1, number);
        store->write({&record, 1});
    };
    run("pump", 1, Outcome::whole, Kind::collection);
    run("pump", 2, Outcome::silent, Kind::collection);
    run("pump", 3, Outcome::reset, Kind::selftest);     // no try
    run("pump", 4, Outcome::stopped, Kind::collection); // not the device's fault
    run("fan", 5, Outcome::whole, Kind::collection);
    const char *devices =
        "SELECT name, listed, identity_expected, identity_seen, last_try, last_ok, failures, "
        "paused_until FROM device ORDER BY name";
    EXPECT_THAT(rows_of(file, devices),
                ElementsAre("fan|1|259|259|5|5|0|0", "pump|1|258|259|2|1|1|0"));

    EXPECT_THROW(store->rename("pump", "fan"), dtctl::Failure);
    EXPECT_THROW(store->forget("nobody"), dtctl::Failure);
    store->accept("pump");
    store->pause("pump", 77);
    inventory.devices[1].name = "pump2"; // the file first, then the command
    store->take_inventory(inventory);
    store->rename("pump", "pump2");
    EXPECT_THAT(rows_of(file, devices),
                ElementsAre("fan|1|259|259|5|5|0|0", "pump2|1|259|259|2|1|1|77"));
    inventory.devices[1].port = 9100;
    store->take_inventory(inventory); // says nothing new of the identity that was accepted
    store->forget("fan");
    while (store->tidy()) {
    }
    EXPECT_THAT(rows_of(file, devices), ElementsAre("pump2|1|259|259|2|1|1|77"));
    EXPECT_THAT(rows_of(file, "SELECT DISTINCT device FROM value_flat"), ElementsAre("pump2"));
}

} // namespace
} // namespace dtfleet
