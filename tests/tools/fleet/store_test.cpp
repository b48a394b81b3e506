// Logs as such, and what of the store is SQLite's.
#include "engine.h"
#include "fleet/store/logs.h"
#include "host/failure.h"
#include "samples.h"

#include <gmock/gmock.h>

#include <fstream>
#include <random>

namespace dtfleet {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

// ---- logs ---------------------------------------------------------------------------------------

// As many lines as both can share, by trying all.
size_t most_in_common(const std::vector<Line> &stored, const std::vector<Line> &fresh) {
    size_t n = std::min(stored.size(), fresh.size());
    while (!std::equal(fresh.begin(), fresh.begin() + static_cast<std::ptrdiff_t>(n),
                       stored.end() - static_cast<std::ptrdiff_t>(n)))
        --n;
    return n;
}

TEST(Logs, OverlapIsTheLongestSuffixThatBeginsTheNewLog) {
    std::mt19937 random(1); // few different lines, so that they repeat
    for (int turn = 0; turn < 5000; ++turn) {
        std::vector<Line> stored(random() % 12), fresh(random() % 12);
        for (auto *lines : {&stored, &fresh})
            for (Line &line : *lines) line = {"", random() % 3 == 0 ? "b" : "a"};
        ASSERT_EQ(overlap(stored, fresh), most_in_common(stored, fresh)) << turn;
    }
    EXPECT_TRUE(is_stamp("2026/01/31 12:00:00") && is_stamp("01/31 12:00:00"));
    for (const char *text :
         {"", "1/31 12:00:00", "01/31 12:00:0x", "01-31 12:00:00", "01/31 12:00:00 "})
        EXPECT_FALSE(is_stamp(text)) << text;
}

// The clock goes back to the hour of sums that somebody has damaged: they are replaced.
TEST(Store, WritesOnOverSumsThatCannotBeRead) {
    const Scratch scratch;
    const std::string file = scratch / "fleet.db";
    const auto store = open_store(file, endless);
    for (uint64_t i = 0; i < 5; ++i) {
        RunRecord run = make_run(i, "pump", static_cast<Microseconds>(10 + i % 2) * hour);
        add_number(run, "plain", 1, 7);
        ASSERT_NO_THROW(store->write({&run, 1})) << i;
        if (i == 1)
            sqlite::Database(file, sqlite::Database::Access::write)
                .execute("UPDATE rollup SET entries = '[1]'");
    }
    EXPECT_THAT(rows_of(file, "SELECT hour, entries FROM rollup"),
                ElementsAre("10|[[1,0,1,7,7,7]]", "11|[[1,0,2,7,7,7]]"));
}

// ---- files --------------------------------------------------------------------------------------

TEST(Store, RefusesWhatIsNotItsOwn) {
    const Scratch scratch;
    const std::string file = scratch / "fleet.db";
    const auto refusal = [](const std::string &path) -> std::string {
        try {
            open_store(path, {});
            return "";
        } catch (const dtctl::Failure &failure) {
            return failure.what();
        }
    };
    open_store(file, {});
    EXPECT_EQ(refusal(file), "");
    sqlite::Database(file, sqlite::Database::Access::write).execute("PRAGMA user_version = 99");
    EXPECT_THAT(refusal(file), HasSubstr("newer"));
    sqlite::Database(scratch / "other", sqlite::Database::Access::make)
        .execute("CREATE TABLE t(a)");
    EXPECT_THAT(refusal(scratch / "other"), HasSubstr("another program"));
    EXPECT_THAT(rows_of(scratch / "other", "PRAGMA journal_mode"), ElementsAre("delete"));
    std::ofstream(scratch / "text") << std::string(5000, 'x');
    EXPECT_THAT(refusal(scratch / "text"), HasSubstr("not a database"));
    EXPECT_THAT(refusal(scratch / "no/such/place"), HasSubstr("no/such: No such file"));
}

TEST(Reader, RefusesWhatItCannotRead) {
    const Scratch scratch;
    EXPECT_THROW(open_reader(scratch / "none.db"), dtctl::Failure);
    sqlite::Database(scratch / "other.db", sqlite::Database::Access::make)
        .execute("CREATE TABLE other(x)");
    EXPECT_THROW(open_reader(scratch / "other.db"), dtctl::Failure);
    open_store(scratch / "newer.db", {});
    sqlite::Database(scratch / "newer.db", sqlite::Database::Access::write)
        .execute("PRAGMA user_version = 99");
    EXPECT_THROW(open_reader(scratch / "newer.db"), dtctl::Failure);
}

} // namespace
} // namespace dtfleet
