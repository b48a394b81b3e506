// The store's write side, held against a model that knows no packing, no cache and no SQL.
#include "fleet/store/logs.h"
#include "fleet/store/number.h"
#include "host/failure.h"
#include "samples.h"

#include <fmt/format.h>
#include <gmock/gmock.h>

#include <map>
#include <random>
#include <set>

namespace dtfleet {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

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
        std::set<std::string> seen;
        std::map<std::string, uint32_t> arrivals;
        for (const Sample &sample : run.samples.list) {
            const std::string key = fmt::format(
                "{}|{}|{}", run.samples.collectors[sample.collector], sample.section, sample.key);
            const bool number = is_number(sample.kind);
            const char *type = types[static_cast<size_t>(sample.kind)];
            const std::string place = fmt::format("{}|{}", key, arrivals[key]++);
            const std::string series = place + "|" + type;
            const std::string value = number ? std::to_string(static_cast<int64_t>(sample.number))
                                             : std::string(run.samples.bytes_of(sample));
            seen.insert(series);
            if (number) sum(fmt::format("{}|{}|{}", source, run.time / hour, series), sample);
            const auto before = s.last.find(series);
            if (full || run.keeps_all || before == s.last.end() || before->second != value)
                row(place, type, value);
            s.last[series] = value;
        }
        for (auto at = s.last.begin(); whole && at != s.last.end();) {
            const bool gone = !seen.count(at->first);
            if (gone) row(at->first.substr(0, at->first.rfind('|')), "gone", "");
            at = gone ? s.last.erase(at) : std::next(at);
        }
    }

    static constexpr const char *types[] = {"", "int", "long", "string", "buffer"};
};

constexpr const char *flat = "SELECT run, device, command, collector, section, key, ordinal, type, "
                             "coalesce(number, bytes, '') FROM value_flat";
constexpr const char *sums =
    "SELECT d.name, r.command, r.hour, s.collector, s.section, s.key, r.ordinal, "
    "CASE s.type WHEN 1 THEN 'int' ELSE 'long' END, r.n, r.min, r.max, r.last "
    "FROM rollup_hour r JOIN device d ON d.id = r.device JOIN series s ON s.id = r.series";

std::multiset<std::string> set_of(const std::string &file, const char *sql, int columns) {
    const auto rows = rows_of(file, sql, columns);
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
        const size_t count = once_in(10) ? 0 : 1 + below(12);
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
    const Scratch scratch;
    const std::string file = scratch / "fleet.db";
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
    EXPECT_EQ(set_of(file, flat, 9), model.rows);
    EXPECT_EQ(set_of(file, sums, 12), hours);
}

} // namespace
} // namespace dtfleet
