// Several collectors on one database: who may ask, and what becomes of runs when anything dies.
#include "../samples.h"
#include "fleet/store/postgres/open.h"
#include "fleet/store/writer.h"
#include "host/failure.h"
#include "server.h"

#include <fmt/format.h>
#include <gmock/gmock.h>

#include <sys/wait.h>

#include <csignal>
#include <random>
#include <set>
#include <thread>

namespace dtfleet {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;

class Shared : public testing::Test {
protected:
    void SetUp() override {
        if (!PostgresServer::is_installed()) GTEST_SKIP() << "there is no PostgreSQL server";
        address = postgres_server().make_database();
        EXPECT_EQ(postgres::migrate_database(address).before, 0);
    }
    std::vector<std::string> rows(const std::string &sql) const {
        return PostgresServer::rows_of(address, sql);
    }
    void list_devices(size_t count) const {
        Inventory inventory;
        for (size_t i = 0; i < count; ++i)
            inventory.devices.emplace_back().name = fmt::format("device{}", i);
        postgres::open_store(address, {})->take_inventory(inventory);
    }
    std::string address;
};

constexpr Leases::Duration long_lease = 1h;

TEST_F(Shared, EachDeviceIsClaimedByOneOfAllWhoTry) {
    constexpr size_t devices = 2000;
    list_devices(devices);
    std::mutex mutex;
    std::multiset<std::string> claimed;
    const auto collect = [&] {
        const auto leases = open_leases(address, "collector");
        for (;;) {
            const auto batch = leases->claim(20, 0s, long_lease, 1);
            if (batch.empty()) return;
            const std::lock_guard lock(mutex);
            for (const Lease &lease : batch) claimed.insert(lease.name);
        }
    };
    std::vector<std::thread> collectors;
    for (int i = 0; i < 4; ++i) collectors.emplace_back(collect);
    for (std::thread &collector : collectors) collector.join();
    EXPECT_EQ(claimed.size(), devices);
    EXPECT_EQ(std::set<std::string>(claimed.begin(), claimed.end()).size(), devices);
}

RunRecord leased_run(uint64_t number, const Lease &lease, uint64_t value) {
    RunRecord run = make_run(number, lease.name, static_cast<Microseconds>(number));
    run.lease.epoch = lease.epoch;
    run.lease.due = static_cast<Microseconds>(number * 1000);
    add_number(run, "c", 1, value);
    return run;
}

// What a collector brings after its lease has ended is history; it changes nothing that holds now.
TEST_F(Shared, WhoComesBackLateChangesNothingButHistory) {
    list_devices(1);
    const auto store = postgres::open_store(address, {});
    const auto first = open_leases(address, "first");
    const auto second = open_leases(address, "second");
    auto early = first->claim(10, 0s, 0s, 1); // ends at once
    ASSERT_EQ(early.size(), 1U);
    EXPECT_EQ(first->renew(early, 0s), std::vector<bool>{true}); // nobody has it yet
    const auto late = second->claim(10, 0s, long_lease, 1);
    ASSERT_EQ(late.size(), 1U);
    EXPECT_GT(late[0].epoch, early[0].epoch);
    EXPECT_EQ(first->renew(early, long_lease), std::vector<bool>{false});
    early[0].due = 99;
    first->release(early);
    EXPECT_TRUE(first->claim(10, 0s, long_lease, 1).empty());
    EXPECT_FALSE(first->claim_one("device0", long_lease).has_value());

    const auto write = [&](const RunRecord &run) { store->write({&run, 1}); };
    write(leased_run(1, early[0], 70));
    EXPECT_THAT(rows("SELECT due, last_try FROM device"), ElementsAre("0|0"));
    write(leased_run(3, late[0], 80));
    write(leased_run(2, early[0], 70));
    EXPECT_THAT(rows("SELECT id, history, numbers FROM collection ORDER BY id"),
                ElementsAre("1|1|{70}", "2|0|{80}", "3|1|{70}"));
    EXPECT_THAT(rows("SELECT due, lease_until, free_at, last_try FROM device"),
                ElementsAre("3000|0|3000|3"));
    const auto again = first->claim(10, 0s, long_lease, 1); // the run's end gave it back
    ASSERT_EQ(again.size(), 1U);
    EXPECT_EQ(std::tuple(again[0].due, again[0].last_try, again[0].failures),
              std::tuple(3000, 3, 0));
    store->pause("device0", INT64_MAX);
    EXPECT_THAT(rows("SELECT free_at FROM device"), ElementsAre("9223372036854775807"));
    EXPECT_EQ(first->renew(again, long_lease), std::vector<bool>{false}) << "it is paused";
    first->release(again);
    EXPECT_TRUE(second->claim(10, 0s, long_lease, 1).empty());
    EXPECT_TRUE(second->claim_one("device0", long_lease)) << "by hand it is asked";
}

// Leases of a life that is over for certain are free at once, and no others.
TEST_F(Shared, TheNextLifeOfOneTakesWhatItsLastOneHeld) {
    list_devices(3);
    const auto all = [&](Leases &leases) { return leases.claim(10, 0s, long_lease, 1).size(); };
    const auto killed = open_leases(address, "a", "home"),
               other = open_leases(address, "a", "else");
    EXPECT_EQ(killed->claim(2, 0s, long_lease, 1).size(), 2U);
    EXPECT_EQ(all(*other), 1U);
    EXPECT_EQ(all(*open_leases(address, "a")), 0U) << "nobody knows about a name alone";
    const auto again = open_leases(address, "a", "home");
    const auto taken = again->claim(10, 0s, long_lease, 1);
    EXPECT_EQ(taken.size(), 2U);
    EXPECT_EQ(again->renew(taken, long_lease), std::vector<bool>(2, true)) << "as it is its own";
    EXPECT_EQ(all(*open_leases(address, "b", "elsewhere")), 0U);
}

// Also when a run ends under a collector that does not know of the change yet.
TEST_F(Shared, WhoHasOtherTurnsIsClaimedAtOnce) {
    const auto store = postgres::open_store(address, {});
    Inventory inventory;
    inventory.devices.resize(2);
    for (Device &device : inventory.devices) { // as a file could have them
        device.name = &device == &inventory.devices[0] ? "a" : "b";
        device.address = "10.0.0.1";
        device.port = 9099;
        device.interval = Seconds(60);
    }
    store->take_inventory(inventory);
    const auto collector = postgres::open_store(address, {});
    inventory.number = 1;
    collector->follow(inventory);
    const auto set = [&] { rows("UPDATE device SET due = 99, free_at = 99"); };
    const auto dues = [&] { return rows("SELECT due, free_at FROM device ORDER BY name"); };
    set();
    Inventory before = inventory;
    inventory.devices[0].selftest = Seconds(5);
    store->take_inventory(inventory);
    EXPECT_THAT(dues(), ElementsAre("0|0", "99|99"));
    set();
    before.devices[1].interval = Seconds(9);
    collector->follow(before);
    EXPECT_THAT(dues(), ElementsAre("99|99", "99|99")) << "it has an old one";
    inventory.number = 2;
    collector->follow(inventory);
    EXPECT_THAT(dues(), ElementsAre("0|0", "0|0"));
    set();
    collector->follow(inventory);
    EXPECT_THAT(dues(), ElementsAre("99|99", "99|99")) << "once";
    const auto leases = open_leases(address, "a");
    EXPECT_TRUE(leases->claim(10, 0s, long_lease, 1).empty()) << "for an old inventory";
    EXPECT_EQ(leases->claim(10, 0s, long_lease, 2).size(), 2U);
    EXPECT_THAT(rows("SELECT value FROM meta WHERE key = 'inventory'"), ElementsAre("2"));
}

TEST_F(Shared, EachSeesHowTheOthersDo) {
    list_devices(1);
    const auto first = open_leases(address, "a"), second = open_leases(address, "b", "home");
    first->tell({"", 5, 2.5, 300, 4000});
    Leases::Told told = second->tell({"", 6, 3.5, 301, 4001});
    const auto texts = [](const Leases::Told &seen) {
        std::vector<std::string> all;
        for (const CollectorState &one : seen.collectors)
            all.push_back(
                fmt::format("{} {} {} {} {}", one.name, one.held, one.rate, one.lag, one.oldest));
        return all;
    };
    EXPECT_THAT(texts(told), ElementsAre("a 5 2.5 300 4000", "b 6 3.5 301 4001"));
    EXPECT_EQ(told.inventory, 1);
    const auto third = open_leases(address, "b");
    EXPECT_THAT(texts(third->tell({})),
                ElementsAre("a 5 2.5 300 4000", "b 6 3.5 301 4001", "b (2) 0 0 0 0"));
    rows("UPDATE worker SET seen = seen - 31000000 WHERE name = 'a'");
    third->leave();
    EXPECT_THAT(texts(second->tell({})), ElementsAre("b 0 0 0 0")) << "gone or silent";
    rows("DELETE FROM worker");
    (void)first->tell({});
    EXPECT_THAT(texts(first->tell({})), ElementsAre("a 0 0 0 0")) << "it was away for a day";
}

// Who collects owns nothing, and who reads changes nothing.
TEST_F(Shared, EachRoleMayDoItsWorkAndNothingElse) {
    PostgresServer &server = postgres_server();
    const std::string fresh = server.make_database();
    const std::string name = PostgresServer::rows_of(fresh, "SELECT current_database()").front();
    postgres::migrate_database(fresh);
    rows("CREATE ROLE dtfleet_collect; CREATE ROLE dtfleet_read;"
         "CREATE ROLE collector LOGIN IN ROLE dtfleet_collect;"
         "CREATE ROLE viewer LOGIN IN ROLE dtfleet_read");
    EXPECT_EQ(postgres::migrate_database(fresh).before, 1)
        << "the tables stay, and the roles get their rights";
    const std::string collector = server.address_of(name, "collector");
    const std::string viewer = server.address_of(name, "viewer");

    const auto store = postgres::open_store(collector, {});
    Inventory inventory;
    inventory.devices.resize(2);
    inventory.devices[0].name = "dead";
    inventory.devices[1].name = "pump";
    store->take_inventory(inventory);
    EXPECT_EQ(open_leases(collector, "one")->claim(10, 0s, long_lease, 1).size(), 2U);
    std::vector<RunRecord> runs;
    for (const auto &[device, time] : {std::pair("dead", hour),
                                       {"dead", 2 * hour},
                                       {"pump", hour},
                                       {"pump", 2 * hour},
                                       {"pump", day}}) {
        runs.push_back(make_run(runs.size() + 1, device, time));
        add_number(runs.back(), "c", 1, runs.size());
    }
    store->write(runs);
    while (store->tidy()) {
    }
    // Of days that are too old, the last runs stay that have stored all that their device has.
    const auto reader = postgres::open_reader(viewer);
    Reader::Place place;
    std::vector<FlatValue> values;
    reader->values({}, place, 100, values);
    std::vector<uint64_t> numbers;
    for (const FlatValue &value : values) numbers.push_back(value.value.number);
    EXPECT_THAT(numbers, ElementsAre(1, 5));
    EXPECT_THROW(PostgresServer::rows_of(viewer, "DELETE FROM collection"), std::runtime_error);
    EXPECT_THROW(PostgresServer::rows_of(viewer, "SELECT make_day(1)"), std::runtime_error);
    EXPECT_THROW(PostgresServer::rows_of(collector, "DROP TABLE log"), std::runtime_error);
    EXPECT_THROW(postgres::open_store(server.address_of("postgres"), {}), dtctl::Failure)
        << "there are no tables";
}

// Each reads the state that the other one is about to change.
TEST_F(Shared, TwoWhoWriteTheSameDeviceLoseNothing) {
    constexpr uint64_t runs_each = 60;
    const auto write = [&](uint64_t first) {
        const auto store = postgres::open_store(address, {});
        for (uint64_t number = first; number < first + runs_each; ++number) {
            RunRecord run = make_run(number, "device", static_cast<Microseconds>(number));
            add_number(run, "c", 1, number);
            for (bool done = false; !done;) {
                try {
                    store->write({&run, 1});
                    done = true;
                } catch (const Unavailable &) { // the other one is faster all the time
                }
            }
        }
    };
    std::thread other([&] { write(1000); });
    write(1);
    other.join();
    RunRecord last = make_run(5000, "device", hour);
    postgres::open_store(address, {})->write({&last, 1});
    EXPECT_THAT(rows("SELECT n, min, max FROM rollup_hour"),
                ElementsAre(fmt::format("{}|1|{}", 2 * runs_each, 999 + runs_each)));
}

// One of them the database refuses, whatever is done about it. The others are stored once, whoever
// tries them again.
TEST_F(Shared, ARunThatCannotBeStoredTakesNoneAlong) {
    constexpr uint64_t runs = 40;
    Writer writer(postgres::open_store(address, endless));
    for (uint64_t number = 1; number <= runs; ++number) {
        RunRecord run = make_run(number, fmt::format("device{}", number % 8),
                                 static_cast<Microseconds>(number));
        if (number == 20) run.time = INT64_MAX;
        add_number(run, "c", 1, number);
        writer.put(std::move(run));
    }
    while (writer.counts().stored + writer.counts().dropped < runs)
        std::this_thread::sleep_for(1ms);
    EXPECT_EQ(writer.counts().dropped, 1U);
    EXPECT_THAT(rows("SELECT count(*), count(DISTINCT run) FROM collection"), ElementsAre("39|39"));
}

// ---- kills --------------------------------------------------------------------------------------

constexpr uint64_t values_a_run = 20;
constexpr Microseconds minute = 60 * second;

// One whose values are all different from each other run's.
RunRecord numbered_run(uint64_t number) {
    RunRecord run = make_run(number, fmt::format("device{}", number % 7),
                             static_cast<Microseconds>(number) * minute);
    run.outcome = Outcome::reset;
    for (uint64_t i = 0; i < values_a_run; ++i)
        add_number(run, "c", static_cast<uint32_t>(i), number * values_a_run + i);
    return run;
}

[[noreturn]] void write_until_killed(const std::string &address, uint64_t first, int told) {
    Writer writer(postgres::open_store(address, endless));
    for (uint64_t number = first;; ++number) {
        writer.put(numbered_run(number));
        while (writer.counts().writing > 500) std::this_thread::sleep_for(1ms);
        const uint64_t stored = first - 1 + writer.counts().stored;
        if (::write(told, &stored, sizeof stored) != sizeof stored) ::_exit(1);
    }
}

class Collector { // in a process of its own
public:
    Collector(const std::string &address, uint64_t first) {
        int ends[2];
        if (::pipe(ends) != 0) throw std::runtime_error("no pipe");
        child_ = ::fork();
        if (child_ == 0) {
            ::close(ends[0]);
            write_until_killed(address, first, ends[1]);
        }
        ::close(ends[1]);
        listener_ = std::thread([this, told = ends[0]] {
            uint64_t stored = 0;
            while (::read(told, &stored, sizeof stored) == sizeof stored) stored_ = stored;
            ::close(told);
        });
    }
    ~Collector() {
        ::kill(child_, SIGKILL);
        ::waitpid(child_, nullptr, 0);
        listener_.join();
    }
    Collector(const Collector &) = delete;
    Collector &operator=(const Collector &) = delete;
    uint64_t stored() const { return stored_; } // the last run that was reported so

private:
    pid_t child_;
    std::thread listener_;
    std::atomic<uint64_t> stored_ = 0;
};

// Two collectors deliver the same runs to a server that is killed, too: each run is stored once
// and whole, a device's in their order, whatever was reported stored is there, and the states are
// as if one had written them.
TEST_F(Shared, KilledAtAnyMomentRunsAreStoredWholeAndOnce) {
    const char *wanted = std::getenv("DT_KILLS");
    const int kills = wanted ? std::atoi(wanted) : 3;
    std::mt19937 random(static_cast<unsigned>(::getpid()));
    uint64_t first = 1;
    for (int kill = 0; kill < kills; ++kill) {
        uint64_t reported = 0;
        {
            const Collector one(address, first), other(address, first);
            const auto is_under_way = [&] { return std::max(one.stored(), other.stored()); };
            while (is_under_way() < first + 20) std::this_thread::sleep_for(1ms);
            std::this_thread::sleep_for(std::chrono::milliseconds(random() % 500));
            if (kill % 3 == 1) postgres_server().stop(random() % 2 ? SIGKILL : SIGQUIT);
            if (kill % 3 == 1) postgres_server().start();
            const uint64_t before = is_under_way();
            while (kill % 3 == 1 && is_under_way() < before + 20) std::this_thread::sleep_for(1ms);
            reported = is_under_way();
        }
        while (rows("SELECT 1 FROM pg_stat_activity WHERE application_name = 'dtfleet'").size() !=
               0)
            std::this_thread::sleep_for(1ms); // what they had sent is done
        SCOPED_TRACE(fmt::format("kill {}: {} reported from {}", kill, reported, first));
        ASSERT_THAT(
            rows(fmt::format("SELECT number FROM generate_series(1::bigint, {}) number WHERE NOT "
                             "EXISTS (SELECT 1 FROM collection WHERE time = number * "
                             "60000000)",
                             reported)),
            testing::IsEmpty());
        ASSERT_THAT(rows(fmt::format("SELECT id FROM collection, LATERAL (SELECT time / 60000000 "
                                     "AS number) n WHERE cardinality(numbers) <> {0} OR numbers[1] "
                                     "<> number * {0} OR numbers[{0}] <> number * {0} + {0} - 1",
                                     values_a_run)),
                    testing::IsEmpty());
        ASSERT_THAT(rows("SELECT 1 FROM (SELECT time > lead(time) OVER (PARTITION BY device ORDER "
                         "BY id) AS is_swapped FROM collection) c WHERE is_swapped"),
                    testing::IsEmpty());
        ASSERT_THAT(rows("SELECT sum(failures) - (SELECT count(*) FROM collection) FROM device"),
                    ElementsAre("0"));
        ASSERT_THAT(rows("SELECT r.hour, r.n FROM rollup_hour r WHERE n <> (SELECT count(*) FROM "
                         "collection c WHERE c.device = r.device AND c.time / 3600000000 = hour)"),
                    testing::IsEmpty());
        first = reported > 30 ? reported - 29 : 1; // some are put again
    }
    EXPECT_THAT(rows("SELECT count(*) > 0 FROM rollup"), ElementsAre("1"));
}

} // namespace
} // namespace dtfleet
