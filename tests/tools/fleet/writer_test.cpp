// The writer's thread: what it promises when the database is slow, refuses, or the process dies.
#include "engine.h"
#include "fleet/store/writer.h"
#include "host/failure.h"
#include "samples.h"

#include <fmt/format.h>
#include <gmock/gmock.h>

#include <sys/wait.h>

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <random>

namespace dtfleet {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

template <typename Condition> void wait_until(Condition condition) {
    while (!condition()) std::this_thread::sleep_for(1ms);
}

// Holds each transaction until it is let through, and takes all runs but those of "poison".
struct Gate {
    std::mutex mutex;
    std::vector<std::string> taken;
};

class GatedStore : public Store {
public:
    explicit GatedStore(Gate &gate) : gate_(gate) {}
    void write(std::span<const RunRecord> runs) override {
        const std::lock_guard lock(gate_.mutex);
        for (const RunRecord &run : runs)
            if (run.device == "poison") throw dtctl::Failure(dtctl::Exit::failed, "never");
        for (const RunRecord &run : runs) gate_.taken.push_back(run.device);
    }
    void take_inventory(const Inventory &) override { gate_.taken.push_back("inventory"); }
    void take_meanings(const std::vector<SeriesMeaning> &) override {}
    size_t add_faults(const FaultFile &) override { return 0; }
    bool tidy() override { return false; }
    bool back_up(const std::string &) override { return false; }
    std::string no_room() override { return {}; }
    bool is_clock_held() override { return true; }
    bool is_too_large() override { return true; }
    void pause(const std::string &, Microseconds) override {}
    void rename(const std::string &, const std::string &) override {}
    void forget(const std::string &device) override { gate_.taken.push_back("forget " + device); }
    void accept(const std::string &) override { throw dtctl::Failure(dtctl::Exit::usage, "no"); }
    void accept_clock() override {}

private:
    Gate &gate_;
};

TEST(Writer, AFullQueueLetsNoRunBeginAndAllIsDoneInOrder) {
    Gate gate;
    std::unique_lock closed(gate.mutex);
    Writer::Bounds bounds;
    bounds.runs = 3;
    std::optional<Writer> writer(std::in_place, std::make_unique<GatedStore>(gate), bounds);
    std::vector<std::string> done;
    for (const char *device : {"a", "poison", "b"}) {
        EXPECT_TRUE(writer->has_room());
        writer->put(make_run(1, device, 1));
    }
    EXPECT_FALSE(writer->has_room());
    EXPECT_THAT(writer->not_ready(), HasSubstr("keep up"));
    writer->post([](Store &store) { store.forget("a"); },
                 [&](const std::string &error) { done.push_back("forgot" + error); });
    writer->post([](Store &store) { store.accept("a"); },
                 [&](const std::string &error) { done.push_back(error); });
    closed.unlock();
    wait_until([&] { return writer->deliver(), done.size() == 2; });
    EXPECT_THAT(done, ElementsAre("forgot", "no"));
    EXPECT_TRUE(writer->has_room());
    const Writer::Counts counts = writer->counts();
    EXPECT_EQ(std::tuple(counts.stored, counts.dropped, counts.writing), std::tuple(2, 1, 0));
    EXPECT_TRUE(counts.clock_held && counts.too_large);
    writer->put(make_run(2, "c", 1));
    writer.reset();
    EXPECT_THAT(gate.taken, ElementsAre("a", "b", "forget a", "c"));
}

// Locked by another program, then without room on the disk: nothing is asked and nothing is lost,
// and it goes on by itself.
TEST(Writer, TroubleStopsAskingAndPasses) {
    const Scratch scratch;
    const std::string file = scratch / "fleet.db";
    Writer writer(open_store(file, endless));
    uint64_t number = 0;
    const auto put_some = [&] {
        for (int i = 0; i < 50; ++i) {
            RunRecord run = make_run(++number, "pump", 1);
            add_text(run, "c", 1, std::string(3000, static_cast<char>('a' + number % 26)));
            writer.put(std::move(run));
        }
    };
    {
        sqlite::Database other(file, sqlite::Database::Access::write);
        const sqlite::Transaction transaction(other, sqlite::Transaction::Kind::write);
        put_some();
        wait_until([&] { return !writer.not_ready().empty(); });
        EXPECT_THAT(writer.not_ready(), HasSubstr("locked"));
        EXPECT_FALSE(writer.has_room());
        std::string refusal;
        writer.post([](Store &store) { store.pause("pump", 1); },
                    [&](const std::string &error) { refusal = error; });
        wait_until([&] { return writer.deliver(), !refusal.empty(); });
        EXPECT_THAT(refusal, HasSubstr("locked"));
    }
    wait_until([&] { return writer.counts().stored == number; });
    {
        const FileLimit limit(100'000);
        put_some();
        wait_until([&] { return !writer.not_ready().empty(); });
        EXPECT_FALSE(writer.has_room());
    }
    wait_until([&] { return writer.counts().stored == number; });
    wait_until([&] { return writer.has_room(); });
    EXPECT_THAT(rows_of(file, "SELECT count(*), count(DISTINCT run) FROM value_flat"),
                ElementsAre("100|100"));
}

// At the start as later on: who may be gone again is waited for, and what can never be is told.
TEST(Writer, OpensItsStoreAsSoonAsItCan) {
    const Scratch scratch;
    const std::string file = scratch / "fleet.db";
    int opened = 0;
    const auto source = [&](const std::string &path) {
        return Writer::Source{[path] { return open_store(path, endless); }, [&] { ++opened; }};
    };
    std::optional<Lock> lock(file);
    Writer writer(source(file));
    EXPECT_THAT(writer.not_ready(), HasSubstr("locked"));
    std::string refusal;
    writer.post([](Store &store) { store.accept_clock(); },
                [&](const std::string &error) { refusal = error; });
    wait_until([&] { return writer.deliver(), !refusal.empty(); });
    EXPECT_THAT(refusal, HasSubstr("locked"));
    {
        const FileLimit limit(1000);
        lock.reset();
        wait_until([&] { return writer.not_ready().find("locked") == std::string::npos; });
        EXPECT_THAT(writer.not_ready(), testing::AnyOf(HasSubstr("full"), HasSubstr("I/O")));
        EXPECT_FALSE(writer.has_room());
        EXPECT_EQ(opened, 0);
    }
    wait_until([&] { return writer.not_ready() == "the database is being opened"; });
    EXPECT_FALSE(writer.has_room()) << "its owner does not know";
    writer.deliver();
    EXPECT_TRUE(writer.has_room());
    EXPECT_EQ(opened, 1);

    const std::string other = scratch / "other.db", newer = scratch / "newer.db";
    lock.emplace(other);
    Writer never(source(other));
    never.deliver();
    sqlite::Database(newer, sqlite::Database::Access::make)
        .execute("PRAGMA user_version = 99; PRAGMA application_id = 0x64746c74; "
                 "CREATE TABLE later(what)");
    std::filesystem::rename(newer, other);
    const auto deliver = [&] {
        try {
            never.deliver();
            return dtctl::Exit::success;
        } catch (const dtctl::Failure &failure) {
            return failure.code();
        }
    };
    wait_until([&] { return deliver() != dtctl::Exit::success; });
    EXPECT_EQ(deliver(), dtctl::Exit::broken);
    EXPECT_THROW(Writer another(source(other)), dtctl::Failure) << "at once";
    EXPECT_EQ(opened, 1);
}

// What the service says of a database that cannot take a run; it keeps the run.
std::string trouble_with(const std::string &file) {
    Writer::Bounds bounds;
    bounds.farewell = 1ms;
    Writer writer(open_store(file, endless), bounds);
    RunRecord run = make_run(1, "pump", 1);
    add_number(run, "c", 1, 1);
    writer.put(run);
    wait_until([&] { return writer.counts().writing == 0 || !writer.not_ready().empty(); });
    const Writer::Counts counts = writer.counts();
    EXPECT_EQ(std::tuple(counts.stored, counts.dropped, counts.writing), std::tuple(0, 0, 1));
    return writer.not_ready();
}

TEST(Writer, ADamagedDatabaseIsToldAndNoRunIsGivenUp) {
    const Scratch scratch;
    const std::string file = scratch / "fleet.db";
    const auto store = open_store(file, endless);
    const auto page = rows_of(file, "SELECT rootpage FROM sqlite_schema WHERE name = 'value'");
    EXPECT_EQ(store->no_room(), "");
    std::filesystem::rename(file, scratch / "moved.db");
    EXPECT_THAT(store->no_room(), HasSubstr("moved"));
    std::filesystem::rename(scratch / "moved.db", file);
    sqlite::Database(file, sqlite::Database::Access::write)
        .execute("ALTER TABLE value RENAME TO renamed");
    EXPECT_THAT(trouble_with(file), HasSubstr("fleet.db: no such table"));
    sqlite::Database(file, sqlite::Database::Access::write)
        .execute("ALTER TABLE renamed RENAME TO value; PRAGMA wal_checkpoint(TRUNCATE)");
    std::fstream(file).seekp((std::stol(page[0]) - 1) * 4096) << std::string(4096, '\xff');
    EXPECT_THAT(trouble_with(file), HasSubstr("fleet.db: database disk image is malformed"));
}

// ---- killed -------------------------------------------------------------------------------------

constexpr uint64_t values_a_run = 20;

RunRecord numbered_run(uint64_t number) {
    RunRecord run = make_run(number, fmt::format("device {}", number % 7), 1);
    for (uint32_t key = 0; key < values_a_run; ++key) add_number(run, "c", key, number * 100 + key);
    return run;
}

// Puts the runs that the one before it may not have stored, and more for ever, so that it is always
// writing, and tells how many are stored.
[[noreturn]] void write_until_killed(const std::string &file, uint64_t first, int told) {
    Writer writer(open_store(file, endless));
    for (uint64_t number = first;; ++number) {
        writer.put(numbered_run(number));
        do {
            const uint64_t stored = writer.counts().stored;
            if (::write(told, &stored, sizeof stored) != sizeof stored) ::_exit(1);
        } while (writer.counts().writing > 3000);
    }
}

// Runs that were reported stored by a child that lived for a random time, from the first of them
// on if that is to be waited for.
uint64_t stored_by_child(const std::string &file, uint64_t first, std::chrono::milliseconds life,
                         bool waits) {
    int pipe[2];
    if (::pipe(pipe) != 0) throw std::runtime_error("no pipe");
    const pid_t child = ::fork();
    if (child == 0) write_until_killed(file, first, pipe[1]);
    ::close(pipe[1]);
    std::atomic<uint64_t> stored = 0;
    std::thread killer([&] {
        wait_until([&] { return stored != 0 || !waits; });
        std::this_thread::sleep_for(life);
        ::kill(child, SIGKILL);
    });
    for (uint64_t told = 0; ::read(pipe[0], &told, sizeof told) == sizeof told;) stored = told;
    killer.join();
    ::waitpid(child, nullptr, 0);
    ::close(pipe[0]);
    return stored;
}

TEST(Writer, KilledAtAnyMomentItHasStoredWholeRunsOnce) {
    const char *wanted = std::getenv("DT_KILLS");
    const int kills = wanted ? std::atoi(wanted) : 3;
    const Scratch scratch;
    const std::string file = scratch / "fleet.db";
    open_store(file, endless);
    std::mt19937 random(static_cast<unsigned>(::getpid()));
    uint64_t first = 1;
    uint64_t last = 0;
    for (int kill = 0; kill < kills; ++kill) {
        const std::chrono::milliseconds life(random() % 1200);
        const uint64_t stored = stored_by_child(file, first, life, kill % 2 == 0);
        SCOPED_TRACE(fmt::format("kill {}: {} stored from {}", kill, stored, first));
        const auto there = rows_of(file, "SELECT count(*) FROM collection");
        ASSERT_GE(std::stoull(there[0]), first - 1 + stored);
        ASSERT_THAT(rows_of(file, "PRAGMA integrity_check"), ElementsAre("ok"));
        // Each has its values, next to those of the run before it; none is missing or half.
        ASSERT_THAT(rows_of(file, "SELECT id FROM collection WHERE count <> 20 OR "
                                  "first <> 20 * (id - 1) + 1"),
                    IsEmpty());
        ASSERT_THAT(rows_of(file, "SELECT id FROM value WHERE value <> (id - 1) / 20 * 100 + 100 + "
                                  "(id - 1) % 20"),
                    IsEmpty());
        ASSERT_THAT(rows_of(file, "SELECT count(*) FROM value"),
                    ElementsAre(std::to_string(std::stoull(there[0]) * values_a_run)));
        last = std::stoull(there[0]);
        first = last > 30 ? last - 29 : 1; // some are put again
    }
    EXPECT_GT(last, 0U);
    fmt::print("{} kills, {} runs\n", kills, last);
}

} // namespace
} // namespace dtfleet
