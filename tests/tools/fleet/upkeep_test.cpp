// A database over the years: what is deleted and what never, copies, and what is found in damage.
#include "fleet/store/upkeep.h"
#include "host/failure.h"
#include "samples.h"

#include <fmt/format.h>
#include <gmock/gmock.h>

#include <fstream>

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

void write(Store &store, const RunRecord &run) { store.write({&run, 1}); }

constexpr const char *all_runs =
    "SELECT run, ordinal, key, coalesce(number, bytes) FROM value_flat";

std::string failure_of(const std::function<void()> &work) {
    try {
        work();
        return "";
    } catch (const dtctl::Failure &failure) {
        return failure.what();
    }
}

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
    EXPECT_EQ(rows_of(scratch / "a", all_runs, 4), rows_of(file, all_runs, 4));

    size_t told = 0;
    back_up(file, scratch / "b", [&](uint64_t done, uint64_t all) {
        EXPECT_LE(done, all);
        if (++told <= 2) write(*store, text_run(++number, 10)); // it begins anew
    });
    EXPECT_EQ(rows_of(scratch / "b", all_runs, 4), rows_of(file, all_runs, 4));
    EXPECT_THAT(rows_of(scratch / "b", "PRAGMA journal_mode", 1), ElementsAre("delete"));
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

} // namespace
} // namespace dtfleet
