// An engine that shares its fleet with others: what it asks, and until when.
#include "simulated.h"

#include <gmock/gmock.h>

#include <sys/syscall.h>
#include <unistd.h>

#include <functional>

namespace dtfleet {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::Field;
using testing::IsEmpty;
using testing::SizeIs;

// The clock of leases jumps when a test says so, as it does for a process that was stopped.
time_t jumped = 0;
int calls_to_jump = -1; // as many more, and it jumps
std::function<void()> on_jump;

constexpr time_t long_stop = 3600;

void jump(time_t seconds) {
    jumped += seconds;
    if (on_jump) on_jump();
}

} // namespace
} // namespace dtfleet

extern "C" int clock_gettime(clockid_t clock, timespec *time) noexcept {
    using namespace dtfleet;
    if (clock == CLOCK_BOOTTIME && calls_to_jump >= 0 && calls_to_jump-- == 0) jump(long_stop);
    const long answer = ::syscall(SYS_clock_gettime, clock, time);
    if (clock == CLOCK_BOOTTIME) time->tv_sec += jumped;
    return static_cast<int>(answer);
}

namespace dtfleet {
namespace {

constexpr Time ahead = 1'000'000'000s; // of the database's clock

Microseconds shared(Time time) {
    return std::chrono::duration_cast<std::chrono::microseconds>(time + ahead).count();
}

Grant grant_of(const std::string &device, Microseconds due, Time until, int64_t epoch = 1) {
    return {{.device = 1, .epoch = epoch, .due = due, .name = device}, until};
}

struct SharedFleet : testing::Test {
    static SimulatorOptions simulated() {
        SimulatorOptions options;
        options.devices = 5;
        options.port = 0;
        options.manners = {Manner::good, Manner::good, Manner::good, Manner::good, Manner::dead};
        return options;
    }
    SharedFleet() : fleet(simulated(), Engine::Fleet::shared) {
        fleet.run_until([] { return true; });
    }
    ~SharedFleet() override {
        on_jump = nullptr;
        calls_to_jump = -1;
    }

    void grant(std::vector<Grant> claimed, size_t share = 0) {
        fleet.engine->grant({ahead, 100s, share, std::move(claimed), {}});
    }
    void run_for(Time time) {
        fleet.run_until([until = now() + time] { return now() > until; });
    }
    void run_until_asked(const std::string &device, size_t runs = 1) {
        fleet.run_until([&] { return fleet.kept.runs[device].size() >= runs; });
    }
    uint64_t commands() const { return fleet.engine->statistics().commands; }

