// The store's read side: a random history, read back through every call.
#include "../engine.h"
#include "../samples.h"
#include "fleet/store/number.h"

#include <fmt/format.h>
#include <gmock/gmock.h>

#include <map>
#include <random>

namespace dtfleet {
namespace {

using dt::decode::Kind;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

constexpr Microseconds start = 20'000 * day + 5 * hour;

using Received = std::map<Microseconds, uint64_t>; // by time
using Place = std::pair<uint32_t, uint32_t>;       // a key and its ordinal

constexpr uint32_t with_sign = 1, unchanged = 2, at_times = 3, without_sign = 4, wide = 5;

// Three days of one device, stored by changes and whole, with everything that a run may bring. A
// third of the runs break, half of them without a value.
class History {
public:
    History() {
        Inventory inventory;
        Device listed;
        listed.name = "pump";
        listed.groups = {"hall \"2\""};
        inventory.devices = {listed};
        inventory.series = {{"plain", {}, with_sign, "speed", "1/min", true, {}},
                            {"plain", {}, wide, "", "", true, {}}};
        for (auto &store : stores) store->take_inventory(inventory);
        for (uint64_t i = 1; time < start + 3 * day; ++i) write(i);
    }

    RunRecord run(uint64_t number) {
        RunRecord run = make_run(number, below(20) == 0 ? "fan" : "pump", time);
        if (run.device == "pump" && below(15) == 0) run.kind = dtfleet::Kind::selftest;
        run.command = run.kind == dtfleet::Kind::selftest ? 3 : 0;
        if (below(3) == 0) run.outcome = Outcome::reset;
        if (!is_whole(run.outcome) && below(2) == 0) return run;
        if (!is_whole(run.outcome) || below(4) == 0)
            speed = static_cast<uint32_t>(below(2'000'001) - 1'000'000);
        add_number(run, "plain", with_sign, speed);
        if (!is_whole(run.outcome)) return run;
        add_number(run, "plain", unchanged, 7);
        add_number(run, "plain", without_sign, speed);
        add_number(run, "plain", wide, speed << 32 | 1);
        add_text(run, "other", 1, std::string(below(4) * 100, 'x'));
        for (uint64_t i = below(3); i != 0; --i) add_number(run, "plain", at_times, below(3));
        add_log(run, "log", 9, {"a", "b", std::to_string(number / 50)});
        return run;
    }

    void write(uint64_t number) {
        time += 5 * 60 * second + static_cast<Microseconds>(below(60 * second));
        RunRecord one = run(number);
        stores[0]->write({&one, 1});
        one.keeps_all = true;
        stores[1]->write({&one, 1});
        if (one.device == "pump" && one.command == 0) take(one);
    }

    void take(const RunRecord &run) {
        ++runs;
        if (is_whole(run.outcome)) latest.clear();
        std::map<uint32_t, uint32_t> arrivals;
        for (const Sample &sample : run.samples.list) {
            if (sample.kind == Kind::string) continue;
            const Place place{sample.key, arrivals[sample.key]++};
            received[place][time] = latest[place] = sample.number;
        }
    }

    uint64_t below(uint64_t bound) { return random() % bound; }

    const Fresh changes, all;
    const std::string files[2] = {changes.name(), all.name()};
    std::unique_ptr<Store> stores[2] = {open_store(files[0], endless),
                                        open_store(files[1], endless)};
    std::mt19937_64 random{7};
    Microseconds time = start;
    uint64_t speed = 0;
    size_t runs = 0;
    std::map<Place, Received> received; // the numbers of collections
    std::map<Place, uint64_t> latest;   // that are not gone
};

int64_t id_of_series(Reader &reader, const char *collector, uint32_t key) {
    for (const Series &series : reader.series())
        if (series.collector == collector && series.key == key) return series.id;
    return 0;
}

// Each point tells of all that was received from its time to the next one's.
void expect_points(const std::vector<Point> &points, uint32_t key, const Received &received,
                   Microseconds end) {
    const auto less = [&](uint64_t a, uint64_t b) {
        return is_less(a, b, key == wide ? Kind::int64 : Kind::int32,
                       key == with_sign || key == wide);
    };
    for (size_t i = 0; i < points.size(); ++i) {
        const Point &point = points[i];
        const auto begin = received.lower_bound(point.time);
        if (point.count == 0) {
            EXPECT_EQ(i, 0);
            EXPECT_EQ(point.last, std::prev(begin)->second);
            continue;
        }
        std::vector<uint64_t> values;
        const auto to = received.lower_bound(i + 1 < points.size() ? points[i + 1].time : end);
        for (auto at = begin; at != to; ++at) values.push_back(at->second);
        ASSERT_EQ(point.count, values.size()) << i;
        ASSERT_EQ(point.last, values.back()) << i;
        ASSERT_EQ(point.min, std::ranges::min(values, less)) << i;
        ASSERT_EQ(point.max, std::ranges::max(values, less)) << i;
    }
}

uint64_t sum_of(const std::vector<Point> &points) {
    uint64_t sum = 0;
    for (const Point &point : points) sum += point.count;
    return sum;
}

// The series that may be drawn, as one of the two databases has them.
class Charts {
public:
    explicit Charts(const std::string &file)
        : file_(file), reader_(open_reader(file)), device_(reader_->device("pump")->id) {}

