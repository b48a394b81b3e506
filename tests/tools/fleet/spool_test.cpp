// Runs that wait on the disk while the database is away.
#include "fleet/store/spooling.h"

#include "host/failure.h"
#include "host/file.h"
#include "samples.h"

#include <fmt/format.h>
#include <gmock/gmock.h>

#include <sys/resource.h>

#include <csignal>
#include <fstream>

namespace dtfleet {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

RunRecord full_run(uint64_t number) {
    RunRecord run = make_run(number, fmt::format("device{}", number), -3);
    run.kind = Kind::selftest;
    run.command = 3;
    run.keeps_all = run.imported = true;
    run.outcome = Outcome::reset;
    run.reason = "why";
    run.identity = 0xFFFF;
    run.address = "10.0.0.1";
    run.to_connect = 1;
    run.to_opening = 2;
    run.to_end = 3;
    run.resends = 4;
    run.messages = 5;
    run.bytes = uint64_t{1} << 40;
    run.lease = {6, 7, true};
    add_number(run, "pump", 8, UINT64_MAX).section = 9;
    add_text(run, std::string("\0x", 2), 10, "text");
    return run;
}

std::string everything(const RunRecord &run) {
    std::string text = fmt::format(
        "{} {} {} {} {} {} {} {} {} {} {} {} {} {} {} {} {} {} {} {} {}", id_text(run.id),
        run.device, static_cast<int>(run.kind), run.command, run.keeps_all, run.imported,
        text_of(run.outcome), run.reason, run.identity.value_or(1), run.address, run.time,
        run.to_connect, run.to_opening, run.to_end, run.resends, run.messages, run.bytes,
        run.lease.epoch, run.lease.due, run.lease.keeps, run.samples.list.size());
    for (const Sample &one : run.samples.list)
        text += fmt::format("; {} {} {} {} {}", run.samples.collectors.at(one.collector),
                            one.section, one.key, static_cast<int>(one.kind),
                            is_number(one.kind) ? std::to_string(one.number)
                                                : std::string(run.samples.bytes_of(one)));
    return text;
}

// Killed or damaged anywhere, it gives the runs before that place, all of them as they were.
TEST(Spool, GivesWhatWasWrittenWholeWhereverItIsTorn) {
    const Scratch scratch;
    const std::string directory = scratch / "spool", file = directory + "/0000000001";
    const std::vector<RunRecord> runs{full_run(1), make_run(2, "b", 5), full_run(3)};
    std::vector<size_t> ends;
    {
        Spool spool(directory, 1'000'000);
        for (const RunRecord &run : runs) {
            spool.append({&run, 1});
            ends.push_back(std::filesystem::file_size(file));
        }
        EXPECT_EQ(std::tuple(spool.runs(), spool.bytes()), std::tuple(3, ends[2]));
    }
    const std::string whole = dtctl::read_whole_file(file);
    for (size_t place = 0; place <= 2 * whole.size(); ++place) {
        SCOPED_TRACE(place);
        const bool is_torn = place <= whole.size();
        const size_t at = is_torn ? place : place - whole.size() - 1;
        std::string bytes = is_torn ? whole.substr(0, at) : whole;
        if (!is_torn) bytes[at] = static_cast<char>(bytes[at] ^ 0x10);
        std::ofstream(file, std::ios::binary) << bytes;
        if (!is_torn && at < 8) {
            EXPECT_THROW(Spool(directory, 1), dtctl::Failure) << "it is something else";
            continue;
        }
        Spool spool(directory, 1'000'000);
        const auto sound =
            static_cast<size_t>(std::upper_bound(ends.begin(), ends.end(), at) - ends.begin());
        ASSERT_EQ(spool.runs(), sound);
        const std::vector<RunRecord> read = spool.front();
        ASSERT_THAT(read, SizeIs(sound));
        for (size_t i = 0; i < sound; ++i) ASSERT_EQ(everything(read[i]), everything(runs[i]));
        if (place % 64 != 0) continue; // the disk takes its time
        spool.append({&runs[2], 1});
        spool.pop_front();
        EXPECT_EQ(everything(spool.front().at(0)), everything(runs[2])) << "not behind the damage";
        spool.pop_front();
        EXPECT_TRUE(spool.is_empty());
        EXPECT_TRUE(std::filesystem::is_empty(directory));
    }
}

// Bytes that no spool has written, but that have its form.
TEST(Spool, UnpacksNothingThatPointsOutside) {
    const auto is_run = [](const RunRecord &run, const char *more = "") {
        RunRecord read;
        return unpack(pack(run) + more, read);
    };
    RunRecord run = full_run(1);
    EXPECT_TRUE(is_run(run));
    EXPECT_FALSE(is_run(run, "x"));
    run.samples.list[1].size = 5;
    EXPECT_FALSE(is_run(run));
    run = full_run(1);
    run.samples.list[0].collector = 2;
    EXPECT_FALSE(is_run(run));
}

// ---- in front of a store ------------------------------------------------------------------------

struct Far {
    bool is_away = false;
    size_t falls_after = SIZE_MAX; // runs
    std::vector<std::string> taken;
};

class FarStore : public Store {
public:
    explicit FarStore(Far &far) : far_(far) {}
    void write(std::span<const RunRecord> runs) override {
        check();
        for (const RunRecord &run : runs)
            if (run.device == "poison") throw dtctl::Failure(dtctl::Exit::failed, "never");
        for (const RunRecord &run : runs) far_.taken.push_back(run.device);
        far_.is_away = far_.taken.size() >= far_.falls_after;
    }
    void take_inventory(const Inventory &) override { take("inventory"); }
    bool tidy() override { return check(), false; }
    bool back_up(const std::string &) override { return false; }
    std::string no_room() override { return check(), ""; }
    bool is_clock_held() override { return check(), true; }
    bool is_too_large() override { return check(), false; }
    void take_meanings(const std::vector<SeriesMeaning> &) override {}
    size_t add_faults(const FaultFile &) override { return 0; }
    void pause(const std::string &, Microseconds) override { take("pause"); }
    void rename(const std::string &, const std::string &) override { take("rename"); }
    void forget(const std::string &) override { take("forget"); }
    void accept(const std::string &) override { take("accept"); }
    void accept_clock() override {}

private:
    void check() const {
        if (far_.is_away) throw Unavailable("nobody answers");
    }
    void take(const char *what) {
        check();
        far_.taken.push_back(what);
    }
    Far &far_;
};

struct Spooling : testing::Test {
    void open(uint64_t most = 1'000'000) {
        store.reset();
        store.emplace(std::make_unique<FarStore>(far), Spool(scratch / "spool", most), report);
    }
    void write(std::initializer_list<const char *> devices) {
        std::vector<RunRecord> runs;
        for (const char *device : devices) runs.push_back(make_run(1, device, 1));
        store->write(runs);
    }
    const Scratch scratch;
    Far far;
    std::shared_ptr<SpoolReport> report = std::make_shared<SpoolReport>();
    std::optional<SpoolingStore> store;
};

TEST_F(Spooling, WhatTheStoreDoesNotTakeIsDeliveredInOrder) {
    open();
    write({"a"});
    EXPECT_EQ(report->get().spooled, 0U);
    far.is_away = true;
    write({"b", "c"});
    EXPECT_FALSE(store->tidy());
    EXPECT_EQ(report->get().away, "nobody answers");
    EXPECT_EQ(std::tuple(report->get().runs, report->get().spooled), std::tuple(2, 2));
    EXPECT_EQ(store->no_room(), "") << "there is, here";
    store->take_inventory({});
    EXPECT_THROW(store->pause("a", 1), Unavailable);
    open(); // this side starts again
    EXPECT_EQ(report->get().runs, 2U);
    write({"d"});
    far.is_away = false;
    open();
    write({"e"}); // behind those before it
    EXPECT_THAT(far.taken, ElementsAre("a"));
    EXPECT_THROW(store->rename("b", "x"), Unavailable) << "it would come back under its old name";
    EXPECT_THROW(store->forget("b"), Unavailable);
    while (store->tidy()) {
    }
    write({"f"});
    EXPECT_THAT(far.taken, ElementsAre("a", "b", "c", "d", "e", "f"));
    EXPECT_EQ(report->get().away + std::to_string(report->get().bytes), "0");
    store->rename("b", "x");
    EXPECT_TRUE((store->tidy(), store->is_clock_held()));
}

TEST_F(Spooling, FullItHasNoRoomButTakesWhatIsUnderWay) {
    far.is_away = true;
    open(100);
    EXPECT_EQ(store->no_room(), "");
    write({"a", "poison", "b"});
    EXPECT_THAT(store->no_room(), HasSubstr("full: nobody answers"));
    write({"c"});
    store->take_inventory({}); // and this, which comes before them
    far.is_away = false;
    far.falls_after = 3; // in the middle
    store->tidy();
    EXPECT_EQ(report->get().runs, 4U);
    far.falls_after = SIZE_MAX;
    far.is_away = false;
    while (store->tidy()) {
    }
    EXPECT_EQ(store->no_room(), "");
    EXPECT_THAT(far.taken, ElementsAre("inventory", "a", "b", "a", "b", "c"));
    far.is_away = true;
    write({"d"});
    far.is_away = false;
    while (store->tidy()) {
    }
    EXPECT_EQ(far.taken.back(), "d");
}

// Neither the store nor the disk: the caller keeps them, and nothing is there twice afterwards.
TEST_F(Spooling, WithoutRoomOnTheDiskTheCallerKeepsTheRuns) {
    far.is_away = true;
    open();
    write({"a"});
    const auto before = std::signal(SIGXFSZ, SIG_IGN);
    rlimit was{};
    ::getrlimit(RLIMIT_FSIZE, &was);
    const rlimit little{report->get().bytes + 20, was.rlim_max};
    ::setrlimit(RLIMIT_FSIZE, &little);
    EXPECT_THROW(write({"b"}), Unavailable);
    ::setrlimit(RLIMIT_FSIZE, &was);
    std::signal(SIGXFSZ, before);
    write({"b"});
    far.is_away = false;
    open();
    while (store->tidy()) {
    }
    EXPECT_THAT(far.taken, ElementsAre("a", "b"));
}

} // namespace
} // namespace dtfleet
