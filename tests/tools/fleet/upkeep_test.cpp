// A database over the years: what is deleted and what never, copies, and what is found in damage.
#include "engine.h"
#include "fleet/store/sqlite/migration.h"
#include "fleet/store/sqlite/retention.h"
#include "fleet/store/sqlite/schema.h"
#include "fleet/store/upkeep.h"
#include "host/failure.h"
#include "samples.h"

#include <fmt/format.h>
#include <gmock/gmock.h>

#include <fstream>
#include <map>
#include <random>
#include <set>

namespace dtfleet {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

RunRecord text_run(uint64_t number, size_t size) {
    RunRecord run = make_run(number, "pump", static_cast<Microseconds>(number) * second);
    add_text(run, "c", 1, std::string(size, static_cast<char>('a' + number % 26)));
    add_number(run, "c", 2, number);
    return run;
}

constexpr const char *all_runs =
    "SELECT run, ordinal, key, coalesce(number, bytes) FROM value_flat";

// The store's own copy goes on while it writes, and has what was written meanwhile; the command's
// stands still between two transactions of others. Neither touches a file that is there, or leaves
// one that is not whole.
TEST(Backup, IsWholeWhileOthersWrite) {
    const Scratch scratch;
    const std::string file = scratch / "fleet.db";
    const auto store = open_store(file, {});
    uint64_t number = 0;
    for (int i = 0; i < 20; ++i) write(*store, text_run(++number, 900'000));
    size_t slices = 1;
    for (; store->back_up(scratch / "a"); ++slices) {
        write(*store, text_run(++number, 900'000));
        EXPECT_FALSE(std::filesystem::exists(scratch / "a"));
        EXPECT_THAT(failure_of([&] { store->back_up(scratch / "b"); }), HasSubstr("being written"));
    }
    EXPECT_GT(slices, 2U);
    EXPECT_EQ(rows_of(scratch / "a", all_runs), rows_of(file, all_runs));

    size_t told = 0;
    back_up(file, scratch / "b", [&](uint64_t done, uint64_t all) {
        EXPECT_LE(done, all);
        if (++told <= 2) write(*store, text_run(++number, 10)); // it begins anew
    });
    EXPECT_EQ(rows_of(scratch / "b", all_runs), rows_of(file, all_runs));
    EXPECT_THAT(rows_of(scratch / "b", "PRAGMA journal_mode"), ElementsAre("delete"));
    EXPECT_THAT(check_database(scratch / "b"), IsEmpty());

    EXPECT_THAT(failure_of([&] { back_up(file, scratch / "b"); }), HasSubstr("exists"));
    EXPECT_THAT(failure_of([&] { store->back_up(scratch / "b"); }), HasSubstr("exists"));
    EXPECT_THAT(failure_of([&] { back_up(file, scratch / "no/such"); }), HasSubstr("No such file"));
    EXPECT_THAT(failure_of([&] { back_up(scratch / "no", scratch / "c"); }), HasSubstr("no: "));
    for (const auto &entry : std::filesystem::directory_iterator(scratch / "")) {
        const std::string name = entry.path().filename();
        EXPECT_THAT(name, testing::AnyOf("a", "b", testing::StartsWith("fleet.db")));
    }
}

// Each damage, and a word of what is said of it.
TEST(Check, FindsWhatCannotBe) {
    const Scratch scratch;
    const std::string file = scratch / "fleet.db";
    const auto store = open_store(file, {});
    EXPECT_THAT(check_database(file), IsEmpty()); // before the first run
    for (uint64_t i = 1; i <= 5; ++i) {
        RunRecord run = text_run(i, 300);
        add_log(run, "log", 1, {fmt::format("line {}", i)});
        run.time = static_cast<Microseconds>(i) * hour;
        write(*store, run);
    }
    ASSERT_THAT(check_database(file), IsEmpty());
    const std::pair<const char *, const char *> damages[] = {
        {"DELETE FROM value WHERE id = 3", "run 2: 1 of its 2 values"},
        {"DELETE FROM value WHERE id = (SELECT max(id) FROM value)", "run 5: 1 of its 2"},
        {"DELETE FROM value WHERE length(value) > 256", "last values is not there"},
        {"DELETE FROM collection WHERE id = 2", "before run 3: values of no run"},
        {"DELETE FROM collection WHERE id = 5", "behind the last run"},
        {"DELETE FROM collection", "behind the last run"},
        {"UPDATE collection SET first = first - 1 WHERE id = 4", "run 4: its values are another"},
        {"UPDATE collection SET count = -1 WHERE id = 4", "cannot be"},
        {"UPDATE collection SET count = 9223372036854775807 WHERE id = 4", "cannot be"},
        {"UPDATE collection SET outcome = 99 WHERE id = 1", "no outcome"},
        {"UPDATE collection SET device = 99 WHERE id = 1", "run 1: its device"},
        {"DELETE FROM series WHERE key = 2", "a series that is not there"},
        {"UPDATE meta SET value = 5 WHERE key = 'next_collection'", "number of runs"},
        {"UPDATE meta SET value = 5 WHERE key = 'next_value'", "number of values"},
        {"UPDATE state SET entries = x'ff'", "last values cannot be read"},
        {"UPDATE state SET device = 99", "device 99"},
        {"UPDATE rollup SET entries = '[[' WHERE hour = 2", "sums of hour 2"},
        {"UPDATE rollup SET entries = '[1]' WHERE hour = 2", "sums of hour 2"},
        {"UPDATE log SET device = 99 WHERE seq = 1", "lines of a log"},
    };
    for (const auto &[sql, word] : damages) {
        const std::string copy = scratch / "copy";
        back_up(file, copy);
        sqlite::Database(copy, sqlite::Database::Access::write).execute(sql);
        EXPECT_THAT(check_database(copy), Contains(HasSubstr(word))) << sql;
        std::filesystem::remove(copy);
    }
    const std::string torn = scratch / "torn";
    back_up(file, torn);
    std::fstream(torn, std::ios::in | std::ios::out).seekp(5 * 4096) << std::string(3 * 4096, 'x');
    EXPECT_FALSE(check_database(torn).empty());
    std::ofstream(scratch / "text") << std::string(5000, 'x');
    EXPECT_THAT(failure_of([&] { check_database(scratch / "text"); }), HasSubstr("not a database"));
}

// ---- what is deleted ----------------------------------------------------------------------------

constexpr int64_t start = 20'000; // a day

sqlite::Clocks clocks_at(Microseconds wall) { return {wall, wall - start * day, "boot"}; }

void tidy_all(sqlite::Housekeeper &house, const sqlite::Clocks &now) {
    int slices = 0;
    while (house.tidy(now)) ASSERT_LT(++slices, 5000);
}

// What may be deleted, from all that was ever written.
struct History {
    struct Run {
        int64_t id, day, count;
        std::string source;
    };
    std::vector<Run> runs;
    std::map<std::string, int64_t> full_day;  // of a source: device and command
    std::map<std::string, int64_t> last_text; // the run with the value that is too long for a state

    std::set<int64_t> left(int64_t first_day) const {
        std::set<int64_t> ids;
        for (const Run &run : runs) {
            const auto full = full_day.find(run.source);
            const auto text = last_text.find(run.source);
            if (run.day >= first_day || (text != last_text.end() && text->second == run.id) ||
                (run.count != 0 && full != full_day.end() && run.day >= full->second))
                ids.insert(run.id);
        }
        return ids;
    }
};

// Random runs of devices that answer, fall silent, break each time, or come back; self-tests now
// and then. After each day what is left is what the rule says, and the database is in order.
TEST(Retention, NeverDeletesWhatLaterValuesLeanOn) {
    const Scratch scratch;
    const std::string file = scratch / "fleet.db";
    const auto store = open_store(file, {});
    sqlite::Database database(file, sqlite::Database::Access::write);
    Retention retention;
    retention.age = Seconds(3 * 86'400);
    retention.long_age = Seconds(6 * 86'400);
    sqlite::Housekeeper house(database, retention);
    std::mt19937 random(7);
    History history;
    int64_t number = 0, line = 0;
    const auto make = [&](const std::string &device, int64_t today) {
        RunRecord run = make_run(static_cast<uint64_t>(++number), device,
                                 today * day + static_cast<int64_t>(random() % 86'400) * second);
        if (random() % 4 == 0) run.kind = Kind::selftest, run.command = 3;
        const bool is_silent = device == "silent" && today > start + 4;
        const bool is_broken = device == "broken" || random() % 3 == 0;
        if (is_silent || is_broken) run.outcome = is_silent ? Outcome::unanswered : Outcome::reset;
        if (device == "halting" && today > start + 5 && today < start + 15)
            run.outcome = Outcome::malformed;
        if (!is_silent) add_number(run, "c", 1, random() % 3);
        if (!is_silent && random() % 2 == 0)
            add_text(run, "c", 2, std::string(300, static_cast<char>('a' + random() % 2)));
        if (device == "good" && ++line)
            add_log(run, "log", 1, {"l" + std::to_string(line - 1), "l" + std::to_string(line)});
        return run;
    };
    for (int64_t today = start; today < start + 20; ++today) {
        std::vector<RunRecord> runs;
        for (const char *device : {"good", "silent", "broken", "halting"})
            for (int i = 0; i < 5; ++i) runs.push_back(make(device, today));
        std::sort(runs.begin(), runs.end(),
                  [](const RunRecord &a, const RunRecord &b) { return a.time < b.time; });
        for (const RunRecord &run : runs) {
            write(*store, run);
            const auto row = rows_of(
                file, "SELECT c.id, c.count, (SELECT count(*) FROM value v WHERE v.id >= c.first "
                      "AND length(v.value) = 300) FROM collection c ORDER BY c.id DESC LIMIT 1")[0];
            int64_t id = 0, count = 0, texts = 0;
            ASSERT_EQ(std::sscanf(row.c_str(), "%ld|%ld|%ld", &id, &count, &texts), 3);
            const std::string source = run.device + std::to_string(run.command);
            history.runs.push_back({id, today, count, source});
            if (is_whole(run.outcome)) history.full_day[source] = today;
            if (texts != 0) history.last_text[source] = id;
            const bool has_text = run.samples.bytes.size() >= 300;
            if (is_whole(run.outcome) && !has_text) history.last_text.erase(source); // it is gone
        }
        tidy_all(house, clocks_at((today + 1) * day - second));
        std::set<int64_t> left;
        for (const auto &row : rows_of(file, "SELECT id FROM collection"))
            left.insert(std::stoll(row));
        ASSERT_EQ(left, history.left(today - 3)) << today - start;
        ASSERT_THAT(check_database(file), IsEmpty()) << today - start;
    }
    EXPECT_LT(number_of(file, "SELECT count(*) FROM collection"), 250);
    EXPECT_EQ(number_of(file, "SELECT min(hour) / 24 FROM rollup"), start + 13);
    EXPECT_EQ(number_of(file, "SELECT min(time) / 86400000000 FROM log"), start + 13);
    EXPECT_EQ(number_of(file, "PRAGMA freelist_count"), 0);
}

// The oldest day goes first, and whole; today never; what may not be deleted is not tried again and
// again, and the file gets smaller.
TEST(Retention, KeepsTheSize) {
    const Scratch scratch;
    const std::string file = scratch / "fleet.db";
    const auto store = open_store(file, {});
    uint64_t number = 0;
    for (int64_t today = start; today < start + 10; ++today)
        for (const char *device : {"live", "dead"}) {
            if (device == std::string("dead") && today > start + 2) continue;
            for (int i = 0; i < 4; ++i) {
                RunRecord run = make_run(++number, device, today * day + i * hour);
                add_text(run, "c", 1, std::string(100'000, static_cast<char>('a' + i)));
                add_number(run, "c", 2, number);
                write(*store, run);
            }
        }
    sqlite::Database database(file, sqlite::Database::Access::write);
    Retention retention;
    retention.bytes = 2'200'000;
    sqlite::Housekeeper house(database, retention);
    const sqlite::Clocks now = clocks_at((start + 9) * day + 20 * hour);
    const char *days = "SELECT DISTINCT d.name, c.time / 86400000000 - 20000 FROM collection c "
                       "JOIN device d ON d.id = c.device ORDER BY d.name, c.time";
    tidy_all(house, now);
    EXPECT_THAT(rows_of(file, days), ElementsAre("dead|2", "live|6", "live|7", "live|8", "live|9"));
    EXPECT_FALSE(house.is_too_large());
    EXPECT_LE(number_of(file, "PRAGMA page_count") * 4096, 2'200'000);
    EXPECT_THAT(check_database(file), IsEmpty());

    retention.bytes = 1;
    house.take(retention);
    tidy_all(house, now);
    EXPECT_THAT(rows_of(file, days), ElementsAre("dead|2", "live|9"));
    EXPECT_TRUE(house.is_too_large());
    EXPECT_FALSE(house.tidy(now));
    retention.bytes = 0;
    house.take(retention);
    tidy_all(house, now);
    EXPECT_FALSE(house.is_too_large());
}

// A device that is in the inventory no more goes when all that is kept for long is old.
TEST(Retention, RemovedDevicesGoAtLast) {
    const Scratch scratch;
    const std::string file = scratch / "fleet.db";
    const auto store = open_store(file, {});
    Inventory inventory;
    inventory.devices.resize(1);
    inventory.devices[0].name = "listed";
    store->take_inventory(inventory);
    uint64_t number = 0;
    for (const char *device : {"listed", "removed"}) {
        RunRecord run = make_run(++number, device, start * day);
        add_number(run, "c", 1, 1);
        write(*store, run);
    }
    sqlite::Database database(file, sqlite::Database::Access::write);
    sqlite::Housekeeper house(database, {});
    const char *names = "SELECT d.name, count(c.id) FROM device d LEFT JOIN collection c ON "
                        "c.device = d.id GROUP BY d.id ORDER BY 1";
    tidy_all(house, clocks_at((start + 729) * day));
    EXPECT_THAT(rows_of(file, names), ElementsAre("listed|1", "removed|1"));
    tidy_all(house, clocks_at((start + 731) * day));
    EXPECT_THAT(rows_of(file, names), ElementsAre("listed|1"));
}

// ---- the clock ----------------------------------------------------------------------------------

// A clock that jumps deletes nothing, in this run of the machine and over a restart of it, until it
// has come back or an operator takes it as it is.
TEST(Clock, AJumpHoldsDeletion) {
    const Scratch scratch;
    const std::string file = scratch / "fleet.db";
    const auto store = open_store(file, {});
    for (int64_t today = start; today < start + 5; ++today) {
        RunRecord run = make_run(static_cast<uint64_t>(today), "pump", today * day);
        add_number(run, "c", 1, 1);
        write(*store, run);
    }
    sqlite::Database database(file, sqlite::Database::Access::write);
    const Microseconds wall = (start + 5) * day, boot = 7 * day, year = 365 * day;
    const auto left_at = [&](const sqlite::Clocks &now) {
        sqlite::Housekeeper house(database, {});
        tidy_all(house, now);
        return number_of(file, "SELECT count(*) FROM collection");
    };
    const auto is_held = [&](Microseconds seen, Microseconds since_boot, const char *id) {
        EXPECT_EQ(left_at({seen, since_boot, id}), 5) << id;
        return is_clock_held(database, {seen, since_boot, id});
    };
    EXPECT_FALSE(is_held(wall, boot, "a"));
    EXPECT_TRUE(is_held(wall + year, boot + hour, "a"));
    EXPECT_TRUE(is_held(wall - year, boot + hour, "a"));
    EXPECT_TRUE(is_held(wall + year, 0, "b"));
    EXPECT_TRUE(is_held(0, 0, "b"));
    EXPECT_TRUE(is_held(wall + 4 * day, 0, "b"));
    EXPECT_FALSE(is_held(wall + 2 * hour + 59 * 60 * second, boot + 2 * hour, "a")); // come back
    EXPECT_TRUE(is_held(wall + 61 * 60 * second, boot, "a"));
    EXPECT_TRUE(is_held(wall - 61 * 60 * second, boot, "a"));
    EXPECT_FALSE(is_held(wall + 2 * day, 0, "b")); // switched off for a weekend
    EXPECT_TRUE(is_held(wall - day, 0, "c"));
    const sqlite::Clocks late{wall + year, 60 * second, "d"};
    EXPECT_TRUE(is_clock_held(database, late));
    accept_clock(database, late);
    EXPECT_EQ(left_at(late), 1); // of the last full day
}

// ---- versions -----------------------------------------------------------------------------------

// A step that fails leaves the version before it, and the copy of the first; the next attempt goes
// on from there.
TEST(Migration, GoesStepByStepAfterACopy) {
    const Scratch scratch;
    const std::string file = scratch / "fleet.db";
    write(*open_store(file, endless), text_run(1, 10));
    sqlite::Database database(file, sqlite::Database::Access::write);
    const char *steps[] = {"ALTER TABLE device ADD COLUMN room TEXT DEFAULT 'hall'",
                           "UPDATE device SET room = 'yard'; SELECT nonsense"};
    {
        const FileLimit limit(50'000);
        EXPECT_THROW(migrate(database, steps), Unavailable)
            << "no room for the copy: that may pass";
    }
    EXPECT_THROW(migrate(database, steps), dtctl::Failure);
    EXPECT_THAT(rows_of(file, "SELECT room FROM device"), ElementsAre("hall"));
    EXPECT_EQ(number_of(file, "PRAGMA user_version"), 2);
    EXPECT_EQ(number_of(scratch / "fleet.db.v1", "PRAGMA user_version"), 1);
    EXPECT_THAT(check_database(scratch / "fleet.db.v1"), IsEmpty());
    steps[1] = "UPDATE device SET room = 'yard'";
    migrate(database, steps);
    EXPECT_THAT(rows_of(file, "SELECT room FROM device"), ElementsAre("yard"));
    EXPECT_EQ(number_of(file, "PRAGMA user_version"), 3);
    migrate(database, steps);
    EXPECT_THAT(failure_of([&] { open_store(file, endless); }), HasSubstr("newer"));
}

} // namespace
} // namespace dtfleet