    std::vector<Point> points(const char *collector, Place place, Microseconds from,
                              Microseconds to, size_t columns, bool too_many = false) {
        return points_of(file_, device_, id_of_series(*reader_, collector, place.first),
                         place.second, from, to, columns, too_many);
    }

    // All that was received is told, whatever part of it is stored.
    void expect_all(const History &history, size_t columns, bool too_many = false) {
        for (const auto &[place, received] : history.received) {
            const auto all = points("plain", place, 0, INT64_MAX, columns, too_many);
            EXPECT_LE(all.size(), columns);
            EXPECT_EQ(sum_of(all), received.size()) << place.first;
            expect_points(all, place.first, received, INT64_MAX);
        }
    }

private:
    std::string file_;
    std::unique_ptr<Reader> reader_;
    int64_t device_;
};

TEST(Reader, ChartsTellWhatWasReceivedHoweverItIsStored) {
    History history;
    for (const std::string &file : history.files) {
        Charts charts(file);
        const Place speed{with_sign, 0};
        for (const size_t columns : {1, 71, 72, 500}) {
            charts.expect_all(history, columns);
            EXPECT_GT(2 * charts.points("plain", speed, 0, INT64_MAX, columns).size(),
                      std::min<size_t>(columns, 72))
                << "as fine as asked for";
        }
        charts.expect_all(history, 500, true); // too many values: from the hours
        EXPECT_LE(charts.points("plain", speed, 0, INT64_MAX, 500, true).size(), 73);
        const Received &received = history.received[speed];
        for (int i = 0; i < 200; ++i) {
            const auto from = start + static_cast<Microseconds>(history.below(3 * day));
            const auto to = from + 1 + static_cast<Microseconds>(history.below(12 * hour));
            const auto some = charts.points("plain", speed, from, to, 13 + history.below(100));
            expect_points(some, with_sign, received, to);
            EXPECT_EQ(sum_of(some), static_cast<size_t>(std::distance(received.lower_bound(from),
                                                                      received.lower_bound(to))));
        }
        EXPECT_THAT(charts.points("plain", speed, start + day, start + day, 10), IsEmpty());
        EXPECT_THAT(charts.points("plain", speed, start + 9 * day, INT64_MAX, 10), IsEmpty());
        EXPECT_THAT(charts.points("plain", {with_sign, 1}, 0, INT64_MAX, 9), IsEmpty());
        EXPECT_THAT(charts.points("other", {1, 0}, 0, INT64_MAX, 9), IsEmpty()) << "texts";
    }
}

// Of the days whose values are gone, the hours are left.
TEST(Reader, ChartsGoBackBehindTheValues) {
    History history;
    for (size_t i = 0; i < 2; ++i) {
        const std::string &file = history.files[i];
        delete_runs(file, 20001);
        RunRecord other = make_run(1'000'000, "pump", start); // what it tells is of its own command
        other.command = 5;
        add_number(other, "other", 2, 1);
        history.stores[i]->write({&other, 1});
        Charts charts(file);
        for (const size_t columns : {1, 100, 500}) charts.expect_all(history, columns);
        EXPECT_GT(charts.points("plain", {with_sign, 0}, 0, INT64_MAX, 500).size(), 100);
    }
}

std::string text_of(const FlatValue &value) {
    using Form = StoredValue::Form;
    const StoredValue &stored = value.value;
    return fmt::format("{}|{}|{}|{}|{}|{}|{}", id_text(value.run), value.device, value.time,
                       text_of(value.outcome), value.series, value.ordinal,
                       stored.form == Form::gone ? "-"
                       : stored.form == Form::bytes
                           ? stored.bytes
                           : std::to_string(static_cast<int64_t>(stored.number)));
}

std::vector<std::string> all_values(Reader &reader, const ValueQuery &query, size_t limit) {
    std::vector<std::string> texts;
    const bool is_by_time = query.device || query.from > 0 || query.to < INT64_MAX;
    Reader::Place place;
    std::pair<int64_t, int64_t> before{0, INT64_MIN};
    for (bool more = true; more;) {
        std::vector<FlatValue> rows;
        more = reader.values(query, place, limit, rows);
        EXPECT_LE(rows.size(), limit);
        for (const FlatValue &row : rows) {
            const auto now = is_by_time ? std::pair(row.device, row.time)
                                        : std::pair(int64_t{0}, row.collection);
            EXPECT_LE(std::exchange(before, now), now);
            texts.push_back(text_of(row));
        }
    }
    std::ranges::sort(texts);
    return texts;
}

// In slices of any size, without a row twice or left out, as any sqlite3 reads it.
TEST(Reader, HistoryComesInSlicesAndIsWhatTheViewHas) {
    History history;
    const auto reader = open_reader(history.files[0]);
    const int64_t pump = reader->device("pump")->id;
    const int64_t speed = id_of_series(*reader, "plain", 1);
    const Microseconds from = start + day / 2, to = start + 2 * day;
    const auto in_view = [&](const std::string &filter) {
        const std::string sql = fmt::format(
            "SELECT f.run, d.id, f.time, f.status, s.id, f.ordinal, CASE f.type WHEN 'gone' THEN "
            "'-' ELSE {} END FROM value_flat f JOIN device d ON d.name = f.device JOIN series s ON "
            "{} = f.collector AND s.section = f.section AND s.key = f.key WHERE {}",
            value_bytes, series_name, filter);
        auto rows = rows_of(history.files[0], sql);
        std::ranges::sort(rows);
        return rows;
    };
    const auto time = fmt::format("f.time >= {} AND f.time < {}", from, to);
    const auto of_device = fmt::format(" AND d.id = {} AND s.id = {}", pump, speed);
    EXPECT_EQ(all_values(*reader, {}, 7), in_view("1 = 1"));
    EXPECT_EQ(all_values(*reader, {}, 100'000), in_view("1 = 1"));
    EXPECT_EQ(all_values(*reader, {{}, {}, from, to}, 13), in_view(time));
    EXPECT_EQ(all_values(*reader, {pump, {}, from, to}, 1),
              in_view(time + fmt::format(" AND d.id = {}", pump)));
    EXPECT_EQ(all_values(*reader, {pump, {speed}, from, to}, 10), in_view(time + of_device));

    Reader::Place place;
    std::vector<FlatValue> rows;
    while (reader->values({}, place, 1000, rows)) {
    }
    EXPECT_FALSE(reader->values({}, place, 1000, rows));
    EXPECT_THAT(rows, IsEmpty());
    Reader::Place of_pump;
    while (reader->values({pump, {}}, of_pump, 1000, rows)) {
    }
    const int64_t version = reader->version();
    RunRecord fresh[] = {make_run(1'000'000, "pump", history.time),
                         make_run(1'000'001, "pump", start - 365 * day),
                         make_run(1'000'002, "valve", history.time)};
    for (uint64_t i = 0; i < std::size(fresh); ++i) add_number(fresh[i], "new", 1, 5 + i);
    history.stores[0]->write(fresh);
    EXPECT_GT(reader->version(), version);
    const auto numbers_since = [&](const ValueQuery &query, Reader::Place &since) {
        std::vector<uint64_t> numbers;
        EXPECT_FALSE(reader->values(query, since, 1000, rows));
        for (const FlatValue &row : rows)
            if (row.value.form == StoredValue::Form::number) numbers.push_back(row.value.number);
        return numbers;
    };
    EXPECT_THAT(numbers_since({}, place), ElementsAre(5, 6, 7)) << "nothing twice";
    EXPECT_THAT(numbers_since({pump, {}}, of_pump), ElementsAre(5, 6))
        << "also when the clock has been set back";
    EXPECT_THAT(numbers_since({pump, {}}, of_pump), IsEmpty());
    EXPECT_EQ(all_values(*reader, {{}, {}, start - 366 * day}, 100), in_view("1 = 1"))
        << "whatever the ids of the oldest";
    EXPECT_EQ(all_values(*reader, {{}, {}, 0, start}, 100),
              in_view(fmt::format("f.time < {}", start)));
}

TEST(Reader, ListsTellTheNewestOfADevice) {
    History history;
    const auto reader = open_reader(history.files[0]);
    const auto devices = reader->devices();
    ASSERT_THAT(devices, SizeIs(2));
    EXPECT_EQ(devices[0].name, "fan");
    EXPECT_FALSE(devices[0].is_listed);
    EXPECT_THAT(devices[1].groups, ElementsAre("hall \"2\""));
    EXPECT_FALSE(reader->device("hall"));
    const int64_t pump = devices[1].id;

    size_t found = 0;
    Microseconds before = INT64_MAX;
    for (int64_t place = INT64_MAX;;) {
        const auto runs = reader->runs(pump, place, 10);
        for (const RunRow &row : runs) {
            EXPECT_LT(row.record.time, std::exchange(before, row.record.time));
            found += row.record.command == 0;
            EXPECT_EQ(row.record.kind == dtfleet::Kind::selftest, row.record.command == 3);
        }
        if (runs.empty()) break;
        place = runs.back().collection;
    }
    EXPECT_EQ(found, history.runs);

    const auto latest = [&] {
        std::map<Place, uint64_t> numbers;
        for (const LatestValue &value : reader->latest(pump, 0))
            for (const Series &series : reader->series_of(pump))
                if (series.id == value.series && series.collector == "plain" &&
                    value.value.form == StoredValue::Form::number)
                    numbers[{series.key, value.ordinal}] = value.value.number;
        return numbers;
    };
    EXPECT_EQ(latest(), history.latest);
    RunRecord whole = make_run(2'000'000, "pump", history.time + 1);
    add_text(whole, "other", 1, std::string(5000, 'y'));
    history.stores[0]->write({&whole, 1});
    EXPECT_THAT(latest(), IsEmpty()) << "gone";
    EXPECT_EQ(reader->latest(pump, 0)[0].value.bytes, std::string(5000, 'y'));
    EXPECT_LT(reader->latest(pump, 3)[0].time, history.time) << "self-tests by themselves";

    const int64_t log = id_of_series(*reader, "log", 9);
    const auto newest = reader->log(pump, log, INT64_MAX, 4);
    ASSERT_THAT(newest, SizeIs(4));
    EXPECT_EQ(newest[3].seq, newest[2].seq + 1);
    const auto older = reader->log(pump, log, newest[0].seq, 100'000);
    EXPECT_EQ(older.front().seq, 1);
    EXPECT_EQ(older.back().seq + 1, newest[0].seq);
}

// Imports of a time before do not change what later runs brought.
TEST(Reader, ChartsKeepImportsApartFromWhatTheyCameBefore) {
    const Fresh fresh;
    const auto store = open_store(fresh.name(), endless);
    std::vector<RunRecord> runs;
    for (const auto &[minute, number] : {std::pair(0, 5), {10, 5}, {20, 5}, {5, 8}, {30, 5}}) {
        runs.push_back(
            make_run(static_cast<uint64_t>(minute) + 1, "pump", start + minute * 60 * second));
        runs.back().imported = minute == 5;
        add_number(runs.back(), "plain", 1, static_cast<uint64_t>(number));
    }
    store->write(runs);
    const auto reader = open_reader(fresh.name());
    std::vector<uint64_t> values;
    for (const Point &point : reader->points(1, 1, 0, 0, INT64_MAX, 10'000))
        values.push_back(point.last);
    EXPECT_THAT(values, ElementsAre(5, 8, 5, 5, 5));
}

} // namespace
} // namespace dtfleet
