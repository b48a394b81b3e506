// A database on a server over the years: what is deleted and what never, what is found in damage,
// and how the history of a file comes to it.
#include "../engine.h"
#include "../samples.h"
#include "fleet/store/clocks.h"
#include "fleet/store/upkeep.h"
#include "host/failure.h"
#include "server.h"

#include <fmt/format.h>
#include <gmock/gmock.h>

#include <set>

namespace dtfleet {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

// From now on it is that time on the server.
void set_clock(const std::string &database, Microseconds time) {
    execute(database, fmt::format("CREATE OR REPLACE FUNCTION clock() RETURNS bigint LANGUAGE sql "
                                  "VOLATILE AS $$ SELECT (extract(epoch FROM clock_timestamp()) * "
                                  "1000000)::bigint + {} $$",
                                  time - read_clocks().wall));
}

constexpr int64_t start = 20'000; // a day

void tidy_all(Store &store) {
    for (int slices = 0; store.tidy(); ++slices) ASSERT_LT(slices, 1000);
}

// What every tidy() looks at only now and then.
void tidy_now(const std::string &database, Store &store) {
    execute(database, "UPDATE meta SET value = 0 WHERE key = 'next_sweep'");
    tidy_all(store);
}

// Days go as a whole, and only the last run of each device that stored all its values stays; all
// else that is kept for longer goes by its own age, but never what a device still sends.
TEST(Server, DeletesWhatIsOldAndNothingElse) {
    const Fresh fresh;
    const std::string &file = fresh.name();
    Retention retention;
    retention.age = Seconds(3 * 86'400);
    retention.long_age = Seconds(6 * 86'400);
    set_clock(file, start * day);
    const auto store = open_store(file, retention);
    const auto go_to = [&](Microseconds time) {
        set_clock(file, time);
        store->accept_clock();
        tidy_now(file, *store);
    };
    Inventory inventory;
    inventory.retention = retention;
    inventory.devices.resize(2);
    inventory.devices[0].name = "live";
    inventory.devices[1].name = "dead";
    store->take_inventory(inventory);
    uint64_t number = 0;
    store->add_faults({"live", {1}, start * day, {{0, 0, "pump", "run", "s", 0, "early"}}});
    for (int64_t today = start; today < start + 10; ++today) {
        for (const char *device : {"live", "dead"})
            for (const int64_t at : {1, 2}) {
                if (device == std::string("dead") && today > start + 1) continue;
                RunRecord run = make_run(++number, device, today * day + at * hour);
                add_number(run, "c", 1, number);
                add_log(run, "log", 1, {fmt::format("line {}", today)});
                write(*store, run);
            }
        go_to((today + 1) * day - second);
        ASSERT_THAT(check_database(file), IsEmpty());
        EXPECT_GE(number_of(file, "SELECT count(*) FROM day WHERE day > 20000"), 2);
    }
    const char *runs = "SELECT d.name, c.time / 86400000000 - 20000, count(*) FROM collection c "
                       "JOIN device d ON d.id = c.device GROUP BY 1, 2 ORDER BY 1, 2";
    EXPECT_THAT(rows_of(file, runs),
                ElementsAre("dead|1|1", "live|6|2", "live|7|2", "live|8|2", "live|9|2"));
    EXPECT_EQ(number_of(file, "SELECT min(hour) / 24 - 20000 FROM rollup"), 3);
    EXPECT_THAT(rows_of(file, "SELECT d.name, min(l.time) / 86400000000 - 20000 FROM log l JOIN "
                              "device d ON d.id = l.device GROUP BY 1 ORDER BY 1"),
                ElementsAre("dead|1", "live|3"));
    EXPECT_EQ(number_of(file, "SELECT count(*) FROM fault"), 0);

    inventory.retention.bytes = 1; // as if there were no disk
    inventory.retention.age = Seconds(0);
    store->take_inventory(inventory);
    tidy_all(*store);
    EXPECT_THAT(rows_of(file, runs), ElementsAre("dead|1|1", "live|9|2"));
    EXPECT_TRUE(store->is_too_large());
    inventory.devices.pop_back();
    store->take_inventory(inventory);
    go_to((start + 11) * day);
    EXPECT_THAT(rows_of(file, runs), ElementsAre("live|9|1"));
    inventory.retention = {};
    store->take_inventory(inventory);
    tidy_all(*store);
    EXPECT_FALSE(store->is_too_large()) << "without a bound";
}

// The server's clock may jump while a collector is at work, or while none is.
TEST(Server, AClockThatJumpsDeletesNothing) {
    const Fresh fresh;
    const std::string &file = fresh.name();
    set_clock(file, start * day);
    auto store = open_store(file, {});
    for (int64_t today = start - 5; today < start; ++today) {
        RunRecord run = make_run(static_cast<uint64_t>(today), "pump", today * day);
        add_number(run, "c", 1, 1);
        write(*store, run);
    }
    const auto left = [&] {
        tidy_now(file, *store);
        return number_of(file, "SELECT count(*) FROM collection");
    };
    EXPECT_EQ(left(), 5);
    EXPECT_FALSE(store->is_clock_held());
    for (const Microseconds jump : {61 * 60 * second, -61 * 60 * second, 365 * day}) {
        set_clock(file, start * day + jump);
        EXPECT_TRUE(store->is_clock_held());
        EXPECT_EQ(left(), 5);
    }
    store = open_store(file, {});
    EXPECT_TRUE(store->is_clock_held()) << "after a year without collectors";
    EXPECT_EQ(left(), 5);
    set_clock(file, start * day + 59 * 60 * second);
    EXPECT_FALSE(store->is_clock_held()) << "come back";
    set_clock(file, start * day + 365 * day);
    open_store(file, {})->accept_clock(); // by a command
    EXPECT_FALSE(store->is_clock_held());
    EXPECT_EQ(left(), 1) << "of the last full day";
}

// Each damage, and a word of what is said of it.
TEST(Server, CheckFindsWhatCannotBe) {
    const Fresh fresh;
    const std::string &file = fresh.name();
    EXPECT_THAT(check_database(file), IsEmpty()); // before the first run
    for (uint64_t i = 1; i <= 5; ++i) {
        RunRecord run = make_run(i, "pump", static_cast<Microseconds>(i) * hour);
        add_text(run, "c", 1, std::string(300, static_cast<char>('a' + i)));
        add_number(run, "c", 2, i);
        add_log(run, "log", 1, {fmt::format("line {}", i)});
        write(*open_store(file, {}), run);
    }
    ASSERT_THAT(check_database(file), IsEmpty());
    const std::pair<const char *, const char *> damages[] = {
        {"UPDATE collection SET numbers = numbers[2:] WHERE id = 2", "run 2: some of its values"},
        {"UPDATE collection SET series = NULL WHERE id = 3", "run 3: some of its values"},
        {"UPDATE collection SET outcome = 99 WHERE id = 1", "run 1: it has no outcome"},
        {"UPDATE collection SET device = 99 WHERE id = 1", "run 1: its device"},
        {"DELETE FROM series WHERE key = 2", "values of a series"},
        {"UPDATE meta SET value = 5 WHERE key = 'next_collection'", "number of runs"},
        {"DELETE FROM long_value", "last values is not there"},
        {"UPDATE state SET entries = '\\xff'", "last values cannot be read"},
        {"UPDATE state SET device = 99", "device 99"},
        {"UPDATE rollup SET n = n[2:] WHERE hour = 2", "sums of hour 2"},
        {"UPDATE log SET device = 99 WHERE seq = 1", "lines of a log"},
        {"UPDATE device SET due = 5", "at another time"},
    };
    for (const auto &[sql, word] : damages) {
        const std::string copy = postgres_server().copy_database(file);
        execute(copy, sql);
        EXPECT_THAT(check_database(copy), Contains(HasSubstr(word))) << sql;
    }
}

// Of a password nothing is told, whatever is wrong; of tables that are not there, what makes them.
TEST(Server, SaysWhatIsWrongButNoPassword) {
    const std::string empty = postgres_server().make_database();
    EXPECT_THAT(failure_of([&] { open_store(empty, {}); }), HasSubstr("dtfleet migrate"));
    EXPECT_THAT(failure_of([&] { open_reader(empty); }), HasSubstr("dtfleet migrate"));
    for (const char *address :
         {"postgresql://user:se%zzcret@/fleet", "postgresql://user:secret@[::1/fleet",
          "postgresql://user:secret@/fleet?host=/nowhere",
          "postgresql://user:secret@/a?b=secret"}) {
        const std::string said = failure_of([&] { open_store(address, {}); });
        EXPECT_THAT(said, HasSubstr("the database: "));
        EXPECT_THAT(said, testing::Not(HasSubstr("cret"))) << address;
    }
    const Fresh newer;
    execute(newer.name(), "UPDATE meta SET value = 99 WHERE key = 'schema_version'");
    EXPECT_THAT(failure_of([&] { open_store(newer.name(), {}); }), HasSubstr("newer"));
}

// ---- from a file --------------------------------------------------------------------------------

RunRecord any_run(uint64_t number) {
    RunRecord run = make_run(number, number % 3 == 0 ? "fan" : "pump",
                             start * day + static_cast<Microseconds>(number) * 600 * second);
    if (number % 7 == 0) run.outcome = Outcome::reset;
    if (number % 11 == 0) run.kind = Kind::selftest, run.command = 3;
    run.identity = 0x0701;
    run.reason = number % 7 == 0 ? "broken" : "";
    for (uint32_t i = 0; i < number % 4; ++i) add_number(run, "c", i, number / 5 << (i * 20));
    add_text(run, std::string("\0\xff", 2), 1, std::string(number % 5 * 100, 'x'));
    add_number(run, "c", 9, 3);
    add_log(run, "log", 1, {fmt::format("line {}", number / 4), fmt::format("l {}", number / 2)});
    return run;
}

// In both engines, with the columns that differ as one of them has them.
std::vector<std::string> rows_in(const std::string &database, std::string sql) {
    const bool is_file = !is_address(database);
    const auto put = [&](const std::string &mark, const std::string &here) {
        for (size_t at; (at = sql.find(mark)) != sql.npos;) sql.replace(at, mark.size(), here);
    };
    put("$value", is_file ? "coalesce(number, bytes, '')" : value_bytes);
    return is_file ? rows_in_file(database, sql) : rows_of(database, sql);
}

// Broken off, done again and gone on with: each run is there once and whole, with all that stands
// beside it, and the next run is compared with the last one of the file.
TEST(Server, TakesTheHistoryOfAFileOnce) {
    const Scratch scratch;
    const std::string file = scratch / "fleet.db";
    const auto from = open_store(file, endless);
    from->take_meanings({{"c", {}, 0, "speed", "1/min", true, {}}});
    uint64_t number = 0;
    const auto write_some = [&] {
        for (int i = 0; i < 150; ++i) write(*from, any_run(++number));
    };
    write_some();
    from->add_faults({"pump", {1}, 5, {{0, 0, "pump", "run", "s", 0, "a"}}});
    from->pause("fan", 77);
    const Fresh fresh;
    const std::string &server = fresh.name();
    EXPECT_EQ(move_database(file, server).runs, 150U);
    write_some();
    from->add_faults(
        {"pump", {2}, 6, {{0, 0, "pump", "run", "s", 0, "a"}, {0, 0, "pump", "run", "s", 0, "b"}}});
    execute(server, "UPDATE moved SET last = 100"); // as if it had been broken off
    EXPECT_EQ(move_database(file, server).runs, 150U);
    EXPECT_EQ(move_database(file, server).runs, 0U);

    const auto expect_same = [&](const std::string &sql) {
        const auto theirs = rows_in(file, sql), ours = rows_in(server, sql);
        EXPECT_EQ(std::multiset<std::string>(ours.begin(), ours.end()),
                  std::multiset<std::string>(theirs.begin(), theirs.end()))
            << sql;
        EXPECT_FALSE(ours.empty()) << sql;
    };
    EXPECT_EQ(rows_in(server, "SELECT id FROM collection").size(), 300U);
    expect_same("SELECT run,device,time,status,command,section,key,ordinal,type,$value FROM "
                "value_flat");
    expect_same("SELECT id,time,reason,identity,address,messages,resends,to_end,history FROM "
                "collection");
    expect_same("SELECT name,identity_seen,paused_until,listed FROM device");
    expect_same("SELECT name,unit,key,signed,log FROM series");
    expect_same("SELECT hour,n,last,key FROM rollup_hour r JOIN series s ON s.id = r.series");
    expect_same("SELECT seq,text,stamp,l.time,gap_before FROM log l");
    expect_same("SELECT command,first,count FROM log_tail");
    expect_same("SELECT fault,kind,stamp,value FROM fault");
    EXPECT_THAT(check_database(server), IsEmpty());

    const auto to = open_store(server, endless);
    RunRecord next = any_run(number); // brings what the last one did
    next.id = id_of(++number);
    next.time += second;
    write(*to, next);
    EXPECT_THAT(rows_of(server, "SELECT coalesce(cardinality(series), 0) FROM collection "
                                "ORDER BY id DESC LIMIT 1"),
                ElementsAre("0"));
    const char *lines = "SELECT count(*) FROM log";
    EXPECT_EQ(rows_of(server, lines), rows_in_file(file, lines)) << "the log is the same still";

    execute(server, "DELETE FROM collection WHERE id = 7; UPDATE moved SET last = 1000");
    EXPECT_THAT(failure_of([&] { move_database(file, server); }), HasSubstr("on the server"));
}

} // namespace
} // namespace dtfleet