    Fleet fleet;
    const Time far = now() + 10h;
};

TEST_F(SharedFleet, WhatIsGrantedIsAskedOnceAndNothingElse) {
    run_for(1200ms); // longer than the interval
    EXPECT_EQ(commands(), 0U);
    const Microseconds soon = shared(now() + 300ms);
    grant({grant_of("1", 1, far, 7), grant_of("2", soon, far), grant_of("nobody", 1, far)});
    run_until_asked("1");
    EXPECT_EQ(fleet.engine->statistics().lateness.counts().back(), 1U) << "overdue for years";
    run_until_asked("2");
    const RunRecord &overdue = fleet.kept.runs["1"][0], &timely = fleet.kept.runs["2"][0];
    EXPECT_LT(overdue.time, timely.time);
    EXPECT_LE(soon, shared(now()));
    run_for(1200ms);
    EXPECT_EQ(fleet.simulator.counts().runs, 2U);
    EXPECT_THAT(fleet.engine->take_returned(), IsEmpty()) << "the ends of their runs say it";
    EXPECT_EQ(overdue.lease.epoch, 7);
    EXPECT_FALSE(overdue.lease.keeps);
    const Device device = fleet.inventory.devices[1];
    const Time due = std::chrono::microseconds(overdue.lease.due);
    EXPECT_LT(next_turn(device, Kind::collection, due - 1us) - due, 1us) << "on its phase";
    grant({grant_of("1", overdue.lease.due, far, 8)});
    run_until_asked("1", 2);
}

// What is kept for a turn of the day after tomorrow is found out anew.
TEST_F(SharedFleet, WhoseTurnsAreOtherOnesIsGivenBackWithoutOne) {
    grant({grant_of("1", shared(now() + 2h), far), grant_of("2", shared(now() + 2h), far)}, 5);
    auto other = std::make_shared<Inventory>(fleet.inventory);
    other->devices[1].selftest = Seconds(7);
    fleet.engine->take_inventory(other);
    fleet.run_until([&] { return !fleet.engine->is_taking(); });
    EXPECT_THAT(fleet.engine->take_returned(),
                ElementsAre(testing::AllOf(Field(&Lease::name, "1"), Field(&Lease::due, 0))));
    EXPECT_EQ(fleet.engine->tenure().held(), 1U);
}

// Whoever comes can ask it then: it must not wait here.
TEST_F(SharedFleet, WhatCannotBeAskedInTimeIsGivenBack) {
    grant({grant_of("0", shared(now()), now() + 60s - 1ms), grant_of("1", 0, now() + 60s),
           grant_of("2", shared(now() + 5s), now() + 64s)});
    const auto returned = fleet.engine->take_returned();
    ASSERT_THAT(returned, ElementsAre(Field(&Lease::name, "0"), Field(&Lease::name, "1"),
                                      Field(&Lease::name, "2")));
    EXPECT_GE(returned[1].due, shared(now() - 1s)) << "a new one has its first turn from now on";
    EXPECT_LE(returned[1].due, shared(now() + 1s));
    EXPECT_EQ(commands(), 0U);

    // It waits for a place until it is too late.
    auto tight = std::make_shared<Inventory>(fleet.inventory);
    tight->limits.waiting = 1;
    tight->limits.silence = Seconds(1);
    fleet.engine->take_inventory(tight);
    fleet.run_until([&] { return !fleet.engine->is_taking(); });
    grant({grant_of("4", 1, far)});
    fleet.run_until([&] { return commands() == 1; });
    grant({grant_of("0", 1, now() + 61s)});
    run_for(20ms);
    jump(2);
    run_until_asked("4");
    run_for(20ms);
    EXPECT_THAT(fleet.engine->take_returned(), ElementsAre(Field(&Lease::name, "0")));
    EXPECT_EQ(commands(), 1U);
    fleet.kept.runs.clear();

    fleet.engine->pause("3", far);
    grant({grant_of("0", shared(now() + 1h), far), grant_of("4", 1, far)});
    fleet.run_until([&] { return commands() == 2; });
    fleet.engine->stop();
    EXPECT_THAT(fleet.kept.runs["4"],
                ElementsAre(Field(&RunRecord::lease, Field(&LeaseMark::due, 1))))
        << "it was not asked to the end";
    EXPECT_THAT(fleet.engine->take_returned(), ElementsAre(Field(&Lease::name, "0")));
}

// A device that does not answer is asked again and again, but not after that.
TEST_F(SharedFleet, ALeaseThatEndsEndsItsRun) {
    grant({grant_of("4", 1, now() + 70s)});
    fleet.run_until([&] { return fleet.engine->statistics().resends == 1; });
    jump(long_stop);
    run_until_asked("4");
    EXPECT_EQ(commands(), 2U);
    const RunRecord &run = fleet.kept.runs["4"][0];
    EXPECT_EQ(run.outcome, Outcome::stopped);
    EXPECT_EQ(run.lease.epoch, 1);
    EXPECT_EQ(run.lease.due, 0) << "it may be somebody else's";
    grant({grant_of("4", 1, now() + 70s, 2)});
    fleet.run_until([&] { return commands() == 3; });
    jump(long_stop);
    grant({grant_of("4", 1, now() + 70s, 3)}); // before it saw how late it is
    ASSERT_THAT(fleet.kept.runs["4"], SizeIs(2));
    EXPECT_EQ(fleet.kept.runs["4"][1].lease.epoch, 2);
    fleet.run_until([&] { return commands() == 4; });
}

// Between any two looks at the clock.
TEST_F(SharedFleet, StoppedAtAnyMomentItSendsNothingAfterwards) {
    uint64_t at_jump = 0, begun = 0;
    on_jump = [&] { at_jump = commands(); };
    for (int moment = 0; moment < 60; ++moment) {
        SCOPED_TRACE(moment);
        const uint64_t before = commands();
        const Time until = now() + 100s;
        calls_to_jump = moment;
        grant({grant_of("3", 1, until, moment + 1)});
        fleet.run_until([&] { return calls_to_jump < 0; });
        run_for(5ms);
        ASSERT_EQ(commands(), at_jump);
        begun += commands() - before;
        ASSERT_LE(commands() - before, 1U);
    }
    EXPECT_GT(begun, 10U);
    EXPECT_LT(begun, 60U);
}

TEST_F(SharedFleet, KeptLeasesGoOnFromTurnToTurn) {
    grant({grant_of("0", 1, far), grant_of("1", 1, far)}, 1);
    run_until_asked("0");
    run_until_asked("1"); // whose run ends first is more than our share
    const std::string name = fleet.kept.runs["0"][0].lease.keeps ? "0" : "1";
    const auto &kept = fleet.kept.runs[name], &other = fleet.kept.runs[name == "0" ? "1" : "0"];
    EXPECT_TRUE(kept[0].lease.keeps);
    run_until_asked(name, 3);
    ASSERT_THAT(other, SizeIs(1));
    EXPECT_FALSE(other[0].lease.keeps);
    EXPECT_THAT(fleet.engine->ending(), IsEmpty());
    jump(10 * 3600 - 80);
    EXPECT_THAT(fleet.engine->ending(), IsEmpty());
    jump(50);
    const auto ending = fleet.engine->ending();
    ASSERT_THAT(ending, SizeIs(1));
    fleet.engine->grant({ahead, 100s, 1, {}, {{ending[0], now() + 100s}}});
    run_until_asked(name, kept.size() + 2);
    fleet.engine->grant({ahead, 100s, 1, {}, {{ending[0], Time(0)}}});
    const uint64_t before = commands();
    run_for(1200ms);
    EXPECT_EQ(commands(), before) << "it is somebody else's";
    EXPECT_EQ(fleet.engine->wanted(), 1U + 64U) << "its share, and what it can ask soon";
}

// Both have one lease and one time at which they are due.
TEST(Tenure, ASelfTestComesInItsTurnAndIsMadeUpFor) {
    Device device;
    device.name = "pump";
    device.interval = 60s;
    device.selftest = 86400s;
    const Time test = next_turn(device, Kind::selftest, now() + ahead);
    Tenure tenure(true);
    const auto take = [&](Time database, Time due) {
        tenure.heed({database - now(), 100s, 0, {}, {}});
        tenure.take(3, device, grant_of("pump", due / 1us, now() + 100s));
        return tenure.turn(3, device).kind;
    };
    RunRecord run;
    run.outcome = Outcome::whole;
    const auto due_after = [&](Kind kind, uint32_t failures = 0) -> Time {
        run.kind = kind;
        return std::chrono::microseconds(tenure.end_run(3, device, failures, run).due);
    };
    EXPECT_EQ(take(test - 1s, test - 2s), Kind::collection);
    EXPECT_EQ(due_after(Kind::collection) / 1us, test / 1us);
    EXPECT_EQ(take(test + 30s, test - 2s), Kind::collection);
    EXPECT_EQ(due_after(Kind::collection) / 1us, test / 1us) << "it was missed meanwhile";
    EXPECT_EQ(take(test, test / 1us * 1us), Kind::selftest);
    EXPECT_LE(due_after(Kind::selftest), test + 70s);
    EXPECT_EQ(take(test + 1h, test - 2s), Kind::collection);
    EXPECT_GT(due_after(Kind::collection), test + 1h) << "that was long ago";
    EXPECT_EQ(take(test + 1h, test + 1h), Kind::collection);
    EXPECT_GT(due_after(Kind::collection, 2), test + 1h + 180s) << "it has failed twice";
}

} // namespace
} // namespace dtfleet
