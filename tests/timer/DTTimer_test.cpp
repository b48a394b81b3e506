#include "support/clock.h"
#include "support/platform.h"

#include <dt/timer.h>
#include <gtest/gtest.h>

#include <setjmp.h>

namespace {

jmp_buf after_the_loop;
int sleeps_left;
std::vector<uint32_t> sleeps;

// Time passes while the loop sleeps; the last sleep leaves it.
void sleeping(uint32_t microseconds) {
    sleeps.push_back(microseconds);
    fake_clock.microseconds += microseconds;
    if (--sleeps_left == 0) longjmp(after_the_loop, 1);
}

void run_passes(int count) {
    fake_clock.sleeping = sleeping;
    sleeps_left = count;
    if (setjmp(after_the_loop) == 0) DTTimer_Loop();
}

void set_clock(int64_t milliseconds) { fake_clock.microseconds = milliseconds * 1000; }

DTTimer *timer(int32_t index) {
    return reinterpret_cast<DTTimer *>(DTList_Get(g_DTTimer_List, index));
}

std::vector<uint32_t> calls; // the clock at each call
int32_t keep_on(DTTimer *) {
    calls.push_back(static_cast<uint32_t>(fake_clock.microseconds / 1000));
    return 1;
}

} // namespace

TEST(Timer, RunsOneIntervalAfterRegistrationAndAfterEachRun) {
    set_clock(5000);
    ASSERT_EQ(DTTimer_Regist(keep_on, 1000), 1);
    EXPECT_EQ(timer(0)->last, 5000u);
    run_passes(10);
    EXPECT_EQ(timer(0)->times, 0);
    set_clock(6050);
    run_passes(23);
    EXPECT_EQ(calls, (std::vector<uint32_t>{6050, 7050, 8050}));
    EXPECT_EQ(timer(0)->last, 8050u);
    EXPECT_EQ(sleeps, std::vector<uint32_t>(33, 100000));
}

// Callback, then status, then last, then times; the pass's start counts, read once.
TEST(Timer, IsUpdatedBehindItsCallbackWithTheStartOfThePass) {
    set_clock(100);
    static std::vector<int64_t> seen;
    DTTimer_Regist(
        [](DTTimer *self) {
            seen.insert(seen.end(), {self->status, self->last, self->times});
            fake_clock.microseconds += 5000; // slow
            return self->times < 2 ? 7 : 0;
        },
        0);
    DTTimer_Regist(keep_on, 5);
    run_passes(4);
    EXPECT_EQ(seen, (std::vector<int64_t>{1, 100, 0, 1, 100, 1, 1, 205, 2}));
    EXPECT_EQ(timer(0)->status, 0);
    EXPECT_EQ(timer(0)->times, 3);
    EXPECT_EQ(timer(0)->last, 310u);
    // Judged by the pass's start although the callback before it took its time.
    EXPECT_EQ(calls, (std::vector<uint32_t>{210, 315, 415}));
    EXPECT_EQ(timer(1)->last, 415u);
}

TEST(Timer, WhatACallbackRegistersRunsInTheNextPass) {
    set_clock(0);
    run_passes(1); // nobody has registered yet
    EXPECT_EQ(g_DTTimer_List, nullptr);
    DTTimer_Regist([](DTTimer *) { return int32_t{DTTimer_Regist(keep_on, 0) - 1}; }, 0);
    run_passes(1);
    ASSERT_EQ(DTList_Length(g_DTTimer_List), 2);
    EXPECT_TRUE(calls.empty());
    run_passes(2);
    EXPECT_EQ(calls.size(), 2u);
}

TEST(Timer, EveryRunningTimerRunsWhenTheClockStartsAgain) {
    set_clock(4294900);
    DTTimer_Regist(keep_on, 4294000);
    DTTimer_Regist(keep_on, 4294000);
    timer(1)->status = 0;
    run_passes(1);
    EXPECT_TRUE(calls.empty());
    set_clock(4294968); // microseconds wrap to 704
    timer(0)->times = INT32_MAX;
    run_passes(2);
    EXPECT_EQ(calls.size(), 1u);
    EXPECT_EQ(timer(0)->last, 0u);
    EXPECT_EQ(timer(0)->times, INT32_MIN);
}

TEST(Timer, ShowPrintsTheClockAndEveryTimerWithACallback) {
    set_clock(1234567);
    DTTimer_Show();
    EXPECT_EQ(platform.take_console(), "current tm=1234567\n");
    EXPECT_EQ(DTTimer_Regist(nullptr, 0), 1); // inert
    DTTimer_Regist([](DTTimer *) { return int32_t{0}; }, 20);
    DTTimer_Regist(keep_on, UINT32_MAX);
    DTList_Append(g_DTTimer_List, 0);
    run_passes(3);
    DTTimer_Show();
    EXPECT_EQ(platform.take_console(), "current tm=1234867\n"
                                       "last=1234667,interval=20,status=0,times=1\n"
                                       "last=1234567,interval=-1,status=1,times=0\n");
}

TEST(Timer, ARegistrationWithoutMemoryLeavesNothingBehind) {
    for (unsigned nth = 1; nth <= 3; ++nth) { // the list, the timer, its node
        platform.fail_allocations_from(nth);
        EXPECT_EQ(DTTimer_Regist(keep_on, 1), 0);
        platform.allocations_work();
        EXPECT_EQ(DTList_Length(g_DTTimer_List), 0);
        EXPECT_EQ(platform.blocks, g_DTTimer_List ? 1u : 0u);
        if (g_DTTimer_List) DTList_Release(g_DTTimer_List);
        g_DTTimer_List = nullptr;
    }
    EXPECT_EQ(DTTimer_Regist(keep_on, 1), 1);
    EXPECT_EQ(platform.blocks, 3u);
    DTList_Release(g_DTTimer_List); // the list owns its timers
    EXPECT_EQ(platform.blocks, 0u);
}
